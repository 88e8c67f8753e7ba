// Kriging with data at their true places: targets per second of the search alone and of all.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <vector>

#include "engine/place_kriging.hpp"

namespace {

using kestrum::Dealing;

const kestrum::Progress kQuiet{nullptr, nullptr};

// Data over a grid: uniform, or in clusters that are narrower than a cell of it. The grid may be wider than the data.
struct Workload {
  std::vector<double> x, y, z;
  kestrum::PlaceTargets targets;

  Workload(int ndata, int nx, int ny, int nz, int width = 1, int nclusters = 0) {
    std::mt19937 generator(1);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    const auto draw = [&](std::size_t i, std::vector<double>& c, double extent) {
      const auto cluster = static_cast<std::size_t>(nclusters);
      const double drawn = uniform(generator);
      c.push_back(nclusters > 0 && i >= cluster ? c[i % cluster] + 0.1 * drawn : extent * drawn);
    };
    for (std::size_t i = 0; i < static_cast<std::size_t>(ndata); ++i) {
      draw(i, x, nx);
      draw(i, y, ny);
      if (nz > 1) draw(i, z, nz);
    }
    z.resize(x.size());
    targets.grid = {};
    targets.grid.sx = targets.grid.sy = targets.grid.sz = width;
    targets.grid.ox = -0.5 * (width - 1) * nx;
    targets.grid.oy = -0.5 * (width - 1) * ny;
    targets.grid.nx = nx;
    targets.grid.ny = ny;
    targets.grid.nz = nz;
    targets.dimension = nz > 1 ? 3 : 2;
    const int extent[3] = {nx, ny, nz};
    for (int a = 0; a < 3; ++a) {
      targets.first[a] = 0;
      targets.extent[a] = extent[a];
    }
  }
};

// Arguments: data, neighbours, nx, ny, nz.
void Search(benchmark::State& state) {
  const auto argument = [&](int i) { return static_cast<int>(state.range(i)); };
  const Workload work(argument(0), argument(2), argument(3), argument(4));
  kestrum::PlaceNeighborhood neighborhood;
  neighborhood.limit = argument(1);
  const double scale[3] = {1, 1, 1};
  kestrum::PlaceIndex index;
  if (index.Build(argument(0), {work.x.data(), work.y.data(), work.z.data()}, scale, Dealing::Serial(), kQuiet) != 0)
    return;
  kestrum::PlaceTiles tiles;
  if (tiles.Prepare(work.targets, scale, kestrum::PlaceNodes::kMax, false, Dealing::Serial(), kQuiet) != 0) return;
  kestrum::PlaceNodes nodes;
  kestrum::PlaceSearch search;
  kestrum::PlaceSets sets;
  long nset = 0;
  long ncandidate = 0;
  long ntile = 0;
  for (auto _ : state) {
    nset = ncandidate = ntile = 0;
    for (std::int64_t tile = 0; tile < tiles.count(); ++tile) {
      tiles.Fill(tile, &nodes);
      search.Begin(index, neighborhood, nodes);
      while (search.Next(&sets) == 0 && sets.nset > 0) {
        nset += sets.nset;
        ncandidate += sets.ncandidate;
        ++ntile;
      }
    }
  }
  state.SetItemsProcessed(state.iterations() * work.targets.count());
  state.counters["targets per set"] = static_cast<double>(work.targets.count()) / nset;
  state.counters["candidates"] = static_cast<double>(ncandidate) / ntile;
  state.counters["targets per tile"] = static_cast<double>(work.targets.count()) / ntile;
}
BENCHMARK(Search)
    ->Args({2000, 20, 1000, 1000, 1})
    ->Args({200, 20, 200, 200, 25})
    ->Args({2000, 64, 1000, 1000, 1})
    ->Args({1000000, 20, 3000, 3000, 1})
    ->Args({1000000, 20, 100, 100, 100})
    ->Unit(benchmark::kMillisecond);

// Ordinary kriging, estimate and variance, of a grid or, if there is none (nx is 0), of each datum from the others.
// Arguments: data, neighbours (0 for all), nx, ny, nz, threads, model type. `width` is that of the grid, by that of the
// data.
void KrigeOver(benchmark::State& state, int width, int nclusters) {
  const auto argument = [&](int i) { return static_cast<int>(state.range(i)); };
  const bool leaveOut = argument(2) == 0;
  constexpr int kSide = 1000;
  Workload work(argument(0), leaveOut ? kSide : argument(2), leaveOut ? kSide : argument(3), argument(4), width,
                nclusters);
  const int dimension = argument(4) > 1 ? 3 : 2;
  std::vector<double> coordinates, values;
  for (int i = 0; i < argument(0); ++i) {
    const double at[3] = {work.x[i], work.y[i], work.z[i]};
    coordinates.insert(coordinates.end(), at, at + dimension);
    values.push_back(std::sin(0.01 * at[0]) + std::cos(0.02 * at[1]));
  }
  VORL_COVMODELELEM element;
  VORLKestrumInitCovModelElem(&element);
  element.covModelType = static_cast<VORL_COVMODELTYPE>(argument(6));
  element.weightValue = 1.0;
  element.rxValue = element.ryValue = element.rzValue = 0.3 * work.targets.grid.nx;
  VORL_COVMODEL model;
  VORLKestrumInitCovModel(&model);
  model.nelem = 1;
  model.covModelElem = &element;
  kestrum::PlaceKrigingOptions options;
  options.neighbors = argument(1);
  kestrum::PlaceKrigingTargets targets;
  targets.places = work.targets;
  const auto count = static_cast<std::size_t>(leaveOut ? argument(0) : work.targets.count());
  std::vector<double> estimate(count), variance(count);
  kestrum::PlaceKrigingReport report;
  kestrum::PlaceProblem problem;
  const kestrum::Progress progress(nullptr, nullptr);
  const Dealing dealing = argument(5) > 1 ? Dealing::Threads(argument(5)) : Dealing::Serial();
  for (auto _ : state) {
    kestrum::PlaceKriging kriging;
    int status = kriging.Prepare({argument(0), dimension, coordinates.data(), values.data()}, model, options, dealing,
                                 progress, &problem);
    const kestrum::PlaceKrigingResults results{estimate.data(), variance.data()};
    if (status == 0) {
      status = leaveOut ? kriging.LeaveOut(nullptr, results, dealing, progress, &report, &problem)
                        : kriging.Krige(targets, results, dealing, progress, &report, &problem);
    }
    if (status != 0 || problem.refusal != kestrum::PlaceRefusal::kNone) std::abort();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
}
void Krige(benchmark::State& state) { KrigeOver(state, 1, 0); }
void KrigeBeyond(benchmark::State& state) { KrigeOver(state, 20, 0); }
void KrigeClusters(benchmark::State& state) { KrigeOver(state, 1, 20); }
BENCHMARK(KrigeBeyond)->Args({30000, 20, 80, 80, 1, 1, COV_SPHERICAL})->Unit(benchmark::kMillisecond);
BENCHMARK(KrigeClusters)->Args({200000, 20, 100, 100, 1, 1, COV_SPHERICAL})->Unit(benchmark::kMillisecond);
BENCHMARK(Krige)
    ->ArgsProduct({{2000}, {20, 64}, {1000}, {1000}, {1}, {1, 2}, {COV_SPHERICAL, COV_EXPONENTIAL}})
    ->ArgsProduct({{200}, {20}, {200}, {200}, {25}, {1, 2}, {COV_SPHERICAL, COV_EXPONENTIAL}})
    ->ArgsProduct({{1000000}, {20}, {3000}, {3000}, {1}, {1, 2}, {COV_SPHERICAL, COV_EXPONENTIAL}})
    ->ArgsProduct({{100000, 1000000}, {20}, {100}, {100}, {100}, {1, 2}, {COV_SPHERICAL}})
    ->ArgsProduct({{200, 2000}, {0}, {300}, {300}, {1}, {1, 2}, {COV_SPHERICAL, COV_EXPONENTIAL}})
    ->ArgsProduct({{2000}, {0}, {0}, {0}, {1}, {1, 2}, {COV_SPHERICAL}})
    ->ArgsProduct({{100000}, {20}, {0}, {0}, {1}, {1, 2}, {COV_SPHERICAL}})
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);

void BuildIndex(benchmark::State& state) {
  const Workload work(1000000, 3000, 3000, 1);
  const double scale[3] = {1, 1, 1};
  const kestrum::PlaceVectors data{work.x.data(), work.y.data(), work.z.data()};
  for (auto _ : state) {
    kestrum::PlaceIndex index;
    if (index.Build(1000000, data, scale, Dealing::Threads(static_cast<int>(state.range(0))), kQuiet) != 0) return;
  }
}
BENCHMARK(BuildIndex)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

void FindCoincidentData(benchmark::State& state) {
  const Workload work(1000000, 3000, 3000, 1);
  kestrum::CoincidentData found;
  for (auto _ : state) {
    if (kestrum::FindCoincidentData(1000000, {work.x.data(), work.y.data(), work.z.data()}, nullptr, &found, kQuiet) !=
        0)
      return;
  }
}
BENCHMARK(FindCoincidentData)->Unit(benchmark::kMillisecond);

}  // namespace
