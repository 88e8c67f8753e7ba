#ifndef KESTRUM_ENGINE_PATH_RANKS_HPP
#define KESTRUM_ENGINE_PATH_RANKS_HPP

#include <algorithm>
#include <climits>
#include <cstddef>

#include "core/buffer.hpp"
#include "core/constants.h"
#include "engine/problem.hpp"

namespace kestrum {

// The rank of each node in the visiting order, which decides who is whose neighbour: a node sees the nodes with a lower
// rank than its own. Known nodes have rank 0, seen by all; the node at position p of the path has rank p + 1.
class PathRanks {
 public:
  static constexpr int kNever = INT_MAX;
  static constexpr int AtPosition(int position) noexcept { return position + 1; }

  // Inequality nodes have a rank only if they are given values; other nodes out of the last segment are never seen.
  [[nodiscard]] int Prepare(const Problem& problem, bool inequalityNodesSimulated) noexcept {
    const int nxyz = problem.grid.nxyz;
    const GridPath& path = problem.path;
    if (const int status = rank_.Allocate(nxyz); status != 0) return status;
    if (const int status = starts_.Allocate(std::max(problem.passes().nscratch(), 1) + 1); status != 0) return status;
    // Each thread is the first to touch some of the memory, which then lies near it.
    problem.passes().Blocks(nxyz, [&](std::ptrdiff_t from, std::ptrdiff_t to) noexcept {
      std::fill(&rank_[from], &rank_[from] + (to - from), kNever);
    });
    const real* datum = problem.data.known;
    for (int i = 0; i < nxyz; ++i) {
      // A datum that is missing once the mean is taken off is seen by none.
      if (problem.data.nodeStatus[i] == 0 && *datum++ != VORL_MISSING_VALUE) rank_[i] = 0;
    }
    if (inequalityNodesSimulated) Number(problem, path.firstInequality, path.firstSimulated);
    Number(problem, path.firstSimulated, path.nnode);
    return 0;
  }

  // Gives the nodes of a segment of the path their ranks.
  void Number(const Problem& problem, int begin, int end) noexcept {
    const int* const nodes = problem.path.nodes;
    problem.passes().Blocks(end - begin, [&](std::ptrdiff_t from, std::ptrdiff_t to) noexcept {
      for (std::ptrdiff_t p = begin + from; p < begin + to; ++p) {
        rank_[nodes[p]] = AtPosition(static_cast<int>(p));
      }
    });
  }

  // Puts the nodes of a segment into increasing order.
  void Sort(const Problem& problem, int begin, int end) noexcept {
    const int nblock = static_cast<int>(starts_.size()) - 1;
    const auto isMember = [=](int rank) noexcept { return rank >= AtPosition(begin) && rank < AtPosition(end); };
    const auto eachBlock = [&](const auto& visit) noexcept {
      problem.passes().EachThread([&](int thread, int team) noexcept {
        for (int b = thread; b < nblock; b += team) visit(b, BlockOf(problem.grid.nxyz, nblock, b));
      });
    };
    starts_[0] = begin;
    if (nblock > 1) {
      // Where the members of each block go.
      eachBlock([&](int b, ItemBlock nodes) noexcept {
        const int* const rank = rank_.data();
        starts_[b + 1] = static_cast<int>(std::count_if(rank + nodes.begin, rank + nodes.end, isMember));
      });
      for (int b = 0; b < nblock; ++b) starts_[b + 1] += starts_[b];
    }
    eachBlock([&](int b, ItemBlock nodes) noexcept {
      int* next = problem.path.nodes + starts_[b];
      for (std::ptrdiff_t i = nodes.begin; i < nodes.end; ++i) {
        if (isMember(rank_[i])) *next++ = static_cast<int>(i);
      }
    });
  }

  // Writes the nodes of a segment in increasing order, by one thread.
  void CopySorted(const Problem& problem, int begin, int end, int* sorted) const noexcept {
    for (int i = 0; i < problem.grid.nxyz; ++i) {
      if (rank_[i] >= AtPosition(begin) && rank_[i] < AtPosition(end)) *sorted++ = i;
    }
  }

  // The position of a node in the path, below 0 for a known node.
  int PositionOf(int node) const noexcept { return rank_[node] - 1; }
  int operator[](int node) const noexcept { return rank_[node]; }

 private:
  Buffer<int> rank_;
  Buffer<int> starts_;  // of the blocks that threads sort, in the path
};

}  // namespace kestrum

#endif
