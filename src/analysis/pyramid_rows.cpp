#include "analysis/pyramid_rows.hpp"

#include <limits>
#include <utility>

#include "core/missing_mark.hpp"

#define KESTRUM_KERNEL "analysis/pyramid_rows_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

const kestrum::PyramidKernels& kestrum::PyramidKernelsOf(SimdLevel level, MissingMark mark) noexcept {
  if (mark == MissingMark::kNaN) return KESTRUM_KERNEL_AT(level, kPyramidKernels<MissingMark::kNaN>);
  return KESTRUM_KERNEL_AT(level, kPyramidKernels<MissingMark::kNumber>);
}
