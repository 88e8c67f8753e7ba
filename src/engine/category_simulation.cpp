#include <optional>

#include "core/object_array.hpp"
#include "core/statuses.hpp"
#include "engine/model_systems.hpp"
#include "engine/realization_team.hpp"
#include "engine/simulation.hpp"

namespace kestrum {
namespace {

// The law of the nodes of an indicator simulation.
class IndicatorLaw {
 public:
  IndicatorLaw(const Problem& problem, const Categories& categories, const ModelSystems& systems,
               const real* value) noexcept
      : problem_(problem), categories_(categories), value_(value), systems_(systems), groups_(systems.groups()) {}

  [[nodiscard]] int Prepare() noexcept {
    const int ncategory = categories_.count();
    if (const int status = scratches_.Allocate(problem_.dealing().nscratch()); status != 0) return status;
    for (auto& [solver, chunks, probability] : scratches_) {
      int status = solver.Allocate(problem_, systems_.capacity());
      if (status == 0) status = probability.Allocate(ncategory);
      if (status == 0) status = chunks.Allocate(ncategory);
      for (int c = 0; c < ncategory && status == 0; ++c) {
        if (groups_.isFirst(c)) status = chunks[c].Allocate(systems_[c].capacity());
      }
      if (status != 0) return status;
    }
    return 0;
  }

  int BeforePath(RandomSource&, PathRanks&, const NodeBits&) noexcept { return 0; }

  void Solve(int thread, const int* nodes, int count, PathView& view) noexcept {
    auto& [solver, chunks, probability] = scratches_[thread];
    for (int c = 0; c < categories_.count(); ++c) {
      if (groups_.isFirst(c)) view.Solve(systems_[c], nodes, count, solver, chunks[c]);
    }
  }

  void Discard(int thread) noexcept {
    for (ChunkSystems& chunk : scratches_[thread].chunks) chunk.Discard(problem_.solver);
  }

  template <typename Visit>
  void ForEachNeighbor(int thread, int i, int node, const Visit& visit) noexcept {
    for (int c = 0; c < categories_.count(); ++c) {
      if (!groups_.isFirst(c)) continue;
      const auto [system, entries, weight] = scratches_[thread].chunks[c][i];
      for (int k = 0; k < system.m; ++k) visit(node + systems_[c].list().shift[entries[k]]);
    }
  }

  int Value(int thread, int i, int node, double number, real* value) noexcept {
    auto& [solver, chunks, probability] = scratches_[thread];
    const int ncategory = categories_.count();
    for (int c = 0; c < ncategory; ++c) {
      const int first = groups_.first(c);
      const auto [system, entries, weight] = chunks[first][i];
      system.Warn(problem_.progress());
      probability[c] = categories_.Probability(c, node, system.m, weight,
                                               [&, entries = entries, shift = systems_[first].list().shift](int k) {
                                                 return value_[node + shift[entries[k]]];
                                               });
    }
    int status = 0;
    if (ncategory > 1 && !categories_.Normalize(node, probability.data()))
      status = problem_.progress().Warn(kDefaultProbabilities);
    *value = categories_.Draw(probability.data(), number);
    return status;
  }

  void AfterPath() noexcept {}

 private:
  struct Scratch {
    SystemSolver solver;
    ObjectArray<ChunkSystems> chunks;  // per category
    Buffer<real> probability;
  };

  const Problem& problem_;
  const Categories& categories_;
  const real* value_;
  const ModelSystems& systems_;
  const CategoryGroups& groups_;
  ObjectArray<Scratch> scratches_;
};

}  // namespace

int SimulateCategories(const Problem& problem, const Categories& categories, int count, RandomSource& random,
                       real* value, RealizationSink& sink) noexcept {
  for (const ModelSetup& setup : problem.setups) {
    if (setup.neighbors.limit < 1) return kNeighborLimit;
  }
  ModelSystems own;
  if (problem.systems == nullptr) {
    if (const int status = own.Prepare(problem.setups); status != 0) return status;
  }
  const ModelSystems& systems = problem.systems != nullptr ? *problem.systems : own;
  const auto makeLaw = [&](const Problem& part, real* values, std::optional<IndicatorLaw>& law) noexcept {
    return law.emplace(part, categories, systems, values).Prepare();
  };
  return DrawRealizations<IndicatorLaw>(problem, count, false, random, value, sink, makeLaw);
}

}  // namespace kestrum
