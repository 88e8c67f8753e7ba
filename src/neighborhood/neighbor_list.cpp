#include "neighborhood/neighbor_list.hpp"

namespace kestrum {
namespace {

// How many nodes of an axis of n come after a place that Moved gives: below 0 if it is n or more.
[[maybe_unused]] int Left(int n, int place) noexcept {
  return static_cast<int>(static_cast<unsigned>(n) - 1u - static_cast<unsigned>(place));
}

// Entries of a list, and the node that they start from.
struct EntriesAround {
  const int* offset[3];
  const int* shift;
  int at[3];
  int cells[3];
  int node;
  bool interior;  // no entry leads out of the grid
  const std::uint32_t* words;
};

}  // namespace
}  // namespace kestrum

#define KESTRUM_KERNEL "neighborhood/neighbor_list_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {

ListAround::ListAround(const NeighborList& list, int node, SimdLevel level) noexcept
    : list_(list), node_(node), at_(CoordinatesOf(list.grid, node)), level_(level) {
  const VORL_SEARCHNEIGHBORHOOD& offsets = *list.offsets;
  const VORL_GRID& grid = list.grid;
  const auto [ix, iy, iz] = at_;
  interior_ = ix + offsets.ixMin >= 0 && ix < grid.nx - offsets.ixMax && iy + offsets.iyMin >= 0 &&
              iy < grid.ny - offsets.iyMax && iz + offsets.izMin >= 0 && iz < grid.nz - offsets.izMax;
}

std::uint64_t ListAround::Marked(int begin, const NodeBits& bits) const noexcept {
  const VORL_SEARCHNEIGHBORHOOD& offsets = *list_.offsets;
  const VORL_GRID& grid = list_.grid;
  const EntriesAround entries{{offsets.ix + begin, offsets.iy + begin, offsets.iz + begin},
                              list_.shift + begin,
                              {at_.ix, at_.iy, at_.iz},
                              {grid.nx, grid.ny, grid.nz},
                              node_,
                              interior_,
                              bits.words()};
  return KESTRUM_KERNEL_AT(level_, MarkedEntries)(entries, std::min(kBlock, offsets.size - begin));
}

}  // namespace kestrum
