#include "numeric/cholesky_batch.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "numeric/cholesky.hpp"

namespace kestrum {
namespace {

// Element (i, j) of the covariances of one lane.
double Covariance(const KrigingBatch& systems, int lane, int i, int j) {
  return systems.a[(static_cast<std::ptrdiff_t>(std::max(i, j)) * systems.n + std::min(i, j)) * kLanes + lane];
}

bool ResidualIsSmall(const KrigingBatch& systems, int lane, const double* b, const double* g, const double* weights,
                     const double* multipliers) {
  constexpr double kTolerance = 1e-10;
  const int n = systems.n;
  double largest = 0.0;
  for (int i = 0; i < n; ++i) {
    largest = std::max({largest, std::fabs(b[i * kLanes + lane]), Covariance(systems, lane, i, i)});
  }
  for (int i = 0; i < n; ++i) {
    double rest = b[i * kLanes + lane];
    for (int j = 0; j < n; ++j) rest -= Covariance(systems, lane, i, j) * weights[j * kLanes + lane];
    for (int k = 0; k < systems.q; ++k) {
      rest -= systems.drift[(k * n + i) * kLanes + lane] * multipliers[k * kLanes + lane];
    }
    if (!(std::fabs(rest) <= kTolerance * largest)) return false;
  }
  for (int k = 0; k < systems.q; ++k) {
    double rest = g[k * kLanes + lane];
    largest = std::fabs(rest);
    for (int i = 0; i < n; ++i) {
      const double f = systems.drift[(k * n + i) * kLanes + lane];
      largest = std::max(largest, std::fabs(f));
      rest -= f * weights[i * kLanes + lane];
    }
    if (!(std::fabs(rest) <= kTolerance * largest)) return false;
  }
  return true;
}

}  // namespace

std::size_t KrigingBatchWorkSize(int n, int q) noexcept {
  const std::size_t own = static_cast<std::size_t>(n) * (static_cast<std::size_t>(q) + 1);
  return kLanes * (FactorSize(n, q) + own);
}

unsigned SolveKrigingBatch(const KrigingBatch& systems, const double* b, const double* g, double* weights,
                           double* multipliers, double* explained, double* work, SimdLevel level) noexcept {
  const int n = systems.n;
  const int q = systems.q;
  const std::size_t size = FactorSize(n, q);
  double* const rest = work + kLanes * size;
  unsigned solved = FactoriseBatch(systems, nullptr, work, nullptr, rest, level);
  // Each lane's factor takes all targets; the lane's own stays.
  double* const y = rest;
  double* const drift = rest + n * kLanes;
  for (int lane = 0; lane < kLanes; ++lane) {
    if ((solved >> lane & 1) == 0) continue;
    alignas(64) double all[kLanes];
    std::copy_n(b, n * kLanes, y);
    if (q > 0) std::copy_n(g, q * kLanes, drift);
    Krige(n, q, work + lane * size, nullptr, 1, y, drift, nullptr, all, level);
    KrigingWeights(n, q, work + lane * size, 1, y, drift, level);
    for (int i = 0; i < n; ++i) weights[i * kLanes + lane] = y[i * kLanes + lane];
    for (int k = 0; k < q; ++k) multipliers[k * kLanes + lane] = drift[k * kLanes + lane];
    explained[lane] = all[lane];
    if (!ResidualIsSmall(systems, lane, b, g, weights, multipliers)) solved &= ~(1U << lane);
  }
  return solved;
}

unsigned FactoriseBatch(const KrigingBatch& systems, const double* z, double* factors, double* values, double* work,
                        SimdLevel level) noexcept {
  const int n = systems.n;
  const int q = systems.q;
  unsigned factorised = 0;
  for (int lane = 0; lane < kLanes; ++lane) {
    double* const factor = factors + lane * FactorSize(n, q);
    double* const row = work;
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j <= i; ++j) row[j] = Covariance(systems, lane, i, j);
      SetFactorRow(n, i, row, factor);
    }
    double* const drift = work + n;
    for (int i = 0; i < n * q; ++i) drift[i] = systems.drift[i * kLanes + lane];
    if (!Factorise(Dealing::Serial(), n, q, drift, factor, level)) continue;
    factorised |= 1U << lane;
    if (z == nullptr) continue;
    for (int i = 0; i < n; ++i) row[i] = z[i * kLanes + lane];
    PrepareValues(n, q, factor, row, values + lane * (n + q));
  }
  return factorised;
}

}  // namespace kestrum
