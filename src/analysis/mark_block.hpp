#ifndef KESTRUM_ANALYSIS_MARK_BLOCK_HPP
#define KESTRUM_ANALYSIS_MARK_BLOCK_HPP

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include "core/constants.h"
#include "core/types.h"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Values in one of n intervals, or in none of them; a missing value never is.
struct IntervalSet {
  int n;
  const real* lower;
  const real* upper;
  bool excludeLower;
  bool excludeUpper;
  bool complement;

  static constexpr real kNotInAny = VORL_MISSING_VALUE;
};

// Values other than 0; NaN is not one.
struct TrueValues {
  static constexpr unsigned char kNotInAny = 0;
};

// All values but NaN.
struct KnownValues {
  static constexpr float kNotInAny = std::numeric_limits<float>::quiet_NaN();
};

// Codes of categories from the first to the last; none of them is negative.
struct CodeRange {
  std::int16_t first;
  std::int16_t last;
};

// Sets marks[i] to 1 where values[i] lies in the set and to 0 elsewhere, for kMarkBlock values.
constexpr int kMarkBlock = 64;
template <typename T, typename Set>
void MarkBlock(const T* values, const Set& set, SimdLevel level, unsigned char* marks) noexcept;

// The marks of n values as bits, the first one lowest, in words whose bits after the last value are 0. Returns how many
// are set.
template <typename T, typename Set>
int MarkWords(const T* values, std::ptrdiff_t n, const Set& set, std::uint64_t* words,
              SimdLevel level = BestSimdLevel()) noexcept;

// Calls body(first, n, marks) with the marks of the nodes first to first + n - 1, block by block from begin to end.
// There are always kMarkBlock marks; those after the nodes are 0.
template <typename T, typename Set, typename Body>
void ForEachBlock(const T* values, std::ptrdiff_t begin, std::ptrdiff_t end, const Set& set,
                  const Body& body) noexcept {
  const SimdLevel level = BestSimdLevel();
  unsigned char marks[kMarkBlock];
  for (; begin + kMarkBlock <= end; begin += kMarkBlock) {
    MarkBlock(values + begin, set, level, marks);
    body(begin, kMarkBlock, marks);
  }
  if (begin == end) return;
  T rest[kMarkBlock];
  std::fill(std::copy(values + begin, values + end, rest), rest + kMarkBlock, static_cast<T>(Set::kNotInAny));
  MarkBlock(rest, set, level, marks);
  body(begin, static_cast<int>(end - begin), marks);
}

}  // namespace kestrum

#endif
