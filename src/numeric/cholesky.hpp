#ifndef KESTRUM_NUMERIC_CHOLESKY_HPP
#define KESTRUM_NUMERIC_CHOLESKY_HPP

// Kriging systems by factorisation: the covariances A between n data (symmetric, positive definite) and q drift columns
// F (n x q; none for simple kriging, one of ones for ordinary kriging), factorised once for many targets. A target with
// covariances b (n) and drift g (q) has weights w and multipliers m:
//
//   ( A    F ) ( w )   ( b )
//   ( F^T  0 ) ( m ) = ( g )
//
// With c the variance of the target, the kriging variance is c minus the explained part, w.b + m.g.
//
// The matrix, of n + q rows, is L D L^T with L unit lower triangular and D diagonal: n pivots above zero, then q below,
// which belong to the Schur complement of the drift (Vanderbei, Symmetric quasidefinite matrices, SIAM Journal on
// Optimization 5, 1995). No exchange of rows is needed. With y = L^-1 (b, g) the explained part is y.D^-1 y and the
// weights are L^-T D^-1 y.
//
// Nothing depends on units: with f^2 A and f^2 b, for f from 1e-12 to 1e12, weights are the same and the explained part
// is f^2 times as large, to rounding; each drift column may have a unit of its own. But columns that are nearly
// dependent cost digits, twice as many as in the columns themselves: coordinates should count from a place near the
// data, and covariates from a value near theirs. Every element is summed in one order, so that bits are the same for
// any number of threads, any level and any number of targets at a time.

#include <cstddef>

#include "core/parallel.hpp"
#include "core/progress.hpp"
#include "numeric/lanes.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// A factor is one block of doubles, 64-byte aligned, for `n` data, at least 1, and `q` drift columns, 0 or more. Any
// number of threads may read it.
std::size_t FactorSize(int n, int q) noexcept;

// Puts row i of the system's matrix where Factorise expects it, for all i from 0 to n + q - 1:
//   row   if i < n: the covariances of datum i with data 0 to i; else: drift column i - n at the n data
void SetFactorRow(int n, int i, const double* row, double* factor) noexcept;

// What is wrong with a system.
struct SystemFlaws {
  int redundant = 0;        // data that tell nothing, to rounding, that those before them do not
  bool indefinite = false;  // the covariances are not positive definite
  bool dependent = false;   // drift columns depend on each other
};

// Factorises.
//   factor   in: the matrix, each of its rows set by SetFactorRow; out: the factor
//   flaws    out: what is wrong; redundant data are left out then, and have weights of zero. Null for a factor of all
//            data or none
//   progress   whether to go on is asked for all along
// False if a pivot is not above rounding relative to its diagonal element, that is if A is not positive definite or
// drift columns depend on each other, or if the job is to stop: the factor is of no use then.
[[nodiscard]] bool Factorise(const Dealing& dealing, int n, int q, double* factor, SimdLevel level = BestSimdLevel(),
                             SystemFlaws* flaws = nullptr,
                             const Progress& progress = Progress(nullptr, nullptr)) noexcept;

// What Krige needs of the data's values, for one variable of many that may share a factor.
//   z        n values
//   values   out: n + q numbers
void PrepareValues(int n, int q, const double* factor, const double* z, double* values) noexcept;

// Estimates and explained parts of nblock*kLanes targets, in blocks of kLanes targets side by side.
//   values      as from PrepareValues; null if no estimates are wanted
//   b           in: element i of the right side of target `lane` of a block at b[(block*(n + q) + i)*kLanes + lane]: its
//               covariances with the n data, then the q drift columns at the target; out: what KrigingWeights needs
//   estimate    out: nblock*kLanes numbers; not written if values is null
//   explained   out: nblock*kLanes numbers
// b, estimate and explained are 64-byte aligned. A lane without a target may hold any number, and disturbs no other.
// Several blocks at a time are faster, best a multiple of 6: what is loaded of the factor then serves all of them.
void Krige(int n, int q, const double* factor, const double* values, std::ptrdiff_t nblock, double* b, double* estimate,
           double* explained, SimdLevel level = BestSimdLevel()) noexcept;

// The weights of targets that Krige has been called for.
//   b   in: as Krige left it; out: the weights and the multipliers, laid out as the right sides were
void KrigingWeights(int n, int q, const double* factor, std::ptrdiff_t nblock, double* b,
                    SimdLevel level = BestSimdLevel()) noexcept;

// Dual weights: the estimate of a target is the product of its right side with them.
//   values   in: as from PrepareValues; out: n + q dual weights
void DualWeights(int n, int q, const double* factor, double* values) noexcept;

}  // namespace kestrum

#endif
