#ifndef KESTRUM_NUMERIC_SIMD_LEVEL_HPP
#define KESTRUM_NUMERIC_SIMD_LEVEL_HPP

namespace kestrum {

// Instruction sets that kernels are compiled for, each level holding the ones below it: AVX2 with fused multiply-add, and
// AVX-512. No result depends on the level.
enum class SimdLevel { kBaseline, kAvx2, kAvx512 };

// The highest level that this machine runs. Out of line, so that a test program can answer in its place.
SimdLevel BestSimdLevel() noexcept;

}  // namespace kestrum

#endif
