// What a realization takes beside its kriging, by phase: nodes per second of a grid of 10 million. The frame is all of
// it, for a law that finds no neighbours. Of the phases, the shuffle is serial, and each thread replays the path for
// itself; the others are shared by threads. Arguments: threads.
#include <benchmark/benchmark.h>

#include <numeric>
#include <vector>

#include "engine/realizations.hpp"

namespace {

constexpr int kSide = 215;
constexpr int kNodes = kSide * kSide * kSide;

struct Frame {
  explicit Frame(int nthreads)
      : status(kNodes, 1),
        path(kNodes),
        value(kNodes),
        problem{{kSide, kSide, kSide, 1, 1, 1, 0, 0, 0, kSide * kSide, kNodes},
                {},
                {status.data()},
                {path.data(), kNodes, 0, 0},
                {nullptr, nullptr, kestrum::Dealing::Threads(nthreads)}} {
    std::iota(path.begin(), path.end(), 0);
  }

  std::vector<int> status, path;
  std::vector<double> value;
  kestrum::Problem problem;
};

struct NoKriging {
  void Solve(int, const int* nodes, int, kestrum::PathView&) noexcept { benchmark::DoNotOptimize(nodes); }
  void Discard(int) noexcept {}
  template <typename Visit>
  void ForEachNeighbor(int, int, int, const Visit&) noexcept {}
  int Value(int, int, int, double number, double* value) noexcept {
    *value = number;
    return 0;
  }
  int BeforePath(kestrum::RandomSource&, kestrum::PathRanks&, const kestrum::NodeBits&) noexcept { return 0; }
  void AfterPath() noexcept {}
};

struct NoOutput final : kestrum::RealizationSink {
  void Begin(int) noexcept override {}
  int End(int) noexcept override { return 0; }
};

void WholeFrame(benchmark::State& state) {
  Frame frame(static_cast<int>(state.range(0)));
  kestrum::Realizations realizations(frame.problem, frame.value.data());
  kestrum::SeededRandom random(1, kNodes + 1);
  NoKriging law;
  NoOutput sink;
  if (realizations.Prepare(false) != 0) return state.SkipWithError("no memory");
  for (auto _ : state) benchmark::DoNotOptimize(realizations.Run(1, random, law, sink));
  state.SetItemsProcessed(state.iterations() * kNodes);
}
BENCHMARK(WholeFrame)->Arg(1)->Arg(2)->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

// A phase: phase(frame, random, ranks, view).
template <typename Phase>
void Time(benchmark::State& state, const Phase& phase) {
  Frame frame(static_cast<int>(state.range(0)));
  kestrum::SeededRandom random(1, kNodes + 1);
  kestrum::PathRanks ranks;
  kestrum::NodeBits before;
  kestrum::PathView view;
  if (ranks.Prepare(frame.problem, false) != 0 || before.Allocate(kNodes) != 0 || view.Allocate(kNodes) != 0) {
    return state.SkipWithError("no memory");
  }
  random.StartRealization(0);
  if (random.Shuffle(frame.path.data(), kNodes) != 0) return;
  ranks.Number(frame.problem, 0, kNodes);
  for (auto _ : state) {
    view.Start(before, 0);
    phase(frame, random, ranks, view);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kNodes);
}

using kestrum::PathRanks;
using kestrum::PathView;
using kestrum::SeededRandom;

void Shuffle(benchmark::State& state) {
  Time(state, [](Frame& frame, SeededRandom& random, PathRanks&, PathView&) {
    benchmark::DoNotOptimize(random.Shuffle(frame.path.data(), kNodes));
  });
}
void Replay(benchmark::State& state) {
  Time(state, [](Frame& frame, SeededRandom&, PathRanks&, PathView& view) { view.MoveTo(frame.path.data(), kNodes); });
}
void Sort(benchmark::State& state) {
  Time(state, [](Frame& frame, SeededRandom&, PathRanks& ranks, PathView&) { ranks.Sort(frame.problem, 0, kNodes); });
}
void Number(benchmark::State& state) {
  Time(state, [](Frame& frame, SeededRandom&, PathRanks& ranks, PathView&) { ranks.Number(frame.problem, 0, kNodes); });
}
BENCHMARK(Shuffle)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Replay)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Sort)->Arg(1)->Arg(2)->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);
BENCHMARK(Number)->Arg(1)->Arg(2)->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

}  // namespace
