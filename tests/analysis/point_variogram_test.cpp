// What only callers from C++ can see of the variogram of points: failing allocations, progress and the abort flag. Its
// numbers are tested through Python, against brute force, and by the random trials.

#include "analysis/point_variogram.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <vector>

#include "support/allocation_failure.hpp"

namespace {

using kestrum::Dealing;

struct Input {
  explicit Input(int n) {
    std::mt19937 generator(1);
    for (int i = 0; i < 3 * n; ++i) numbers.push_back(generator() * 1e-9);
    data = {n, 2, numbers.data(), numbers.data() + 2 * n, nullptr};
    options = {0.5, 9, kestrum::VariogramEstimator::kMatheron, &cone, 1};
  }

  int Compute(const Dealing& dealing, VORL_PROGRESSMONITOR* monitor, kestrum::ProgressCallback callback) {
    return kestrum::ComputePointVariogram(data, options, dealing, {monitor, callback},
                                          {distance, gamma, pairs, &coincident});
  }

  std::vector<double> numbers;
  kestrum::DirectionCone cone{{0.6, 0.8, 0.0}, 0.5, std::numeric_limits<double>::infinity()};
  kestrum::ScatteredValues data{};
  kestrum::PointVariogramOptions options{};
  double distance[9], gamma[9];
  std::int64_t pairs[9], coincident;
};

TEST(PointVariogram, EachAllocationMayFail) {
  Input input(300);
  kestrum_test::ForEachFailingAllocation([&] { return input.Compute(Dealing::Serial(), nullptr, nullptr); });
}

TEST(PointVariogram, ReportsProgressAndStops) {
  Input input(6000);
  for (const Dealing& dealing : {Dealing::Serial(), Dealing::Threads(3)}) {
    VORL_PROGRESSMONITOR monitor;
    VORLInitProgressMonitor(&monitor);
    EXPECT_EQ(input.Compute(dealing, &monitor, nullptr), 0);
    EXPECT_EQ(monitor.allRealizationProgress, 100);
    VORLInitProgressMonitor(&monitor);
    const auto stopAtThird = [](VORL_PROGRESSMONITOR* own) {
      if (own->allRealizationProgress > 30) own->abortedJobFlag = TRUE;
      return 0;
    };
    EXPECT_EQ(input.Compute(dealing, &monitor, stopAtThird), kestrum::kAborted);
    VORLInitProgressMonitor(&monitor);
    EXPECT_EQ(input.Compute(dealing, &monitor, [](VORL_PROGRESSMONITOR*) { return -7; }), -7);
  }
}

}  // namespace
