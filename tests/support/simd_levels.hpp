#ifndef KESTRUM_TESTS_SUPPORT_SIMD_LEVELS_HPP
#define KESTRUM_TESTS_SUPPORT_SIMD_LEVELS_HPP

#include <vector>

#include "numeric/simd_level.hpp"

namespace kestrum_test {

// The levels that this machine runs.
inline std::vector<kestrum::SimdLevel> Levels() {
  using kestrum::SimdLevel;
  std::vector<SimdLevel> levels;
  for (const SimdLevel level : {SimdLevel::kBaseline, SimdLevel::kAvx2, SimdLevel::kAvx512}) {
    if (level <= kestrum::BestSimdLevel()) levels.push_back(level);
  }
  return levels;
}

}  // namespace kestrum_test

#endif
