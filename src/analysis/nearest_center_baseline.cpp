#define KESTRUM_KERNEL_TARGET
#define KESTRUM_KERNEL_BYTES 16
#define KESTRUM_KERNEL_NAME FindNearestCentersBaseline
#include "analysis/nearest_center_kernel.hpp"
