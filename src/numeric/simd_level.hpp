#ifndef KESTRUM_NUMERIC_SIMD_LEVEL_HPP
#define KESTRUM_NUMERIC_SIMD_LEVEL_HPP

namespace kestrum {

// Instruction sets that kernels are compiled for, each level holding the ones below it. No result depends on the level.
enum class SimdLevel { kBaseline, kAvx2, kAvx512 };

// The highest level that this machine runs.
inline SimdLevel BestSimdLevel() noexcept {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx512f")) return SimdLevel::kAvx512;
  if (__builtin_cpu_supports("avx2")) return SimdLevel::kAvx2;
#endif
  return SimdLevel::kBaseline;
}

}  // namespace kestrum

#endif
