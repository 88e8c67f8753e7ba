#ifndef KESTRUM_ENGINE_PATH_RANKS_HPP
#define KESTRUM_ENGINE_PATH_RANKS_HPP

#include <climits>

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
    const auto& [nodes, nnode, firstInequality, firstSimulated] = problem.path;
    if (const int status = rank_.Allocate(nxyz, kNever); status != 0) return status;
    const real* datum = problem.data.known;
    for (int i = 0; i < nxyz; ++i) {
      // A datum that is missing once the mean is taken off is seen by none.
      if (problem.data.nodeStatus[i] == 0 && *datum++ != VORL_MISSING_VALUE) rank_[i] = 0;
    }
    if (inequalityNodesSimulated) Number(problem, firstInequality, firstSimulated);
    Number(problem, firstSimulated, nnode);
    return 0;
  }

  // Gives the nodes of a segment of the path their ranks.
  void Number(const Problem& problem, int begin, int end) noexcept {
    const int* const nodes = problem.path.nodes;
    problem.dealing().Blocks(end - begin, [&](std::ptrdiff_t from, std::ptrdiff_t to) noexcept {
      for (std::ptrdiff_t p = begin + from; p < begin + to; ++p) {
        rank_[nodes[p]] = AtPosition(static_cast<int>(p));
      }
    });
  }

  // Puts the nodes of a segment into increasing order.
  void Sort(const Problem& problem, int begin, int end) const noexcept {
    int* next = problem.path.nodes + begin;
    int* const stop = problem.path.nodes + end;
    for (int i = 0; next != stop && i < problem.grid.nxyz; ++i) {
      if (rank_[i] >= AtPosition(begin) && rank_[i] < AtPosition(end)) *next++ = i;
    }
  }

  // The position of a node in the path, below 0 for a known node.
  int PositionOf(int node) const noexcept { return rank_[node] - 1; }
  int operator[](int node) const noexcept { return rank_[node]; }

 private:
  Buffer<int> rank_;
};

}  // namespace kestrum

#endif
