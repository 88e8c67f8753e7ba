#define KESTRUM_KERNEL_TARGET
#define KESTRUM_KERNEL_BYTES 16
#include "analysis/pyramid_kernel.hpp"

constexpr kestrum::PyramidKernels kestrum::kPyramidKernelsBaseline = KESTRUM_PYRAMID_KERNELS;
