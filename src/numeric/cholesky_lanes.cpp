#include "numeric/cholesky_lanes.hpp"

#include "numeric/cholesky_layout.hpp"

namespace kestrum {
namespace {

constexpr std::ptrdiff_t RowStart(std::ptrdiff_t i) { return i * (i + 1) / 2 * kLanes; }
const double* InversePivot(const double* factor, int i) { return factor + RowStart(i) + i * kLanes; }

}  // namespace
}  // namespace kestrum

#define KESTRUM_KERNEL "numeric/cholesky_lanes_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {

LanesOutcome FactoriseLanes(int n, int q, const double* diagonal, double* a, double* work, SimdLevel level) noexcept {
  return KESTRUM_KERNEL_AT(level, Factorise)(n, q, diagonal, a, work);
}

void PrepareLanes(int size, const double* factor, double* x, SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, SolveForward)(size, factor, 1, x);
  for (int i = 0; i < size; ++i) {
    for (int lane = 0; lane < kLanes; ++lane) x[i * kLanes + lane] *= InversePivot(factor, i)[lane];
  }
}

void KrigeLanes(int size, const double* factor, const double* values, int nround, double* b, double* estimate,
                double* explained, SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, SolveForward)(size, factor, nround, b);
  KESTRUM_KERNEL_AT(level, SumProducts)(size, factor, values, nround, b, estimate, explained);
}

void WeightsOfLanes(int size, const double* factor, double* x) noexcept {
  for (int i = 0; i < size; ++i) {
    for (int lane = 0; lane < kLanes; ++lane) x[i * kLanes + lane] *= InversePivot(factor, i)[lane];
  }
  for (int i = size - 1; i > 0; --i) {
    const double* const row = factor + RowStart(i);
    for (int k = 0; k < i; ++k) {
      for (int lane = 0; lane < kLanes; ++lane) {
        x[k * kLanes + lane] -= row[k * kLanes + lane] * x[i * kLanes + lane];
      }
    }
  }
}

}  // namespace kestrum
