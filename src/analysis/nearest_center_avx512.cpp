#if defined(__x86_64__)

#define KESTRUM_KERNEL_TARGET __attribute__((target("avx512f")))
#define KESTRUM_KERNEL_BYTES 64
#define KESTRUM_KERNEL_NAME FindNearestCentersAvx512
#include "analysis/nearest_center_kernel.hpp"

#endif
