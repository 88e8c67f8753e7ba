#ifndef KESTRUM_ENGINE_GRID_RUN_HPP
#define KESTRUM_ENGINE_GRID_RUN_HPP

#include <span>

#include "core/object_array.hpp"
#include "engine/estimation.hpp"
#include "engine/model_systems.hpp"
#include "engine/problem.hpp"
#include "engine/simulation.hpp"

// The engine on a grid from plain vectors, for callers other than the C interface. A missing value is NaN here. With the
// factorising solver and a number of neighbours, results have the same bits on every machine; else they are those of the C
// interface, whose covariances are made with the functions of the C library.

namespace kestrum {

// What a run on a grid is given. Vectors belong to the caller and are read by GridRun::Prepare alone, except the models,
// the means, the mask and the vectors of the categories, which must outlive the run.
struct GridRunInput {
  VORL_GRID grid{};
  // One for a continuous variable, one for each category. A parameter varies where its image is set, one value per node.
  std::span<VORL_COVMODEL> models;
  bool ordinaryKriging = true;
  // The most neighbours of a system, at least 1; 0: all data for every node (estimation with fixed parameters only).
  int neighbors = 0;
  // The half axes of the search ellipsoid, along the model's axes; null for the largest ranges of the model.
  const real* radius = nullptr;
  // The data: nodes in increasing order, without repetition, and their values.
  std::span<const int> dataNodes;
  const real* dataValues = nullptr;
  // One per node, 0 where nothing is computed; null for none. Data there count all the same.
  const unsigned char* mask = nullptr;
  // Bounds (simulation of a continuous variable): nodes without a datum in increasing order; NaN for no bound.
  std::span<const int> boundNodes;
  const real* lower = nullptr;
  const real* upper = nullptr;
  // The mean of a continuous variable: one per node, or null for the constant.
  const real* means = nullptr;
  real mean = 0.0;
  SolverChoice solver;
};

// The models of runs on one grid, with their neighbours and the covariances between these. Any number of runs may use them
// at a time.
class GridModels {
 public:
  // Of the input the grid, what belongs to the models and the solver count. simulation: whether the runs simulate.
  [[nodiscard]] int Prepare(const GridRunInput& input, bool simulation, const RunFront& front) noexcept;

  std::span<const ModelSetup> setups() const noexcept { return {setups_.data(), setups_.size()}; }
  const ModelSystems* systems() const noexcept { return simulation_ ? &systems_ : nullptr; }

 private:
  Buffer<ModelSetup> setups_;
  ObjectArray<NeighborListOwner> neighbors_;
  ObjectArray<ExactCovariance> exact_;
  ModelSystems systems_;
  bool simulation_ = false;
};

// A run on a grid: allocated, prepared and given its models. Statuses as in estimation.hpp and simulation.hpp, and those of
// the search neighbourhood.
class GridRun {
 public:
  [[nodiscard]] int Allocate(const GridRunInput& input) noexcept;
  // Of the same input. Another thread may make the models meanwhile.
  void Prepare(const GridRunInput& input, const RunFront& front) noexcept;
  // Those of this input. They must outlive the run.
  void SetModels(const GridModels& models) noexcept { models_ = &models; }
  // Makes the path of the first realization, where no values are drawn before it: its nodes need not be sorted then, nor
  // numbered twice.
  void Shuffle(RandomSource& random) noexcept;

  // Kriging. One value per node: estimate, and standard deviation; a datum keeps its value, with a deviation of 0.0.
  [[nodiscard]] int Krige(real* estimate, real* deviation) noexcept;
  // Sequential Gaussian simulation. value: receives realization after realization.
  [[nodiscard]] int SimulateValues(const GibbsPlan& gibbs, int count, RandomSource& random, real* value,
                                   RealizationSink& sink) noexcept;
  // Indicator kriging: probabilities, category by category.
  [[nodiscard]] int KrigeCategories(const Categories& categories, real* probability) noexcept;
  // Sequential indicator simulation: values of categories.
  [[nodiscard]] int SimulateCategoryValues(const Categories& categories, int count, RandomSource& random, real* value,
                                           RealizationSink& sink) noexcept;

  // Writes NaN where nothing is computed. The sink of a simulation finds VORL_MISSING_VALUE there.
  void MarkLeftOut(real* value) const noexcept;

 private:
  Problem MakeProblem() noexcept;
  // The data of a node order as an image: missing elsewhere.
  void FillData(real* value) const noexcept;

  VORL_GRID grid_{};
  const GridModels* models_ = nullptr;
  Buffer<int> nodeStatus_;
  Buffer<int> path_;
  bool shuffled_ = false;
  int firstInequality_ = 0;
  int firstSimulated_ = 0;
  int nknown_ = 0;
  Buffer<real> known_;  // residuals of a continuous variable, else values
  Buffer<real> lower_, upper_;
  const unsigned char* mask_ = nullptr;
  const real* means_ = nullptr;
  real mean_ = 0.0;
  SolverChoice solver_;
  RunFront front_{nullptr, nullptr, Dealing::Serial()};
};

}  // namespace kestrum

#endif
