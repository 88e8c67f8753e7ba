#include "runs/indicator_estimation.h"

#include "engine/estimation.hpp"
#include "io/image_files.h"
#include "runs/run_problem.hpp"

namespace kestrum {

int RunCategoryEstimation(const VORL_KESTRUMINDICATORINPUT& input, const Problem& problem, const VORL_IMAGE* image,
                          const RunOutput& output) noexcept {
  const Categories categories = CategoriesOf(input, problem.setups[0].model.ordinaryKriging);
  int status = EstimateCategories(problem, categories, image->var, output.outputImage->var);
  if (status != 0) return status;
  status = output.WriteSeparately(output.outputImage, VORL_EXTENSION_FOR_IMAGE_FILE);
  if (status != 0) return status;
  problem.progress().FinishRealization();
  return problem.progress().Publish(0.0);
}

}  // namespace kestrum

using namespace kestrum;

int VORLKestrumIndicatorSimEstimation(VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                      VORL_IMAGE* outputImage, BOOLEAN* rotationStationary, BOOLEAN* weightStationary,
                                      BOOLEAN* /*rangeStationary*/, BOOLEAN* covModelStationary, real* sill,
                                      real*** rotationMatrix, int nuniqueDataMax,
                                      VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int** neighborShift,
                                      int* nneighborLimit, int* /*nodeStatus*/, int nnode, int* simulationPath,
                                      int pathFirstSimulated, FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
                                      int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  CategorySetups setups;
  const int status =
      setups.Fill({*input, ordinaryKriging, rotationStationary, weightStationary, covModelStationary, sill,
                   rotationMatrix, searchNeighborhood, neighborShift, nneighborLimit, *image->grid},
                  true);
  if (status != 0) return status;
  return RunCategoryEstimation(*input,
                               {*image->grid,
                                setups,
                                {.uniqueMax = nuniqueDataMax},
                                {simulationPath, nnode, pathFirstSimulated, pathFirstSimulated},
                                {progressMonitor, progressCallback, Dealing::Serial()}},
                               image, {*input, outputImage, reportFile});
}

int VORLOMPKestrumIndicatorSimEstimation(VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                         VORL_IMAGE* outputImage, BOOLEAN* rotationStationary,
                                         BOOLEAN* weightStationary, BOOLEAN* /*rangeStationary*/,
                                         BOOLEAN* covModelStationary, real* sill, real*** rotationMatrix,
                                         int nuniqueDataMax, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                         int** neighborShift, int* nneighborLimit, int* /*nodeStatus*/, int nnode,
                                         int* simulationPath, int pathFirstSimulated, FILE* reportFile,
                                         VORL_PROGRESSMONITOR* progressMonitor,
                                         int (*progressCallback)(VORL_PROGRESSMONITOR*), int nthreads) noexcept {
  CategorySetups setups;
  const int status =
      setups.Fill({*input, ordinaryKriging, rotationStationary, weightStationary, covModelStationary, sill,
                   rotationMatrix, searchNeighborhood, neighborShift, nneighborLimit, *image->grid},
                  true);
  if (status != 0) return status;
  return RunCategoryEstimation(*input,
                               {*image->grid,
                                setups,
                                {.uniqueMax = nuniqueDataMax},
                                {simulationPath, nnode, pathFirstSimulated, pathFirstSimulated},
                                {progressMonitor, progressCallback, Dealing::Threads(nthreads)}},
                               image, {*input, outputImage, reportFile});
}
