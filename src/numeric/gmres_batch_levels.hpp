#ifndef KESTRUM_NUMERIC_GMRES_BATCH_LEVELS_HPP
#define KESTRUM_NUMERIC_GMRES_BATCH_LEVELS_HPP

#include <cstddef>

#include "numeric/gmres.hpp"

namespace kestrum {

// The batch as the kernels take it; `stride` is the step from row to row of the matrix, in doubles.
struct BatchProblem {
  GmresLimits limits;
  int n;
  const double* a;
  std::ptrdiff_t stride;
  const double* b;
  double* x;
  double* work;
};

// Lanes that converged, and lanes that left the common course and must be solved alone from their guess. Bit `lane`.
struct BatchOutcome {
  unsigned converged;
  unsigned alone;
};

// The same kernel, compiled for each level of SimdLevel.
BatchOutcome SolveBatchBaseline(const BatchProblem& problem, bool shared) noexcept;
BatchOutcome SolveBatchAvx2(const BatchProblem& problem, bool shared) noexcept;
BatchOutcome SolveBatchAvx512(const BatchProblem& problem, bool shared) noexcept;

}  // namespace kestrum

#endif
