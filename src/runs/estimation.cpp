#include "runs/estimation.h"

#include "engine/estimation.hpp"
#include "io/image_files.h"
#include "runs/run_problem.hpp"

namespace kestrum {

int RunEstimation(const VORL_KESTRUMINPUT& input, const Problem& problem, VORL_IMAGE* image, VORL_IMAGE* stdImage,
                  const RunOutput& output) noexcept {
  int status = Estimate(problem, LawOf(input), image->var, stdImage->var);
  if (status != 0) return status;
  output.Collect(*image, 0, problem.passes());
  output.Collect(*stdImage, 1, problem.passes());
  status = output.WriteSeparately(image, VORL_KESTRUM_SUFFIX_FOR_ESTIMATE VORL_EXTENSION_FOR_IMAGE_FILE);
  if (status != 0) return status;
  status = output.WriteSeparately(stdImage, VORL_KESTRUM_SUFFIX_FOR_ST_DEV VORL_EXTENSION_FOR_IMAGE_FILE);
  if (status != 0) return status;
  problem.progress().FinishRealization();
  return problem.progress().Publish(0.0);
}

}  // namespace kestrum

using namespace kestrum;

int VORLKestrumSimEstimation(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* stdImage,
                             VORL_IMAGE* outputImage, BOOLEAN rotationStationary, BOOLEAN weightStationary,
                             BOOLEAN /*rangeStationary*/, BOOLEAN covModelStationary, real sill, real** rotationMatrix,
                             VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int* neighborShift, int nneighborLimit,
                             int* nodeStatus, int nnode, int* simulationPath, int pathFirstSimulated, FILE* reportFile,
                             VORL_PROGRESSMONITOR* progressMonitor,
                             int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  const ModelSetup setup{MakeKrigingModel(input->covModel, ordinaryKriging, rotationStationary, weightStationary,
                                          covModelStationary, sill, rotationMatrix),
                         {searchNeighborhood, neighborShift, nneighborLimit, *image->grid}};
  return RunEstimation(*input,
                       {*image->grid,
                        {&setup, 1},
                        {.nodeStatus = nodeStatus},
                        {simulationPath, nnode, pathFirstSimulated, pathFirstSimulated},
                        {progressMonitor, progressCallback, Dealing::Serial()}},
                       image, stdImage, {*input, outputImage, reportFile});
}

int VORLOMPKestrumSimEstimation(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                VORL_IMAGE* stdImage, VORL_IMAGE* outputImage, BOOLEAN rotationStationary,
                                BOOLEAN weightStationary, BOOLEAN /*rangeStationary*/, BOOLEAN covModelStationary,
                                real sill, real** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                int* neighborShift, int nneighborLimit, int* nodeStatus, int nnode, int* simulationPath,
                                int pathFirstSimulated, FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
                                int (*progressCallback)(VORL_PROGRESSMONITOR*), int nthreads) noexcept {
  const ModelSetup setup{MakeKrigingModel(input->covModel, ordinaryKriging, rotationStationary, weightStationary,
                                          covModelStationary, sill, rotationMatrix),
                         {searchNeighborhood, neighborShift, nneighborLimit, *image->grid}};
  return RunEstimation(*input,
                       {*image->grid,
                        {&setup, 1},
                        {.nodeStatus = nodeStatus},
                        {simulationPath, nnode, pathFirstSimulated, pathFirstSimulated},
                        {progressMonitor, progressCallback, Dealing::Threads(nthreads)}},
                       image, stdImage, {*input, outputImage, reportFile});
}

int VORLKestrumSimEstimationUniqueSN(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                     VORL_IMAGE* stdImage, VORL_IMAGE* outputImage, real sill, real** rotationMatrix,
                                     int ndata, int nnode, int* simulationPath, int pathFirstSimulated,
                                     FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
                                     int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  const ModelSetup setup{MakeKrigingModel(input->covModel, ordinaryKriging, TRUE, TRUE, TRUE, sill, rotationMatrix),
                         {}};
  return RunEstimation(*input,
                       {*image->grid,
                        {&setup, 1},
                        {.uniqueMax = ndata},
                        {simulationPath, nnode, pathFirstSimulated, pathFirstSimulated},
                        {progressMonitor, progressCallback, Dealing::Serial()}},
                       image, stdImage, {*input, outputImage, reportFile});
}

int VORLOMPKestrumSimEstimationUniqueSN(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                        VORL_IMAGE* stdImage, VORL_IMAGE* outputImage, real sill, real** rotationMatrix,
                                        int ndata, int nnode, int* simulationPath, int pathFirstSimulated,
                                        FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
                                        int (*progressCallback)(VORL_PROGRESSMONITOR*), int nthreads) noexcept {
  const ModelSetup setup{MakeKrigingModel(input->covModel, ordinaryKriging, TRUE, TRUE, TRUE, sill, rotationMatrix),
                         {}};
  return RunEstimation(*input,
                       {*image->grid,
                        {&setup, 1},
                        {.uniqueMax = ndata},
                        {simulationPath, nnode, pathFirstSimulated, pathFirstSimulated},
                        {progressMonitor, progressCallback, Dealing::Threads(nthreads)}},
                       image, stdImage, {*input, outputImage, reportFile});
}
