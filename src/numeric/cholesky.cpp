#include "numeric/cholesky.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kestrum {
namespace {

constexpr std::size_t Panels(int n) { return (static_cast<std::size_t>(n) + kLanes - 1) / kLanes; }

// A factor in memory: rows of L in panels of kLanes rows, each a run of columns of kLanes numbers; the inverse pivots;
// D^-1 Q, row by row; R, row by row.
template <typename T>
struct Factor {
  Factor(int n, int q, T* block)
      : panels(block),
        inversePivots(panels + Panels(n) * (Panels(n) + 1) / 2 * kLanes * kLanes),
        weightedQ(inversePivots + Panels(n) * kLanes),
        r(weightedQ + Panels(n) * kLanes * static_cast<std::size_t>(q)) {}

  T& L(int i, int j) const {
    const std::size_t row = static_cast<std::size_t>(i);
    const std::size_t panel = row / kLanes;
    return panels[(panel * (panel + 1) / 2 * kLanes + static_cast<std::size_t>(j)) * kLanes + row % kLanes];
  }

  T* panels;
  T* inversePivots;
  T* weightedQ;
  T* r;
};

// What rounding alone may leave of a sum of n terms of this size.
double Rounding(int n, double size) { return 4.0 * n * std::numeric_limits<double>::epsilon() * size; }

// x = L^-1 x.
template <typename T>
void Forward(int n, const Factor<T>& factor, double* x, int step) {
  for (int i = 0; i < n; ++i) {
    for (int k = 0; k < i; ++k) x[i * step] -= factor.L(i, k) * x[k * step];
  }
}

// x = L^-T x.
void Backward(int n, const Factor<const double>& factor, double* x, int step) {
  for (int i = n - 1; i >= 0; --i) {
    for (int k = 0; k < i; ++k) x[k * step] -= factor.L(i, k) * x[i * step];
  }
}

// x = R^-1 x.
void SolveR(int q, const Factor<const double>& factor, double* x, int step) {
  for (int k = q - 1; k >= 0; --k) {
    for (int j = k + 1; j < q; ++j) x[k * step] -= factor.r[k * q + j] * x[j * step];
    x[k * step] /= factor.r[k * q + k];
  }
}

}  // namespace

std::size_t FactorSize(int n, int q) noexcept {
  const std::size_t rows = Panels(n) * kLanes;
  const std::size_t columns = static_cast<std::size_t>(q);
  const std::size_t size = rows * (rows + kLanes) / 2 + rows + rows * columns + columns * columns;
  return (size + kLanes - 1) / kLanes * kLanes;
}

void SetFactorRow(int n, int i, const double* row, double* factor) noexcept {
  const Factor<double> out(n, 0, factor);
  for (int j = 0; j <= i; ++j) out.L(i, j) = row[j];
}

bool Factorise(const Dealing& /*dealing*/, int n, int q, const double* drift, double* factor,
               SimdLevel /*level*/) noexcept {
  const Factor<double> out(n, q, factor);
  if (q > n) return false;
  for (int i = 0; i < n; ++i) {
    const double diagonal = out.L(i, i);
    for (int j = 0; j < i; ++j) {
      for (int k = 0; k < j; ++k) out.L(i, j) -= out.L(i, k) * out.L(j, k);
    }
    double pivot = diagonal;
    for (int j = 0; j < i; ++j) {
      const double l = out.L(i, j) * out.inversePivots[j];
      pivot -= out.L(i, j) * l;
      out.L(i, j) = l;
    }
    if (!(pivot > Rounding(n, diagonal))) return false;
    out.L(i, i) = 1.0;
    out.inversePivots[i] = 1.0 / pivot;
  }
  double* const e = out.weightedQ;
  for (int k = 0; k < q; ++k) {
    for (int i = 0; i < n; ++i) e[i * q + k] = drift[k * static_cast<std::ptrdiff_t>(n) + i];
    Forward(n, out, e + k, q);
    double before = 0.0;
    for (int i = 0; i < n; ++i) before += e[i * q + k] * e[i * q + k] * out.inversePivots[i];
    for (int j = 0; j < k; ++j) {
      double product = 0.0;
      for (int i = 0; i < n; ++i) product += e[i * q + j] * e[i * q + k] * out.inversePivots[i];
      for (int i = 0; i < n; ++i) e[i * q + k] -= product * e[i * q + j];
      out.r[j * q + k] = product;
    }
    double square = 0.0;
    for (int i = 0; i < n; ++i) square += e[i * q + k] * e[i * q + k] * out.inversePivots[i];
    const double norm = std::sqrt(square);
    if (!(norm > Rounding(n, std::sqrt(before)))) return false;
    for (int i = 0; i < n; ++i) e[i * q + k] /= norm;
    out.r[k * q + k] = norm;
  }
  for (int i = 0; i < n; ++i) {
    for (int k = 0; k < q; ++k) e[i * q + k] *= out.inversePivots[i];
  }
  return true;
}

void PrepareValues(int n, int q, const double* factor, const double* z, double* values) noexcept {
  // D^-1 (u - Q c) and c, with u = L^-1 z and c = Q^T D^-1 u: the estimate is y times the first plus h times the second.
  const Factor<const double> in(n, q, factor);
  std::copy_n(z, n, values);
  Forward(n, in, values, 1);
  for (int k = 0; k < q; ++k) {
    double c = 0.0;
    for (int i = 0; i < n; ++i) c += values[i] * in.weightedQ[i * q + k];
    values[n + k] = c;
  }
  for (int i = 0; i < n; ++i) {
    values[i] *= in.inversePivots[i];
    for (int k = 0; k < q; ++k) values[i] -= in.weightedQ[i * q + k] * values[n + k];
  }
}

void Krige(int n, int q, const double* factor, const double* values, std::ptrdiff_t nblock, double* b, double* g,
           double* estimate, double* explained, SimdLevel /*level*/) noexcept {
  const Factor<const double> in(n, q, factor);
  for (std::ptrdiff_t target = 0; target < nblock * kLanes; ++target) {
    double* const y = b + target / kLanes * n * kLanes + target % kLanes;
    double* const difference = q > 0 ? g + target / kLanes * q * kLanes + target % kLanes : nullptr;
    Forward(n, in, y, kLanes);
    double sum = 0.0;
    double square = 0.0;
    for (int i = 0; i < n; ++i) {
      square += y[i * kLanes] * y[i * kLanes] * in.inversePivots[i];
      if (values != nullptr) sum += y[i * kLanes] * values[i];
    }
    // h, in which each number needs the ones before it, and then h - t.
    for (int k = 0; k < q; ++k) {
      double h = difference[k * kLanes];
      for (int j = 0; j < k; ++j) h -= in.r[j * q + k] * difference[j * kLanes];
      difference[k * kLanes] = h / in.r[k * q + k];
    }
    for (int k = 0; k < q; ++k) {
      if (values != nullptr) sum += difference[k * kLanes] * values[n + k];
      for (int i = 0; i < n; ++i) difference[k * kLanes] -= y[i * kLanes] * in.weightedQ[i * q + k];
      square -= difference[k * kLanes] * difference[k * kLanes];
    }
    if (values != nullptr) estimate[target] = sum;
    explained[target] = square;
  }
}

void KrigingWeights(int n, int q, const double* factor, std::ptrdiff_t nblock, double* b, double* g,
                    SimdLevel /*level*/) noexcept {
  const Factor<const double> in(n, q, factor);
  for (std::ptrdiff_t target = 0; target < nblock * kLanes; ++target) {
    double* const weights = b + target / kLanes * n * kLanes + target % kLanes;
    double* const difference = q > 0 ? g + target / kLanes * q * kLanes + target % kLanes : nullptr;
    for (int i = 0; i < n; ++i) {
      weights[i * kLanes] *= in.inversePivots[i];
      for (int k = 0; k < q; ++k) weights[i * kLanes] += in.weightedQ[i * q + k] * difference[k * kLanes];
    }
    Backward(n, in, weights, kLanes);
    if (q == 0) continue;
    SolveR(q, in, difference, kLanes);
    for (int k = 0; k < q; ++k) difference[k * kLanes] = -difference[k * kLanes];
  }
}

void DualWeights(int n, int q, const double* factor, const double* values, double* dual) noexcept {
  const Factor<const double> in(n, q, factor);
  std::copy_n(values, n + q, dual);
  Backward(n, in, dual, 1);
  if (q > 0) SolveR(q, in, dual + n, 1);
}

}  // namespace kestrum
