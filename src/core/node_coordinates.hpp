#ifndef KESTRUM_CORE_NODE_COORDINATES_HPP
#define KESTRUM_CORE_NODE_COORDINATES_HPP

#include <climits>
#include <cstdint>

#include "core/grid.h"

namespace kestrum {

struct NodeCoordinates {
  int ix, iy, iz;
};

// Whether all sizes are at least 1 and the stored products are theirs, and small enough for an int.
inline bool ProductsAgree(const VORL_GRID& grid) noexcept {
  const std::int64_t section = std::int64_t{grid.nx} * grid.ny;
  return section == grid.nxy && section <= INT_MAX / grid.nz && section * grid.nz == grid.nxyz;
}

inline NodeCoordinates CoordinatesOf(const VORL_GRID& grid, int node) noexcept {
  const int inSection = node % grid.nxy;
  return {inSection % grid.nx, inSection / grid.nx, node / grid.nxy};
}

// From the sizes themselves, since a caller may have left the stored products unfilled.
inline int NodeIndex(const VORL_GRID& grid, const NodeCoordinates& node) noexcept {
  return (node.iz * grid.ny + node.iy) * grid.nx + node.ix;
}

// An index moved by an offset; below 0 if that leaves the range of int, out of every grid then.
constexpr int Moved(int index, int offset) noexcept {
  return static_cast<int>(static_cast<unsigned>(index) + static_cast<unsigned>(offset));
}

// Whether an offset along an axis of n nodes leads from one of them to another.
constexpr bool StaysOnAxis(int offset, int n) noexcept { return offset > -n && offset < n; }

inline bool HasRow(const VORL_GRID& grid, int iy, int iz) noexcept {
  return iy >= 0 && iy < grid.ny && iz >= 0 && iz < grid.nz;
}

}  // namespace kestrum

#endif
