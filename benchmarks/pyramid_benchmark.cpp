#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "analysis/pyramid.h"

namespace {

// The bytes counted are those that any method must move: the input read, the output and the weights written. Copy
// moves as many, read and written in equal parts, and is what the others are held against.
constexpr int kReducedSize[] = {256, 256, 128};
constexpr int kExpandedSize[] = {128, 128, 64};

std::vector<double> Input(const int (&n)[3], int nmissingPerThousand) {
  std::vector<double> values(static_cast<std::size_t>(n[0]) * n[1] * n[2]);
  for (std::size_t i = 0; i < values.size(); ++i) {
    const bool missing = static_cast<int>(i * 7919 % 1000) < nmissingPerThousand;
    values[i] = missing ? VORL_MISSING_VALUE : static_cast<double>(i % 1013);
  }
  return values;
}

void Copy(benchmark::State& state) {
  const std::vector<double> from = Input(kReducedSize, 0);
  std::vector<double> to(from.size());
  for (auto _ : state) {
    std::copy(from.begin(), from.end(), to.begin());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(16 * from.size()));
}
BENCHMARK(Copy)->Unit(benchmark::kMillisecond);

// Arguments: step along x, y and z; missing nodes in a thousand; threads, 0 for the serial form.
void Reduce(benchmark::State& state) {
  const auto& n = kReducedSize;
  std::vector<double> input = Input(n, static_cast<int>(state.range(3)));
  int step[3], offset[3], nOut[3];
  double weights[3][8];
  for (int axis = 0; axis < 3; ++axis) {
    step[axis] = static_cast<int>(state.range(axis));
    VORLPyramidReduceDimension(n[axis], step[axis], &nOut[axis], &offset[axis]);
    VORLPyramidWeight(step[axis], weights[axis], -1.0);
  }
  std::vector<double> output(static_cast<std::size_t>(nOut[0]) * nOut[1] * nOut[2]), total(output.size());
  for (auto _ : state) {
    VORLOMPPyramidReduce(input.data(), n[0], n[1], n[2], step[0], step[1], step[2], weights[0], weights[1], weights[2],
                         offset[0], offset[1], offset[2], nOut[0], nOut[1], nOut[2], output.data(), total.data(), 0.6,
                         static_cast<int>(state.range(4)));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(8 * (input.size() + 2 * output.size())));
}
BENCHMARK(Reduce)
    ->Args({2, 2, 2, 0, 1})
    ->Args({2, 0, 0, 0, 1})
    ->Args({0, 2, 0, 0, 1})
    ->Args({0, 0, 2, 0, 1})
    ->Args({1, 1, 1, 0, 1})
    ->Args({4, 4, 4, 0, 1})
    ->Args({2, 2, 2, 1, 1})
    ->Args({2, 2, 2, 300, 1})
    ->Args({2, 2, 2, 0, 2})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void Expand(benchmark::State& state) {
  const auto& n = kExpandedSize;
  std::vector<double> input = Input(n, static_cast<int>(state.range(3)));
  int step[3], nOut[3];
  double weights[3][8];
  for (int axis = 0; axis < 3; ++axis) {
    step[axis] = static_cast<int>(state.range(axis));
    VORLPyramidExpandDimension(n[axis], step[axis], &nOut[axis]);
    VORLPyramidWeight(step[axis], weights[axis], -1.0);
  }
  std::vector<double> output(static_cast<std::size_t>(nOut[0]) * nOut[1] * nOut[2]), total(output.size());
  for (auto _ : state) {
    VORLOMPPyramidExpand(input.data(), n[0], n[1], n[2], step[0], step[1], step[2], weights[0], weights[1], weights[2],
                         nOut[0], nOut[1], nOut[2], output.data(), total.data(), 0.6, static_cast<int>(state.range(4)));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(8 * (input.size() + 2 * output.size())));
}
BENCHMARK(Expand)
    ->Args({2, 2, 2, 0, 1})
    ->Args({2, 0, 0, 0, 1})
    ->Args({0, 2, 2, 0, 1})
    ->Args({2, 2, 2, 1, 1})
    ->Args({2, 2, 2, 300, 1})
    ->Args({2, 2, 2, 0, 2})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
