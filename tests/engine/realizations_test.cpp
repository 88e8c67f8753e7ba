#include "engine/realizations.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <numeric>
#include <optional>
#include <thread>
#include <vector>

#include "engine/philox_random.hpp"
#include "engine/realization_team.hpp"
#include "support/allocation_failure.hpp"

namespace {

using kestrum::Dealing;

// The number of each node and a part of the values of the nodes next to it in the grid that come before. Some threads
// stop for a while before they have solved a chunk, as they would on busy cores.
class Neighbors {
 public:
  Neighbors(const kestrum::Problem& problem, const double* value, std::atomic<int>& nsolved) noexcept
      : problem_(problem), value_(value), nsolved_(nsolved) {}

  void Solve(int thread, const int* nodes, int count, kestrum::PathView&) noexcept {
    last_[thread] = count;
    nsolved_ += count;
    if (problem_.dealing().threaded() && nodes[0] % 32 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  void Discard(int thread) noexcept { nsolved_ -= last_[thread]; }
  template <typename Visit>
  void ForEachNeighbor(int, int, int node, const Visit& visit) noexcept {
    for (const int neighbor : {node - 1, node + 1}) {
      if (neighbor >= 0 && neighbor < problem_.grid.nxyz && (*ranks_)[neighbor] < (*ranks_)[node]) visit(neighbor);
    }
  }
  int Value(int thread, int i, int node, double number, double* value) noexcept {
    double sum = number;
    ForEachNeighbor(thread, i, node, [&](int neighbor) { sum += 0.25 * value_[neighbor]; });
    *value = sum;
    return 0;
  }
  int BeforePath(kestrum::RandomSource&, kestrum::PathRanks& ranks, const kestrum::NodeBits&) noexcept {
    ranks_ = &ranks;
    return 0;
  }
  void AfterPath() noexcept {}

 private:
  const kestrum::Problem& problem_;
  const double* value_;
  std::atomic<int>& nsolved_;
  const kestrum::PathRanks* ranks_ = nullptr;
  int last_[8] = {};
};

struct Collector final : kestrum::RealizationSink {
  Collector(const std::vector<double>& image, int failsAt) : value(image), failing(failsAt) {}
  void Begin(int r) noexcept override { EXPECT_EQ(r, next); }
  int End(int r) noexcept override {
    EXPECT_EQ(r, next++);
    all.insert(all.end(), value.begin(), value.end());
    return r == failing ? -7 : 0;
  }
  const std::vector<double>& value;
  int failing;
  int next = 0;
  std::vector<double> all;
};

struct Drawn {
  int status;
  int nsolved;
  std::vector<double> all;
  bool operator==(const Drawn&) const = default;
};

// All realizations of a square grid, some of whose nodes are known.
Drawn Draw(int rows, int count, const Dealing& dealing, kestrum::RandomSource& random, int failing = -1) {
  const int nodes = rows * rows;
  std::vector<int> status(nodes, 1), path;
  std::vector<double> known;
  for (int i = 0; i < nodes; ++i) {
    if (i % 7 == 0) {
      status[i] = 0;
      known.push_back(i);
    } else {
      path.push_back(i);
    }
  }
  kestrum::ModelSetup setup;
  setup.neighbors.limit = 200;  // worth several threads
  const kestrum::Problem problem{{rows, rows, 1, 1, 1, 1, 0, 0, 0, nodes, nodes},
                                 {&setup, 1},
                                 {status.data(), known.data()},
                                 {path.data(), static_cast<int>(path.size()), 0, 0},
                                 {nullptr, nullptr, dealing}};
  std::vector<double> value(nodes);
  Collector sink(value, failing);
  std::atomic<int> nsolved{0};
  const auto makeLaw = [&](const kestrum::Problem& part, double* values, std::optional<Neighbors>& law) noexcept {
    law.emplace(part, values, nsolved);
    return 0;
  };
  const int result = kestrum::DrawRealizations<Neighbors>(problem, count, false, random, value.data(), sink, makeLaw);
  return {result, nsolved, sink.all};
}

// Small grids, whose realizations are drawn side by side, and large ones, whose paths are shared and made while the
// realization before is drawn. One realization has a seed of 0, which goes on where the one before stops. Chunks of
// threads that stop are drawn by others, and counted once.
TEST(Realizations, DoNotDependOnThreads) {
  const struct {
    int rows, count, threads;
  } cases[] = {{380, 4, 3}, {40, 1, 3}, {40, 20, 3}, {40, 3, 2}, {40, 4, 4}, {200, 4, 2}};
  for (const auto& [rows, count, threads] : cases) {
    SCOPED_TRACE(rows * 100 + count);
    kestrum::SeededRandom withZero(-7, 7), withZeroToo(-7, 7), seeded(5, rows), seededToo(5, rows);
    kestrum::PhiloxRandom philox(5, 2), philoxToo(5, 2);
    EXPECT_EQ(Draw(rows, count, Dealing::Serial(), withZero),
              Draw(rows, count, Dealing::Threads(threads), withZeroToo));
    EXPECT_EQ(Draw(rows, count, Dealing::Serial(), seeded), Draw(rows, count, Dealing::Threads(threads), seededToo));
    EXPECT_EQ(Draw(rows, count, Dealing::Serial(), philox), Draw(rows, count, Dealing::Threads(threads), philoxToo));
  }
}

// A sink that fails gets no further realization.
TEST(Realizations, EndWhereTheSinkFails) {
  for (const Dealing& dealing : {Dealing::Serial(), Dealing::Threads(3)}) {
    kestrum::PhiloxRandom random(5, 2);
    const Drawn drawn = Draw(40, 12, dealing, random, 4);
    EXPECT_EQ(drawn.status, -7);
    EXPECT_EQ(drawn.all.size(), 5u * 40 * 40);
  }
}

// Nothing but the path that is made ahead can be done without.
TEST(Realizations, SurviveFailingAllocations) {
  for (const int count : {1, 6}) {
    kestrum_test::ForEachFailingAllocation([&] {
      kestrum::PhiloxRandom random(5, 2);
      return Draw(40, count, Dealing::Threads(2), random).status;
    });
  }
}

}  // namespace
