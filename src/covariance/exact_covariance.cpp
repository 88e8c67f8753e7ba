#include "covariance/exact_covariance.hpp"

#include <algorithm>
#include <cstddef>
#include <numbers>

#include "numeric/elementary.hpp"

namespace kestrum {
namespace {

// As measured on AVX-512 by covariance_benchmark.
double CostOf(const ExactCovariance::Element& element) noexcept {
  switch (element.type) {
    case COV_EXPONENTIAL:
    case COV_GAUSSIAN:
      return 4.0;
    case COV_SINUS_CARDINAL:
      return 6.0;
    case COV_GAMMA:
    case COV_POWER:
    case COV_EXPONENTIAL_GENERALIZED:
      return 14.0;
    case COV_MATERN:
      return element.matern.halfOrder ? 6.0 : 30.0;
    default:
      return 2.0;
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
    constexpr real kLog20 = 2.995732273553991;
    const real exponent = kLog20 / element.s;
    element.offset = exponent < 700.0 ? 1.0 / ExpMinusOne(exponent) : 0.0;
    element.factor = 0.05 * Pow(-ExpMinusOne(-exponent), -element.s);
  }
  if (element.type == COV_MATERN && !sameMatern) element.matern = Matern::OfSmoothness(element.s);
  cost_ += CostOf(element);
}

real ExactCovariance::Sill() const noexcept {
  real sill = 0.0;
  for (int i = 0; i < count_; ++i) sill += elements_[static_cast<std::size_t>(i)].w;
  return sill;
}

void ExactCovariance::EvaluateRows(const LagRows& lags, SimdLevel level) const noexcept {
  KESTRUM_KERNEL_AT(level, EvaluateRows)(elements_.data(), count_, rotated_, lags);
}

void ExactCovariance::Evaluate(int n, const real* dx, const real* dy, const real* dz, real* cov,
                               SimdLevel level) const noexcept {
  static constexpr real kOrigin = 0.0;
  static constexpr int kStart = 0;
  const auto evaluate = [&](int count, const real* x, const real* y, const real* z, real* to) {
    EvaluateRows({3, 1, {&kOrigin, &kOrigin, &kOrigin}, count, {x, y, z}, &kStart, false, to}, level);
  };
  // Lags that are left are filled up to kLanes.
  const int rest = n % kLanes;
  const int whole = n - rest;
  if (whole > 0) evaluate(whole, dx, dy, dz, cov);
  if (rest == 0) return;
  alignas(64) double filled[4][kLanes] = {};
  const real* const lags[3] = {dx, dy, dz};
  for (int axis = 0; axis < 3; ++axis) std::copy_n(lags[axis] + whole, rest, filled[axis]);
  evaluate(kLanes, filled[0], filled[1], filled[2], filled[3]);
  std::copy_n(filled[3], rest, cov + whole);
}

void LagsOfLanes(int n, const real* const* place, int step, const real* const* from, real* const* lag,
                 SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, SubtractPlaces)(n, place, step, from, lag);
}

void LagsOfRows(const LagRows& lags, real* const* lag, SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, WriteLags)(lags, lag);
}

}  // namespace kestrum
