#ifndef KESTRUM_NUMERIC_DRIFT_PROJECTION_HPP
#define KESTRUM_NUMERIC_DRIFT_PROJECTION_HPP

#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// What the restricted likelihood of n data with covariances A and q drift columns F needs:
//   P = A^-1 - A^-1 F (F^T A^-1 F)^-1 F^T A^-1   and   log|A| + log|F^T A^-1 F|.
// Column j of P is the weights of a target that has covariance 1 with datum j alone, and no drift.
//   matrix          n rows of n covariances, of which the lower triangle is read
//   drift           q columns of n numbers, one after the other
//   projection      out: n rows of n numbers
//   logDeterminant  out: the sum of the logarithms; infinite if A is not positive definite to rounding or the columns
//                   depend on each other, and `projection` is not written then
//   progress        whether to go on is asked for all along
// Returns 0, kAborted or the status of a failed allocation. The bits do not depend on the number of threads.
[[nodiscard]] int ProjectOutDrift(int n, int q, const double* matrix, const double* drift, const Dealing& dealing,
                                  const Progress& progress, double* projection, double* logDeterminant) noexcept;

}  // namespace kestrum

#endif
