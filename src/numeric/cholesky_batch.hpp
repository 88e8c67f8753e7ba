#ifndef KESTRUM_NUMERIC_CHOLESKY_BATCH_HPP
#define KESTRUM_NUMERIC_CHOLESKY_BATCH_HPP

// kLanes kriging systems of one size side by side, one per SIMD lane: the factorisation of cholesky.hpp, whose comment
// says what the systems and their parts are. No lane disturbs another, whatever it holds.

#include <cstddef>

#include "numeric/lanes.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// The matrices of a batch. All pointers of this header are 64-byte aligned.
struct KrigingBatch {
  int n;                // data of each system, at least 1
  int q;                // drift columns of each system, 0 or more
  const double* a;      // covariance of data i and j, j <= i, at a[(i*n + j)*kLanes + lane]; others are not read
  const double* drift;  // drift column k at datum i at drift[(k*n + i)*kLanes + lane]; not read if q is 0
};

// Work memory of either function below, in doubles.
std::size_t KrigingBatchWorkSize(int n, int q) noexcept;

// Weights, multipliers and explained part of one target for each system.
//   b             covariance of datum i with the target at b[i*kLanes + lane]
//   g             drift column k at the target at g[k*kLanes + lane]; not read if q is 0
//   weights       out: weight of datum i at weights[i*kLanes + lane]
//   multipliers   out: multiplier of column k at multipliers[k*kLanes + lane]; not written if q is 0
//   explained     out: kLanes numbers
// Returns the lanes that are solved: bit `lane` is set if all pivots were above rounding relative to their diagonal
// elements, no drift column depends on those before it, and the residual, from the matrix as it was given, is at most
// 1e-10 of the largest number in A and b, or in a drift column and its target value. What other lanes hold is of no use.
unsigned SolveKrigingBatch(const KrigingBatch& systems, const double* b, const double* g, double* weights,
                           double* multipliers, double* explained, double* work,
                           SimdLevel level = BestSimdLevel()) noexcept;

// Factorises each system for as many targets as one likes.
//   z         value of datum i at z[i*kLanes + lane]; null if no estimates are wanted
//   factors   out: for each lane a factor as Factorise makes it, at factors + lane*FactorSize(n, q)
//   values    out: for each lane n + q numbers as from PrepareValues, at values + lane*(n + q); not written if z is null
// Returns the lanes that are factorised, by the tests of SolveKrigingBatch but the one of the residual.
unsigned FactoriseBatch(const KrigingBatch& systems, const double* z, double* factors, double* values, double* work,
                        SimdLevel level = BestSimdLevel()) noexcept;

}  // namespace kestrum

#endif
