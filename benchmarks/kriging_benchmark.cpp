// Whole runs of kriging estimation: nodes per second by number of neighbours, model type, dimension and density of data.
#include <benchmark/benchmark.h>

#include <vector>

#include "support/run_builder.hpp"

namespace {

using kestrum_test::Element;
using kestrum_test::MakeGrid;
using kestrum_test::RandomData;
using kestrum_test::RunRecords;

struct Case {
  VORL_GRID grid;
  int ndata;
  real range;
  int nneighbor;
  VORL_COVMODELTYPE type = COV_SPHERICAL;
  real extra = 1.5;
  bool unique = false;
  bool factorising = false;
};

void Krige(benchmark::State& state, const Case& run, int nthreads = 0) {
  const std::vector<Element> model = {{run.type, 0.9, run.range, run.range, run.range, run.extra},
                                      {COV_NUGGET, 0.1, 0.0, 0.0, 0.0}};
  const auto data = RandomData(run.grid, run.ndata, 1);
  for (auto _ : state) {
    state.PauseTiming();
    RunRecords records(run.grid, model, data);
    records.input.nneighborMax = run.nneighbor;
    if (run.unique) records.input.searchRadiusRelative = -1.0;
    state.ResumeTiming();
    const int status = run.factorising ? records.Factorise(nthreads) : records.Run(nthreads);
    if (status != 0) state.SkipWithError(VORLGetErrorMessage(-status));
  }
  state.SetItemsProcessed(state.iterations() * run.grid.nxyz);
}

const VORL_GRID kMap = MakeGrid(1000, 1000, 1);
const VORL_GRID kBlock = MakeGrid(200, 200, 25);
const VORL_GRID kSmall = MakeGrid(300, 300, 1);

BENCHMARK_CAPTURE(Krige, Map1000Data2000, Case{kMap, 2000, 100.0, 20})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Krige, Map1000Data2000Radius400, Case{kMap, 2000, 400.0, 20})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Krige, Map1000Data2000TwoThreads, Case{kMap, 2000, 100.0, 20}, 2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(Krige, Block25Data200, Case{kBlock, 200, 60.0, 20})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Krige, Map1000Data200000, Case{kMap, 200000, 100.0, 20})->Unit(benchmark::kMillisecond);

void Neighbors(benchmark::State& state) { Krige(state, Case{kSmall, 1000, 100.0, static_cast<int>(state.range(0))}); }
BENCHMARK(Neighbors)->Arg(4)->Arg(8)->Arg(12)->Arg(20)->Arg(32)->Arg(48)->Arg(64)->Arg(96)->Arg(128)->Arg(190)->Unit(
    benchmark::kMillisecond);

void ModelType(benchmark::State& state) {
  Krige(state, Case{kMap, 2000, 100.0, 20, static_cast<VORL_COVMODELTYPE>(state.range(0))});
}
BENCHMARK(ModelType)->DenseRange(COV_SPHERICAL, COV_MATERN)->Unit(benchmark::kMillisecond);

void Unique(benchmark::State& state, bool factorising) {
  Krige(state, Case{kSmall, static_cast<int>(state.range(0)), 100.0, 20, COV_SPHERICAL, 1.5, true, factorising});
}
BENCHMARK_CAPTURE(Unique, Iterative, false)->Arg(50)->Arg(99)->Arg(200)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_CAPTURE(Unique, Factorising, true)->Arg(50)->Arg(99)->Arg(200)->Unit(benchmark::kMillisecond);

// The list of offsets alone, by half-width in cells.
void Neighborhood(benchmark::State& state) {
  const real range = static_cast<real>(state.range(0));
  VORL_COVMODEL* const model = kestrum_test::NewModel({{COV_SPHERICAL, 1.0, range, range, range}});
  for (auto _ : state) {
    VORL_SEARCHNEIGHBORHOOD list;
    VORLInitSearchNeighborhood(&list);
    VORL_RANDCONTEXT context;
    VORLInitRandContext(&context);
    const int status = VORLKestrumBuildSearchNeighborhoodForCovModel(1.0, 1.0, 1.0, 1.0, 1000, 1000, 1, nullptr, model,
                                                                     1, 1, 1, 1, 1, nullptr, 1, &list, &context);
    if (status != 0) state.SkipWithError(VORLGetErrorMessage(-status));
    state.counters["entries"] = list.size;
    VORLFreeSearchNeighborhood(&list);
  }
  VORLKestrumFreeCovModel(model);
  std::free(model);
}
BENCHMARK(Neighborhood)->Arg(30)->Arg(100)->Arg(400)->Unit(benchmark::kMillisecond);

}  // namespace
