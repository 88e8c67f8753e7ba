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
    : list_(list), node_(node), level_(level) {
  const auto [ix, iy, iz] = CoordinatesOf(list.grid, node);
  const int at[3] = {ix, iy, iz};
  const int cells[3] = {list.grid.nx, list.grid.ny, list.grid.nz};
  for (int axis = 0; axis < 3; ++axis) {
    at_[axis] = at[axis];
    margin_[axis] = static_cast<unsigned>(std::min(at[axis], cells[axis] - 1 - at[axis]));
  }
}

std::uint64_t ListAround::Marked(int begin, const NodeBits& bits) const noexcept {
  const VORL_SEARCHNEIGHBORHOOD& offsets = *list_.offsets;
  const VORL_GRID& grid = list_.grid;
  bool interior = list_.reach != nullptr;
  for (int axis = 0; axis < 3 && interior; ++axis) {
    interior = list_.reach[begin / kBlock].along[axis] <= margin_[axis];
  }
  const EntriesAround entries{{offsets.ix + begin, offsets.iy + begin, offsets.iz + begin},
                              list_.shift + begin,
                              {at_[0], at_[1], at_[2]},
                              {grid.nx, grid.ny, grid.nz},
                              node_,
                              interior,
                              bits.words()};
  return KESTRUM_KERNEL_AT(level_, MarkedEntries)(entries, std::min(kBlock, offsets.size - begin));
}

}  // namespace kestrum
