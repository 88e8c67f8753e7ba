// Distance maps on a cube with unequal spacings, by the share of feature nodes in thousandths; 0: blobs of some tens of
// nodes across. As a yardstick, SciPy's distance_transform_edt with sampling takes 3.4 s for 256 nodes along each axis
// on the machine on which the maps take 0.3 to 0.45 s (AVX-512, one thread).

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include "analysis/distance_lines.hpp"
#include "analysis/distance_maps.h"
#include "core/buffer.hpp"
#include "core/memory.h"
#include "support/test_image.hpp"

namespace {

using Image = kestrum_test::TestImage;

std::vector<double> Features(int n, long perMille) {
  std::mt19937 random(1);
  std::vector<double> values(static_cast<std::size_t>(n) * n * n);
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (perMille == 0) {
      const double x = static_cast<double>(i % n), y = static_cast<double>(i / n % n),
                   z = static_cast<double>(i / n / n);
      const double field = std::sin(x * 0.11 + std::sin(z * 0.05)) + std::sin(y * 0.13 + std::cos(x * 0.07));
      values[i] = field + std::sin(z * 0.09) > 0.5 ? 1.0 : 0.0;
    } else {
      values[i] = random() % 1000 < static_cast<unsigned long>(perMille) ? 1.0 : 0.0;
    }
  }
  return values;
}

template <typename Map>
void Measure(benchmark::State& state, const Map& map) {
  const int n = static_cast<int>(state.range(0));
  Image in({n, n, n, 1.0, 1.3, 0.7, 0.0, 0.0, 0.0, 0, 0}, {"v"}, Features(n, state.range(1)));
  for (auto _ : state) {
    Image out;
    if (map(&in, &out) != 0) state.SkipWithError("failed");
    benchmark::DoNotOptimize(out.var);
  }
  state.SetItemsProcessed(state.iterations() * in.nxyzv);
}

const bool kRegistered = [] {
  const auto add = [](const char* name, auto map) {
    benchmark::RegisterBenchmark(name, [map](benchmark::State& state) { Measure(state, map); })
        ->ArgsProduct({{256}, {0, 1, 10, 100, 500}})
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  };
  add("Euclidean", VORLImageDistanceEuclidean);
  add("Euclidean2Threads", [](auto* in, auto* out) { return VORLOMPImageDistanceEuclidean(in, out, 2); });
  add("L1", VORLImageDistanceL1);
  add("L12Threads", [](auto* in, auto* out) { return VORLOMPImageDistanceL1(in, out, 2); });
  add("EuclideanSign", VORLImageDistanceEuclideanSign);
  add("ByDilation", [](auto* in, auto* out) {
    int x[] = {-1, 1, 0, 0, 0, 0}, y[] = {0, 0, -1, 1, 0, 0}, z[] = {0, 0, 0, 0, -1, 1};
    return VORLImageDistanceByDilation(in, out, 6, x, y, z);
  });
  return true;
}();

void Curve(benchmark::State& state) {
  Image in({64, 64, 64, 1.0, 1.3, 0.7, 0.0, 0.0, 0.0, 0, 0}, {"v"}, Features(64, 0));
  for (auto _ : state) {
    int n = 0;
    double* curves[3] = {};
    if (VORLImageDistanceEuclideanConnectivity26GlobalIndicatorCurve(&in, 1.0, &n, &curves[0], &curves[1], &curves[2],
                                                                     FALSE) != 0) {
      state.SkipWithError("failed");
    }
    for (double* const curve : curves) VORLFree(curve);
  }
}
BENCHMARK(Curve)->Unit(benchmark::kMillisecond);

// One block of lines of 256 nodes that stays in the cache, by kernel: the levels of SimdLevel, and 3 for the kernel of
// one line.
void Lines(benchmark::State& state) {
  const int level = static_cast<int>(state.range(0));
  if (level < 3 && level > static_cast<int>(kestrum::BestSimdLevel()))
    return state.SkipWithError("not on this machine");
  const kestrum::LineKernel kernel =
      level == 3 ? kestrum::EnvelopeOfOneLine : kestrum::LineKernelOf(static_cast<kestrum::SimdLevel>(level));
  constexpr int kNodes = 256;
  const std::size_t size = kNodes * (level == 3 ? 1 : kestrum::kLineLanes);
  kestrum::Buffer<double> cost, distance;
  kestrum::Buffer<long long> link;
  if (cost.Allocate(size) + distance.Allocate(size) + link.Allocate(size) != 0) return state.SkipWithError("memory");
  std::mt19937 random(1);
  for (double& c : cost) c = std::pow(static_cast<double>(random() % 20), 2.0);
  for (auto _ : state) {
    kernel(kestrum::DistanceMetric::kEuclidean, {kNodes, 1.69, cost.data(), distance.data(), link.data()});
    benchmark::DoNotOptimize(distance.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long>(size));
}
BENCHMARK(Lines)->DenseRange(0, 3);

}  // namespace
