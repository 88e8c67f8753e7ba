#ifndef KESTRUM_ENGINE_REALIZATIONS_HPP
#define KESTRUM_ENGINE_REALIZATIONS_HPP

#include <algorithm>

#include "core/buffer.hpp"
#include "core/constants.h"
#include "engine/path_walk.hpp"
#include "engine/random_source.hpp"
#include "engine/simulation.hpp"

namespace kestrum {

// A law that draws whole realizations. Around the path of each one:
//   BeforePath  gives values to nodes that come before the path; a status ends the run
//   AfterPath   finishes the values
template <typename Law>
concept RealizationLaw = NodeLaw<Law> &&
    requires(Law law, RandomSource& random, PathRanks& ranks, const NodeBits& before) {
  { law.BeforePath(random, ranks, before) } -> std::same_as<int>;
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
    const int* const nodeStatus = problem_.data.nodeStatus;
    const auto count = static_cast<std::size_t>(std::count(nodeStatus, nodeStatus + nxyz, 0));
    if (const int status = count > 0 ? known_.Allocate(count) : 0; status != 0) return status;
    for (int i = 0, k = 0; i < nxyz; ++i) {
      if (nodeStatus[i] == 0) known_[k++] = i;
    }
    const GridPath& path = problem_.path;
    const auto markBefore = [&](int node) noexcept {
      if (ranks_.PositionOf(node) < path.firstSimulated) before_.Set(node);
    };
    std::for_each(known_.begin(), known_.end(), markBefore);
    std::for_each(path.nodes + path.firstInequality, path.nodes + path.firstSimulated, markBefore);
    return walk_.Allocate();
  }

  // Whether the path of the next realization is made while one is drawn: it takes memory for another path, or is made
  // after it if there is none.
  void PrepareAhead(int count) noexcept {
    const int n = problem_.path.nnode - problem_.path.firstSimulated;
    ahead_ = count > 1 && problem_.passes().threaded() && !problem_.data.bounded && n > 0 &&
             nextPath_.Allocate(static_cast<std::size_t>(n)) == 0;
  }

  // Draws realization r alone. It is complete then, but not handed over.
  template <RealizationLaw Law>
  [[nodiscard]] int DrawAlone(int r, RandomSource& random, Law& law) noexcept {
    random.StartRealization(r);
    return Draw(r, false, random, law);
  }

  template <RealizationLaw Law>
  [[nodiscard]] int Run(int count, RandomSource& random, Law& law, RealizationSink& sink) noexcept {
    const Progress& progress = problem_.progress();
    if (const int status = progress.After(0); status != 0) return status;
    progress.StartRealizations(count);
    PrepareAhead(count);
    for (int r = 0; r < count; ++r) {
      sink.Begin(r);
      if (!made_) random.StartRealization(r);
      if (const int status = Draw(r, r + 1 < count, random, law); status != 0) return status;
      if (const int status = sink.End(r); status != 0) return status;
      progress.FinishRealization();
      if (const int status = progress.Publish(0.0); status != 0) return status;
    }
    return 0;
  }

 private:
  // Known nodes take their values, all others none.
  void Reset() noexcept {
    problem_.passes().Blocks(problem_.grid.nxyz, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      std::fill(value_ + begin, value_ + end, real{VORL_MISSING_VALUE});
    });
    for (std::size_t k = 0; k < known_.size(); ++k) value_[known_[k]] = problem_.data.known[k];
  }

  template <RealizationLaw Law>
  [[nodiscard]] int Draw(int r, bool more, RandomSource& random, Law& law) noexcept {
    const int first = problem_.path.firstSimulated;
    const int nnode = problem_.path.nnode;
    int* const path = problem_.path.nodes + first;
    const Progress& progress = problem_.progress();
    Reset();
    if (const int status = law.BeforePath(random, ranks_, before_); status != 0) return status;
    if (const int status = progress.Interruption(); status != 0) return status;
    const bool shuffled = r == 0 && problem_.path.shuffled;
    if (shuffled) {
      random.TakeAhead(r);
    } else if (made_) {
      random.TakeAhead(r);
      problem_.passes().Blocks(nnode - first, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
        std::copy(nextPath_.data() + begin, nextPath_.data() + end, path + begin);
      });
    } else {
      // Sorted first, so that the path depends on the seed and on nothing that the realization before has left.
      ranks_.Sort(problem_, first, nnode);
      if (const int status = random.Shuffle(path, nnode - first); status != 0) return status;
    }
    if (const int status = progress.Interruption(); status != 0) return status;
    if (!shuffled) ranks_.Number(problem_, first, nnode);
    random.StartStretch(first, nnode - first, -1);
    made_ = false;
    const auto makeNextPath = [&]() noexcept {
      if (!ahead_ || !more) return;
      ranks_.CopySorted(problem_, first, nnode, nextPath_.data());
      made_ = random.ShuffleAhead(r + 1, nextPath_.data(), nnode - first);
    };
    const int status = walk_.Run(law, random, ranks_, before_, value_, makeNextPath);
    if (status != 0) return status;
    random.EndStretch();
    law.AfterPath();
    return 0;
  }

  const Problem& problem_;
  real* value_;
  PathRanks ranks_;
  Buffer<int> known_;  // the known nodes
  NodeBits before_;    // the known nodes, and the inequality nodes once they have values
  PathWalk walk_;
  bool ahead_ = false;
  bool made_ = false;  // whether the next path is
  Buffer<int> nextPath_;
};

}  // namespace kestrum

#endif
