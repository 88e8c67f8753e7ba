#include "neighborhood/neighbor_search.hpp"

#include <algorithm>
#include <bit>
#include <climits>

namespace kestrum {
namespace {

constexpr int kNoRank = INT_MAX;

// A step along the list takes about this part of the time of looking one candidate up and sorting it in (measured on a
// list of 31,000 entries in the level-2 cache).
constexpr int kStepsPerCandidate = 4;

// Memory of the tables, per node of the grid and for small grids.
constexpr double kTableBytesPerNode = 20.0;
constexpr double kTableBytesBasic = 1 << 24;

// Below this many steps on the average, walking is cheaper than even starting a run.
constexpr int kAlwaysWalk = 100;

// Up to this many candidates the order of the node before is updated by insertion; beyond it, the lowest are selected.
constexpr int kMaxInsertion = 160;

}  // namespace

bool SparseNeighborSearch::Pays(const NeighborList& list, int ndata, int share) noexcept {
  if (ndata < 1) return false;
  // The tables are worth a share of the memory of a run, no more.
  const VORL_SEARCHNEIGHBORHOOD& offsets = *list.offsets;
  const double boxX = static_cast<double>(offsets.ixMax) - offsets.ixMin + 1;
  const double nrow = (static_cast<double>(offsets.iyMax) - offsets.iyMin + 1) *
                      (static_cast<double>(offsets.izMax) - offsets.izMin + 1);
  const double bytes = nrow * (boxX * sizeof(int) + (boxX + kMaxRun) * sizeof(RunRanks) + sizeof(Row));
  if (bytes * share > kTableBytesBasic + kTableBytesPerNode * list.grid.nxyz) return false;
  if (boxX > INT_MAX - kMaxRun) return false;
  const double steps = static_cast<double>(list.limit) * list.grid.nxyz / ndata;
  return std::min(steps, static_cast<double>(list.offsets->size)) > kAlwaysWalk;
}

int SparseNeighborSearch::Prepare(const NeighborList& list, const NodeBits& isDatum, int ndata) noexcept {
  list_ = list;
  data_ = &isDatum;
  ndata_ = ndata;
  const VORL_SEARCHNEIGHBORHOOD& offsets = *list.offsets;
  const VORL_GRID& grid = list.grid;
  boxX_ = offsets.ixMax - offsets.ixMin + 1;
  boxY_ = offsets.iyMax - offsets.iyMin + 1;
  const int boxZ = offsets.izMax - offsets.izMin + 1;
  window_ = boxX_ + kMaxRun - 1;
  const std::size_t nrow = static_cast<std::size_t>(boxY_) * boxZ;
  if (const int status = rank_.Allocate(nrow * boxX_, kNoRank); status != 0) return status;
  if (const int status = runRanks_.Allocate(nrow * window_); status != 0) return status;
  if (const int status = rows_.Allocate(nrow); status != 0) return status;
  for (Buffer<int>* data : {&dataX_, &dataY_, &dataZ_}) {
    if (const int status = data->Allocate(ndata); status != 0) return status;
  }
  const std::size_t nline = static_cast<std::size_t>(grid.ny) * grid.nz;
  if (const int status = rowStart_.Allocate(nline + 1); status != 0) return status;

  for (int e = 0; e < offsets.size; ++e) {
    const std::size_t row =
        static_cast<std::size_t>(offsets.iz[e] - offsets.izMin) * boxY_ + (offsets.iy[e] - offsets.iyMin);
    rank_[row * boxX_ + (offsets.ix[e] - offsets.ixMin)] = e;
  }
  for (std::size_t row = 0; row < nrow; ++row) {
    const int* rank = &rank_[row * boxX_];
    RunRanks* const runRanks = &runRanks_[row * window_];
    // A datum at u from the window's start is at the offsets u - t, t = 0 ... kMaxRun - 1, from the run's nodes.
    for (int u = 0; u < window_; ++u) {
      int lowest = kNoRank;
      int highest = u < boxX_ && u - kMaxRun + 1 >= 0 ? 0 : kNoRank;
      for (int v = std::max(0, u - kMaxRun + 1); v <= std::min(u, boxX_ - 1); ++v) {
        lowest = std::min(lowest, rank[v]);
        highest = std::max(highest, rank[v]);
      }
      runRanks[u] = {lowest, highest};
    }
    rows_[row] = {*std::min_element(rank, rank + boxX_), offsets.iyMin + static_cast<int>(row % boxY_),
                  offsets.izMin + static_cast<int>(row / boxY_)};
  }
  std::sort(rows_.begin(), rows_.end(), [](const Row& a, const Row& b) { return a.lowest < b.lowest; });

  int count = 0;
  for (std::size_t line = 0; line < nline; ++line) {
    rowStart_[line] = count;
    const int first = static_cast<int>(line) * grid.nx;
    for (int ix = 0; ix < grid.nx && count < ndata; ++ix) {
      if (isDatum[first + ix] == 0) continue;
      dataX_[count] = ix;
      dataY_[count] = static_cast<int>(line % grid.ny);
      dataZ_[count] = static_cast<int>(line / grid.ny);
      ++count;
    }
  }
  rowStart_[nline] = count;
  return 0;
}

int SparseNeighborSearch::AllocateScratch(Scratch& scratch) const noexcept {
  if (const int status = scratch.highest.Allocate(list_.limit); status != 0) return status;
  if (const int status = scratch.candidates.Allocate(ndata_); status != 0) return status;
  if (const int status = scratch.lowest.Allocate(ndata_); status != 0) return status;
  return scratch.order.Allocate(ndata_);
}

void SparseNeighborSearch::StartRun(NodeCoordinates first, int lastX, Scratch& scratch) const noexcept {
  const VORL_GRID& grid = list_.grid;
  const VORL_SEARCHNEIGHBORHOOD& offsets = *list_.offsets;
  const int firstX = first.ix + offsets.ixMin;  // start of the window
  int* const heap = scratch.highest.data();
  int nheap = 0;
  int bound = kNoRank;
  int count = 0;
  // Takes in a datum of the window.
  const auto consider = [&](std::size_t boxRow, int x) {
    const auto [lowest, highest] = runRanks_[boxRow * window_ + (x - firstX)];
    if (lowest > bound || lowest == kNoRank) return;
    scratch.candidates[count] = {static_cast<int>(boxRow * boxX_), x};
    scratch.lowest[count] = lowest;
    ++count;
    if (highest >= bound) return;
    if (nheap == list_.limit) {
      std::pop_heap(heap, heap + nheap);
      --nheap;
    }
    heap[nheap++] = highest;
    std::push_heap(heap, heap + nheap);
    if (nheap == list_.limit) bound = heap[0];
  };
  const int endX = std::min(lastX, grid.nx - 1 - offsets.ixMax) + offsets.ixMax;  // data lie in the grid
  if (static_cast<std::size_t>(ndata_) < rows_.size()) {
    // Fewer data than rows in the box: each is looked at.
    for (int i = 0; i < ndata_; ++i) {
      const int dy = dataY_[i] - first.iy;
      const int dz = dataZ_[i] - first.iz;
      if (dataX_[i] < firstX || dataX_[i] > endX || dy < offsets.iyMin || dy > offsets.iyMax || dz < offsets.izMin ||
          dz > offsets.izMax) {
        continue;
      }
      consider(static_cast<std::size_t>(dz - offsets.izMin) * boxY_ + (dy - offsets.iyMin), dataX_[i]);
    }
  } else {
    for (const Row& row : rows_) {
      if (row.lowest > bound || row.lowest == kNoRank) break;
      const int iy = Moved(first.iy, row.dy);
      const int iz = Moved(first.iz, row.dz);
      if (!HasRow(grid, iy, iz)) continue;
      const std::size_t line = static_cast<std::size_t>(iz) * grid.ny + iy;
      const int* datum = dataX_.data() + rowStart_[line];
      const int* const end = dataX_.data() + rowStart_[line + 1];
      if (end - datum > 16) datum = std::lower_bound(datum, end, firstX);
      const std::size_t boxRow = static_cast<std::size_t>(row.dz - offsets.izMin) * boxY_ + (row.dy - offsets.iyMin);
      for (; datum != end && *datum <= endX; ++datum) {
        if (*datum >= firstX) consider(boxRow, *datum);
      }
    }
  }
  int kept = 0;
  for (int c = 0; c < count; ++c) {
    if (scratch.lowest[c] > bound) continue;
    scratch.candidates[kept] = scratch.candidates[c];
    scratch.order[kept] = static_cast<std::uint64_t>(kept);
    ++kept;
  }
  scratch.ncandidate = kept;
  scratch.walk = std::min(bound, offsets.size) / kStepsPerCandidate < kept;
}

int SparseNeighborSearch::Find(int node, NodeCoordinates at, Scratch& scratch, int* entries) const noexcept {
  if (scratch.walk) {
    return WalkNeighbors(list_, node, *data_, entries);
  }
  const int n = scratch.ncandidate;
  const int firstX = at.ix + list_.offsets->ixMin;
  std::uint64_t* order = scratch.order.data();
  const auto keyed = [&](std::uint64_t entry) {
    const std::uint32_t candidate = static_cast<std::uint32_t>(entry);
    const auto [row, x] = scratch.candidates[candidate];
    const int dx = x - firstX;
    const int rank = static_cast<unsigned>(dx) < static_cast<unsigned>(boxX_) ? rank_[row + dx] : kNoRank;
    return static_cast<std::uint64_t>(rank) << 32 | candidate;
  };
  if (n <= kMaxInsertion) {
    // The neighbours of the node before come in almost the same order.
    for (int i = 0; i < n; ++i) {
      const std::uint64_t key = keyed(order[i]);
      int j = i;
      for (; j > 0 && order[j - 1] > key; --j) order[j] = order[j - 1];
      order[j] = key;
    }
  } else {
    for (int i = 0; i < n; ++i) order[i] = keyed(order[i]);
    const int wanted = std::min(list_.limit, n);
    if (wanted < n) std::nth_element(order, order + wanted, order + n);
    std::sort(order, order + wanted);
  }
  int found = 0;
  for (; found < n && found < list_.limit; ++found) {
    const int rank = static_cast<int>(order[found] >> 32);
    if (rank == kNoRank) break;
    entries[found] = rank;
  }
  return found;
}

int DataNeighborSearch::Prepare(const NeighborList& list, const NodeBits& data, int ndata, int share) noexcept {
  list_ = list;
  data_ = &data;
  // No system is larger than the list or the data allow.
  list_.limit = std::clamp(std::min(list.limit, list.offsets->size), 1, std::max(ndata, 1));
  return SparseNeighborSearch::Pays(list_, ndata, share) ? sparse_.Prepare(list_, data, ndata) : 0;
}

int DataNeighborSearch::AllocateScratch(Scratch& scratch) const noexcept {
  return sparse_.prepared() ? sparse_.AllocateScratch(scratch.sparse) : 0;
}

int DataNeighborSearch::Find(const int* nodes, int i, int count, Scratch& scratch, int* entries) const noexcept {
  const int node = nodes[i];
  if (!sparse_.prepared()) return WalkNeighbors(list_, node, *data_, entries);
  const NodeCoordinates at = CoordinatesOf(list_.grid, node);
  if (node < scratch.runStart || node > scratch.runEnd) {
    // The nodes that follow, in either direction, as far as they are in one row.
    int first = node;
    int last = node;
    for (int j = i + 1; j < count; ++j) {
      const int low = std::min(first, nodes[j]);
      const int high = std::max(last, nodes[j]);
      if (nodes[j] / list_.grid.nx != node / list_.grid.nx || high - low >= SparseNeighborSearch::kMaxRun) break;
      first = low;
      last = high;
    }
    scratch.runStart = first;
    scratch.runEnd = last;
    const NodeCoordinates start = CoordinatesOf(list_.grid, first);
    sparse_.StartRun(start, start.ix + last - first, scratch.sparse);
  }
  return sparse_.Find(node, at, scratch.sparse, entries);
}

}  // namespace kestrum
