#include "numeric/gmres_batch.hpp"

#include <cstring>

#include "core/types.h"
#include "numeric/gmres_body.hpp"

namespace kestrum {
namespace {

// The batch as the kernels take it; `stride` is the step from column to column of the matrix, in doubles, of a shared
// one from row to row.
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

}  // namespace
}  // namespace kestrum

#define KESTRUM_KERNEL "numeric/gmres_batch_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {
namespace {

// Runs the kernel, and what lanes it leaves through the plain solver, each from its guess again. `rows` is the matrix
// of lane 0, `laneStep` the step to the matrix of the next lane.
unsigned SolveAllLanes(const BatchProblem& problem, const StridedRows& rows, int lanes, int laneStep, SimdLevel level) {
  const std::size_t n = static_cast<std::size_t>(problem.n);
  double* const guess = problem.work;
  std::memcpy(guess, problem.x, n * lanes * sizeof(double));
  BatchProblem inner = problem;
  inner.work = guess + n * lanes;
  const auto kernel = laneStep == 0     ? KESTRUM_KERNEL_AT(level, SolveSharedBatch)
                      : lanes == kLanes ? KESTRUM_KERNEL_AT(level, SolveBatch)
                                        : KESTRUM_KERNEL_AT(level, SolveWideBatch);
  const BatchOutcome outcome = kernel(inner);
  unsigned converged = outcome.converged;
  for (int lane = 0; outcome.alone >> lane != 0; ++lane) {
    if ((outcome.alone >> lane & 1) == 0) continue;
    double* const b = inner.work;
    double* const x = b + n;
    for (std::size_t i = 0; i < n; ++i) {
      b[i] = problem.b[i * lanes + lane];
      x[i] = guess[i * lanes + lane];
    }
    const StridedRows own{rows.start + lane * laneStep, rows.rowStride, rows.columnStride};
    if (SolveByGmres(problem.limits, problem.n, own, b, x, x + n)) converged |= 1U << lane;
    for (std::size_t i = 0; i < n; ++i) problem.x[i * lanes + lane] = x[i];
  }
  return converged;
}

}  // namespace

std::size_t GmresBatchWorkSize(int n, int restart, int lanes) noexcept {
  // The guesses, and the work of all lanes, in which the work of one lane alone finds room too.
  return lanes * (static_cast<std::size_t>(n) + GmresWorkSize(n, restart));
}

unsigned GmresBatch(const GmresLimits& limits, int n, int lanes, const double* a, const double* b, double* x,
                    double* work, SimdLevel level) noexcept {
  const std::ptrdiff_t stride = static_cast<std::ptrdiff_t>(n) * lanes;
  return SolveAllLanes({limits, n, a, stride, b, x, work}, {a, lanes, stride}, lanes, 1, level);
}

unsigned GmresBatchShared(const GmresLimits& limits, int n, const double* a, std::ptrdiff_t stride, const double* b,
                          double* x, double* work, SimdLevel level) noexcept {
  return SolveAllLanes({limits, n, a, stride, b, x, work}, {a, stride}, kLanes, 0, level);
}

}  // namespace kestrum
