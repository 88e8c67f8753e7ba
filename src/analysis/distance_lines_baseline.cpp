#define KESTRUM_KERNEL_TARGET
#define KESTRUM_KERNEL_BYTES 16
#define KESTRUM_KERNEL_LANES kLineLanes
#include "analysis/distance_lines_kernel.hpp"

void kestrum::EnvelopeBaseline(DistanceMetric metric, const LineBlock& block) noexcept { Envelope(metric, block); }
