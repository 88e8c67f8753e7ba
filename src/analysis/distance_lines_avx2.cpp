#if defined(__x86_64__)

#define KESTRUM_KERNEL_TARGET __attribute__((target("avx2")))
#define KESTRUM_KERNEL_BYTES 32
#define KESTRUM_KERNEL_LANES kLineLanes
#include "analysis/distance_lines_kernel.hpp"

void kestrum::EnvelopeAvx2(DistanceMetric metric, const LineBlock& block) noexcept { Envelope(metric, block); }

#endif
