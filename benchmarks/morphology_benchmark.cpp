#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "analysis/morphology.h"
#include "support/test_image.hpp"

namespace {

using kestrum_test::TestImage;

// A random set that holds range(0) per cent of the nodes of a 256^3 grid, and the 27 offsets of a 3x3x3 block.
template <int (*kOperation)(VORL_IMAGE*, VORL_IMAGE*, int, int*, int*, int*, int, BOOLEAN)>
void Block27(benchmark::State& state) {
  std::mt19937 generator(1);
  std::vector<double> values(256 * 256 * 256);
  for (double& value : values) value = generator() % 100 < static_cast<unsigned>(state.range(0)) ? 1.0 : 0.0;
  TestImage in({256, 256, 256, 1, 1, 1, 0, 0, 0, 0, 0}, {"v"}, values);
  std::vector<int> x, y, z;
  for (int k = 0; k < 27; ++k) {
    x.push_back(k % 3 - 1);
    y.push_back(k / 3 % 3 - 1);
    z.push_back(k / 9 - 1);
  }
  for (auto _ : state) {
    TestImage out;
    kOperation(&in, &out, 27, x.data(), y.data(), z.data(), 1, FALSE);
    benchmark::DoNotOptimize(out.var);
  }
}
BENCHMARK(Block27<VORLImageDilate>)->Name("Dilate")->Arg(1)->Arg(50)->Unit(benchmark::kMillisecond);
BENCHMARK(Block27<VORLImageErode>)->Name("Erode")->Arg(50)->Arg(99)->Unit(benchmark::kMillisecond);

}  // namespace
