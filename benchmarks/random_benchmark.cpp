#include <benchmark/benchmark.h>

#include <cstddef>
#include <vector>

#include "numeric/random.h"
#include "numeric/random.hpp"
#include "numeric/special_functions.h"
#include "numeric/special_functions.hpp"

namespace {

void Draw(benchmark::State& state) {
  VORL_RANDCONTEXT context;
  VORLInitRandContext(&context);
  VORLDoubleRand(1, &context);
  for (auto _ : state) benchmark::DoNotOptimize(VORLDoubleRand(0, &context));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Draw);

// What a simulated node needs: a new seed, and the draw after the discarded one.
void SeedAndSecondDraw(benchmark::State& state) {
  VORL_RANDCONTEXT context;
  VORLInitRandContext(&context);
  int seed = 0;
  for (auto _ : state) {
    VORLDoubleRand(++seed, &context);
    benchmark::DoNotOptimize(VORLDoubleRand(0, &context));
  }
}
BENCHMARK(SeedAndSecondDraw);

// The same for a chunk of nodes at once.
void SecondDrawsWithoutContext(benchmark::State& state) {
  constexpr int kChunk = 64;
  double number[kChunk];
  int seed = 1;
  for (auto _ : state) {
    kestrum::DrawAfterSeeding(seed, 1, kChunk, number);
    benchmark::DoNotOptimize(number);
    seed += kChunk;
  }
  state.SetItemsProcessed(state.iterations() * kChunk);
}
BENCHMARK(SecondDrawsWithoutContext);

void Shuffle(benchmark::State& state) {
  const auto n = static_cast<int>(state.range(0));
  std::vector<int> list(static_cast<std::size_t>(n));
  VORL_RANDCONTEXT context;
  VORLInitRandContext(&context);
  VORLDoubleRand(1, &context);
  for (auto _ : state) {
    VORLRandomizeListOfInt(n, list.data(), &context);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(Shuffle)->Arg(100000)->Arg(10000000);

// The argument runs over the range of a Matern covariance; the first argument of the benchmark is its upper end.
double NextArgument(double x, double end) { return x + 0.01 < end ? x + 0.01 : end - 2.0 + 0.005; }

void BesselIAndK(benchmark::State& state) {
  const auto end = static_cast<double>(state.range(0));
  double x = end;
  for (auto _ : state) {
    double i, k, iPrime, kPrime;
    x = NextArgument(x, end);
    VORLbessik(x, 1.3, &i, &k, &iPrime, &kPrime);
    benchmark::DoNotOptimize(k);
  }
}
BENCHMARK(BesselIAndK)->Arg(2)->Arg(4)->Arg(20);

void BesselKOnly(benchmark::State& state) {
  const auto end = static_cast<double>(state.range(0));
  double x = end;
  const kestrum::BesselK besselK(1.3);
  for (auto _ : state) {
    x = NextArgument(x, end);
    benchmark::DoNotOptimize(besselK(x));
  }
}
BENCHMARK(BesselKOnly)->Arg(2)->Arg(4)->Arg(20);

}  // namespace
