#include "analysis/threshold_levels.hpp"

#define KESTRUM_KERNEL "analysis/threshold_levels_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {

void ThresholdLevels(const double* values, int n, const double* thresholds, bool above, SimdLevel level,
                     unsigned char* levels) noexcept {
  KESTRUM_KERNEL_AT(level, CountThresholds)(values, n, thresholds, above, levels);
}

}  // namespace kestrum
