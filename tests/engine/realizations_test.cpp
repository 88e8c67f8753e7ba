#include "engine/realizations.hpp"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "engine/philox_random.hpp"

namespace {

using kestrum::Dealing;

// The number of each node, which the place in the path decides, and no kriging.
struct NumbersAlone {
  void Solve(int, const int*, int, kestrum::PathView&) noexcept {}
  template <typename Visit>
  void ForEachNeighbor(int, int, int, const Visit&) noexcept {}
  int Value(int, int, int, double number, double* value) noexcept {
    *value = number;
    return 0;
  }
  int BeforePath(kestrum::RandomSource&, kestrum::PathRanks&, const kestrum::NodeBits&) noexcept { return 0; }
  void AfterPath() noexcept {}
};

struct Collector final : kestrum::RealizationSink {
  explicit Collector(const std::vector<double>& image) : value(image) {}
  void Begin(int) noexcept override {}
  int End(int) noexcept override {
    all.insert(all.end(), value.begin(), value.end());
    return 0;
  }
  const std::vector<double>& value;
  std::vector<double> all;
};

// All realizations, and then the last path.
std::vector<double> Draw(const Dealing& dealing, kestrum::RandomSource& random) {
  constexpr int kRows = 380;  // enough for passes over the grid to be shared
  constexpr int kNodes = kRows * kRows;
  std::vector<int> status(kNodes, 1), path;
  std::vector<double> known;
  for (int i = 0; i < kNodes; ++i) {
    if (i % 7 == 0) {
      status[i] = 0;
      known.push_back(i);
    } else {
      path.push_back(i);
    }
  }
  const kestrum::Problem problem{{kRows, kRows, 1, 1, 1, 1, 0, 0, 0, kNodes, kNodes},
                                 {},
                                 {status.data(), known.data()},
                                 {path.data(), static_cast<int>(path.size()), 0, 0},
                                 {nullptr, nullptr, dealing}};
  std::vector<double> value(kNodes);
  kestrum::Realizations realizations(problem, value.data());
  Collector sink(value);
  NumbersAlone law;
  EXPECT_EQ(realizations.Prepare(false), 0);
  EXPECT_EQ(realizations.Run(4, random, law, sink), 0);
  sink.all.insert(sink.all.end(), path.begin(), path.end());
  return sink.all;
}

// Paths that are made while the realization before is drawn are the same, one with a seed of 0 among them, which goes on
// where that one stops.
TEST(Realizations, DoNotDependOnThreads) {
  kestrum::SeededRandom serial(-7, 7), threaded(-7, 7);
  kestrum::PhiloxRandom serialPhilox(5, 2), threadedPhilox(5, 2);
  EXPECT_EQ(Draw(Dealing::Serial(), serial), Draw(Dealing::Threads(3), threaded));
  EXPECT_EQ(Draw(Dealing::Serial(), serialPhilox), Draw(Dealing::Threads(3), threadedPhilox));
}

}  // namespace
