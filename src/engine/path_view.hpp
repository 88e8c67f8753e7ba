#ifndef KESTRUM_ENGINE_PATH_VIEW_HPP
#define KESTRUM_ENGINE_PATH_VIEW_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "core/buffer.hpp"
#include "engine/system_solver.hpp"
#include "neighborhood/node_bits.hpp"

namespace kestrum {

// Some nodes, in memory that does not grow with the grid: where they are many, others may pass for them.
class NodeFilter {
 public:
  [[nodiscard]] int Allocate() noexcept { return count_.Allocate(kSlots, 0); }
  void Add(int node) noexcept {
    if (std::uint8_t& count = count_[SlotOf(node)]; count < kFull) ++count;
  }
  void Remove(int node) noexcept {
    if (std::uint8_t& count = count_[SlotOf(node)]; count < kFull) --count;
  }
  bool MayHold(int node) const noexcept { return count_[SlotOf(node)] != 0; }

 private:
  // 32 KB, which the nearest cache holds. 64 threads hold a few thousand nodes.
  static constexpr int kBits = 15;
  static constexpr std::size_t kSlots = std::size_t{1} << kBits;
  static std::size_t SlotOf(int node) noexcept { return static_cast<unsigned>(node) * 0x9e3779b9U >> (32 - kBits); }

  static constexpr std::uint8_t kFull = 255;  // not counted any more: the slot seems to hold nodes for ever
  Buffer<std::uint8_t> count_;                // of the nodes that share a slot
};

// What one thread sees from the nodes of a chunk of the path: a bit for each node that comes before.
class PathView {
 public:
  [[nodiscard]] int Allocate(int nnode) noexcept {
    const int status = seen_.Allocate(nnode);
    return status != 0 ? status : fresh_.Allocate();
  }
  // Begins a realization at a position of the path; `before` marks what is seen before it.
  void Start(const NodeBits& before, int position) noexcept {
    seen_.Copy(before);
    next_ = position;
    freshBegin_ = freshEnd_ = 0;
  }
  // Makes the chunk that begins at a position the one at hand.
  void MoveTo(const int* path, int begin) noexcept {
    for (; next_ < begin; ++next_) seen_.Set(path[next_]);
  }
  // Makes an earlier position the one at hand: the nodes from it up to `end` are not seen.
  void MoveBack(const int* path, int begin, int end) noexcept {
    for (int p = begin; p < end; ++p) seen_.Clear(path[p]);
    next_ = begin;
  }
  // Marks the nodes of a stretch of the path that may have no values yet, as far as this thread knows, and no others.
  // Neither end moves back within a realization, so that each position is marked and cleared once, however far behind
  // another thread is. An empty stretch ends the realization.
  void MarkFresh(const int* path, int begin, int end) noexcept {
    for (; freshBegin_ < std::min(begin, freshEnd_); ++freshBegin_) fresh_.Remove(path[freshBegin_]);
    freshBegin_ = std::max(freshBegin_, begin);
    for (freshEnd_ = std::max(freshEnd_, freshBegin_); freshEnd_ < end; ++freshEnd_) fresh_.Add(path[freshEnd_]);
  }
  // Whether a node may be one of them; some others seem to be.
  bool MayBeFresh(int node) const noexcept { return fresh_.MayHold(node); }

  // Finds the neighbours of the nodes of the chunk at hand and solves for them.
  void Solve(const MovingSystems& systems, const int* nodes, int count, SystemSolver& solver,
             ChunkSystems& chunk) noexcept {
    for (int i = 0; i < count; ++i) seen_.Clear(nodes[i]);
    chunk.Start(nodes, count);
    for (int i = 0; i < count; ++i) {
      if (i > 0) seen_.Set(nodes[i - 1]);
      chunk.SetNeighbors(i, WalkNeighbors(systems.list(), nodes[i], seen_, chunk.entries(i)));
    }
    solver.Solve(systems, chunk);
  }

 private:
  NodeBits seen_;
  NodeFilter fresh_;
  int next_ = 0;
  int freshBegin_ = 0;
  int freshEnd_ = 0;
};

}  // namespace kestrum

#endif
