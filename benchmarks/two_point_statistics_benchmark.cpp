// Two-point statistics: pairs per second, those of all lags of the box counted, by statistic, instruction set and shape
// of the box of lags.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <random>
#include <vector>

#include "analysis/two_point_statistics.hpp"
#include "core/constants.h"
#include "support/test_image.hpp"

namespace {

using kestrum::Dealing;
using kestrum::LagAxis;
using kestrum::LagBox;
using kestrum::SimdLevel;
using kestrum::TwoPointStatistic;
using kestrum_test::TestImage;

double CountPairs(const VORL_GRID& grid, const LagBox& box) {
  const int n[] = {grid.nx, grid.ny, grid.nz};
  double pairs = 1.0;
  for (int a = 0; a < 3; ++a) {
    double sum = 0.0;
    for (int lag = box.axis[a].min; lag <= box.axis[a].max; lag += box.axis[a].step) sum += n[a] - std::abs(lag);
    pairs *= sum;
  }
  return pairs;
}

void Compute(benchmark::State& state, const VORL_GRID& grid, const LagBox& box, TwoPointStatistic statistic,
             double missing, SimdLevel level, const Dealing& dealing) {
  if (level > kestrum::BestSimdLevel()) return state.SkipWithError("level not offered by this machine");
  std::mt19937 generator(1);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  std::bernoulli_distribution isMissing(missing);
  std::vector<double> values(static_cast<std::size_t>(grid.nx) * grid.ny * grid.nz);
  for (double& value : values) value = isMissing(generator) ? VORL_MISSING_VALUE : uniform(generator);
  const TestImage image(grid, {"v"}, values);
  for (auto _ : state) {
    TestImage map;
    if (kestrum::ComputeTwoPointStatistic(statistic, image, &map, 0, box, false, dealing, level) != 0) {
      return state.SkipWithError("failed");
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(static_cast<double>(state.iterations()) * CountPairs(grid, box)));
}

constexpr VORL_GRID kMap = {500, 500, 1, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, 0, 0};
constexpr VORL_GRID kBlock = {60, 60, 60, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, 0, 0};
constexpr LagAxis kNone = {0, 0, 1};
constexpr LagAxis kAround = {-50, 50, 1};

void MapOfLags(benchmark::State& state) {
  Compute(state, kMap, {{kAround, kAround, kNone}}, static_cast<TwoPointStatistic>(state.range(0)),
          static_cast<double>(state.range(1)) / 100.0, static_cast<SimdLevel>(state.range(2)), Dealing::Serial());
}
BENCHMARK(MapOfLags)
    ->ArgNames({"statistic", "missingPercent", "level"})
    ->ArgsProduct({benchmark::CreateDenseRange(0, 7, 1), {0, 10}, {0, 1, 2}})
    ->Unit(benchmark::kMillisecond);

void Variogram(benchmark::State& state, const VORL_GRID& grid, const LagBox& box, const Dealing& dealing) {
  Compute(state, grid, box, TwoPointStatistic::kVariogram, 0.0, kestrum::BestSimdLevel(), dealing);
}
const Dealing kSerial = Dealing::Serial();
BENCHMARK_CAPTURE(Variogram, OneLag, kMap, LagBox{{{5, 5, 1}, {3, 3, 1}, kNone}}, kSerial);
BENCHMARK_CAPTURE(Variogram, AlongX, kMap, LagBox{{{0, 100, 1}, kNone, kNone}}, kSerial);
BENCHMARK_CAPTURE(Variogram, AlongXByThrees, kMap, LagBox{{{0, 300, 3}, kNone, kNone}}, kSerial);
BENCHMARK_CAPTURE(Variogram, AlongY, kMap, LagBox{{kNone, {0, 100, 1}, kNone}}, kSerial);
BENCHMARK_CAPTURE(Variogram, AlongZ, kBlock, LagBox{{kNone, kNone, {0, 50, 1}}}, kSerial);
BENCHMARK_CAPTURE(Variogram, Block, kBlock, LagBox{{{-10, 10, 1}, {-10, 10, 1}, {-10, 10, 1}}}, kSerial);
BENCHMARK_CAPTURE(Variogram, MapTallerThanWide, kMap, LagBox{{kAround, {-51, 51, 1}, kNone}}, kSerial);
BENCHMARK_CAPTURE(Variogram, MapTwoThreads, kMap, LagBox{{kAround, kAround, kNone}}, Dealing::Threads(2))
    ->UseRealTime();

}  // namespace
