#include "analysis/lag_sums.hpp"

#include <limits>

#include "core/missing_mark.hpp"

#define KESTRUM_KERNEL "analysis/lag_sums_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

kestrum::LagSumsKernel kestrum::LagSumsKernelOf(SimdLevel level) noexcept { return KESTRUM_KERNEL_AT(level, SumLags); }
