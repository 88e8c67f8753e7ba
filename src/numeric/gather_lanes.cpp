#include "numeric/gather_lanes.hpp"

#define KESTRUM_KERNEL "numeric/gather_lanes_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {

void GatherLanes(int n, const double* table, const int* start, const int* position, double* out,
                 SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, Gather)(n, table, start, position, out);
}

}  // namespace kestrum
