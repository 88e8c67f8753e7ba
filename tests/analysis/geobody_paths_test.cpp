#include "analysis/geobody_paths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <iterator>
#include <random>
#include <vector>

#include "analysis/step_search.hpp"
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

struct Family {
  decltype(&VORLComputeDistanceConnectivity6InGeobody) distances;
  decltype(&VORLComputePathInDistanceMapGeobody6) path;
  decltype(&VORLJoinTwoPathInGeobody6) join;
  int cannotFindPath;
  int naxes;  // along which neighbours may differ
};
const Family kFamilies[] = {{VORLComputeDistanceConnectivity6InGeobody, VORLComputePathInDistanceMapGeobody6,
                             VORLJoinTwoPathInGeobody6, -2200, 1},
                            {VORLComputeDistanceConnectivity18InGeobody, VORLComputePathInDistanceMapGeobody18,
                             VORLJoinTwoPathInGeobody18, -2201, 2},
                            {VORLComputeDistanceConnectivity26InGeobody, VORLComputePathInDistanceMapGeobody26,
                             VORLJoinTwoPathInGeobody26, -2202, 3}};

struct Grid {
  int nx, ny, nz;
  int size() const { return nx * ny * nz; }
  // The neighbours of a node inside, in order.
  Ints Neighbors(const Family& family, int node) const {
    Ints neighbors;
    for (const auto& [dx, dy, dz] : kNeighbors) {
      const int ix = node % nx + dx, iy = node / nx % ny + dy, iz = node / (nx * ny) + dz;
      if (dx * dx + dy * dy + dz * dz > family.naxes) continue;
      if (ix < 0 || ix >= nx || iy < 0 || iy >= ny || iz < 0 || iz >= nz) continue;
      neighbors.push_back((iz * ny + iy) * nx + ix);
    }
    return neighbors;
  }
};

const Grid kGrids[] = {{7, 5, 4}, {1, 9, 5},  {2, 2, 9}, {11, 1, 3}, {8, 8, 1},  {1, 1, 1},
                       {2, 1, 6}, {1, 13, 1}, {4, 3, 3}, {5, 9, 6},  {17, 18, 1}};

Ints RandomMask(const Grid& grid, unsigned seed) {
  std::mt19937 generator(seed);
  Ints mask(grid.size());
  for (int& inside : mask) inside = generator() % 3 == 0 ? 0 : generator() % 2 == 0 ? -4 : 1;
  return mask;
}

// Distances by relaxation until nothing changes.
Ints RelaxedDistances(const Family& family, const Grid& grid, const Ints& mask, const Ints& starts) {
  Ints distance(mask.size(), -1);
  for (const int node : starts) distance[node] = 0;
  for (bool changed = true; changed;) {
    changed = false;
    for (int node = 0; node < grid.size(); ++node) {
      if (mask[node] == 0) continue;
      for (const int neighbor : grid.Neighbors(family, node)) {
        if (distance[neighbor] < 0 || (distance[node] >= 0 && distance[node] <= distance[neighbor] + 1)) continue;
        distance[node] = distance[neighbor] + 1;
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
        // Start nodes inside and outside of the mask, some given twice, or none.
        Ints starts;
        for (unsigned i = 0; i < seed % 5; ++i)
          starts.push_back(static_cast<int>(seed * 31 + i / 2 * 17) % grid.size());
        const Ints expected = RelaxedDistances(family, grid, mask, starts);
        for (const int frontCapacity : {1, grid.size()}) {
          Ints distance(mask.size(), 99);
          kestrum_test::ForEachFailingAllocation([&] {
            return family.distances(grid.nx, grid.ny, grid.nz, mask.data(), frontCapacity,
                                    static_cast<int>(starts.size()), starts.data(), distance.data());
          });
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
    Ints distance = RelaxedDistances(family, grid, RandomMask(grid, 4), {0, grid.size() - 1});
    for (int endNode = 0; endNode < grid.size(); ++endNode) {
      for (int seed = 1; seed < 6; ++seed) {
        VORL_RANDCONTEXT context = kestrum_test::Seeded(seed), same = context;
        Ints expected{endNode};
        for (int left = distance[endNode] - 1; left > 0; --left) {
          Ints nearer = grid.Neighbors(family, expected.back());
          std::erase_if(nearer, [&](int node) { return distance[node] != left; });
          expected.push_back(nearer[VORLIntRand(0, static_cast<int>(nearer.size()), &same)]);
        }
        Ints path(expected.size(), -7);
        int length = 0;
        ASSERT_EQ(family.path(grid.nx, grid.ny, grid.nz, distance.data(), endNode, path.data(), &length, &context), 0);
        ASSERT_EQ(length, std::max(1, distance[endNode]));
        ASSERT_EQ(path, expected);
        ASSERT_EQ(VORLIntRand(0, 1 << 20, &context), VORLIntRand(0, 1 << 20, &same));
      }
    }
  }
}

TEST(GeobodyPaths, JoinsAgainstAllPairs) {
  std::mt19937 generator(8);
  for (const Family& family : kFamilies) {
    for (const Grid& grid : kGrids) {
      for (int trial = 0; trial < 60; ++trial) {
        Ints paths[2];
        for (Ints& path : paths) {
          path.resize(generator() % 6);
          for (int& node : path) node = static_cast<int>(generator() % static_cast<unsigned>(grid.size()));
        }
        const int length1 = static_cast<int>(paths[0].size()), length2 = static_cast<int>(paths[1].size());
        std::array expected{-1, -1}, found{9, 9};
        for (int i = 0; i < length1; ++i) {
          Ints touching = grid.Neighbors(family, paths[0][i]);
          touching.push_back(paths[0][i]);
          for (int j = 0; j < length2; ++j) {
            if (std::count(touching.begin(), touching.end(), paths[1][j]) > 0) expected = {i, j};
          }
        }
        ASSERT_EQ(family.join(grid.nx, grid.ny, grid.nz, paths[0].data(), paths[1].data(), length1, length2, &found[0],
                              &found[1]),
                  0);
        ASSERT_EQ(found, expected) << family.naxes << ' ' << grid.nx << ' ' << grid.ny << ' ' << grid.nz;
      }
    }
  }
}

// Pieces along two axes, along one in space and in the plane, and one that two threads cannot share.
TEST(GeobodyPaths, StepsDoNotDependOnThreads) {
  std::mt19937 generator(5);
  const kestrum::Progress progress(nullptr, nullptr);
  for (const Grid& grid : {Grid{20, 260, 200}, Grid{60, 700, 3}, Grid{100, 1400, 1}, Grid{400000, 1, 1}}) {
    const int nnode = grid.nx * grid.ny * grid.nz;
    std::vector<unsigned char> mask(static_cast<std::size_t>(nnode));
    for (unsigned char& inside : mask) inside = generator() % 100 < 70;
    const Ints starts{0, nnode / 2, nnode / 2, nnode - 1};
    for (const auto connectivity :
         {kestrum::Connectivity::k6, kestrum::Connectivity::k18, kestrum::Connectivity::k26}) {
      const auto steps = [&](const kestrum::Dealing& dealing) {
        Ints found(mask.size());
        EXPECT_EQ(kestrum::FindSteps(connectivity, {grid.nx, grid.ny, grid.nz}, mask.data(), 1, 4, starts.data(),
                                     found.data(), dealing, progress),
                  0);
        return found;
      };
      const Ints expected = steps(kestrum::Dealing::Serial());
      for (const int nthreads : {1, 2, 3, 7}) EXPECT_EQ(steps(kestrum::Dealing::Threads(nthreads)), expected);
    }
  }
}

TEST(GeobodyPaths, Refusals) {
  for (const Family& family : kFamilies) {
    Ints mask(6, 1), distance{0, 1, -1, 3, 4, 5};
    int path[6], length = 5;
    VORL_RANDCONTEXT context = kestrum_test::Seeded(1);
    const auto compute = [&](int frontCapacity, Ints starts) {
      return family.distances(6, 1, 1, mask.data(), frontCapacity, static_cast<int>(starts.size()), starts.data(),
                              distance.data());
    };
    EXPECT_EQ(family.path(6, 1, 1, distance.data(), 5, path, &length, &context), family.cannotFindPath);
    for (const int node : {-1, 6, INT_MAX, INT_MIN}) {
      EXPECT_EQ(family.path(6, 1, 1, distance.data(), node, path, &length, &context), -2207);
      EXPECT_EQ(compute(3, {0, node}), -2205);
    }
    EXPECT_EQ(compute(0, {0}), -3);
    EXPECT_EQ(compute(-2, {0}), -1);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(distance, (Ints{0, 1, -1, 3, 4, 5}));

    // A node touches itself on a grid too large for an int, too.
    for (const Grid& grid : {Grid{65536, 65536, 1}, Grid{1 << 22, 1 << 22, 1 << 22}}) {
      int node = INT_MAX, index1 = -1, index2 = -1;
      EXPECT_EQ(family.join(grid.nx, grid.ny, grid.nz, &node, &node, 1, 1, &index1, &index2), 0);
      EXPECT_TRUE(index1 == 0 && index2 == 0);
    }
  }
}

}  // namespace
