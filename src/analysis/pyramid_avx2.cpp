#if defined(__x86_64__)

#define KESTRUM_KERNEL_TARGET __attribute__((target("avx2")))
#define KESTRUM_KERNEL_BYTES 32
#include "analysis/pyramid_kernel.hpp"

constexpr kestrum::PyramidKernels kestrum::kPyramidKernelsAvx2 = KESTRUM_PYRAMID_KERNELS;

#endif
