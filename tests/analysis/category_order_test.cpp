#include "analysis/category_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "support/allocation_failure.hpp"

namespace {

using kestrum_test::ForEachFailingAllocation;
using Matrix = std::vector<std::vector<int>>;

struct Grid {
  int nx, ny, nz;
  std::vector<int> index;
};

void CountPlainly(const Grid& g, const bool (&along)[3], Matrix* matrix) {
  for (int i = 0; i < static_cast<int>(g.index.size()); ++i) {
    const bool hasLower[] = {i % g.nx > 0, i / g.nx % g.ny > 0, i / (g.nx * g.ny) > 0};
    const int step[] = {1, g.nx, g.nx * g.ny};
    for (int axis = 0; axis < 3; ++axis) {
      if (!along[axis] || !hasLower[axis] || g.index[i] < 0 || g.index[i - step[axis]] < 0) continue;
      ++(*matrix)[g.index[i - step[axis]]][g.index[i]];
    }
  }
}

std::vector<int> OrderPlainly(const Matrix& counts) {
  const int n = static_cast<int>(counts.size());
  const auto weight = [&](int a, int b) { return counts[a][b] + counts[b][a]; };
  std::vector<int> sequence{0, 1};
  for (int i = 0; i < n; ++i) {
    for (int j = i + 1; j < n; ++j) {
      if (weight(i, j) > weight(sequence[0], sequence[1])) sequence = {i, j};
    }
  }
  while (static_cast<int>(sequence.size()) < n) {
    int best = -1, added = 0;
    bool front = true;
    for (int u = 0; u < n; ++u) {
      if (std::count(sequence.begin(), sequence.end(), u) > 0) continue;
      if (weight(sequence.front(), u) > best) best = weight(sequence.front(), u), added = u, front = true;
      if (weight(sequence.back(), u) > best) best = weight(sequence.back(), u), added = u, front = false;
    }
    sequence.insert(front ? sequence.begin() : sequence.end(), added);
  }
  return sequence;
}

TEST(CategoryOrder, MatchesPlainLoops) {
  std::mt19937 generator(2);
  const auto below = [&](int n) { return static_cast<int>(generator() % static_cast<unsigned>(n)); };
  for (int trial = 0; trial < 60; ++trial) {
    SCOPED_TRACE(trial);
    const bool along[] = {trial % 8 % 2 == 0, trial % 8 / 2 % 2 == 0, trial % 8 / 4 == 0};
    const auto size = [&](bool wanted) { return (wanted ? 2 : 1) + below(8); };
    const int nvalue = trial % 6 == 0 ? 70 : 2 + below(6);
    int nx[3], ny[3], nz[3];
    int* index[3];
    Grid grids[3];
    Matrix ofFirst(nvalue, std::vector<int>(nvalue, 0)), ofAll;
    for (int i = 0; i < 3; ++i) {
      Grid& g = grids[i];
      g = {nx[i] = size(along[0]), ny[i] = size(along[1]), nz[i] = i == 1 ? 0 : size(along[2]), {}};
      for (int node = 0; node < g.nx * g.ny * g.nz; ++node) g.index.push_back(below(nvalue + 1) - 1);
      index[i] = g.index.data();
      CountPlainly(g, along, i == 0 ? &ofFirst : &ofAll);
      if (i == 0) ofAll = ofFirst;
    }
    const int teams[] = {1, 2, 3, 8, -1};
    for (const int nthreads : {0, teams[trial % 5]}) {
      const auto call = [&](auto serial, auto threaded, auto... arguments) {
        return [=, &along] {
          return nthreads == 0 ? serial(arguments..., along[0], along[1], along[2])
                               : threaded(arguments..., along[0], along[1], along[2], nthreads);
        };
      };
      Matrix matrix(nvalue, std::vector<int>(nvalue, 7)), expected = matrix;
      CountPlainly(grids[0], along, &expected);
      std::vector<int*> rows;
      for (auto& row : matrix) rows.push_back(row.data());
      EXPECT_EQ(
          call(VORLUpdateTransitionMatrix, VORLOMPUpdateTransitionMatrix, nx[0], ny[0], nz[0], index[0], rows.data())(),
          0);
      EXPECT_EQ(matrix, expected);
      std::vector<int> rank(nvalue), sequence(nvalue);
      ForEachFailingAllocation(call(VORLGetImageOneVarNewValueIndexOrder, VORLOMPGetImageOneVarNewValueIndexOrder,
                                    nx[0], ny[0], nz[0], nvalue, index[0], rank.data(), sequence.data()));
      EXPECT_EQ(sequence, OrderPlainly(ofFirst));
      ForEachFailingAllocation(call(VORLGetNImageOneVarNewValueIndexOrder, VORLOMPGetNImageOneVarNewValueIndexOrder, 3,
                                    nx, ny, nz, nvalue, index, rank.data(), sequence.data()));
      EXPECT_EQ(sequence, OrderPlainly(ofAll));
      for (int k = 0; k < nvalue; ++k) EXPECT_EQ(rank[sequence[k]], k);
    }
  }
}

TEST(CategoryOrder, Refusals) {
  // Some numbers are no category.
  std::vector<int> index{0, 0, -1, 2000000000, -2000000000, 0, 0, 1, 0};
  const struct {
    int nx, ny, nz, nvalue;
    bool along[3];
    int status;
  } cases[] = {{1, 1, 1, 2, {true, true, true}, -4400}, {2, 1, 1, 2, {true, true, true}, -4401},
               {3, 3, 1, 2, {true, true, true}, -4402}, {3, 3, 1, 2, {false, false, true}, -4402},
               {3, 3, 1, 1, {true, true, false}, 0},    {1, 1, 1, 1, {false, false, false}, 0},
               {0, 3, 3, 1, {false, true, false}, 0},   {-3, -3, 3, 1, {false, false, true}, 0},
               {3, 3, 1, 0, {true, true, false}, -7},   {1, 1, 1, -1, {true, true, false}, -1}};
  for (const auto& c : cases) {
    int rank[2] = {9, 9}, sequence[2] = {9, 9};
    EXPECT_EQ(VORLGetImageOneVarNewValueIndexOrder(c.nx, c.ny, c.nz, c.nvalue, index.data(), rank, sequence, c.along[0],
                                                   c.along[1], c.along[2]),
              c.status);
    EXPECT_TRUE(c.status != 0 || (rank[0] == 0 && sequence[0] == 0 && rank[1] == 9 && sequence[1] == 9));
  }
  EXPECT_EQ(VORLGetNImageOneVarNewValueIndexOrder(0, nullptr, nullptr, nullptr, 1, nullptr, nullptr, nullptr, TRUE,
                                                  FALSE, FALSE),
            0);
}

}  // namespace
