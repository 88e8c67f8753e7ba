#include "runs/indicator_simulation.h"

#include "engine/simulation.hpp"
#include "runs/run_problem.hpp"

namespace kestrum {

int RunCategorySimulation(const VORL_KESTRUMINDICATORINPUT& input, const Problem& problem, VORL_IMAGE* image,
                          const RunOutput& output) noexcept {
  RealizationOutput sink(output, *image, problem.passes());
  const Categories categories = CategoriesOf(input, problem.setups[0].model.ordinaryKriging);
  SeededRandom random(input.seed, input.seedIncrement);
  return SimulateCategories(problem, categories, input.nrealization, random, image->var, sink);
}

}  // namespace kestrum

using namespace kestrum;

int VORLKestrumIndicatorSimSimulation(VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                      VORL_IMAGE* outputImage, BOOLEAN* rotationStationary, BOOLEAN* weightStationary,
                                      BOOLEAN* /*rangeStationary*/, BOOLEAN* covModelStationary, real* sill,
                                      real*** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                      int** neighborShift, int* nneighborLimit, int* nodeStatus, int nnode,
                                      int* simulationPath, int pathFirstSimulated, real* dataValue, int /*ndataValue*/,
                                      FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
                                      int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  CategorySetups setups;
  const int status =
      setups.Fill({*input, ordinaryKriging, rotationStationary, weightStationary, covModelStationary, sill,
                   rotationMatrix, searchNeighborhood, neighborShift, nneighborLimit, *image->grid},
                  false);
  if (status != 0) return status;
  return RunCategorySimulation(*input,
                               {*image->grid,
                                setups,
                                {.nodeStatus = nodeStatus, .known = dataValue},
                                {simulationPath, nnode, pathFirstSimulated, pathFirstSimulated},
                                {progressMonitor, progressCallback, Dealing::Serial()}},
                               image, {*input, outputImage, reportFile});
}

int VORLOMPKestrumIndicatorSimSimulation(VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                         VORL_IMAGE* outputImage, BOOLEAN* rotationStationary,
                                         BOOLEAN* weightStationary, BOOLEAN* /*rangeStationary*/,
                                         BOOLEAN* covModelStationary, real* sill, real*** rotationMatrix,
                                         VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int** neighborShift,
                                         int* nneighborLimit, int* nodeStatus, int nnode, int* simulationPath,
                                         int pathFirstSimulated, real* dataValue, int /*ndataValue*/, FILE* reportFile,
                                         VORL_PROGRESSMONITOR* progressMonitor,
                                         int (*progressCallback)(VORL_PROGRESSMONITOR*), int nthreads) noexcept {
  CategorySetups setups;
  const int status =
      setups.Fill({*input, ordinaryKriging, rotationStationary, weightStationary, covModelStationary, sill,
                   rotationMatrix, searchNeighborhood, neighborShift, nneighborLimit, *image->grid},
                  false);
  if (status != 0) return status;
  return RunCategorySimulation(*input,
                               {*image->grid,
                                setups,
                                {.nodeStatus = nodeStatus, .known = dataValue},
                                {simulationPath, nnode, pathFirstSimulated, pathFirstSimulated},
                                {progressMonitor, progressCallback, Dealing::Threads(nthreads)}},
                               image, {*input, outputImage, reportFile});
}
