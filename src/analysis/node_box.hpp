#ifndef KESTRUM_ANALYSIS_NODE_BOX_HPP
#define KESTRUM_ANALYSIS_NODE_BOX_HPP

#include <algorithm>
#include <cstdint>
#include <limits>

#include "analysis/geobodies.hpp"

namespace kestrum {

// From a node to another.
struct Offset {
  int dx, dy, dz;
};

// The neighbours of each connectivity are looked at in this order; those of the smaller ones are among them.
inline constexpr int kMostNeighbors = 26;
inline constexpr Offset kOffsets[kMostNeighbors] = {
    {-1, 0, 0}, {-1, -1, 0}, {-1, -1, -1}, {-1, -1, 1}, {-1, 1, 0}, {-1, 1, -1}, {-1, 1, 1}, {-1, 0, -1}, {-1, 0, 1},
    {1, 0, 0},  {1, -1, 0},  {1, -1, -1},  {1, -1, 1},  {1, 1, 0},  {1, 1, -1},  {1, 1, 1},  {1, 0, -1},  {1, 0, 1},
    {0, -1, 0}, {0, -1, -1}, {0, -1, 1},   {0, 1, 0},   {0, 1, -1}, {0, 1, 1},   {0, 0, -1}, {0, 0, 1}};

// The most axes along which neighbours differ.
constexpr int AxesOf(Connectivity connectivity) noexcept { return static_cast<int>(connectivity) + 1; }

constexpr bool AreNeighbors(Connectivity connectivity, const Offset& offset) noexcept {
  return offset.dx * offset.dx + offset.dy * offset.dy + offset.dz * offset.dz <= AxesOf(connectivity);
}

// A node with its coordinates, so that none is decoded on the way from node to node.
struct Node {
  int index, ix, iy, iz;
};

// The nodes of a grid and their neighbours.
class Box {
 public:
  Box(int nx, int ny, int nz) noexcept : nx_(nx), ny_(ny), nz_(nz), nxy_(std::int64_t{nx} * ny) {}

  // 0 if a size is less than 1; no more than an int can index.
  std::int64_t NodeCount() const noexcept {
    constexpr std::int64_t kMost = std::int64_t{std::numeric_limits<int>::max()} + 1;
    if (nx_ < 1 || ny_ < 1 || nz_ < 1) return 0;
    return nxy_ <= kMost / nz_ ? nxy_ * nz_ : kMost;
  }

  // The box without the axes of one node, x the first and z the last of the others: indices and neighbours stay.
  Box WithoutSingleAxes() const noexcept {
    int sizes[3] = {nx_, ny_, nz_};
    std::fill(std::remove(sizes, sizes + 3, 1), sizes + 3, 1);
    return {sizes[0], sizes[1], sizes[2]};
  }

  int nx() const noexcept { return nx_; }
  int ny() const noexcept { return ny_; }
  int nz() const noexcept { return nz_; }

  bool Has(int index) const noexcept { return index >= 0 && index < NodeCount(); }

  Node NodeAt(int index) const noexcept {
    const int inSection = static_cast<int>(index % nxy_);
    return {index, inSection % nx_, inSection / nx_, static_cast<int>(index / nxy_)};
  }

  // Whether the box has the node at this offset, and the index of that node.
  bool Has(const Node& node, const Offset& offset) const noexcept {
    const int ix = node.ix + offset.dx;
    const int iy = node.iy + offset.dy;
    const int iz = node.iz + offset.dz;
    return ix >= 0 && ix < nx_ && iy >= 0 && iy < ny_ && iz >= 0 && iz < nz_;
  }
  std::int64_t NeighborIndex(const Node& node, const Offset& offset) const noexcept {
    return node.index + offset.dx + offset.dy * std::int64_t{nx_} + offset.dz * nxy_;
  }

  // Calls body(neighbour) for the neighbours of a node that lie in the box, in their order.
  template <typename Body>
  void ForNeighbors(Connectivity connectivity, const Node& node, const Body& body) const noexcept {
    for (const Offset& offset : kOffsets) {
      if (!AreNeighbors(connectivity, offset) || !Has(node, offset)) continue;
      body(Node{static_cast<int>(NeighborIndex(node, offset)), node.ix + offset.dx, node.iy + offset.dy,
                node.iz + offset.dz});
    }
  }

 private:
  int nx_;
  int ny_;
  int nz_;
  std::int64_t nxy_;
};

}  // namespace kestrum

#endif
