#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <vector>

#include "analysis/connection_curve.hpp"
#include "analysis/connectivity.h"
#include "analysis/geobodies.h"
#include "analysis/geobodies.hpp"
#include "support/test_image.hpp"

namespace {

using kestrum_test::TestImage;

// Noise of which half the nodes are at or below 0: white, or smoothed by npass means of three along each axis, which is
// nearly a Gaussian with a standard deviation of sqrt(2/3 * npass) nodes.
std::vector<double> Noise(int nx, int ny, int nz, int npass) {
  std::mt19937 generator(1);
  std::normal_distribution<double> normal;
  std::vector<double> noise(static_cast<std::size_t>(nx) * ny * nz);
  for (double& value : noise) value = normal(generator);
  std::vector<double> before(noise.size());
  for (int pass = 0; pass < npass; ++pass) {
    for (const std::size_t stride : {std::size_t{1}, static_cast<std::size_t>(nx), static_cast<std::size_t>(nx) * ny}) {
      if (stride == noise.size()) continue;
      before.swap(noise);
      // Lines run on around the borders.
      const std::size_t n = noise.size();
      for (std::size_t i = 0; i < n; ++i)
        noise[i] = before[(i + n - stride) % n] + before[i] + before[(i + stride) % n];
    }
  }
  return noise;
}

std::vector<unsigned char> Below(const std::vector<double>& noise) {
  std::vector<unsigned char> mask(noise.size());
  std::transform(noise.begin(), noise.end(), mask.begin(), [](double value) { return value <= 0.0; });
  return mask;
}

TestImage CubeOfNoise(int n, int npass) {
  return TestImage({n, n, n, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, 0, 0}, {"noise"}, Noise(n, n, n, npass));
}

using VectorForm = decltype(&VORLImageGeobody6Vector);
constexpr VectorForm kVectorForms[] = {VORLImageGeobody6Vector, VORLImageGeobody18Vector, VORLImageGeobody26Vector};

// Arguments: nodes along each axis, passes of smoothing, neighbourhood.
void Label(benchmark::State& state) {
  TestImage image = CubeOfNoise(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
  const VectorForm label = kVectorForms[state.range(2) == 6 ? 0 : state.range(2) == 18 ? 1 : 2];
  std::vector<int> labels(static_cast<std::size_t>(image.nxyzv));
  double lower = -VORL_INFINITY;
  double upper = 0.0;
  int ngeobody = 0;
  for (auto _ : state) {
    label(&image, labels.data(), 0, FALSE, 1, &lower, &upper, FALSE, FALSE, &ngeobody);
    benchmark::ClobberMemory();
  }
  state.counters["geobodies"] = ngeobody;
  state.SetItemsProcessed(state.iterations() * image.nxyzv);
}
BENCHMARK(Label)->ArgsProduct({{128, 256}, {0, 6}, {6, 18, 26}})->Unit(benchmark::kMillisecond);

// As the package labels masks: a byte a node, the links in the labels. Arguments: as those of Label, and threads.
void LabelRows(benchmark::State& state, int nx, int ny, int nz) {
  const std::vector<double> noise = Noise(nx, ny, nz, static_cast<int>(state.range(1)));
  const std::vector<unsigned char> mask = Below(noise);
  const VORL_GRID grid{nx, ny, nz, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, nx * ny, nx * ny * nz};
  std::vector<int> labels(mask.size());
  const auto dealing = kestrum::Dealing::Threads(static_cast<int>(state.range(3)));
  for (auto _ : state) {
    kestrum::GeobodyFinder finder;
    if (finder.AllocateBits(grid) != 0) state.SkipWithError("failed");
    finder.Mark(mask.data(), kestrum::TrueValues{}, dealing);
    finder.LabelInPlace(kestrum::ConnectivityOf(static_cast<int>(state.range(2))), labels.data(), dealing,
                        kestrum::Progress(nullptr, nullptr));
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * grid.nxyz);
}

void LabelMask(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  LabelRows(state, n, n, n);
}
BENCHMARK(LabelMask)->ArgsProduct({{256}, {0, 6}, {6, 26}, {1, 2}})->Unit(benchmark::kMillisecond)->UseRealTime();

// The same with 1024 x 1024 short rows, of the nodes of the first argument.
void LabelShortRows(benchmark::State& state) { LabelRows(state, static_cast<int>(state.range(0)), 1024, 1024); }
BENCHMARK(LabelShortRows)
    ->ArgsProduct({{3, 12}, {0, 6}, {6, 26}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Arguments: passes of smoothing, thresholds, threads. Up to 64 thresholds by sets, beyond by the tree.
void ConnectionCurve(benchmark::State& state) {
  constexpr int kSize = 128;
  const std::vector<double> noise = Noise(kSize, kSize, kSize, static_cast<int>(state.range(0)));
  const VORL_GRID grid{kSize, kSize, kSize, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, kSize * kSize, kSize * kSize * kSize};
  const auto [low, high] = std::minmax_element(noise.begin(), noise.end());
  std::vector<double> thresholds(static_cast<std::size_t>(state.range(1)));
  for (std::size_t k = 0; k < thresholds.size(); ++k) {
    thresholds[k] = *low + (*high - *low) * static_cast<double>(k) / static_cast<double>(thresholds.size());
  }
  std::vector<double> curve(thresholds.size());
  for (auto _ : state) {
    if (kestrum::ConnectionCurves(grid, 1, noise.data(), kestrum::Connectivity::k6, static_cast<int>(thresholds.size()),
                                  thresholds.data(), true, kestrum::Dealing::Threads(static_cast<int>(state.range(2))),
                                  kestrum::Progress(nullptr, nullptr), curve.data()) != 0) {
      state.SkipWithError("failed");
    }
  }
  state.SetItemsProcessed(state.iterations() * grid.nxyz);
}
BENCHMARK(ConnectionCurve)->ArgsProduct({{0, 6}, {21, 64, 65}, {1, 2}})->Unit(benchmark::kMillisecond)->UseRealTime();

void EulerNumberOfLabels(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const int nz = static_cast<int>(state.range(1));
  std::vector<double> values = Noise(n, n, nz, 6);
  for (double& value : values) value = value <= 0.0 ? 1.0 : 0.0;
  TestImage image({n, n, nz, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, 0, 0}, {"body"}, values);
  int euler = 0;
  for (auto _ : state) {
    VORLImageConnectivityEulerNumber(&image, 0, &euler);
    benchmark::DoNotOptimize(euler);
  }
  state.SetItemsProcessed(state.iterations() * image.nxyzv);
}
BENCHMARK(EulerNumberOfLabels)->Args({2000, 1})->Args({160, 160})->Unit(benchmark::kMillisecond);

// Twenty thresholds over a cube of 128 nodes; the argument is the number of threads.
template <typename Curve>
void MeasureCurve(benchmark::State& state, const Curve& curve) {
  TestImage image = CubeOfNoise(128, 6);
  const auto [low, high] = std::minmax_element(image.var, image.var + image.nxyzv);
  const double start = *low;
  const double step = (*high - start) / 20.0;
  for (auto _ : state) curve(image, 20, start, step, static_cast<int>(state.range(0)));
}

void GammaCurve(benchmark::State& state) {
  std::vector<double> thresholds(20), gamma(20), gammaComplement(20);
  MeasureCurve(state, [&](TestImage& image, int n, double start, double step, int nthreads) {
    VORLOMPImageConnectivity6GlobalIndicatorCurve(&image, n, start, step, thresholds.data(), gamma.data(),
                                                  gammaComplement.data(), FALSE, nthreads);
  });
}
BENCHMARK(GammaCurve)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

void EulerCurve(benchmark::State& state) {
  std::vector<double> thresholds(20);
  std::vector<int> euler(20), eulerComplement(20);
  MeasureCurve(state, [&](TestImage& image, int n, double start, double step, int nthreads) {
    VORLOMPImageConnectivity6EulerNumberCurve(&image, n, start, step, thresholds.data(), euler.data(),
                                              eulerComplement.data(), FALSE, nthreads);
  });
}
BENCHMARK(EulerCurve)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

void MaxSizeCurve(benchmark::State& state) {
  std::vector<double> thresholds(20);
  std::vector<int> size(20), x(20), y(20), z(20);
  MeasureCurve(state, [&](TestImage& image, int n, double start, double step, int nthreads) {
    VORLOMPImageMaxGeobody6SizeCurve(&image, n, start, step, thresholds.data(), size.data(), x.data(), y.data(),
                                     z.data(), FALSE, nthreads);
  });
}
BENCHMARK(MaxSizeCurve)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

}  // namespace
