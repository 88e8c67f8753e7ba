#ifndef KESTRUM_ANALYSIS_BODY_CURVES_HPP
#define KESTRUM_ANALYSIS_BODY_CURVES_HPP

#include <cstdint>

#include "analysis/geobodies.hpp"
#include "core/grid.h"
#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// What there is of a set of nodes: the number of its bodies, the size of the largest, the largest extents along z, y and x,
// and the Euler number (of closed cells unless neighbours share faces).
constexpr int kBodyMeasures = 6;

// Measures the sets of the codes above each number from 0 to n - 1, or of those at or below it. A code below 0 is in none.
// Threads share the sets.
//   codes     nimage images on the grid, one after the other
//   measures  out; kBodyMeasures numbers for each set of each image
[[nodiscard]] int BodyCurves(const VORL_GRID& grid, int nimage, const std::int16_t* codes, int n, bool above,
                             Connectivity connectivity, const Dealing& dealing, const Progress& progress,
                             std::int64_t* measures) noexcept;

}  // namespace kestrum

#endif
