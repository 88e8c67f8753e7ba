#include "analysis/distance_maps.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "analysis/connectivity.h"
#include "analysis/distance_lines.hpp"
#include "core/buffer.hpp"
#include "core/constants.h"
#include "core/memory.h"
#include "support/allocation_failure.hpp"
#include "support/test_image.hpp"

namespace {

using namespace kestrum_test;
using kestrum::DistanceMetric;

bool IsFeature(double value) { return value != 0.0 && value != kMissing; }

// The envelope of one line, step by step.
Values PlainEnvelope(bool l1, Values d, double w) {
  const int last = static_cast<int>(d.size()) - 1;
  Values s(d.size()), f;
  std::vector<int> t(d.size());
  const auto along = [l1, w](double steps) { return l1 ? std::fabs(steps) * w : steps * steps * w; };
  const auto cost = [&](double u, int site) { return along(u - site) + d[site]; };
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
    const double slope = (d[u] - d[t[q]]) * (0.5 / w);
    const double c = std::trunc((l1 ? slope : slope / (u - t[q])) + (t[q] + u) * 0.5);
    const double candidate = s[q] == c + 1 ? c + 2 : c + 1;
    if (candidate > last) continue;
    s[++q] = candidate;
    t[q] = u;
  }
  for (const int site : t) f.push_back(d[site]);
  for (int u = last; u >= 0; --u) {
    d[u] = along(u - t[q]) + f[q];
    if (s[q] == u) --q;
  }
  return d;
}

TEST(DistanceLines, BlocksAndOneLineFollowThePlainSteps) {
  std::mt19937 random(1);
  const std::pair<kestrum::LineKernel, int> kernels[] = {
      {kestrum::EnvelopeOfOneLine, 1}, {kestrum::LineKernelOf(kestrum::BestSimdLevel()), kestrum::kLineLanes}};
  for (const bool l1 : {false, true}) {
    for (const int n : {2, 3, 5, 16, 61, 300}) {
      // The last ones are so small that rounding puts starts out of order, and before the line.
      for (const double w : {1.0, 0.49, 25.0, 1e-3, 3e-13, 2e-16}) {
        for (const int farPercent : {0, 50, 95, 100}) {
          std::vector<Values> lines(kestrum::kLineLanes, Values(n));
          for (int lane = 0; lane < kestrum::kLineLanes; ++lane) {
            for (double& value : lines[lane]) {
              const double steps = random() % (lane % 3 == 0 ? 4 : 200);
              const bool isFar = static_cast<int>(random() % 100) < farPercent;
              value = isFar ? 3.0 * 300 * 300 : steps * steps * (lane % 2 == 0 ? 1.0 : 1.69);
            }
          }
          for (const auto& [kernel, lanes] : kernels) {
            const int size = n * lanes;
            kestrum::Buffer<double> cost, distance;
            kestrum::Buffer<long long> link;
            ASSERT_EQ(cost.Allocate(size) + distance.Allocate(size) + link.Allocate(size), 0);
            for (int i = 0; i < size; ++i) cost[i] = lines[i % lanes][i / lanes];
            kernel(l1 ? DistanceMetric::kL1 : DistanceMetric::kEuclidean,
                   {n, w, cost.data(), distance.data(), link.data()});
            for (int lane = 0; lane < lanes; ++lane) {
              Values line;
              for (int u = 0; u < n; ++u) line.push_back(distance[u * lanes + lane]);
              ASSERT_TRUE(SameBits(line, PlainEnvelope(l1, lines[lane], w))) << l1 << ' ' << n << ' ' << w;
            }
          }
        }
      }
    }
  }
}

struct Maps {
  bool l1, exact, isSigned;
  const char* suffix;
  int (*serial)(VORL_IMAGE*, VORL_IMAGE*);
  int (*threads)(VORL_IMAGE*, VORL_IMAGE*, int);
  // nthreads 0: the serial form.
  int Make(VORL_IMAGE* in, VORL_IMAGE* out, int nthreads) const {
    return nthreads == 0 || threads == nullptr ? serial(in, out) : threads(in, out, nthreads);
  }
};
const Maps kMaps[] = {
    {true, true, false, "_distL1", VORLImageDistanceL1, VORLOMPImageDistanceL1},
    {false, true, false, "_distL2", VORLImageDistanceEuclidean, VORLOMPImageDistanceEuclidean},
    {true, true, true, "_distL1Sign", VORLImageDistanceL1Sign, VORLOMPImageDistanceL1Sign},
    {false, true, true, "_distL2Sign", VORLImageDistanceEuclideanSign, VORLOMPImageDistanceEuclideanSign},
    {true, false, false, "_distL1", [](auto* in, auto* out) { return VORLImageDistanceL1BruteForce(in, out, FALSE); },
     nullptr},
    {false, false, false, "_distL2",
     [](auto* in, auto* out) { return VORLImageDistanceEuclideanBruteForce(in, out, FALSE); }, nullptr}};

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

// 1.0 at background and next to it, 0.0 further inside the features.
Values ComplementOfEroded(VORL_GRID g, int nvar, Values in) {
  g.sx = g.sy = g.sz = 1.0;
  for (double& value : in) value = value == kMissing ? kMissing : value == 0.0;
  in = MapByTrial(true, false, g, nvar, in);
  for (double& value : in) value = value == kMissing ? kMissing : value <= 1.0;
  return in;
}

Values RandomValues(std::mt19937& random, int n, int featurePercent, int missingPercent, unsigned featureValues = 1) {
  Values values;
  for (int i = 0; i < n; ++i) {
    const int percent = static_cast<int>(random() % 100);
    const double feature = 1.0 + random() % featureValues;
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
      for (const Maps& maps : kMaps) {
        SCOPED_TRACE(testing::Message() << g.nx << ' ' << g.ny << ' ' << g.nz << ' ' << featurePercent << maps.suffix);
        const bool missingAtRowStart = maps.l1 && maps.exact;
        Values expected = MapByTrial(maps.l1, missingAtRowStart, grid, 3, values);
        if (maps.isSigned) {
          const Values inside = MapByTrial(maps.l1, missingAtRowStart, grid, 3, ComplementOfEroded(grid, 3, values));
          for (std::size_t i = 0; i < inside.size(); ++i) expected[i] -= values[i] == kMissing ? 0.0 : inside[i];
        }
        Image map;
        ASSERT_EQ(maps.Make(&in, &map, 0), 0);
        ExpectNear(map.Values(), expected);
        EXPECT_EQ(map.varName[2], std::string("c") + maps.suffix);
        EXPECT_EQ(VORLCmpGrid(map.grid, in.grid), 0);
        for (const int nthreads : {1, 2, 3, 8}) {
          Image same;
          ASSERT_EQ(maps.Make(&in, &same, nthreads), 0);
          EXPECT_TRUE(SameBits(same.Values(), map.Values())) << nthreads;
        }
      }
      EXPECT_TRUE(SameBits(in.Values(), values));
    }
  }
}

// Lines so long that they are done one by one give what the row gives along x.
TEST(DistanceMaps, LongLines) {
  constexpr int kNodes = 70000;
  Values values(kNodes, 0.0);
  for (int i = 500; i < kNodes; i += 1 + i % 977) values[i] = 1.0;
  Image row(Grid(kNodes, 1, 1), {"v"}, values);
  for (const Maps& maps : {kMaps[0], kMaps[1]}) {
    Image rowMap;
    ASSERT_EQ(maps.Make(&row, &rowMap, 0), 0);
    for (const VORL_GRID& grid : {Grid(1, kNodes, 1), Grid(1, 1, kNodes)}) {
      Image column(grid, {"v", "w"}, values), map;
      ASSERT_EQ(maps.Make(&column, &map, 2), 0);
      EXPECT_TRUE(SameBits(map.var, rowMap.var, kNodes) && SameBits(map.var + kNodes, rowMap.var, kNodes));
    }
  }
}

// One sweep over the grid for each step.
Values DilationBySweeps(const VORL_GRID& g, Values out, const std::vector<int> (&shift)[3]) {
  const auto sweep = [&](double r) {
    const Values work = out;
    for (int i = 0; i < g.nxyz; ++i) {
      for (std::size_t k = 0; k < shift[0].size() && work[i] == 0.0; ++k) {
        const int x = i % g.nx + shift[0][k], y = i / g.nx % g.ny + shift[1][k], z = i / g.nxy + shift[2][k];
        if (x < 0 || x >= g.nx || y < 0 || y >= g.ny || z < 0 || z >= g.nz) continue;
        if (IsFeature(work[x + g.nx * (y + g.ny * z)])) out[i] = r;
      }
    }
    return out != work;
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

struct CurveForms {
  const Maps& maps;
  decltype(&VORLImageConnectivity6GlobalIndicatorCurve) ofValues;
  decltype(&VORLImageDistanceL1Connectivity6GlobalIndicatorCurve) serial;
  decltype(&VORLOMPImageDistanceL1Connectivity6GlobalIndicatorCurve) threads;
};
const CurveForms kCurves[] = {
    {kMaps[2], VORLImageConnectivity6GlobalIndicatorCurve, VORLImageDistanceL1Connectivity6GlobalIndicatorCurve,
     VORLOMPImageDistanceL1Connectivity6GlobalIndicatorCurve},
    {kMaps[2], VORLImageConnectivity18GlobalIndicatorCurve, VORLImageDistanceL1Connectivity18GlobalIndicatorCurve,
     VORLOMPImageDistanceL1Connectivity18GlobalIndicatorCurve},
    {kMaps[2], VORLImageConnectivity26GlobalIndicatorCurve, VORLImageDistanceL1Connectivity26GlobalIndicatorCurve,
     VORLOMPImageDistanceL1Connectivity26GlobalIndicatorCurve},
    {kMaps[3], VORLImageConnectivity6GlobalIndicatorCurve, VORLImageDistanceEuclideanConnectivity6GlobalIndicatorCurve,
     VORLOMPImageDistanceEuclideanConnectivity6GlobalIndicatorCurve},
    {kMaps[3], VORLImageConnectivity18GlobalIndicatorCurve,
     VORLImageDistanceEuclideanConnectivity18GlobalIndicatorCurve,
     VORLOMPImageDistanceEuclideanConnectivity18GlobalIndicatorCurve},
    {kMaps[3], VORLImageConnectivity26GlobalIndicatorCurve,
     VORLImageDistanceEuclideanConnectivity26GlobalIndicatorCurve,
     VORLOMPImageDistanceEuclideanConnectivity26GlobalIndicatorCurve}};

// Runs a form, the serial one if forThreads is false. A failure must set nothing.
int Compute(const CurveForms& forms, Image& in, double step, bool forThreads, int nthreads,
            std::vector<Values>* curves = nullptr) {
  int n = -7;
  double* given[3] = {};
  const int status = forThreads ? forms.threads(&in, step, &n, &given[0], &given[1], &given[2], FALSE, nthreads)
                                : forms.serial(&in, step, &n, &given[0], &given[1], &given[2], FALSE);
  EXPECT_EQ(n == -7, status != 0);
  for (double* const curve : given) {
    EXPECT_EQ(curve == nullptr, status != 0);
    if (curves != nullptr && curve != nullptr) curves->emplace_back(curve, curve + n);
    VORLFree(curve);
  }
  return status;
}

TEST(DistanceCurves, AreThoseOfTheSignedMap) {
  std::mt19937 random(4);
  for (const int featurePercent : {60, 97}) {
    const Values values = RandomValues(random, 12 * 11 * 5, featurePercent, featurePercent == 60 ? 3 : 0);
    Image in(Grid(12, 11, 5, 1, 1.5, 0.5), {"v"}, values);
    for (const auto& c : kCurves) {
      Image map;
      ASSERT_EQ(c.maps.Make(&in, &map, 0), 0);
      double lowest = 1e30, highest = -1e30;
      for (const double distance : map.Values()) {
        if (distance == kMissing) continue;
        lowest = std::min(lowest, distance);
        highest = std::max(highest, distance);
      }
      for (const double step : {0.75, 40.0}) {
        // Products and sums of steps are exact.
        const double start = (-1 - std::trunc(-lowest / step)) * step;
        int n = 1;
        while (start + (n - 1) * step < highest) ++n;
        std::vector<Values> expected(3, Values(n));
        ASSERT_EQ(c.ofValues(&map, n, start, step, expected[0].data(), expected[1].data(), expected[2].data(), FALSE),
                  0);
        for (const int nthreads : {0, 1, 2, 3, 8}) {
          std::vector<Values> curves;
          ASSERT_EQ(Compute(c, in, step, nthreads > 0, nthreads, &curves), 0);
          EXPECT_EQ(curves, expected);
        }
      }
    }
  }
}

TEST(DistanceCurves, Refusals) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    int nvar;
    Values values;
    double step;
    int nthreads, status;
  } cases[] = {{2, {1, 0}, 1, 2, -52},    {1, {1, 0}, 0, 2, -3},     {1, {1, 0}, nan, 2, -3},
               {1, {1, 0}, 1e-12, 2, -1}, {1, {1, 0}, -1, 2, -3},    {1, {1, 0}, 1, 0, -3},
               {1, {1, 0}, 1, -5, -3},    {1, {kMissing}, 1, 2, -1}, {1, {kMissing}, 12, 2, -3},
               {1, {kMissing}, 13, 2, 0}, {1, {1, 0}, 1, 2, 0}};
  for (const auto& c : cases) {
    // The names need no room for a suffix.
    Image in(Grid(6, 5, 1), std::vector(c.nvar, std::string(VORL_VARNAME_LENGTH - 1, 'x')), c.values);
    EXPECT_EQ(Compute(kCurves[0], in, c.step, true, c.nthreads), c.status);
  }
  Image in(Grid(4, 3, 2), {"a"}, {1, 0, 0});
  EXPECT_EQ(kCurves[0].serial(&in, 0.5, nullptr, nullptr, nullptr, nullptr, FALSE), -20);
  for (const CurveForms& forms : kCurves) {
    for (const bool forThreads : {false, true}) {
      ForEachFailingAllocation([&] { return Compute(forms, in, 0.5, forThreads, 2); });
    }
  }
}

TEST(DistanceMaps, Refusals) {
  std::vector<Maps> functions(std::begin(kMaps), std::end(kMaps));
  functions.push_back({false, false, false, "_distDilating",
                       [](VORL_IMAGE* in, VORL_IMAGE* out) {
                         int x[] = {1}, zero[] = {0};
                         return VORLImageDistanceByDilation(in, out, 1, x, zero, zero);
                       },
                       nullptr});
  Image image(Grid(4, 3, 2), {"v"}, {1, 0, 0});
  for (const Maps& maps : functions) {
    for (const int nthreads : {0, 2}) {
      for (const bool fits : {true, false}) {
        const std::size_t length = VORL_VARNAME_LENGTH - 1 - std::strlen(maps.suffix) + (fits ? 0 : 1);
        Image in(Grid(4, 3, 2), {"a", std::string(length, 'n')}, {1, 0, 0}), out;
        EXPECT_EQ(maps.Make(&in, &out, nthreads), fits ? 0 : -623);
        EXPECT_EQ(out.grid != nullptr, fits);
      }
    }
    Image out;
    EXPECT_EQ(maps.Make(&image, &out, -1), maps.threads == nullptr ? 0 : -3);
  }
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
