#include "runs/simulation.h"

#include "engine/simulation.hpp"
#include "runs/run_problem.hpp"

namespace kestrum {

int RunSimulation(const VORL_KESTRUMINPUT& input, const Problem& problem, VORL_IMAGE* image,
                  const RunOutput& output) noexcept {
  RealizationOutput sink(output, *image, problem.passes());
  SeededRandom random(input.seed, input.seedIncrement);
  const GibbsPlan gibbs{input.nGibbsSamplerPathMin, input.nGibbsSamplerPathMax};
  return Simulate(problem, LawOf(input), gibbs, input.nrealization, random, image->var, sink);
}

}  // namespace kestrum

using namespace kestrum;

int VORLKestrumSimSimulation(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                             VORL_IMAGE* outputImage, BOOLEAN rotationStationary, BOOLEAN weightStationary,
                             BOOLEAN /*rangeStationary*/, BOOLEAN covModelStationary, real sill, real** rotationMatrix,
                             VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int* neighborShift, int nneighborLimit,
                             int* nodeStatus, BOOLEAN hasInequalityData, real** inequalityMin, real** inequalityMax,
                             int nnode, int* simulationPath, int pathFirstInequality, int pathFirstSimulated,
                             real* dataValue, int /*ndataValue*/, FILE* reportFile,
                             VORL_PROGRESSMONITOR* progressMonitor,
                             int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  const ModelSetup setup{MakeKrigingModel(input->covModel, ordinaryKriging, rotationStationary, weightStationary,
                                          covModelStationary, sill, rotationMatrix),
                         {searchNeighborhood, neighborShift, nneighborLimit, *image->grid}};
  GridData data{.nodeStatus = nodeStatus, .known = dataValue};
  if (hasInequalityData && inequalityMin != nullptr && inequalityMax != nullptr)
    data.SetBounds(inequalityMin[0], inequalityMax[0]);
  return RunSimulation(*input,
                       {*image->grid,
                        {&setup, 1},
                        data,
                        {simulationPath, nnode, pathFirstInequality, pathFirstSimulated},
                        {progressMonitor, progressCallback, Dealing::Serial()}},
                       image, {*input, outputImage, reportFile});
}

int VORLOMPKestrumSimSimulation(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                VORL_IMAGE* outputImage, BOOLEAN rotationStationary, BOOLEAN weightStationary,
                                BOOLEAN /*rangeStationary*/, BOOLEAN covModelStationary, real sill,
                                real** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int* neighborShift,
                                int nneighborLimit, int* nodeStatus, BOOLEAN hasInequalityData, real** inequalityMin,
                                real** inequalityMax, int nnode, int* simulationPath, int pathFirstInequality,
                                int pathFirstSimulated, real* dataValue, int /*ndataValue*/, FILE* reportFile,
                                VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                int nthreads) noexcept {
  const ModelSetup setup{MakeKrigingModel(input->covModel, ordinaryKriging, rotationStationary, weightStationary,
                                          covModelStationary, sill, rotationMatrix),
                         {searchNeighborhood, neighborShift, nneighborLimit, *image->grid}};
  GridData data{.nodeStatus = nodeStatus, .known = dataValue};
  if (hasInequalityData && inequalityMin != nullptr && inequalityMax != nullptr)
    data.SetBounds(inequalityMin[0], inequalityMax[0]);
  return RunSimulation(*input,
                       {*image->grid,
                        {&setup, 1},
                        data,
                        {simulationPath, nnode, pathFirstInequality, pathFirstSimulated},
                        {progressMonitor, progressCallback, Dealing::Threads(nthreads)}},
                       image, {*input, outputImage, reportFile});
}
