#include "analysis/nearest_center.hpp"

#define KESTRUM_KERNEL "analysis/nearest_center_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

kestrum::NearestCenterKernel kestrum::NearestCenterKernelOf(SimdLevel level) noexcept {
  return KESTRUM_KERNEL_AT(level, FindNearestCenters);
}
