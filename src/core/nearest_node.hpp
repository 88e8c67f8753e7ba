#ifndef KESTRUM_CORE_NEAREST_NODE_HPP
#define KESTRUM_CORE_NEAREST_NODE_HPP

#include "core/node_coordinates.hpp"

namespace kestrum {

// Whether a coordinate lies between the outer faces of n cells, which are included. A NaN lies outside.
inline bool LiesBetweenFaces(real coordinate, real origin, real spacing, int n) noexcept {
  return coordinate >= origin && coordinate <= origin + n * spacing;
}

inline bool LiesInBox(const VORL_GRID& grid, real x, real y, real z) noexcept {
  return LiesBetweenFaces(x, grid.ox, grid.sx, grid.nx) && LiesBetweenFaces(y, grid.oy, grid.sy, grid.ny) &&
         LiesBetweenFaces(z, grid.oz, grid.sz, grid.nz);
}

// The cell whose centre is nearest along one axis; halfway between two centres, the lower one.
inline int NearestCell(real coordinate, real origin, real spacing, int n) noexcept {
  const real position = (coordinate - (origin + 0.5 * spacing)) / spacing;
  if (!(position > 0.0)) return 0;
  if (position >= n - 1) return n - 1;
  const int cell = static_cast<int>(position);
  return position - cell > 0.5 ? cell + 1 : cell;
}

inline NodeCoordinates NearestNode(const VORL_GRID& grid, real x, real y, real z) noexcept {
  return {NearestCell(x, grid.ox, grid.sx, grid.nx), NearestCell(y, grid.oy, grid.sy, grid.ny),
          NearestCell(z, grid.oz, grid.sz, grid.nz)};
}

}  // namespace kestrum

#endif
