#include "paths/path_generators.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <numeric>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "support/allocation_failure.hpp"
#include "support/seeded.hpp"

namespace {

using Ints = std::vector<int>;
using Reals = std::vector<double>;

using kestrum_test::Seeded;

// Steps are powers of two, so that squared distances are exact whatever the way they are found.
struct Grid {
  int nx, ny, nz, nv;
  double sx, sy, sz;
  int nnode() const { return nx * ny * nz; }
  // Squared distance between two nodes.
  double Square(int a, int b) const {
    const double dx = a % nx - b % nx, dy = a / nx % ny - b / nx % ny, dz = a / (nx * ny) - b / (nx * ny);
    return dx * dx * (sx * sx) + dy * dy * (sy * sy) + dz * dz * (sz * sz);
  }
};

Reals MapOf(const Grid& grid, const std::vector<bool>& isFeature) {
  const double nx = grid.nx * grid.sx, ny = grid.ny * grid.sy, nz = grid.nz * grid.sz;
  Reals map(static_cast<std::size_t>(grid.nnode()), std::sqrt(nx * nx + ny * ny + nz * nz));
  for (int a = 0; a < grid.nnode(); ++a) {
    for (int b = 0; b < grid.nnode(); ++b) {
      if (isFeature[b]) map[a] = std::min(map[a], std::sqrt(grid.Square(a, b)));
    }
  }
  return map;
}

void Sort(std::vector<std::pair<double, int>> keyed, Ints* path) {
  std::stable_sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::transform(keyed.begin(), keyed.end(), path->begin(), [](const auto& entry) { return entry.second; });
}

// Which of the eight generators; one of the functions is set.
struct Kind {
  bool nodes, sort;
  decltype(&VORLPathDistancePdfRandom) nearest;
  decltype(&VORLPathDistanceSumPdfRandom) sum;
};
constexpr Kind kKinds[] = {{false, false, VORLPathDistancePdfRandom, nullptr},
                           {false, true, VORLPathDistanceSortRandom, nullptr},
                           {true, false, VORLVectorPathDistancePdfRandom, nullptr},
                           {true, true, VORLVectorPathDistanceSortRandom, nullptr},
                           {false, false, nullptr, VORLPathDistanceSumPdfRandom},
                           {false, true, nullptr, VORLPathDistanceSumSortRandom},
                           {true, false, nullptr, VORLVectorPathDistanceSumPdfRandom},
                           {true, true, nullptr, VORLVectorPathDistanceSumSortRandom}};

int Generate(const Kind& kind, const Grid& g, Ints* mask, Ints* path, double power, double strength,
             VORL_RANDCONTEXT* context) {
  const int n = static_cast<int>(path->size());
  int* const p = path->data();
  int* const m = mask->data();
  return kind.sum != nullptr ? kind.sum(g.sx, g.sy, g.sz, power, strength, n, p, m, g.nx, g.ny, g.nz, g.nv, context)
                             : kind.nearest(g.sx, g.sy, g.sz, strength, n, p, m, g.nx, g.ny, g.nz, g.nv, context);
}

// A generator as it is defined, step by step.
Ints ReferencePath(const Kind& kind, const Grid& grid, const Ints& mask, Ints path, double power, double strength,
                   VORL_RANDCONTEXT* context) {
  const int n = static_cast<int>(path.size()), nnode = grid.nnode();
  if (n == 0) return path;
  std::set<int> data;
  for (int i = 0; i < grid.nv * nnode; ++i) {
    const auto marks = [&](int element) { return mask[i / nnode * nnode + element % nnode] != 0; };
    if (mask[i] == 0 && std::any_of(path.begin(), path.end(), marks)) data.insert(kind.nodes ? i % nnode : i);
  }
  Reals distance(n, 0.0);
  if (kind.sum != nullptr) {
    const double step = std::max({grid.sx, grid.sy, grid.sz});
    for (int i = 0; i < n; ++i) {
      for (const int datum : data) {
        const double dv = path[i] / nnode - datum / nnode;
        const double square = grid.Square(path[i] % nnode, datum % nnode) + dv * dv * (step * step);
        distance[i] += std::fabs(power / 2 - 1) < 1e-10 ? square : std::pow(square, power / 2);
      }
      if (!data.empty()) distance[i] *= 1.0 / static_cast<double>(data.size());
    }
  } else if (kind.nodes) {
    std::vector<bool> feature(nnode, false);
    for (const int node : data) feature[node] = true;
    if (data.empty()) feature[path[VORLIntRand(0, n, context)]] = true;
    const Reals map = MapOf(grid, feature);
    for (int i = 0; i < n; ++i) distance[i] = map[path[i]];
  } else {
    std::vector<Reals> maps(grid.nv, Reals(nnode, 0.0));
    std::vector<bool> known;
    for (const int value : mask) known.push_back(value == 0);
    if (std::find(known.begin(), known.end(), true) == known.end()) known[path[VORLIntRand(0, n, context)]] = true;
    for (int v = 0; v < grid.nv; ++v) {
      const std::vector<bool> feature(known.begin() + v * nnode, known.begin() + (v + 1) * nnode);
      if (std::find(feature.begin(), feature.end(), true) != feature.end()) maps[v] = MapOf(grid, feature);
    }
    for (int i = 0; i < n; ++i) {
      const int variable = path[i] / nnode, node = path[i] % nnode;
      double others = 0.0;
      for (int v = 0; v < grid.nv; ++v) {
        if (v != variable) others += maps[v][node] / grid.nv;
      }
      distance[i] = maps[variable][node] + others;
    }
  }
  const double nearest = *std::min_element(distance.begin(), distance.end());
  const double range = *std::max_element(distance.begin(), distance.end()) - nearest;
  if (range < 1e-10) {
    VORLRandomizeListOfInt(n, path.data(), context);
  } else if (kind.sort) {
    std::vector<std::pair<double, int>> keyed(n);
    for (int i = 0; i < n; ++i) {
      const double draw = VORLDoubleRand(0, context);
      keyed[i] = {draw * (1 - strength) + (distance[i] - nearest) * strength / range, path[i]};
    }
    Sort(keyed, &path);
  } else {
    const double base = strength * (std::max(std::pow(1e-10, 1 / range), 1e-10) - 1) + 1;
    Reals cumulative(n + 1, 0.0);
    for (int i = 0; i < n; ++i) cumulative[i + 1] = cumulative[i] + std::pow(base, distance[i] - nearest);
    VORLRandomizeWeightedListOfInt(n, path.data(), cumulative.data(), context);
  }
  return path;
}

TEST(PathGenerators, GiveTheOrderOfTheirDefinition) {
  std::mt19937 generator(11);
  const auto below = [&generator](int n) { return static_cast<int>(generator() % static_cast<unsigned>(n)); };
  for (int trial = 0; trial < 400; ++trial) {
    Grid grid = {1 + below(7), 1 + below(5), 1 + below(3), 1 + below(3), 1.0, 0.5, 4.0};
    if (trial % 2 == 0) std::swap(grid.sx, grid.sz);
    const double power = std::vector<double>{2.0, 1.0, 0.7, 10.0, 2.0 + 1e-11}[below(5)];
    const double strength = below(5) / 4.0;
    for (const Kind& kind : kKinds) {
      Ints mask(static_cast<std::size_t>(grid.nv * grid.nnode()));
      const int known = below(5);  // none, few, many, all, or all of one variable
      for (std::size_t i = 0; i < mask.size(); ++i) {
        const bool zero = known == 4 ? static_cast<int>(i) < grid.nnode() : known == 3 || below(9) < 3 * known;
        mask[i] = zero ? 0 : 1 + below(3);
      }
      Ints path;
      for (int i = 0; i < (kind.nodes ? 1 : grid.nv) * grid.nnode(); ++i) {
        if (mask[i] != 0 || below(4) == 0) path.push_back(i);
      }
      std::shuffle(path.begin(), path.end(), generator);
      VORL_RANDCONTEXT context = Seeded(trial + 1), follower = context;
      const Ints expected = ReferencePath(kind, grid, mask, path, power, strength, &follower);
      const Ints keptMask = mask;
      ASSERT_EQ(Generate(kind, grid, &mask, &path, power, strength, &context), 0);
      ASSERT_EQ(path, expected) << trial << ": " << kind.nodes << kind.sum << kind.sort;
      ASSERT_EQ(std::memcmp(&context, &follower, sizeof(context)), 0);
      ASSERT_EQ(mask, keptMask);
    }
  }
}

// Positions along the ranked axes decide, for every order; the draws decide among elements at one place.
TEST(PathGenerators, UnilateralPathsScanTheGrid) {
  const int size[4] = {4, 3, 5, 2};
  for (int code = 0; code < 9 * 9 * 9 * 9 + 9 * 9 * 9; ++code) {
    const int naxis = code < 9 * 9 * 9 ? 3 : 4;
    int order[4], axes[4] = {0, 1, 2, 3};
    for (int axis = 0, rest = code; axis < naxis; ++axis, rest /= 9) order[axis] = rest % 9 - 4;
    std::stable_sort(axes, axes + naxis, [&](int a, int b) { return std::abs(order[a]) < std::abs(order[b]); });
    Ints path(naxis == 3 ? 60 : 120), expected(path.size());
    std::iota(path.begin(), path.end(), 0);
    VORL_RANDCONTEXT context = Seeded(9), follower = context;
    std::vector<std::pair<double, int>> keyed;
    for (const int element : path) {
      const int position[4] = {element % 4, element / 4 % 3, element / 12 % 5, element / 60};
      double key = 0.0, factor = 1.0;
      for (int a = 0; a < naxis; factor *= size[axes[a++]]) {
        const int axis = axes[a];
        key += factor * (order[axis] > 0 ? position[axis] : order[axis] < 0 ? size[axis] - 1 - position[axis] : 0);
      }
      keyed.push_back({key + 0.5 * VORLDoubleRand(0, &follower), element});
    }
    Sort(keyed, &expected);
    ASSERT_EQ(naxis == 3 ? VORLPathUnilateral3D(60, path.data(), 4, 3, 5, order, &context)
                         : VORLPathUnilateral4D(120, path.data(), 4, 3, 5, 2, order, &context),
              0);
    ASSERT_EQ(path, expected) << code;
  }
}

TEST(PathGenerators, FailuresLeaveThePath) {
  Ints empty, order = {1, INT_MIN, 0, 2};
  for (const Kind& kind : kKinds) {
    Ints mask = {1, 1, 0, 1, 1, 0, 1, 1}, path = {3, 1, 2, 0};
    const Grid good = {2, 2, 1, 2, 1.0, 1.0, 1.0};
    VORL_RANDCONTEXT context = Seeded(1);
    for (const Grid& bad :
         {Grid{0, 2, 1, 1, 1, 1, 1}, Grid{2, 2, -1, 1, 1, 1, 1}, Grid{1 << 16, 1 << 15, 1, 1, 1, 1, 1},
          Grid{2, 2, 1, 0, 1, 1, 1}, Grid{2, 2, 1, INT_MAX, 1, 1, 1}}) {
      EXPECT_EQ(Generate(kind, bad, &mask, &path, 1.0, 1.0, &context), -3);
      EXPECT_EQ(Generate(kind, bad, &empty, &empty, 1.0, 1.0, &context), 0);
    }
    EXPECT_EQ(Generate(kind, good, &empty, &path, 1.0, 1.0, &context), -20);
    for (Ints marks : {mask, Ints(8, 1)}) {  // with data, and without
      path = {3, 1, 2, 0};
      kestrum_test::ForEachFailingAllocation([&] {
        EXPECT_EQ(path, (Ints{3, 1, 2, 0}));
        return Generate(kind, good, &marks, &path, 2.0, 0.5, &context);
      });
    }
    for (const double odd : {std::nan(""), HUGE_VAL, -5.0}) {  // numbers that are none give some order
      EXPECT_EQ(Generate(kind, {2, 2, 1, 2, odd, 1, 1}, &mask, &path, odd, odd, &context), 0);
      EXPECT_TRUE(std::is_permutation(path.begin(), path.end(), Ints{0, 1, 2, 3}.begin()));
    }
  }
  Ints path = {3, 2, 0};
  VORL_RANDCONTEXT context = Seeded(1);
  kestrum_test::ForEachFailingAllocation(
      [&] { return VORLPathUnilateral4D(3, path.data(), 2, 2, 1, 1, order.data(), &context); });
  path = {3, 2, 0};
  EXPECT_EQ(VORLPathUnilateral3D(0, nullptr, 2, 2, 1, nullptr, &context), 0);
  EXPECT_EQ(VORLPathUnilateral3D(3, path.data(), 2, 2, 1, nullptr, &context), -20);
  EXPECT_EQ(VORLPathUnilateral4D(3, path.data(), 2, 2, 1, 0, order.data(), &context), -3);
  kestrum_test::ForEachFailingAllocation(
      [&] { return VORLPathUnilateral3D(3, path.data(), 2, 2, 1, order.data(), &context); });
  EXPECT_EQ(path, (Ints{2, 3, 0}));
}

// The table of powers of the distances is done without where there is no room for it.
TEST(PathGenerators, TablesAreOptional) {
  for (const Kind& kind : kKinds) {
    if (kind.sum == nullptr) continue;
    const Grid grid = {3, 3, 1, 1, 1.0, 1.0, 1.0};
    int ndone = 0;
    Ints expected;
    for (long k = 30; k >= 0; --k) {
      Ints mask = {1, 0, 1, 0, 1, 1, 0, 1, 0}, path = {0, 8, 4, 2, 6, 5, 7, 1, 3};
      VORL_RANDCONTEXT context = Seeded(1);
      const kestrum_test::FailAllocation failure(k);
      const int status = Generate(kind, grid, &mask, &path, 1.0, 0.5, &context);
      if (!failure.Happened()) expected = path;
      EXPECT_TRUE(failure.Happened() || status == 0);
      if (failure.Happened() && status == 0) {
        ++ndone;
        EXPECT_EQ(path, expected);
      }
    }
    EXPECT_EQ(ndone, 1);
  }
}

TEST(DistanceEuclidean, IsTheDistanceToTheNearestFeature) {
  std::mt19937 generator(2);
  const auto below = [&generator](int n) { return static_cast<int>(generator() % static_cast<unsigned>(n)); };
  for (int trial = 0; trial < 12; ++trial) {
    const Grid g = {1 + below(12), 1 + below(9), 1 + below(6), 1, 0.5, 2.0, 1.0};
    Ints mask(static_cast<std::size_t>(g.nnode()));
    for (int& value : mask) value = below(1 + below(20)) == 0 ? 0 : below(7) - 3;
    for (const BOOLEAN zeroIsFeature : {FALSE, -1}) {
      std::vector<bool> feature;
      for (const int value : mask) feature.push_back((value == 0) == (zeroIsFeature != 0));
      const Reals expected = MapOf(g, feature);
      for (const int threads : {0, 1, 2, 3, 8}) {  // 0: serial
        Reals map(mask.size(), -1.0);
        const auto fill = [&] {
          return threads == 0
                     ? VORLDistanceEuclidean(g.sx, g.sy, g.sz, g.nx, g.ny, g.nz, zeroIsFeature, &mask[0], &map[0])
                     : VORLOMPDistanceEuclidean(g.sx, g.sy, g.sz, g.nx, g.ny, g.nz, zeroIsFeature, &mask[0], &map[0],
                                                threads);
        };
        kestrum_test::ForEachFailingAllocation(fill);
        ASSERT_EQ(map, expected);
      }
    }
  }
  int mask = 1;
  double distance = 7.0;
  EXPECT_EQ(VORLOMPDistanceEuclidean(1, 1, 1, 1, 1, 1, TRUE, &mask, &distance, 0), -3);
  EXPECT_EQ(VORLDistanceEuclidean(1, 1, 1, 1, 0, 1, TRUE, &mask, &distance), -3);
  EXPECT_EQ(VORLDistanceEuclidean(1, 1, 1, 1, 1, 1, TRUE, nullptr, &distance), -20);
}

}  // namespace
