#include "numeric/cholesky_batch.hpp"

#include "numeric/cholesky.hpp"
#include "numeric/cholesky_layout.hpp"

namespace kestrum {
namespace {

// A batch as the kernels take it. The elements of l are those of a factor of size + 1 rows, kLanes numbers each.
struct BatchSystems {
  int n;
  int size;
  const double* a;
  const double* extra;  // one more row under the matrix: right side or values; null if there is none
  int extraSize;        // its elements, up to `size`; those that follow are zero
  double* l;
  double* pivots;
  double* inversePivots;
};

BatchSystems SystemsOf(int n, int q, const double* a, const double* extra, int extraSize, double* work) {
  const int size = n + q;
  double* const pivots = work + PanelStart(Panels(size + 1)) * kLanes;
  return {n, size, a, extra, extraSize, work, pivots, pivots + Panels(size) * kLanes * kLanes};
}

// What follows the parts of BatchSystems in the work memory.
double* Rest(const BatchSystems& systems) { return systems.inversePivots + Panels(systems.size) * kLanes * kLanes; }

}  // namespace
}  // namespace kestrum

#define KESTRUM_KERNEL "numeric/cholesky_batch_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {

std::size_t KrigingBatchWorkSize(int n, int q) noexcept {
  const int size = n + q;
  return static_cast<std::size_t>((PanelStart(Panels(size + 1)) + 2 * Panels(size) * kLanes + size) * kLanes);
}

unsigned SolveKrigingBatch(int n, int q, const double* a, const double* b, double* x, double* explained, double* work,
                           SimdLevel level) noexcept {
  const BatchSystems systems = SystemsOf(n, q, a, b, n + q, work);
  const unsigned sound = KESTRUM_KERNEL_AT(level, FactoriseSystems)(systems, x);
  return sound & KESTRUM_KERNEL_AT(level, SolveSystems)(systems, x, explained, Rest(systems));
}

unsigned FactoriseBatch(int n, int q, const double* a, const double* z, double* factors, double* values, double* work,
                        SimdLevel level) noexcept {
  const BatchSystems systems = SystemsOf(n, q, a, z, n, work);
  const int size = n + q;
  const std::ptrdiff_t step = static_cast<std::ptrdiff_t>(FactorSize(n, q));
  const unsigned sound = KESTRUM_KERNEL_AT(level, FactoriseSystems)(systems, Rest(systems));
  KESTRUM_KERNEL_AT(level, SeparateLanes)(PanelStart(Panels(size)) / kLanes, systems.l, factors, step);
  KESTRUM_KERNEL_AT(level, SeparateLanes)
  (Panels(size), systems.inversePivots, factors + InversePivotsStart(size), step);
  if (z == nullptr) return sound;
  for (int i = 0; i < size; ++i) {
    for (int lane = 0; lane < kLanes; ++lane) values[lane * size + i] = Rest(systems)[i * kLanes + lane];
  }
  return sound;
}

}  // namespace kestrum
