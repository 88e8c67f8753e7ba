#include "analysis/mark_block.hpp"

#include <cstring>

#include "core/variables.hpp"

#define KESTRUM_KERNEL "analysis/mark_block_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 32
#include "numeric/kernel_levels.hpp"

void kestrum::MarkBlock(const real* values, const IntervalSet& set, SimdLevel level, unsigned char* marks) noexcept {
  KESTRUM_KERNEL_AT(level, MarkBlockOfAnyType)(values, set, marks);
}
