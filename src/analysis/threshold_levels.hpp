#ifndef KESTRUM_ANALYSIS_THRESHOLD_LEVELS_HPP
#define KESTRUM_ANALYSIS_THRESHOLD_LEVELS_HPP

#include <cstddef>
#include <cstdint>

#include "numeric/simd_level.hpp"

namespace kestrum {

// The levels of values: how many of some thresholds, at most 255, lie below each or, in the other direction, at it or
// above it; none for NaN. Bit b of the levels is in words[b * stride + i] for values 64 i to 64 i + 63, the first one
// lowest.
struct LevelBits {
  std::uint64_t* words;
  std::ptrdiff_t stride;
  int nbit;
  unsigned char* smallest;  // at most the smallest level of each 64 values
  unsigned char* largest;
};

// Writes those of kLevelBlock values.
//   thresholds  n, a multiple of 8: not decreasing or (not `above`) not increasing, with NaN after the last
constexpr int kLevelBlock = 64;
void WriteLevels(const double* values, int n, const double* thresholds, bool above, SimdLevel simd,
                 const LevelBits& levels) noexcept;

// Marks the values whose levels are at least `least`, which is 1 at least, as bits; returns how many they are.
int MarkFromLevel(const LevelBits& levels, int least, std::ptrdiff_t nword, SimdLevel simd,
                  std::uint64_t* marks) noexcept;

}  // namespace kestrum

#endif
