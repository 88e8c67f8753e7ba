#ifndef KESTRUM_ANALYSIS_MARK_BLOCK_HPP
#define KESTRUM_ANALYSIS_MARK_BLOCK_HPP

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
};

// Sets marks[i] to 1 where values[i] lies in the set and to 0 elsewhere, for kMarkBlock values.
constexpr int kMarkBlock = 64;
void MarkBlock(const real* values, const IntervalSet& set, SimdLevel level, unsigned char* marks) noexcept;

}  // namespace kestrum

#endif
