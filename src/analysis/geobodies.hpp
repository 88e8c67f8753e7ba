#ifndef KESTRUM_ANALYSIS_GEOBODIES_HPP
#define KESTRUM_ANALYSIS_GEOBODIES_HPP

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "analysis/node_bits.hpp"
#include "core/buffer.hpp"
#include "core/image.h"
#include "core/node_coordinates.hpp"

namespace kestrum {

// Which marked nodes are neighbours: those that share a face, or also an edge, or also a corner.
enum class Connectivity { k6, k18, k26 };

constexpr Connectivity ConnectivityOf(int neighbors) noexcept {
  return neighbors == 6 ? Connectivity::k6 : neighbors == 18 ? Connectivity::k18 : Connectivity::k26;
}

// Finds the geobodies of sets of nodes of one grid, one set after the other, in work memory that is allocated once.
//
// Rows of the set are read 64 nodes at a time. They are bundled such that nodes of a bundle are neighbours wherever
// their ix differ by 1 at most: 2 x 2 rows across corners, 2 rows across edges, 1 across faces.
// A run is a longest line of ix with marked nodes in a bundle. Runs that touch are joined in a table of links, in which
// a link never points to a later run (the algorithm of Rem: Patwary, Blair and Manne, Experiments on union-find
// algorithms for the disjoint-set data structure, 2010). The time is nearly linear in the nodes, but for rows of a few
// nodes, each of which costs as much as one of 64.
class GeobodyFinder : public NodeBits {
 public:
  [[nodiscard]] int Allocate(const VORL_GRID& grid) noexcept;

  // Joins the marked nodes and returns the number of geobodies, which are numbered by their first nodes.
  int Connect(Connectivity connectivity) noexcept;

  // The same, with the labels of all nodes, 0 where there is no mark.
  template <typename T>
  int LabelMarked(Connectivity connectivity, T* labels) noexcept;

  // Marks and labels as VORLImageGeobody6 and its relatives do, with labels of int or real.
  template <typename T>
  int Label(const real* values, const IntervalSet& set, Connectivity connectivity, T* labels) noexcept;

  // Calls body(label, node, length) for pieces of rows that hold all marked nodes and no others, in node order, `node`
  // being the first one of a piece.
  template <typename Body>
  void ForEachRun(const Body& body) const noexcept {
    ForEachPiece([&](int run, int node, int length) { body(-link_[run], node, length); });
  }

 private:
  // Walks along a bundle, 64 nodes at a time, and finds its runs.
  struct RunCursor {
    const std::uint64_t* word;  // the next one of the starts of runs
    int number;                 // of a run that would start at the first of the 64 nodes
    int open = 0;               // the last run before them
    std::uint64_t starts = 0;

    void Advance() noexcept {
      open = RunAt(kMarkBlock - 1);
      number += kMarkBlock / 2;
      starts = *word++;
    }
    // The last run that starts at a node or before it.
    int RunAt(int place) const noexcept {
      const std::uint64_t till = starts << (kMarkBlock - 1 - place);
      // The lowest bit spares countl_zero a branch.
      const int run = number + ((place - std::countl_zero(till | 1)) >> 1);
      return till == 0 ? open : run;
    }
  };

  // Calls body(run, node, length) as ForEachRun its body.
  template <typename Body>
  void ForEachPiece(const Body& body) const noexcept {
    for (int iz = 0, row = 0; iz < nz_; ++iz) {
      for (int iy = 0; iy < ny_; ++iy, ++row) {
        RunCursor cursor = CursorOf(iy / bundleY_, iz / bundleZ_);
        for (int word = 0; word < wordsPerRow_; ++word) {
          const int x = word * kMarkBlock;
          cursor.Advance();
          for (std::uint64_t nodes = RowBits(iy, iz, x).here; nodes != 0;) {
            const int first = std::countr_zero(nodes);
            const std::uint64_t after = nodes + (nodes & -nodes);  // the carry comes out after the piece
            const int end = after == 0 ? kMarkBlock : std::countr_zero(after);
            body(cursor.RunAt(first), row * nx_ + x + first, end - first);
            nodes &= after;
          }
        }
      }
    }
  }

  RunCursor CursorOf(int bundleY, int bundleZ) const noexcept {
    const int bundle = bundleZ * bundlesPerLayer_ + bundleY;
    return {starts_.data() + std::ptrdiff_t{bundle} * wordsPerRow_, bundle * runsPerBundle_ - kMarkBlock / 2};
  }
  void FindRuns(int bundleY, int bundleZ) noexcept;
  void Join(int a, int b) noexcept;
  template <Connectivity connectivity, int dy, int dz>
  void JoinBundles(int bundleY, int bundleZ) noexcept;
  template <Connectivity connectivity>
  void JoinBundlesOf() noexcept;
  void JoinAll(Connectivity connectivity) noexcept;
  int LabelOf(int run, int* ngeobody) noexcept;

  int bundleY_ = 1;  // rows of a bundle along y
  int bundleZ_ = 1;  // and along z
  int bundlesPerLayer_ = 0;
  int runsPerBundle_ = 0;         // at most: ix / 2 differs between the runs that start at ix
  Buffer<std::uint64_t> starts_;  // of runs; each bundle starts a word
  Buffer<int> link_;              // an earlier run of the same geobody, or the run itself, or -label
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
  // Adds all nodes whose label is above 0.
  void AddAll(const VORL_GRID& grid, const int* labels) noexcept;
  int Extent(int label, int axis) const noexcept { return max[axis][label - 1] + 1 - min[axis][label - 1]; }
};

}  // namespace kestrum

#endif
