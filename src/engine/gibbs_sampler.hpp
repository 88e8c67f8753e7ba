#ifndef KESTRUM_ENGINE_GIBBS_SAMPLER_HPP
#define KESTRUM_ENGINE_GIBBS_SAMPLER_HPP

#include "core/buffer.hpp"
#include "engine/local_law.hpp"
#include "engine/path_ranks.hpp"
#include "engine/random_source.hpp"
#include "engine/simulation.hpp"
#include "engine/system_solver.hpp"
#include "neighborhood/node_bits.hpp"

namespace kestrum {

// Mean and variance of the law of a node's residual, given the residuals of its neighbours.
struct NodeMoments {
  real mean, variance;
};

// value: the residuals, one per node.
inline NodeMoments MomentsAt(int node, const SolvedNode& solved, const int* shift, const LocalLaw& law,
                             const real* value) noexcept {
  const SolvedSystem& system = solved.system;
  if (system.m == 0) return {0.0, law.LocalVariance(node, system.sill)};
  const auto neighbor = [&](int k) { return node + shift[solved.entries[k]]; };
  const real mean = law.Mean(
      node, system.m, solved.weight, [&](int k) { return value[neighbor(k)]; }, neighbor);
  real variance = system.sill - system.explained;
  if (law.countsMultiplier()) variance -= system.multiplier;
  return {mean, law.LocalVariance(node, variance)};
}

// Systems of the inequality nodes that have been solved once for all: from its second pass on the Gibbs sampler lets
// each of them see all the others, so that its neighbours and weights stay the same in every pass of every realization.
class SolvedInequalityNodes {
 public:
  // Where the memory would be too much for the grid, nothing is kept.
  [[nodiscard]] int Prepare(const Problem& problem, int capacity) noexcept;

  bool wanted() const noexcept { return store_.size() > 0; }
  bool complete() const noexcept { return wanted() && nkept_ == store_.size(); }

  // To be called once for each inequality node.
  void Keep(int node, const SolvedNode& solved) noexcept {
    const std::size_t place = PlaceOf(node);
    store_.system(place) = solved.system;
    std::copy_n(solved.entries, solved.system.m, store_.entries(place));
    std::copy_n(solved.weight, solved.system.m, store_.weight(place));
    ++nkept_;
  }

  SolvedNode Find(int node) const noexcept { return store_[PlaceOf(node)]; }

 private:
  std::size_t PlaceOf(int node) const noexcept {
    return static_cast<std::size_t>(std::lower_bound(node_.begin(), node_.end(), node) - node_.begin());
  }

  std::size_t nkept_ = 0;
  Buffer<int> node_;  // ascending
  SystemStore store_;
};

// Gives values to the nodes with bounds before the path of a realization: pass after pass over them, each drawn from its
// law within its bounds given all the others, until a pass needed no corrective step.
// Reference: Geman and Geman (1984), IEEE Transactions on Pattern Analysis and Machine Intelligence 6(6).
class GibbsSampler {
 public:
  GibbsSampler(const Problem& problem, const LocalLaw& law, const GibbsPlan& plan, const MovingSystems& systems,
               real* value) noexcept
      : problem_(problem),
        law_(law),
        plan_(plan),
        systems_(systems),
        value_(value),
        first_(problem.path.firstInequality),
        last_(problem.path.firstSimulated) {}

  [[nodiscard]] int Prepare() noexcept {
    // The first pass has systems of its own.
    return plan_.passMax > 1 ? solvedNodes_.Prepare(problem_, systems_.capacity()) : 0;
  }

  // All passes of a realization. scratch: of this thread.
  [[nodiscard]] int Run(RandomSource& random, PathRanks& ranks, const NodeBits& before, ChunkSolver& scratch) noexcept;

 private:
  // What a pass had to do to go on.
  struct PassFlags {
    bool dropped = false, gaveUp = false, varianceRaised = false, relaxed = false;
    bool clean() const noexcept { return !dropped && !gaveUp && !varianceRaised && !relaxed; }
  };

  PassFlags Pass(int pass, const RandomSource& random, const PathRanks& ranks, const NodeBits& before,
                 ChunkSolver& scratch) noexcept;
  // Finds the neighbours of the nodes from a position of the path on, and solves for them.
  void Solve(int pass, int begin, int count, const PathRanks& ranks, const NodeBits& before,
             ChunkSolver& scratch) const noexcept;
  // Draws the value of a node, the i-th of the stretch.
  void Draw(int node, const SolvedNode& solved, const RandomSource& random, int i, PassFlags& flags) noexcept;

  const Problem& problem_;
  const LocalLaw& law_;
  GibbsPlan plan_;
  const MovingSystems& systems_;
  real* value_;
  int first_, last_;  // positions of the nodes with bounds
  SolvedInequalityNodes solvedNodes_;
};

}  // namespace kestrum

#endif
