#include "numeric/normal_table.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

using namespace kestrum;

// The complementary error function is good to an ulp or so, and entries are rounded to 15 decimals.
TEST(NormalTable, EntriesAreTheDistributionFunction) {
  for (int i = 0; i < kNormalTableSize; ++i) {
    EXPECT_NEAR(kNormalTable[i], 0.5 * std::erfc(-0.005 * i / std::sqrt(2.0)), 0.8e-15) << i;
    EXPECT_EQ(kNormalTable[i], std::round(kNormalTable[i] * 1e15) / 1e15) << i;
    if (i > 0) {
      EXPECT_LT(kNormalTable[i - 1], kNormalTable[i]);
    }
  }
  EXPECT_EQ(kNormalTable[1], 0.501994703090741);
  EXPECT_EQ(kNormalTable[1499], 0.999999999999967);
}

// Linear interpolation is off by at most step^2/8 times the largest second derivative, 0.242: below 8e-7.
TEST(NormalTable, DistributionFunctionInterpolates) {
  for (double t = -7.49; t < 7.49; t += 0.0037)
    EXPECT_NEAR(NormalCdf(t), 0.5 * std::erfc(-t / std::sqrt(2.0)), 8e-7) << t;
  EXPECT_EQ(NormalCdf(0.0), 0.5);
  EXPECT_EQ(NormalCdf(-0.0), 0.5);
  for (const double t : {7.5, 40.0, 1e300, HUGE_VAL}) {
    EXPECT_TRUE(IsBeyondNormalTable(t) && IsBeyondNormalTable(-t));
    EXPECT_EQ(NormalCdf(t), 0.999999999999967);
    EXPECT_EQ(NormalCdf(-t), 1.0 - 0.999999999999967);
  }
  EXPECT_FALSE(IsBeyondNormalTable(-7.49));
  EXPECT_TRUE(IsBeyondNormalTable(std::numeric_limits<double>::quiet_NaN()));
}

TEST(NormalTable, QuantileInvertsTheDistributionFunction) {
  for (double t = 0.0; t < 5.0; t += 0.0037) EXPECT_NEAR(UpperNormalQuantile(NormalCdf(t)), t, 1e-9) << t;
  for (int i = 0; i < kNormalTableSize; ++i) {
    EXPECT_EQ(NormalTableFloor(kNormalTable[i]), i);
    EXPECT_EQ(NormalTableFloor(std::nextafter(kNormalTable[i], 0.0)), i == 0 ? 0 : i - 1);
  }
  EXPECT_EQ(UpperNormalQuantile(0.999999999999967), 7.495);
  EXPECT_EQ(UpperNormalQuantile(1.0), 7.495);
}

}  // namespace
