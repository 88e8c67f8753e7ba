#ifndef KESTRUM_NUMERIC_CHOLESKY_BATCH_HPP
#define KESTRUM_NUMERIC_CHOLESKY_BATCH_HPP

// kLanes kriging systems of one size side by side, one per SIMD lane. numeric/cholesky.hpp says what the systems and
// their parts are. No lane disturbs another, whatever it holds.
//
// The matrices are interleaved as for GmresBatch: with size = n + q, element (i, j) of a lane at
// a[(i*size + j)*kLanes + lane]. Only elements on and below the diagonal count, and the q x q corner of the drift is
// taken as zero; the others may hold anything. All pointers are 64-byte aligned, except `values`.

#include <cstddef>

#include "numeric/lanes.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Work memory of either function below, in doubles.
std::size_t KrigingBatchWorkSize(int n, int q) noexcept;

// Weights, multipliers and explained part of one target for each system of n data (at least 1) and q drift columns.
//   a           the matrices
//   b           the right sides, element i at b[i*kLanes + lane]: n covariances with the target, then q drift values
//   x           out: n weights and q multipliers, laid out as b
//   explained   out: kLanes numbers
// Returns the lanes that are solved: bit `lane` is set if all pivots were above rounding relative to their diagonal
// elements, and the residual, from the matrix as it was given, is at most 1e-10 of the largest covariance, or in the row
// of a drift column of that column's largest number. What other lanes give is of no use.
unsigned SolveKrigingBatch(int n, int q, const double* a, const double* b, double* x, double* explained, double* work,
                           SimdLevel level = BestSimdLevel()) noexcept;

// Factorises each system for as many targets as one likes.
//   a         the matrices
//   z         value of datum i at z[i*kLanes + lane]; null if no estimates are wanted
//   factors   out: for each lane a factor as Factorise makes it, at factors + lane*FactorSize(n, q)
//   values    out: for each lane n + q numbers as from PrepareValues, at values + lane*(n + q); not written if z is null
// Returns the lanes that are factorised: those whose pivots were all above rounding.
unsigned FactoriseBatch(int n, int q, const double* a, const double* z, double* factors, double* values, double* work,
                        SimdLevel level = BestSimdLevel()) noexcept;

}  // namespace kestrum

#endif
