#include "analysis/distance_lines.hpp"

#include <cstddef>

#define KESTRUM_KERNEL "analysis/distance_lines_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

#define KESTRUM_KERNEL_LEVEL single
#define KESTRUM_KERNEL_TARGET
#define KESTRUM_KERNEL_BYTES 8
#include "numeric/kernel_level.hpp"

namespace kestrum {

LineKernel LineKernelOf(SimdLevel level) noexcept { return KESTRUM_KERNEL_AT(level, EnvelopeOf); }

void EnvelopeOfOneLine(DistanceMetric metric, const LineBlock& block) noexcept { single::EnvelopeOf(metric, block); }

}  // namespace kestrum
