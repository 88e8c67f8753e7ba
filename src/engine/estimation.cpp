#include "engine/estimation.hpp"

#include <cmath>

#include "core/object_array.hpp"
#include "core/statuses.hpp"
#include "engine/node_chunks.hpp"
#include "engine/system_solver.hpp"
#include "engine/unique_system.hpp"
#include "neighborhood/neighbor_search.hpp"

namespace kestrum {
namespace {

// The estimate and standard deviation of a node.
class EstimateWriter {
 public:
  EstimateWriter(const LocalLaw& law, real* estimate, real* deviation) noexcept
      : law_(law), estimate_(estimate), deviation_(deviation) {}

  // value(i) and neighbor(i): residual and grid node of neighbour i.
  template <typename Value, typename NodeOf>
  void Store(int node, const SolvedSystem& solved, const real* weight, const Value& value,
             const NodeOf& neighbor) const noexcept {
    if (solved.m == 0) {
      StoreWithoutNeighbors(node, solved.sill);
      return;
    }
    estimate_[node] = law_.Mean(node, solved.m, weight, value, neighbor);
    const real explained = law_.countsMultiplier() ? solved.explained + solved.multiplier : solved.explained;
    deviation_[node] = std::sqrt(law_.LocalVariance(node, solved.sill - explained));
  }

  // Where a factor gives estimate and explained part without weights.
  void Store(int node, real estimate, real variance) const noexcept {
    estimate_[node] = law_.MeanOfScaled(node, estimate);
    deviation_[node] = std::sqrt(law_.LocalVariance(node, variance));
  }

  const LocalLaw& law() const noexcept { return law_; }

 private:
  // A node without neighbours, or whose system could not be solved, takes the mean and the sill. A sill below zero is
  // possible where a weight image holds negative values.
  void StoreWithoutNeighbors(int node, real sill) const noexcept {
    estimate_[node] = 0.0;
    deviation_[node] = (sill > 0.0 ? std::sqrt(sill) : 0.0) * law_.Ratio(node);
  }

  const LocalLaw& law_;
  real* estimate_;
  real* deviation_;
};

// What one thread needs for a moving neighbourhood.
struct MovingScratch {
  ChunkSolver systems;
  DataNeighborSearch::Scratch search;
};

int EstimateMoving(const Problem& problem, const EstimateWriter& writer, const real* value) noexcept {
  const ModelSetup& setup = problem.setups[0];
  const NeighborList& neighbors = setup.neighbors;
  if (neighbors.limit < 1) return kNeighborLimit;
  NodeBits data;
  if (const int status = data.Allocate(problem.grid.nxyz); status != 0) return status;
  int ndata = 0;
  for (int i = 0; i < problem.grid.nxyz; ++i) {
    if (problem.data.nodeStatus[i] != 0) continue;
    data.Set(i);
    ++ndata;
  }
  DataNeighborSearch search;
  if (const int status = search.Prepare(neighbors, data, ndata); status != 0) return status;
  MovingSystems systems;
  if (const int status = systems.Prepare(setup.model, search.list()); status != 0) return status;
  ObjectArray<MovingScratch> scratches;
  if (const int status = scratches.Allocate(problem.dealing().nscratch()); status != 0) return status;
  for (MovingScratch& scratch : scratches) {
    int status = scratch.systems.Allocate(problem, systems);
    if (status == 0) status = search.AllocateScratch(scratch.search);
    if (status != 0) return status;
  }
  problem.progress().StartRealizations(1);

  const auto work = [&](int thread, const int* nodes, int count) noexcept {
    auto& [solver, chunk] = scratches[thread].systems;
    chunk.Find(search, nodes, count, scratches[thread].search);
    solver.Solve(systems, chunk);
    for (int i = 0; i < count; ++i) {
      const auto [system, entries, weight] = chunk[i];
      const auto neighbor = [node = nodes[i], entries = entries, shift = neighbors.shift](int k) {
        return node + shift[entries[k]];
      };
      writer.Store(
          nodes[i], system, weight, [&](int k) { return value[neighbor(k)]; }, neighbor);
    }
  };
  const auto warn = [&](int thread, int i) noexcept {
    return scratches[thread].systems.chunk.system(i).Warn(problem.progress());
  };
  return ForEachChunk(problem, work, warn);
}

// What one thread needs for a unique neighbourhood, to iterate and to use a factor.
struct UniqueScratch {
  UniqueSystem::Scratch system;
  SolvedSystem solved[kMaxChunk];
};
struct FactorScratch {
  Buffer<real> lag, rhs, estimate, explained;
};

int IterateUnique(const Problem& problem, const EstimateWriter& writer, const UniqueData& data,
                  const UniqueCovariances& covariances) noexcept {
  UniqueSystem system;
  if (const int status = system.Build(covariances, problem.dealing()); status != 0) return status;
  ObjectArray<UniqueScratch> scratches;
  if (const int status = scratches.Allocate(problem.dealing().nscratch()); status != 0) return status;
  for (UniqueScratch& scratch : scratches) {
    if (const int status = system.AllocateScratch(scratch.system); status != 0) return status;
  }
  problem.progress().StartRealizations(1);
  const auto work = [&](int thread, const int* nodes, int count) noexcept {
    auto& [scratch, solved] = scratches[thread];
    for (int begin = 0; begin < count; begin += kLanes) {
      const int n = std::min(kLanes, count - begin);
      system.Solve(problem.grid, nodes + begin, n, scratch);
      for (int i = 0; i < n; ++i) {
        solved[begin + i] = scratch.system[i];
        writer.Store(
            nodes[begin + i], scratch.system[i], system.weight(scratch, i), [&](int k) { return data.value[k]; },
            [&](int k) { return data.node[k]; });
      }
    }
  };
  const auto warn = [&](int thread, int i) noexcept { return scratches[thread].solved[i].Warn(problem.progress()); };
  return ForEachChunk(problem, work, warn);
}

int UseFactor(const Problem& problem, const EstimateWriter& writer, const UniqueData& data,
              const UniqueFactor& factor) noexcept {
  const std::size_t size = factor.size();
  Buffer<real> values;
  if (const int status = values.Allocate(2 * size); status != 0) return status;
  real* const prepared = values.data() + size;
  for (int k = 0; k < data.n; ++k) values[k] = writer.law().Scaled(data.node[k], data.value[k]);
  factor.Prepare(values.data(), prepared);
  ObjectArray<FactorScratch> scratches;
  if (const int status = scratches.Allocate(problem.dealing().nscratch()); status != 0) return status;
  for (FactorScratch& scratch : scratches) {
    int status = scratch.lag.Allocate(factor.covariances().scratchSize());
    if (status == 0) status = scratch.rhs.Allocate(size * kMaxChunk);
    if (status == 0) status = scratch.estimate.Allocate(kMaxChunk);
    if (status == 0) status = scratch.explained.Allocate(kMaxChunk);
    if (status != 0) return status;
  }
  problem.progress().StartRealizations(1);
  const real sill = factor.covariances().model().sill;
  const auto work = [&](int thread, const int* nodes, int count) noexcept {
    FactorScratch& scratch = scratches[thread];
    factor.Solve(problem.grid, nodes, count, prepared, scratch.lag.data(), scratch.rhs.data(), scratch.estimate.data(),
                 scratch.explained.data());
    for (int i = 0; i < count; ++i) writer.Store(nodes[i], scratch.estimate[i], sill - scratch.explained[i]);
  };
  return ForEachChunk(problem, work, [](int, int) noexcept { return 0; });
}

int EstimateUnique(const Problem& problem, const EstimateWriter& writer, const real* value) noexcept {
  const KrigingModel& model = problem.setups[0].model;
  UniqueData data;
  if (const int status = data.Gather(problem.grid, value, problem.data.uniqueMax); status != 0) return status;
  // All lags are differences of rotated places.
  if (model.rotated) data.Rotate(model.rotation, problem.dealing());
  const UniqueCovariances covariances(model, data, UniqueCovariances::RightSide::kFixed);
  if (problem.solver.factorising()) {
    UniqueFactor factor;
    bool sound = false;
    if (const int status = factor.Build(covariances, problem.dealing(), problem.progress(), &sound); status != 0)
      return status;
    if (sound) return UseFactor(problem, writer, data, factor);
    problem.solver.CountFallbacks(problem.path.nnode - problem.path.firstSimulated);
  }
  return IterateUnique(problem, writer, data, covariances);
}

}  // namespace

int Estimate(const Problem& problem, const LocalLaw& law, real* estimate, real* deviation) noexcept {
  const EstimateWriter writer(law, estimate, deviation);
  const int status = problem.setups[0].unique() ? EstimateUnique(problem, writer, estimate)
                                                : EstimateMoving(problem, writer, estimate);
  if (status == 0) law.AddMean(problem.grid.nxyz, problem.dealing(), estimate);
  return status;
}

}  // namespace kestrum
