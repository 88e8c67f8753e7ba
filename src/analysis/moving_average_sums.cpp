#include "analysis/moving_average_sums.hpp"

#include "core/types.h"

// Of wider loads nearly all cross a cache line: they gain nothing.
#define KESTRUM_KERNEL "analysis/moving_average_sums_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 32
#include "numeric/kernel_levels.hpp"

const kestrum::SumKernels& kestrum::SumKernelsOf(SimdLevel level) noexcept {
  return KESTRUM_KERNEL_AT(level, kSumKernels);
}
