#ifndef KESTRUM_NEIGHBORHOOD_NEIGHBOR_SEARCH_HPP
#define KESTRUM_NEIGHBORHOOD_NEIGHBOR_SEARCH_HPP

#include <cstdint>

#include "neighborhood/neighbor_list.hpp"

namespace kestrum {

// Finds the same neighbours where few nodes hold a datum, so that walking the list would pass thousands of empty nodes:
// the rank in the list of each datum's offset is looked up, and the lowest ranks are taken.
//
// Nodes are taken in runs along x. For a run, a datum has a lowest and a highest rank over the run's nodes. The
// limit-th smallest of the highest ranks bounds the ranks that any node of the run can need, so that only the data
// whose lowest rank is within that bound, the candidates, are looked up node by node. Rows of data are visited in the
// order of the lowest rank that an offset in them can have, and the visit stops where the bound is passed: the cost
// does not grow with the search radius.
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

  // Whether looking ndata data up pays on the average. share: number of searches that share the memory of a run.
  static bool Pays(const NeighborList& list, int ndata, int share) noexcept;

  // The list and the bits, which mark the data, must outlive the search.
  [[nodiscard]] int Prepare(const NeighborList& list, const NodeBits& data, int ndata) noexcept;
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
  const NodeBits* data_ = nullptr;
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

// The neighbours of a node among data that stay: looked up where data are few, found along the list elsewhere.
class DataNeighborSearch {
 public:
  // What one thread needs.
  struct Scratch {
    SparseNeighborSearch::Scratch sparse;
    int runStart = 0;  // nodes from runStart to runEnd belong to the run of the sparse search; none at first
    int runEnd = -1;
    // Before the first node that is sought by another search than the one before.
    void Forget() noexcept { runEnd = runStart - 1; }
  };

  // The list and the bits, which mark the data, must outlive the search. share: number of searches that a run has.
  [[nodiscard]] int Prepare(const NeighborList& list, const NodeBits& data, int ndata, int share = 1) noexcept;
  // The list, limited to the most neighbours that any node can have, at least 1.
  const NeighborList& list() const noexcept { return list_; }
  [[nodiscard]] int AllocateScratch(Scratch& scratch) const noexcept;

  // Writes the list entries of the neighbours of nodes[i] and returns their number. The nodes after it in `nodes` (of
  // `count`) are wanted next.
  int Find(const int* nodes, int i, int count, Scratch& scratch, int* entries) const noexcept;

 private:
  NeighborList list_{};
  const NodeBits* data_ = nullptr;
  SparseNeighborSearch sparse_;
};

}  // namespace kestrum

#endif
