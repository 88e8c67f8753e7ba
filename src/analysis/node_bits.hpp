#ifndef KESTRUM_ANALYSIS_NODE_BITS_HPP
#define KESTRUM_ANALYSIS_NODE_BITS_HPP

#include <cstddef>
#include <cstdint>

#include "analysis/mark_block.hpp"
#include "analysis/threshold_levels.hpp"
#include "core/buffer.hpp"
#include "core/grid.h"
#include "core/parallel.hpp"

namespace kestrum {

// The sizes of a grid whose rows are packed, or 0 where they are not.
struct PackedRows {
  static constexpr int kLongest = 127;

  int nx = 0;
  int ny = 0;
  int nz = 0;
};

// A set of nodes of a grid: one bit per node, in rows along x that each start a word. Axes of one node before others
// are left out, so that rows are as long as can be.
//
// Short rows may be packed: they lie end to end, a fixed number of them in the words of each row of the set, which has
// one layer then.
class NodeBits {
 public:
  // longestPacked: rows of up to so many nodes, at most PackedRows::kLongest, are packed
  [[nodiscard]] int Allocate(const VORL_GRID& grid, int longestPacked = 0) noexcept;

  // Sets the nodes whose values lie in the set; returns their number.
  template <typename T, typename Set>
  int Mark(const T* values, const Set& set, Dealing dealing = Dealing::Serial()) noexcept;

  // Sets the nodes whose levels are at least `least`; returns their number.
  int MarkFrom(const LevelBits& levels, int least) noexcept;

  // Sets the nodes whose values are true, of values that lie along the grid's last axis first and x last.
  template <typename T>
  void MarkTransposed(const T* values, Dealing dealing) noexcept;

  int nx() const noexcept { return nx_; }
  int ny() const noexcept { return ny_; }
  int nz() const noexcept { return nz_; }
  int nxyz() const noexcept { return nxyz_; }
  int wordsPerRow() const noexcept { return wordsPerRow_; }
  const PackedRows& packed() const noexcept { return packed_; }

  std::uint64_t* Row(int iy, int iz) noexcept { return bits_.data() + (std::ptrdiff_t{iz} * ny_ + iy) * wordsPerRow_; }
  const std::uint64_t* Row(int iy, int iz) const noexcept { return const_cast<NodeBits*>(this)->Row(iy, iz); }

  // A row without marks outside the grid.
  const std::uint64_t* RowOrNone(int iy, int iz) const noexcept {
    const bool inside = iy >= 0 && iy < ny_ && iz >= 0 && iz < nz_;
    return inside ? Row(iy, iz) : bits_.data() + bits_.size() - wordsPerRow_;
  }

  // The marks of 64 nodes along x, the first one lowest, and those of the nodes before each.
  struct Bits {
    std::uint64_t here;
    std::uint64_t before;
  };
  // x: a multiple of 64 on the row. Rows after the last have no marks.
  Bits RowBits(int iy, int iz, int x) const noexcept {
    if (iy >= ny_ || iz >= nz_) return {0, 0};
    const std::uint64_t* const word = Row(iy, iz) + x / kMarkBlock;
    return {word[0], word[0] << 1 | (x == 0 ? 0 : word[-1] >> (kMarkBlock - 1))};
  }

 protected:
  std::size_t nrow() const noexcept { return static_cast<std::size_t>(ny_) * static_cast<std::size_t>(nz_); }

  int nx_ = 0;
  int ny_ = 0;
  int nz_ = 0;
  int nxyz_ = 0;
  int wordsPerRow_ = 0;
  PackedRows packed_;

 private:
  void SpreadRows() noexcept;

  Buffer<std::uint64_t> bits_;
};

}  // namespace kestrum

#endif
