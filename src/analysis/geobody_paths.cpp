#include "analysis/geobody_paths.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "analysis/geobody_paths.hpp"
#include "analysis/step_search.hpp"
#include "core/buffer.hpp"
#include "core/statuses.hpp"
#include "numeric/philox.hpp"

namespace kestrum {
namespace {

// draw(count): one of count neighbours, from 0.
template <typename Draw>
int ComputePath(Connectivity connectivity, const Box& box, const int* distance, int endNode, int* path, int* pathLength,
                const Draw& draw) noexcept {
  if (!box.Has(endNode)) return kPathEndOutside;
  Node node = box.NodeAt(endNode);
  int length = 0;
  path[length++] = endNode;
  for (int d = std::max(distance[endNode], 1) - 1; d > 0; --d) {
    Node candidates[kMostNeighbors];
    int count = 0;
    box.ForNeighbors(connectivity, node, [&](const Node& neighbor) noexcept {
      if (distance[neighbor.index] == d) candidates[count++] = neighbor;
    });
    if (count == 0) return kNoGeobodyPath - static_cast<int>(connectivity);
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

// A draw from the sequence of a record.
auto DrawFrom(VORL_RANDCONTEXT* randContext) noexcept {
  return [randContext](int count) noexcept { return VORLIntRand(0, count, randContext); };
}

int ComputeDistances(Connectivity connectivity, const Box& box, const int* geobody, int frontCapacity, int nstart,
                     const int* start, int* distance) noexcept {
  return FindSteps(connectivity, box, geobody, frontCapacity, nstart, start, distance, Dealing::Serial(),
                   Progress(nullptr, nullptr));
}

}  // namespace

int PathBySteps(const VORL_GRID& grid, const int* steps, Connectivity connectivity, int endNode, std::uint64_t seed,
                int* path) noexcept {
  std::uint32_t drawn = 0;
  int length = 0;
  return ComputePath(connectivity, {grid.nx, grid.ny, grid.nz}, steps, endNode, path, &length, [&](int count) noexcept {
    const std::uint64_t word = Philox({drawn++, 0, 0, 0}, seed)[0];
    return static_cast<int>(word * static_cast<std::uint64_t>(count) >> 32);
  });
}

}  // namespace kestrum

using namespace kestrum;

int VORLComputeDistanceConnectivity6InGeobody(int nx, int ny, int nz, int* geobody, int frontCapacity, int nstart,
                                              int* start, int* distance) noexcept {
  return ComputeDistances(Connectivity::k6, {nx, ny, nz}, geobody, frontCapacity, nstart, start, distance);
}

int VORLComputeDistanceConnectivity18InGeobody(int nx, int ny, int nz, int* geobody, int frontCapacity, int nstart,
                                               int* start, int* distance) noexcept {
  return ComputeDistances(Connectivity::k18, {nx, ny, nz}, geobody, frontCapacity, nstart, start, distance);
}

int VORLComputeDistanceConnectivity26InGeobody(int nx, int ny, int nz, int* geobody, int frontCapacity, int nstart,
                                               int* start, int* distance) noexcept {
  return ComputeDistances(Connectivity::k26, {nx, ny, nz}, geobody, frontCapacity, nstart, start, distance);
}

int VORLComputePathInDistanceMapGeobody6(int nx, int ny, int nz, int* distance, int endNode, int* path, int* pathLength,
                                         VORL_RANDCONTEXT* randContext) noexcept {
  return ComputePath(Connectivity::k6, {nx, ny, nz}, distance, endNode, path, pathLength, DrawFrom(randContext));
}

int VORLComputePathInDistanceMapGeobody18(int nx, int ny, int nz, int* distance, int endNode, int* path,
                                          int* pathLength, VORL_RANDCONTEXT* randContext) noexcept {
  return ComputePath(Connectivity::k18, {nx, ny, nz}, distance, endNode, path, pathLength, DrawFrom(randContext));
}

int VORLComputePathInDistanceMapGeobody26(int nx, int ny, int nz, int* distance, int endNode, int* path,
                                          int* pathLength, VORL_RANDCONTEXT* randContext) noexcept {
  return ComputePath(Connectivity::k26, {nx, ny, nz}, distance, endNode, path, pathLength, DrawFrom(randContext));
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
