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
#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// Which marked nodes are neighbours: those that share a face, or also an edge, or also a corner.
enum class Connectivity { k6, k18, k26 };

constexpr Connectivity ConnectivityOf(int neighbors) noexcept {
  return neighbors == 6 ? Connectivity::k6 : neighbors == 18 ? Connectivity::k18 : Connectivity::k26;
}

// Rows of a bundle along y and z (see BundledRuns).
constexpr int RowsY(Connectivity connectivity) noexcept { return connectivity == Connectivity::k6 ? 1 : 2; }
constexpr int RowsZ(Connectivity connectivity) noexcept { return connectivity == Connectivity::k26 ? 2 : 1; }

// The longest rows that are packed whatever the connectivity. Across faces all that can be are: words of their own take
// more time there, and up to more than half a byte a node with the tables of their runs.
constexpr int kShortRow = 31;
constexpr int LongestPacked(Connectivity connectivity) noexcept {
  return connectivity == Connectivity::k6 ? PackedRows::kLongest : kShortRow;
}

// Bundles that one thread does: layers of them, or rows in a single layer of nodes. Their nodes follow each other, and so
// do their runs.
struct BundleSlab {
  int beginY, endY;
  int beginZ, endZ;
  int firstRun;
  int nrun;
  int ngeobody;  // that begin in it
  int before;    // geobodies of the slabs before
};

// The runs of a set of nodes, and the links between them. Rows are bundled such that nodes of a bundle are neighbours
// wherever their ix differ by 1 at most: 2 x 2 rows across corners, 2 rows across edges, 1 across faces. A run is a longest
// line of ix with marked nodes in a bundle. They are numbered along bundles, and from bundle to bundle in a slab.
struct BundledRuns {
  const NodeBits* nodes;
  Progress progress{nullptr, nullptr};
  Connectivity connectivity;  // if rows are packed, that across faces: each is a bundle
  Connectivity packed;        // that of the grid's nodes
  int bundlesPerLayer;
  std::uint64_t* starts;           // bits of the nodes where runs start; each bundle starts a word
  int* first;                      // the number of each bundle's first run
  int* link;                       // an earlier run of the same geobody, or the run itself; in the end -label
  const std::uint64_t* rowStarts;  // if rows are packed, the bits of their first nodes; after nx words they recur

  int RowsY() const noexcept { return kestrum::RowsY(connectivity); }
  int RowsZ() const noexcept { return kestrum::RowsZ(connectivity); }
  // Whether the pass over a slab goes on with a bundle. The first slab reports.
  bool GoesOn(const BundleSlab& slab, int bundleY, int bundleZ) const noexcept {
    return progress.GoesOn(slab.beginY == 0 && slab.beginZ == 0, BundleAt(bundleY, bundleZ),
                           BundleAt(slab.endY - 1, slab.endZ - 1) + 1);
  }
  // The same runs, in a step of the work.
  BundledRuns Step(double begin, double end) const noexcept {
    BundledRuns runs = *this;
    runs.progress = progress.Step(begin, end);
    return runs;
  }

  std::ptrdiff_t BundleAt(int bundleY, int bundleZ) const noexcept {
    return std::ptrdiff_t{bundleZ} * bundlesPerLayer + bundleY;
  }
  // The number of runs of a bundle of the slab.
  int CountOf(int bundleY, int bundleZ, const BundleSlab& slab) const noexcept {
    const std::ptrdiff_t bundle = BundleAt(bundleY, bundleZ);
    const bool last = bundle == BundleAt(slab.endY - 1, slab.endZ - 1);
    return (last ? slab.firstRun + slab.nrun : first[bundle + 1]) - first[bundle];
  }

  // Walks along a bundle, 64 nodes at a time.
  struct Cursor {
    const std::uint64_t* word;  // the next one of the starts of runs
    int before;                 // the last run that starts before the 64 nodes
    std::uint64_t starts = 0;

    void Advance() noexcept {
      before = Last();
      starts = *word++;
    }
    // The last run that starts among the 64 nodes or before them.
    int Last() const noexcept { return before + std::popcount(starts); }
    // The last run that starts at a node or before it.
    int RunAt(int place) const noexcept { return before + std::popcount(starts << (kMarkBlock - 1 - place)); }
  };
  Cursor CursorOf(int bundleY, int bundleZ) const noexcept {
    const std::ptrdiff_t bundle = BundleAt(bundleY, bundleZ);
    return {starts + bundle * nodes->wordsPerRow(), first[bundle] - 1};
  }

  // Calls body(run, node, length) for pieces of rows that hold all marked nodes and no others, in node order, `node`
  // being the first one of a piece: of some layers and the rows of each.
  template <typename Body>
  [[gnu::always_inline]] void ForEachPiece(ItemBlock layers, ItemBlock rows, const Body& body) const noexcept {
    for (int iz = static_cast<int>(layers.begin); iz < layers.end; ++iz) {
      for (int iy = static_cast<int>(rows.begin); iy < rows.end; ++iy) {
        if (progress.Aborted()) return;
        Cursor cursor = CursorOf(iy / RowsY(), iz / RowsZ());
        const int row = (iz * nodes->ny() + iy) * nodes->nx();
        const std::uint64_t* const bits = nodes->Row(iy, iz);
        for (int word = 0; word < nodes->wordsPerRow(); ++word) {
          cursor.Advance();
          for (std::uint64_t rest = bits[word]; rest != 0;) {
            const int begin = std::countr_zero(rest);
            const std::uint64_t lowest = rest & -rest;
            // What is after the piece: no mark, or in packed rows another run.
            const std::uint64_t after = (~rest | cursor.starts) & ~(lowest | (lowest - 1));
            const int end = after == 0 ? kMarkBlock : std::countr_zero(after);
            body(cursor.RunAt(begin), row + word * kMarkBlock + begin, end - begin);
            if (after == 0) break;
            rest &= -(after & -after);
          }
        }
      }
    }
  }
};

// Finds the geobodies of sets of nodes of one grid, one set after the other, in work memory that is allocated once.
//
// Rows of the set are read 64 nodes at a time. Runs that touch are joined in a table of links, in which a link never
// points to a later run (the algorithm of Rem: Patwary, Blair and Manne, Experiments on union-find algorithms for the
// disjoint-set data structure, 2010). The time is nearly linear in the nodes. Short rows are packed, so that 64 nodes are
// read at a time there too.
class GeobodyFinder : public NodeBits {
 public:
  // longestPacked: 0 if the caller reads the rows as well
  [[nodiscard]] int Allocate(const VORL_GRID& grid, int longestPacked = kShortRow) noexcept;

  // Joins the marked nodes and returns the number of geobodies, which are numbered by their first nodes; 0 if
  // progress is aborted.
  int Connect(Connectivity connectivity, const Progress& progress = Progress(nullptr, nullptr)) noexcept;

  // Joins the marked nodes and returns the sum of the squared sizes of the geobodies.
  std::int64_t SumOfSquares(Connectivity connectivity, const Progress& progress) noexcept;

  // Connect, with the labels of all nodes, 0 where there is no mark.
  template <typename T>
  int LabelMarked(Connectivity connectivity, T* labels) noexcept;

  // The same by threads, which join and number the runs of slabs and then those across them. The links of a slab lie at
  // the end of its labels meanwhile: no row has more runs from any node on than nodes, so that labels in their order are
  // written after the links that lay there have been read.
  // AllocateBits comes before, instead of Allocate. Where progress is aborted, the labels are of no use.
  [[nodiscard]] int AllocateBits(const VORL_GRID& grid, int longestPacked = kShortRow) noexcept;
  int LabelInPlace(Connectivity connectivity, int* labels, const Dealing& dealing, const Progress& progress) noexcept;

  // Marks and labels as VORLImageGeobody6 and its relatives do, with labels of int or real.
  template <typename T>
  int Label(const real* values, const IntervalSet& set, Connectivity connectivity, T* labels) noexcept;

  // Calls body(label, node, length) for pieces of rows that hold all marked nodes and no others, in node order, `node`
  // being the first one of a piece.
  template <typename Body>
  void ForEachRun(const Body& body) const noexcept {
    const int* const link = links_.data();
    runs_.ForEachPiece({0, nz_}, {0, ny_}, [&](int run, int node, int length) { body(-link[run], node, length); });
  }

 private:
  void Prepare(Connectivity connectivity, int* link, const Progress& progress) noexcept;
  BundleSlab SlabOf(std::ptrdiff_t nslab, std::ptrdiff_t i) const noexcept;
  int MostSlabs() const noexcept;
  int LastNode(const BundleSlab& slab) const noexcept;
  BundleSlab JoinAll(Connectivity connectivity, const Progress& progress) noexcept;

  BundledRuns runs_ = {};
  int runsPerBundle_ = 0;  // at most
  std::uint64_t rowStarts_[PackedRows::kLongest] = {};
  Buffer<std::uint64_t> starts_;  // of the runs
  Buffer<int> first_;
  Buffer<int> links_;
};

// The largest number of geobodies that a grid holds.
inline std::size_t MaxGeobodies(const VORL_GRID& grid) noexcept { return static_cast<std::size_t>(grid.nxyz) / 2 + 1; }

// Sizes and bounding boxes of geobodies, in tables of the user's; geobody `label` has the entry label - 1.
struct GeobodyBoxes {
  int* size;
  int* min[3];
  int* max[3];

  // The tables in memory for 7 n numbers.
  static GeobodyBoxes In(int* memory, std::ptrdiff_t n) noexcept {
    return {memory, {memory + n, memory + 2 * n, memory + 3 * n}, {memory + 4 * n, memory + 5 * n, memory + 6 * n}};
  }

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
  // Clears them and adds all nodes whose label is above 0. Threads have tables of their own, in at most a byte a node.
  [[nodiscard]] int SetAll(const VORL_GRID& grid, const int* labels, int ngeobody, const Dealing& dealing,
                           const Progress& progress = Progress(nullptr, nullptr)) noexcept;
  int Extent(int label, int axis) const noexcept { return max[axis][label - 1] + 1 - min[axis][label - 1]; }

 private:
  void AddRows(const VORL_GRID& grid, const int* labels, ItemBlock rows, const Progress& progress) noexcept;
};

// The largest size and, by axis, the largest extent, which may be of another geobody; 0 without any.
struct LargestBodies {
  int size = 0;
  int extent[3] = {};
};
// Of the geobodies that a finder has connected. boxes: work, with room for them.
LargestBodies FindLargest(const GeobodyFinder& finder, int ngeobody, const VORL_GRID& grid,
                          GeobodyBoxes& boxes) noexcept;

}  // namespace kestrum

#endif
