#include "runs/run_driver.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "core/buffer.hpp"
#include "core/c_vector.hpp"
#include "core/constants.h"
#include "core/memory.h"
#include "core/object_array.hpp"
#include "core/output_file.hpp"
#include "core/parallel.hpp"
#include "core/progress.hpp"
#include "core/records.hpp"
#include "core/status.h"
#include "core/statuses.hpp"
#include "neighborhood/search_neighborhood.hpp"
#include "runs/conditioning.h"
#include "runs/run_input_shared.hpp"
#include "runs/run_options.h"
#include "runs/run_problem.hpp"

namespace kestrum {
namespace {

// An image record on the heap, as an output record holds it.
class OwnedImage {
 public:
  OwnedImage() = default;
  OwnedImage(const OwnedImage&) = delete;
  OwnedImage& operator=(const OwnedImage&) = delete;
  ~OwnedImage() { FreeImageRecord(image_); }

  // Values uninitialised, names empty.
  [[nodiscard]] int Allocate(VORL_GRID* grid, int nvar) noexcept {
    nvar = std::max(nvar, 0);  // no realization makes an image without variables
    if (static_cast<std::int64_t>(grid->nxyz) * nvar > INT_MAX) return -1;
    int status = 0;
    image_ = static_cast<VORL_IMAGE*>(VORLMalloc(1, sizeof(VORL_IMAGE), &status));
    if (status != 0) return status;
    status = MallocImageOn(*grid, nvar, image_);
    if (status != 0) return status;
    if (nvar > 0) std::memset(image_->varName[0], 0, static_cast<std::size_t>(nvar) * VORL_VARNAME_LENGTH);
    return 0;
  }

  VORL_IMAGE* get() const noexcept { return image_; }
  VORL_IMAGE* operator->() const noexcept { return image_; }
  explicit operator bool() const noexcept { return image_ != nullptr; }
  VORL_IMAGE* Hand() noexcept { return std::exchange(image_, nullptr); }

 private:
  VORL_IMAGE* image_ = nullptr;
};

// What computationMode says.
struct Mode {
  bool simulation;
  bool ordinaryKriging;

  template <typename Input>
  explicit Mode(const Input& input) noexcept
      : simulation(IsSimulation(input)),
        ordinaryKriging(input.computationMode == KESTRUM_OK || input.computationMode == KESTRUM_SIM_OK) {}
};

// What both drivers do alike. Input is one of the two input records.
template <typename Input>
class Run {
 public:
  Run(Input* input, VORL_KESTRUMOUTPUT* output, VORL_PROGRESSMONITOR* monitor, ProgressCallback callback,
      Dealing dealing, SolverChoice solver = {}) noexcept
      : input_(input),
        output_(output),
        monitor_(monitor),
        callback_(callback),
        front_(monitor, callback, dealing),
        solver_(solver) {}

  // A step's status, or that the job has been asked to stop meanwhile.
  [[nodiscard]] int After(int status) const noexcept { return front_.progress.After(status); }

  [[nodiscard]] int OpenReport(const char* heading, int (*printInput)(Input*, char*, FILE*)) noexcept {
    if (monitor_ != nullptr) {
      std::snprintf(monitor_->progressName, sizeof monitor_->progressName, "%s", "Kestrum progress... ");
    }
    if (!input_->outputReportFlag) return 0;
    if (const int status = report_.Open(input_->outputReportFileName); status != 0) return status;
    char version[] = VORL_KESTRUM_VERSION_NUMBER;
    char build[] = VORL_KESTRUM_BUILD_NUMBER;
    char prefix[] = "   ";
    FILE* const stream = report_.stream();
    const int nthreads = front_.dealing.threaded() ? front_.dealing.nthreads() : 0;
    if (const int status =
            VORLKestrumPrintVersion(version, build, front_.dealing.threaded() ? TRUE : FALSE, nthreads, stream);
        status != 0) {
      return status;
    }
    std::fputs(VORL_SEPARATION_LINE_EQUAL, stream);
    std::fputs(heading, stream);
    if (const int status = printInput(input_, prefix, stream); status != 0) return status;
    std::fputs(VORL_SEPARATION_LINE_EQUAL, stream);
    return After(0);
  }

  // Validates the input; a broken rule is the status of the run. A flag is one BOOLEAN, or one per category.
  template <typename Flag>
  [[nodiscard]] int ValidateWith(int (*validate)(Input*, Flag*, Flag*, Flag*, Flag*, VORL_PROGRESSMONITOR*,
                                                 ProgressCallback, int*),
                                 Flag* rotationStationary, Flag* weightStationary, Flag* rangeStationary,
                                 Flag* covModelStationary) const noexcept {
    int verdict = 0;
    const int status = After(validate(input_, rotationStationary, weightStationary, rangeStationary, covModelStationary,
                                      monitor_, callback_, &verdict));
    return status != 0 ? status : verdict;
  }

  // The beginning of a run: head of the report, and validation. Time counts from its end.
  template <typename Flag, typename Validate>
  [[nodiscard]] int Begin(const char* heading, int (*printInput)(Input*, char*, FILE*), Validate* validate,
                          Flag* rotationStationary, Flag* weightStationary, Flag* rangeStationary,
                          Flag* covModelStationary) noexcept {
    int status = OpenReport(heading, printInput);
    if (status == 0) {
      status = ValidateWith<Flag>(validate, rotationStationary, weightStationary, rangeStationary, covModelStationary);
    }
    start_ = std::clock();
    return status;
  }

  // An image of one variable with the variable's name, all missing.
  [[nodiscard]] int CreateWorkingImage() noexcept {
    // Everything is laid out by the products of the sizes. No node at all is left to the allocations to refuse.
    if (input_->simGrid->nxyz != 0) {
      if (const int status = CheckGrid(*input_->simGrid); status != 0) return status;
    }
    if (const int status = workingImage_.Allocate(input_->simGrid, 1); status != 0) return status;
    std::snprintf(workingImage_->varName[0], VORL_VARNAME_LENGTH, "%s", input_->varName);
    FillVariable(workingImage_.get(), [](std::ptrdiff_t) { return real{VORL_MISSING_VALUE}; });
    return nodeStatus_.Allocate(input_->simGrid->nxyz);
  }

  template <typename Value>
  void FillVariable(VORL_IMAGE* image, const Value& value) const noexcept {
    front_.dealing.ForPass(image->grid->nxyz)
        .Blocks(image->grid->nxyz, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
          for (std::ptrdiff_t i = begin; i < end; ++i) image->var[i] = value(i);
        });
  }

  // The data are in the working image now.
  void ReleaseConditioningData() noexcept {
    FreeConditioningData(*input_);
    input_->dataImage = nullptr;
    input_->dataPointSet = nullptr;
    input_->ndataImage = 0;
    input_->ndataPointSet = 0;
  }

  // The mask counts where it is given, whatever its flag says.
  VORL_IMAGE* Mask() const noexcept { return input_->maskImage; }

  bool Masked(std::ptrdiff_t node) const noexcept {
    const VORL_IMAGE* const mask = UsedMask(*input_);
    return mask != nullptr && mask->var[node] == 0.0;
  }

  // Whether the result is wanted as an image, in memory or in one file.
  bool WantsOutputImage() const noexcept {
    return !input_->consoleAppFlag || input_->outputMode == KESTRUM_OUTPUT_ALL_IN_ONE_FILE;
  }

  [[nodiscard]] int PreparePath() noexcept {
    const int nnode = input_->simGrid->nxyz;
    if (const int status = simulationPath_.Allocate(nnode); status != 0) return status;
    return VORLSKestrumPrepareSimulationPath(Mask(), nodeStatus_.data(), nnode, simulationPath_.data(),
                                             &pathFirstInequality_, &pathFirstSimulated_, &nnodeSimulated_, monitor_,
                                             callback_);
  }

  // The nearest neighbours of a model's systems, in `owner`.
  [[nodiscard]] int BuildNeighbors(real searchRadiusRelative, int sortMode, int nneighborMax,
                                   VORL_RANDCONTEXT* randContext, NeighborListOwner& owner,
                                   ModelSetup& setup) const noexcept {
    const VORL_GRID& grid = *input_->simGrid;
    const int status = BuildSearchNeighborhood(grid, setup.model, Mask(), {searchRadiusRelative}, sortMode,
                                               owner.offsets(), randContext, front_.progress);
    return status != 0 ? status : owner.Finish(grid, nneighborMax, front_.dealing, setup.neighbors);
  }

  Problem MakeProblem(std::span<const ModelSetup> setups) noexcept {
    return {*input_->simGrid,
            setups,
            {.nodeStatus = nodeStatus_.data(), .known = dataValue_.data(), .uniqueMax = ndata_},
            {simulationPath_.data(), input_->simGrid->nxyz, pathFirstInequality_, pathFirstSimulated_},
            front_,
            solver_};
  }

  // Files, foot of the report and hand-over, once the work is done.
  [[nodiscard]] int Complete() noexcept {
    const std::clock_t end = std::clock();
    if (input_->outputMode == KESTRUM_OUTPUT_ALL_IN_ONE_FILE && outputImage_) {
      const int status =
          After(WriteImageToFile(outputImage_.get(), input_->formatString, input_->outputImageFileName, ""));
      if (status != 0) return status;
    }
    if (report_.stream() != nullptr) WriteReportFoot(end);
    if (const int status = report_.Close(); status != 0) return status;
    if (!input_->consoleAppFlag) output_->outputImage = outputImage_.Hand();
    return 0;
  }

 protected:
  void WriteReportFoot(std::clock_t end) const noexcept {
    FILE* const stream = report_.stream();
    std::fputs(VORL_SEPARATION_LINE_EQUAL, stream);
    WriteCpuTime("CPU time (sec), in total", end - start_, stream);
    std::fputs(VORL_SEPARATION_LINE_EQUAL, stream);
    std::fputs(VORL_SEPARATION_LINE_EQUAL, stream);
    if (monitor_ == nullptr || monitor_->nwarning == 0) {
      std::fputs("No warning encountered\n", stream);
    } else {
      std::fprintf(stream, "Warnings encountered (%d times in all):\n", monitor_->nwarning);
      for (int i = 0; i < std::min(monitor_->nwarningNumber, VORL_MAX_NWARNING); ++i) {
        std::fprintf(stream, "#%3d: %s", i + 1, VORLGetWarningMessage(monitor_->warningNumberList[i]));
      }
    }
    std::fputs(VORL_SEPARATION_LINE_EQUAL, stream);
  }

  Input* input_;
  VORL_KESTRUMOUTPUT* output_;
  VORL_PROGRESSMONITOR* monitor_;
  ProgressCallback callback_;
  RunFront front_;
  SolverChoice solver_;
  OutputFile report_;  // declared first, closed last
  std::clock_t start_ = 0;
  OwnedImage workingImage_;
  OwnedImage outputImage_;
  Buffer<int> nodeStatus_;
  int ndata_ = 0;
  Buffer<real> dataValue_;  // hard data in increasing node order
  Buffer<int> simulationPath_;
  int pathFirstInequality_ = 0;
  int pathFirstSimulated_ = 0;
  int nnodeSimulated_ = 0;
};

class ContinuousRun : public Run<VORL_KESTRUMINPUT> {
 public:
  using Run::Run;

  int Execute() noexcept {
    int status = Begin("kestrumInput:\n", VORLKestrumPrintKestrumInput, VORLKestrumValidateKestrumInput,
                       &rotationStationary_, &weightStationary_, &rangeStationary_, &covModelStationary_);
    if (status != 0) return status;
    VORL_RANDCONTEXT randContext;
    VORLInitRandContext(&randContext);
    const Mode mode(*input_);
    if (status = After(CreateWorkingImage()); status != 0) return status;
    if (status = After(IntegrateData(mode)); status != 0) return status;
    if (status = After(CreateOutputImages(mode)); status != 0) return status;
    if (status = After(CenterData()); status != 0) return status;
    if (status = After(PreparePath()); status != 0) return status;
    if (status = After(Work(mode, &randContext)); status != 0) return status;
    return Complete();
  }

 private:
  // Data into the working image; their mean, and the sill of the model.
  int IntegrateData(Mode mode) noexcept {
    real** const minimum = mode.simulation ? inequalityMin_.slot() : nullptr;
    real** const maximum = mode.simulation ? inequalityMax_.slot() : nullptr;
    const int status = After(VORLKestrumIntegrateConditioningData(input_, workingImage_.get(), minimum, maximum,
                                                                  nodeStatus_.data(), &ndata_, monitor_, callback_));
    if (status != 0) return status;
    ReleaseConditioningData();
    if (ndata_ > 0) {
      real sum = 0.0;
      for (int i = 0; i < input_->simGrid->nxyz; ++i) {
        if (nodeStatus_[i] == 0) sum += workingImage_->var[i];
      }
      hardDataMean_ = sum / ndata_;
    }
    if (weightStationary_) sill_ = StationarySill(*input_->covModel);
    return 0;
  }

  int CreateOutputImages(Mode mode) noexcept {
    if (!mode.simulation) {
      if (const int status = stdImage_.Allocate(input_->simGrid, 1); status != 0) return status;
      FillVariable(stdImage_.get(), [this](std::ptrdiff_t i) { return Masked(i) ? real{VORL_MISSING_VALUE} : 0.0; });
      NameVariable(stdImage_.get(), VORL_KESTRUM_SUFFIX_FOR_ST_DEV);
      NameVariable(workingImage_.get(), VORL_KESTRUM_SUFFIX_FOR_ESTIMATE);
    }
    return WantsOutputImage() ? outputImage_.Allocate(input_->simGrid, mode.simulation ? input_->nrealization : 2) : 0;
  }

  void NameVariable(VORL_IMAGE* image, const char* suffix) const noexcept {
    std::snprintf(image->varName[0], VORL_VARNAME_LENGTH, "%s%s", input_->varName, suffix);
  }

  // Mean and variance as the workers use them: data and bounds are residuals, the variance is a ratio of standard
  // deviations.
  int CenterData() noexcept {
    if (input_->meanUsage == 0) input_->meanValue = hardDataMean_;
    if (input_->varianceUsage == 1) input_->varianceValue = std::sqrt(input_->varianceValue / sill_);
    if (input_->varianceUsage == 2) {
      FillVariable(input_->varianceImage, [this](std::ptrdiff_t i) {
        const real variance = input_->varianceImage->var[i];
        return variance == VORL_MISSING_VALUE ? variance : std::sqrt(variance / sill_);
      });
    }
    if (ndata_ > 0) {
      if (const int status = dataValue_.Allocate(ndata_); status != 0) return status;
    }
    int count = 0;
    for (int i = 0; i < input_->simGrid->nxyz; ++i) {
      const real mean = input_->meanUsage == 2 ? input_->meanImage->var[i] : input_->meanValue;
      const int status = nodeStatus_[i];
      if (status == 0) {
        workingImage_->var[i] -= mean;
        dataValue_[count++] = workingImage_->var[i];
      }
      if (status == -1 || status == -3) inequalityMin_[i] -= mean;
      if (status == -2 || status == -3) inequalityMax_[i] -= mean;
    }
    return 0;
  }

  int Work(Mode mode, VORL_RANDCONTEXT* randContext) noexcept {
    ModelSetup setup{MakeKrigingModel(input_->covModel, mode.ordinaryKriging, rotationStationary_, weightStationary_,
                                      covModelStationary_, sill_, nullptr),
                     {}};
    setup.model.rangeStationary = rangeStationary_ != 0;
    if (rotationStationary_) setup.model.SetRotationFromAngles();
    NeighborListOwner neighbors;
    if (input_->searchRadiusRelative != kUniqueNeighborhood) {
      const int status = After(BuildNeighbors(input_->searchRadiusRelative, input_->searchNeighborhoodSortMode,
                                              input_->nneighborMax, randContext, neighbors, setup));
      if (status != 0) return status;
    }
    Problem problem = MakeProblem({&setup, 1});
    const RunOutput output(*input_, outputImage_.get(), report_.stream());
    if (!mode.simulation) return RunEstimation(*input_, problem, workingImage_.get(), stdImage_.get(), output);
    if (inequalityMin_.data() != nullptr || inequalityMax_.data() != nullptr) {
      problem.data.SetBounds(inequalityMin_.data(), inequalityMax_.data());
    }
    return RunSimulation(*input_, problem, workingImage_.get(), output);
  }

  BOOLEAN rotationStationary_ = TRUE;
  BOOLEAN weightStationary_ = TRUE;
  BOOLEAN rangeStationary_ = TRUE;
  BOOLEAN covModelStationary_ = TRUE;
  real hardDataMean_ = 0.0;
  real sill_ = 0.0;
  OwnedImage stdImage_;
  // Bounds of inequality data per node; the conditioning allocates them when it meets the first.
  CVector<real> inequalityMin_;
  CVector<real> inequalityMax_;
};

class IndicatorRun : public Run<VORL_KESTRUMINDICATORINPUT> {
 public:
  using Run::Run;

  int Execute() noexcept {
    int status = Begin("kestrumIndicatorInput:\n", VORLKestrumPrintKestrumIndicatorInput,
                       VORLKestrumValidateKestrumIndicatorInput, rotationStationary_.slot(), weightStationary_.slot(),
                       rangeStationary_.slot(), covModelStationary_.slot());
    if (status != 0) return status;
    VORL_RANDCONTEXT randContext;
    VORLInitRandContext(&randContext);
    const Mode mode(*input_);
    if (status = After(CreateWorkingImage()); status != 0) return status;
    status = After(VORLKestrumIndicatorIntegrateConditioningData(input_, workingImage_.get(), nodeStatus_.data(),
                                                                 &ndata_, monitor_, callback_));
    if (status != 0) return status;
    ReleaseConditioningData();
    if (status = After(ComputeProportions()); status != 0) return status;
    if (status = After(CreateOutputImage(mode)); status != 0) return status;
    if (status = After(KeepData()); status != 0) return status;
    if (status = After(PreparePath()); status != 0) return status;
    if (status = After(PrepareSetups(mode, &randContext)); status != 0) return status;
    if (status = After(Work(mode)); status != 0) return status;
    return Complete();
  }

 private:
  // The category of a value, -1 if it is none.
  int CategoryOf(real value) const noexcept {
    for (int c = 0; c < input_->ncategory; ++c) {
      if (value == input_->categoryValue[c]) return c;
    }
    return -1;
  }

  // The share of the hard data in each category, and the sill of each model. One category is set against its
  // complement, whose value is 0.0.
  int ComputeProportions() noexcept {
    const int ncategory = input_->ncategory;
    const bool binary = ncategory == 1;
    if (const int status = proportion_.Allocate(ncategory, 0.0); status != 0) return status;
    if (ndata_ < 1) {
      for (real& share : proportion_) share = binary ? 0.5 : 1.0 / ncategory;
    }
    for (int i = 0; i < input_->simGrid->nxyz; ++i) {
      if (nodeStatus_[i] != 0) continue;
      const real value = workingImage_->var[i];
      const int category = CategoryOf(value);
      if (category >= 0) {
        proportion_[category] += 1.0;
      } else if (!binary || value != 0.0) {
        return binary ? kDatumNotBinary : kDatumNoCategory;
      }
    }
    if (ndata_ >= 1) {
      for (real& share : proportion_) share *= 1.0 / ndata_;
    }
    if (const int status = sill_.Allocate(ncategory, 0.0); status != 0) return status;
    for (int c = 0; c < ncategory; ++c) {
      if (weightStationary_[c]) sill_[c] = StationarySill(input_->covModel[c]);
    }
    if (input_->probabilityUsage == 0) {
      CVector<real> probability;
      if (const int status = probability.Allocate(ncategory); status != 0) return status;
      std::copy_n(proportion_.data(), ncategory, probability.data());
      VORLFree(input_->probabilityValue);
      input_->probabilityValue = probability.HandOver();
    }
    return 0;
  }

  int CreateOutputImage(Mode mode) noexcept {
    if (mode.simulation) {
      return WantsOutputImage() ? outputImage_.Allocate(input_->simGrid, input_->nrealization) : 0;
    }
    const std::ptrdiff_t nxyz = input_->simGrid->nxyz;
    if (const int status = outputImage_.Allocate(input_->simGrid, input_->ncategory); status != 0) return status;
    for (int c = 0; c < input_->ncategory; ++c) {
      std::snprintf(outputImage_->varName[c], VORL_VARNAME_LENGTH, "%s%s%0*d", input_->varName,
                    VORL_KESTRUM_SUFFIX_FOR_PROBABILITY, VORL_KESTRUM_NB_DIGIT_FOR_CATEGORY_INDEX, c);
      real* const probability = outputImage_->var + c * nxyz;
      front_.dealing.ForPass(nxyz).Blocks(nxyz, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
        for (std::ptrdiff_t i = begin; i < end; ++i) {
          const real certain = workingImage_->var[i] == input_->categoryValue[c] ? 1.0 : 0.0;
          probability[i] = Masked(i) ? real{VORL_MISSING_VALUE} : certain;
        }
      });
    }
    return 0;
  }

  int KeepData() noexcept {
    if (ndata_ < 1) return 0;
    if (const int status = dataValue_.Allocate(ndata_); status != 0) return status;
    int count = 0;
    for (int i = 0; i < input_->simGrid->nxyz; ++i) {
      if (nodeStatus_[i] == 0) dataValue_[count++] = workingImage_->var[i];
    }
    return 0;
  }

  // The models of all categories, and their neighbourhoods: none where all data condition every node.
  int PrepareSetups(Mode mode, VORL_RANDCONTEXT* randContext) noexcept {
    const int ncategory = input_->ncategory;
    if (const int status = setups_.Allocate(ncategory, {}); status != 0) return status;
    if (const int status = neighbors_.Allocate(ncategory); status != 0) return status;
    for (int c = 0; c < ncategory; ++c) {
      KrigingModel& model = setups_[c].model;
      model = MakeKrigingModel(&input_->covModel[c], mode.ordinaryKriging, rotationStationary_[c], weightStationary_[c],
                               covModelStationary_[c], sill_[c], nullptr);
      model.rangeStationary = rangeStationary_[c] != 0;
      // The weight flag decides, deliberately: a category with fixed angles and a weight image is not rotated, and the
      // rotation of a category with angle images is never used.
      if (model.weightStationary) model.SetRotationFromAngles();
    }
    for (int c = 0; c < ncategory; ++c) {
      if (input_->searchRadiusRelative[c] == kUniqueNeighborhood) continue;
      const int status = After(BuildNeighbors(input_->searchRadiusRelative[c], input_->searchNeighborhoodSortMode[c],
                                              input_->nneighborMax[c], randContext, neighbors_[c], setups_[c]));
      if (status != 0) return status;
    }
    return 0;
  }

  int Work(Mode mode) noexcept {
    const Problem problem = MakeProblem({setups_.data(), setups_.size()});
    const RunOutput output(*input_, outputImage_.get(), report_.stream());
    return mode.simulation ? RunCategorySimulation(*input_, problem, workingImage_.get(), output)
                           : RunCategoryEstimation(*input_, problem, workingImage_.get(), output);
  }

  CVector<BOOLEAN> rotationStationary_;
  CVector<BOOLEAN> weightStationary_;
  CVector<BOOLEAN> rangeStationary_;
  CVector<BOOLEAN> covModelStationary_;
  Buffer<real> proportion_;
  Buffer<real> sill_;
  ObjectArray<NeighborListOwner> neighbors_;
  Buffer<ModelSetup> setups_;
};

// Runs with the options of the caller.
template <typename AnyRun, typename Input>
int ExecuteWithOptions(Input* input, VORL_KESTRUMOUTPUT* output, VORL_PROGRESSMONITOR* monitor,
                       ProgressCallback callback, VORL_KESTRUMOPTIONS* options) noexcept {
  options->nfallback = 0;
  if (options->nthreads < 0) return kThreadCount;
  const int solver = EnumNumber(options->solver);
  if (solver != KESTRUM_SOLVER_ITERATIVE && solver != KESTRUM_SOLVER_FACTORISING) return kComputationMode;
  std::atomic<std::int64_t> nfallback{0};
  const SolverChoice choice{solver == KESTRUM_SOLVER_FACTORISING ? Solver::kFactorising : Solver::kIterative,
                            &nfallback};
  const Dealing dealing = options->nthreads == 0 ? Dealing::Serial() : Dealing::Threads(options->nthreads);
  const int status = AnyRun(input, output, monitor, callback, dealing, choice).Execute();
  options->nfallback = nfallback.load();
  return status;
}

}  // namespace
}  // namespace kestrum

using kestrum::ContinuousRun;
using kestrum::Dealing;
using kestrum::IndicatorRun;

int VORLKestrumSim(VORL_KESTRUMINPUT* input, VORL_KESTRUMOUTPUT* output, VORL_PROGRESSMONITOR* progressMonitor,
                   int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  return ContinuousRun(input, output, progressMonitor, progressCallback, Dealing::Serial()).Execute();
}

int VORLOMPKestrumSim(VORL_KESTRUMINPUT* input, VORL_KESTRUMOUTPUT* output, VORL_PROGRESSMONITOR* progressMonitor,
                      int (*progressCallback)(VORL_PROGRESSMONITOR*), int nthreads) noexcept {
  if (nthreads < 1) return kestrum::kThreadCount;
  return ContinuousRun(input, output, progressMonitor, progressCallback, Dealing::Threads(nthreads)).Execute();
}

int VORLKestrumIndicatorSim(VORL_KESTRUMINDICATORINPUT* input, VORL_KESTRUMOUTPUT* output,
                            VORL_PROGRESSMONITOR* progressMonitor,
                            int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  return IndicatorRun(input, output, progressMonitor, progressCallback, Dealing::Serial()).Execute();
}

int VORLOMPKestrumIndicatorSim(VORL_KESTRUMINDICATORINPUT* input, VORL_KESTRUMOUTPUT* output,
                               VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*),
                               int nthreads) noexcept {
  if (nthreads < 1) return kestrum::kThreadCount;
  return IndicatorRun(input, output, progressMonitor, progressCallback, Dealing::Threads(nthreads)).Execute();
}

void VORLKestrumInitOptions(VORL_KESTRUMOPTIONS* options) noexcept { *options = {KESTRUM_SOLVER_ITERATIVE, 0, 0}; }

int VORLKestrumSimWithOptions(VORL_KESTRUMINPUT* input, VORL_KESTRUMOUTPUT* output,
                              VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*),
                              VORL_KESTRUMOPTIONS* options) noexcept {
  return kestrum::ExecuteWithOptions<ContinuousRun>(input, output, progressMonitor, progressCallback, options);
}

int VORLKestrumIndicatorSimWithOptions(VORL_KESTRUMINDICATORINPUT* input, VORL_KESTRUMOUTPUT* output,
                                       VORL_PROGRESSMONITOR* progressMonitor,
                                       int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                       VORL_KESTRUMOPTIONS* options) noexcept {
  return kestrum::ExecuteWithOptions<IndicatorRun>(input, output, progressMonitor, progressCallback, options);
}
