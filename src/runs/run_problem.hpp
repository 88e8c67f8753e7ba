#ifndef KESTRUM_RUNS_RUN_PROBLEM_HPP
#define KESTRUM_RUNS_RUN_PROBLEM_HPP

#include "engine/categories.hpp"
#include "engine/local_law.hpp"
#include "engine/problem.hpp"
#include "runs/indicator_run_input.h"
#include "runs/run_input.h"
#include "runs/run_output.hpp"

// From the records of a run to the engine: what the drivers and the exported workers share.

namespace kestrum {

// The engine's form of a covariance model. rotationMatrix: 3 by 3, null for none.
KrigingModel MakeKrigingModel(VORL_COVMODEL* covModel, BOOLEAN ordinaryKriging, BOOLEAN rotationStationary,
                              BOOLEAN weightStationary, BOOLEAN covModelStationary, real sill,
                              const real* const* rotationMatrix) noexcept;

// What the workers on categories are given: vectors by category.
struct CategoryArguments {
  const VORL_KESTRUMINDICATORINPUT& input;
  BOOLEAN ordinaryKriging;
  const BOOLEAN* rotationStationary;
  const BOOLEAN* weightStationary;
  const BOOLEAN* covModelStationary;
  const real* sill;
  real*** rotationMatrix;
  const VORL_SEARCHNEIGHBORHOOD* offsets;
  int** shift;
  const int* limit;
  VORL_GRID grid;
};

// The models of all categories with their neighbours.
class CategorySetups {
 public:
  // For categories whose radius asks for it, with all data as neighbours if uniqueAllowed is set.
  [[nodiscard]] int Fill(const CategoryArguments& given, bool uniqueAllowed) noexcept;
  operator std::span<const ModelSetup>() const noexcept { return {setups_.data(), setups_.size()}; }

 private:
  Buffer<ModelSetup> setups_;
};

// Mean and variance as the input gives them. Its variance holds ratios of standard deviations by then.
LocalLaw LawOf(const VORL_KESTRUMINPUT& input) noexcept;
Categories CategoriesOf(const VORL_KESTRUMINDICATORINPUT& input, bool ordinaryKriging) noexcept;

// Estimation of a continuous variable: results in image and stdImage, in output and files.
[[nodiscard]] int RunEstimation(const VORL_KESTRUMINPUT& input, const Problem& problem, VORL_IMAGE* image,
                                VORL_IMAGE* stdImage, const RunOutput& output) noexcept;

// Simulation of a continuous variable. image: receives the current realization.
[[nodiscard]] int RunSimulation(const VORL_KESTRUMINPUT& input, const Problem& problem, VORL_IMAGE* image,
                                const RunOutput& output) noexcept;

// The same for categories. image: the data; the probabilities go to the image of `output`.
[[nodiscard]] int RunCategoryEstimation(const VORL_KESTRUMINDICATORINPUT& input, const Problem& problem,
                                        const VORL_IMAGE* image, const RunOutput& output) noexcept;
[[nodiscard]] int RunCategorySimulation(const VORL_KESTRUMINDICATORINPUT& input, const Problem& problem,
                                        VORL_IMAGE* image, const RunOutput& output) noexcept;

}  // namespace kestrum

#endif
