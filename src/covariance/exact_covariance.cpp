#include "covariance/exact_covariance.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

#include "covariance/elementary.hpp"

namespace kestrum {
namespace {

// Lags are taken in blocks that fit on the stack, each whole: a last one is filled up.
constexpr int kBlock = 128;

// A block of lags, and where its covariances go.
struct LagBlock {
  int n;  // a multiple of the width of any vector
  const double* x;
  const double* y;
  const double* z;
  double* cov;
};

// What the C library gives to the correlations at u: exp(-u) for half orders, else the m of the power series up to where
// they end, and the factor of the Chebyshev series for (u/2)^mu K_mu beyond. At 0 it is of no use.
void MaternFactors(int n, const Matern& matern, const double* u, double* factor) noexcept {
  for (int k = 0; k < n; ++k) {
    if (matern.halfOrder) {
      factor[k] = std::exp(-u[k]);
    } else if (u[k] > Matern::kSeriesEnd) {
      factor[k] = std::exp(matern.mu * std::log(0.5 * u[k]) - u[k]) * std::sqrt(0.5 * std::numbers::pi / u[k]);
    } else if (matern.mu == 0.0) {
      factor[k] = -std::log(0.5 * u[k]);
    } else {
      factor[k] = -0.5 / matern.mu * std::expm1(2.0 * matern.mu * std::log(0.5 * u[k]));
    }
  }
}

}  // namespace
}  // namespace kestrum

#define KESTRUM_KERNEL "covariance/exact_covariance_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {

int ExactCovariance::Allocate(int count) noexcept {
  const int status = elements_.Allocate(static_cast<std::size_t>(count));
  for (Element& element : elements_) element.type = COV_NUGGET;
  return status;
}

void ExactCovariance::SetElement(int i, const ElementParameters& parameters, const Rotation& rotation) noexcept {
  Element& element = elements_[static_cast<std::size_t>(i)];
  const bool sameMatern = parameters.type == COV_MATERN && element.type == COV_MATERN && element.s == parameters.s;
  element.type = parameters.type;
  element.w = parameters.w;
  element.s = parameters.s;
  const real ranges[3] = {parameters.rx, parameters.ry, parameters.rz};
  for (int axis = 0; axis < 3; ++axis) {
    for (int j = 0; j < 3; ++j) {
      const real component = rotated_ ? rotation.m[j][axis] : axis == j ? 1.0 : 0.0;
      element.axes[axis][j] = ranges[axis] > 0.0 ? component / ranges[axis] : 0.0;
    }
  }
  if (element.type == COV_GAMMA) {
    // The usual form (1 + h (20^(1/s) - 1))^-s overflows for small s.
    const real exponent = std::log(20.0) / element.s;
    element.offset = 1.0 / std::expm1(exponent);
    element.factor = 0.05 * std::pow(-std::expm1(-exponent), -element.s);
  }
  if (element.type == COV_MATERN && !sameMatern) element.matern = Matern::OfSmoothness(element.s);
}

real ExactCovariance::Sill() const noexcept {
  real sill = 0.0;
  for (int i = 0; i < count_; ++i) sill += elements_[static_cast<std::size_t>(i)].w;
  return sill;
}

void ExactCovariance::Evaluate(int n, const real* dx, const real* dy, const real* dz, real* cov,
                               SimdLevel level) const noexcept {
  for (int begin = 0; begin < n; begin += kBlock) {
    const int count = std::min(n - begin, kBlock);
    alignas(64) double filled[4][kBlock];
    LagBlock block{kBlock, dx + begin, dy + begin, dz + begin, cov + begin};
    if (count < kBlock) {
      constexpr int kMultiple = 8;
      block = {(count + kMultiple - 1) / kMultiple * kMultiple, filled[0], filled[1], filled[2], filled[3]};
      const real* const lags[3] = {dx, dy, dz};
      for (int axis = 0; axis < 3; ++axis) {
        std::copy_n(lags[axis] + begin, count, filled[axis]);
        std::fill_n(filled[axis] + count, block.n - count, 0.0);
      }
    }
    KESTRUM_KERNEL_AT(level, EvaluateBlock)(elements_.data(), count_, rotated_, block);
    if (count < kBlock) std::copy_n(filled[3], count, cov + begin);
  }
}

}  // namespace kestrum
