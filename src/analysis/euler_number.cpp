#include "analysis/euler_number.hpp"

#include <cstddef>
#include <cstdint>
#include <type_traits>

#define KESTRUM_KERNEL "analysis/euler_number_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 32
#include "numeric/kernel_levels.hpp"

namespace kestrum {

int EulerNumberOfRows(const VORL_GRID& grid, const real* values, int first, int step, SimdLevel level) noexcept {
  return KESTRUM_KERNEL_AT(level, SumOverRows<real>)(grid, values, first, step);
}

int EulerNumberOfRows(const VORL_GRID& grid, const int* labels, int first, int step, SimdLevel level) noexcept {
  return KESTRUM_KERNEL_AT(level, SumOverRows<int>)(grid, labels, first, step);
}

}  // namespace kestrum
