#ifndef KESTRUM_NUMERIC_GMRES_BODY_HPP
#define KESTRUM_NUMERIC_GMRES_BODY_HPP

#include <cmath>
#include <cstddef>

#include "core/types.h"
#include "numeric/gmres.hpp"

namespace kestrum {

// Views of a dense matrix; view(i, j) is row i, column j.
struct PointerRows {
  const double* const* rows;
  double operator()(int i, int j) const noexcept { return rows[i][j]; }
};

struct StridedRows {
  const double* start;
  std::ptrdiff_t rowStride;
  std::ptrdiff_t columnStride = 1;
  double operator()(int i, int j) const noexcept { return start[i * rowStride + j * columnStride]; }
};

// y = A x, each row summed from 0.0 in the order of the columns. Four rows at a time keep the adder busy.
template <typename Matrix>
void DenseProduct(const Matrix& a, int n, const double* x, double* y) noexcept {
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    double s0 = 0.0;
    double s1 = 0.0;
    double s2 = 0.0;
    double s3 = 0.0;
    for (int j = 0; j < n; ++j) {
      s0 += a(i, j) * x[j];
      s1 += a(i + 1, j) * x[j];
      s2 += a(i + 2, j) * x[j];
      s3 += a(i + 3, j) * x[j];
    }
    y[i] = s0;
    y[i + 1] = s1;
    y[i + 2] = s2;
    y[i + 3] = s3;
  }
  for (; i < n; ++i) {
    double s = 0.0;
    for (int j = 0; j < n; ++j) s += a(i, j) * x[j];
    y[i] = s;
  }
}

inline double DotProduct(int n, const double* x, const double* y) noexcept {
  double s = 0.0;
  for (int i = 0; i < n; ++i) s += x[i] * y[i];
  return s;
}

inline double EuclideanNorm(int n, const double* x) noexcept { return std::sqrt(DotProduct(n, x, x)); }

struct GmresOutcome {
  int niter;
  double residual;
  bool converged;
};

// The one body of the plain forms. `report(restart, cycle, residual)` is called where a cycle begins.
template <typename Matrix, typename Report>
class GmresSolver {
 public:
  GmresSolver(const Matrix& a, int n, const double* b, double* x, int restart, double* work,
              const Report& report) noexcept
      : a_(a),
        n_(n),
        b_(b),
        x_(x),
        restart_(restart),
        hStride_(restart),
        h_(work),
        v_(h_ + static_cast<std::size_t>(restart + std::ptrdiff_t{1}) * restart),
        g_(v_ + static_cast<std::size_t>(restart + std::ptrdiff_t{1}) * n),
        report_(report) {}

  GmresOutcome Solve(double tolerance, int ncycle) noexcept {
    const double bNorm = EuclideanNorm(n_, b_);
    if (bNorm < VORL_EPSILON_HARD) {
      for (int i = 0; i < n_; ++i) x_[i] = 0.0;
      return {0, 0.0, true};
    }
    const double bNormInverse = 1.0 / bNorm;
    double previous = 0.0;
    for (int cycle = 0; cycle < ncycle; ++cycle) {
      const double beta = Residual();
      const double relative = beta * bNormInverse;
      report_(restart_, cycle, relative);
      if (relative < tolerance) return {cycle, relative, true};
      if (std::fabs(beta - previous) < VORL_EPSILON_HARD) return {cycle, relative, false};
      for (int i = 0; i < n_; ++i) V(0)[i] /= beta;
      BuildBasis();
      g_[0] = beta;
      for (int i = 1; i <= restart_; ++i) g_[i] = 0.0;
      Rotate();
      BackSubstitute();
      UpdateSolution();
      previous = beta;
    }
    const double relative = Residual() * bNormInverse;
    return {ncycle, relative, relative < tolerance};
  }

 private:
  double& H(int i, int j) noexcept { return h_[i * hStride_ + j]; }
  double* V(int j) noexcept { return v_ + static_cast<std::ptrdiff_t>(j) * n_; }

  double Residual() noexcept {
    double* const r = V(0);
    DenseProduct(a_, n_, x_, r);
    for (int i = 0; i < n_; ++i) r[i] = b_[i] - r[i];
    return EuclideanNorm(n_, r);
  }

  // Arnoldi's process with modified Gram-Schmidt. An exhausted space shortens the basis for good.
  void BuildBasis() noexcept {
    for (int j = 0; j < restart_; ++j) {
      double* const w = V(j + 1);
      DenseProduct(a_, n_, V(j), w);
      for (int i = 0; i <= j; ++i) {
        const double* const v = V(i);
        const double dot = DotProduct(n_, w, v);
        H(i, j) = dot;
        for (int k = 0; k < n_; ++k) w[k] -= dot * v[k];
      }
      const double norm = EuclideanNorm(n_, w);
      H(j + 1, j) = norm;
      if (norm < VORL_EPSILON_HARD) {
        restart_ = j + 1;
      } else {
        for (int k = 0; k < n_; ++k) w[k] /= norm;
      }
    }
  }

  // Givens rotations make h upper triangular. Entries that they turn to zero are left unwritten: nothing reads them.
  void Rotate() noexcept {
    for (int i = 0; i < restart_; ++i) {
      const double p = H(i, i);
      const double q = H(i + 1, i);
      const double f = 1.0 / std::sqrt(p * p + q * q);
      const double c = f * p;
      const double s = f * q;
      H(i, i) = s * q + c * p;
      for (int col = i + 1; col < restart_; ++col) {
        const double t = H(i + 1, col);
        H(i + 1, col) = c * t - s * H(i, col);
        H(i, col) = s * t + c * H(i, col);
      }
      const double t = g_[i];
      g_[i] = s * g_[i + 1] + c * t;
      g_[i + 1] = c * g_[i + 1] - s * t;
    }
  }

  void BackSubstitute() noexcept {
    for (int i = restart_ - 1; i >= 0; --i) {
      double s = 0.0;
      for (int j = i + 1; j < restart_; ++j) s += H(i, j) * g_[j];
      g_[i] = (g_[i] - s) / H(i, i);
    }
  }

  void UpdateSolution() noexcept {
    for (int i = 0; i < n_; ++i) {
      double s = 0.0;
      for (int j = 0; j < restart_; ++j) s += g_[j] * V(j)[i];
      x_[i] += s;
    }
  }

  const Matrix& a_;
  int n_;
  const double* b_;
  double* x_;
  int restart_;
  std::ptrdiff_t hStride_;
  double* h_;
  double* v_;
  double* g_;
  const Report& report_;
};

struct NoReport {
  void operator()(int, int, double) const noexcept {}
};

// One system on work memory of the caller, without report.
template <typename Matrix>
bool SolveByGmres(const GmresLimits& limits, int n, const Matrix& a, const double* b, double* x,
                  double* work) noexcept {
  const NoReport quiet;
  return GmresSolver(a, n, b, x, limits.restart, work, quiet).Solve(limits.tolerance, limits.ncycle).converged;
}

}  // namespace kestrum

#endif
