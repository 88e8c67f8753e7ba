#ifndef KESTRUM_NUMERIC_CHOLESKY_LAYOUT_HPP
#define KESTRUM_NUMERIC_CHOLESKY_LAYOUT_HPP

// The inside of a factor (numeric/cholesky.hpp), for those who make and use one.

#include <cstddef>
#include <limits>

#include "numeric/lanes.hpp"

namespace kestrum {

// The rows of L lie in panels of kLanes rows, each a run of columns of kLanes numbers, up to the panel's last row. So a
// panel is laid out like a block of right sides.
constexpr std::ptrdiff_t Panels(std::ptrdiff_t size) noexcept { return (size + kLanes - 1) / kLanes; }
constexpr std::ptrdiff_t PanelStart(std::ptrdiff_t panel) noexcept { return panel * (panel + 1) / 2 * kLanes * kLanes; }
constexpr std::ptrdiff_t Place(std::ptrdiff_t i, std::ptrdiff_t j) noexcept {
  return PanelStart(i / kLanes) + j * kLanes + i % kLanes;
}

// The inverse pivots follow the panels of `size` rows.
constexpr std::ptrdiff_t InversePivotsStart(std::ptrdiff_t size) noexcept { return PanelStart(Panels(size)); }

// Then, for each drift column, what the rounding of its pivot is relative to.
constexpr std::ptrdiff_t DriftExtentsStart(std::ptrdiff_t size) noexcept {
  return InversePivotsStart(size) + Panels(size) * kLanes;
}

// A pivot this small, relative to its diagonal element, may be nothing but rounding.
constexpr double PivotRounding(int size) noexcept { return 4.0 * size * std::numeric_limits<double>::epsilon(); }
// The same of systems that are solved side by side, or begin alike: whatever their sizes, so that one fares alike beside any
// others.
constexpr double kLanesRounding = 128 * std::numeric_limits<double>::epsilon();
// A pivot this far below zero, relative to its diagonal element, is more than rounding. Each pivot p near PivotRounding that
// was eliminated before it may have put an error of rounding / sqrt(p) into it, some 1e-9, and there can be hundreds.
constexpr double kIndefinitePivot = -1e-6;

}  // namespace kestrum

#endif
