#include <algorithm>

#include "core/object_array.hpp"
#include "engine/estimation.hpp"
#include "engine/node_chunks.hpp"
#include "engine/system_solver.hpp"
#include "engine/unique_system.hpp"
#include "neighborhood/neighbor_search.hpp"

namespace kestrum {
namespace {

// What the systems of one category share; only one of the two kinds is prepared.
struct CategorySystems {
  DataNeighborSearch search;  // moving neighbourhood
  MovingSystems moving;
  UniqueSystem unique;
};

// What one thread needs.
struct ChunkScratch {
  SystemSolver solver;
  ChunkSystems chunk;
  DataNeighborSearch::Scratch search;
  UniqueSystem::Scratch unique;
  Buffer<real> probability;     // by node of the chunk and category
  Buffer<SolvedSystem> solved;  // likewise
  bool defaults[kMaxChunk];     // whether a node took the prior probabilities
};

class CategoryEstimation {
 public:
  CategoryEstimation(const Problem& problem, const Categories& categories, const real* value,
                     real* probability) noexcept
      : problem_(problem), categories_(categories), value_(value), probability_(probability) {}

  [[nodiscard]] int Prepare() noexcept {
    if (const int status = groups_.Find(problem_.setups); status != 0) return status;
    if (const int status = systems_.Allocate(categories_.count()); status != 0) return status;
    if (const int status = PrepareUnique(); status != 0) return status;
    if (const int status = PrepareMoving(); status != 0) return status;
    if (const int status = scratches_.Allocate(problem_.dealing().nscratch()); status != 0) return status;
    for (ChunkScratch& scratch : scratches_) {
      if (const int status = Allocate(scratch); status != 0) return status;
    }
    return 0;
  }

  [[nodiscard]] int Run() noexcept {
    const auto work = [&](int thread, const int* nodes, int count) noexcept {
      EstimateChunk(scratches_[thread], nodes, count);
    };
    const auto warn = [&](int thread, int i) noexcept {
      const ChunkScratch& scratch = scratches_[thread];
      int status = 0;
      for (int c = 0; c < categories_.count(); ++c) {
        KeepFailure(scratch.solved[Place(i, groups_.first(c))].Warn(problem_.progress()), &status);
      }
      if (scratch.defaults[i]) KeepFailure(problem_.progress().Warn(2020), &status);
      return status;
    };
    return ForEachChunk(problem_, work, warn);
  }

 private:
  std::size_t Place(int i, int c) const noexcept { return static_cast<std::size_t>(i) * categories_.count() + c; }

  [[nodiscard]] int PrepareUnique() noexcept {
    const std::span<const ModelSetup> setups = problem_.setups;
    if (std::none_of(setups.begin(), setups.end(), [](const ModelSetup& s) { return s.unique(); })) return 0;
    if (const int status = data_.Gather(problem_.grid, value_, problem_.data.uniqueMax); status != 0) return status;
    for (int c = 0; c < categories_.count(); ++c) {
      if (!setups[c].unique() || !groups_.isFirst(c)) continue;
      const int status =
          systems_[c].unique.Build(setups[c].model, data_, UniqueSystem::RightSide::kAtNode, problem_.dealing());
      if (status != 0) return status;
    }
    return 0;
  }

  [[nodiscard]] int PrepareMoving() noexcept {
    for (const ModelSetup& setup : problem_.setups) {
      if (!setup.unique() && setup.neighbors.limit < 1) return -71260;
    }
    if (const int status = isDatum_.Allocate(problem_.grid.nxyz); status != 0) return status;
    int ndata = 0;
    for (int i = 0; i < problem_.grid.nxyz; ++i) {
      if (value_[i] == VORL_MISSING_VALUE) continue;
      isDatum_.Set(i);
      ++ndata;
    }
    for (int c = 0; c < categories_.count(); ++c) {
      const auto& [model, neighbors] = problem_.setups[c];
      auto& [search, moving, unique] = systems_[c];
      if (problem_.setups[c].unique() || !groups_.isFirst(c)) continue;
      int status = search.Prepare(neighbors, isDatum_, ndata, groups_.count());
      if (status == 0) status = moving.Prepare(model, search.list(), groups_.count());
      if (status != 0) return status;
      capacity_ = std::max(capacity_, moving.capacity());
    }
    return 0;
  }

  [[nodiscard]] int Allocate(ChunkScratch& scratch) const noexcept {
    int status = scratch.probability.Allocate(Place(kMaxChunk, 0));
    if (status == 0) status = scratch.solved.Allocate(Place(kMaxChunk, 0));
    if (status == 0 && capacity_ > 0) {
      status = scratch.solver.Allocate(problem_.setups[0].model.ordinaryKriging, capacity_);
      if (status == 0) status = scratch.chunk.Allocate(capacity_);
    }
    // All searches have the same data and all unique systems the same size: one scratch does for each kind.
    for (int c = 0; c < categories_.count() && status == 0; ++c) {
      if (!groups_.isFirst(c)) continue;
      status = problem_.setups[c].unique() ? systems_[c].unique.AllocateScratch(scratch.unique)
                                           : systems_[c].search.AllocateScratch(scratch.search);
    }
    return status;
  }

  void EstimateChunk(ChunkScratch& scratch, const int* nodes, int count) noexcept {
    const int ncategory = categories_.count();
    for (int c = 0; c < ncategory; ++c) {
      if (!groups_.isFirst(c)) continue;
      if (problem_.setups[c].unique()) {
        SolveUnique(scratch, nodes, count, c);
      } else {
        SolveMoving(scratch, nodes, count, c);
      }
    }
    const std::ptrdiff_t nxyz = problem_.grid.nxyz;
    for (int i = 0; i < count; ++i) {
      real* const probability = &scratch.probability[Place(i, 0)];
      scratch.defaults[i] = ncategory > 1 && !categories_.Normalize(nodes[i], probability);
      for (int c = 0; c < ncategory; ++c) probability_[c * nxyz + nodes[i]] = probability[c];
    }
  }

  // Keeps what the solved system of the chunk's i-th node says of all categories that have it.
  template <typename NeighborValue>
  void Keep(ChunkScratch& scratch, int i, int node, int first, const SolvedSystem& solved, const real* weight,
            const NeighborValue& value) const noexcept {
    scratch.solved[Place(i, first)] = solved;
    for (int c = first; c < categories_.count(); ++c) {
      if (groups_.first(c) != first) continue;
      scratch.probability[Place(i, c)] = categories_.Probability(c, node, solved.m, weight, value);
    }
  }

  void SolveMoving(ChunkScratch& scratch, const int* nodes, int count, int c) noexcept {
    const auto& [search, moving, unique] = systems_[c];
    ChunkSystems& chunk = scratch.chunk;
    scratch.search.Forget();
    chunk.Start(nodes, count);
    for (int i = 0; i < count; ++i) {
      chunk.SetNeighbors(i, search.Find(nodes, i, count, scratch.search, chunk.entries(i)));
    }
    scratch.solver.Solve(moving, chunk);
    const int* const shift = moving.list().shift;
    for (int i = 0; i < count; ++i) {
      const auto [system, entries, weight] = chunk[i];
      Keep(scratch, i, nodes[i], c, system, weight,
           [&, node = nodes[i], entries = entries](int k) { return value_[node + shift[entries[k]]]; });
    }
  }

  void SolveUnique(ChunkScratch& scratch, const int* nodes, int count, int c) noexcept {
    const UniqueSystem& unique = systems_[c].unique;
    for (int begin = 0; begin < count; begin += kLanes) {
      const int n = std::min(kLanes, count - begin);
      unique.Solve(problem_.grid, nodes + begin, n, scratch.unique);
      for (int i = 0; i < n; ++i) {
        Keep(scratch, begin + i, nodes[begin + i], c, scratch.unique.system[i], unique.weight(scratch.unique, i),
             [&](int k) { return data_.value[k]; });
      }
    }
  }

  const Problem& problem_;
  const Categories& categories_;
  const real* value_;
  real* probability_;
  CategoryGroups groups_;
  ObjectArray<CategorySystems> systems_;
  UniqueData data_;
  NodeBits isDatum_;
  int capacity_ = 0;  // of the moving neighbourhoods
  ObjectArray<ChunkScratch> scratches_;
};

}  // namespace

int EstimateCategories(const Problem& problem, const Categories& categories, const real* value,
                       real* probability) noexcept {
  CategoryEstimation estimation(problem, categories, value, probability);
  if (const int status = problem.progress().After(estimation.Prepare()); status != 0) return status;
  problem.progress().StartRealizations(1);
  return estimation.Run();
}

}  // namespace kestrum
