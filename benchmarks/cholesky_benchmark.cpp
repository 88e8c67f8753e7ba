#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <cstdint>

#include "core/buffer.hpp"
#include "covariance/exact_covariance.hpp"
#include "numeric/cholesky.hpp"
#include "numeric/cholesky_batch.hpp"

// Ordinary kriging systems: exponential covariances between random places, and a row of ones.
namespace {

using kestrum::Buffer;
using kestrum::Dealing;
using kestrum::kLanes;
using kestrum::SimdLevel;

class Places {
 public:
  explicit Places(std::size_t n) : failed_(coordinates_.Allocate(2 * n) != 0) {
    for (double& coordinate : coordinates_) {
      state_ = state_ * 6364136223846793005U + 1442695040888963407U;
      coordinate = static_cast<double>(state_ >> 11) * 0x1p-53 * 10.0;
    }
  }
  bool failed() const { return failed_; }
  double x(std::size_t i) const { return coordinates_[2 * i]; }
  double y(std::size_t i) const { return coordinates_[2 * i + 1]; }
  double Covariance(std::size_t i, std::size_t j) const {
    return std::exp(-0.5 * std::hypot(x(i) - x(j), y(i) - y(j)));
  }

 private:
  std::uint64_t state_ = 1;
  Buffer<double> coordinates_;
  bool failed_;
};

bool LevelIsMissing(benchmark::State& state, SimdLevel level) {
  if (level <= kestrum::BestSimdLevel()) return false;
  state.SkipWithError("level not offered by this machine");
  return true;
}

// Eight systems side by side; items/s is systems per second.
template <bool kSolve>
void BM_Batch(benchmark::State& state) {
  const auto level = static_cast<SimdLevel>(state.range(1));
  if (LevelIsMissing(state, level)) return;
  const int n = static_cast<int>(state.range(0)) - 1;
  const std::size_t size = static_cast<std::size_t>(n) + 1;
  const std::size_t factorSize = kestrum::FactorSize(n, 1);
  const Places places(size * kLanes);
  Buffer<double> a, b, x, explained, factors, work;
  if (places.failed() || a.Allocate(size * size * kLanes, 0.0) != 0 || b.Allocate(size * kLanes, 1.0) != 0 ||
      x.Allocate(size * kLanes) != 0 || explained.Allocate(kLanes) != 0 || factors.Allocate(factorSize * kLanes) != 0 ||
      work.Allocate(kestrum::KrigingBatchWorkSize(n, 1)) != 0) {
    return state.SkipWithError("no memory");
  }
  for (std::size_t lane = 0; lane < kLanes; ++lane) {
    for (std::size_t i = 0; i < size; ++i) {
      for (std::size_t j = 0; j < size - 1; ++j) {
        a[(i * size + j) * kLanes + lane] = i + 1 < size ? places.Covariance(lane * size + i, lane * size + j) : 1.0;
      }
      if (i + 1 < size) b[i * kLanes + lane] = places.Covariance(lane * size + i, lane * size + size - 1);
    }
  }
  for (auto _ : state) {
    unsigned lanes;
    if constexpr (kSolve) {
      lanes = kestrum::SolveKrigingBatch(n, 1, a.data(), b.data(), x.data(), explained.data(), work.data(), level);
    } else {
      lanes = kestrum::FactoriseBatch(n, 1, a.data(), b.data(), factors.data(), x.data(), work.data(), level);
    }
    if (lanes != 0xff) return state.SkipWithError("a lane failed");
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kLanes);
}

// The size counts the row of ones.
BENCHMARK(BM_Batch<true>)->Name("Solve")->ArgNames({"n", "level"})->ArgsProduct({{8, 20, 21, 64, 128}, {0, 1, 2}});
BENCHMARK(BM_Batch<false>)->Name("FactoriseBatch")->ArgNames({"n", "level"})->ArgsProduct({{8, 20, 21, 64, 128}, {2}});

struct DenseSystem {
  explicit DenseSystem(int count) : n(count), places(static_cast<std::size_t>(count)) {
    const std::size_t size = static_cast<std::size_t>(n) + 1;
    ready = !places.failed() && row.Allocate(size, 1.0) == 0 && factor.Allocate(kestrum::FactorSize(n, 1)) == 0 &&
            values.Allocate(size, 1.0) == 0;
  }
  void SetRows() {
    for (int i = 0; i <= n; ++i) {
      for (int j = 0; j <= i && j < n; ++j) {
        const auto row_i = static_cast<std::size_t>(i), row_j = static_cast<std::size_t>(j);
        row[row_j] = i < n ? places.Covariance(row_i, row_j) : 1.0;
      }
      kestrum::SetFactorRow(n, i, row.data(), factor.data());
    }
  }
  int n;
  Places places;
  Buffer<double> row, factor, values;
  bool ready;
};

// One large system. GFMA/s are fused multiply-adds, of which a factorisation has n^3/6 and a target n^2/2.
void BM_Factorise(benchmark::State& state) {
  const int threads = static_cast<int>(state.range(1));
  DenseSystem system(static_cast<int>(state.range(0)));
  if (!system.ready) return state.SkipWithError("no memory");
  const Dealing dealing = threads == 0 ? Dealing::Serial() : Dealing::Threads(threads);
  for (auto _ : state) {
    state.PauseTiming();
    system.SetRows();
    state.ResumeTiming();
    if (!kestrum::Factorise(dealing, system.n, 1, system.factor.data())) return state.SkipWithError("failed");
  }
  state.counters["GFMA/s"] =
      benchmark::Counter(1e-9 * std::pow(system.n, 3.0) / 6.0, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_Factorise)
    ->Name("Factorise")
    ->ArgNames({"n", "threads"})
    ->Args({200, 0})
    ->Args({2000, 0})
    ->Args({2000, 2})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// Targets against one factor; items/s is targets per second.
template <bool kWeights>
void BM_Krige(benchmark::State& state) {
  const auto level = static_cast<SimdLevel>(state.range(2));
  if (LevelIsMissing(state, level)) return;
  DenseSystem system(static_cast<int>(state.range(0)));
  const std::size_t blocks = static_cast<std::size_t>(state.range(1));
  const std::size_t size = static_cast<std::size_t>(system.n) + 1;
  Buffer<double> b, estimate, explained;
  if (!system.ready || b.Allocate(blocks * size * kLanes) != 0 || estimate.Allocate(blocks * kLanes) != 0 ||
      explained.Allocate(blocks * kLanes) != 0) {
    return state.SkipWithError("no memory");
  }
  system.SetRows();
  if (!kestrum::Factorise(Dealing::Serial(), system.n, 1, system.factor.data())) return state.SkipWithError("failed");
  for (auto _ : state) {
    for (double& element : b) element = 0.5;
    kestrum::Krige(system.n, 1, system.factor.data(), system.values.data(), static_cast<std::ptrdiff_t>(blocks),
                   b.data(), estimate.data(), explained.data(), level);
    if constexpr (kWeights) {
      kestrum::KrigingWeights(system.n, 1, system.factor.data(), static_cast<std::ptrdiff_t>(blocks), b.data(), level);
    }
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(blocks) * kLanes);
  state.counters["GFMA/s"] =
      benchmark::Counter(1e-9 * static_cast<double>(blocks) * kLanes * std::pow(system.n, 2.0) / (kWeights ? 1.0 : 2.0),
                         benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_Krige<false>)
    ->Name("Krige")
    ->ArgNames({"n", "blocks", "level"})
    ->ArgsProduct({{20, 64, 200, 2000}, {1, 2, 12}, {2}})
    ->ArgsProduct({{20, 200, 2000}, {12}, {0, 1}});
BENCHMARK(BM_Krige<true>)->Name("Weights")->ArgNames({"n", "blocks", "level"})->ArgsProduct({{20, 200}, {2}, {2}});

// Estimate and variance from all data at the nodes of a grid: the lags and covariances of a few blocks of nodes, and one
// forward pass. items/s is nodes per second.
void BM_AllData(benchmark::State& state, int type) {
  constexpr std::size_t kBlocks = 6;
  constexpr int kAxis = 96;
  const auto level = static_cast<SimdLevel>(state.range(1));
  if (LevelIsMissing(state, level)) return;
  DenseSystem system(static_cast<int>(state.range(0)));
  const std::size_t n = static_cast<std::size_t>(system.n), count = n * kLanes;
  VORL_COVMODELELEM element;
  VORLKestrumInitCovModelElem(&element);
  element.covModelType = static_cast<VORL_COVMODELTYPE>(type);
  element.weightValue = 1.0;
  element.rxValue = element.ryValue = 6.0;
  VORL_COVMODEL model;
  VORLKestrumInitCovModel(&model);
  model.nelem = 1;
  model.covModelElem = &element;
  kestrum::ExactCovariance covariance;
  Buffer<double> x, y, z, b, estimate, explained;
  if (!system.ready || covariance.Allocate(1) != 0 || x.Allocate(count) != 0 || y.Allocate(count) != 0 ||
      z.Allocate(count, 0.0) != 0 || b.Allocate(kBlocks * (count + kLanes)) != 0 ||
      estimate.Allocate(kBlocks * kLanes) != 0 || explained.Allocate(kBlocks * kLanes) != 0) {
    return state.SkipWithError("no memory");
  }
  covariance.Prepare(model, kestrum::ConstantParameters{});
  system.SetRows();
  if (!kestrum::Factorise(Dealing::Serial(), system.n, 1, system.factor.data())) return state.SkipWithError("failed");
  for (auto _ : state) {
    for (int row = 0; row < kAxis; ++row) {
      for (int column = 0; column < kAxis; column += static_cast<int>(kBlocks) * kLanes) {
        for (std::size_t block = 0; block < kBlocks; ++block) {
          const double first = column + static_cast<double>(block) * kLanes;
          for (std::size_t i = 0; i < n; ++i) {
            for (int lane = 0; lane < kLanes; ++lane) {
              x[i * kLanes + lane] = (first + lane) * 0.1 - system.places.x(i);
              y[i * kLanes + lane] = row * 0.1 - system.places.y(i);
            }
          }
          double* const own = b.data() + block * (count + kLanes);
          covariance.Evaluate(static_cast<int>(count), x.data(), y.data(), z.data(), own, level);
          for (int lane = 0; lane < kLanes; ++lane) own[count + lane] = 1.0;
        }
        kestrum::Krige(system.n, 1, system.factor.data(), system.values.data(), kBlocks, b.data(), estimate.data(),
                       explained.data(), level);
        benchmark::ClobberMemory();
      }
    }
  }
  state.SetItemsProcessed(state.iterations() * kAxis * kAxis);
}
void AllDataArguments(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"n", "level"})->ArgsProduct({{200, 2000}, {1, 2}})->Unit(benchmark::kMillisecond);
}
BENCHMARK_CAPTURE(BM_AllData, spherical, COV_SPHERICAL)->Name("AllData/spherical")->Apply(AllDataArguments);
BENCHMARK_CAPTURE(BM_AllData, exponential, COV_EXPONENTIAL)->Name("AllData/exponential")->Apply(AllDataArguments);

}  // namespace
