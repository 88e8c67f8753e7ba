#include "numeric/normal_law.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "numeric/philox.hpp"

namespace {

using kestrum::kExactNormal;

long double Cdf(long double t) { return 0.5L * std::erfc(-t / std::numbers::sqrt2_v<long double>); }
long double Density(long double t) {
  return std::exp(-0.5L * t * t) / std::sqrt(2.0L * std::numbers::pi_v<long double>);
}

TEST(ExactNormal, ProbabilitiesAgainstLongDouble) {
  for (double t = -37.0; t < 9.0; t += 0.00371) {
    const long double expected = Cdf(t);
    EXPECT_LE(std::fabs(kExactNormal.cdf(t) - expected), 1e-13L * expected) << t;
  }
  EXPECT_EQ(kExactNormal.cdf(0.0), 0.5);
  EXPECT_EQ(kExactNormal.cdf(-1e9), 0.0);
  EXPECT_EQ(kExactNormal.cdf(1e9), 1.0);
  EXPECT_EQ(kExactNormal.cdf(-INFINITY), 0.0);
  EXPECT_EQ(kExactNormal.cdf(INFINITY), 1.0);
}

// One step of Newton's from the quantile says how far it is off.
TEST(ExactNormal, QuantilesAgainstLongDouble) {
  std::vector<double> probabilities = {0.075, 0.0750000001, 0.0749999999, 0.925, 0.5, 0x1p-53, 1.0 - 0x1p-53};
  for (double p = 1.0; p > 1e-300; p *= 0.97) probabilities.insert(probabilities.end(), {0.5 * p, 1.0 - 0.5 * p});
  for (const double p : probabilities) {
    if (p == 1.0) continue;
    const double t = kExactNormal.quantile(p);
    const long double error = p < 0.5 ? (Cdf(t) - p) / Density(t) : ((1.0L - p) - Cdf(-t)) / Density(t);
    EXPECT_LE(std::fabs(error), 2e-15L * std::fabs(t)) << p;
  }
  for (const double p : {0.0, 1.0}) EXPECT_TRUE(std::isfinite(kExactNormal.quantile(p)));
}

// Kolmogorov and Smirnov's distance between a sample and the law: above 2.2 / sqrt(n) once in 8,000 samples.
TEST(ExactNormal, DrawsHaveTheLaw) {
  constexpr std::uint32_t kCount = 200000;
  std::vector<double> draws;
  for (std::uint32_t i = 0; i < kCount; ++i) {
    const kestrum::PhiloxBlock block = kestrum::Philox({i, 0, 0, 0}, 5);
    draws.push_back(kExactNormal.quantile(kestrum::OpenUniform(kestrum::PhiloxWord(block, 0))));
  }
  std::sort(draws.begin(), draws.end());
  double distance = 0.0;
  for (std::uint32_t i = 0; i < kCount; ++i) {
    const double p = static_cast<double>(Cdf(draws[i]));
    distance = std::max({distance, std::fabs(p - static_cast<double>(i) / kCount), std::fabs(p - (i + 1.0) / kCount)});
  }
  EXPECT_LT(distance, 2.2 / std::sqrt(kCount));
  EXPECT_LT(kestrum::OpenUniform(~std::uint64_t{0}), 1.0);
  EXPECT_GT(kestrum::OpenUniform(0), 0.0);
}

}  // namespace
