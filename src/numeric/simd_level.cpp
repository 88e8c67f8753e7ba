#include "numeric/simd_level.hpp"

namespace kestrum {

SimdLevel BestSimdLevel() noexcept {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx512f")) return SimdLevel::kAvx512;
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) return SimdLevel::kAvx2;
#endif
  return SimdLevel::kBaseline;
}

}  // namespace kestrum
