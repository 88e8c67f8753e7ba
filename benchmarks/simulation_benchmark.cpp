// Whole runs of sequential simulation: nodes per second (all realizations) by number of neighbours, model type, dimension,
// size and number of threads.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "support/run_builder.hpp"

namespace {

using kestrum_test::Element;
using kestrum_test::IndicatorRunRecords;
using kestrum_test::MakeGrid;
using kestrum_test::RandomData;
using kestrum_test::RunRecords;

struct Case {
  VORL_GRID grid;
  int nrealization;
  int nneighbor = 20;
  VORL_COVMODELTYPE type = COV_EXPONENTIAL;
  real range = 30.0;
  int ndata = 100;
  bool factorising = false;
};

// nthreads 0: the serial form.
void Simulate(benchmark::State& state, const Case& run, int nthreads = 0) {
  const std::vector<Element> model = {{run.type, 1.0, run.range, run.range, run.range, 1.5}};
  const auto data = RandomData(run.grid, run.ndata, 1);
  for (auto _ : state) {
    state.PauseTiming();
    RunRecords records(run.grid, model, data);
    records.input.computationMode = KESTRUM_SIM_SK;
    records.input.nneighborMax = run.nneighbor;
    records.input.nrealization = run.nrealization;
    records.input.seedIncrement = run.grid.nxyz + 1;
    state.ResumeTiming();
    const int status = run.factorising ? records.Factorise(nthreads) : records.Run(nthreads);
    if (status != 0) state.SkipWithError(VORLGetErrorMessage(-status));
  }
  state.SetItemsProcessed(state.iterations() * run.nrealization * (run.grid.nxyz - run.ndata));
}

const VORL_GRID kMap = MakeGrid(200, 200, 1);
const VORL_GRID kBlock = MakeGrid(100, 100, 20);

BENCHMARK_CAPTURE(Simulate, Map200x10, Case{kMap, 10})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Simulate, Block100x100x20x5, Case{kBlock, 5})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Simulate, Block200x200x10, Case{MakeGrid(200, 200, 10), 1})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Simulate, FactorisingBlock200x200x10,
                  Case{MakeGrid(200, 200, 10), 1, 20, COV_EXPONENTIAL, 30.0, 100, true})
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Simulate, Nodes1e5, Case{MakeGrid(316, 316, 1), 1})->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Simulate, Nodes1e6, Case{MakeGrid(1000, 1000, 1), 1})->Unit(benchmark::kMillisecond);

// From 1 thread (the threaded form) to 8, on a large and on a small grid, where threads wait for one another more.
void Threads(benchmark::State& state) { Simulate(state, Case{kMap, 10}, static_cast<int>(state.range(0))); }
BENCHMARK(Threads)->Arg(1)->Arg(2)->Arg(4)->Arg(8)->Unit(benchmark::kMillisecond)->UseRealTime();
void ThreadsSmallGrid(benchmark::State& state) {
  Simulate(state, Case{MakeGrid(30, 30, 1), 100}, static_cast<int>(state.range(0)));
}
BENCHMARK(ThreadsSmallGrid)->Arg(1)->Arg(2)->Arg(4)->Arg(8)->Unit(benchmark::kMillisecond)->UseRealTime();

void Neighbors(benchmark::State& state) { Simulate(state, Case{kMap, 2, static_cast<int>(state.range(0))}); }
BENCHMARK(Neighbors)->Arg(4)->Arg(8)->Arg(12)->Arg(20)->Arg(32)->Arg(48)->Unit(benchmark::kMillisecond);

void ModelType(benchmark::State& state) {
  Simulate(state, Case{kMap, 2, 20, static_cast<VORL_COVMODELTYPE>(state.range(0))});
}
BENCHMARK(ModelType)->DenseRange(COV_SPHERICAL, COV_MATERN)->Unit(benchmark::kMillisecond);

// A categorical variable, with one model for all categories (whose systems are then solved once) or one for each.
void Indicator(benchmark::State& state, int ncategory, bool oneModel, int nthreads, int nneighbor = 12) {
  const VORL_GRID& grid = kMap;
  std::vector<real> data(grid.nxyz, VORL_MISSING_VALUE);
  std::vector<real> categories;
  for (int c = 0; c < ncategory; ++c) categories.push_back(c + 1.0);
  for (const auto& datum : RandomData(grid, 100, 1)) {
    data[datum.iy * grid.nx + datum.ix] = 1.0 + static_cast<int>(datum.value) % ncategory;
  }
  for (auto _ : state) {
    state.PauseTiming();
    IndicatorRunRecords records(grid, {{COV_EXPONENTIAL, 0.2, 30.0, 30.0, 30.0}}, categories, data);
    for (int c = 0; c < ncategory && !oneModel; ++c) {
      records.SetModel(c, {{COV_EXPONENTIAL, 0.2, 30.0 + c, 30.0 + c, 30.0}});
    }
    std::fill_n(records.input.nneighborMax, ncategory, nneighbor);
    records.input.computationMode = KESTRUM_SIM_SK;
    records.input.nrealization = 5;
    records.input.seedIncrement = grid.nxyz + 1;
    state.ResumeTiming();
    if (const int status = records.Run(nthreads); status != 0) state.SkipWithError(VORLGetErrorMessage(-status));
  }
  state.SetItemsProcessed(state.iterations() * 5 * (grid.nxyz - 100));
}
BENCHMARK_CAPTURE(Indicator, ThreeCategoriesOneModel, 3, true, 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Indicator, ThreeCategoriesThreeModels, 3, false, 0)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Indicator, ThreeModelsTwoThreads, 3, false, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(Indicator, OneCategory, 1, true, 0)->Unit(benchmark::kMillisecond);

void IndicatorNeighbors(benchmark::State& state) { Indicator(state, 3, false, 0, static_cast<int>(state.range(0))); }
BENCHMARK(IndicatorNeighbors)->Arg(4)->Arg(8)->Arg(20)->Arg(32)->Unit(benchmark::kMillisecond);

// Gibbs passes over nodes with bounds, one node in ten: as many passes as asked for.
void Gibbs(benchmark::State& state) {
  const VORL_GRID& grid = kMap;
  std::vector<real> bounds(2 * grid.nxyz, VORL_MISSING_VALUE);
  for (int i = 0; i < grid.nxyz; i += 10) bounds[i] = -1.0;
  const int npass = static_cast<int>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    RunRecords records(grid, {{COV_EXPONENTIAL, 1.0, 30.0, 30.0, 30.0}}, {});
    records.input.computationMode = KESTRUM_SIM_SK;
    records.input.meanUsage = 1;
    records.input.nrealization = 2;
    records.input.seedIncrement = grid.nxyz + 1;
    records.input.nGibbsSamplerPathMin = npass;
    records.input.nGibbsSamplerPathMax = npass;
    records.input.ndataImage = 1;
    records.input.dataImage = kestrum_test::NewImage(grid, bounds);
    std::snprintf(records.input.dataImage->varName[0], VORL_VARNAME_LENGTH, "v_min");
    std::snprintf(records.input.dataImage->varName[1], VORL_VARNAME_LENGTH, "v_max");
    state.ResumeTiming();
    if (const int status = records.Run(); status != 0) state.SkipWithError(VORLGetErrorMessage(-status));
  }
  state.SetItemsProcessed(state.iterations() * 2 * npass * (grid.nxyz / 10));
}
BENCHMARK(Gibbs)->Arg(1)->Arg(10)->Arg(50)->Unit(benchmark::kMillisecond);

}  // namespace
