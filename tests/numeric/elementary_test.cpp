#include "numeric/elementary.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

#include "support/simd_levels.hpp"

namespace {

using kestrum::Elementary;
using Limits = std::numeric_limits<double>;

// Long double is correct to 2^-11 units of double in its own functions; the argument is reduced exactly.
long double SineOfPi(long double x, int quarters) {
  const long double turned = std::fmod(x, 2.0L);
  const long double quarter = std::round(2.0L * turned);
  const long double angle = std::numbers::pi_v<long double> * (turned - quarter / 2.0L);
  const int q = (static_cast<int>(quarter) + quarters) & 3;
  const long double value = q % 2 == 0 ? std::sin(angle) : std::cos(angle);
  return q < 2 ? value : -value;
}

long double Reference(Elementary function, long double x, long double y) {
  switch (function) {
    case Elementary::kExp:
      return std::exp(x);
    case Elementary::kExpMinusOne:
      return std::expm1(x);
    case Elementary::kLog:
      return std::log(x);
    case Elementary::kPow:
      return std::pow(x, y);
    case Elementary::kSinPi:
      return SineOfPi(x, 0);
    case Elementary::kCosPi:
      return SineOfPi(x, 1);
    case Elementary::kSquareRoot:
      return std::sqrt(x);
  }
  return 0.0L;
}

// The distance in units in the last place of the reference, those of subnormal numbers being all alike.
long double Units(double value, long double reference) {
  int exponent;
  std::frexp(reference, &exponent);
  return std::fabs(value - reference) / std::ldexp(1.0L, std::max(exponent - Limits::digits, -1074));
}

// Numbers whose bits are uniform between those of two others, so that all sizes are as frequent. No library function
// takes part: they are the same everywhere.
class Arguments {
 public:
  double Between(double low, double high) {
    const auto first = std::bit_cast<std::uint64_t>(low);
    return std::bit_cast<double>(first + generator_() % (std::bit_cast<std::uint64_t>(high) - first));
  }
  bool Flip() { return generator_() % 2 == 0; }

 private:
  std::mt19937_64 generator_{7};
};

struct Range {
  Elementary function;
  double low, high;  // of sizes
  bool bothSigns;
  double units;        // largest error
  std::uint64_t hash;  // of the bits of all results
  double exponent = 0.0;
};

const Range kRanges[] = {
    {Elementary::kExp, 1e-20, 709.7, true, 0.8, 7833392996040171010},
    {Elementary::kExp, 0.1, 3.0, true, 0.8, 4080255791316211169},
    {Elementary::kExpMinusOne, 1e-300, 699.0, true, 2.0, 7795754819653791310},
    {Elementary::kExpMinusOne, 0.1, 3.0, true, 2.0, 7289769228789012753},
    {Elementary::kLog, 5e-324, Limits::max(), false, 0.9, 5476585028220249646},
    {Elementary::kLog, 0.5, 2.0, false, 0.9, 7736988115374937548},
    {Elementary::kPow, 1e-30, 1e30, false, 0.85, 7742444308278815762, 0.65},
    {Elementary::kPow, 5e-324, 1e300, false, 0.85, 8982752081181770230, 0.95},
    {Elementary::kPow, 0.3, 3.0, false, 0.85, 5876338723732060967, -100.5},
    {Elementary::kPow, 1e-8, 1e8, false, 0.85, 6003155139606867939, 38.2},
    {Elementary::kSinPi, 1e-300, 2.0, true, 0.85, 6976227664506652511},
    {Elementary::kSinPi, 0.1, 1e16, true, 0.85, 3168939980945457804},
    {Elementary::kCosPi, 1e-5, 1e4, true, 0.85, 118053614048554192},
};

// The number of arguments of each range is KESTRUM_ARGUMENTS, if that is set.
TEST(Elementary, IsRightToOneUnitWithTheSameBitsEverywhere) {
  constexpr int kChunk = 4001;  // which leaves a rest for every width
  const char* const count = std::getenv("KESTRUM_ARGUMENTS");
  const long chunks = std::max(1L, (count == nullptr ? 80000 : std::atol(count)) / kChunk);
  for (const Range& range : kRanges) {
    Arguments arguments;
    std::vector<double> x(kChunk), value, other;
    std::uint64_t hash = 0;
    long double worst = 0.0L;
    double worstAt = 0.0;
    for (long chunk = 0; chunk < chunks; ++chunk) {
      for (double& v : x) {
        v = arguments.Between(range.low, range.high);
        if (range.bothSigns && arguments.Flip()) v = -v;
      }
      for (const kestrum::SimdLevel level : kestrum_test::Levels()) {
        other = x;
        kestrum::Evaluate(range.function, kChunk, other.data(), range.exponent, level);
        if (level == kestrum::SimdLevel::kBaseline) value = other;
        ASSERT_EQ(value, other) << "level " << static_cast<int>(level);
      }
      for (const double v : value) hash = (hash ^ std::bit_cast<std::uint64_t>(v)) * 0x9E3779B97F4A7C15 >> 1;
      for (int i = 0; i < kChunk; ++i) {
        const long double units = Units(value[i], Reference(range.function, x[i], range.exponent));
        if (!(units <= worst)) worst = units, worstAt = x[i];
      }
    }
    const auto name = [&] { return testing::Message() << static_cast<int>(range.function) << " up to " << range.high; };
    if (count == nullptr) {
      EXPECT_EQ(hash, range.hash) << name();
    }
    if (std::numeric_limits<long double>::digits >= 64) {
      EXPECT_LE(worst, range.units) << name() << " at " << worstAt;
    }
  }
}

TEST(Elementary, Extremes) {
  const double inf = Limits::infinity(), nan = Limits::quiet_NaN(), least = Limits::denorm_min(), most = Limits::max();
  const struct {
    Elementary function;
    double x, y, value;
  } rows[] = {
      {Elementary::kExp, 0.0, 0.0, 1.0},
      {Elementary::kExp, -inf, 0.0, 0.0},
      {Elementary::kExp, inf, 0.0, inf},
      {Elementary::kExp, 709.79, 0.0, inf},
      {Elementary::kExp, -745.2, 0.0, 0.0},
      {Elementary::kExp, -745.1, 0.0, least},
      {Elementary::kExp, nan, 0.0, nan},
      {Elementary::kExpMinusOne, 0.0, 0.0, 0.0},
      {Elementary::kExpMinusOne, least, 0.0, least},
      {Elementary::kExpMinusOne, -inf, 0.0, -1.0},
      {Elementary::kExpMinusOne, nan, 0.0, nan},
      {Elementary::kLog, 1.0, 0.0, 0.0},
      {Elementary::kLog, 0.0, 0.0, -inf},
      {Elementary::kLog, -0.0, 0.0, -inf},
      {Elementary::kLog, -1.0, 0.0, nan},
      {Elementary::kLog, inf, 0.0, inf},
      {Elementary::kLog, nan, 0.0, nan},
      {Elementary::kPow, 0.0, 2.0, 0.0},
      {Elementary::kPow, 0.0, -2.0, inf},
      {Elementary::kPow, 0.0, 0.0, 1.0},
      {Elementary::kPow, nan, 0.0, 1.0},
      {Elementary::kPow, inf, 2.0, inf},
      {Elementary::kPow, inf, -2.0, 0.0},
      {Elementary::kPow, most, 1.0, most},
      {Elementary::kPow, least, 1.0, least},
      {Elementary::kPow, most, 1e300, inf},
      {Elementary::kPow, most, -1e300, 0.0},
      {Elementary::kPow, 3.0, 2.0, 9.0},
      {Elementary::kPow, 1.0, 1e300, 1.0},
      {Elementary::kPow, -1.0, 2.0, nan},
      {Elementary::kPow, nan, 2.0, nan},
      {Elementary::kSinPi, 0.5, 0.0, 1.0},
      {Elementary::kSinPi, -1.5, 0.0, 1.0},
      {Elementary::kSinPi, 7.0, 0.0, 0.0},
      {Elementary::kSinPi, least, 0.0, 3 * least},
      {Elementary::kSinPi, most, 0.0, 0.0},
      {Elementary::kSinPi, inf, 0.0, nan},
      {Elementary::kCosPi, 0.5, 0.0, 0.0},
      {Elementary::kCosPi, 0x1p53 - 1.0, 0.0, -1.0},
      {Elementary::kCosPi, most, 0.0, 1.0},
      {Elementary::kCosPi, nan, 0.0, nan},
  };
  for (const auto& [function, x, y, value] : rows) {
    for (const kestrum::SimdLevel level : kestrum_test::Levels()) {
      double result = x;
      kestrum::Evaluate(function, 1, &result, y, level);
      EXPECT_TRUE(std::isnan(value) ? std::isnan(result) : result == value)
          << static_cast<int>(function) << " of " << x << ", " << y << ": " << result;
    }
  }
  // Results that have few bits are rounded once: to half a unit of the least number, and what the rest errs.
  for (double x = -746.0; x < -708.0; x += 1.0 / 64) {
    const long double exact = std::exp(static_cast<long double>(x));
    for (const kestrum::SimdLevel level : kestrum_test::Levels()) {
      double result = x;
      kestrum::Evaluate(Elementary::kExp, 1, &result, 0.0, level);
      const long double error = std::abs(result - exact);
      EXPECT_LE(error, 0.5L * least + 3e-16L * exact) << x << " level " << static_cast<int>(level);
      EXPECT_EQ(result, kestrum::Exp(x));
    }
  }
  EXPECT_DOUBLE_EQ(kestrum::Exp(1.0), std::numbers::e);
  EXPECT_DOUBLE_EQ(kestrum::ExpMinusOne(1.0), std::numbers::e - 1.0);
  EXPECT_DOUBLE_EQ(kestrum::Log(2.0), std::numbers::ln2);
  EXPECT_DOUBLE_EQ(kestrum::Pow(2.0, 0.5), std::numbers::sqrt2);
  EXPECT_DOUBLE_EQ(kestrum::SinPi(0.25), std::numbers::sqrt2 / 2.0);
  EXPECT_DOUBLE_EQ(kestrum::CosPi(-0.25), std::numbers::sqrt2 / 2.0);
}

// Square roots of numbers of all sizes, and of all those whose root lies next to a midpoint of two numbers: with x = X 2^s,
// odd squares M^2 = X 2^(54 + s) + r for small r.
TEST(Elementary, RoundsSquareRoots) {
  __extension__ typedef unsigned __int128 Wide;
  Arguments arguments;
  std::vector<double> x = {
      0.0,         -0.0, 1.0, -1.0, std::numeric_limits<double>::denorm_min(), std::numeric_limits<double>::infinity(),
      std::nan("")};
  for (int i = 0; i < 50000; ++i) {
    const double base = arguments.Between(1.0, 4.0);
    x.push_back(base);
    x.push_back(std::ldexp(base, i % 2040 - 1060));
  }
  const auto plain = x.size();
  for (const int bits : {54, 55}) {
    const std::uint64_t mask = (std::uint64_t{1} << bits) - 1;
    for (long r = -1023; r < 1024; r += 8) {
      const std::uint64_t remainder = static_cast<std::uint64_t>(r) & mask;
      std::uint64_t root = 1;
      for (int bit = 3; bit < bits; ++bit)
        root += (root * root - remainder) >> bit & 1 ? std::uint64_t{1} << (bit - 1) : 0;
      for (const std::uint64_t other : {root, 0 - root, root + (mask + 1) / 2, (mask + 1) / 2 - root}) {
        const std::uint64_t m = other & mask;
        if (m < std::uint64_t{1} << 53 || m >= std::uint64_t{1} << 54) continue;
        const auto square = static_cast<Wide>(m) * m - static_cast<Wide>(r);
        ASSERT_EQ(static_cast<std::uint64_t>(square) & mask, 0);
        const auto high = static_cast<std::uint64_t>(square >> bits);
        if (high >> 53 == 0) x.push_back(std::ldexp(static_cast<double>(high), bits - 106));
      }
    }
  }
  EXPECT_GT(x.size(), plain + 200);
  for (const kestrum::SimdLevel level : kestrum_test::Levels()) {
    std::vector<double> roots = x;
    kestrum::Evaluate(Elementary::kSquareRoot, static_cast<int>(x.size()), roots.data(), 0.0, level);
    for (std::size_t i = 0; i < x.size(); ++i) {
      const double expected = std::sqrt(x[i]);
      ASSERT_TRUE(std::isnan(expected) ? std::isnan(roots[i])
                                       : roots[i] == expected && std::signbit(roots[i]) == std::signbit(expected))
          << x[i];
    }
  }
}

}  // namespace
