// Experimental variograms of scattered points: pairs per second.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

#include "analysis/point_variogram.hpp"

namespace {

using kestrum::Dealing;
using kestrum::DirectionCone;

// Uniform points in a unit square or cube; 15 lags. Arguments: points, dimension, largest lag in 10^-5 of the side,
// directions in the plane, estimator, threads.
void Variogram(benchmark::State& state) {
  const auto argument = [&](int i) { return static_cast<int>(state.range(i)); };
  kestrum::ScatteredValues data{};
  data.n = argument(0);
  data.dimension = argument(1);
  std::mt19937_64 generator(1);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  std::vector<double> coordinates, values;
  for (int i = 0; i < data.n * data.dimension; ++i) coordinates.push_back(uniform(generator));
  for (int i = 0; i < data.n; ++i) values.push_back(uniform(generator));
  data.coordinates = coordinates.data();
  data.value = values.data();
  std::vector<DirectionCone> cones;
  for (int d = 0; d < argument(3); ++d) {
    const double azimuth = std::numbers::pi * d / argument(3);
    cones.push_back({{std::sin(azimuth), std::cos(azimuth), 0.0},
                     std::cos(std::numbers::pi / 8.0),
                     std::numeric_limits<double>::infinity()});
  }
  kestrum::PointVariogramOptions options{};
  options.nlag = 15;
  options.lag = argument(2) * 1e-5 / options.nlag;
  options.cones = cones.data();
  options.ncone = argument(3);
  options.estimator = static_cast<kestrum::VariogramEstimator>(argument(4));
  const std::size_t size = (cones.empty() ? 1 : cones.size()) * 15;
  std::vector<double> distance(size), gamma(size);
  std::vector<std::int64_t> pairs(size);
  std::int64_t coincident = 0;
  for (auto _ : state) {
    const int status = kestrum::ComputePointVariogram(data, options, Dealing::Threads(argument(5)), {nullptr, nullptr},
                                                      {distance.data(), gamma.data(), pairs.data(), &coincident});
    if (status != 0) return state.SkipWithError("failed");
  }
  std::int64_t total = 0;
  for (const std::int64_t count : pairs) total += count;
  state.SetItemsProcessed(state.iterations() * total);
}
BENCHMARK(Variogram)
    ->Args({100'000, 2, 10'000, 0, 0, 1})
    ->Args({100'000, 2, 10'000, 4, 0, 1})
    ->Args({100'000, 2, 10'000, 0, 1, 1})
    ->Args({100'000, 2, 10'000, 0, 0, 2})
    ->Args({1'000'000, 2, 564, 0, 0, 1})
    ->Args({1'000'000, 3, 2'880, 0, 0, 1})
    ->Args({1'000'000, 3, 2'880, 4, 0, 1})
    ->Args({1'000'000, 2, 564, 0, 0, 2})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
