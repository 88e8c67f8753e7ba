#ifndef KESTRUM_NUMERIC_SIMD_LEVEL_HPP
#define KESTRUM_NUMERIC_SIMD_LEVEL_HPP

namespace kestrum {

// Instruction sets that kernels are compiled for, each level holding the ones below it: AVX2 with fused multiply-add, and
// AVX-512. No result depends on the level.
enum class SimdLevel { kBaseline, kAvx2, kAvx512 };

// The highest level that this machine runs, up to the limit.
SimdLevel BestSimdLevel() noexcept;

// For tests of the levels: kernels that are called from now on take no higher one.
void LimitSimdLevel(SimdLevel limit) noexcept;

}  // namespace kestrum

#endif
