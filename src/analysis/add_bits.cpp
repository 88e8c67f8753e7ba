#include "analysis/add_bits.hpp"

#include <algorithm>

#define KESTRUM_KERNEL "analysis/add_bits_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 32
#include "numeric/kernel_levels.hpp"

namespace kestrum {

void AddBits(const std::uint64_t* from, std::ptrdiff_t n, SimdLevel level, std::uint64_t* to) noexcept {
  KESTRUM_KERNEL_AT(level, AddAll)(from, n, to);
}

void GrowBits(const RowsOfBits& rows, std::ptrdiff_t begin, std::ptrdiff_t end, std::ptrdiff_t low, int length,
              SimdLevel level, std::uint64_t* to) noexcept {
  KESTRUM_KERNEL_AT(level, GrowAll)(rows, begin, end, low, length, to);
}

}  // namespace kestrum
