#define KESTRUM_KERNEL_TARGET
#define KESTRUM_KERNEL_BYTES 16
#include "analysis/moving_average_kernel.hpp"

constexpr kestrum::SumKernels kestrum::kSumKernelsBaseline = {SumList, SumInformed, SumBoxRows};
