#include "analysis/distance_maps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "analysis/distance_lines.hpp"
#include "analysis/geobodies.h"
#include "core/buffer.hpp"
#include "core/constants.h"
#include "core/memory.h"
#include "support/allocation_failure.hpp"
#include "support/test_image.hpp"

namespace {

using kestrum::DistanceMetric;
using kestrum_test::Grid;
using kestrum_test::SameBits;
using Image = kestrum_test::TestImage;
using Values = std::vector<double>;

constexpr double kMissing = VORL_MISSING_VALUE;

bool IsFeature(double value) { return value != 0.0 && value != kMissing; }

// The envelope of one line, step by step.
Values PlainEnvelope(bool l1, Values d, double w) {
  const int n = static_cast<int>(d.size());
  const int last = n - 1;
  std::vector<double> s(d.size()), t(d.size()), f(d.size());
  const auto cost = [&](double u, double site) {
    return (l1 ? std::fabs(u - site) * w : (u - site) * (u - site) * w) + d[static_cast<std::size_t>(site)];
  };
  int q = 0;
  for (int u = 1; u <= last; ++u) {
    if (cost(last, t[q]) <= cost(last, u)) continue;
    while (q >= 0 && cost(s[q], u) < cost(s[q], t[q])) --q;
    if (q < 0) {
      q = 0;
      s[0] = 0;
      t[0] = u;
      continue;
    }
    const double slope = (d[u] - d[static_cast<std::size_t>(t[q])]) * (0.5 / w);
    const double c = std::trunc((l1 ? slope : slope / (u - t[q])) + (t[q] + u) * 0.5);
    const double candidate = s[q] == c + 1 ? c + 2 : c + 1;
    if (candidate < n) {
      ++q;
      s[q] = candidate;
      t[q] = u;
    }
  }
  for (int k = 0; k <= q; ++k) f[k] = d[static_cast<std::size_t>(t[k])];
  for (int u = last; u >= 0; --u) {
    d[u] = (l1 ? std::fabs(u - t[q]) * w : (u - t[q]) * (u - t[q]) * w) + f[q];
    if (s[q] == u) --q;
  }
  return d;
}

TEST(DistanceLines, EveryKernelFollowsThePlainSteps) {
  std::mt19937 random(1);
  std::vector<std::pair<kestrum::LineKernel, int>> kernels = {{kestrum::EnvelopeOfOneLine, 1}};
  for (int level = 0; level <= static_cast<int>(kestrum::BestSimdLevel()); ++level) {
    kernels.push_back({kestrum::LineKernelOf(static_cast<kestrum::SimdLevel>(level)), kestrum::kLineLanes});
  }
  for (const bool l1 : {false, true}) {
    for (const int n : {2, 3, 5, 16, 61, 300}) {
      // The last ones are so small that rounding puts starts out of order, and before the line.
      for (const double w : {1.0, 0.49, 25.0, 1e-3, 3e-13, 2e-16}) {
        for (const int farPercent : {0, 50, 95, 100}) {
          std::vector<Values> lines;
          for (int lane = 0; lane < kestrum::kLineLanes; ++lane) {
            const double scale = lane % 2 == 0 ? 1.0 : 1.69;
            const unsigned range = lane % 3 == 0 ? 4 : 200;
            Values line(static_cast<std::size_t>(n));
            for (double& value : line) {
              const double steps = random() % range;
              value = static_cast<int>(random() % 100) < farPercent ? 3.0 * 300 * 300 : steps * steps * scale;
            }
            lines.push_back(line);
          }
          for (const auto& [kernel, lanes] : kernels) {
            const std::size_t size = lines[0].size() * static_cast<std::size_t>(lanes);
            kestrum::Buffer<double> cost, distance;
            kestrum::Buffer<long long> link;
            ASSERT_EQ(cost.Allocate(size) + distance.Allocate(size) + link.Allocate(size), 0);
            for (std::size_t i = 0; i < size; ++i) cost[i] = lines[i % lanes][i / lanes];
            kernel(l1 ? DistanceMetric::kL1 : DistanceMetric::kEuclidean,
                   {n, w, cost.data(), distance.data(), link.data()});
            for (std::size_t lane = 0; lane < static_cast<std::size_t>(lanes); ++lane) {
              Values line;
              for (std::size_t u = 0; u < lines[lane].size(); ++u) line.push_back(distance[u * lanes + lane]);
              ASSERT_TRUE(SameBits(line, PlainEnvelope(l1, lines[lane], w))) << l1 << ' ' << n << ' ' << w;
            }
          }
        }
      }
    }
  }
}

// One metric's functions.
struct Family {
  bool l1;
  int (*exact)(VORL_IMAGE*, VORL_IMAGE*);
  int (*exactThreads)(VORL_IMAGE*, VORL_IMAGE*, int);
  int (*trial)(VORL_IMAGE*, VORL_IMAGE*, BOOLEAN);
  int (*sign)(VORL_IMAGE*, VORL_IMAGE*);
  int (*signThreads)(VORL_IMAGE*, VORL_IMAGE*, int);
  const char* suffix;
  const char* signSuffix;
};
const Family kFamilies[] = {
    {true, VORLImageDistanceL1, VORLOMPImageDistanceL1, VORLImageDistanceL1BruteForce, VORLImageDistanceL1Sign,
     VORLOMPImageDistanceL1Sign, "_distL1", "_distL1Sign"},
    {false, VORLImageDistanceEuclidean, VORLOMPImageDistanceEuclidean, VORLImageDistanceEuclideanBruteForce,
     VORLImageDistanceEuclideanSign, VORLOMPImageDistanceEuclideanSign, "_distL2", "_distL2Sign"}};

// The distance from each node to the nearest feature; missingAtRowStart: a missing value with ix = 0 is one, too.
Values MapByTrial(bool l1, bool missingAtRowStart, const VORL_GRID& g, int nvar, const Values& in) {
  Values out(in.size(), kMissing);
  for (int i = 0; i < nvar * g.nxyz; ++i) {
    if (in[i] == kMissing) continue;
    const double x = g.nx * g.sx, y = g.ny * g.sy, z = g.nz * g.sz;
    double least = l1 ? x + y + z : std::sqrt(x * x + y * y + z * z);
    for (int j = i / g.nxyz * g.nxyz; j < (i / g.nxyz + 1) * g.nxyz; ++j) {
      if (!IsFeature(in[j]) && !(missingAtRowStart && in[j] == kMissing && j % g.nx == 0)) continue;
      const double dx = std::abs(i % g.nx - j % g.nx) * g.sx;
      const double dy = std::abs(i / g.nx % g.ny - j / g.nx % g.ny) * g.sy;
      const double dz = std::abs(i % g.nxyz / g.nxy - j % g.nxyz / g.nxy) * g.sz;
      least = std::min(least, l1 ? dx + dy + dz : std::sqrt(dx * dx + dy * dy + dz * dz));
    }
    out[i] = least;
  }
  return out;
}

// Features become 0.0 next to background, then features and background change places.
Values ComplementOfEroded(const VORL_GRID& g, const Values& in) {
  Values out = in;
  for (int i = 0; i < static_cast<int>(in.size()); ++i) {
    const int ix = i % g.nx, iy = i / g.nx % g.ny, iz = i % g.nxyz / g.nxy;
    const bool eroded = (ix > 0 && in[i - 1] == 0.0) || (ix < g.nx - 1 && in[i + 1] == 0.0) ||
                        (iy > 0 && in[i - g.nx] == 0.0) || (iy < g.ny - 1 && in[i + g.nx] == 0.0) ||
                        (iz > 0 && in[i - g.nxy] == 0.0) || (iz < g.nz - 1 && in[i + g.nxy] == 0.0);
    if (in[i] != kMissing) out[i] = in[i] == 0.0 || eroded ? 1.0 : 0.0;
  }
  return out;
}

Values RandomValues(std::mt19937& random, int n, int featurePercent, int missingPercent, double featureValues = 1) {
  Values values;
  for (int i = 0; i < n; ++i) {
    const int percent = static_cast<int>(random() % 100);
    const double feature = 1.0 + random() % static_cast<unsigned>(featureValues);
    values.push_back(percent < featurePercent ? feature : percent >= 100 - missingPercent ? kMissing : 0.0);
  }
  return values;
}

void ExpectNear(const Values& a, const Values& b) {
  ASSERT_EQ(a.size(), b.size());
  // Sums of a few terms, and a root.
  for (std::size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], 1e-13 * std::fabs(b[i]) + 1e-13) << i;
}

TEST(DistanceMaps, AgainstTrialOnRandomGrids) {
  std::mt19937 random(2);
  const VORL_GRID grids[] = {Grid(1, 1, 1),           Grid(9, 1, 1, 0.3),          Grid(1, 40, 1, 1, 0.7),
                             Grid(1, 1, 35, 1, 1, 3), Grid(18, 7, 1, 1, 2),        Grid(3, 1, 20, 1.3, 1, 0.4),
                             Grid(1, 6, 9, 2, 5, 3),  Grid(7, 6, 5, 1.3, 0.7, 29), Grid(17, 9, 4, 0.01, 1, 100)};
  for (VORL_GRID g : grids) {
    for (const int featurePercent : {2, 40, 100}) {
      const Values values =
          RandomValues(random, 3 * g.nx * g.ny * g.nz, featurePercent, featurePercent < 90 ? 15 : 0, 3);
      Image in(g, {"a", "b", "c"}, values);
      const VORL_GRID& grid = *in.grid;
      for (const Family& family : kFamilies) {
        SCOPED_TRACE(std::to_string(g.nx) + " " + std::to_string(g.ny) + " " + std::to_string(g.nz) + " " +
                     std::to_string(featurePercent) + family.suffix);
        Image exact, trial, sign;
        ASSERT_EQ(family.exact(&in, &exact), 0);
        ExpectNear(exact.Values(), MapByTrial(family.l1, family.l1, grid, 3, values));
        ASSERT_EQ(family.trial(&in, &trial, FALSE), 0);
        ExpectNear(trial.Values(), MapByTrial(family.l1, false, grid, 3, values));
        ASSERT_EQ(family.sign(&in, &sign), 0);
        const Values inside = MapByTrial(family.l1, family.l1, grid, 3, ComplementOfEroded(grid, values));
        Values expected = MapByTrial(family.l1, family.l1, grid, 3, values);
        for (std::size_t i = 0; i < expected.size(); ++i) expected[i] -= values[i] == kMissing ? 0.0 : inside[i];
        ExpectNear(sign.Values(), expected);
        EXPECT_EQ(exact.varName[2], std::string("c") + family.suffix);
        EXPECT_EQ(trial.varName[1], std::string("b") + family.suffix);
        EXPECT_EQ(sign.varName[0], std::string("a") + family.signSuffix);
        EXPECT_EQ(VORLCmpGrid(sign.grid, in.grid), 0);
        if (featurePercent != 40) continue;
        for (const int nthreads : {1, 2, 3, 8}) {
          Image exactThreads, signThreads;
          ASSERT_EQ(family.exactThreads(&in, &exactThreads, nthreads), 0);
          EXPECT_TRUE(SameBits(exactThreads.Values(), exact.Values())) << nthreads;
          ASSERT_EQ(family.signThreads(&in, &signThreads, nthreads), 0);
          EXPECT_TRUE(SameBits(signThreads.Values(), sign.Values())) << nthreads;
        }
      }
      EXPECT_TRUE(SameBits(in.Values(), values));
    }
  }
}

TEST(DistanceMaps, ClosedForms) {
  const double m = kMissing;
  const struct {
    VORL_GRID grid;
    Values in, l1, euclidean, l1Sign;
  } cases[] = {// No feature: the far value, and missing nodes.
               {Grid(3, 2, 1, 1, 2, 4), {0, 0, 0, 0, m, 0}, {11, 11, 11, 11, m, 11}, {}, {11, 11, 11, 11, m, 11}},
               {Grid(3, 1, 1, 4, 2, 1), {0, 0, 0}, {15, 15, 15}, {std::sqrt(149), std::sqrt(149), std::sqrt(149)}, {}},
               // Neighbours along x and y.
               {Grid(2, 2, 1, 1, 2, 1), {1, 0, 0, 0}, {0, 1, 2, 3}, {0, 1, 2, std::sqrt(5)}, {0, 1, 2, 3}},
               // A missing value is a feature for L1 at the start of a row alone.
               {Grid(4, 1, 1), {m, 0, 0, 0}, {m, 1, 2, 3}, {m, std::sqrt(18), std::sqrt(18), std::sqrt(18)}, {}},
               {Grid(4, 1, 1), {0, m, 0, -2}, {3, m, 1, 0}, {3, m, 1, 0}, {}},
               // A block from inside to outside, and a set without outside.
               {Grid(9, 1, 1, 2), {0, 0, 1, 1, 1, 1, 1, 0, 0}, {}, {}, {4, 2, 0, -2, -4, -2, 0, 2, 4}},
               {Grid(1, 2, 1), {5, 5}, {0, 0}, {0, 0}, {-4, -4}}};
  for (const auto& c : cases) {
    Image in(c.grid, {"v"}, c.in);
    Image l1, euclidean, l1Sign;
    ASSERT_EQ(VORLImageDistanceL1(&in, &l1) + VORLImageDistanceEuclidean(&in, &euclidean), 0);
    ASSERT_EQ(VORLImageDistanceL1Sign(&in, &l1Sign), 0);
    EXPECT_TRUE(c.l1.empty() || l1.Values() == c.l1);
    EXPECT_TRUE(c.euclidean.empty() || euclidean.Values() == c.euclidean);
    EXPECT_TRUE(c.l1Sign.empty() || l1Sign.Values() == c.l1Sign);
  }
}

// Lines so long that they are done one by one give what the row gives along x.
TEST(DistanceMaps, LongLines) {
  constexpr int kNodes = 70000;
  Values values(kNodes, 0.0);
  for (int i = 500; i < kNodes; i += 1 + i % 977) values[i] = 1.0;
  Image row(Grid(kNodes, 1, 1), {"v"}, values);
  for (const Family& family : kFamilies) {
    Image rowMap;
    ASSERT_EQ(family.exact(&row, &rowMap), 0);
    for (const VORL_GRID& grid : {Grid(1, kNodes, 1), Grid(1, 1, kNodes)}) {
      Image column(grid, {"v", "w"}, values), map;
      ASSERT_EQ(family.exactThreads(&column, &map, 2), 0);
      EXPECT_TRUE(SameBits(map.var, rowMap.var, kNodes) && SameBits(map.var + kNodes, rowMap.var, kNodes));
    }
  }
}

// One sweep over the grid for each step.
Values DilationBySweeps(const VORL_GRID& g, Values out, const std::vector<int> (&shift)[3]) {
  const auto sweep = [&](double r) {
    const Values work = out;
    bool changed = false;
    for (int i = 0; i < g.nxyz; ++i) {
      if (out[i] != 0.0) continue;
      for (std::size_t k = 0; k < shift[0].size(); ++k) {
        const int x = i % g.nx + shift[0][k], y = i / g.nx % g.ny + shift[1][k], z = i / g.nxy + shift[2][k];
        if (x < 0 || x >= g.nx || y < 0 || y >= g.ny || z < 0 || z >= g.nz) continue;
        if (!IsFeature(work[x + g.nx * (y + g.ny * z)])) continue;
        out[i] = r;
        changed = true;
      }
    }
    return changed;
  };
  for (double r = 2; sweep(r); ++r) {
  }
  for (double& value : out) value -= value == kMissing ? 0.0 : 1.0;
  for (double r = -1; sweep(r); --r) {
  }
  for (double& value : out) value += value != kMissing && value < 0.0 ? 1.0 : 0.0;
  return out;
}

TEST(DistanceMaps, ByDilationAgainstSweeps) {
  std::mt19937 random(3);
  std::vector<int> elements[][3] = {{{}, {}, {}},
                                    {{-1, 1, 0, 0, 0, 0}, {0, 0, -1, 1, 0, 0}, {0, 0, 0, 0, -1, 1}},
                                    {{2, 0, 0}, {1, 0, -1}, {0, 0, 1}}};
  for (VORL_GRID g : {Grid(12, 9, 4), Grid(30, 1, 1), Grid(1, 1, 1), Grid(5, 1, 8)}) {
    for (auto& shift : elements) {
      for (const int featurePercent : {0, 5, 60, 100}) {
        Values values = RandomValues(random, g.nx * g.ny * g.nz, featurePercent, featurePercent < 90 ? 10 : 0);
        // Other values than 1, and one that becomes missing on the way.
        for (double& value : values) {
          if (random() % 20 == 0 && value == 1.0) value = random() % 2 == 0 ? -3.0 : kMissing + 1.0;
        }
        Image in(g, {"a", "b"}, values), out;
        const int nshift = static_cast<int>(shift[0].size());
        ASSERT_EQ(VORLImageDistanceByDilation(&in, &out, nshift, shift[0].data(), shift[1].data(), shift[2].data()), 0);
        const Values expected = DilationBySweeps(*in.grid, values, shift);
        EXPECT_TRUE(SameBits(out.var, expected.data(), values.size()));
        EXPECT_TRUE(SameBits(out.var + values.size(), expected.data(), values.size()));
        EXPECT_STREQ(out.varName[1], "b_distDilating");
      }
    }
  }
  // Offsets of any size never land in the grid.
  Image in(Grid(3, 1, 1), {"v"}, {0, 1, 0}), out;
  int x[] = {INT32_MIN, INT32_MAX, -1}, zero[] = {0, 0, 0};
  ASSERT_EQ(VORLImageDistanceByDilation(&in, &out, 3, x, zero, zero), 0);
  EXPECT_EQ(out.Values(), Values({0, 0, 1}));
  EXPECT_EQ(VORLImageDistanceByDilation(&in, &out, 1, x, zero, nullptr), -20);
}

using GeobodyFunction = decltype(&VORLImageGeobody6);
using Curve = int (*)(VORL_IMAGE*, real, int*, real**, real**, real**, BOOLEAN);
using CurveThreads = int (*)(VORL_IMAGE*, real, int*, real**, real**, real**, BOOLEAN, int);
const struct {
  const Family& family;
  GeobodyFunction geobody;
  Curve curve;
  CurveThreads threads;
} kCurves[] = {{kFamilies[0], VORLImageGeobody6, VORLImageDistanceL1Connectivity6GlobalIndicatorCurve,
                VORLOMPImageDistanceL1Connectivity6GlobalIndicatorCurve},
               {kFamilies[0], VORLImageGeobody18, VORLImageDistanceL1Connectivity18GlobalIndicatorCurve,
                VORLOMPImageDistanceL1Connectivity18GlobalIndicatorCurve},
               {kFamilies[0], VORLImageGeobody26, VORLImageDistanceL1Connectivity26GlobalIndicatorCurve,
                VORLOMPImageDistanceL1Connectivity26GlobalIndicatorCurve},
               {kFamilies[1], VORLImageGeobody6, VORLImageDistanceEuclideanConnectivity6GlobalIndicatorCurve,
                VORLOMPImageDistanceEuclideanConnectivity6GlobalIndicatorCurve},
               {kFamilies[1], VORLImageGeobody18, VORLImageDistanceEuclideanConnectivity18GlobalIndicatorCurve,
                VORLOMPImageDistanceEuclideanConnectivity18GlobalIndicatorCurve},
               {kFamilies[1], VORLImageGeobody26, VORLImageDistanceEuclideanConnectivity26GlobalIndicatorCurve,
                VORLOMPImageDistanceEuclideanConnectivity26GlobalIndicatorCurve}};

double GammaAt(GeobodyFunction geobody, Image& map, double lower, double upper, BOOLEAN complement) {
  Image labels;
  int ngeobody = 0;
  EXPECT_EQ(geobody(&map, &labels, 0, complement, 1, &lower, &upper, FALSE, FALSE, &ngeobody), 0);
  Values sizes(static_cast<std::size_t>(ngeobody) + 1, 0.0);
  for (const double label : labels.Values()) sizes[static_cast<std::size_t>(std::max(label, 0.0))] += 1.0;
  double sum = 0.0, squares = 0.0;
  for (std::size_t k = 1; k < sizes.size(); ++k) {
    sum += sizes[k];
    squares += sizes[k] * sizes[k];
  }
  return ngeobody == 0 ? 1.0 : squares / (sum * sum);
}

TEST(DistanceCurves, AgainstGeobodiesOfTheSignedMap) {
  std::mt19937 random(4);
  for (const int featurePercent : {60, 97}) {
    const Values values = RandomValues(random, 12 * 11 * 5, featurePercent, featurePercent == 60 ? 3 : 0);
    Image in(Grid(12, 11, 5, 1, 1.5, 0.5), {"v"}, values);
    for (const auto& c : kCurves) {
      Image map;
      ASSERT_EQ(c.family.sign(&in, &map), 0);
      double lowest = 1e30, highest = -1e30;
      for (const double distance : map.Values()) {
        if (distance == kMissing) continue;
        lowest = std::min(lowest, distance);
        highest = std::max(highest, distance);
      }
      for (const double step : {0.75, 40.0}) {
        const int k = static_cast<int>(-lowest / step);
        int m = static_cast<int>(highest / step);
        if (highest > m * step) ++m;
        std::vector<Values> expected(3);
        for (int i = 0; i < k + m + 2; ++i) {
          const double t = (i - k - 1) * step;
          expected[0].push_back(t);
          expected[1].push_back(GammaAt(c.geobody, map, -(k + 2) * step, t, FALSE));
          expected[2].push_back(GammaAt(c.geobody, map, -(k + 2) * step, t, TRUE));
        }
        for (const int nthreads : {0, 1, 2, 3, 8}) {
          int n = 0;
          double* curves[3] = {};
          const int status = nthreads == 0
                                 ? c.curve(&in, step, &n, &curves[0], &curves[1], &curves[2], FALSE)
                                 : c.threads(&in, step, &n, &curves[0], &curves[1], &curves[2], FALSE, nthreads);
          ASSERT_EQ(status, 0);
          for (std::size_t j = 0; j < 3; ++j) {
            EXPECT_EQ(Values(curves[j], curves[j] + n), expected[j]);
            VORLFree(curves[j]);
          }
        }
      }
    }
  }
}

TEST(DistanceCurves, Refusals) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    std::vector<std::string> names;
    Values values;
    double step;
    int nthreads, status;
  } cases[] = {{{"a", "b"}, {1, 0}, 1, 2, -52},
               {{"a"}, {1, 0}, 0, 2, -3},
               {{"a"}, {1, 0}, nan, 2, -3},
               {{"a"}, {1, 0}, 1e-12, 2, -1},
               {{"a"}, {1, 0}, -1, 2, -3},
               {{"a"}, {kMissing}, 1, 2, -1},
               {{"a"}, {kMissing}, 12, 2, -3},
               {{"a"}, {kMissing}, 13, 2, 0},
               {{"a"}, {1, 0}, 1, 0, -3},
               {{"a"}, {1, 0}, 1, -5, -3},
               {{std::string(VORL_VARNAME_LENGTH - 1, 'x')}, {1, 0}, 1, 2, 0}};
  for (const auto& c : cases) {
    Image in(Grid(6, 5, 1), c.names, c.values);
    int n = -7;
    double* curves[3] = {};
    EXPECT_EQ(kCurves[0].threads(&in, c.step, &n, &curves[0], &curves[1], &curves[2], FALSE, c.nthreads), c.status);
    EXPECT_EQ(n == -7 && curves[0] == nullptr && curves[1] == nullptr && curves[2] == nullptr, c.status != 0);
    for (double* const curve : curves) VORLFree(curve);
  }
}

TEST(DistanceMaps, RefusalsAndFailingAllocations) {
  using Make = std::function<int(VORL_IMAGE*, VORL_IMAGE*)>;
  int x[] = {1}, zero[] = {0};
  std::vector<std::pair<Make, std::size_t>> functions = {
      {[&](auto* in, auto* out) { return VORLImageDistanceByDilation(in, out, 1, x, zero, zero); }, 13}};
  Image image(Grid(4, 3, 2), {"v"}, {1, 0, 0});
  for (const Family& f : kFamilies) {
    functions.push_back({f.exact, 7});
    functions.push_back({[&f](auto* in, auto* out) { return f.exactThreads(in, out, 2); }, 7});
    functions.push_back({[&f](auto* in, auto* out) { return f.trial(in, out, FALSE); }, 7});
    functions.push_back({f.sign, 11});
    functions.push_back({[&f](auto* in, auto* out) { return f.signThreads(in, out, 2); }, 11});
    Image out1, out2;
    EXPECT_EQ(f.exactThreads(&image, &out1, 0), -3);
    EXPECT_EQ(f.signThreads(&image, &out2, -1), -3);
  }
  for (const auto& [make, suffixLength] : functions) {
    for (const bool fits : {true, false}) {
      const std::size_t length = VORL_VARNAME_LENGTH - 1 - suffixLength + (fits ? 0 : 1);
      Image in(Grid(4, 3, 2), {"a", std::string(length, 'n')}, {1, 0, 0}), out;
      EXPECT_EQ(make(&in, &out), fits ? 0 : -623);
      EXPECT_EQ(out.grid != nullptr, fits);
    }
    Image broken(Grid(4, 3, 2), {"a"}, {1, 0, 0}), none;
    broken.grid->nxyz = 23;
    EXPECT_EQ(make(&broken, &none), -611);
    kestrum_test::ForEachFailingAllocation([&make = make, &image] {
      Image out;
      return make(&image, &out);
    });
  }
  kestrum_test::ForEachFailingAllocation([&image] {
    int n;
    double* curves[3] = {};
    const int status = kCurves[4].threads(&image, 0.5, &n, &curves[0], &curves[1], &curves[2], FALSE, 2);
    EXPECT_EQ(curves[0] == nullptr, status != 0);
    for (double* const curve : curves) VORLFree(curve);
    return status;
  });
}

TEST(DistanceMaps, ProgressLines) {
  Image in(Grid(2, 1, 1), {"a", "b"}, {1, 0}), l1, l2;
  testing::internal::CaptureStdout();
  VORLImageDistanceL1BruteForce(&in, &l1, TRUE);
  VORLImageDistanceEuclideanBruteForce(&in, &l2, FALSE);
  const std::string label = "Computing L1 distance map (brute force): ";
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            label + "  0 %\n" + label + " 25 %\n" + label + " 50 %\n" + label + " 75 %\n" + label + "100 %\n");
}

}  // namespace
