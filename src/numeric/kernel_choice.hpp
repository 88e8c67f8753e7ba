#ifndef KESTRUM_NUMERIC_KERNEL_CHOICE_HPP
#define KESTRUM_NUMERIC_KERNEL_CHOICE_HPP

#include "numeric/simd_level.hpp"

namespace kestrum {

// The kernel of a level, of pointers to the same kernel compiled for each. Those of sets that the target lacks need not
// exist.
template <auto kBaseline, auto kAvx2, auto kAvx512>
constexpr auto KernelAt([[maybe_unused]] SimdLevel level) noexcept {
#if defined(__x86_64__)
  if (level == SimdLevel::kAvx512) return kAvx512;
  if (level == SimdLevel::kAvx2) return kAvx2;
#endif
  return kBaseline;
}

}  // namespace kestrum

#endif
