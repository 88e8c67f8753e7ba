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

  // The same by threads, which join and number the runs of slabs and then those across them. The links lie in `labels`
  // meanwhile: that of a run of a single row at its first node, where its label will be; those of larger bundles at the end
  // of the last row, where a label is written after they have been read.
  // AllocateBits comes before, instead of Allocate. Where progress is aborted, the labels are of no use.
  [[nodiscard]] int AllocateBits(const VORL_GRID& grid) noexcept;
  int LabelInPlace(Connectivity connectivity, int* labels, const Dealing& dealing, const Progress& progress) noexcept;

  // Marks and labels as VORLImageGeobody6 and its relatives do, with labels of int or real.
  template <typename T>
  int Label(const real* values, const IntervalSet& set, Connectivity connectivity, T* labels) noexcept;

  // Calls body(label, node, length) for pieces of rows that hold all marked nodes and no others, in node order, `node`
  // being the first one of a piece.
  template <typename Body>
  void ForEachRun(const Body& body) const noexcept {
    ForEachPiece({0, nz_}, {0, ny_}, [&](int run, int node, int length) { body(-link_[run], node, length); });
  }

 private:
  // Walks along a bundle, 64 nodes at a time, and finds its runs.
  struct RunCursor {
    const std::uint64_t* word;  // the next one of the starts of runs
    int number;                 // of a run that would start at the first of the 64 nodes
    int shift;                  // from the places of runs to their numbers
    int open = 0;               // the last run before them
    std::uint64_t starts = 0;

    void Advance() noexcept {
      open = RunAt(kMarkBlock - 1);
      number += kMarkBlock >> shift;
      starts = *word++;
    }
    // The last run that starts at a node or before it.
    int RunAt(int place) const noexcept {
      const std::uint64_t till = starts << (kMarkBlock - 1 - place);
      // The lowest bit spares countl_zero a branch.
      const int run = number + ((place - std::countl_zero(till | 1)) >> shift);
      return till == 0 ? open : run;
    }
  };

  // Calls body(run, node, length) as ForEachRun its body, for some layers and the rows of each.
  template <typename Body>
  void ForEachPiece(ItemBlock layers, ItemBlock rows, const Body& body) const noexcept {
    for (int iz = static_cast<int>(layers.begin); iz < layers.end; ++iz) {
      for (int iy = static_cast<int>(rows.begin); iy < rows.end; ++iy) {
        if (Stopped()) return;
        RunCursor cursor = CursorOf(iy / bundleY_, iz / bundleZ_);
        const int row = iz * ny_ + iy;
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

  // Bundles that one thread does: layers of them, or rows in a single layer of nodes. Their nodes follow each other.
  struct Slab {
    int beginY, endY;
    int beginZ, endZ;
    int firstRun;
    int ngeobody;  // that begin in it
    int before;    // geobodies of the slabs before
  };
  Slab SlabOf(std::ptrdiff_t nslab, std::ptrdiff_t i) const noexcept;

  // Where the runs of a bundle are numbered from.
  int FirstRun(int bundleY, int bundleZ) const noexcept {
    if (!inPlace_) return (bundleZ * bundlesPerLayer_ + bundleY) * runsPerBundle_;
    const int lastY = std::min((bundleY + 1) * bundleY_, ny_) - 1;
    const int lastZ = std::min((bundleZ + 1) * bundleZ_, nz_) - 1;
    return (lastZ * ny_ + lastY) * nx_ + (runShift_ == 0 ? 0 : nx_ - runsPerBundle_);
  }
  RunCursor CursorOf(int bundleY, int bundleZ) const noexcept {
    const int bundle = bundleZ * bundlesPerLayer_ + bundleY;
    return {starts_.data() + std::ptrdiff_t{bundle} * wordsPerRow_,
            FirstRun(bundleY, bundleZ) - (kMarkBlock >> runShift_), runShift_};
  }
  void FindRuns(int bundleY, int bundleZ) noexcept;
  void Join(int a, int b) noexcept;
  template <Connectivity connectivity, int dy, int dz>
  void JoinBundles(int bundleY, int bundleZ) noexcept;
  void SetConnectivity(Connectivity connectivity) noexcept;
  // Joins a bundle to those before it, but for those before or from `border` on.
  template <Connectivity connectivity>
  void JoinToBundlesBefore(int bundleY, int bundleZ, int border, bool across) noexcept;
  template <Connectivity connectivity>
  void JoinSlab(const Slab& slab, bool across) noexcept;
  void Join(Connectivity connectivity, const Slab& slab, bool across) noexcept;
  template <typename Body>
  void ForEachRunOf(const Slab& slab, const Body& body) const noexcept;
  void NumberSlab(Slab& slab) noexcept;
  template <typename NumberOf>
  void WriteRows(const Slab& slab, const NumberOf& labelOf, int* labels) const noexcept;
  void WriteSlab(const Slab& slab, int* labels) const noexcept;
  int LabelOf(int run, int* ngeobody) noexcept;

  int bundleY_ = 1;  // rows of a bundle along y
  int bundleZ_ = 1;  // and along z
  int bundlesPerLayer_ = 0;
  int runsPerBundle_ = 0;         // at most: ix / 2 differs between the runs that start at ix
  Buffer<std::uint64_t> starts_;  // of runs; each bundle starts a word
  Buffer<int> links_;
  int* link_ = nullptr;  // an earlier run of the same geobody, or the run itself, or -label
  bool Stopped() const noexcept { return progress_ != nullptr && progress_->Aborted(); }

  const Progress* progress_ = nullptr;
  bool inPlace_ = false;
  int runShift_ = 1;  // 0 where a run is the number of its first node
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
