#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "core/buffer.hpp"
#include "numeric/gmres.hpp"
#include "numeric/gmres_batch.hpp"

// Kriging systems of the engine: exponential covariances between random positions, and a row of ones.
namespace {

using kestrum::kLanes;

class Uniform {
 public:
  double operator()() {
    state_ = state_ * 6364136223846793005U + 1442695040888963407U;
    return static_cast<double>(state_ >> 11) * 0x1p-53;
  }

 private:
  std::uint64_t state_ = 1;
};

struct Systems {
  explicit Systems(int n, int lanes = kLanes) : size(n), limits{1e-10, n > 100 ? 100 : n, n > 100 ? 10000 : 1} {
    const std::size_t count = static_cast<std::size_t>(n);
    if (single.Allocate(count * count) != 0 || matrix.Allocate(count * count * lanes) != 0 ||
        rhs.Allocate(count * lanes) != 0 || guess.Allocate(count * lanes) != 0 ||
        solution.Allocate(count * lanes) != 0 || position.Allocate(count * 2) != 0 ||
        work.Allocate(kestrum::GmresBatchWorkSize(n, limits.restart, lanes)) != 0) {
      return;
    }
    Uniform uniform;
    for (int lane = 0; lane < lanes; ++lane) {
      for (double& coordinate : position) coordinate = 10.0 * uniform();
      for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t j = 0; j < count; ++j) single[i * count + j] = Entry(i, j);
        rhs[i * lanes + lane] = i + 1 == count ? 1.0 : 0.5 * uniform();
        guess[i * lanes + lane] = uniform();
      }
      for (std::size_t k = 0; k < count * count; ++k) matrix[k * lanes + lane] = single[k];
    }
    ready = true;
  }

  double Entry(std::size_t i, std::size_t j) const {
    const std::size_t last = static_cast<std::size_t>(size) - 1;
    if (i == last || j == last) return i == j ? 0.0 : 1.0;
    return std::exp(-0.5 * std::hypot(position[2 * i] - position[2 * j], position[2 * i + 1] - position[2 * j + 1]));
  }

  void TakeGuess() {
    for (std::size_t i = 0; i < guess.size(); ++i) solution[i] = guess[i];
  }

  int size;
  kestrum::GmresLimits limits;
  kestrum::Buffer<double> single, matrix, rhs, guess, solution, position, work;
  bool ready = false;
};

// items/s is systems per second in all of them.

void BM_Plain(benchmark::State& state) {
  Systems systems(static_cast<int>(state.range(0)));
  if (!systems.ready) return state.SkipWithError("no memory");
  for (auto _ : state) {
    systems.TakeGuess();
    benchmark::DoNotOptimize(kestrum::Gmres(systems.limits, systems.size, systems.single.data(), systems.size,
                                            systems.rhs.data(), systems.solution.data(), systems.work.data()));
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations());
}

// Reports systems per second of a batch.
template <typename Solve>
void TimeBatch(benchmark::State& state, int lanes, const Solve& solve) {
  const auto level = static_cast<kestrum::SimdLevel>(state.range(1));
  if (level > kestrum::BestSimdLevel()) return state.SkipWithError("level not offered by this machine");
  Systems systems(static_cast<int>(state.range(0)), lanes);
  if (!systems.ready) return state.SkipWithError("no memory");
  for (auto _ : state) {
    systems.TakeGuess();
    benchmark::DoNotOptimize(solve(systems, level));
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * lanes);
}

template <int kBatch>
void BM_Batch(benchmark::State& state) {
  TimeBatch(state, kBatch, [](Systems& s, kestrum::SimdLevel level) {
    return kestrum::GmresBatch(s.limits, s.size, kBatch, s.matrix.data(), s.rhs.data(), s.solution.data(),
                               s.work.data(), level);
  });
}

void BM_Shared(benchmark::State& state) {
  TimeBatch(state, kLanes, [](Systems& s, kestrum::SimdLevel level) {
    return kestrum::GmresBatchShared(s.limits, s.size, s.single.data(), s.size, s.rhs.data(), s.solution.data(),
                                     s.work.data(), level);
  });
}

BENCHMARK(BM_Plain)->Arg(1)->Arg(2)->Arg(5)->Arg(12)->Arg(20)->Arg(21)->Arg(40)->Arg(100)->Arg(150);
BENCHMARK(BM_Batch<kLanes>)->ArgNames({"n", "level"})->ArgsProduct({{1, 2, 5, 12, 20, 21, 32, 40, 64, 100}, {0, 1, 2}});
BENCHMARK(BM_Batch<kestrum::kWideBatch>)
    ->ArgNames({"n", "level"})
    ->ArgsProduct({{1, 2, 5, 12, 20, 21, 32, 40, 64, 100}, {0, 1, 2}});
BENCHMARK(BM_Shared)->ArgNames({"n", "level"})->ArgsProduct({{5, 20, 100, 150}, {0, 1, 2}});

}  // namespace
