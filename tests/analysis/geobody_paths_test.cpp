#include "analysis/geobody_paths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <random>
#include <vector>

#include "support/allocation_failure.hpp"
#include "support/seeded.hpp"

namespace {

using Ints = std::vector<int>;
using Offset = std::array<int, 3>;

// The neighbours of a node in the order in which they are looked at.
const Offset kNeighbors[] = {{-1, 0, 0},  {-1, -1, 0}, {-1, -1, -1}, {-1, -1, 1}, {-1, 1, 0},  {-1, 1, -1}, {-1, 1, 1},
                             {-1, 0, -1}, {-1, 0, 1},  {1, 0, 0},    {1, -1, 0},  {1, -1, -1}, {1, -1, 1},  {1, 1, 0},
                             {1, 1, -1},  {1, 1, 1},   {1, 0, -1},   {1, 0, 1},   {0, -1, 0},  {0, -1, -1}, {0, -1, 1},
                             {0, 1, 0},   {0, 1, -1},  {0, 1, 1},    {0, 0, -1},  {0, 0, 1}};

// Those that differ along at most so many axes.
std::vector<Offset> Neighbors(int naxes) {
  std::vector<Offset> neighbors;
  std::copy_if(std::begin(kNeighbors), std::end(kNeighbors), std::back_inserter(neighbors),
               [naxes](const Offset& o) { return o[0] * o[0] + o[1] * o[1] + o[2] * o[2] <= naxes; });
  return neighbors;
}

struct Family {
  decltype(&VORLComputeDistanceConnectivity6InGeobody) distances;
  decltype(&VORLComputePathInDistanceMapGeobody6) path;
  decltype(&VORLJoinTwoPathInGeobody6) join;
  int cannotFindPath;
  std::vector<Offset> neighbors;
};

const Family kFamilies[] = {{VORLComputeDistanceConnectivity6InGeobody, VORLComputePathInDistanceMapGeobody6,
                             VORLJoinTwoPathInGeobody6, -2200, Neighbors(1)},
                            {VORLComputeDistanceConnectivity18InGeobody, VORLComputePathInDistanceMapGeobody18,
                             VORLJoinTwoPathInGeobody18, -2201, Neighbors(2)},
                            {VORLComputeDistanceConnectivity26InGeobody, VORLComputePathInDistanceMapGeobody26,
                             VORLJoinTwoPathInGeobody26, -2202, Neighbors(3)}};

struct Grid {
  int nx, ny, nz;
  int size() const { return nx * ny * nz; }
  // The neighbour at an offset, -1 outside.
  int Neighbor(int node, const Offset& offset) const {
    const int ix = node % nx + offset[0], iy = node / nx % ny + offset[1], iz = node / (nx * ny) + offset[2];
    return ix < 0 || ix >= nx || iy < 0 || iy >= ny || iz < 0 || iz >= nz ? -1 : (iz * ny + iy) * nx + ix;
  }
};

const Grid kGrids[] = {{7, 5, 4}, {1, 9, 5}, {2, 2, 9},  {11, 1, 3}, {8, 8, 1},
                       {1, 1, 1}, {2, 1, 6}, {1, 13, 1}, {4, 3, 3}};

Ints RandomMask(const Grid& grid, unsigned seed) {
  std::mt19937 generator(seed);
  Ints mask(static_cast<std::size_t>(grid.size()));
  for (int& inside : mask) inside = generator() % 3 == 0 ? 0 : generator() % 2 == 0 ? -4 : 1;
  return mask;
}

// Distances by relaxation until nothing changes.
Ints RelaxedDistances(const Family& family, const Grid& grid, const Ints& mask, const Ints& starts) {
  Ints distance(mask.size(), -1);
  for (const int node : starts) distance[static_cast<std::size_t>(node)] = 0;
  for (bool changed = true; changed;) {
    changed = false;
    for (int node = 0; node < grid.size(); ++node) {
      int& own = distance[static_cast<std::size_t>(node)];
      if (mask[static_cast<std::size_t>(node)] == 0) continue;
      for (const Offset& offset : family.neighbors) {
        const int neighbor = grid.Neighbor(node, offset);
        const int through = neighbor < 0 ? -1 : distance[static_cast<std::size_t>(neighbor)];
        if (through < 0 || (own >= 0 && own <= through + 1)) continue;
        own = through + 1;
        changed = true;
      }
    }
  }
  return distance;
}

TEST(GeobodyPaths, DistancesAgainstRelaxation) {
  for (const Family& family : kFamilies) {
    for (const Grid& grid : kGrids) {
      for (unsigned seed = 0; seed < 12; ++seed) {
        Ints mask = RandomMask(grid, seed);
        // Start nodes inside and outside of the mask, some told twice, or none.
        Ints starts;
        for (unsigned i = 0; i < seed % 5; ++i)
          starts.push_back(static_cast<int>((seed * 31 + i / 2 * 17)) % grid.size());
        const Ints expected = RelaxedDistances(family, grid, mask, starts);
        for (const int frontCapacity : {1, grid.size()}) {
          Ints distance(mask.size(), 99);
          ASSERT_EQ(family.distances(grid.nx, grid.ny, grid.nz, mask.data(), frontCapacity,
                                     static_cast<int>(starts.size()), starts.data(), distance.data()),
                    0);
          ASSERT_EQ(distance, expected) << grid.nx << ' ' << grid.ny << ' ' << grid.nz << " seed " << seed;
        }
      }
    }
  }
}

// Step by step, the draw picks among the neighbours that lie nearer, in their order.
TEST(GeobodyPaths, DrawsAmongNearerNeighbors) {
  const Grid grid{9, 8, 5};
  for (const Family& family : kFamilies) {
    Ints mask = RandomMask(grid, 4);
    Ints distance = RelaxedDistances(family, grid, mask, {0, grid.size() - 1});
    for (int endNode = 0; endNode < grid.size(); ++endNode) {
      const int d = distance[static_cast<std::size_t>(endNode)];
      for (int seed = 1; seed < 6; ++seed) {
        VORL_RANDCONTEXT context = kestrum_test::Seeded(seed), same = context;
        Ints expected{endNode};
        for (int left = d - 1; left > 0; --left) {
          Ints nearer;
          for (const Offset& offset : family.neighbors) {
            const int neighbor = grid.Neighbor(expected.back(), offset);
            if (neighbor >= 0 && distance[static_cast<std::size_t>(neighbor)] == left) nearer.push_back(neighbor);
          }
          const int draw = VORLIntRand(0, static_cast<int>(nearer.size()), &same);
          expected.push_back(nearer[static_cast<std::size_t>(draw)]);
        }
        Ints path(expected.size(), -7);
        int length = 0;
        ASSERT_EQ(family.path(grid.nx, grid.ny, grid.nz, distance.data(), endNode, path.data(), &length, &context), 0);
        ASSERT_EQ(length, std::max(1, d));
        ASSERT_EQ(path, expected);
      }
    }
  }
}

// Whether nodes touch, by the difference of their indices with the rows and planes that it requires.
bool TouchByDifference(const Grid& grid, std::size_t family, int a, int b) {
  if (a == b) return true;
  const int nx = grid.nx, nxy = grid.nx * grid.ny;
  const int column = b % nx - a % nx, row = b / nx % grid.ny - a / nx % grid.ny, plane = b / nxy - a / nxy;
  for (int z = -1; z <= 1; ++z) {
    for (int y = -1; y <= 1; ++y) {
      for (int x = -1; x <= 1; ++x) {
        const int naxes = std::abs(x) + std::abs(y) + std::abs(z);
        if (naxes == 0 || naxes > static_cast<int>(family) + 1 || b - a != x + y * nx + z * nxy) continue;
        if (x == 0 && y == 0) return true;
        if (z == 0 ? plane == 0 && (x == 0 || row == y)
                   : plane == z && (y == 0 || column == x) && (x == 0 || row == y)) {
          return true;
        }
      }
    }
  }
  return false;
}

TEST(GeobodyPaths, JoinsAgainstAllPairs) {
  std::mt19937 generator(8);
  for (std::size_t f = 0; f < 3; ++f) {
    for (const Grid& grid : kGrids) {
      for (int trial = 0; trial < 60; ++trial) {
        Ints paths[2];
        for (Ints& path : paths) {
          path.resize(generator() % 6);
          for (int& node : path) node = static_cast<int>(generator() % static_cast<unsigned>(grid.size()));
        }
        int expected1 = -1, expected2 = -1;
        for (int i = 0; i < static_cast<int>(paths[0].size()); ++i) {
          for (int j = 0; j < static_cast<int>(paths[1].size()); ++j) {
            if (!TouchByDifference(grid, f, paths[0][static_cast<std::size_t>(i)],
                                   paths[1][static_cast<std::size_t>(j)])) {
              continue;
            }
            expected1 = i;
            expected2 = j;
          }
        }
        int index1 = 9, index2 = 9;
        ASSERT_EQ(
            kFamilies[f].join(grid.nx, grid.ny, grid.nz, paths[0].data(), paths[1].data(),
                              static_cast<int>(paths[0].size()), static_cast<int>(paths[1].size()), &index1, &index2),
            0);
        ASSERT_EQ(index1, expected1) << f << ' ' << grid.nx << ' ' << grid.ny << ' ' << grid.nz;
        ASSERT_EQ(index2, expected2);
      }
    }
  }
}

TEST(GeobodyPaths, EdgesAndRefusals) {
  for (const Family& family : kFamilies) {
    // A start outside the mask spreads into it; a gap stops it.
    Ints mask{0, 1, 1, 0, 1, 1}, distance(6), start{0};
    ASSERT_EQ(family.distances(6, 1, 1, mask.data(), 3, 1, start.data(), distance.data()), 0);
    EXPECT_EQ(distance, (Ints{0, 1, 2, -1, -1, -1}));
    VORL_RANDCONTEXT context;
    VORLInitRandContext(&context);
    const VORL_RANDCONTEXT before = context;
    for (const int node : {0, 1, 4}) {
      int path = -1, length = -1;
      EXPECT_EQ(family.path(6, 1, 1, distance.data(), node, &path, &length, &context), 0);
      EXPECT_EQ(path, node);
      EXPECT_EQ(length, 1);
    }
    EXPECT_EQ(context.needSeed, before.needSeed);

    int path[6], length = 5;
    Ints broken{0, 1, -1, 3, 4, 5};
    EXPECT_EQ(family.path(6, 1, 1, broken.data(), 5, path, &length, &context), family.cannotFindPath);
    for (const int node : {-1, 6, INT_MAX, INT_MIN}) {
      EXPECT_EQ(family.path(6, 1, 1, distance.data(), node, path, &length, &context), -2207);
      Ints outside{0, node};
      EXPECT_EQ(family.distances(6, 1, 1, mask.data(), 3, 2, outside.data(), distance.data()), -2205);
    }
    EXPECT_EQ(length, 5);
    EXPECT_EQ(distance, (Ints{0, 1, 2, -1, -1, -1}));
    EXPECT_EQ(family.distances(6, 1, 1, mask.data(), 0, 1, start.data(), distance.data()), -3);
    EXPECT_EQ(family.distances(6, 1, 1, mask.data(), -2, 1, start.data(), distance.data()), -1);

    Ints full(125, 1), far(125), middle{62};
    kestrum_test::ForEachFailingAllocation(
        [&] { return family.distances(5, 5, 5, full.data(), 1, 1, middle.data(), far.data()); });
  }
}

}  // namespace
