#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "analysis/geobody_paths.h"
#include "analysis/step_search.hpp"

namespace {

constexpr int kNx = 200;
constexpr int kNy = 200;
constexpr int kNz = 50;
constexpr int kNodes = kNx * kNy * kNz;

// A percentage of the nodes at random, and distances from the first node.
struct Geobody {
  Geobody(int percent, decltype(&VORLComputeDistanceConnectivity6InGeobody) compute) : mask(kNodes), distance(kNodes) {
    std::mt19937 generator(1);
    for (int& inside : mask) inside = static_cast<int>(generator() % 100) < percent ? 1 : 0;
    compute(kNx, kNy, kNz, mask.data(), kNodes, 1, &start, distance.data());
  }
  std::vector<int> mask, distance;
  int start = 0;
};

void Distances(benchmark::State& state, decltype(&VORLComputeDistanceConnectivity6InGeobody) compute) {
  Geobody geobody(static_cast<int>(state.range(0)), compute);
  for (auto _ : state) {
    compute(kNx, kNy, kNz, geobody.mask.data(), kNodes, 1, &geobody.start, geobody.distance.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kNodes);
}
BENCHMARK_CAPTURE(Distances, 6, VORLComputeDistanceConnectivity6InGeobody)
    ->Arg(40)
    ->Arg(100)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Distances, 18, VORLComputeDistanceConnectivity18InGeobody)
    ->Arg(40)
    ->Arg(100)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Distances, 26, VORLComputeDistanceConnectivity26InGeobody)
    ->Arg(40)
    ->Arg(100)
    ->Unit(benchmark::kMillisecond);

// From the middle of a full grid of 256^3 nodes, with as many threads as the argument says.
void Steps(benchmark::State& state) {
  constexpr int kSide = 256;
  const std::vector<unsigned char> mask(kSide * kSide * kSide, 1);
  std::vector<int> steps(mask.size());
  const int start = kSide * kSide * kSide / 2 + kSide * kSide / 2 + kSide / 2;
  for (auto _ : state) {
    const int status = kestrum::FindSteps(
        static_cast<kestrum::Connectivity>(state.range(1)), {kSide, kSide, kSide}, mask.data(), 1024, 1, &start,
        steps.data(), kestrum::Dealing::Threads(static_cast<int>(state.range(0))), kestrum::Progress(nullptr, nullptr));
    if (status != 0) return state.SkipWithError("failed");
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(mask.size()));
}
BENCHMARK(Steps)
    ->ArgsProduct({{1, 2}, {0, 2}})
    ->ArgNames({"threads", "axes"})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void Path(benchmark::State& state) {
  Geobody geobody(100, VORLComputeDistanceConnectivity26InGeobody);
  std::vector<int> path(kNodes);
  VORL_RANDCONTEXT context;
  VORLInitRandContext(&context);
  for (auto _ : state) {
    int length;
    VORLComputePathInDistanceMapGeobody26(kNx, kNy, kNz, geobody.distance.data(), kNodes - 1, path.data(), &length,
                                          &context);
    benchmark::DoNotOptimize(path.data());
  }
}
BENCHMARK(Path)->Unit(benchmark::kMicrosecond);

// Two paths that do not touch, of 449 nodes each, in sections 2 apart.
void Join(benchmark::State& state) {
  std::vector<int> paths[2];
  for (int i = 0; i < 449; ++i) {
    for (int p = 0; p < 2; ++p) paths[p].push_back(2 * p * kNx * kNy + (i / 2) % kNy * kNx + (i + 1) / 2 % kNx);
  }
  for (auto _ : state) {
    int index1, index2;
    VORLJoinTwoPathInGeobody26(kNx, kNy, kNz, paths[0].data(), paths[1].data(), 449, 449, &index1, &index2);
    benchmark::DoNotOptimize(index1);
  }
  state.SetItemsProcessed(state.iterations() * 449 * 449);
}
BENCHMARK(Join)->Unit(benchmark::kMicrosecond);

}  // namespace
