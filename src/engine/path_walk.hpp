#ifndef KESTRUM_ENGINE_PATH_WALK_HPP
#define KESTRUM_ENGINE_PATH_WALK_HPP

#include <algorithm>
#include <atomic>
#include <chrono>
#include <concepts>
#include <cstdint>
#include <iterator>
#include <thread>

#include "core/object_array.hpp"
#include "engine/path_progress.hpp"
#include "engine/path_ranks.hpp"
#include "engine/path_view.hpp"
#include "engine/problem.hpp"
#include "engine/random_source.hpp"
#include "engine/team_end.hpp"

namespace kestrum {

// What draws the values of nodes along a path. For a chunk of nodes of one thread:
//   Solve            finds neighbours and solves the systems
//   Discard          takes back what was counted: another thread draws the chunk, or it is solved once more
//   ForEachNeighbor  calls visit(grid node) for the neighbours of the chunk's i-th node
//   Value            raises the node's warnings and gives its value; a result other than 0 stops the threaded form
template <typename Law>
concept NodeLaw = requires(Law law, int thread, int i, int node, const int* nodes, int count, PathView& view,
                           void (*visit)(int), double number, real* value) {
  law.Solve(thread, nodes, count, view);
  law.Discard(thread);
  law.ForEachNeighbor(thread, i, node, visit);
  { law.Value(thread, i, node, number, value) } -> std::same_as<int>;
};

// Simulates the last segment of a path. Neighbours and weights depend on places in the path alone, so each thread solves
// the systems of a chunk of consecutive nodes at once, and then draws their values one after the other: only there does
// it wait, for neighbours that another thread has not drawn yet. Where that takes longer than solving, the other thread
// may not have a core: the one that waits then solves and draws the first chunk without values that nobody draws, and
// that one, whose neighbours all have values, never waits. A failure stops every thread at its next node.
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
    if (const int status = drawer_.Allocate(chunks); status != 0) return status;
    if (const int status = ndrawnOf_.Allocate(chunks); status != 0) return status;
    return progress_.Allocate(nscratch);
  }

  // One realization. ranks, before: who is seen by whom, and what is seen before the first node. value: one per node.
  // Chunks go to threads as they come for them. Of several threads one does what is to be done beside first: beside().
  template <NodeLaw Law, typename Beside>
  [[nodiscard]] int Run(Law& law, const RandomSource& random, const PathRanks& ranks, const NodeBits& before,
                        real* value, const Beside& beside) noexcept {
    word_.store(0, std::memory_order_relaxed);
    next_.store(0, std::memory_order_relaxed);
    ndrawn_.store(0, std::memory_order_relaxed);
    end_.Start();
    progress_.Start(problem_.dealing().nscratch());
    std::fill(drawer_.begin(), drawer_.end(), kNobody);
    std::fill(ndrawnOf_.begin(), ndrawnOf_.end(), 0);
    problem_.dealing().EachThread([&](int thread, int team) noexcept {
      Walk<Law> walk{law, random, ranks, value, thread, team, Dealing::Crowded(team), ChunkSize(team)};
      if (team > 1 && thread == team - 1) beside();
      views_[thread].Start(before, problem_.path.firstSimulated);
      if (DrawOwnChunks(walk)) {
        views_[thread].MarkFresh(path_, count_, count_);
        ReportUpTo(walk, count_ - 1);
      }
      end_.Await(team);
    });
    if (const int status = word_.load(); status != 0) return status;
    return threaded_ ? problem_.progress().After(0) : 0;
  }

 private:
  // The values that a node needs are on their way this many nodes before it draws: they lie anywhere in a large grid.
  static constexpr int kFetchedAhead = 4;
  static constexpr std::chrono::microseconds kNap{100};
  using Clock = std::chrono::steady_clock;

  // One thread's way along the path. Positions count from the first node to simulate.
  template <typename Law>
  struct Walk {
    Law& law;
    const RandomSource& random;
    const PathRanks& ranks;
    real* value;
    int thread, team;
    bool crowded;                   // whether there are more threads than cores
    std::int64_t chunk;             // nodes in a chunk
    int begin = 0;                  // of the chunk at hand
    Clock::duration patience = {};  // what it took to solve it
    int reported = 0;               // positions reported, by thread 0, which reports every position
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
  template <typename Law>
  bool ReportUpTo(Walk<Law>& walk, int position) noexcept {
    for (; walk.thread == 0 && walk.reported <= position && !Stopped(); ++walk.reported) {
      const double part = walk.reported * unit_;
      // A threaded run looks at the abort flag after the region.
      Stop(threaded_ ? problem_.progress().Report(part) : problem_.progress().Publish(part));
    }
    return !Stopped();
  }

  // Who draws a chunk.
  std::atomic_ref<int> DrawerOf(std::int64_t chunk) noexcept {
    return std::atomic_ref<int>(drawer_[static_cast<std::size_t>(chunk)]);
  }
  // Whether the thread is to draw a chunk, or the rest of it: only one thread is.
  template <typename Law>
  bool Claim(const Walk<Law>& walk, std::int64_t chunk) noexcept {
    // Whoever finds the thread as the drawer finds how far it has come in the chunk, too.
    progress_.Advance(walk.thread, static_cast<int>(chunk * walk.chunk));
    int nobody = kNobody;
    return DrawerOf(chunk).compare_exchange_strong(nobody, walk.thread);
  }
  // Marks a chunk as drawn, and finds how many are without a gap.
  void Finish(std::int64_t chunk) noexcept {
    DrawerOf(chunk).store(kDrawn);
    for (std::int64_t n = ndrawn_.load(); n < std::ssize(drawer_) && DrawerOf(n).load() == kDrawn;) {
      if (ndrawn_.compare_exchange_weak(n, n + 1)) ++n;
    }
  }
  // Whether a position of a chunk has its value.
  bool HasValue(int thread, std::int64_t chunk, int position) noexcept {
    const int drawer = DrawerOf(chunk).load(std::memory_order_acquire);
    return drawer == kDrawn || drawer == thread || (drawer != kNobody && progress_.Next(drawer) > position);
  }

  // Finds and solves the systems of the chunk at a position; gives its number of nodes.
  template <typename Law>
  int SolveAt(Walk<Law>& walk, int begin) noexcept {
    const int n = static_cast<int>(std::min<std::int64_t>(walk.chunk, count_ - begin));
    PathView& view = views_[walk.thread];
    view.MoveTo(problem_.path.nodes, problem_.path.firstSimulated + begin);
    walk.law.Solve(walk.thread, path_ + begin, n, view);
    return n;
  }

  template <typename Law>
  void DrawAt(const Walk<Law>& walk, int begin, int i, double number) noexcept {
    const int node = path_[begin + i];
    const int status = walk.law.Value(walk.thread, i, node, number, &walk.value[node]);
    if (threaded_) Stop(status);
    progress_.Advance(walk.thread, begin + i + 1);
  }

  // Draws the first chunk without values if nobody else does, and solves the chunk at hand once more. Gives whether it
  // did.
  template <typename Law>
  [[gnu::noinline]] bool Help(Walk<Law>& walk) noexcept {
    const std::int64_t chunk = ndrawn_.load();
    if (DrawerOf(chunk).load() != kNobody) return false;
    const int begin = static_cast<int>(chunk * walk.chunk);
    const int first = problem_.path.firstSimulated;
    walk.law.Discard(walk.thread);
    views_[walk.thread].MoveBack(problem_.path.nodes, first + begin,
                                 first + static_cast<int>(std::min<std::int64_t>(count_, walk.begin + walk.chunk)));
    const int n = SolveAt(walk, begin);
    if (Claim(walk, chunk)) {
      double number[kMaxChunk];
      walk.random.Draw(begin, n, path_ + begin, number);
      for (int i = ndrawnOf_[chunk]; i < n; ++i) DrawAt(walk, begin, i, number[i]);
      Finish(chunk);
    } else {
      walk.law.Discard(walk.thread);
    }
    SolveAt(walk, walk.begin);
    return true;
  }

  // Waits until a position has its value, with `done` nodes of the chunk at hand drawn; those before the first to
  // simulate have. Gives false if the run is stopped meanwhile, or if another thread has taken the chunk at hand.
  template <typename Law>
  [[gnu::noinline]] bool WaitFor(Walk<Law>& walk, int position, int done) noexcept {
    if (position < 0) return true;
    constexpr int kSpins = 200;
    const std::int64_t chunk = position / walk.chunk;
    for (Clock::time_point start = {};;) {
      for (int spin = 0; spin < kSpins; ++spin) {
        if (HasValue(walk.thread, chunk, position)) return true;
      }
      if (Stopped()) return false;
      const Clock::time_point now = Clock::now();
      if (start == Clock::time_point{}) start = now;
      if (now - start < walk.patience) {
        if (walk.crowded) std::this_thread::yield();
        continue;
      }
      // Others may draw the chunk at hand meanwhile, so that none waits for a thread that waits.
      const std::int64_t own = walk.begin / walk.chunk;
      ndrawnOf_[own] = done;
      DrawerOf(own).store(kNobody);
      if (!Help(walk)) std::this_thread::sleep_for(kNap);
      if (!Claim(walk, own)) return false;
      progress_.Advance(walk.thread, walk.begin + done);
    }
  }

  // Waits for the neighbours of the chunk's i-th node.
  template <typename Law>
  bool WaitForNeighbors(Walk<Law>& walk, int i, int node) noexcept {
    bool ready = true;
    walk.law.ForEachNeighbor(walk.thread, i, node, [&](int neighbor) noexcept {
      if (views_[walk.thread].MayBeFresh(neighbor)) {
        ready = ready && WaitFor(walk, walk.ranks.PositionOf(neighbor) - problem_.path.firstSimulated, i);
      }
    });
    return ready;
  }

  // Draws chunks as long as there are any. Gives false if the run is stopped meanwhile.
  template <typename Law>
  bool DrawOwnChunks(Walk<Law>& walk) noexcept {
    for (;;) {
      const std::int64_t begin = next_.fetch_add(walk.chunk);
      if (begin >= count_) return true;
      Stop(problem_.progress().Interruption());
      if (Stopped() || !DrawOwnChunk(walk, static_cast<int>(begin))) return false;
    }
  }

  // Gives false if the run is stopped meanwhile.
  template <typename Law>
  bool DrawOwnChunk(Walk<Law>& walk, int begin) noexcept {
    const bool alone = walk.team == 1;
    const std::int64_t chunk = begin / walk.chunk;
    const Clock::time_point start = alone ? Clock::time_point{} : Clock::now();
    walk.begin = begin;
    const int n = SolveAt(walk, begin);
    if (!alone) {
      walk.patience = Clock::now() - start;
      if (!Claim(walk, chunk)) {
        walk.law.Discard(walk.thread);
        return !Stopped();
      }
      views_[walk.thread].MarkFresh(path_, static_cast<int>(std::min<std::int64_t>(ndrawn_.load() * walk.chunk, begin)),
                                    begin);
    }
    const int* const nodes = path_ + begin;
    const PathView& view = views_[walk.thread];
    bool waits[kMaxChunk];
    const auto fetchValues = [&](int i) noexcept {
      bool fresh = false;
      walk.law.ForEachNeighbor(walk.thread, i, nodes[i], [&](int neighbor) noexcept {
        __builtin_prefetch(&walk.value[neighbor]);
        if (!alone) fresh |= view.MayBeFresh(neighbor);
      });
      waits[i] = fresh;
    };
    double number[kMaxChunk];
    walk.random.Draw(begin, n, nodes, number);
    for (int i = 0; i < std::min(kFetchedAhead, n); ++i) fetchValues(i);
    for (int i = 0; i < n; ++i) {
      if (i + kFetchedAhead < n) fetchValues(i + kFetchedAhead);
      if (!ReportUpTo(walk, begin + i)) return false;
      if (waits[i] && !WaitForNeighbors(walk, i, nodes[i])) {
        walk.law.Discard(walk.thread);
        return !Stopped();
      }
      DrawAt(walk, begin, i, number[i]);
    }
    if (!alone) Finish(chunk);
    return true;
  }

  const Problem& problem_;
  const int* path_;
  int count_;
  double unit_;
  bool threaded_;
  static constexpr int kNobody = -1, kDrawn = -2;
  std::atomic<std::int64_t> next_{0};    // of the chunks that nobody has taken
  std::atomic<std::int64_t> ndrawn_{0};  // chunks drawn without a gap
  Buffer<int> drawer_;                   // of each chunk
  Buffer<int> ndrawnOf_;                 // nodes drawn of a chunk that nobody draws any more
  std::atomic<int> word_{0};             // the first failure stops the threads, the last one is the result
  ObjectArray<PathView> views_;
  PathProgress progress_;
  TeamEnd end_;
};

}  // namespace kestrum

#endif
