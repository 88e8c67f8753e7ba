#ifndef KESTRUM_ENGINE_NEIGHBOR_SEARCH_HPP
#define KESTRUM_ENGINE_NEIGHBOR_SEARCH_HPP

#include <cstdint>

#include "core/buffer.hpp"
#include "core/grid.h"
#include "core/node_coordinates.hpp"
#include "engine/search_neighborhood.h"

namespace kestrum {

// The list of a run with what walking it needs. Read-only, shared by all threads.
struct NeighborList {
  const VORL_SEARCHNEIGHBORHOOD* offsets;
  const int* shift;  // difference of node index of each entry
  VORL_GRID grid;
};

// Writes the entries of the first `limit` usable nodes of the list around a node, in the order of the list, and returns
// their number. usable(node) tells whether a node of the grid is a neighbour. A node whose whole box lies inside the grid
// needs no bounds tests.
template <typename Usable>
int WalkNeighbors(const NeighborList& list, int node, NodeCoordinates at, int limit, const Usable& usable,
                  int* entries) noexcept {
  const VORL_SEARCHNEIGHBORHOOD& offsets = *list.offsets;
  const VORL_GRID& grid = list.grid;
  const auto [ix, iy, iz] = at;
  int found = 0;
  if (ix + offsets.ixMin >= 0 && ix + offsets.ixMax < grid.nx && iy + offsets.iyMin >= 0 &&
      iy + offsets.iyMax < grid.ny && iz + offsets.izMin >= 0 && iz + offsets.izMax < grid.nz) {
    for (int e = 0; e < offsets.size && found < limit; ++e) {
      if (usable(node + list.shift[e])) entries[found++] = e;
    }
    return found;
  }
  const auto inside = [](int i, int n) { return static_cast<unsigned>(i) < static_cast<unsigned>(n); };
  for (int e = 0; e < offsets.size && found < limit; ++e) {
    if (inside(ix + offsets.ix[e], grid.nx) && inside(iy + offsets.iy[e], grid.ny) &&
        inside(iz + offsets.iz[e], grid.nz) && usable(node + list.shift[e])) {
      entries[found++] = e;
    }
  }
  return found;
}

// Finds the same neighbours where few nodes hold a datum, so that walking the list would pass thousands of empty nodes:
// the rank in the list of each datum's offset is looked up, and the lowest ranks are taken.
//
// Nodes are taken in runs along x. For a run, a datum has a lowest and a highest rank over the run's nodes. The limit-th
// smallest of the highest ranks bounds the ranks that any node of the run can need, so that only the data whose lowest
// rank is within that bound, the candidates, are looked up node by node. Rows of data are visited in the order of the
// lowest rank that an offset in them can have, and the visit stops where the bound is passed: the cost does not grow
// with the search radius.
class SparseNeighborSearch {
 public:
  // Longest run of nodes along x.
  static constexpr int kMaxRun = 64;

  // What one thread needs.
  struct Scratch {
    struct Candidate {
      int row;  // place of the row's first entry in the table of ranks
      int x;    // node of the datum along x
    };
    Buffer<int> highest;  // heap of the smallest highest ranks
    Buffer<Candidate> candidates;
    Buffer<int> lowest;
    Buffer<std::uint64_t> order;  // rank and candidate, sorted for the node before
    int ncandidate = 0;
    bool walk = false;  // the list itself is shorter to walk in this run
  };

  // Whether looking data up pays on the average, for ndata data and at most `limit` neighbours.
  static bool Pays(const NeighborList& list, int ndata, int limit) noexcept;

  // nodeStatus: 0 marks a datum. The list must outlive the search.
  [[nodiscard]] int Prepare(const NeighborList& list, const int* nodeStatus, int ndata, int limit) noexcept;
  bool prepared() const noexcept { return static_cast<bool>(rank_); }
  [[nodiscard]] int AllocateScratch(Scratch& scratch) const noexcept;

  // Makes the scratch ready for the nodes from (first.ix) to (lastX) of first's row, at most kMaxRun of them.
  void StartRun(NodeCoordinates first, int lastX, Scratch& scratch) const noexcept;
  // As WalkNeighbors, for a node of the run started last.
  int Find(int node, NodeCoordinates at, Scratch& scratch, int* entries) const noexcept;

 private:
  // Lowest and highest rank that a datum has over the nodes of a run.
  struct RunRanks {
    int lowest, highest;
  };

  // A row of offsets along x in the box of the list.
  struct Row {
    int lowest;  // lowest rank in the row
    int dy, dz;
  };

  NeighborList list_{};
  const int* nodeStatus_ = nullptr;
  int limit_ = 0;
  int ndata_ = 0;
  int boxX_ = 0;    // box of the list along x
  int window_ = 0;  // boxX_ plus a run
  int boxY_ = 0;
  Buffer<int> rank_;                   // per offset of the box: its entry in the list, kNoRank if it is not in the list
  Buffer<RunRanks> runRanks_;          // per offset from the run's first node
  Buffer<Row> rows_;                   // by lowest rank
  Buffer<int> dataX_, dataY_, dataZ_;  // data in node order
  Buffer<int> rowStart_;               // per row of the grid: its first datum
};

}  // namespace kestrum

#endif
