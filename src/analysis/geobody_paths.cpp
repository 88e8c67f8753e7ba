#include "analysis/geobody_paths.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <type_traits>
#include <utility>

#include "analysis/geobody_paths.hpp"
#include "core/buffer.hpp"
#include "core/object_array.hpp"
#include "core/rendezvous.hpp"
#include "core/statuses.hpp"
#include "numeric/philox.hpp"

namespace kestrum {
namespace {

struct Offset {
  int dx, dy, dz;
};

// The neighbours of each connectivity are looked at in this order; those of the smaller ones are among them.
constexpr std::size_t kMostNeighbors = 26;
constexpr Offset kOffsets[kMostNeighbors] = {
    {-1, 0, 0}, {-1, -1, 0}, {-1, -1, -1}, {-1, -1, 1}, {-1, 1, 0}, {-1, 1, -1}, {-1, 1, 1}, {-1, 0, -1}, {-1, 0, 1},
    {1, 0, 0},  {1, -1, 0},  {1, -1, -1},  {1, -1, 1},  {1, 1, 0},  {1, 1, -1},  {1, 1, 1},  {1, 0, -1},  {1, 0, 1},
    {0, -1, 0}, {0, -1, -1}, {0, -1, 1},   {0, 1, 0},   {0, 1, -1}, {0, 1, 1},   {0, 0, -1}, {0, 0, 1}};

// The most axes along which neighbours differ.
constexpr int AxesOf(Connectivity connectivity) noexcept { return static_cast<int>(connectivity) + 1; }

constexpr bool AreNeighbors(Connectivity connectivity, const Offset& offset) noexcept {
  return offset.dx * offset.dx + offset.dy * offset.dy + offset.dz * offset.dz <= AxesOf(connectivity);
}

struct Node {
  int index, ix, iy, iz;
};

class Box {
 public:
  Box(int nx, int ny, int nz) noexcept : nx_(nx), ny_(ny), nz_(nz), nxy_(std::int64_t{nx} * ny) {}

  // 0 if a size is less than 1; no more than an int can index.
  std::int64_t NodeCount() const noexcept {
    constexpr std::int64_t kMost = std::int64_t{std::numeric_limits<int>::max()} + 1;
    if (nx_ < 1 || ny_ < 1 || nz_ < 1) return 0;
    return nxy_ <= kMost / nz_ ? nxy_ * nz_ : kMost;
  }
  // Pieces of the grid, some sections thick, or some rows where there are few sections.
  int npiece() const noexcept { return ((nz_ >= kFewSections ? nz_ : ny_) - 1) / kPiece + 1; }
  int PieceOf(const Node& node) const noexcept { return AcrossPieces(node) / kPiece; }
  // Whether neighbours of the node may lie in the piece before its own, and in the one after it.
  bool IsFirstOfPiece(const Node& node) const noexcept { return AcrossPieces(node) % kPiece == 0; }
  bool IsLastOfPiece(const Node& node) const noexcept { return AcrossPieces(node) % kPiece == kPiece - 1; }

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

  // Whether the node has all its neighbours.
  bool IsInner(const Node& node) const noexcept {
    return node.ix > 0 && node.ix < nx_ - 1 && node.iy > 0 && node.iy < ny_ - 1 && node.iz > 0 && node.iz < nz_ - 1;
  }

  // Calls body(neighbour) for the neighbours of a node that lie in the box, in their order.
  template <Connectivity kConnectivity, typename Body>
  void ForNeighbors(const Node& node, const Body& body) const noexcept {
    if (IsInner(node)) {
      ForNeighbors<kConnectivity, false>(node, body, std::make_index_sequence<kMostNeighbors>());
    } else {
      ForNeighbors<kConnectivity, true>(node, body, std::make_index_sequence<kMostNeighbors>());
    }
  }

 private:
  template <Connectivity kConnectivity, bool kAtFace, typename Body, std::size_t... kNumbers>
  void ForNeighbors(const Node& node, const Body& body, std::index_sequence<kNumbers...>) const noexcept {
    (VisitNeighbor<kConnectivity, kAtFace, kNumbers>(node, body), ...);
  }

  template <Connectivity kConnectivity, bool kAtFace, std::size_t kNumber, typename Body>
  void VisitNeighbor(const Node& node, const Body& body) const noexcept {
    constexpr Offset kOffset = kOffsets[kNumber];
    if constexpr (AreNeighbors(kConnectivity, kOffset)) {
      if (kAtFace && !Has(node, kOffset)) return;
      body(Node{static_cast<int>(NeighborIndex(node, kOffset)), node.ix + kOffset.dx, node.iy + kOffset.dy,
                node.iz + kOffset.dz});
    }
  }

  int AcrossPieces(const Node& node) const noexcept { return nz_ >= kFewSections ? node.iz : node.iy; }

  static constexpr int kPiece = 32;
  static constexpr int kFewSections = 64;

  int nx_;
  int ny_;
  int nz_;
  std::int64_t nxy_;
};

// Nodes at one distance. The coordinates travel with the nodes, so that none is decoded during the search.
class Front {
 public:
  int Allocate(int capacity) noexcept { return nodes_.Allocate(static_cast<std::size_t>(capacity)); }

  void Append(const Node& node) noexcept {
    if (size_ < nodes_.size() || Grow()) nodes_[size_++] = node;
  }

  void Clear() noexcept { size_ = 0; }
  int status() const noexcept { return status_; }
  std::ptrdiff_t size() const noexcept { return static_cast<std::ptrdiff_t>(size_); }
  const Node* begin() const noexcept { return nodes_.begin(); }
  const Node* end() const noexcept { return nodes_.begin() + size_; }

 private:
  // Doubles a table that is full: a caller may have given too small a capacity. A failure is kept.
  [[gnu::noinline]] bool Grow() noexcept {
    if (status_ == 0) status_ = nodes_.Enlarge(2 * size_);
    return status_ == 0;
  }

  Buffer<Node> nodes_;
  std::size_t size_ = 0;
  int status_ = 0;
};

// Finds the nodes at one distance after those at another. The grid is cut across its last axis that has room, and each
// thread has every so many-th piece: it alone writes distances there, so that no two threads write the same lines of the
// caches. Nodes at the ends of a piece are shown to the threads that have the pieces beyond.
template <Connectivity kConnectivity>
class DistanceSearch {
 public:
  // distance: of all nodes; -1 at those inside and less elsewhere, once the search runs.
  DistanceSearch(const Box& box, int* distance, const Progress& progress) noexcept
      : box_(box), distance_(distance), progress_(progress) {}

  int Allocate(int nscratch, int frontCapacity, int nstart) noexcept {
    constexpr int kFirst = 1024;
    int status = shares_.Allocate(nscratch);
    for (int thread = 0; thread < nscratch && status == 0; ++thread) {
      Share& share = shares_[thread];
      status = share.found[0].Allocate(thread == 0 ? std::max(frontCapacity, nstart) : kFirst);
      if (status == 0) status = share.found[1].Allocate(thread == 0 ? frontCapacity : kFirst);
      for (int parity = 0; parity < 2 && nscratch > 1; ++parity) {
        for (int side = 0; side < 2 && status == 0; ++side) status = share.shown[parity][side].Allocate(kFirst);
      }
    }
    return status;
  }

  // What each thread of the team does. ninside: nodes that may be found.
  void Run(int thread, int team, int nstart, const int* start, std::int64_t ninside) noexcept {
    Share& own = shares_[thread];
    for (int i = 0; i < nstart; ++i) {
      const Node node = box_.NodeAt(start[i]);
      if (box_.PieceOf(node) % team != thread) continue;
      distance_[start[i]] = 0;
      own.found[0].Append(node);
    }
    own.Close(0, box_, team);
    std::int64_t ndone = 0;
    for (int level = 1;; ++level) {
      if (team > 1) rendezvous_.Await(team);
      const int last = (level - 1) % 2;
      std::ptrdiff_t count = 0;
      for (int t = 0; t < team; ++t) {
        if (shares_[t].status[last] != 0) return;
        count += shares_[t].count[last];
      }
      if (count == 0) return;
      own.Open(level % 2);
      if (thread == 0 && !progress_.GoesOn(true, std::min(ndone, ninside), ninside)) {
        own.status[level % 2] = kAborted;
        continue;
      }
      ndone += count;
      Front& next = own.found[level % 2];
      GoOn(own.found[last], team > 1, level, next);
      if (team > 1) {
        GoOnBeyond(shares_[(thread + team - 1) % team].shown[last][kUp], level, next);
        GoOnBeyond(shares_[(thread + 1) % team].shown[last][kDown], level, next);
      }
      own.Close(level % 2, box_, team);
    }
  }

  // The first failure of a thread, once the search has run.
  int status() const noexcept {
    for (std::size_t t = 0; t < shares_.size(); ++t) {
      for (const int status : shares_[t].status) {
        if (status != 0) return status;
      }
    }
    return 0;
  }

 private:
  enum Side { kDown, kUp };

  // What a thread has found, by even and odd distances. The others read of it what it gives when it closes it.
  struct Share {
    Front found[2];
    Front shown[2][2];  // of those found, the ones at each side's ends of pieces
    std::ptrdiff_t count[2] = {};
    int status[2] = {};

    void Open(int parity) noexcept {
      found[parity].Clear();
      for (Front& side : shown[parity]) side.Clear();
    }
    void Close(int parity, const Box& box, int team) noexcept {
      count[parity] = found[parity].size();
      for (const Node* node = found[parity].begin(); team > 1 && node != found[parity].end(); ++node) {
        if (box.IsFirstOfPiece(*node)) shown[parity][kDown].Append(*node);
        if (box.IsLastOfPiece(*node)) shown[parity][kUp].Append(*node);
      }
      for (const Front* front : {&found[parity], &shown[parity][kDown], &shown[parity][kUp]}) {
        if (status[parity] == 0) status[parity] = front->status();
      }
    }
  };

  // From a thread's own nodes to others in its pieces.
  void GoOn(const Front& found, bool shared, int level, Front& next) const noexcept {
    struct Step {
      std::ptrdiff_t by;
      Offset offset;
    };
    Step steps[kMostNeighbors];
    int nstep = 0;
    for (const Offset& offset : kOffsets) {
      if (AreNeighbors(kConnectivity, offset)) steps[nstep++] = {box_.NeighborIndex({0, 0, 0, 0}, offset), offset};
    }
    int* const distance = distance_;
    for (const Node& node : found) {
      const bool atEnd = shared && (box_.IsFirstOfPiece(node) || box_.IsLastOfPiece(node));
      if (!atEnd && box_.IsInner(node)) {
        int* const here = distance + node.index;
        for (int k = 0; k < nstep; ++k) {
          const auto& [by, offset] = steps[k];
          if (here[by] != -1) continue;
          here[by] = level;
          next.Append(
              {static_cast<int>(node.index + by), node.ix + offset.dx, node.iy + offset.dy, node.iz + offset.dz});
        }
        continue;
      }
      box_.template ForNeighbors<kConnectivity>(node, [&](const Node& neighbor) noexcept {
        if ((atEnd && box_.PieceOf(neighbor) != box_.PieceOf(node)) || distance[neighbor.index] != -1) return;
        distance[neighbor.index] = level;
        next.Append(neighbor);
      });
    }
  }

  // From nodes at the ends of others' pieces.
  void GoOnBeyond(const Front& shown, int level, Front& next) const noexcept {
    for (const Node& node : shown) {
      box_.template ForNeighbors<kConnectivity>(node, [&](const Node& neighbor) noexcept {
        if (box_.PieceOf(neighbor) == box_.PieceOf(node) || distance_[neighbor.index] != -1) return;
        distance_[neighbor.index] = level;
        next.Append(neighbor);
      });
    }
  }

  const Box box_;
  int* const distance_;
  const Progress& progress_;
  ObjectArray<Share> shares_;
  Rendezvous rendezvous_;
};

template <Connectivity kConnectivity, typename T>
int ComputeDistances(const Box& box, const T* geobody, int frontCapacity, int nstart, const int* start, int* distance,
                     const Dealing& dealing = Dealing::Serial(),
                     const Progress& progress = Progress(nullptr, nullptr)) noexcept {
  for (int i = 0; i < nstart; ++i) {
    if (!box.Has(start[i])) return kPathStartOutside;
  }
  const Dealing ofPieces =
      dealing.threaded() ? Dealing::Threads(std::min(dealing.nthreads(), box.npiece())) : Dealing::Serial();
  DistanceSearch<kConnectivity> search(box, distance, progress);
  if (const int status = search.Allocate(ofPieces.nscratch(), frontCapacity, nstart); status != 0) return status;
  // During the search the nodes outside are marked in the map itself, so that a neighbour takes one look-up.
  constexpr int kOutside = -2;
  const std::int64_t nnode = box.NodeCount();
  std::atomic<std::int64_t> ninside{0};
  dealing.ForPass(nnode).Blocks(nnode, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
    std::int64_t count = 0;
    for (std::ptrdiff_t i = begin; i < end; ++i) {
      const bool inside = geobody[i] != 0 && !std::isnan(static_cast<double>(geobody[i]));
      distance[i] = inside ? -1 : kOutside;
      count += inside;
    }
    ninside += count;
  });
  ofPieces.ForPass(ninside).EachThread(
      [&](int thread, int team) noexcept { search.Run(thread, team, nstart, start, ninside); });
  if (search.status() == kAborted) return kAborted;
  dealing.ForPass(nnode).Blocks(nnode, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
    for (std::ptrdiff_t i = begin; i < end; ++i) distance[i] = std::max(distance[i], -1);
  });
  return search.status();
}

// draw(count): one of count neighbours, from 0.
template <Connectivity kConnectivity, typename Draw>
int ComputePath(const Box& box, const int* distance, int endNode, int* path, int* pathLength,
                const Draw& draw) noexcept {
  constexpr int kCannotFindPath = kNoGeobodyPath - static_cast<int>(kConnectivity);
  if (!box.Has(endNode)) return kPathEndOutside;
  Node node = box.NodeAt(endNode);
  int length = 0;
  path[length++] = endNode;
  for (int d = std::max(distance[endNode], 1) - 1; d > 0; --d) {
    Node candidates[kMostNeighbors];
    int count = 0;
    box.ForNeighbors<kConnectivity>(node, [&](const Node& neighbor) noexcept {
      if (distance[neighbor.index] == d) candidates[count++] = neighbor;
    });
    if (count == 0) return kCannotFindPath;
    node = candidates[draw(count)];
    path[length++] = node.index;
  }
  *pathLength = length;
  return 0;
}

// The nodes that touch a node of a box: itself and its neighbours, as runs of nodes along x in their order.
class TouchingNodes {
 public:
  TouchingNodes(const Box& box, Connectivity connectivity, const Node& node) noexcept {
    for (int dz = -1; dz <= 1; ++dz) {
      for (int dy = -1; dy <= 1; ++dy) {
        const int reach = std::min(AxesOf(connectivity) - std::abs(dy) - std::abs(dz), 1);
        if (reach < 0 || !box.Has(node, {0, dy, dz})) continue;
        const std::int64_t center = box.NeighborIndex(node, {0, dy, dz});
        runs_[nrun_++] = {box.Has(node, {-reach, 0, 0}) ? center - reach : center,
                          box.Has(node, {reach, 0, 0}) ? center + reach : center};
      }
    }
  }

  // Calls body(first, last) for each run.
  template <typename Body>
  void ForRuns(const Body& body) const noexcept {
    for (int run = 0; run < nrun_; ++run) body(runs_[run].first, runs_[run].last);
  }

  bool Have(int index) const noexcept {
    if (index < runs_[0].first || index > runs_[nrun_ - 1].last) return false;
    return std::any_of(runs_, runs_ + nrun_,
                       [index](const Run& run) { return index >= run.first && index <= run.last; });
  }

 private:
  struct Run {
    std::int64_t first, last;
  };
  Run runs_[9];
  int nrun_ = 0;
};

// The nodes of a path by index, each with its last place.
class PathPlaces {
 public:
  [[nodiscard]] int Allocate(const int* path, int length) noexcept {
    if (const int status = steps_.Allocate(static_cast<std::size_t>(length)); status != 0) return status;
    for (int place = 0; place < length; ++place) steps_[static_cast<std::size_t>(place)] = {path[place], place};
    std::sort(steps_.begin(), steps_.end(),
              [](const Step& a, const Step& b) { return a.node != b.node ? a.node < b.node : a.place > b.place; });
    end_ = std::unique(steps_.begin(), steps_.end(), [](const Step& a, const Step& b) { return a.node == b.node; });
    return 0;
  }

  // The last place of a node that touches, or -1.
  int LastOf(const TouchingNodes& touching) const noexcept {
    int last = -1;
    touching.ForRuns([&](std::int64_t first, std::int64_t end) noexcept {
      const Step* step = std::lower_bound(steps_.begin(), static_cast<const Step*>(end_), first,
                                          [](const Step& a, std::int64_t node) { return a.node < node; });
      for (; step != end_ && step->node <= end; ++step) last = std::max(last, step->place);
    });
    return last;
  }

 private:
  struct Step {
    int node, place;
  };
  Buffer<Step> steps_;
  Step* end_ = nullptr;
};

// The last node of path 1 that touches one of path 2, and the last one of path 2 that it touches.
int JoinPaths(Connectivity connectivity, const Box& box, const int* path1, const int* path2, int length1, int length2,
              int* index1, int* index2) noexcept {
  *index1 = *index2 = -1;
  // Nodes are looked up in a sorted path where it is longer than a few, and memory is there for it.
  constexpr int kFew = 32;
  PathPlaces places;
  const bool lookUp = std::min(length1, length2) > kFew && places.Allocate(path2, length2) == 0;
  for (int i = length1 - 1; i >= 0; --i) {
    if (!box.Has(path1[i])) continue;
    const TouchingNodes touching(box, connectivity, box.NodeAt(path1[i]));
    if (lookUp) {
      const int j = places.LastOf(touching);
      if (j < 0) continue;
      *index1 = i;
      *index2 = j;
      return 0;
    }
    for (int j = length2 - 1; j >= 0; --j) {
      if (touching.Have(path2[j])) {
        *index1 = i;
        *index2 = j;
        return 0;
      }
    }
  }
  return 0;
}

// Calls body(std::integral_constant<Connectivity, ...>()).
template <typename Body>
int ForConnectivity(Connectivity connectivity, const Body& body) noexcept {
  switch (connectivity) {
    case Connectivity::k6:
      return body(std::integral_constant<Connectivity, Connectivity::k6>());
    case Connectivity::k18:
      return body(std::integral_constant<Connectivity, Connectivity::k18>());
    default:
      return body(std::integral_constant<Connectivity, Connectivity::k26>());
  }
}

// A draw from the sequence of a record.
auto DrawFrom(VORL_RANDCONTEXT* randContext) noexcept {
  return [randContext](int count) noexcept { return VORLIntRand(0, count, randContext); };
}

}  // namespace

template <typename T>
int StepsInMask(const VORL_GRID& grid, const T* mask, Connectivity connectivity, int nstart, const int* start,
                const Dealing& dealing, const Progress& progress, int* steps) noexcept {
  return ForConnectivity(
      connectivity, [&]<Connectivity kConnectivity>(std::integral_constant<Connectivity, kConnectivity>) {
        return ComputeDistances<kConnectivity>({grid.nx, grid.ny, grid.nz}, mask, std::max(nstart, 1024), nstart, start,
                                               steps, dealing, progress);
      });
}
template int StepsInMask(const VORL_GRID&, const unsigned char*, Connectivity, int, const int*, const Dealing&,
                         const Progress&, int*) noexcept;
template int StepsInMask(const VORL_GRID&, const int*, Connectivity, int, const int*, const Dealing&, const Progress&,
                         int*) noexcept;
template int StepsInMask(const VORL_GRID&, const float*, Connectivity, int, const int*, const Dealing&, const Progress&,
                         int*) noexcept;
template int StepsInMask(const VORL_GRID&, const double*, Connectivity, int, const int*, const Dealing&,
                         const Progress&, int*) noexcept;

int PathBySteps(const VORL_GRID& grid, const int* steps, Connectivity connectivity, int endNode, std::uint64_t seed,
                int* path) noexcept {
  std::uint32_t drawn = 0;
  int length = 0;
  return ForConnectivity(connectivity,
                         [&]<Connectivity kConnectivity>(std::integral_constant<Connectivity, kConnectivity>) {
                           return ComputePath<kConnectivity>(
                               {grid.nx, grid.ny, grid.nz}, steps, endNode, path, &length, [&](int count) noexcept {
                                 const std::uint64_t word = Philox({drawn++, 0, 0, 0}, seed)[0];
                                 return static_cast<int>(word * static_cast<std::uint64_t>(count) >> 32);
                               });
                         });
}

}  // namespace kestrum

using namespace kestrum;

int VORLComputeDistanceConnectivity6InGeobody(int nx, int ny, int nz, int* geobody, int frontCapacity, int nstart,
                                              int* start, int* distance) noexcept {
  return ComputeDistances<Connectivity::k6>({nx, ny, nz}, geobody, frontCapacity, nstart, start, distance);
}

int VORLComputeDistanceConnectivity18InGeobody(int nx, int ny, int nz, int* geobody, int frontCapacity, int nstart,
                                               int* start, int* distance) noexcept {
  return ComputeDistances<Connectivity::k18>({nx, ny, nz}, geobody, frontCapacity, nstart, start, distance);
}

int VORLComputeDistanceConnectivity26InGeobody(int nx, int ny, int nz, int* geobody, int frontCapacity, int nstart,
                                               int* start, int* distance) noexcept {
  return ComputeDistances<Connectivity::k26>({nx, ny, nz}, geobody, frontCapacity, nstart, start, distance);
}

int VORLComputePathInDistanceMapGeobody6(int nx, int ny, int nz, int* distance, int endNode, int* path, int* pathLength,
                                         VORL_RANDCONTEXT* randContext) noexcept {
  return ComputePath<Connectivity::k6>({nx, ny, nz}, distance, endNode, path, pathLength, DrawFrom(randContext));
}

int VORLComputePathInDistanceMapGeobody18(int nx, int ny, int nz, int* distance, int endNode, int* path,
                                          int* pathLength, VORL_RANDCONTEXT* randContext) noexcept {
  return ComputePath<Connectivity::k18>({nx, ny, nz}, distance, endNode, path, pathLength, DrawFrom(randContext));
}

int VORLComputePathInDistanceMapGeobody26(int nx, int ny, int nz, int* distance, int endNode, int* path,
                                          int* pathLength, VORL_RANDCONTEXT* randContext) noexcept {
  return ComputePath<Connectivity::k26>({nx, ny, nz}, distance, endNode, path, pathLength, DrawFrom(randContext));
}

int VORLJoinTwoPathInGeobody6(int nx, int ny, int nz, int* path1, int* path2, int length1, int length2, int* index1,
                              int* index2) noexcept {
  return JoinPaths(Connectivity::k6, {nx, ny, nz}, path1, path2, length1, length2, index1, index2);
}

int VORLJoinTwoPathInGeobody18(int nx, int ny, int nz, int* path1, int* path2, int length1, int length2, int* index1,
                               int* index2) noexcept {
  return JoinPaths(Connectivity::k18, {nx, ny, nz}, path1, path2, length1, length2, index1, index2);
}

int VORLJoinTwoPathInGeobody26(int nx, int ny, int nz, int* path1, int* path2, int length1, int length2, int* index1,
                               int* index2) noexcept {
  return JoinPaths(Connectivity::k26, {nx, ny, nz}, path1, path2, length1, length2, index1, index2);
}
