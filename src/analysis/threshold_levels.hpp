#ifndef KESTRUM_ANALYSIS_THRESHOLD_LEVELS_HPP
#define KESTRUM_ANALYSIS_THRESHOLD_LEVELS_HPP

#include "numeric/simd_level.hpp"

namespace kestrum {

// For each of kLevelBlock values, how many of n thresholds, at most 255, lie below it, or (not `above`) at it or above it;
// none for NaN.
constexpr int kLevelBlock = 64;
void ThresholdLevels(const double* values, int n, const double* thresholds, bool above, SimdLevel level,
                     unsigned char* levels) noexcept;

}  // namespace kestrum

#endif
