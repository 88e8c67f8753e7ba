#include "numeric/cholesky.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kestrum {
namespace {

// A factor in memory: the rows of L in panels of kLanes rows, each a run of columns of kLanes numbers; then the inverse
// pivots.
std::size_t Rows(int size) { return (static_cast<std::size_t>(size) + kLanes - 1) / kLanes * kLanes; }

std::size_t Index(std::size_t i, std::size_t j) {
  const std::size_t panel = i / kLanes;
  return (panel * (panel + 1) / 2 * kLanes + j) * kLanes + i % kLanes;
}

template <typename T>
T* InversePivots(int size, T* factor) {
  return factor + Index(Rows(size), 0);
}

// x = L^-1 x.
void Forward(int size, const double* factor, double* x, int step) {
  for (int i = 0; i < size; ++i) {
    for (int k = 0; k < i; ++k) x[i * step] -= factor[Index(i, k)] * x[k * step];
  }
}

// x = L^-T x.
void Backward(int size, const double* factor, double* x, int step) {
  for (int i = size - 1; i >= 0; --i) {
    for (int k = 0; k < i; ++k) x[k * step] -= factor[Index(i, k)] * x[i * step];
  }
}

}  // namespace

std::size_t FactorSize(int n, int q) noexcept { return Index(Rows(n + q), 0) + Rows(n + q); }

void SetFactorRow(int n, int i, const double* row, double* factor) noexcept {
  for (int j = 0; j <= i; ++j) factor[Index(i, j)] = j < n ? row[j] : 0.0;
}

bool Factorise(const Dealing& /*dealing*/, int n, int q, double* factor, SimdLevel /*level*/) noexcept {
  double* const inverse = InversePivots(n + q, factor);
  for (int i = 0; i < n + q; ++i) {
    for (int j = 0; j < i; ++j) {
      for (int k = 0; k < j; ++k) factor[Index(i, j)] -= factor[Index(i, k)] * factor[Index(j, k)];
    }
    double pivot = factor[Index(i, i)];
    double size = pivot;
    for (int j = 0; j < i; ++j) {
      if (j == n) size = -pivot;
      const double l = factor[Index(i, j)] * inverse[j];
      pivot -= factor[Index(i, j)] * l;
      factor[Index(i, j)] = l;
    }
    if (i == n) size = -pivot;
    const double rounding = 4.0 * (n + q) * std::numeric_limits<double>::epsilon() * size;
    if (!((i < n ? pivot : -pivot) > rounding)) return false;
    factor[Index(i, i)] = 1.0;
    inverse[i] = 1.0 / pivot;
  }
  return true;
}

void PrepareValues(int n, int q, const double* factor, const double* z, double* values) noexcept {
  std::copy_n(z, n, values);
  std::fill_n(values + n, q, 0.0);
  Forward(n + q, factor, values, 1);
  for (int i = 0; i < n + q; ++i) values[i] *= InversePivots(n + q, factor)[i];
}

void Krige(int n, int q, const double* factor, const double* values, std::ptrdiff_t nblock, double* b, double* estimate,
           double* explained, SimdLevel /*level*/) noexcept {
  for (std::ptrdiff_t target = 0; target < nblock * kLanes; ++target) {
    double* const y = b + target / kLanes * (n + q) * kLanes + target % kLanes;
    Forward(n + q, factor, y, kLanes);
    double sum = 0.0;
    double square = 0.0;
    for (int i = 0; i < n + q; ++i) {
      if (values != nullptr) sum += y[i * kLanes] * values[i];
      square += y[i * kLanes] * (y[i * kLanes] * InversePivots(n + q, factor)[i]);
    }
    if (values != nullptr) estimate[target] = sum;
    explained[target] = square;
  }
}

void KrigingWeights(int n, int q, const double* factor, std::ptrdiff_t nblock, double* b,
                    SimdLevel /*level*/) noexcept {
  for (std::ptrdiff_t target = 0; target < nblock * kLanes; ++target) {
    double* const x = b + target / kLanes * (n + q) * kLanes + target % kLanes;
    for (int i = 0; i < n + q; ++i) x[i * kLanes] *= InversePivots(n + q, factor)[i];
    Backward(n + q, factor, x, kLanes);
  }
}

void DualWeights(int n, int q, const double* factor, double* values) noexcept { Backward(n + q, factor, values, 1); }

}  // namespace kestrum
