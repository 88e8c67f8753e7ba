#if defined(__x86_64__)

#define KESTRUM_KERNEL_TARGET __attribute__((target("avx2")))
#define KESTRUM_KERNEL_BYTES 32
#include "analysis/moving_average_kernel.hpp"

constexpr kestrum::SumKernels kestrum::kSumKernelsAvx2 = {SumList, SumInformed, SumBoxRows};

#endif
