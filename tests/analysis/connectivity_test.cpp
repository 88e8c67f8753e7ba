#include "analysis/connectivity.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "analysis/geobodies.h"
#include "core/memory.h"
#include "support/allocation_failure.hpp"
#include "support/test_image.hpp"

namespace {

using namespace kestrum_test;

int Euler(Image& image, int varIndex, int nthreads) {
  int serial = 12345, threaded = -12345;
  ForEachFailingAllocation([&] { return VORLImageConnectivityEulerNumber(&image, varIndex, &serial); });
  ForEachFailingAllocation([&] { return VORLOMPImageConnectivityEulerNumber(&image, varIndex, &threaded, nthreads); });
  EXPECT_EQ(threaded, serial);
  return serial;
}

// V - E + F - C of the cubes of each value by itself, from sets of the cells' places in the doubled grid: a place with
// k odd coordinates is of dimension k.
int CountedEuler(const VORL_GRID& g, const real* values) {
  int sum = 0;
  for (double value : std::set<double>(values, values + g.nxyz)) {
    if (value == 0.0) continue;
    std::set<std::array<int, 3>> cells;
    for (int id = 0; id < g.nxyz; ++id) {
      if (values[id] != value) continue;
      for (int code = 0; code < 27; ++code) {
        cells.insert({2 * (id % g.nx) + code % 3, 2 * (id / g.nx % g.ny) + code / 3 % 3, 2 * (id / g.nxy) + code / 9});
      }
    }
    for (const auto& [x, y, z] : cells) sum += (x + y + z) % 2 == 0 ? 1 : -1;
  }
  return sum;
}

// The sum over the 13 earlier neighbours of each node, flag by flag and by index, with their three oddities.
int EulerByTable(const VORL_GRID& g, const real* values) {
  int sum = 0;
  for (int id = 0; id < g.nxyz; ++id) {
    if (values[id] == 0.0) continue;
    const int ix = id % g.nx, iy = id / g.nx % g.ny, iz = id / g.nxy;
    int a[13];
    for (int k = 0; k < 13; ++k) {
      const int dx = k % 3 - 1, dy = k / 3 % 3 - 1, dz = k / 9 - 1;
      const int offset = (k == 5 ? -1 : dx) + dy * g.nx + dz * g.nxy;
      const bool inside = (dx >= 0 || ix > 0) && (dx <= 0 || ix < g.nx - 1) && (dy >= 0 || iy > 0) &&
                          (dy <= 0 || iy < g.ny - 1) && (dz >= 0 || iz > 0) && id + offset >= 0;
      a[k] = inside && k != 7 && (k != 11 || iz == 0) && values[id + offset] == values[id] ? 1 : 0;
    }
    const int t5 = a[9] | a[10] | a[12], t6 = a[10] | a[11];
    const int v = 8 - (a[0] | a[1] | a[3] | a[4] | t5) - (a[1] | a[2] | a[4] | a[5] | t6) - (a[4] | a[5] | a[8]) -
                  (a[3] | a[4] | a[6] | a[12]) - t5 - t6 - a[12];
    const int e =
        12 - (a[1] | a[4] | a[10]) - a[4] - a[10] - (a[3] | a[4] | a[12]) - (a[4] | a[5]) - a[12] - t5 - t6 - a[12];
    sum += v - e + (6 - a[4] - a[10] - a[12]) - 1;
  }
  return sum;
}

TEST(EulerNumber, RandomImagesAgainstCounts) {
  std::mt19937 random(1);
  constexpr double kLabels[] = {0.0, 0.0, 0.0, 1.0, 1.0, 1.0, 1.0, 2.0, 2.5, kMissing};
  constexpr int kShapes[][3] = {{1, 1, 1}, {5, 1, 1}, {1, 6, 1}, {1, 1, 7}, {4, 5, 1}, {2, 2, 1}, {9, 7, 1},
                                {1, 4, 3}, {2, 3, 3}, {3, 1, 4}, {4, 3, 3}, {3, 3, 2}, {7, 5, 4}};
  for (const auto& [nx, ny, nz] : kShapes) {
    for (int trial = 0; trial < 20; ++trial) {
      Values values(2 * nx * ny * nz);
      for (double& value : values) value = kLabels[random() % std::size(kLabels)];
      Image image(Grid(nx, ny, nz), {"a", "b"}, values);
      for (int variable = 0; variable < 2; ++variable) {
        const real* const labels = image.var + variable * image.grid->nxyz;
        constexpr int kThreads[] = {1, 2, 3, 8};
        const int found = Euler(image, variable, kThreads[trial % 4]);
        ASSERT_EQ(found, EulerByTable(*image.grid, labels)) << nx << ' ' << ny << ' ' << nz;
        // In one layer, and in a column, the count is exact.
        if (nz == 1 || (nx == 1 && ny == 1)) {
          ASSERT_EQ(found, CountedEuler(*image.grid, labels));
        }
      }
    }
  }
}

TEST(EulerNumber, KnownBodiesAndOddNeighbours) {
  Values ball(27, 1.0), hollow = ball;
  hollow[13] = 0.0;
  const struct {
    VORL_GRID grid;
    Values values;
    int expected;
    bool exact;
  } rows[] = {
      {Grid(3, 3, 3), ball, 1, true},
      // Beside the hole other nodes are taken for it.
      {Grid(3, 3, 3), hollow, 1, false},
      // Edges shared with (-1,0,-1): with a node to the right the left one is taken for it, too.
      {Grid(2, 1, 2), {1, 0, 0, 1}, 1, true},
      {Grid(3, 1, 2), {1, 0, 0, 0, 1, 0}, 0, false},
      // The node one before the one below may lie at the other end of the row before.
      {Grid(3, 2, 2), {0, 0, 1, 0, 0, 0, 0, 0, 0, 1, 0, 0}, 1, false},
      // (0,1,-1) is never seen.
      {Grid(1, 2, 2), {0, 1, 1, 0}, 2, false},
      // (1,-1,0) is seen in the first layer alone.
      {Grid(2, 2, 2), {0, 1, 1, 0, 0, 0, 0, 0}, 1, true},
      {Grid(2, 2, 2), {0, 0, 0, 0, 0, 1, 1, 0}, 2, false},
  };
  for (const auto& row : rows) {
    Image image(row.grid, {"a"}, row.values);
    EXPECT_EQ(Euler(image, 0, 2), row.expected);
    EXPECT_EQ(CountedEuler(*image.grid, image.var) == row.expected, row.exact);
  }
  // Before the first node of the second variable there is a node of the first.
  Image two(Grid(2, 1, 2), {"a", "b"}, {1, 1, 1, 1, 0, 0, 1, 0});
  EXPECT_EQ(Euler(two, 1, 2), 1);
}

TEST(GlobalIndicator, CountsAndGamma) {
  const struct {
    Values values;
    int nodeCount;
    Ints sizes;
    double gamma;
  } rows[] = {
      {{0.5, -0.5, kMissing, 0}, 1, {}, 1.0},
      {{1, 3, 3.9, 0}, 3, {1, 0, 2}, 5.0 / 9.0},
      // A missing node counts, and so does what no int holds.
      {{1, 2, kMissing, 0}, 3, {1, 1}, 2.0 / 9.0},
      {{1, 1e300, kNaN, -1e300}, 4, {1}, 1.0 / 16.0},
      {{1, 1, 2, 2, 1, 1, 0, 0, 2, 1, 1, 1}, 10, {7, 3}, 58.0 / 100.0},
  };
  for (const auto& row : rows) {
    Values values = row.values;
    values.insert(values.begin(), values.size(), 5.0);
    Image image(Grid(static_cast<int>(row.values.size()), 1, 1), {"a", "b"}, values);
    for (int nthreads : {0, 1, 2, 3, 8, -1}) {
      int nodeCount = -1, ngeobody = -1;
      int* sizes = &ngeobody;
      double gamma = -1.0;
      const auto call = [&] {
        const int status =
            nthreads == 0
                ? VORLImageConnectivityGlobalIndicator(&image, 1, &nodeCount, &ngeobody, &sizes, &gamma)
                : VORLOMPImageConnectivityGlobalIndicator(&image, 1, &nodeCount, &ngeobody, &sizes, &gamma, nthreads);
        EXPECT_EQ(nodeCount, row.nodeCount);
        EXPECT_EQ(ngeobody, static_cast<int>(row.sizes.size()));
        EXPECT_EQ(gamma, status == 0 ? row.gamma : 1.0);
        EXPECT_EQ(sizes == &ngeobody, status != 0 || row.sizes.empty());
        return status;
      };
      if (row.sizes.empty()) {
        EXPECT_EQ(call(), 0);
        continue;
      }
      ForEachFailingAllocation(call);
      EXPECT_EQ(Ints(sizes, sizes + ngeobody), row.sizes);
      VORLFree(sizes);
    }
  }
}

struct Family {
  decltype(&VORLImageGeobody6) geobody;
  decltype(&VORLImageConnectivity6GlobalIndicatorCurve) gamma;
  decltype(&VORLOMPImageConnectivity6GlobalIndicatorCurve) gammaThreads;
  decltype(&VORLImageMaxGeobody6SizeCurve) max;
  decltype(&VORLOMPImageMaxGeobody6SizeCurve) maxThreads;
};
constexpr Family kFamilies[] = {
    {VORLImageGeobody6, VORLImageConnectivity6GlobalIndicatorCurve, VORLOMPImageConnectivity6GlobalIndicatorCurve,
     VORLImageMaxGeobody6SizeCurve, VORLOMPImageMaxGeobody6SizeCurve},
    {VORLImageGeobody18, VORLImageConnectivity18GlobalIndicatorCurve, VORLOMPImageConnectivity18GlobalIndicatorCurve,
     VORLImageMaxGeobody18SizeCurve, VORLOMPImageMaxGeobody18SizeCurve},
    {VORLImageGeobody26, VORLImageConnectivity26GlobalIndicatorCurve, VORLOMPImageConnectivity26GlobalIndicatorCurve,
     VORLImageMaxGeobody26SizeCurve, VORLOMPImageMaxGeobody26SizeCurve}};

// All curves of one family: the thresholds of the three functions, Gamma and Euler number with those of the complement,
// largest size and extents.
std::vector<Values> Compute(const Family& family, Image& image, int n, double start, double step, int nthreads) {
  std::vector<Values> curves(5, Values(n, -1.0));
  Ints ints[6];
  for (Ints& vector : ints) vector.resize(n, -1);
  const auto call = [&](auto* serial, auto* threaded, auto&... outputs) {
    ForEachFailingAllocation([&] {
      return nthreads == 0 ? serial(&image, n, start, step, outputs.data()..., FALSE)
                           : threaded(&image, n, start, step, outputs.data()..., FALSE, nthreads);
    });
  };
  call(family.gamma, family.gammaThreads, curves[0], curves[3], curves[4]);
  call(VORLImageConnectivity6EulerNumberCurve, VORLOMPImageConnectivity6EulerNumberCurve, curves[1], ints[0], ints[1]);
  call(family.max, family.maxThreads, curves[2], ints[2], ints[3], ints[4], ints[5]);
  for (const Ints& vector : ints) curves.emplace_back(vector.begin(), vector.end());
  return curves;
}

// The entries of all curves but the thresholds, from label images.
Values EntriesByLabels(const Family& family, Image& image, double threshold) {
  Values entries(8, 0.0);
  double low = -1e6;
  for (const int complement : {0, 1}) {
    const auto label = [&](auto* geobody, Image* labels) {
      int ngeobody = 0;
      EXPECT_EQ(geobody(&image, labels, 0, complement != 0, 1, &low, &threshold, FALSE, FALSE, &ngeobody), 0);
      return ngeobody;
    };
    entries[complement] = 1.0;
    Image labels, labels6;
    if (label(family.geobody, &labels) == 0) continue;
    int ngeobody, euler;
    int* table[4];
    EXPECT_EQ(VORLImageGeobodySize(&labels, &ngeobody, &table[0], &table[1], &table[2], &table[3]), 0);
    double squares = 0.0, nodes = 0.0;
    for (int g = 0; g < ngeobody; ++g) {
      nodes += table[0][g];
      squares += static_cast<double>(table[0][g]) * table[0][g];
    }
    entries[complement] = squares / (nodes * nodes);
    label(VORLImageGeobody6, &labels6);
    EXPECT_EQ(VORLImageConnectivityEulerNumber(&labels6, 0, &euler), 0);
    entries[2 + complement] = euler;
    for (int k = 0; k < 4; ++k) {
      if (complement == 0) entries[4 + k] = *std::max_element(table[k], table[k] + ngeobody);
      VORLFree(table[k]);
    }
  }
  return entries;
}

TEST(ConnectivityCurves, EntriesAndThreads) {
  std::mt19937 random(4);
  for (const auto& shape : {std::array{1, 1, 1}, {7, 1, 1}, {1, 6, 4}, {1, 1, 5}, {9, 8, 1}, {6, 5, 4}, {70, 3, 2}}) {
    Values values(shape[0] * shape[1] * shape[2]);
    for (double& value : values) value = random() % 9 == 0 ? kMissing : static_cast<double>(random() % 9) / 4.0 - 1.0;
    values[0] = 0.25;
    // Beside a set of one node the missing nodes are in the Euler number.
    if (values.size() > 4) values[3] = -3.0, values[1] = kMissing;
    Image image(Grid(shape[0], shape[1], shape[2]), {"a"}, values);
    for (const Family& family : kFamilies) {
      const std::vector<Values> curves = Compute(family, image, 17, -3.5, 0.375, 0);
      for (int i = 0; i < 17; ++i) {
        const Values expected = EntriesByLabels(family, image, -3.5 + 0.375 * i);
        for (int k = 0; k < 3; ++k) EXPECT_EQ(curves[k][i], -3.5 + 0.375 * i);
        for (int k = 0; k < 8; ++k) ASSERT_EQ(curves[3 + k][i], expected[k]) << k << ' ' << i;
      }
      for (int nthreads : {1, 2, 3, 8}) EXPECT_EQ(Compute(family, image, 17, -3.5, 0.375, nthreads), curves);
    }
  }
}

TEST(ConnectivityCurves, ThresholdsOfBothWays) {
  // Curves name no image: a name without room for a suffix is no failure.
  Image image(Grid(2, 1, 1), {std::string(250, 'n')}, {0.0, 1.0});
  const std::vector<Values> serial = Compute(kFamilies[0], image, 30, 0.1, 0.1, 0);
  const std::vector<Values> threaded = Compute(kFamilies[0], image, 30, 0.1, 0.1, 3);
  EXPECT_NE(serial[0], threaded[0]);
  double running = 0.1;
  for (int i = 0; i < 30; ++i, running += 0.1) {
    for (int k = 0; k < 3; ++k) {
      EXPECT_EQ(serial[k][i], running);
      EXPECT_EQ(threaded[k][i], i * 0.1 + 0.1);
    }
  }
}

TEST(ConnectivityCurves, ProgressAndStatuses) {
  Image image(Grid(5, 4, 3), {"a"}, {0, 1, 2, 3, 4, 5, 6}), two(Grid(5, 4, 3), {"a", "b"}, {1});
  Values t(4), gamma(4);
  Ints a(4), b(4);
  const auto expect = [&](int status, Image& in, int n, double* thresholds, BOOLEAN verbose, int nthreads) {
    EXPECT_EQ(VORLOMPImageConnectivity18GlobalIndicatorCurve(&in, n, 1.0, 1.0, thresholds, gamma.data(), gamma.data(),
                                                             verbose, nthreads),
              status);
    EXPECT_EQ(
        VORLOMPImageConnectivity6EulerNumberCurve(&in, n, 1.0, 1.0, thresholds, a.data(), b.data(), verbose, nthreads),
        status);
    EXPECT_EQ(VORLOMPImageMaxGeobody6SizeCurve(&in, n, 1.0, 1.0, thresholds, a.data(), b.data(), a.data(), b.data(),
                                               verbose, nthreads),
              status);
  };
  for (int n : {-1, 0, 3}) {
    std::string expected;
    for (const std::string label : {"Gamma", "Euler-number", "max geobody size"}) {
      for (const std::string percent : {"  0", " 33", " 66", "100"}) {
        if (n == 3 || percent.back() == '0') expected += "Computing " + label + " curves: " + percent + " %\n";
      }
    }
    for (bool verbose : {true, false}) {
      testing::internal::CaptureStdout();
      expect(0, image, n, t.data(), verbose ? static_cast<BOOLEAN>(-1) : FALSE, 1);
      EXPECT_EQ(testing::internal::GetCapturedStdout(), verbose ? expected : "");
    }
  }
  expect(-52, two, 4, nullptr, FALSE, 2);
  expect(-20, image, 4, nullptr, FALSE, 2);
  expect(-3, image, 4, t.data(), FALSE, 0);
  expect(-3, image, 0, nullptr, FALSE, -2);

  int number = 0, count = 0;
  int* sizes = nullptr;
  double value = 0.0;
  for (int varIndex : {-1, 1}) {
    EXPECT_EQ(VORLImageConnectivityEulerNumber(&image, varIndex, &number), -1100);
    EXPECT_EQ(VORLImageConnectivityGlobalIndicator(&image, varIndex, &count, &number, &sizes, &value), -1100);
  }
  EXPECT_EQ(VORLOMPImageConnectivityEulerNumber(&image, 0, &number, 0), -3);
  EXPECT_EQ(VORLImageConnectivityGlobalIndicator(&image, 0, &count, &number, nullptr, &value), -20);
}

}  // namespace
