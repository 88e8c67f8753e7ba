#ifndef KESTRUM_ENGINE_REALIZATION_TEAM_HPP
#define KESTRUM_ENGINE_REALIZATION_TEAM_HPP

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <thread>

#include "core/buffer.hpp"
#include "core/object_array.hpp"
#include "engine/realizations.hpp"
#include "engine/team_end.hpp"

namespace kestrum {

// Draws several realizations of a grid at a time: each thread draws whole ones, in memory of its own, and never waits
// for a value of another. They are handed over in their order, by the calling thread. A failure of one stops the others
// at their next chunk.
template <RealizationLaw Law>
class RealizationTeam {
 public:
  // Whether realizations go so: those that do not depend on one another, where memory stays small, and where the last
  // ones leave few threads without work.
  static bool Suits(const Problem& problem, int count, const RandomSource& random) noexcept {
    const std::int64_t team = problem.dealing().nscratch();
    const std::int64_t nodes = problem.grid.nxyz;
    if (!problem.dealing().threaded() || team < 2 || count < 2 || nodes * team > kMaxNodes) return false;
    const std::int64_t rounds = (count + team - 1) / team;
    return (rounds * team <= count + count / 4 || nodes < kFewNodes * team) && random.Independent(count);
  }

  RealizationTeam(const Problem& problem, real* value) noexcept : problem_(problem), value_(value) {}

  // makeLaw(problem, value, law) makes the law of one thread.
  template <typename MakeLaw>
  [[nodiscard]] int Prepare(int count, bool inequalityNodesSimulated, const RandomSource& random,
                            const MakeLaw& makeLaw) noexcept {
    count_ = count;
    team_ = std::min(problem_.dealing().nscratch(), count);
    const auto nodes = static_cast<std::size_t>(problem_.grid.nxyz);
    // Threads draw some realizations ahead of one that takes long.
    constexpr std::size_t kAheadBytes = 1 << 20;
    nslot_ = static_cast<int>(
        std::clamp<std::size_t>(kAheadBytes / (nodes * sizeof(real)), 2 * static_cast<std::size_t>(team_), 1024));
    nslot_ = std::min(nslot_, count);
    int status = drawers_.Allocate(team_);
    if (status == 0) status = slots_.Allocate(nodes * static_cast<std::size_t>(nslot_));
    if (status == 0) status = filled_.Allocate(static_cast<std::size_t>(nslot_), 0);
    for (int t = 0; t < team_ && status == 0; ++t) {
      status = drawers_[t].Prepare(problem_, t == 0, halt_, inequalityNodesSimulated, random, makeLaw);
    }
    return status;
  }

  [[nodiscard]] int Run(RealizationSink& sink) noexcept {
    const Progress& progress = problem_.progress();
    if (const int status = progress.After(0); status != 0) return status;
    progress.StartRealizations(count_);
    sink.Begin(0);
    Dealing::Threads(team_).EachThread([&](int thread, int team) noexcept {
      const bool delivers = thread == 0;
      while (!halted()) {
        const int r = next_.fetch_add(1, std::memory_order_relaxed);
        if (r >= count_) break;
        Halt(drawers_[thread].Draw(r));
        while (!halted() && r - ndelivered_.load(std::memory_order_acquire) >= nslot_) Wait(delivers, sink);
        if (halted()) break;
        const Buffer<real>& drawn = drawers_[thread].value;
        std::copy(drawn.begin(), drawn.end(), Slot(r));
        Filled(r).store(r + 1, std::memory_order_release);
        if (delivers) Deliver(sink);
      }
      while (delivers && !halted() && ndelivered_.load(std::memory_order_relaxed) < count_) Wait(true, sink);
      end_.Await(team);
    });
    return halt_.load();
  }

 private:
  static constexpr std::int64_t kMaxNodes = 1 << 20;  // of all threads: 34 MB
  static constexpr std::int64_t kFewNodes = 512;      // for each thread, which then waits as long as it works

  // What one thread draws with.
  struct Drawer {
    template <typename MakeLaw>
    [[nodiscard]] int Prepare(const Problem& whole, bool reports, const std::atomic<int>& halt,
                              bool inequalityNodesSimulated, const RandomSource& source,
                              const MakeLaw& makeLaw) noexcept {
      const auto nodes = static_cast<std::size_t>(whole.grid.nxyz);
      int status = value.Allocate(nodes);
      if (status == 0) status = path.Allocate(nodes);
      if (status != 0) return status;
      std::copy_n(whole.path.nodes, whole.path.nnode, path.data());
      problem.emplace(whole);
      problem->path.nodes = path.data();
      problem->front.dealing = Dealing::Threads(1);
      problem->front.progress = whole.progress().OfTeam(reports, halt);
      random = source.CopyTo(randomPlace);
      if (status = makeLaw(*problem, value.data(), law); status != 0) return status;
      return realizations.emplace(*problem, value.data()).Prepare(inequalityNodesSimulated);
    }
    [[nodiscard]] int Draw(int r) noexcept { return realizations->DrawAlone(r, *random, *law); }

    Buffer<real> value;
    Buffer<int> path;
    std::optional<Problem> problem;
    alignas(std::max_align_t) std::byte randomPlace[RandomSource::kCopySize];
    RandomSource* random = nullptr;
    std::optional<Law> law;
    std::optional<Realizations> realizations;
  };

  bool halted() const noexcept { return halt_.load(std::memory_order_relaxed) != 0; }
  // The first failure is the result.
  void Halt(int status) noexcept {
    int none = 0;
    if (status != 0) halt_.compare_exchange_strong(none, status);
  }

  // The realization whose values are in a slot, counted from 1.
  std::atomic_ref<int> Filled(int r) noexcept {
    return std::atomic_ref<int>(filled_[static_cast<std::size_t>(r % nslot_)]);
  }
  real* Slot(int r) noexcept { return slots_.data() + static_cast<std::ptrdiff_t>(r % nslot_) * problem_.grid.nxyz; }

  // Hands over what is complete and has its turn.
  void Deliver(RealizationSink& sink) noexcept {
    for (int r = ndelivered_.load(std::memory_order_relaxed); r < count_; ++r) {
      if (halted() || Filled(r).load(std::memory_order_acquire) != r + 1) return;
      std::copy_n(Slot(r), problem_.grid.nxyz, value_);
      ndelivered_.store(r + 1, std::memory_order_release);
      Halt(sink.End(r));
      if (halted()) return;
      problem_.progress().FinishRealization();
      Halt(problem_.progress().Publish(0.0));
      if (r + 1 < count_ && !halted()) sink.Begin(r + 1);
    }
  }

  // The threads that draw need the cores.
  void Wait(bool delivers, RealizationSink& sink) noexcept {
    constexpr std::chrono::microseconds kNap{50};
    std::this_thread::sleep_for(kNap);
    if (delivers) Deliver(sink);
  }

  const Problem& problem_;
  real* value_;
  int count_ = 0;
  int team_ = 0;
  int nslot_ = 0;
  Buffer<real> slots_;  // realizations that have not been handed over
  Buffer<int> filled_;
  ObjectArray<Drawer> drawers_;
  std::atomic<int> next_{0};
  std::atomic<int> ndelivered_{0};
  std::atomic<int> halt_{0};
  TeamEnd end_;
};

// About how long a simulation takes one thread, in ns.
inline double WorkOf(const Problem& problem, int count) noexcept {
  double node = 0.0;
  for (const ModelSetup& setup : problem.setups) {
    const double m = std::min(setup.neighbors.limit, problem.grid.nxyz);
    node += 150.0 + (problem.solver.factorising() ? 1.5 : 3.0) * m * m;
  }
  return node * count * (problem.path.nnode - problem.path.firstInequality);
}
// What takes less is drawn by one thread: on busy cores another one begins after some milliseconds.
inline constexpr double kWorthWaking = 8e6;

// All realizations of a simulation. makeLaw(problem, value, law) makes a law for a problem and the values that it draws.
template <RealizationLaw Law, typename MakeLaw>
[[nodiscard]] int DrawRealizations(const Problem& whole, int count, bool inequalityNodesSimulated, RandomSource& random,
                                   real* value, RealizationSink& sink, const MakeLaw& makeLaw) noexcept {
  Problem problem = whole;
  if (problem.dealing().threaded() && WorkOf(problem, count) < kWorthWaking) {
    problem.front.dealing = Dealing::Threads(std::min(problem.dealing().nthreads(), 1));
  }
  if (RealizationTeam<Law>::Suits(problem, count, random)) {
    RealizationTeam<Law> team(problem, value);
    const int status = team.Prepare(count, inequalityNodesSimulated, random, makeLaw);
    return status != 0 ? status : team.Run(sink);
  }
  std::optional<Law> law;
  if (const int status = makeLaw(problem, value, law); status != 0) return status;
  Realizations realizations(problem, value);
  if (const int status = realizations.Prepare(inequalityNodesSimulated); status != 0) return status;
  return realizations.Run(count, random, *law, sink);
}

}  // namespace kestrum

#endif
