#include "numeric/special_functions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "numeric/special_functions.hpp"
#include "support/allocation_failure.hpp"

namespace {

// I, K and their derivatives from a multiple-precision package. Below 2 the gamma terms have single precision, an error
// of some 1e-7 that the alternating signs of the series raise near 2; from 2 on only rounding remains, and it grows with
// the steps of the recurrences.
TEST(Bessel, AgreesWithReference) {
  const struct {
    double nu, x, i, k, iPrime, kPrime;
  } rows[] = {
      {0, 0.05, 1.000625097663032, 3.1142340294719899, 0.025007813313844472, -19.909674325882506},
      {0, 1.999, 2.2779954074072242, 0.11403383058923292, 1.5891532106427282, -0.14004984207710966},
      {0, 2.0, 2.2795853023360673, 0.11389387274953344, 1.5906368546373291, -0.13986588181652243},
      {0, 60.0, 5.8940770556098012e+24, 1.4138978405591078e-27, 5.8447515883904678e+24, -1.4256320265171043e-27},
      {0.5, 0.05, 0.17848675941298306, 5.3316325691057589, 1.7878418777748435, -58.647958260163342},
      {0.5, 1.999, 2.0446265147728795, 0.12008779543145005, 1.6096644449039237, -0.15012476277298334},
      {0.5, 2.0, 2.0462368630890548, 0.11993777196806145, 1.6110324044053734, -0.14992221496007682},
      {0.5, 60.0, 5.881706576075187e+24, 1.4168223500353695e-27, 5.8326923546078935e+24, -1.4286292029523309e-27},
      {7.2, 0.05, 3.8596500995017619e-16, 179919773281978.16, 5.5580138145667996e-14, -25909172821498068},
      {7.2, 1.999, 0.00014871262974400614, 449.6869315989295, 0.0005535254433336747, -1690.0848792770648},
      {7.2, 2.0, 0.00014926705655607546, 448.00040561681345, 0.00055532902208793101, -1682.972644130921},
      {7.2, 60.0, 3.8145560168001766e+24, 2.1691208849436027e-27, 3.8104636694070077e+24, -2.2024346484979638e-27},
      {100, 1.999, 1.0293702890208802e-158, 4.8563682599051485e+155, 5.1504447283353508e-157, -2.4298890758699724e+157},
      {100, 2.0, 1.0821714745498606e-158, 4.6194159776012744e+155, 5.411928725670041e-157, -2.3101745483911888e+157},
      {100, 60.0, 2.8832770906491966e-07, 14870.0127549463, 5.5977596252006771e-07, -28935.099547447451},
  };
  for (const auto& row : rows) {
    double i, k, iPrime, kPrime;
    VORLbessik(row.x, row.nu, &i, &k, &iPrime, &kPrime);
    const double tolerance = row.x < 2.0 ? 2e-6 : 20 * (1 + row.nu) * std::numeric_limits<double>::epsilon();
    const double ratios[] = {i / row.i, k / row.k, iPrime / row.iPrime, kPrime / row.kPrime};
    for (const double ratio : ratios) EXPECT_NEAR(ratio, 1.0, tolerance) << row.nu << ", " << row.x;
  }
}

TEST(Bessel, KAloneHasTheSameBits) {
  for (const double nu : {0.0, 0.3, 0.5, 1.0, 1.5, 2.5, 7.2, 50.0}) {
    const kestrum::BesselK besselK(nu);
    for (double x = 0.01; x < 30.0; x *= 1.1) {
      double i, k, iPrime, kPrime;
      VORLbessik(x, nu, &i, &k, &iPrime, &kPrime);
      EXPECT_EQ(besselK(x), k) << nu << ", " << x;
    }
  }
}

// Reciprocals of the gamma function. The values have single precision and must not be better: covariances depend on it.
TEST(Bessel, GammaTermsHaveSinglePrecision) {
  for (double x = -0.5; x <= 0.5; x += 0.0625) {
    double gam1, gam2, gampl, gammi;
    VORLbeschb(x, &gam1, &gam2, &gampl, &gammi);
    EXPECT_NEAR(gampl, 1.0 / std::tgamma(1.0 + x), 5e-7) << x;
    EXPECT_NEAR(gammi, 1.0 / std::tgamma(1.0 - x), 5e-7) << x;
    EXPECT_EQ(gam1, static_cast<float>(gam1));
    EXPECT_EQ(gam2, static_cast<float>(gam2));
  }
}

TEST(Bessel, ChebyshevSum) {
  // T1, T2 and T3 at (2x - a - b)/(b - a) = 0.5: 0.5, -0.5, -1; half of the first coefficient counts.
  float c[] = {8.0F, 2.0F, 4.0F, 1.0F};
  EXPECT_EQ(VORLchebev(1.0F, 5.0F, c, 4, 4.0F), 4.0F + 1.0F - 2.0F - 1.0F);
  EXPECT_EQ(VORLchebev(1.0F, 5.0F, c, 1, 4.0F), 4.0F);
}

TEST(Gamma, AgreesWithReference) {
  const double rows[][2] = {
      {0.001, 6.9071788853838534}, {0.5, 0.57236494292470008}, {1, 0}, {2, 0}, {3.7, 1.4280723266653881},
      {171.5, 709.14316303092824}, {1e6, 12815504.569147611}};
  for (const auto& [x, expected] : rows) {
    EXPECT_NEAR(VORLgammln(x), expected, 1e-14 * std::max(1.0, std::fabs(expected))) << x;
  }
}

TEST(Distribution, InterquartileRange) {
  const struct {
    int n;
    real value[5];
    real expected;
  } rows[] = {
      {5, {4, 0, 3, 1, 2}, 2.0}, {4, {10, 0, 1, 5}, 6.25 - 0.75}, {2, {3, 1}, 1.0}, {1, {7}, 0.0}, {0, {}, 0.0}};
  for (auto row : rows) {
    real iqr = -1.0;
    EXPECT_EQ(VORLComputeIQRofReal(row.n, row.value, &iqr), 0);
    EXPECT_EQ(iqr, row.expected) << row.n;
  }
  real value[] = {2.0, 1.0};
  real iqr;
  kestrum_test::ForEachFailingAllocation([&] { return VORLComputeIQRofReal(2, value, &iqr); });
}

TEST(Distribution, UniformPositions) {
  real pdf[] = {0.25, 0.125, 0.5, 0.125};
  real position[4] = {-1, -1, -1, -1};
  EXPECT_EQ(VORLComputeNewVarValueUniform(0, nullptr, pdf, position), 0);
  EXPECT_EQ(position[0], -1);
  EXPECT_EQ(VORLComputeNewVarValueUniform(4, nullptr, pdf, position), 0);
  EXPECT_EQ(position[0], 0.0);
  EXPECT_DOUBLE_EQ(position[1], 0.25 + 0.125 / 3);
  EXPECT_DOUBLE_EQ(position[2], 0.375 + 0.5 * 2 / 3);
  EXPECT_EQ(position[3], 1.0);
  EXPECT_EQ(VORLComputeNewVarValueUniform(1, nullptr, pdf, position), 0);
  EXPECT_EQ(position[0], 0.0);
}

// Three classes whose middles are the distribution function at -1, s and 1.
TEST(Distribution, NormalPositions) {
  const auto cdf = [](double t) { return 0.5 * std::erfc(-t / std::sqrt(2.0)); };
  const double tail = 2 * cdf(-1.0);
  real even[] = {0.5, 0.5};
  real position[3];
  EXPECT_EQ(VORLComputeNewVarValueNormal(2, nullptr, even, position), 0);
  EXPECT_EQ(position[0], 0.0);
  EXPECT_EQ(position[1], 1.0);

  real three[] = {tail, 1 - 2 * tail, tail};  // scores -1, 0, 1
  EXPECT_EQ(VORLComputeNewVarValueNormal(3, nullptr, three, position), 0);
  EXPECT_NEAR(position[1], 0.5, 1e-12);

  // Middles 0.1, 0.3 and 0.7: scores -1.2815516, -0.5244005 and 0.5244005. Interpolation is good to 1e-5 here.
  real skewed[] = {0.2, 0.2, 0.6};
  EXPECT_EQ(VORLComputeNewVarValueNormal(3, nullptr, skewed, position), 0);
  EXPECT_NEAR(position[1], (1.2815516 - 0.5244005) / (1.2815516 + 0.5244005), 1e-5);

  // Middles beyond both ends of the table have the scores -7.495 and 7.495.
  real ends[] = {0.0, 1.0, 0.0};
  EXPECT_EQ(VORLComputeNewVarValueNormal(3, nullptr, ends, position), 0);
  EXPECT_EQ(position[1], 0.5);

  EXPECT_EQ(VORLComputeNewVarValueNormal(1, nullptr, even, position), -540);
  EXPECT_EQ(VORLComputeNewVarValueNormal(0, nullptr, nullptr, nullptr), 0);
}

TEST(Distribution, ConfidenceLevels) {
  real level[] = {0.0, 0.6826894921370859, 0.95, 0.99, 1.0, 1.5, -0.1, NAN};
  real factor[8];
  EXPECT_EQ(VORLConfidenceNormal(8, level, factor), 0);
  EXPECT_EQ(factor[0], 0.0);
  EXPECT_NEAR(factor[1], 1.0, 1e-12);
  EXPECT_NEAR(factor[2], 1.959963984540054, 1e-5);
  EXPECT_NEAR(factor[3], 2.575829303548901, 1e-5);
  EXPECT_EQ(factor[4], 1e25);
  for (int i = 5; i < 8; ++i) EXPECT_EQ(factor[i], -9999999.0);
}

TEST(Distribution, CumulationAndQuantiles) {
  real pdf[] = {0.5, 0.25, 0.25, 1.0}, own[4];
  EXPECT_EQ(VORLPdfToCdf(4, pdf, own), 0);
  const real expectedOwn[] = {0.0, 0.5 / 0.75, 0.75 / 0.75, HUGE_VAL};  // each entry's own share is left out
  EXPECT_TRUE(std::equal(own, own + 4, expectedOwn));

  real value[] = {10.0, 20.0, 40.0}, cdf[] = {0.25, 0.5, 0.75}, quantile[8];
  real probability[] = {0.0, 0.2, 0.25, 0.375, 0.5, 0.625, 0.75, 1.0};
  const real expected[] = {10.0, 10.0, 10.0, 15.0, 20.0, 30.0, 40.0, 40.0};
  EXPECT_EQ(VORLQuantileFromCdf(3, value, cdf, 8, probability, quantile), 0);
  EXPECT_TRUE(std::equal(quantile, quantile + 8, expected));
  EXPECT_EQ(VORLQuantileFromCdf(3, value, cdf, 0, nullptr, nullptr), 0);
}

}  // namespace
