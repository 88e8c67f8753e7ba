#ifndef KESTRUM_RUNS_REALIZATIONS_HPP
#define KESTRUM_RUNS_REALIZATIONS_HPP

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <thread>

#include "core/buffer.hpp"
#include "core/constants.h"
#include "core/image.h"
#include "core/object_array.hpp"
#include "core/parallel.hpp"
#include "core/status.h"
#include "engine/ahead_solver.hpp"
#include "engine/run_monitor.hpp"
#include "io/image_files.h"
#include "numeric/random.h"
#include "numeric/random.hpp"
#include "runs/run_files.hpp"
#include "runs/run_input_shared.hpp"

// The frame of both sequential simulations: realizations one after the other, each along a random path of its own.

namespace kestrum {

// Sum in int arithmetic; seeds wrap.
inline int WrappingSum(int a, int b) noexcept {
  return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

// The numbers that nodes draw. Each node reseeds with its own seed and takes the number after the first, so that a
// node's number depends on its seed alone; seeds of successive nodes differ by 1. A seed of 0 does not reseed: that
// node goes on where the node before it stopped, or, at the start of a stretch of nodes, where the shuffle stopped.
class NodeDraws {
 public:
  // context: as the shuffle left it; not changed here.
  NodeDraws(int firstSeed, const VORL_RANDCONTEXT& context) noexcept : firstSeed_(firstSeed), context_(context) {}

  // The number of the i-th node.
  double Draw(int i) const noexcept {
    const int seed = WrappingSum(firstSeed_, i);
    if (seed != 0) return DrawAfterSeeding(seed, 1);
    if (i > 0) return DrawAfterSeeding(-1, 3);
    VORL_RANDCONTEXT context = context_;
    VORLDoubleRand(0, &context);
    return VORLDoubleRand(0, &context);
  }

  // The state that the last of `count` nodes leaves.
  VORL_RANDCONTEXT After(int count) const noexcept {
    VORL_RANDCONTEXT context = context_;
    // A last seed of 0 goes on from the node before, which has the seed -1.
    const int last = WrappingSum(firstSeed_, count - 1);
    if (last == 0 && count > 1) {
      VORLDoubleRand(-1, &context);
      VORLDoubleRand(0, &context);
    }
    VORLDoubleRand(last, &context);
    VORLDoubleRand(0, &context);
    return context;
  }

 private:
  int firstSeed_;
  const VORL_RANDCONTEXT& context_;
};

// What a simulation worker is given.
struct SimulationRun {
  VORL_IMAGE* image;  // receives the realization at hand
  VORL_IMAGE* outputImage;
  const int* nodeStatus;
  int nnode;
  int* simulationPath;
  int pathFirstInequality;
  int pathFirstSimulated;
  const real* dataValue;
  FILE* report;  // null: no report
  const char* varName;
  int seed;
  int seedIncrement;
  int nrealization;
  bool separateFiles;
  const char* outputImageFileName;
  const char* formatString;
  RunMonitor monitor;
  Dealing dealing;
};

// Fields that both inputs have under the same names are taken from `input`.
template <typename Input>
SimulationRun MakeSimulationRun(const Input& input, VORL_IMAGE* image, VORL_IMAGE* outputImage, const int* nodeStatus,
                                int nnode, int* simulationPath, int pathFirstInequality, int pathFirstSimulated,
                                const real* dataValue, FILE* reportFile, RunMonitor monitor, Dealing dealing) noexcept {
  return {image,
          outputImage,
          nodeStatus,
          nnode,
          simulationPath,
          pathFirstInequality,
          pathFirstSimulated,
          dataValue,
          input.outputReportFlag ? reportFile : nullptr,
          input.varName,
          input.seed,
          input.seedIncrement,
          input.nrealization,
          EnumNumber(input.outputMode) == KESTRUM_OUTPUT_SEPARATE_FILE,
          input.outputImageFileName,
          input.formatString,
          monitor,
          dealing};
}

// The rank of each node in the visiting order, which tells who is whose neighbour: a node sees the nodes with a lower
// rank than its own. Known nodes have rank 0, seen by all; the node at position p of the path has rank p + 1.
class PathRanks {
 public:
  static constexpr int kNever = INT_MAX;
  static constexpr int AtPosition(int position) noexcept { return position + 1; }

  // Inequality nodes have a rank only if they are given values; other nodes out of the last segment are never seen.
  [[nodiscard]] int Prepare(const SimulationRun& run, bool inequalityNodesSimulated) noexcept {
    if (const int status = rank_.Allocate(run.image->grid->nxyz, kNever); status != 0) return status;
    const real* datum = run.dataValue;
    for (int i = 0; i < run.image->grid->nxyz; ++i) {
      // A datum that is missing once the mean is taken off is seen by none.
      if (run.nodeStatus[i] == 0 && *datum++ != VORL_MISSING_VALUE) rank_[i] = 0;
    }
    if (inequalityNodesSimulated) Number(run, run.pathFirstInequality, run.pathFirstSimulated);
    Number(run, run.pathFirstSimulated, run.nnode);
    return 0;
  }

  // Gives the nodes of a segment of the path their ranks.
  void Number(const SimulationRun& run, int begin, int end) noexcept {
    run.dealing.Blocks(end - begin, [&](std::ptrdiff_t from, std::ptrdiff_t to) noexcept {
      for (std::ptrdiff_t p = begin + from; p < begin + to; ++p) {
        rank_[run.simulationPath[p]] = AtPosition(static_cast<int>(p));
      }
    });
  }

  // Puts the nodes of a segment into increasing order.
  void Sort(const SimulationRun& run, int begin, int end) const noexcept {
    int* next = run.simulationPath + begin;
    int* const stop = run.simulationPath + end;
    for (int i = 0; next != stop && i < run.image->grid->nxyz; ++i) {
      if (rank_[i] >= AtPosition(begin) && rank_[i] < AtPosition(end)) *next++ = i;
    }
  }

  // The position of a node in the path, below 0 for a known node.
  int PositionOf(int node) const noexcept { return rank_[node] - 1; }
  int operator[](int node) const noexcept { return rank_[node]; }

 private:
  Buffer<int> rank_;
};

// What one thread sees from the nodes of a chunk of the path: a bit for each node that comes before.
class PathView {
 public:
  [[nodiscard]] int Allocate(int nnode) noexcept {
    const int status = seen_.Allocate(nnode);
    return status != 0 ? status : fresh_.Allocate(nnode);
  }
  // Begins a realization at a position of the path; `before` tells what is seen before it.
  void Start(const NodeBits& before, int position) noexcept {
    seen_.Copy(before);
    next_ = position;
  }
  // Makes the chunk that begins at a position the one at hand.
  void MoveTo(const int* path, int begin) noexcept {
    for (; next_ < begin; ++next_) seen_.Set(path[next_]);
  }
  // The nodes of a stretch of the path that may have no values yet, as far as this thread knows.
  void MarkFresh(const int* path, int begin, int end) noexcept {
    for (int p = begin; p < end; ++p) fresh_.Set(path[p]);
  }
  void ClearFresh(const int* path, int begin, int end) noexcept {
    for (int p = begin; p < end; ++p) fresh_.Clear(path[p]);
  }
  bool IsFresh(int node) const noexcept { return fresh_[node] != 0; }

  // Solves for the nodes of the chunk at hand.
  void Solve(const MovingSystems& systems, KrigingSolver& kriging, const int* nodes, int count,
             AheadSolver& solver) noexcept {
    for (int i = 0; i < count; ++i) seen_.Clear(nodes[i]);
    solver.Solve(systems, kriging, nodes, count, [&](int i, int* entries) noexcept {
      if (i > 0) seen_.Set(nodes[i - 1]);
      return WalkNeighbors(systems.list, nodes[i], systems.capacity, seen_, entries);
    });
  }

 private:
  NodeBits seen_;
  NodeBits fresh_;
  int next_ = 0;
};

// How far each thread has come: all positions of its own below `next` have their values. Each count has a cache line
// of its own.
class PathProgress {
 public:
  [[nodiscard]] int Allocate(int nthreads) noexcept {
    return next_.Allocate(static_cast<std::size_t>(std::max(nthreads, 0)) * kLine);
  }
  void Start(int nthreads) noexcept {
    for (int t = 0; t < nthreads; ++t) next_[static_cast<std::size_t>(t) * kLine] = 0;
  }
  void Advance(int thread, int next) noexcept { Place(thread).store(next, std::memory_order_release); }
  int Next(int thread) noexcept { return Place(thread).load(std::memory_order_acquire); }
  // All positions below this one have their values, whoever owns them; `thread` asks, and has done its own below `own`.
  int DoneBefore(int thread, int own, int team) noexcept {
    int done = own;
    for (int t = 0; t < team; ++t) {
      if (t != thread) done = std::min(done, Next(t));
    }
    return done;
  }

 private:
  static constexpr std::size_t kLine = 64 / sizeof(int);
  std::atomic_ref<int> Place(int thread) noexcept {
    return std::atomic_ref<int>(next_[static_cast<std::size_t>(thread) * kLine]);
  }
  Buffer<int> next_;
};

// Simulates the last segment of the path. Neighbours and weights depend on places in the path alone, so each thread
// solves the systems of a chunk of consecutive nodes at once, and then draws their values one after the other: only
// there does it wait, for neighbours that another thread has not drawn yet. The earliest node without a value waits for
// none, so the wait always ends. A failure stops every thread at its next node.
//
// Law:
//   void Solve(int thread, const int* nodes, int count, PathView& view)
//     solves the systems of the nodes of a chunk
//   template <typename Visit> void ForEachNeighbor(int thread, int i, int node, const Visit& visit) const
//     calls visit(grid node) for the neighbours of the chunk's i-th node
//   int Value(int thread, int i, int node, double number, real* value)
//     raises the node's warnings and gives its value; a result other than 0 stops the threaded form
template <typename Law>
int SimulatePath(const SimulationRun& run, Law& law, const NodeDraws& draws, const PathRanks& ranks,
                 const NodeBits& before, ObjectArray<PathView>& views, PathProgress& progress) noexcept {
  const int first = run.pathFirstSimulated;
  const int count = run.nnode - first;
  const double unit = 1.0 / (run.nnode - run.pathFirstInequality);
  std::atomic<int> word{0};
  progress.Start(run.dealing.nscratch());
  run.dealing.EachThread([&](int thread, int team) noexcept {
    // Small grids are cut finer, so that each thread has some chunks.
    constexpr std::int64_t kMost = AheadSolver::kMaxNode;
    const std::int64_t chunk = std::clamp<std::int64_t>(count / (8 * team) / kLanes * kLanes, kLanes, kMost);
    const auto stopped = [&word]() noexcept { return word.load(std::memory_order_relaxed) != 0; };
    const auto stop = [&word](int status) noexcept {
      if (status != 0) word.store(status, std::memory_order_relaxed);
    };
    PathView& view = views[thread];
    view.Start(before, first);
    int told = 0;  // by thread 0, which reports every position
    const auto report = [&](int upTo) noexcept {
      for (; thread == 0 && told <= upTo && !stopped(); ++told) {
        // A threaded run looks at the abort flag after the region.
        stop(run.dealing.threaded() ? run.monitor.Tell(told * unit) : run.monitor.Publish(told * unit));
      }
      return !stopped();
    };
    // Gives false if the run is stopped meanwhile.
    const auto waitFor = [&](int position) noexcept {
      const int owner = static_cast<int>(position / chunk % team);
      if (owner == thread) return true;
      for (int spin = 0; progress.Next(owner) <= position;) {
        if (stopped()) return false;
        if (spin < 1000) {
          ++spin;
        } else {
          std::this_thread::yield();  // more threads than cores: the owner may need this one
        }
      }
      return true;
    };
    for (std::int64_t begin = thread * chunk; begin < count; begin += team * chunk) {
      const int n = static_cast<int>(std::min<std::int64_t>(chunk, count - begin));
      const int start = static_cast<int>(begin);
      const int* const nodes = run.simulationPath + first + start;
      if (stopped()) return;
      view.MoveTo(run.simulationPath, first + start);
      law.Solve(thread, nodes, n, view);
      const int done = progress.DoneBefore(thread, start, team);
      view.MarkFresh(run.simulationPath, first + done, first + start);
      for (int i = 0; i < n; ++i) {
        if (!report(start + i)) return;
        if (team > 1) {
          bool ready = true;
          law.ForEachNeighbor(thread, i, nodes[i], [&](int neighbor) noexcept {
            if (view.IsFresh(neighbor)) ready = ready && waitFor(ranks.PositionOf(neighbor) - first);
          });
          if (!ready) return;
        }
        const int status = law.Value(thread, i, nodes[i], draws.Draw(start + i), &run.image->var[nodes[i]]);
        if (run.dealing.threaded()) stop(status);
        progress.Advance(thread, start + i + 1);
      }
      view.ClearFresh(run.simulationPath, first + done, first + start);
    }
    progress.Advance(thread, count);
    report(count - 1);
  });
  if (const int status = word.load(); status != 0) return status;
  return run.dealing.threaded() && run.monitor.AbortedRun() ? kAborted : 0;
}

// All realizations. What the law adds to SimulatePath:
//   int BeforePath(int seed, PathRanks& ranks, const NodeBits& before, VORL_RANDCONTEXT& context)
//     gives values to nodes that come before the path; a status ends the run
//   void AfterPath()
//     finishes the values of a realization
template <typename Law>
int SimulateRealizations(const SimulationRun& run, Law& law, bool inequalityNodesSimulated) noexcept {
  VORL_IMAGE& image = *run.image;
  const int nxyz = image.grid->nxyz;
  PathRanks ranks;
  if (const int status = ranks.Prepare(run, inequalityNodesSimulated); status != 0) return status;
  NodeBits before;  // the known nodes, and the inequality nodes once they have values
  if (const int status = before.Allocate(nxyz); status != 0) return status;
  for (int i = 0; i < nxyz; ++i) {
    if (ranks.PositionOf(i) < run.pathFirstSimulated) before.Set(i);
  }
  ObjectArray<PathView> views;
  if (const int status = views.Allocate(run.dealing.nscratch()); status != 0) return status;
  for (PathView& view : views) {
    if (const int status = view.Allocate(nxyz); status != 0) return status;
  }
  PathProgress progress;
  if (const int status = progress.Allocate(run.dealing.nscratch()); status != 0) return status;
  if (run.monitor.AbortedRun()) return kAborted;
  run.monitor.StartRealizations(run.nrealization);
  VORL_RANDCONTEXT context;
  VORLInitRandContext(&context);
  int seed = run.seed;
  for (int r = 0; r < run.nrealization; ++r, seed = WrappingSum(seed, run.seedIncrement)) {
    if (run.report != nullptr) std::fprintf(run.report, "Realization %5d of %5d:\n", r + 1, run.nrealization);
    const std::clock_t start = std::clock();
    VORLDoubleRand(seed, &context);
    const real* datum = run.dataValue;
    for (int i = 0; i < nxyz; ++i) image.var[i] = run.nodeStatus[i] == 0 ? *datum++ : real{VORL_MISSING_VALUE};
    char ending[32];  // of the names of this realization
    std::snprintf(ending, sizeof ending, "%s%0*d", VORL_SUFFIX_FOR_REALIZATION,
                  VORL_KESTRUM_NB_DIGIT_FOR_REALIZATION_NUMBER, r);
    std::snprintf(image.varName[0], VORL_VARNAME_LENGTH, "%s%s", run.varName, ending);
    if (const int status = law.BeforePath(seed, ranks, before, context); status != 0) return status;
    // Sorted first, so that the path depends on the seed and on nothing that the realization before has left.
    ranks.Sort(run, run.pathFirstSimulated, run.nnode);
    const int npath = run.nnode - run.pathFirstSimulated;
    const int shuffled = VORLPathRandom(npath, run.simulationPath + run.pathFirstSimulated, &context);
    if (shuffled != 0) return shuffled;
    ranks.Number(run, run.pathFirstSimulated, run.nnode);
    const NodeDraws draws(WrappingSum(seed, run.pathFirstSimulated), context);
    if (const int status = SimulatePath(run, law, draws, ranks, before, views, progress); status != 0) return status;
    // For a next seed of 0, which does not reseed.
    if (npath > 0) context = draws.After(npath);
    law.AfterPath();
    if (run.report != nullptr) {
      char what[80];
      std::snprintf(what, sizeof what, "CPU time (sec) for realization %5d of %5d", r + 1, run.nrealization);
      std::fputs(VORL_SEPARATION_LINE_STAR, run.report);
      WriteCpuTime(what, std::clock() - start, run.report);
      std::fputs(VORL_SEPARATION_LINE_STAR, run.report);
    }
    if (run.outputImage != nullptr) {
      std::copy_n(image.varName[0], VORL_VARNAME_LENGTH, run.outputImage->varName[r]);
      std::copy_n(image.var, nxyz, run.outputImage->var + static_cast<std::ptrdiff_t>(r) * nxyz);
    }
    if (run.separateFiles) {
      char suffix[sizeof ending + sizeof VORL_EXTENSION_FOR_IMAGE_FILE];
      std::snprintf(suffix, sizeof suffix, "%s%s", ending, VORL_EXTENSION_FOR_IMAGE_FILE);
      const int status = WriteImageToFile(&image, run.formatString, run.outputImageFileName, suffix);
      if (status != 0) return status;
    }
    run.monitor.FinishRealization();
    if (const int status = run.monitor.Publish(0.0); status != 0) return status;
  }
  return 0;
}

}  // namespace kestrum

#endif
