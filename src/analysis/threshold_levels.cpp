#include "analysis/threshold_levels.hpp"

#include <algorithm>
#include <bit>
#include <limits>

#define KESTRUM_KERNEL "analysis/threshold_levels_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {

void WriteLevels(const double* values, int n, const double* thresholds, bool above, SimdLevel simd,
                 const LevelBits& levels) noexcept {
  KESTRUM_KERNEL_AT(simd, WriteLevelBits)(values, n, thresholds, above, levels);
}

int MarkFromLevel(const LevelBits& levels, int least, std::ptrdiff_t nword, SimdLevel simd,
                  std::uint64_t* marks) noexcept {
  return KESTRUM_KERNEL_AT(simd, MarkByLevelBits)(levels, least, nword, marks);
}

}  // namespace kestrum
