// Covariances per second, for each type of elementary model and each evaluator, and elementary functions beside the C
// library's.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "covariance/cov_evaluation.h"
#include "covariance/exact_covariance.hpp"
#include "numeric/elementary.hpp"

namespace {

// About the neighbours of one kriging system.
constexpr int kLags = 24;

struct Workload {
  VORL_COVMODELELEM elem;
  VORL_COVMODEL model;
  std::vector<real> dx, dy, dz, cov;
  real rows[3][3];
  real* matrix[3] = {rows[0], rows[1], rows[2]};

  explicit Workload(int type) : dx(kLags), dy(kLags), dz(kLags), cov(kLags) {
    VORLKestrumInitCovModelElem(&elem);
    elem.covModelType = static_cast<VORL_COVMODELTYPE>(type);
    elem.weightValue = 1.0;
    elem.rxValue = 40.0;
    elem.ryValue = 20.0;
    elem.rzValue = 10.0;
    elem.sValue = 1.3;
    VORLKestrumInitCovModel(&model);
    model.nelem = 1;
    model.covModelElem = &elem;
    model.angle1Value = 30.0;
    VORLComputeRotationMatrix(30.0, 10.0, 0.0, matrix);
    for (int k = 0; k < kLags; ++k) {
      dx[k] = k % 7 - 3;
      dy[k] = k % 5 - 2;
      dz[k] = 1 + k % 3;
    }
  }
};

enum Evaluator { kFixParamNoRotation, kFixParam, kAtNodeNoRotation, kAtNode };
constexpr const char* kEvaluatorNames[] = {"FixParamNoRotation", "FixParam", "NoRotation", "AtNode"};

void Evaluate(benchmark::State& state, int type, Evaluator evaluator) {
  Workload w(type);
  real *dx = w.dx.data(), *dy = w.dy.data(), *dz = w.dz.data(), *cov = w.cov.data();
  for (auto _ : state) {
    switch (evaluator) {
      case kFixParamNoRotation:
        VORLKestrumEvaluateCovModelFixParamNoRotation(&w.model, kLags, dx, dy, dz, cov);
        break;
      case kFixParam:
        VORLKestrumEvaluateCovModelFixParam(&w.model, TRUE, w.matrix, kLags, dx, dy, dz, cov);
        break;
      case kAtNodeNoRotation:
        VORLKestrumEvaluateCovModelNoRotation(&w.model, 0, kLags, dx, dy, dz, cov);
        break;
      case kAtNode:
        VORLKestrumEvaluateCovModel(&w.model, 0, TRUE, w.matrix, kLags, dx, dy, dz, cov);
        break;
    }
    benchmark::DoNotOptimize(cov);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kLags);
}

void EvaluateExact(benchmark::State& state, int type, real s) {
  Workload w(type);
  w.elem.sValue = s;
  kestrum::ExactCovariance covariance;
  if (covariance.Allocate(1) != 0) return state.SkipWithError("no memory");
  covariance.Prepare(w.model, kestrum::ConstantParameters{});
  const int n = static_cast<int>(state.range(0));
  std::vector<real> dx(n), dy(n), dz(n), cov(n);
  for (int k = 0; k < n; ++k) {
    dx[k] = w.dx[k % kLags];
    dy[k] = w.dy[k % kLags];
    dz[k] = w.dz[k % kLags];
  }
  for (auto _ : state) {
    covariance.Evaluate(n, dx.data(), dy.data(), dz.data(), cov.data());
    benchmark::DoNotOptimize(cov.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * n);
}

constexpr int kArguments = 1024;

void FillArguments(double* x) {
  for (int k = 0; k < kArguments; ++k) x[k] = 0.01 + 0.003 * k;
}

void Elementary(benchmark::State& state, kestrum::Elementary function) {
  std::vector<double> x(kArguments);
  for (auto _ : state) {
    FillArguments(x.data());
    kestrum::Evaluate(function, kArguments, x.data(), 1.3);
    benchmark::DoNotOptimize(x.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kArguments);
}
BENCHMARK_CAPTURE(Elementary, exp, kestrum::Elementary::kExp);
BENCHMARK_CAPTURE(Elementary, log, kestrum::Elementary::kLog);
BENCHMARK_CAPTURE(Elementary, pow, kestrum::Elementary::kPow);
BENCHMARK_CAPTURE(Elementary, sin, kestrum::Elementary::kSinPi);

template <typename Function>
void OfLibrary(benchmark::State& state, const Function& function) {
  std::vector<double> x(kArguments);
  for (auto _ : state) {
    FillArguments(x.data());
    std::transform(x.begin(), x.end(), x.begin(), function);
    benchmark::DoNotOptimize(x.data());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kArguments);
}
BENCHMARK_CAPTURE(OfLibrary, exp, [](double x) { return std::exp(x); });
BENCHMARK_CAPTURE(OfLibrary, log, [](double x) { return std::log(x); });
BENCHMARK_CAPTURE(OfLibrary, pow, [](double x) { return std::pow(x, 1.3); });
BENCHMARK_CAPTURE(OfLibrary, sin, [](double x) { return std::sin(x); });

void PrepareExact(benchmark::State& state) {
  Workload w(COV_MATERN);
  kestrum::ExactCovariance covariance;
  if (covariance.Allocate(1) != 0) return state.SkipWithError("no memory");
  for (auto _ : state) {
    w.elem.sValue = w.elem.sValue == 1.3 ? 1.4 : 1.3;
    covariance.Prepare(w.model, kestrum::ConstantParameters{});
    benchmark::DoNotOptimize(covariance);
  }
}
BENCHMARK(PrepareExact)->Name("PrepareExact/matern");

const bool kRegistered = [] {
  constexpr const char* kTypeNames[] = {"nugget", "spherical", "exponential", "gaussian", "linear", "cubic",
                                        "sinus",  "gamma",     "power",       "expgen",   "matern"};
  for (int type = COV_NUGGET; type <= COV_MATERN; ++type) {
    for (const Evaluator evaluator : {kFixParamNoRotation, kFixParam, kAtNodeNoRotation, kAtNode}) {
      const std::string name = std::string("Evaluate/") + kTypeNames[type] + "/" + kEvaluatorNames[evaluator];
      benchmark::RegisterBenchmark(name.c_str(), Evaluate, type, evaluator);
    }
    const std::string name = std::string("EvaluateExact/") + kTypeNames[type];
    benchmark::RegisterBenchmark(name.c_str(), EvaluateExact, type, 1.3)->Arg(kLags)->Arg(1024);
    if (type == COV_MATERN) benchmark::RegisterBenchmark((name + "_3/2").c_str(), EvaluateExact, type, 1.5)->Arg(1024);
  }
  return true;
}();

void VariogramRange(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  std::vector<real> v(static_cast<std::size_t>(n) * n);
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = static_cast<real>(i * 7919 % 1009);
  real rx, ry, rz;
  for (auto _ : state) {
    VORLComputeVariogramRangeApprox(-1.0, n, n, 1, v.data(), &rx, &ry, &rz);
    benchmark::DoNotOptimize(rx);
  }
}
BENCHMARK(VariogramRange)->Arg(256)->Arg(1024)->Unit(benchmark::kMillisecond);

}  // namespace
