#include "analysis/pyramid_rows.hpp"

#include <utility>

#include "core/types.h"

#define KESTRUM_KERNEL "analysis/pyramid_rows_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

const kestrum::PyramidKernels& kestrum::PyramidKernelsOf(SimdLevel level) noexcept {
  return KESTRUM_KERNEL_AT(level, kPyramidKernels);
}
