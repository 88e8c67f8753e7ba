#define KESTRUM_KERNEL_TARGET
#define KESTRUM_KERNEL_BYTES 8
#define KESTRUM_KERNEL_LANES 1
#include "analysis/distance_lines_kernel.hpp"

void kestrum::EnvelopeOfOneLine(DistanceMetric metric, const LineBlock& block) noexcept { Envelope(metric, block); }
