#ifndef KESTRUM_NEIGHBORHOOD_NEIGHBOR_LIST_HPP
#define KESTRUM_NEIGHBORHOOD_NEIGHBOR_LIST_HPP

#include <algorithm>
#include <bit>
#include <cstdint>

#include "core/buffer.hpp"
#include "core/node_coordinates.hpp"
#include "core/parallel.hpp"
#include "neighborhood/node_bits.hpp"
#include "neighborhood/search_neighborhood.h"
#include "numeric/simd_level.hpp"

namespace kestrum {

// How many nodes a block of entries leads away along each axis, at most.
struct BlockReach {
  unsigned along[3];
};

// A list of offsets on a grid, with what walking it needs. Read-only, shared by all threads.
struct NeighborList {
  static constexpr int kBlock = 64;  // entries, which are looked at together

  const VORL_SEARCHNEIGHBORHOOD* offsets = nullptr;  // null: no list, all data are neighbours of every node
  const int* shift = nullptr;                        // difference of node index of each entry
  int limit = 0;                                     // largest number of neighbours of a node
  VORL_GRID grid{};
  const BlockReach* reach = nullptr;  // of each block, if it is known
};

// Owns what a NeighborList points to.
class NeighborListOwner {
 public:
  NeighborListOwner() noexcept { VORLInitSearchNeighborhood(&offsets_); }
  NeighborListOwner(const NeighborListOwner&) = delete;
  NeighborListOwner& operator=(const NeighborListOwner&) = delete;
  ~NeighborListOwner() { VORLFreeSearchNeighborhood(&offsets_); }

  // The list itself, to be built first.
  VORL_SEARCHNEIGHBORHOOD& offsets() noexcept { return offsets_; }

  // The list on a grid. nneighborMax: negative for no limit.
  [[nodiscard]] int Finish(const VORL_GRID& grid, int nneighborMax, Dealing dealing, NeighborList& list) noexcept {
    if (const int status = shift_.Allocate(offsets_.size); status != 0) return status;
    if (const int status = reach_.Allocate(offsets_.size / NeighborList::kBlock + 1, {}); status != 0) return status;
    const int* const offset[3] = {offsets_.ix, offsets_.iy, offsets_.iz};
    for (int e = 0; e < offsets_.size; ++e) {
      for (int axis = 0; axis < 3; ++axis) {
        unsigned& farthest = reach_[e / NeighborList::kBlock].along[axis];
        farthest = std::max(farthest, Magnitude(offset[axis][e]));
      }
    }
    dealing.ForPass(offsets_.size).Blocks(offsets_.size, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t e = begin; e < end; ++e) {
        shift_[e] = offsets_.iy[e] * grid.nx + offsets_.ix[e] + offsets_.iz[e] * grid.nxy;
      }
    });
    list = {&offsets_, shift_.data(), nneighborMax >= 0 ? nneighborMax : offsets_.size, grid, reach_.data()};
    return 0;
  }

 private:
  static unsigned Magnitude(int offset) noexcept {
    const auto bits = static_cast<unsigned>(offset);
    return offset < 0 ? 0U - bits : bits;
  }

  VORL_SEARCHNEIGHBORHOOD offsets_;
  Buffer<int> shift_;
  Buffer<BlockReach> reach_;
};

// The list around one node, in blocks of entries.
class ListAround {
 public:
  static constexpr int kBlock = NeighborList::kBlock;
  ListAround(const NeighborList& list, int node, SimdLevel level = BestSimdLevel()) noexcept;
  // Finds which entries from `begin` up to the end of the block lead to a node of the grid whose bit is set: one bit
  // per entry.
  std::uint64_t Marked(int begin, const NodeBits& bits) const noexcept;

 private:
  const NeighborList& list_;
  int node_;
  int at_[3];
  unsigned margin_[3];  // nodes between this one and the nearer side of the grid, along each axis
  SimdLevel level_;
};

// Writes the entries of the first list.limit neighbours of a node, in the order of the list, and returns their number.
// A node of the grid is a neighbour if its bit is set and confirm(it) holds.
template <typename Confirm>
int WalkNeighbors(const NeighborList& list, int node, const NodeBits& bits, const Confirm& confirm,
                  int* entries) noexcept {
  const ListAround around(list, node);
  int found = 0;
  const int size = list.offsets->size;
  for (int begin = 0; begin < size && found < list.limit; begin += std::min(ListAround::kBlock, size - begin)) {
    for (std::uint64_t marked = around.Marked(begin, bits); marked != 0 && found < list.limit; marked &= marked - 1) {
      const int e = begin + std::countr_zero(marked);
      if (confirm(node + list.shift[e])) entries[found++] = e;
    }
  }
  return found;
}

// Where a bit says it all.
inline int WalkNeighbors(const NeighborList& list, int node, const NodeBits& bits, int* entries) noexcept {
  return WalkNeighbors(
      list, node, bits, [](int) { return true; }, entries);
}

}  // namespace kestrum

#endif
