#include "analysis/mark_block.hpp"

#include <cstring>

#include "core/variables.hpp"

#define KESTRUM_KERNEL "analysis/mark_block_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 32
#include "numeric/kernel_levels.hpp"

namespace kestrum {

void MarkBlock(const real* values, const IntervalSet& set, SimdLevel level, unsigned char* marks) noexcept {
  KESTRUM_KERNEL_AT(level, MarkBlockOfAnyType)(values, set, marks);
}

void MarkBlock(const unsigned char* values, TrueValues, SimdLevel level, unsigned char* marks) noexcept {
  KESTRUM_KERNEL_AT(level, MarkTrue<unsigned char>)(values, marks);
}

void MarkBlock(const int* values, TrueValues, SimdLevel level, unsigned char* marks) noexcept {
  KESTRUM_KERNEL_AT(level, MarkTrue<int>)(values, marks);
}

void MarkBlock(const float* values, TrueValues, SimdLevel level, unsigned char* marks) noexcept {
  KESTRUM_KERNEL_AT(level, MarkTrue<float>)(values, marks);
}

void MarkBlock(const double* values, TrueValues, SimdLevel level, unsigned char* marks) noexcept {
  KESTRUM_KERNEL_AT(level, MarkTrue<double>)(values, marks);
}

void MarkBlock(const float* values, KnownValues, SimdLevel level, unsigned char* marks) noexcept {
  KESTRUM_KERNEL_AT(level, MarkKnown<float>)(values, marks);
}

void MarkBlock(const double* values, KnownValues, SimdLevel level, unsigned char* marks) noexcept {
  KESTRUM_KERNEL_AT(level, MarkKnown<double>)(values, marks);
}

}  // namespace kestrum
