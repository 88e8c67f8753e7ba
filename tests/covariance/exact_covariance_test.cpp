#include "covariance/exact_covariance.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numbers>
#include <random>
#include <vector>

#include "covariance/cov_evaluation.h"
#include "support/simd_levels.hpp"

namespace {

using kestrum::ExactCovariance;
using kestrum::SimdLevel;
using kestrum_test::Levels;

constexpr long double kPi = std::numbers::pi_v<long double>;

// 2 (u/2)^nu K_nu(u) / Gamma(nu), from K_nu(u) = integral of exp(-u cosh t) cosh(nu t) from 0 on. The trapezoidal rule
// converges faster than any power of its step for it: with 1/16, to far below the rounding of long double. The integrand
// is taken with the factor in its exponent, which does not overflow.
long double MaternReference(long double nu, long double u) {
  if (u == 0.0L) return 1.0L;
  constexpr long double kStep = 1.0L / 16.0L;
  const long double logFactor = std::log(2.0L) + nu * std::log(u / 2.0L) - std::lgamma(nu);
  long double sum = 0.5L * std::exp(logFactor - u);
  for (int k = 1;; ++k) {
    const long double t = k * kStep;
    const long double exponent = logFactor - u * std::cosh(t) + nu * t;
    sum += 0.5L * std::exp(exponent) * (1.0L + std::exp(-2.0L * nu * t));
    if (exponent < -60.0L && u * std::sinh(t) > nu) return kStep * sum;
  }
}

// The correlation of an element at distance h.
long double Reference(int type, long double s, long double h) {
  switch (type) {
    case COV_NUGGET:
      return h == 0.0L ? 1.0L : 0.0L;
    case COV_SPHERICAL:
      return h < 1.0L ? 1.0L - 1.5L * h + 0.5L * h * h * h : 0.0L;
    case COV_EXPONENTIAL:
      return std::exp(-3.0L * h);
    case COV_GAUSSIAN:
      return std::exp(-3.0L * h * h);
    case COV_LINEAR:
      return h < 1.0L ? 1.0L - h : 0.0L;
    case COV_CUBIC:
      return h < 1.0L ? 1.0L - 7.0L * h * h + 8.75L * std::pow(h, 3.0L) - 3.5L * std::pow(h, 5.0L) +
                            0.75L * std::pow(h, 7.0L)
                      : 0.0L;
    case COV_SINUS_CARDINAL:
      return h == 0.0L ? 1.0L : std::sin(kPi * h) / (kPi * h);
    case COV_GAMMA:
      // 20^(1/s) overflows here, and nothing is left of the 1 it is added to.
      if (s < 0.001L) return h == 0.0L ? 1.0L : std::pow(h, -s) / 20.0L;
      return std::pow(1.0L + std::expm1(std::log(20.0L) / s) * h, -s);
    case COV_POWER:
      return 1.0L - std::pow(h, s);
    case COV_EXPONENTIAL_GENERALIZED:
      return std::exp(-3.0L * std::pow(h, s));
    default:
      return MaternReference(s, h * std::sqrt(2.0L * s));
  }
}

struct Model {
  explicit Model(int count) : elements(static_cast<std::size_t>(count)) {
    for (VORL_COVMODELELEM& element : elements) VORLKestrumInitCovModelElem(&element);
    VORLKestrumInitCovModel(&record);
    record.nelem = count;
    record.covModelElem = elements.data();
  }
  void Set(int i, int type, real w, real rx, real ry, real rz, real s) {
    VORL_COVMODELELEM& e = elements[static_cast<std::size_t>(i)];
    e.covModelType = static_cast<VORL_COVMODELTYPE>(type);
    e.weightValue = w;
    e.rxValue = rx;
    e.ryValue = ry;
    e.rzValue = rz;
    e.sValue = s;
  }
  std::vector<VORL_COVMODELELEM> elements;
  VORL_COVMODEL record;
};

std::vector<real> Evaluate(const Model& model, const std::vector<real>& x, const std::vector<real>& y,
                           const std::vector<real>& z) {
  ExactCovariance covariance;
  EXPECT_EQ(covariance.Allocate(model.record.nelem), 0);
  covariance.Prepare(model.record, kestrum::ConstantParameters{});
  std::vector<real> cov;
  for (const SimdLevel level : Levels()) {
    std::vector<real> at(x.size(), -99.0);
    covariance.Evaluate(static_cast<int>(x.size()), x.data(), y.data(), z.data(), at.data(), level);
    if (cov.empty()) cov = at;
    EXPECT_EQ(at, cov) << "level " << static_cast<int>(level);
  }
  return cov;
}

// Every type over distances of all sizes, along one axis.
TEST(ExactCovariance, TypesAgainstLongDouble) {
  std::vector<real> x = {0.0, 1e-150, 1e-100, 1e-20, 1e-10, 1.0, 0.999999, 1.000001};
  std::mt19937 generator(1);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  for (int k = 0; k < 400; ++k) x.push_back(std::pow(10.0, 6.0 * uniform(generator) - 4.0));
  const std::vector<real> zero(x.size(), 0.0);
  const double exponents[] = {1e-6, 0.003, 0.01, 0.3, 0.5, 1.0, 1.5, 2.0, 3.7, 20.0, 100.0};
  const double smoothnesses[] = {1e-6, 1e-3, 0.1,  0.3, 0.49999, 0.5,  0.7,  1.0,  1.0000001, 1.3,  1.49, 1.5,
                                 1.51, 2.0,  2.25, 2.5, 3.0,     3.14, 10.4, 10.5, 25.0,      49.7, 99.5, 100.0};
  for (int type = COV_NUGGET; type <= COV_MATERN; ++type) {
    std::vector<double> parameters = {1.0};
    if (kestrum::HasExtraParameter(type)) parameters.assign(std::begin(exponents), std::end(exponents));
    if (type == COV_MATERN) parameters.assign(std::begin(smoothnesses), std::end(smoothnesses));
    for (const double s : parameters) {
      Model model(1);
      model.Set(0, type, 2.0, 1.0, 1.0, 1.0, s);
      const std::vector<real> cov = Evaluate(model, x, zero, zero);
      for (std::size_t k = 0; k < x.size(); ++k) {
        const double expected = static_cast<double>(2.0L * Reference(type, s, x[k]));
        EXPECT_NEAR(cov[k], expected, 1e-13 * std::max(2.0, std::fabs(expected)))
            << "type " << type << " s " << s << " h " << x[k];
        // The C interface's has other values at and near 0. Its Bessel function rests on terms of single precision.
        if (x[k] < 1e-4 || s < 0.3 || (type == COV_MATERN && s > 20.0)) continue;
        real lag = x[k], cov1;
        VORLKestrumEvaluateCovModelFixParamNoRotation(&model.record, 1, &lag, const_cast<real*>(zero.data()),
                                                      const_cast<real*>(zero.data()), &cov1);
        const bool single = type == COV_MATERN && lag * std::sqrt(2.0 * s) < 2.0;
        EXPECT_NEAR(cov1, expected, (single ? 1e-5 : 1e-13) * std::max(2.0, std::fabs(expected))) << type << ' ' << s;
      }
    }
  }
}

// Nested elements along turned axes, with parameters of a node, for every number of lags. Two models in turn, to show
// that nothing stays of the one before.
TEST(ExactCovariance, NestedRotatedAndLocal) {
  std::mt19937 generator(2);
  std::uniform_real_distribution<double> uniform(-30.0, 30.0);
  real ranges[2] = {20.0, 7.0}, azimuths[2] = {25.0, 130.0}, smoothnesses[2] = {1.5, 0.7};
  VORL_IMAGE rx{}, azimuth{}, smoothness{};
  rx.var = ranges;
  azimuth.var = azimuths;
  smoothness.var = smoothnesses;
  Model local(4);
  local.Set(0, COV_NUGGET, 0.25, 0.0, 0.0, 0.0, 0.0);
  local.Set(1, COV_SPHERICAL, 1.0, 99.0, 10.0, 5.0, 0.0);
  local.Set(2, COV_CUBIC, 0.5, 40.0, 0.0, 15.0, 0.0);  // constant along its second axis
  local.Set(3, COV_MATERN, 2.0, 15.0, 12.0, 8.0, 99.0);
  local.elements[1].rxImage = &rx;
  local.elements[3].sImage = &smoothness;
  local.record.angle1Image = &azimuth;
  local.record.angle2Value = 15.0;
  local.record.angle3Value = -40.0;
  Model level(2);
  level.Set(0, COV_MATERN, 1.0, 9.0, 9.0, 9.0, 1.5);
  level.Set(1, COV_LINEAR, 2.0, 25.0, 20.0, 15.0, 0.0);
  VORL_COVMODEL none = level.record;
  none.nelem = 0;
  ExactCovariance covariance;
  ASSERT_EQ(covariance.Allocate(4), 0);
  const auto expectReference = [&](const VORL_COVMODEL& model, int node, int n) {
    std::vector<real> lags[3] = {std::vector<real>(n), std::vector<real>(n), std::vector<real>(n)}, cov(n, 7.0);
    for (int k = 3; k < 3 * n; ++k) lags[k % 3][k / 3] = uniform(generator);
    const kestrum::ParametersAtNode source{node};
    covariance.Prepare(model, source);
    covariance.Evaluate(n, lags[0].data(), lags[1].data(), lags[2].data(), cov.data());
    real rows[3][3], *matrix[3] = {rows[0], rows[1], rows[2]};
    VORLComputeRotationMatrix(source(model.angle1Image, model.angle1Value), model.angle2Value, model.angle3Value,
                              matrix);
    for (int k = 0; k < n; ++k) {
      long double expected = 0.0L;
      for (int i = 0; i < model.nelem; ++i) {
        const kestrum::ElementParameters p = kestrum::ReadParameters(model.covModelElem[i], source);
        const real range[3] = {p.rx, p.ry, p.rz};
        long double d2 = 0.0L;
        for (int axis = 0; axis < 3; ++axis) {
          long double component = 0.0L;
          for (int j = 0; j < 3; ++j) component += static_cast<long double>(rows[j][axis]) * lags[j][k];
          if (p.type == COV_NUGGET) d2 += component * component;
          if (range[axis] > 0.0) d2 += component / range[axis] * (component / range[axis]);
        }
        expected += p.w * Reference(p.type, p.s, std::sqrt(d2));
      }
      EXPECT_NEAR(cov[k], static_cast<double>(expected), 1e-13 * covariance.Sill()) << "node " << node << " n " << n;
    }
    EXPECT_EQ(cov[0], covariance.Sill());
  };
  for (const int n : {1, 2, 3, 7, 8, 9, 17, 127, 128, 129, 300}) {
    expectReference(local.record, 0, n);
    expectReference(level.record, 0, n);
    expectReference(local.record, 1, n);
    expectReference(none, 0, n);
  }
}

}  // namespace
