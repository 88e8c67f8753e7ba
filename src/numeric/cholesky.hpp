#ifndef KESTRUM_NUMERIC_CHOLESKY_HPP
#define KESTRUM_NUMERIC_CHOLESKY_HPP

// Kriging systems by factorisation: one symmetric positive definite matrix A (n x n, the covariances between data) with
// q drift columns F (n x q; none for simple kriging, one of ones for ordinary kriging), for many targets. A target with
// covariances b (n) and drift g (q) has weights w and multipliers m:
//   A w + F m = b,  F^T w = g.
// With c the variance of the target, the kriging variance is c minus the explained part, w.b + m.g.
//
// A = L D L^T with L unit lower triangular; L^-1 F = Q R by the modified Gram-Schmidt method, with Q orthonormal in the
// product weighted by D^-1, which loses less than the Schur complement F^T A^-1 F = R^T R would. With y = L^-1 b,
// t = Q^T D^-1 y and h = R^-T g, the explained part is y.D^-1 y - (h - t).(h - t), and the weights are
// L^-T D^-1 (y + Q (h - t)). (Golub and Van Loan, Matrix Computations, 4th ed., 2013, sections 4.1, 5.2 and 10.3.)
//
// Nothing depends on units: with f^2 A and f^2 b, for f from 1e-12 to 1e12, weights are the same and the explained part
// is f^2 times as large, to rounding; a drift may have any unit of its own. Every element is summed in one order, so
// that bits are the same for any number of threads, any level and any number of targets at a time.

#include <cstddef>

#include "core/parallel.hpp"
#include "numeric/lanes.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// A factor is one block of doubles, 64-byte aligned: of `n` data, at least 1, and `q` drift columns, 0 or more. It is
// read by any number of threads at a time.
std::size_t FactorSize(int n, int q) noexcept;

// Puts row i of the covariances in the place where Factorise expects it: row[0] to row[i], the lower triangle.
void SetFactorRow(int n, int i, const double* row, double* factor) noexcept;

// Factorises.
//   drift    n values for each of the q columns: column k at drift + k*n; not read if q is 0
//   factor   in: the covariances, all rows set by SetFactorRow; out: the factor
// False if a pivot is not above rounding relative to its diagonal element, or a drift column depends on those before it:
// the factor is of no use then.
[[nodiscard]] bool Factorise(const Dealing& dealing, int n, int q, const double* drift, double* factor,
                             SimdLevel level = BestSimdLevel()) noexcept;

// What Krige needs of the data's values, for one variable of many that may share a factor.
//   z        n values
//   values   out: n + q numbers
void PrepareValues(int n, int q, const double* factor, const double* z, double* values) noexcept;

// Estimates and explained parts of nblock*kLanes targets, in blocks of kLanes targets side by side.
//   values      as from PrepareValues; null if no estimates are wanted
//   b           in: the covariances, of target `lane` of a block with datum i at b[(block*n + i)*kLanes + lane]
//               out: what KrigingWeights needs
//   g           in: the targets' drift, column k at g[(block*q + k)*kLanes + lane]; out: what KrigingWeights needs; not
//               touched if q is 0
//   estimate    out: nblock*kLanes numbers; not written if values is null
//   explained   out: nblock*kLanes numbers
// b, g, estimate and explained are 64-byte aligned. A lane without a target may hold any number, and disturbs no other.
// More blocks at a time are faster: a large factor then comes from the cache for all but the first of them.
void Krige(int n, int q, const double* factor, const double* values, std::ptrdiff_t nblock, double* b, double* g,
           double* estimate, double* explained, SimdLevel level = BestSimdLevel()) noexcept;

// The weights of targets that Krige has been called for.
//   b   in: as Krige left it; out: the weights, laid out as the covariances were
//   g   in: as Krige left it; out: the multipliers, laid out as the drift was; not touched if q is 0
void KrigingWeights(int n, int q, const double* factor, std::ptrdiff_t nblock, double* b, double* g,
                    SimdLevel level = BestSimdLevel()) noexcept;

// Dual weights: the estimate of a target is the sum of b[i]*dual[i] over n data and of g[k]*dual[n + k] over q columns.
//   values   as from PrepareValues
//   dual     out: n + q numbers
void DualWeights(int n, int q, const double* factor, const double* values, double* dual) noexcept;

}  // namespace kestrum

#endif
