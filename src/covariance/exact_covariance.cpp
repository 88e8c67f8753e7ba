#include "covariance/exact_covariance.hpp"

#include <algorithm>
#include <cstddef>
#include <numbers>

#include "numeric/elementary.hpp"

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
