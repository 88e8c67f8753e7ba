#include <algorithm>

#include "core/object_array.hpp"
#include "core/statuses.hpp"
#include "engine/estimation.hpp"
#include "engine/node_chunks.hpp"
#include "engine/system_solver.hpp"
#include "engine/unique_system.hpp"
#include "neighborhood/neighbor_search.hpp"

namespace kestrum {
namespace {

// What the systems of one category share; only one of the kinds is prepared.
struct CategorySystems {
  DataNeighborSearch search;  // moving neighbourhood
  MovingSystems moving;
  UniqueSystem unique;
  UniqueFactor factor;
  // With a factor: what right sides are multiplied with, one vector for each category that has the systems, then one
  // for the sum of all weights.
  Buffer<real> dual;
};

// What one thread needs.
struct ChunkScratch {
  SystemSolver solver;
  ChunkSystems chunk;
  DataNeighborSearch::Scratch search;
  UniqueSystem::Scratch unique;
  Buffer<real> lag, rhs;        // with a factor
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
      if (scratch.defaults[i]) KeepFailure(problem_.progress().Warn(kDefaultProbabilities), &status);
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
      const UniqueCovariances covariances(setups[c].model, data_, UniqueCovariances::RightSide::kAtNode);
      int status = problem_.solver.factorising() ? PrepareFactor(c, covariances) : 0;
      if (status == 0 && !systems_[c].dual) status = systems_[c].unique.Build(covariances, problem_.dealing());
      if (status != 0) return status;
    }
    return 0;
  }

  [[nodiscard]] int PrepareFactor(int first, const UniqueCovariances& covariances) noexcept {
    CategorySystems& systems = systems_[first];
    bool sound = false;
    if (const int status = systems.factor.Build(covariances, problem_.dealing(), problem_.progress(), &sound);
        status != 0)
      return status;
    if (!sound) {
      problem_.solver.CountFallbacks(problem_.path.nnode - problem_.path.firstSimulated);
      return 0;
    }
    const std::size_t size = covariances.size();
    Buffer<real> indicator;
    if (const int status = indicator.Allocate(size); status != 0) return status;
    if (const int status = systems.dual.Allocate(size * (categories_.count() + 1)); status != 0) return status;
    for (int c = first; c <= categories_.count(); ++c) {
      const bool all = c == categories_.count();
      if (!all && groups_.first(c) != first) continue;
      for (int k = 0; k < data_.n; ++k) indicator[k] = all || data_.value[k] == categories_.Value(c) ? 1.0 : 0.0;
      systems.factor.PrepareDual(indicator.data(), &systems.dual[c * size]);
    }
    return 0;
  }

  [[nodiscard]] int PrepareMoving() noexcept {
    for (const ModelSetup& setup : problem_.setups) {
      if (!setup.unique() && setup.neighbors.limit < 1) return kNeighborLimit;
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
      DataNeighborSearch& search = systems_[c].search;
      MovingSystems& moving = systems_[c].moving;
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
      status = scratch.solver.Allocate(problem_, capacity_);
      if (status == 0) status = scratch.chunk.Allocate(capacity_);
    }
    // All searches have the same data and all unique systems the same size: one scratch does for each kind.
    for (int c = 0; c < categories_.count() && status == 0; ++c) {
      if (!groups_.isFirst(c)) continue;
      if (systems_[c].dual) {
        const UniqueCovariances& covariances = systems_[c].factor.covariances();
        status = scratch.lag.Allocate(covariances.scratchSize());
        if (status == 0) status = scratch.rhs.Allocate(covariances.size() * static_cast<std::size_t>(kLanes));
      } else {
        status = problem_.setups[c].unique() ? systems_[c].unique.AllocateScratch(scratch.unique)
                                             : systems_[c].search.AllocateScratch(scratch.search);
      }
    }
    return status;
  }

  void EstimateChunk(ChunkScratch& scratch, const int* nodes, int count) noexcept {
    const int ncategory = categories_.count();
    for (int c = 0; c < ncategory; ++c) {
      if (!groups_.isFirst(c)) continue;
      if (systems_[c].dual) {
        UseFactor(scratch, nodes, count, c);
      } else if (problem_.setups[c].unique()) {
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
    const MovingSystems& moving = systems_[c].moving;
    ChunkSystems& chunk = scratch.chunk;
    scratch.search.Forget();
    chunk.Find(systems_[c].search, nodes, count, scratch.search);
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

  void UseFactor(ChunkScratch& scratch, const int* nodes, int count, int first) noexcept {
    const CategorySystems& systems = systems_[first];
    const UniqueCovariances& covariances = systems.factor.covariances();
    const int size = covariances.size();
    for (int begin = 0; begin < count; begin += kLanes) {
      const int n = std::min(kLanes, count - begin);
      covariances.FillRhs(problem_.grid, nodes + begin, n, scratch.lag.data(), scratch.rhs.data());
      const auto sums = [&](int c, real sum[kLanes]) {
        const real* const dual = &systems.dual[static_cast<std::size_t>(c) * size];
        std::fill_n(sum, kLanes, 0.0);
        for (int k = 0; k < size; ++k) {
          for (int lane = 0; lane < kLanes; ++lane) sum[lane] += dual[k] * scratch.rhs[k * kLanes + lane];
        }
      };
      real ofAll[kLanes];
      sums(categories_.count(), ofAll);
      for (int c = first; c < categories_.count(); ++c) {
        if (groups_.first(c) != first) continue;
        real ofCategory[kLanes];
        sums(c, ofCategory);
        for (int i = 0; i < n; ++i) {
          scratch.solved[Place(begin + i, c)] = {};
          scratch.probability[Place(begin + i, c)] =
              categories_.ProbabilityOfSums(c, nodes[begin + i], ofCategory[i], ofAll[i]);
        }
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
