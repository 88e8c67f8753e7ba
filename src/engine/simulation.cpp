#include "engine/simulation.hpp"

#include <cmath>
#include <optional>

#include "core/object_array.hpp"
#include "core/statuses.hpp"
#include "engine/gibbs_sampler.hpp"
#include "engine/model_systems.hpp"
#include "engine/realization_team.hpp"

namespace kestrum {
namespace {

// The law of the nodes of a Gaussian simulation.
class GaussianLaw {
 public:
  GaussianLaw(const Problem& problem, const LocalLaw& law, const GibbsPlan& gibbs, const NormalLaw& normal,
              const MovingSystems& systems, real* value) noexcept
      : problem_(problem),
        law_(law),
        normal_(normal),
        value_(value),
        systems_(systems),
        gibbs_(problem, law, gibbs, systems, value) {}

  [[nodiscard]] int Prepare() noexcept {
    if (const int status = scratches_.Allocate(problem_.dealing().nscratch()); status != 0) return status;
    for (ChunkSolver& scratch : scratches_) {
      if (const int status = scratch.Allocate(problem_, systems_); status != 0) return status;
    }
    return problem_.data.bounded ? gibbs_.Prepare() : 0;
  }

  int BeforePath(RandomSource& random, PathRanks& ranks, const NodeBits& before) noexcept {
    return problem_.data.bounded ? gibbs_.Run(random, ranks, before, scratches_[0]) : 0;
  }

  void Solve(int thread, const int* nodes, int count, PathView& view) noexcept {
    auto& [solver, chunk] = scratches_[thread];
    view.Solve(systems_, nodes, count, solver, chunk);
    if (problem_.solver.factorising()) chunk.GiveUpIndefinite();
  }

  void Discard(int thread) noexcept { scratches_[thread].chunk.Discard(problem_.solver); }

  template <typename Visit>
  void ForEachNeighbor(int thread, int i, int node, const Visit& visit) noexcept {
    const auto [system, entries, weight] = scratches_[thread].chunk[i];
    for (int k = 0; k < system.m; ++k) visit(node + systems_.list().shift[entries[k]]);
  }

  int Value(int thread, int i, int node, double number, real* value) noexcept {
    const SolvedNode solved = scratches_[thread].chunk[i];
    solved.system.Warn(problem_.progress());
    const auto [mean, variance] = MomentsAt(node, solved, systems_.list().shift, law_, value_);
    *value = mean + std::sqrt(variance) * normal_.quantile(number);
    return 0;
  }

  void AfterPath() noexcept { law_.AddMean(problem_.grid.nxyz, problem_.dealing(), value_); }

 private:
  const Problem& problem_;
  const LocalLaw& law_;
  const NormalLaw& normal_;
  real* value_;
  const MovingSystems& systems_;
  GibbsSampler gibbs_;
  ObjectArray<ChunkSolver> scratches_;  // per thread
};

}  // namespace

int Simulate(const Problem& problem, const LocalLaw& law, const GibbsPlan& gibbs, int count, RandomSource& random,
             real* value, RealizationSink& sink) noexcept {
  if (problem.setups[0].neighbors.limit < 1) return kNeighborLimit;
  ModelSystems own;
  if (problem.systems == nullptr) {
    if (const int status = own.Prepare(problem.setups); status != 0) return status;
  }
  const ModelSystems& systems = problem.systems != nullptr ? *problem.systems : own;
  const auto makeLaw = [&](const Problem& part, real* values, std::optional<GaussianLaw>& place) noexcept {
    return place.emplace(part, law, gibbs, random.normal(), systems[0], values).Prepare();
  };
  return DrawRealizations<GaussianLaw>(problem, count, problem.data.bounded && gibbs.passMax > 0, random, value, sink,
                                       makeLaw);
}

}  // namespace kestrum
