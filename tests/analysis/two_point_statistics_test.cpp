#include "analysis/two_point_statistics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "analysis/two_point_statistics.hpp"
#include "core/constants.h"
#include "support/test_image.hpp"

namespace {

using namespace kestrum_test;
using kestrum::Dealing;
using kestrum::LagAxis;
using kestrum::LagBox;
using kestrum::TwoPointStatistic;

const double kNan = std::nan("");

using Serial = decltype(&VORLImageVariogram);
using Threaded = decltype(&VORLOMPImageVariogram);
struct Form {
  Serial serial;
  Threaded threaded;
  const char* suffix;
};
// In the order of TwoPointStatistic.
const Form kForms[] = {{VORLImageVariogram, VORLOMPImageVariogram, "_variogram"},
                       {VORLImageCovariance, VORLOMPImageCovariance, "_covariance"},
                       {VORLImageCovarianceNotCentred, VORLOMPImageCovarianceNotCentred, "_covariance_not_centred"},
                       {VORLImageCorrelogram, VORLOMPImageCorrelogram, "_correlogram"},
                       {VORLImageTransiogram, VORLOMPImageTransiogram, "_transiogram"},
                       {VORLImageConnectivityFunction0, VORLOMPImageConnectivityFunction0, "_connectivityFunction"},
                       {VORLImageConnectivityFunction1, VORLOMPImageConnectivityFunction1, "_connectivityFunction"},
                       {VORLImageConnectivityFunction2, VORLOMPImageConnectivityFunction2, "_connectivityFunction"}};
constexpr int kStatistics = 8;

// nthreads 0: the serial form.
int Call(const Form& form, TestImage& in, TestImage& out, int variable, const LagBox& box, bool verbose, int nthreads) {
  const auto& [x, y, z] = box.axis;
  return nthreads == 0 ? form.serial(&in, &out, variable, x.min, x.max, x.step, y.min, y.max, y.step, z.min, z.max,
                                     z.step, verbose)
                       : form.threaded(&in, &out, variable, x.min, x.max, x.step, y.min, y.max, y.step, z.min, z.max,
                                       z.step, verbose, nthreads);
}

// One lag by the plain loop.
double PlainValue(int statistic, const VORL_GRID& grid, const double* v, int hx, int hy, int hz) {
  double n = 0, c = 0, h = 0, sa = 0, sb = 0, saa = 0, sab = 0, sbb = 0, sdd = 0;
  for (int z = 0; z < grid.nz; ++z) {
    for (int y = 0; y < grid.ny; ++y) {
      for (int x = 0; x < grid.nx; ++x) {
        if (x + hx < 0 || x + hx >= grid.nx || y + hy < 0 || y + hy >= grid.ny || z + hz < 0 || z + hz >= grid.nz) {
          continue;
        }
        const double a = v[(z * grid.ny + y) * grid.nx + x];
        const double b = v[((z + hz) * grid.ny + y + hy) * grid.nx + x + hx];
        if (statistic < 5 && (a == kMissing || b == kMissing)) continue;
        n += 1;
        sa += a;
        sb += b;
        saa += a * a;
        sab += a * b;
        sbb += b * b;
        sdd += (a - b) * (a - b);
        c += a > 0 && (statistic != 7 || b > 0);
        h += a > 0 && (statistic == 4 ? b > 0 : a == b);
      }
    }
  }
  if (n == 0) return kMissing;
  switch (statistic) {
    case 0:
      return 0.5 / n * sdd;
    case 1:
      return (sab - sa / n * sb) / n;
    case 2:
      return sab / n;
    case 3:
      return (sab - sa / n * sb) / std::sqrt((sbb - sb * sb / n) * (saa - sa / n * sa));
    case 5:
      return h / n;
    default:
      return c == 0 ? 0.0 : h / c;
  }
}

Values PlainMap(int statistic, const VORL_GRID& grid, const double* v, const LagBox& box) {
  Values map;
  const auto& [x, y, z] = box.axis;
  for (long hz = z.min; hz <= z.max; hz += z.step) {
    for (long hy = y.min; hy <= y.max; hy += y.step) {
      for (long hx = x.min; hx <= x.max; hx += x.step) {
        map.push_back(PlainValue(statistic, grid, v, static_cast<int>(hx), static_cast<int>(hy), static_cast<int>(hz)));
      }
    }
  }
  return map;
}

// One not-a-number is like another.
void ExpectSameBits(const TestImage& map, const Values& expected) {
  const Values values = map.Values();
  const auto [at, wanted] =
      std::mismatch(values.begin(), values.end(), expected.begin(), expected.end(), [](double a, double b) {
        return std::isnan(a) ? std::isnan(b) : std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
      });
  ASSERT_TRUE(at == values.end() && wanted == expected.end()) << at - values.begin();
}

// All statistics, serially and with some number of threads that changes from call to call, against
// the plain loop, for the second of two variables.
void ExpectPlainMaps(const VORL_GRID& sizes, const Values& values, const LagBox& box, int call) {
  SCOPED_TRACE(testing::Message() << "call " << call << ": " << sizes.nx << 'x' << sizes.ny << 'x' << sizes.nz);
  Values both(values.size(), 7.0);
  both.insert(both.end(), values.begin(), values.end());
  TestImage image(sizes, {"first", "second"}, both);
  for (int s = 0; s < kStatistics; ++s) {
    SCOPED_TRACE(s);
    const Values expected = PlainMap(s, *image.grid, values.data(), box);
    constexpr int kThreads[] = {1, 2, 3, 8, -1};
    for (const int nthreads : {0, kThreads[(call + s) % 5]}) {
      SCOPED_TRACE(nthreads);
      TestImage map;
      ASSERT_EQ(Call(kForms[s], image, map, 1, box, false, nthreads), 0);
      ASSERT_NO_FATAL_FAILURE(ExpectSameBits(map, expected));
    }
  }
  EXPECT_EQ(std::memcmp(image.var, both.data(), both.size() * sizeof(double)), 0);
}

class RandomCase {
 public:
  explicit RandomCase(unsigned seed) : generator_(seed) {}

  int Int(int low, int high) { return std::uniform_int_distribution<int>(low, high)(generator_); }

  LagAxis Axis(int n) {
    const int low = Int(1 - n, n - 1);
    switch (Int(0, 3)) {
      case 0:
        return {low, low, 1};
      case 1:
        return {-std::abs(low), std::abs(low), std::gcd(2 * low, Int(1, 4))};  // lags with their opposites
      case 2:
        return {low, Int(low, n - 1), 1};
      default:
        return {low, Int(low, n - 1), Int(1, 4)};
    }
  }

  Values Variable(int size) {
    const int kind = Int(0, 3);  // labels, labels, real numbers, real numbers and others
    const int missingPercent = Int(0, 1) == 0 ? 0 : Int(0, 2) * 50;
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    const double odd[] = {kNan, INFINITY, -INFINITY, -0.0, 5e-324, 1e308, kMissing + 1e-9};
    Values values(size);
    for (double& value : values) {
      value = kind < 2 ? Int(-1, 3) : uniform(generator_) * 1e3;
      if (kind == 3 && Int(0, 40) == 0) value = odd[Int(0, 6)];
      if (kind == 3 && Int(0, 9) == 0) value = -0.0;
      if (Int(0, 99) < missingPercent) value = kMissing;
    }
    return values;
  }

 private:
  std::mt19937 generator_;
};

TEST(TwoPointStatistics, AreThoseOfThePlainLoop) {
  const int sizes[][3] = {{1, 1, 1},  {2, 1, 1},  {150, 1, 1}, {1, 90, 1}, {1, 1, 70}, {40, 5, 1}, {6, 50, 1},
                          {1, 9, 30}, {45, 1, 8}, {17, 19, 1}, {5, 6, 7},  {3, 4, 40}, {21, 3, 4}, {64, 2, 1}};
  RandomCase random(1);
  int call = 0;
  for (int round = 0; round < 6; ++round) {
    for (const auto& [nx, ny, nz] : sizes) {
      const LagBox box{{random.Axis(nx), random.Axis(ny), random.Axis(nz)}};
      ExpectPlainMaps({nx, ny, nz, 1, 1, 1, 0, 0, 0, 0, 0}, random.Variable(nx * ny * nz), box, call++);
      if (HasFatalFailure()) return;
    }
  }
  // A step beyond the lags.
  ExpectPlainMaps({40, 5, 1, 1, 1, 1, 0, 0, 0, 0, 0}, random.Variable(200), {{{-3, 2, INT_MAX}, {-2, 2, 3}, {0, 0, 1}}},
                  call);
}

// A row of three nodes and a missing one: pairs (1,4), (4,4) at lag 1; one pair at lag 2; none at lag 3.
TEST(TwoPointStatistics, OfAShortRow) {
  const Values expected[] = {{kMissing, 4.5, 2.25, 0, 2.25, 4.5, kMissing},
                             {kMissing, 0, 0, 2, 0, 0, kMissing},
                             {kMissing, 4, 10, 11, 10, 4, kMissing},
                             {kMissing, kNan, kNan, 1, kNan, kNan, kMissing},
                             {kMissing, 1, 1, 1, 1, 1, kMissing},
                             {0, 0, 1.0 / 3, 0.75, 1.0 / 3, 0, 0},
                             {0, 0, 0.5, 1, 1.0 / 3, 0, 0},
                             {0, 0, 0.5, 1, 0.5, 0, 0}};
  TestImage row({4, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0}, {"v"}, {1, 4, 4, kMissing});
  for (int s = 0; s < kStatistics; ++s) {
    SCOPED_TRACE(s);
    TestImage map;
    ASSERT_EQ(Call(kForms[s], row, map, 0, {{{-3, 3, 1}, {0, 0, 0}, {0, 0, -5}}}, false, 0), 0);
    ExpectSameBits(map, expected[s]);
  }
}

TEST(TwoPointStatistics, FrameAndName) {
  TestImage image({20, 9, 4, 2.0, 0.3, 0.5, 100.0, 200.0, 300.0, 0, 0}, {"u", "facies"}, {0.0});
  const LagBox box{{{-19, -3, 5}, {0, 8, 3}, {2, 2, INT_MIN}}};
  VORL_GRID expected{4, 3, 1, 10.0, 0.3 * 3, 0.5, 2.0 * -19 - 5.0, 0.3 * 0 - 0.5 * (0.3 * 3), 0.75, 12, 12};
  for (const Form& form : kForms) {
    TestImage map;
    ASSERT_EQ(Call(form, image, map, 1, box, false, 2), 0);
    EXPECT_EQ(VORLCmpGrid(map.grid, &expected), 0);
    EXPECT_TRUE(map.nvar == 1 && map.nxyzv == 12);
    EXPECT_EQ(map.varName[0], std::string("facies") + form.suffix);
  }
}

TEST(TwoPointStatistics, Refusals) {
  TestImage image({5, 4, 3, 1, 1, 1, 0, 0, 0, 0, 0}, {"v"}, {1});
  const auto expect = [&image](int variable, const LagBox& box, int status) {
    for (const Form& form : kForms) {
      for (const int nthreads : {0, 2}) {
        TestImage map;
        EXPECT_EQ(Call(form, image, map, variable, box, false, nthreads), status);
        EXPECT_EQ(map.var, nullptr) << status;
      }
    }
  };
  // The box has all faults, and loses them one by one in the order in which they are reported.
  LagBox box{{{-5, 5, 0}, {-4, 4, -1}, {-3, 3, INT_MIN}}};
  for (const int variable : {-1, 1}) expect(variable, box, -1100);
  const struct {
    int axis, status;
    int LagAxis::*field;
    int sound;
  } faults[] = {{0, -2012, &LagAxis::min, -3}, {0, -2015, &LagAxis::max, -4},       {1, -2013, &LagAxis::min, -2},
                {1, -2016, &LagAxis::max, -3}, {2, -2014, &LagAxis::min, -1},       {2, -2017, &LagAxis::max, -2},
                {0, -2018, &LagAxis::max, 4},  {1, -2019, &LagAxis::max, 3},        {2, -2020, &LagAxis::max, 2},
                {0, -2021, &LagAxis::step, 1}, {1, -2022, &LagAxis::step, INT_MAX}, {2, -2023, &LagAxis::step, 1}};
  for (const auto& [axis, status, field, sound] : faults) {
    expect(0, box, status);
    box.axis[axis].*field = sound;
  }
  expect(0, {{{INT_MIN, 5, 0}, {0, 0, 0}, {0, 0, 0}}}, -2012);
  expect(0, {{{4, INT_MAX, 0}, {0, 0, 0}, {0, 0, 0}}}, -2015);
  const LagAxis none{0, 0, 1};
  const LagBox centre{{none, none, none}};
  std::memset(image.varName[0], 'v', VORL_VARNAME_LENGTH - 1);
  expect(0, centre, -623);
  VORL_GRID* const grid = image.grid;
  VORL_GRID other = *grid;
  image.grid = &other;
  other = {1024, 1024, 300, 1, 1, 1, 0, 0, 0, 1 << 20, 300 << 20};  // never walked
  image.nxyzv = other.nxyz;
  image.varName[0][1] = '\0';
  expect(0, {{{-1023, 1023, 1}, {-1023, 1023, 1}, {-299, 299, 1}}}, -620);
  image.grid = nullptr;
  expect(0, centre, -20);
  image.grid = grid;
}

TEST(TwoPointStatistics, Progress) {
  TestImage image({16, 12, 3, 1, 1, 1, 0, 0, 0, 0, 0}, {"v"}, {1, 2, 3, 5, 8});
  const LagBox boxes[] = {{{{0, 0, 1}, {0, 0, 1}, {0, 0, 1}}},
                          {{{0, 6, 1}, {0, 0, 1}, {0, 0, 1}}},
                          {{{-15, 15, 1}, {-11, 11, 1}, {-2, 2, 1}}},
                          {{{-15, 12, 3}, {-11, 11, 2}, {-2, 1, 1}}}};
  for (const LagBox& box : boxes) {
    for (const int nthreads : {0, 1, 2, 3, 8}) {
      const int nlags = static_cast<int>(PlainMap(5, *image.grid, image.var, box).size());
      const double step = 100.0 / nlags;
      std::string expected;
      int last = 0;
      const auto report = [&](int percent) {
        if (percent <= last) return;
        last = percent;
        char line[40];
        std::snprintf(line, sizeof(line), "Progress: %3d %%\n", percent);
        expected += line;
      };
      for (int i = 0; i < nlags; i += std::max(1, nthreads)) {
        report(static_cast<int>((nthreads == 0 ? i + 1 : i) * step));
      }
      if (nthreads > 0) report(100);
      for (const bool verbose : {true, false}) {
        TestImage map;
        testing::internal::CaptureStdout();
        EXPECT_EQ(Call(kForms[1], image, map, 0, box, verbose, nthreads), 0);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), verbose ? expected : "") << nlags << ' ' << nthreads;
      }
    }
  }
}

}  // namespace
