#ifndef KESTRUM_ANALYSIS_ADD_BITS_HPP
#define KESTRUM_ANALYSIS_ADD_BITS_HPP

#include <cstddef>
#include <cstdint>

#include "numeric/simd_level.hpp"

namespace kestrum {

// Adds the bits of n words to those of others.
void AddBits(const std::uint64_t* from, std::ptrdiff_t n, SimdLevel level, std::uint64_t* to) noexcept;

// Rows of bits, each of so many words; n words in all.
struct RowsOfBits {
  const std::uint64_t* bits;
  std::ptrdiff_t n;
  int words;
};

// Of each node in the words from `begin` on and before `end`, whether one of the `length` nodes of its row, 64 at most, from
// the one `low` nodes away on is set.
void GrowBits(const RowsOfBits& rows, std::ptrdiff_t begin, std::ptrdiff_t end, std::ptrdiff_t low, int length,
              SimdLevel level, std::uint64_t* to) noexcept;

}  // namespace kestrum

#endif
