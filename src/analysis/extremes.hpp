#ifndef KESTRUM_ANALYSIS_EXTREMES_HPP
#define KESTRUM_ANALYSIS_EXTREMES_HPP

#include <cstddef>
#include <limits>

#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// The least and the greatest of some values. A zero has no sign.
struct Extremes {
  double least = std::numeric_limits<double>::infinity();
  double greatest = -std::numeric_limits<double>::infinity();
};

// Finds those of n values, but for NaN; without values they stay as they are. Returns 0, the status of a failed
// allocation, or kAborted.
template <typename T>
[[nodiscard]] int FindExtremes(std::ptrdiff_t n, const T* values, const Dealing& dealing, const Progress& progress,
                               Extremes* found) noexcept;

}  // namespace kestrum

#endif
