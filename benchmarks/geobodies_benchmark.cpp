#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <vector>

#include "analysis/connectivity.h"
#include "analysis/geobodies.h"
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
