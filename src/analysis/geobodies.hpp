#ifndef KESTRUM_ANALYSIS_GEOBODIES_HPP
#define KESTRUM_ANALYSIS_GEOBODIES_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "core/buffer.hpp"
#include "core/image.h"
#include "core/node_coordinates.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Which marked nodes are neighbours: those that share a face, or also an edge, or also a corner.
enum class Connectivity { k6, k18, k26 };

// Values in one of n intervals, or in none of them; a missing value never is.
struct IntervalSet {
  int n;
  const real* lower;
  const real* upper;
  bool excludeLower;
  bool excludeUpper;
  bool complement;
};

// Sets marks[i] to 1 where values[i] lies in the set and to 0 elsewhere, for kMarkBlock values.
constexpr int kMarkBlock = 64;
void MarkBlock(const real* values, const IntervalSet& set, SimdLevel level, unsigned char* marks) noexcept;

// Finds the geobodies of sets of nodes of one grid, one set after the other, in work memory that is allocated once.
//
// A set is one bit per node. A run is a longest line of marked nodes along x; runs are numbered in node order, and
// those that touch are joined in a table of links, in which a link never points to a later run. The root of a geobody
// is thus the run with its first node, and numbering the roots in order numbers the geobodies by their first nodes. The
// time is linear in the nodes (run-based labelling in two passes: He, Chao and Suzuki, A run-based two-scan labeling
// algorithm, 2008).
class GeobodyFinder {
 public:
  [[nodiscard]] int Allocate(const VORL_GRID& grid) noexcept;

  // Sets the nodes whose values lie in the set; returns their number.
  int Mark(const real* values, const IntervalSet& set) noexcept;

  // Joins the marked nodes and returns the number of geobodies.
  int Connect(Connectivity connectivity) noexcept;

  // Both in one, with the labels of all nodes written as int or real, as VORLImageGeobody6 and its kin give them.
  template <typename T>
  int Label(const real* values, const IntervalSet& set, Connectivity connectivity, T* labels) noexcept;

  // Calls body(label, node, length) for each run in node order, `node` being its first node.
  template <typename Body>
  void ForEachRun(const Body& body) const noexcept {
    for (int row = 0; row < nrow_; ++row) {
      for (int run = firstRun_[row]; run < firstRun_[row + 1]; ++run) {
        const Run nodes = RunAt(run);
        body(link_[run], row * nx_ + nodes.begin, nodes.end - nodes.begin);
      }
    }
  }

 private:
  struct Run {
    int begin;  // ix of the first node
    int end;    // one after the last
  };

  Run RunAt(int run) const noexcept {
    const int* const edges = edges_.data() + 2 * static_cast<std::ptrdiff_t>(run);
    return {edges[0], edges[1]};
  }
  std::uint64_t Bits(std::ptrdiff_t node) const noexcept;
  int FindRuns(int row, int run) noexcept;
  template <int reach>
  void JoinRows(int row, int earlierRow) noexcept;
  template <Connectivity connectivity>
  void JoinAll() noexcept;

  int nx_ = 0;
  int ny_ = 0;
  int nrow_ = 0;
  int nxyz_ = 0;
  Buffer<std::uint64_t> bits_;
  Buffer<int> firstRun_;  // of each row; one more entry for the end
  Buffer<int> edges_;     // begin and end of each run
  Buffer<int> link_;      // while joining: an earlier run of the same geobody, or the run itself; then: the label
};

// The largest number of geobodies that a grid holds.
inline std::size_t MaxGeobodies(const VORL_GRID& grid) noexcept { return static_cast<std::size_t>(grid.nxyz) / 2 + 1; }

// Sizes and bounding boxes of geobodies, in tables of the user's; geobody `label` has the entry label - 1.
struct GeobodyBoxes {
  int* size;
  int* min[3];
  int* max[3];

  void Clear(int ngeobody, const VORL_GRID& grid) noexcept;
  // Adds nodes that lie in a box whose corners they hold.
  void Add(int label, int nodes, const NodeCoordinates& first, const NodeCoordinates& last) noexcept {
    size[label - 1] += nodes;
    const int low[] = {first.ix, first.iy, first.iz};
    const int high[] = {last.ix, last.iy, last.iz};
    for (int axis = 0; axis < 3; ++axis) {
      min[axis][label - 1] = std::min(min[axis][label - 1], low[axis]);
      max[axis][label - 1] = std::max(max[axis][label - 1], high[axis]);
    }
  }
  int Extent(int label, int axis) const noexcept { return max[axis][label - 1] + 1 - min[axis][label - 1]; }
};

}  // namespace kestrum

#endif
