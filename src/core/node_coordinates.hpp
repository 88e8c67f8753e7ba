#ifndef KESTRUM_CORE_NODE_COORDINATES_HPP
#define KESTRUM_CORE_NODE_COORDINATES_HPP

#include "core/grid.h"

namespace kestrum {

struct NodeCoordinates {
  int ix, iy, iz;
};

inline NodeCoordinates CoordinatesOf(const VORL_GRID& grid, int node) noexcept {
  const int inSection = node % grid.nxy;
  return {inSection % grid.nx, inSection / grid.nx, node / grid.nxy};
}

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
