#include "neighborhood/neighbor_list.hpp"

namespace kestrum {
namespace {

// How many nodes of an axis of n come after a place that Moved gives: below 0 if it is n or more.
int Left(int n, int place) noexcept {
  return static_cast<int>(static_cast<unsigned>(n) - 1u - static_cast<unsigned>(place));
}

}  // namespace

ListAround::ListAround(const NeighborList& list, int node) noexcept
    : list_(list), node_(node), at_(CoordinatesOf(list.grid, node)) {
  const VORL_SEARCHNEIGHBORHOOD& offsets = *list.offsets;
  const VORL_GRID& grid = list.grid;
  const auto [ix, iy, iz] = at_;
  interior_ = ix + offsets.ixMin >= 0 && ix < grid.nx - offsets.ixMax && iy + offsets.iyMin >= 0 &&
              iy < grid.ny - offsets.iyMax && iz + offsets.izMin >= 0 && iz < grid.nz - offsets.izMax;
}

// Without a branch: whether a node is marked cannot be predicted.
unsigned ListAround::Marked(int begin, const NodeBits& bits) const noexcept {
  const VORL_SEARCHNEIGHBORHOOD& offsets = *list_.offsets;
  const int count = std::min(kBlock, offsets.size - begin);
  const int* const shift = list_.shift + begin;
  unsigned marked = 0;
  if (interior_) {
    for (int i = 0; i < count; ++i) marked |= bits[node_ + shift[i]] << i;
    return marked;
  }
  const VORL_GRID& grid = list_.grid;
  const auto [ix, iy, iz] = at_;
  int place[kBlock];
  unsigned inside[kBlock];
  for (int i = 0; i < count; ++i) {
    const int x = Moved(ix, offsets.ix[begin + i]);
    const int y = Moved(iy, offsets.iy[begin + i]);
    const int z = Moved(iz, offsets.iz[begin + i]);
    // All bits are set if any of these is negative, that is, if the entry leads out of the grid.
    const int outside = (x | Left(grid.nx, x) | y | Left(grid.ny, y) | z | Left(grid.nz, z)) >> 31;
    place[i] = node_ + (shift[i] & ~outside);
    inside[i] = ~static_cast<unsigned>(outside);
  }
  for (int i = 0; i < count; ++i) marked |= (bits[place[i]] & inside[i]) << i;
  return marked;
}

}  // namespace kestrum
