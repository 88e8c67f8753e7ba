#include "numeric/gather_lanes.hpp"

#define KESTRUM_KERNEL "numeric/gather_lanes_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {

void GatherLanes(int n, const double* table, const int* start, const int* position, double* out,
                 SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, Gather)(n, table, start, position, out);
}

bool GatherDifferences(int n, const double* table, double missing, const int* from, const int* to, double* row,
                       std::ptrdiff_t stride, double* column, std::ptrdiff_t step, SimdLevel level) noexcept {
  return KESTRUM_KERNEL_AT(level, GatherSymmetric)(n, table, missing, from, to, row, stride, column, step);
}

}  // namespace kestrum
