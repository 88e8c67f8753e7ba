#if defined(__x86_64__)

#define KESTRUM_KERNEL_TARGET __attribute__((target("avx2")))
#define KESTRUM_KERNEL_BYTES 32
#define KESTRUM_KERNEL_NAME FindNearestCentersAvx2
#include "analysis/nearest_center_kernel.hpp"

#endif
