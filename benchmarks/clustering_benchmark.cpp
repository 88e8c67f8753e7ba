#include <benchmark/benchmark.h>

#include <cstddef>
#include <random>
#include <vector>

#include "analysis/category_order.h"
#include "analysis/clustering.h"
#include "analysis/lloyd.hpp"
#include "analysis/otsu.hpp"
#include "analysis/thresholding.h"

namespace {

// 200,000 points of 8 features around 10 centres, 20 iterations from given centres. Argument: threads; 0: serial form.
void KMeans(benchmark::State& state) {
  constexpr int kPoints = 200000, kFeatures = 8, kClusters = 10;
  std::mt19937 generator(1);
  std::normal_distribution<double> normal;
  std::vector<std::vector<double>> data(kFeatures, std::vector<double>(kPoints));
  std::vector<std::vector<double>> start(kFeatures, std::vector<double>(kClusters));
  for (auto& feature : start) {
    for (double& entry : feature) entry = normal(generator);
  }
  for (int i = 0; i < kPoints; ++i) {
    const auto cluster = generator() % kClusters;
    for (std::size_t f = 0; f < kFeatures; ++f) data[f][i] = start[f][cluster] + normal(generator);
  }
  std::vector<double*> dataRows;
  for (auto& feature : data) dataRows.push_back(feature.data());
  std::vector<int> assignment(kPoints), size(kClusters);
  double inertia = 0.0;
  const int nthreads = static_cast<int>(state.range(0));
  for (auto _ : state) {
    auto center = start;
    std::vector<double*> centerRows;
    for (auto& feature : center) centerRows.push_back(feature.data());
    const auto run = [&](auto function, auto... threads) {
      return function(kPoints, kFeatures, kClusters, 0, dataRows.data(), nullptr, -1.0, nullptr, centerRows.data(),
                      nullptr, assignment.data(), size.data(), &inertia, 20, 0, 0, nullptr, threads...);
    };
    if ((nthreads == 0 ? run(VORLKMeans) : run(VORLOMPKMeans, nthreads)) != 0) state.SkipWithError("failed");
  }
  state.counters["inertia"] = inertia;
}
BENCHMARK(KMeans)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same by the package's form. Argument: threads.
void Lloyd(benchmark::State& state) {
  constexpr int kPoints = 200000, kFeatures = 8, kClusters = 10;
  std::mt19937 generator(1);
  std::normal_distribution<double> normal;
  std::vector<double> start(kClusters * kFeatures), features(std::size_t{kPoints} * kFeatures);
  for (double& entry : start) entry = normal(generator);
  for (std::size_t i = 0; i < kPoints; ++i) {
    const std::size_t cluster = generator() % kClusters;
    for (std::size_t f = 0; f < kFeatures; ++f)
      features[f * kPoints + i] = start[cluster * kFeatures + f] + normal(generator);
  }
  std::vector<int> labels(kPoints);
  double inertia = 0.0;
  for (auto _ : state) {
    auto centers = start;
    if (kestrum::RunLloyd({kPoints, kFeatures, features.data()}, {kClusters, 20, 0.0, 0, 1},
                          kestrum::Dealing::Threads(static_cast<int>(state.range(0))),
                          kestrum::Progress(nullptr, nullptr), centers.data(), labels.data(), &inertia) != 0) {
      state.SkipWithError("failed");
    }
  }
  state.counters["inertia"] = inertia;
}
BENCHMARK(Lloyd)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// One million nodes in five categories. Argument: threads.
void TransitionMatrix(benchmark::State& state) {
  constexpr int kSize = 100, kCategories = 5;
  std::mt19937 generator(1);
  std::vector<int> index(kSize * kSize * kSize);
  for (int& category : index) category = static_cast<int>(generator() % kCategories);
  std::vector<int> counts(kCategories * kCategories);
  std::vector<int*> rows;
  for (std::size_t a = 0; a < kCategories; ++a) rows.push_back(&counts[a * kCategories]);
  for (auto _ : state) {
    VORLOMPUpdateTransitionMatrix(kSize, kSize, kSize, index.data(), rows.data(), TRUE, TRUE, TRUE,
                                  static_cast<int>(state.range(0)));
  }
}
BENCHMARK(TransitionMatrix)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

struct Values {
  explicit Values(std::size_t n) : values(n), classes(n) {
    std::mt19937 generator(1);
    std::normal_distribution<double> normal;
    for (double& value : values) value = normal(generator);
  }
  int size() const { return static_cast<int>(values.size()); }
  std::vector<double> values, classes;
};

void OtsuByAnnealing(benchmark::State& state) {
  Values v(10000);
  double limits[5];
  VORL_RANDCONTEXT randContext;
  for (auto _ : state) {
    VORLInitRandContext(&randContext);
    VORLDoubleRand(1, &randContext);
    VORLOtsuThresholding(v.size(), v.values.data(), 4, limits, v.classes.data(), 1000, 1.0, 2, &randContext, FALSE);
  }
}
BENCHMARK(OtsuByAnnealing)->Unit(benchmark::kMillisecond);

// Argument: classes.
void OtsuCuts(benchmark::State& state) {
  Values v(1000000);
  const int nclass = static_cast<int>(state.range(0));
  for (auto _ : state) {
    kestrum::OtsuCuts found{v.classes.data()};
    if (kestrum::FindOtsuCuts(v.size(), v.values.data(), nclass, kestrum::Dealing::Serial(),
                              kestrum::Progress(nullptr, nullptr), &found) != 0) {
      state.SkipWithError("failed");
    }
  }
}
BENCHMARK(OtsuCuts)->Arg(2)->Arg(4)->Unit(benchmark::kMillisecond);

void OtsuOverPreClasses(benchmark::State& state) {
  Values v(100000);
  double thresholds[3];
  for (auto _ : state) {
    VORLOtsuThresholdingPreCateg(v.size(), v.values.data(), 100, 4, thresholds, v.classes.data(), FALSE);
  }
}
BENCHMARK(OtsuOverPreClasses)->Unit(benchmark::kMillisecond);

void PdfThresholding(benchmark::State& state) {
  Values v(100000);
  double thresholds[3];
  double pdf[] = {0.25, 0.25, 0.25, 0.25};
  for (auto _ : state) VORLPdfThresholding(v.size(), v.values.data(), 4, pdf, thresholds, v.classes.data());
}
BENCHMARK(PdfThresholding)->Unit(benchmark::kMillisecond);

}  // namespace
