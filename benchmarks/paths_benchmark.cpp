#include <benchmark/benchmark.h>

#include <numeric>
#include <vector>

#include "paths/path_generators.h"
#include "paths/search_neighborhood_parameters.h"

namespace {

// A sphere of about a million offsets; the argument is the azimuth.
void BuildNeighborhood(benchmark::State& state) {
  const auto azimuth = static_cast<real>(state.range(0));
  VORL_SEARCHNEIGHBORHOODPARAMETERS parameters{7, 62, 62, 62, 6, 62, 62, 62, TRUE, azimuth, 0, 0, 1};
  VORL_RANDCONTEXT context;
  VORLInitRandContext(&context);
  for (auto _ : state) {
    VORL_SEARCHNEIGHBORHOOD list;
    VORLInitSearchNeighborhood(&list);
    VORLBuildSearchNeighborhood(&parameters, &list, &context);
    state.counters["offsets"] = list.size;
    VORLFreeSearchNeighborhood(&list);
  }
}
BENCHMARK(BuildNeighborhood)->Arg(0)->Arg(30)->Unit(benchmark::kMillisecond);

// Paths over a square grid of side range(0), one node in `spacing` of which is a hard datum.
template <typename Generate>
void Path(benchmark::State& state, int spacing, const Generate& generate) {
  const auto side = static_cast<int>(state.range(0));
  std::vector<int> mask(static_cast<std::size_t>(side) * side, 1);
  for (std::size_t node = 0; node < mask.size(); node += spacing) mask[node] = 0;
  std::vector<int> path(mask.size());
  VORL_RANDCONTEXT context;
  VORLInitRandContext(&context);
  for (auto _ : state) {
    std::iota(path.begin(), path.end(), 0);
    VORLDoubleRand(1, &context);
    generate(side, path, mask, &context);
  }
}

template <decltype(&VORLPathDistancePdfRandom) generator>
void ByNearestDistance(benchmark::State& state) {
  Path(state, 997, [](int side, std::vector<int>& path, std::vector<int>& mask, VORL_RANDCONTEXT* context) {
    generator(1.0, 1.0, 1.0, 0.5, side * side, path.data(), mask.data(), side, side, 1, 1, context);
  });
}
BENCHMARK(ByNearestDistance<VORLPathDistancePdfRandom>)->Arg(100)->Arg(316)->Unit(benchmark::kMillisecond);
BENCHMARK(ByNearestDistance<VORLPathDistanceSortRandom>)->Arg(100)->Arg(316)->Arg(1000)->Unit(benchmark::kMillisecond);

// The argument behind the side is ten times the exponent.
void BySumOfDistances(benchmark::State& state) {
  const real power = static_cast<real>(state.range(1)) / 10;
  Path(state, 97, [power](int side, std::vector<int>& path, std::vector<int>& mask, VORL_RANDCONTEXT* context) {
    VORLPathDistanceSumSortRandom(1.0, 1.0, 1.0, power, 0.5, side * side, path.data(), mask.data(), side, side, 1, 1,
                                  context);
  });
}
BENCHMARK(BySumOfDistances)->Args({316, 20})->Args({316, 15})->Unit(benchmark::kMillisecond);

void Unilateral(benchmark::State& state) {
  int order[] = {-2, 1, 0};
  Path(state, 1, [&order](int side, std::vector<int>& path, std::vector<int>&, VORL_RANDCONTEXT* context) {
    VORLPathUnilateral3D(side * side, path.data(), side, side, 1, order, context);
  });
}
BENCHMARK(Unilateral)->Arg(1000)->Unit(benchmark::kMillisecond);

}  // namespace
