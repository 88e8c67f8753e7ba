#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "analysis/moving_average.h"
#include "core/image_statistics.h"
#include "support/test_image.hpp"

namespace {

using kestrum_test::TestImage;

// Random values on n^3 nodes; of each 1000, `missing` are missing.
TestImage& RandomCube(int n, unsigned missing) {
  static TestImage* image = nullptr;
  std::mt19937 generator(1);
  std::vector<double> values(static_cast<std::size_t>(n) * n * n);
  for (double& value : values) {
    value = generator() % 1000 < missing ? VORL_MISSING_VALUE : static_cast<double>(generator()) / 4e9;
  }
  delete image;
  image = new TestImage({n, n, n, 1, 1, 1, 0, 0, 0, 0, 0}, {"v"}, values);
  return *image;
}

// A cubic box of range(0) tenths of a cell on 128^3 nodes, with range(1) in 1000 values missing.
void Box(benchmark::State& state) {
  TestImage& in = RandomCube(128, static_cast<unsigned>(state.range(1)));
  const double size = static_cast<double>(state.range(0)) / 10.0;
  for (auto _ : state) {
    TestImage out;
    VORLMovingBoxAverageImage(size, size, size, &in, &out, FALSE, 0.0, FALSE);
    benchmark::DoNotOptimize(out.var);
  }
}
BENCHMARK(Box)
    ->ArgsProduct({{30, 50, 70}, {0}})
    ->Args({65, 0})
    ->Args({70, 1})
    ->Args({70, 200})
    ->Unit(benchmark::kMillisecond);

// A ball of radius range(0) cells on 64^3 nodes, with range(1) in 1000 values missing.
void Neighborhood(benchmark::State& state) {
  TestImage& in = RandomCube(64, static_cast<unsigned>(state.range(1)));
  const int radius = static_cast<int>(state.range(0));
  std::vector<int> x, y, z;
  for (int k = -radius; k <= radius; ++k) {
    for (int j = -radius; j <= radius; ++j) {
      for (int i = -radius; i <= radius; ++i) {
        if (i * i + j * j + k * k > radius * radius) continue;
        x.push_back(i);
        y.push_back(j);
        z.push_back(k);
      }
    }
  }
  std::vector<double> weight(x.size(), 0.3);
  VORL_SEARCHNEIGHBORHOOD neighborhood{};
  neighborhood.size = static_cast<int>(x.size());
  neighborhood.ix = x.data();
  neighborhood.iy = y.data();
  neighborhood.iz = z.data();
  neighborhood.weight = weight.data();
  for (auto _ : state) {
    TestImage out;
    VORLMovingSearchNeighborhoodAverageImage(&neighborhood, &in, &out, FALSE, 0.0, FALSE);
    benchmark::DoNotOptimize(out.var);
  }
}
BENCHMARK(Neighborhood)->Args({5, 0})->Args({10, 0})->Args({10, 10})->Unit(benchmark::kMillisecond);

// Proportions of four categories at each of 512^2 nodes, over 50 variables.
void Proportions(benchmark::State& state) {
  constexpr int kVariables = 50;
  std::mt19937 generator(1);
  std::vector<double> values(kVariables * 512 * 512);
  for (double& value : values) value = static_cast<double>(generator() % 4);
  TestImage in({512, 512, 1, 1, 1, 1, 0, 0, 0, 0, 0}, std::vector<std::string>(kVariables, "v"), values);
  double category[] = {0.0, 1.0, 2.0, 3.0};
  for (auto _ : state) {
    TestImage out;
    VORLGetImageVarStatsLocal(&in, &out, 4, category);
    benchmark::DoNotOptimize(out.var);
  }
}
BENCHMARK(Proportions)->Unit(benchmark::kMillisecond);

}  // namespace
