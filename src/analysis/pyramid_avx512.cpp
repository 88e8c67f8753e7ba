#if defined(__x86_64__)

#define KESTRUM_KERNEL_TARGET __attribute__((target("avx512f")))
#define KESTRUM_KERNEL_BYTES 64
#include "analysis/pyramid_kernel.hpp"

constexpr kestrum::PyramidKernels kestrum::kPyramidKernelsAvx512 = KESTRUM_PYRAMID_KERNELS;

#endif
