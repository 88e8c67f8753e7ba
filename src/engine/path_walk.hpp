#ifndef KESTRUM_ENGINE_PATH_WALK_HPP
#define KESTRUM_ENGINE_PATH_WALK_HPP

#include <algorithm>
#include <atomic>
#include <concepts>
#include <cstdint>
#include <thread>

#include "core/object_array.hpp"
#include "engine/path_progress.hpp"
#include "engine/path_ranks.hpp"
#include "engine/path_view.hpp"
#include "engine/problem.hpp"
#include "engine/random_source.hpp"

namespace kestrum {

// What draws the values of nodes along a path. For a chunk of nodes of one thread:
//   Solve            finds neighbours and solves the systems
//   ForEachNeighbor  calls visit(grid node) for the neighbours of the chunk's i-th node
//   Value            raises the node's warnings and gives its value; a result other than 0 stops the threaded form
template <typename Law>
concept NodeLaw = requires(Law law, int thread, int i, int node, const int* nodes, int count, PathView& view,
                           void (*visit)(int), double number, real* value) {
  law.Solve(thread, nodes, count, view);
  law.ForEachNeighbor(thread, i, node, visit);
  { law.Value(thread, i, node, number, value) } -> std::same_as<int>;
};

// Simulates the last segment of a path. Neighbours and weights depend on places in the path alone, so each thread solves
// the systems of a chunk of consecutive nodes at once, and then draws their values one after the other: only there does
// it wait, for neighbours that another thread has not drawn yet. The earliest node without a value waits for none, so
// the wait always ends. A failure stops every thread at its next node.
class PathWalk {
 public:
  explicit PathWalk(const Problem& problem) noexcept
      : problem_(problem),
        path_(problem.path.nodes + problem.path.firstSimulated),
        count_(problem.path.nnode - problem.path.firstSimulated),
        unit_(1.0 / (problem.path.nnode - problem.path.firstInequality)),
        threaded_(problem.dealing().threaded()) {}

  [[nodiscard]] int Allocate() noexcept {
    const int nscratch = problem_.dealing().nscratch();
    if (const int status = views_.Allocate(nscratch); status != 0) return status;
    for (PathView& view : views_) {
      if (const int status = view.Allocate(problem_.grid.nxyz); status != 0) return status;
    }
    const auto chunks = static_cast<std::size_t>(count_ / ChunkSize(std::max(1, nscratch)) + 1);
    if (const int status = owner_.Allocate(chunks); status != 0) return status;
    return progress_.Allocate(nscratch);
  }

  // One realization. ranks, before: who is seen by whom, and what is seen before the first node. value: one per node.
  // Chunks go to threads as they come for them. Of several threads one does what is to be done beside first: beside().
  template <NodeLaw Law, typename Beside>
  [[nodiscard]] int Run(Law& law, const RandomSource& random, const PathRanks& ranks, const NodeBits& before,
                        real* value, const Beside& beside) noexcept {
    word_.store(0, std::memory_order_relaxed);
    next_.store(0, std::memory_order_relaxed);
    progress_.Start(problem_.dealing().nscratch());
    std::fill(owner_.begin(), owner_.end(), kNobody);
    problem_.dealing().EachThread([&](int thread, int team) noexcept {
      Walk walk{thread, team, ChunkSize(team), 0};
      if (team > 1 && thread == team - 1) {
        // Nobody waits for this thread until it takes a chunk.
        progress_.Advance(thread, count_);
        beside();
      }
      views_[thread].Start(before, problem_.path.firstSimulated);
      for (;;) {
        // What is left is no earlier than this; whoever takes a later chunk knows.
        progress_.Advance(thread, static_cast<int>(std::min<std::int64_t>(count_, next_.load())));
        const std::int64_t begin = next_.fetch_add(walk.chunk);
        if (begin >= count_) break;
        std::atomic_ref<int>(owner_[static_cast<std::size_t>(begin / walk.chunk)])
            .store(thread, std::memory_order_release);
        Stop(problem_.progress().Interruption());
        if (Stopped() || !DrawChunk(walk, static_cast<int>(begin), law, random, ranks, value)) return;
      }
      progress_.Advance(thread, count_);
      views_[thread].MarkFresh(path_, count_, count_);
      ReportUpTo(walk, count_ - 1);
    });
    if (const int status = word_.load(); status != 0) return status;
    return threaded_ ? problem_.progress().After(0) : 0;
  }

 private:
  // The values that a node needs are on their way this many nodes before it draws: they lie anywhere in a large grid.
  static constexpr int kFetchedAhead = 4;

  // One thread's way along the path. Positions count from the first node to simulate.
  struct Walk {
    int thread, team;
    std::int64_t chunk;  // nodes in a chunk
    int reported;        // positions reported, by thread 0, which reports every position
  };

  // Small grids are cut finer, so that each thread has some chunks.
  std::int64_t ChunkSize(int team) const noexcept {
    return std::clamp<std::int64_t>(count_ / (8 * team) / kLanes * kLanes, kLanes, kMaxChunk);
  }

  bool Stopped() const noexcept { return word_.load(std::memory_order_relaxed) != 0; }
  void Stop(int status) noexcept {
    if (status != 0) word_.store(status, std::memory_order_relaxed);
  }

  // Gives whether to go on.
  bool ReportUpTo(Walk& walk, int position) noexcept {
    for (; walk.thread == 0 && walk.reported <= position && !Stopped(); ++walk.reported) {
      const double part = walk.reported * unit_;
      // A threaded run looks at the abort flag after the region.
      Stop(threaded_ ? problem_.progress().Report(part) : problem_.progress().Publish(part));
    }
    return !Stopped();
  }

  // Waits until a position has its value; those before the first to simulate have. Gives false if the run is stopped
  // meanwhile.
  [[gnu::noinline]] bool WaitFor(const Walk& walk, int position) noexcept {
    if (position < 0) return true;
    const std::atomic_ref<int> ownerOfChunk(owner_[static_cast<std::size_t>(position / walk.chunk)]);
    int owner = ownerOfChunk.load(std::memory_order_acquire);
    if (owner == walk.thread) return true;
    for (int spin = 0; owner == kNobody || progress_.Next(owner) <= position;) {
      if (Stopped()) return false;
      if (owner == kNobody) owner = ownerOfChunk.load(std::memory_order_acquire);
      if (spin < 1000) {
        ++spin;
      } else {
        std::this_thread::yield();  // more threads than cores: the owner may need this one
      }
    }
    return true;
  }

  // Waits for the neighbours of the chunk's i-th node.
  template <NodeLaw Law>
  bool WaitForNeighbors(const Walk& walk, int i, int node, Law& law, const PathRanks& ranks) noexcept {
    bool ready = true;
    law.ForEachNeighbor(walk.thread, i, node, [&](int neighbor) noexcept {
      if (views_[walk.thread].MayBeFresh(neighbor)) {
        ready = ready && WaitFor(walk, ranks.PositionOf(neighbor) - problem_.path.firstSimulated);
      }
    });
    return ready;
  }

  // Gives false if the run is stopped meanwhile.
  template <NodeLaw Law>
  bool DrawChunk(Walk& walk, int begin, Law& law, const RandomSource& random, const PathRanks& ranks,
                 real* value) noexcept {
    const int n = static_cast<int>(std::min<std::int64_t>(walk.chunk, count_ - begin));
    const int* const nodes = path_ + begin;
    PathView& view = views_[walk.thread];
    view.MoveTo(problem_.path.nodes, problem_.path.firstSimulated + begin);
    law.Solve(walk.thread, nodes, n, view);
    view.MarkFresh(path_, progress_.DoneBefore(walk.thread, begin, walk.team), begin);
    const auto fetchValues = [&](int i) noexcept {
      law.ForEachNeighbor(walk.thread, i, nodes[i],
                          [&](int neighbor) noexcept { __builtin_prefetch(&value[neighbor]); });
    };
    for (int i = 0; i < std::min(kFetchedAhead, n); ++i) fetchValues(i);
    for (int i = 0; i < n; ++i) {
      if (i + kFetchedAhead < n) fetchValues(i + kFetchedAhead);
      if (!ReportUpTo(walk, begin + i)) return false;
      if (walk.team > 1 && !WaitForNeighbors(walk, i, nodes[i], law, ranks)) return false;
      const int status = law.Value(walk.thread, i, nodes[i], random.Draw(begin + i, nodes[i]), &value[nodes[i]]);
      if (threaded_) Stop(status);
      progress_.Advance(walk.thread, begin + i + 1);
    }
    return true;
  }

  const Problem& problem_;
  const int* path_;
  int count_;
  double unit_;
  bool threaded_;
  static constexpr int kNobody = -1;
  std::atomic<std::int64_t> next_{0};  // of the chunks that nobody has taken
  Buffer<int> owner_;                  // of each chunk that is taken
  std::atomic<int> word_{0};           // the first failure stops the threads, the last one is the result
  ObjectArray<PathView> views_;
  PathProgress progress_;
};

}  // namespace kestrum

#endif
