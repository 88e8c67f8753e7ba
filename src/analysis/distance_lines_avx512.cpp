#if defined(__x86_64__)

#define KESTRUM_KERNEL_TARGET __attribute__((target("avx512f")))
#define KESTRUM_KERNEL_BYTES 64
#define KESTRUM_KERNEL_LANES kLineLanes
#include "analysis/distance_lines_kernel.hpp"

void kestrum::EnvelopeAvx512(DistanceMetric metric, const LineBlock& block) noexcept { Envelope(metric, block); }

#endif
