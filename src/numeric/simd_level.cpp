#include "numeric/simd_level.hpp"

#include <algorithm>
#include <atomic>

namespace kestrum {
namespace {

std::atomic<SimdLevel> limitOfLevels{SimdLevel::kAvx512};

SimdLevel MachineLevel() noexcept {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx512f")) return SimdLevel::kAvx512;
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return SimdLevel::kAvx2;
#endif
  return SimdLevel::kBaseline;
}

}  // namespace

SimdLevel BestSimdLevel() noexcept { return std::min(MachineLevel(), limitOfLevels.load(std::memory_order_relaxed)); }

void LimitSimdLevel(SimdLevel limit) noexcept { limitOfLevels.store(limit, std::memory_order_relaxed); }

}  // namespace kestrum
