#ifndef KESTRUM_ENGINE_REALIZATIONS_HPP
#define KESTRUM_ENGINE_REALIZATIONS_HPP

#include "core/constants.h"
#include "engine/path_walk.hpp"
#include "engine/simulation.hpp"
#include "numeric/random.h"

namespace kestrum {

// A law that draws whole realizations. Around the path of each one:
//   BeforePath  gives values to nodes that come before the path; a status ends the run
//   AfterPath   finishes the values
template <typename Law>
concept RealizationLaw = NodeLaw<Law> &&
    requires(Law law, int seed, PathRanks& ranks, const NodeBits& before, VORL_RANDCONTEXT& context) {
  { law.BeforePath(seed, ranks, before, context) } -> std::same_as<int>;
  law.AfterPath();
};

// The frame of both sequential simulations: realizations one after the other, each along a random path of its own.
class Realizations {
 public:
  Realizations(const Problem& problem, real* value) noexcept : problem_(problem), value_(value), walk_(problem) {}

  // inequalityNodesSimulated: whether BeforePath gives values to the nodes with bounds.
  [[nodiscard]] int Prepare(bool inequalityNodesSimulated) noexcept {
    const int nxyz = problem_.grid.nxyz;
    if (const int status = ranks_.Prepare(problem_, inequalityNodesSimulated); status != 0) return status;
    if (const int status = before_.Allocate(nxyz); status != 0) return status;
    for (int i = 0; i < nxyz; ++i) {
      if (ranks_.PositionOf(i) < problem_.path.firstSimulated) before_.Set(i);
    }
    return walk_.Allocate();
  }

  template <RealizationLaw Law>
  [[nodiscard]] int Run(const RealizationPlan& plan, Law& law, RealizationSink& sink) noexcept {
    if (const int status = problem_.progress().After(0); status != 0) return status;
    problem_.progress().StartRealizations(plan.count);
    VORLInitRandContext(&context_);
    int seed = plan.seed;
    for (int r = 0; r < plan.count; ++r, seed = WrappingSum(seed, plan.seedIncrement)) {
      sink.Begin(r);
      if (const int status = Draw(seed, law); status != 0) return status;
      if (const int status = sink.End(r); status != 0) return status;
      problem_.progress().FinishRealization();
      if (const int status = problem_.progress().Publish(0.0); status != 0) return status;
    }
    return 0;
  }

 private:
  // Known nodes take their values, all others none.
  void Reset() noexcept {
    const real* datum = problem_.data.known;
    for (int i = 0; i < problem_.grid.nxyz; ++i) {
      value_[i] = problem_.data.nodeStatus[i] == 0 ? *datum++ : real{VORL_MISSING_VALUE};
    }
  }

  template <RealizationLaw Law>
  [[nodiscard]] int Draw(int seed, Law& law) noexcept {
    const auto& [nodes, nnode, firstInequality, first] = problem_.path;
    VORLDoubleRand(seed, &context_);
    Reset();
    if (const int status = law.BeforePath(seed, ranks_, before_, context_); status != 0) return status;
    // Sorted first, so that the path depends on the seed and on nothing that the realization before has left.
    ranks_.Sort(problem_, first, nnode);
    if (const int status = VORLPathRandom(nnode - first, nodes + first, &context_); status != 0) return status;
    ranks_.Number(problem_, first, nnode);
    const NodeDraws draws(WrappingSum(seed, first), context_);
    if (const int status = walk_.Run(law, draws, ranks_, before_, value_); status != 0) return status;
    // For a next seed of 0, which does not reseed.
    context_ = draws.After(nnode - first);
    law.AfterPath();
    return 0;
  }

  const Problem& problem_;
  real* value_;
  PathRanks ranks_;
  NodeBits before_;  // the known nodes, and the inequality nodes once they have values
  PathWalk walk_;
  VORL_RANDCONTEXT context_;
};

}  // namespace kestrum

#endif
