#include "analysis/connectivity.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "analysis/geobodies.h"
#include "core/memory.h"
#include "support/allocation_failure.hpp"
#include "support/test_image.hpp"

namespace {

constexpr double kMissing = VORL_MISSING_VALUE;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
using kestrum_test::Grid;
using Image = kestrum_test::TestImage;
using Ints = std::vector<int>;
using Values = std::vector<double>;

int Euler(Image& image, int varIndex, int nthreads) {
  int serial = 12345, threaded = -12345;
  EXPECT_EQ(VORLImageConnectivityEulerNumber(&image, varIndex, &serial), 0);
  EXPECT_EQ(VORLOMPImageConnectivityEulerNumber(&image, varIndex, &threaded, nthreads), 0);
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
    const auto min1 = [](int s) { return std::min(s, 1); };
    const int t[] = {min1(a[0] + a[1] + a[3] + a[4] + a[9] + a[10] + a[12]),
                     min1(a[1] + a[2] + a[4] + a[5] + a[10] + a[11]),
                     min1(a[4] + a[5] + a[8]),
                     min1(a[3] + a[4] + a[6] + a[12]),
                     min1(a[9] + a[10] + a[12]),
                     min1(a[10] + a[11])};
    const int v = 8 - t[0] - t[1] - t[2] - t[3] - t[4] - t[5] - a[12];
    const int e = 12 - min1(a[1] + a[4] + a[10]) - a[4] - a[10] - min1(a[3] + a[4] + a[12]) - min1(a[4] + a[5]) -
                  a[12] - t[4] - t[5] - a[12];
    sum += v - e + (6 - a[4] - a[10] - a[12]) - 1;
  }
  return sum;
}

Values RandomLabels(std::mt19937& random, std::size_t n) {
  const double choices[] = {0.0, 0.0, 0.0, 1.0, 1.0, 1.0, 1.0, 2.0, 2.5, kMissing};
  Values values(n);
  for (double& value : values) value = choices[random() % std::size(choices)];
  return values;
}

TEST(EulerNumber, RandomImagesAgainstCounts) {
  std::mt19937 random(1);
  constexpr int kShapes[][3] = {{1, 1, 1}, {5, 1, 1}, {1, 6, 1}, {1, 1, 7}, {4, 5, 1}, {2, 2, 1}, {9, 7, 1},
                                {1, 4, 3}, {2, 3, 3}, {3, 1, 4}, {4, 3, 3}, {3, 3, 2}, {7, 5, 4}};
  for (const auto& [nx, ny, nz] : kShapes) {
    for (int trial = 0; trial < 20; ++trial) {
      Image image(Grid(nx, ny, nz), {"a", "b"}, RandomLabels(random, static_cast<std::size_t>(2 * nx * ny * nz)));
      for (int variable = 0; variable < 2; ++variable) {
        const real* const values = image.var + variable * image.grid->nxyz;
        constexpr int kThreads[] = {1, 2, 3, 8};
        const int found = Euler(image, variable, kThreads[trial % 4]);
        ASSERT_EQ(found, EulerByTable(*image.grid, values)) << nx << ' ' << ny << ' ' << nz;
        // In one layer, and in a column, the count is exact.
        if (nz == 1 || (nx == 1 && ny == 1)) {
          ASSERT_EQ(found, CountedEuler(*image.grid, values));
        }
      }
    }
  }
}

TEST(EulerNumber, KnownBodiesAndOddNeighbours) {
  struct Row {
    VORL_GRID grid;
    Values values;
    int expected;
    bool exact;
  };
  Values ball(125, 0.0);
  for (int id = 0; id < 125; ++id) {
    const int x = id % 5 - 2, y = id / 5 % 5 - 2, z = id / 25 - 2;
    if (std::abs(x) <= 1 && std::abs(y) <= 1 && std::abs(z) <= 1) ball[static_cast<std::size_t>(id)] = 1.0;
  }
  Values hollow = ball;
  hollow[62] = 0.0;
  const Row rows[] = {
      {Grid(5, 5, 5), ball, 1, true},
      // Beside the hole other nodes are taken for it.
      {Grid(5, 5, 5), hollow, 1, false},
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
  for (const Row& row : rows) {
    Image image(row.grid, {"a"}, row.values);
    EXPECT_EQ(Euler(image, 0, 2), row.expected);
    EXPECT_EQ(CountedEuler(*image.grid, image.var) == row.expected, row.exact);
  }
  // Before the first node of the second variable stands a node of the first.
  Image two(Grid(2, 1, 2), {"a", "b"}, {1, 1, 1, 1, 0, 0, 1, 0});
  EXPECT_EQ(Euler(two, 1, 2), 1);
}

TEST(GlobalIndicator, CountsAndGamma) {
  struct Row {
    Values values;
    int nodeCount;
    Ints sizes;
    double gamma;
  };
  const Row rows[] = {
      {{0.5, -0.5, kMissing, 0}, 1, {}, 1.0},
      {{1, 3, 3.9, 0}, 3, {1, 0, 2}, 5.0 / 9.0},
      // A missing node counts, and so does what no int holds.
      {{1, 2, kMissing, 0}, 3, {1, 1}, 2.0 / 9.0},
      {{1, 1e300, kNaN, -1e300}, 4, {1}, 1.0 / 16.0},
      {{1, 1, 2, 2, 1, 1, 0, 0, 2, 1, 1, 1}, 10, {7, 3}, 58.0 / 100.0},
  };
  for (const Row& row : rows) {
    Values values = row.values;
    values.insert(values.begin(), values.size(), 5.0);
    Image image(Grid(static_cast<int>(row.values.size()), 1, 1), {"a", "b"}, values);
    for (int nthreads : {0, 1, 2, 3, 8, -1}) {
      int nodeCount = -1, ngeobody = -1;
      int untouched = 0;
      int* sizes = &untouched;
      double gamma = -1.0;
      ASSERT_EQ(nthreads == 0 ? VORLImageConnectivityGlobalIndicator(&image, 1, &nodeCount, &ngeobody, &sizes, &gamma)
                              : VORLOMPImageConnectivityGlobalIndicator(&image, 1, &nodeCount, &ngeobody, &sizes,
                                                                        &gamma, nthreads),
                0);
      EXPECT_EQ(nodeCount, row.nodeCount);
      ASSERT_EQ(ngeobody, static_cast<int>(row.sizes.size()));
      EXPECT_EQ(gamma, row.gamma);
      if (ngeobody == 0) {
        EXPECT_EQ(sizes, &untouched);
      } else {
        EXPECT_EQ(Ints(sizes, sizes + ngeobody), row.sizes);
        VORLFree(sizes);
      }
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
     VORLImageMaxGeobody26SizeCurve, VORLOMPImageMaxGeobody26SizeCurve},
};

// All results of the curves of one family.
struct Curves {
  explicit Curves(std::size_t n) {
    reals.fill(Values(n, -1.0));
    ints.fill(Ints(n, -1));
  }
  std::array<Values, 5> reals;  // thresholds of the three functions, Gamma, Gamma of the complement
  std::array<Ints, 6> ints;     // Euler number, that of the complement, largest size and extents
  bool operator==(const Curves&) const = default;
};

Curves Compute(const Family& family, Image& image, std::size_t n, double start, double step, int nthreads) {
  Curves curves(n);
  const int length = static_cast<int>(n);
  auto& [t0, t1, t2, gamma, gammaComplement] = curves.reals;
  auto& i = curves.ints;
  const auto call = [&](auto* serial, auto* threaded, auto... outputs) {
    EXPECT_EQ(nthreads == 0 ? serial(&image, length, start, step, outputs..., FALSE)
                            : threaded(&image, length, start, step, outputs..., FALSE, nthreads),
              0);
  };
  call(family.gamma, family.gammaThreads, t0.data(), gamma.data(), gammaComplement.data());
  call(VORLImageConnectivity6EulerNumberCurve, VORLOMPImageConnectivity6EulerNumberCurve, t1.data(), i[0].data(),
       i[1].data());
  call(family.max, family.maxThreads, t2.data(), i[2].data(), i[3].data(), i[4].data(), i[5].data());
  return curves;
}

// One entry of each curve from the label image.
void ExpectEntry(const Family& family, Image& image, const Curves& curves, std::size_t i) {
  double low = -1e6;
  double high = curves.reals[0][i];
  for (int complement : {0, 1}) {
    Image labels, labels6;
    int ngeobody = 0, ngeobody6 = 0, euler = 0;
    const BOOLEAN flag = complement != 0 ? TRUE : FALSE;
    ASSERT_EQ(family.geobody(&image, &labels, 0, flag, 1, &low, &high, FALSE, FALSE, &ngeobody), 0);
    ASSERT_EQ(VORLImageGeobody6(&image, &labels6, 0, flag, 1, &low, &high, FALSE, FALSE, &ngeobody6), 0);
    double squares = 0.0, nodes = 0.0;
    Ints largest(4, 0);
    if (ngeobody > 0) {
      int* table[4];
      ASSERT_EQ(VORLImageGeobodySize(&labels, &ngeobody, &table[0], &table[1], &table[2], &table[3]), 0);
      for (int g = 0; g < ngeobody; ++g) {
        nodes += table[0][g];
        squares += static_cast<double>(table[0][g]) * table[0][g];
        for (std::size_t k = 0; k < 4; ++k) largest[k] = std::max(largest[k], table[k][g]);
      }
      for (int* vector : table) VORLFree(vector);
      ASSERT_EQ(VORLImageConnectivityEulerNumber(&labels6, 0, &euler), 0);
    }
    EXPECT_EQ(curves.reals[complement != 0 ? 4 : 3][i], ngeobody == 0 ? 1.0 : squares / (nodes * nodes));
    EXPECT_EQ(curves.ints[static_cast<std::size_t>(complement)][i], euler);
    for (std::size_t k = 0; k < 4 && complement == 0; ++k) EXPECT_EQ(curves.ints[2 + k][i], largest[k]);
  }
}

TEST(ConnectivityCurves, EntriesAndThreads) {
  std::mt19937 random(4);
  for (const auto& shape : {std::array{1, 1, 1}, {7, 1, 1}, {1, 6, 4}, {1, 1, 5}, {9, 8, 1}, {6, 5, 4}, {70, 3, 2}}) {
    Values values(static_cast<std::size_t>(shape[0] * shape[1] * shape[2]));
    for (double& value : values) value = random() % 9 == 0 ? kMissing : static_cast<double>(random() % 9) / 4.0 - 1.0;
    values[0] = 0.25;
    // Beside a set of one node the missing nodes are in the Euler number.
    if (values.size() > 4) values[3] = -3.0, values[1] = kMissing;
    Image image(Grid(shape[0], shape[1], shape[2]), {"a"}, values);
    for (const Family& family : kFamilies) {
      const Curves curves = Compute(family, image, 17, -3.5, 0.375, 0);
      for (std::size_t i = 0; i < 17; ++i) {
        for (int k = 0; k < 3; ++k) EXPECT_EQ(curves.reals[k][i], -3.5 + 0.375 * static_cast<double>(i));
        ExpectEntry(family, image, curves, i);
        if (HasFatalFailure()) return;
      }
      for (int nthreads : {1, 2, 3, 8}) EXPECT_EQ(Compute(family, image, 17, -3.5, 0.375, nthreads), curves);
    }
  }
}

TEST(ConnectivityCurves, ThresholdsOfBothWays) {
  // Curves name no image: a name without room for a suffix is no failure.
  Image image(Grid(2, 1, 1), {std::string(250, 'n')}, {0.0, 1.0});
  const Curves serial = Compute(kFamilies[0], image, 30, 0.1, 0.1, 0);
  const Curves threaded = Compute(kFamilies[0], image, 30, 0.1, 0.1, 3);
  double running = 0.1;
  int differences = 0;
  for (int i = 0; i < 30; ++i, running += 0.1) {
    for (int k = 0; k < 3; ++k) {
      EXPECT_EQ(serial.reals[k][i], running);
      EXPECT_EQ(threaded.reals[k][i], i * 0.1 + 0.1);
    }
    differences += serial.reals[0][i] != threaded.reals[0][i];
  }
  EXPECT_GT(differences, 0);
}

TEST(ConnectivityCurves, ProgressAndStatuses) {
  Image image(Grid(5, 4, 3), {"a"}, {0, 1, 2, 3, 4, 5, 6});
  Image two(Grid(5, 4, 3), {"a", "b"}, {1});
  Values t(4), gamma(4);
  Ints a(4), b(4), c(4), d(4);
  const auto calls = [&](Image& in, int n, double* thresholds, BOOLEAN verbose, int nthreads) {
    return std::array{
        VORLOMPImageConnectivity18GlobalIndicatorCurve(&in, n, 1.0, 1.0, thresholds, gamma.data(), gamma.data(),
                                                       verbose, nthreads),
        VORLOMPImageConnectivity6EulerNumberCurve(&in, n, 1.0, 1.0, thresholds, a.data(), b.data(), verbose, nthreads),
        VORLOMPImageMaxGeobody6SizeCurve(&in, n, 1.0, 1.0, thresholds, a.data(), b.data(), c.data(), d.data(), verbose,
                                         nthreads)};
  };
  const auto all = [](int status) { return std::array{status, status, status}; };
  const std::string labels[] = {
      "Computing Gamma curves: ", "Computing Euler-number curves: ", "Computing max geobody size curves: "};
  for (int n : {-1, 0, 3}) {
    std::string expected;
    for (const std::string& label : labels) {
      expected += label + "  0 %\n";
      if (n == 3) expected += label + " 33 %\n" + label + " 66 %\n";
      expected += label + "100 %\n";
    }
    for (bool verbose : {true, false}) {
      testing::internal::CaptureStdout();
      EXPECT_EQ(calls(image, n, t.data(), verbose ? static_cast<BOOLEAN>(-1) : FALSE, 1), all(0));
      EXPECT_EQ(testing::internal::GetCapturedStdout(), verbose ? expected : "");
    }
  }
  EXPECT_EQ(calls(two, 4, nullptr, FALSE, 2), all(-52));
  EXPECT_EQ(calls(image, 4, nullptr, FALSE, 2), all(-20));
  EXPECT_EQ(calls(image, 4, t.data(), FALSE, 0), all(-3));
  EXPECT_EQ(calls(image, 0, nullptr, FALSE, -2), all(-3));
  // Each curve of one thread has its own allocations; a failure is met by one of the three calls.
  bool failed = true;
  for (long k = 0; failed; ++k) {
    const kestrum_test::FailAllocation fail(k);
    const auto statuses = calls(image, 4, t.data(), FALSE, 1);
    failed = fail.Happened();
    EXPECT_EQ(std::count(statuses.begin(), statuses.end(), -1), failed ? 1 : 0);
    EXPECT_EQ(std::count(statuses.begin(), statuses.end(), 0), failed ? 2 : 3);
  }

  int number = 0, count = 0;
  int* sizes = nullptr;
  double value = 0.0;
  for (int varIndex : {-1, 1}) {
    EXPECT_EQ(VORLImageConnectivityEulerNumber(&image, varIndex, &number), -1100);
    EXPECT_EQ(VORLImageConnectivityGlobalIndicator(&image, varIndex, &count, &number, &sizes, &value), -1100);
  }
  EXPECT_EQ(VORLOMPImageConnectivityEulerNumber(&image, 0, &number, 0), -3);
  EXPECT_EQ(VORLImageConnectivityGlobalIndicator(&image, 0, &count, &number, nullptr, &value), -20);
  {
    const kestrum_test::FailAllocation fail(0);
    EXPECT_EQ(VORLImageConnectivityGlobalIndicator(&image, 0, &count, &number, &sizes, &value), -1);
  }
  EXPECT_EQ((std::array{count, number}), (std::array{51, 6}));
  EXPECT_EQ(value, 1.0);
  image.grid->nx = -5;
  EXPECT_EQ(calls(image, 4, t.data(), FALSE, 2), all(-611));
  EXPECT_EQ(VORLImageConnectivityEulerNumber(&image, 0, &number), -611);
}

}  // namespace
