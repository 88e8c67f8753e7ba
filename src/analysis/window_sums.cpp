#include "analysis/window_sums.hpp"

#include <algorithm>
#include <utility>

#define KESTRUM_KERNEL "analysis/window_sums_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 32
#include "numeric/kernel_levels.hpp"

namespace kestrum {

void SumWindows(const WindowBlock<double>& block, SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, SumAll<double>)(block);
}

void SumWindows(const WindowBlock<unsigned>& block, SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, SumAll<unsigned>)(block);
}

}  // namespace kestrum
