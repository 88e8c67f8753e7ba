#include "numeric/linear_solver.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <utility>

#include "core/buffer.hpp"
#include "core/statuses.hpp"
#include "numeric/gmres.hpp"
#include "numeric/gmres_body.hpp"

namespace kestrum {

std::size_t GmresWorkSize(int n, int restart) noexcept {
  const std::size_t columns = static_cast<std::size_t>(restart);
  return (columns + 1) * (columns + static_cast<std::size_t>(n) + 1);
}

bool Gmres(const GmresLimits& limits, int n, const double* a, std::ptrdiff_t stride, const double* b, double* x,
           double* work) noexcept {
  return SolveByGmres(limits, n, StridedRows{a, stride}, b, x, work);
}

namespace {

constexpr int kOutOfMemory = -1;
constexpr int kEmptyArray2D = -7;

// A basis of no length has the status of the empty array of restart + 1 rows and restart columns; a shorter one is more
// than any memory holds.
int AllocateGmresWork(int n, int restart, Buffer<real>& work) {
  if (restart == 0 || restart == -1) return kEmptyArray2D;
  return restart < 0 ? kOutOfMemory : work.Allocate(GmresWorkSize(n, restart));
}

// Sum of left(k) * right(k) over begin <= k < end.
template <typename Left, typename Right>
real SumOfProducts(int begin, int end, const Left& left, const Right& right) {
  real sum = 0.0;
  for (int k = begin; k < end; ++k) sum += left(k) * right(k);
  return sum;
}

// b[i] minus the terms of row i that lie in the columns [begin, end).
real WithoutColumns(real** a, const real* b, int i, int begin, int end) {
  return b[i] - SumOfProducts(
                    begin, end, [&](int j) { return a[i][j]; }, [&](int j) { return b[j]; });
}

void SolveUnitUpper(int n, real** a, real* b) {
  for (int i = n - 2; i >= 0; --i) b[i] = WithoutColumns(a, b, i, i + 1, n);
}

}  // namespace
}  // namespace kestrum

using kestrum::Buffer;

namespace {

int AnswerSolved(int* niter, real* residual, BOOLEAN* converged) noexcept {
  *niter = 0;
  *residual = 0.0;
  *converged = TRUE;
  return 0;
}

}  // namespace

int VORLGmresMatrixNotCompressed(real tolerance, int n, real** a, real* b, int restart, int ncycle, real* x, int* niter,
                                 real* residual, BOOLEAN* converged, BOOLEAN verbose) noexcept {
  if (n < 1) return AnswerSolved(niter, residual, converged);  // before any memory is asked for
  *converged = FALSE;
  Buffer<real> work;
  if (const int status = kestrum::AllocateGmresWork(n, restart, work); status != 0) return status;
  const auto report = [verbose](int length, int cycle, double relative) noexcept {
    if (verbose) std::printf("GMRES(%d): niter = %6d, residu = %15.8E\n", length, cycle, relative);
  };
  const kestrum::PointerRows rows{a};
  const kestrum::GmresOutcome outcome =
      kestrum::GmresSolver(rows, n, b, x, restart, work.data(), report).Solve(tolerance, ncycle);
  *niter = outcome.niter;
  *residual = outcome.residual;
  *converged = outcome.converged ? TRUE : FALSE;
  return 0;
}

int VORLConjGradDiag(real tolerance, int n, real* values, int* columns, int* rowStart, real* invDiag, real* b,
                     int maxIter, real* x, int* niter, real* residual, BOOLEAN* converged, BOOLEAN verbose) noexcept {
  if (n < 1) return AnswerSolved(niter, residual, converged);
  const std::size_t size = static_cast<std::size_t>(n);
  Buffer<real> r;
  Buffer<real> p;
  Buffer<real> work;  // z = invDiag r, and later q = A p
  for (Buffer<real>* vector : {&r, &p, &work}) {
    if (const int status = vector->Allocate(size); status != 0) return status;
  }

  const real bSquare = kestrum::DotProduct(n, b, b);
  if (std::sqrt(bSquare) < VORL_EPSILON_HARD) {
    for (int i = 0; i < n; ++i) x[i] = 0.0;
    return AnswerSolved(niter, residual, converged);
  }
  const auto relativeResidual = [&] { return std::sqrt(kestrum::DotProduct(n, r.data(), r.data()) / bSquare); };
  const auto report = [&] {
    if (verbose) std::printf("CG ALGO: niter = %6d, residu = %15.8E\n", *niter, *residual);
  };

  VORLProductMatrixCSRVector(n, values, columns, rowStart, x, r.data());
  for (int i = 0; i < n; ++i) r[i] = b[i] - r[i];
  *niter = 0;
  *residual = relativeResidual();
  *converged = *residual < tolerance ? TRUE : FALSE;
  if (*converged || maxIter < 1) return 0;
  report();
  real rhoPrevious = 0.0;
  while (true) {
    for (int i = 0; i < n; ++i) work[i] = invDiag[i] * r[i];
    const real rho = kestrum::DotProduct(n, r.data(), work.data());
    if (*niter == 0) {
      for (int i = 0; i < n; ++i) p[i] = work[i];
    } else {
      const real ratio = rho / rhoPrevious;
      for (int i = 0; i < n; ++i) p[i] = work[i] + ratio * p[i];
    }
    VORLProductMatrixCSRVector(n, values, columns, rowStart, p.data(), work.data());
    const real alpha = rho / kestrum::DotProduct(n, p.data(), work.data());
    for (int i = 0; i < n; ++i) {
      x[i] += alpha * p[i];
      r[i] -= alpha * work[i];
    }
    *residual = relativeResidual();
    ++*niter;
    *converged = *residual < tolerance ? TRUE : FALSE;
    if (*converged || *niter == maxIter) return 0;
    rhoPrevious = rho;
    report();
  }
}

int VORLComputeInvDiagOfMatrixCSR(int n, real* values, int* columns, int* rowStart, real* invDiag) noexcept {
  for (int i = 0; i < n; ++i) {
    for (int k = rowStart[i]; k < rowStart[i + 1]; ++k) {
      if (columns[k] == i) {
        invDiag[i] = 1.0 / values[k];
        break;
      }
    }
  }
  return 0;
}

int VORLProductMatrixCSRVector(int n, real* values, int* columns, int* rowStart, real* x, real* y) noexcept {
  for (int i = 0; i < n; ++i) {
    y[i] = kestrum::SumOfProducts(
        rowStart[i], rowStart[i + 1], [&](int k) { return values[k]; }, [&](int k) { return x[columns[k]]; });
  }
  return 0;
}

int VORLProductMatrixVector(int n, real** a, real* x, real* y) noexcept {
  kestrum::DenseProduct(kestrum::PointerRows{a}, n, x, y);
  return 0;
}

int VORLMatrixLUDecompositionPivoting(int n, real** a, int* pivot) noexcept {
  const std::size_t size = static_cast<std::size_t>(n);  // of a negative n, more than any memory holds
  Buffer<real> spare;
  if (const int status = spare.Allocate(size); status != 0) return status;
  for (int k = 0; k < n; ++k) {
    int best = k;
    for (int i = k; i < n; ++i) {
      a[i][k] -= kestrum::SumOfProducts(
          0, k, [&](int j) { return a[i][j]; }, [&](int j) { return a[j][k]; });
      if (std::fabs(a[i][k]) > std::fabs(a[best][k])) best = i;
    }
    pivot[k] = best;
    if (best != k) {
      // The values move, not the row pointers, so that a[0] still starts the whole matrix in order.
      const std::size_t bytes = size * sizeof(real);
      std::memcpy(spare.data(), a[k], bytes);
      std::memcpy(a[k], a[best], bytes);
      std::memcpy(a[best], spare.data(), bytes);
    }
    if (std::fabs(a[k][k]) < VORL_EPSILON) return kestrum::kNoPivot;
    const real inverse = 1.0 / a[k][k];
    for (int j = k + 1; j < n; ++j) {
      a[k][j] -= kestrum::SumOfProducts(
          0, k, [&](int i) { return a[k][i]; }, [&](int i) { return a[i][j]; });
      a[k][j] *= inverse;
    }
  }
  return 0;
}

int VORLMatrixLUDecompositionPivotingSolve(int n, real** a, int* pivot, real* b) noexcept {
  for (int i = 0; i < n; ++i) {
    std::swap(b[i], b[pivot[i]]);
    b[i] /= a[i][i];  // and nothing more: this solve deliberately leaves the lower triangle out
  }
  kestrum::SolveUnitUpper(n, a, b);
  return 0;
}

int VORLMatrixLUDecompositionSolve(int n, real** a, real* b) noexcept {
  for (int i = 0; i < n; ++i) b[i] = kestrum::WithoutColumns(a, b, i, 0, i) / a[i][i];
  kestrum::SolveUnitUpper(n, a, b);
  return 0;
}
