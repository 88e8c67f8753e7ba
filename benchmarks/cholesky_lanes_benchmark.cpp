// Factorisation of kriging systems side by side, and targets with the factors: systems or targets per second.

#include <benchmark/benchmark.h>

#include <cmath>

#include "core/buffer.hpp"
#include "numeric/cholesky_lanes.hpp"

namespace {

using kestrum::kLanes;

struct Workload {
  int n;
  kestrum::Buffer<double> a, factor, work, values, b, right;
  double estimate[4 * kLanes], explained[4 * kLanes];

  explicit Workload(int count) : n(count) {
    const auto rows = static_cast<std::size_t>(n + 1);
    if (a.Allocate(kestrum::PackedLanesSize(n + 1)) != 0 || factor.Allocate(a.size()) != 0 ||
        work.Allocate(4 * rows * kLanes) != 0 || values.Allocate(rows * kLanes, 1.0) != 0 ||
        b.Allocate(4 * rows * kLanes, 0.5) != 0 || right.Allocate(b.size()) != 0) {
      std::abort();
    }
    for (int i = 0; i <= n; ++i) {
      for (int j = 0; j <= i; ++j) {
        for (int lane = 0; lane < kLanes; ++lane) {
          a[(i * (i + 1) / 2 + j) * kLanes + lane] = i == n ? 1.0 : std::exp(-0.1 * (lane + 1) * (i - j));
        }
      }
    }
    Factorise();
  }
  void Factorise() {
    std::copy_n(a.data(), a.size(), factor.data());
    benchmark::DoNotOptimize(kestrum::FactoriseLanes(n, 1, nullptr, factor.data(), work.data()));
  }
  void Krige(int nround) {
    std::copy_n(b.data(), nround * (n + 1) * kLanes, right.data());
    kestrum::KrigeLanes(n + 1, factor.data(), values.data(), nround, right.data(), estimate, explained);
    benchmark::DoNotOptimize(estimate[0]);
  }
};

void Factorise(benchmark::State& state) {
  Workload work(static_cast<int>(state.range(0)));
  for (auto _ : state) work.Factorise();
  state.SetItemsProcessed(state.iterations() * kLanes);
}
BENCHMARK(Factorise)->Arg(20)->Arg(64)->Arg(128);

void Krige(benchmark::State& state) {
  Workload work(static_cast<int>(state.range(0)));
  const int nround = static_cast<int>(state.range(1));
  for (auto _ : state) work.Krige(nround);
  state.SetItemsProcessed(state.iterations() * kLanes * nround);
}
BENCHMARK(Krige)->ArgsProduct({{20, 64, 128}, {1, 2, 4}});

}  // namespace
