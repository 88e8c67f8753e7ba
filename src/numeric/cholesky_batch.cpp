#include "numeric/cholesky_batch.hpp"

#include <algorithm>
#include <cmath>

#include "numeric/cholesky.hpp"

namespace kestrum {
namespace {

bool ResidualIsSmall(int n, int q, int lane, const double* a, const double* b, const double* x) {
  constexpr double kTolerance = 1e-10;
  const int size = n + q;
  const auto element = [&](int i, int j) {
    return std::min(i, j) >= n ? 0.0 : a[(std::max(i, j) * size + std::min(i, j)) * kLanes + lane];
  };
  double covariance = 0.0;
  for (int i = 0; i < n; ++i) covariance = std::max({covariance, std::fabs(b[i * kLanes + lane]), element(i, i)});
  for (int i = 0; i < size; ++i) {
    double rest = b[i * kLanes + lane];
    double largest = i < n ? covariance : std::fabs(rest);
    for (int j = 0; j < size; ++j) {
      rest -= element(i, j) * x[j * kLanes + lane];
      if (i >= n) largest = std::max(largest, std::fabs(element(i, j)));
    }
    if (!(std::fabs(rest) <= kTolerance * largest)) return false;
  }
  return true;
}

}  // namespace

std::size_t KrigingBatchWorkSize(int n, int q) noexcept {
  return kLanes * (FactorSize(n, q) + static_cast<std::size_t>(n + q));
}

unsigned SolveKrigingBatch(int n, int q, const double* a, const double* b, double* x, double* explained, double* work,
                           SimdLevel level) noexcept {
  const std::size_t size = FactorSize(n, q);
  double* const y = work + kLanes * size;
  unsigned solved = FactoriseBatch(n, q, a, nullptr, work, nullptr, y, level);
  for (int lane = 0; lane < kLanes; ++lane) {
    if ((solved >> lane & 1) == 0) continue;
    alignas(64) double all[kLanes];
    std::copy_n(b, (n + q) * kLanes, y);
    Krige(n, q, work + lane * size, nullptr, 1, y, nullptr, all, level);
    KrigingWeights(n, q, work + lane * size, 1, y, level);
    for (int i = 0; i < n + q; ++i) x[i * kLanes + lane] = y[i * kLanes + lane];
    explained[lane] = all[lane];
    if (!ResidualIsSmall(n, q, lane, a, b, x)) solved &= ~(1U << lane);
  }
  return solved;
}

unsigned FactoriseBatch(int n, int q, const double* a, const double* z, double* factors, double* values, double* work,
                        SimdLevel level) noexcept {
  unsigned factorised = 0;
  for (int lane = 0; lane < kLanes; ++lane) {
    double* const factor = factors + lane * FactorSize(n, q);
    for (int i = 0; i < n + q; ++i) {
      for (int j = 0; j <= i; ++j) work[j] = a[(i * (n + q) + j) * kLanes + lane];
      SetFactorRow(n, i, work, factor);
    }
    if (!Factorise(Dealing::Serial(), n, q, factor, level)) continue;
    factorised |= 1U << lane;
    if (z == nullptr) continue;
    for (int i = 0; i < n; ++i) work[i] = z[i * kLanes + lane];
    PrepareValues(n, q, factor, work, values + lane * (n + q));
  }
  return factorised;
}

}  // namespace kestrum
