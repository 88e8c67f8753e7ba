#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <vector>

#include "engine/philox_random.hpp"
#include "engine/simulation.hpp"
#include "neighborhood/search_neighborhood.hpp"
#include "support/run_builder.hpp"

namespace {

using namespace kestrum_test;
using namespace kestrum;

// The known answers of the generator's authors.
TEST(Philox, KnownAnswers) {
  const PhiloxBlock zeros = {0x6627e8d5, 0xe169c58d, 0xbc57ac4c, 0x9b00dbd8};
  const PhiloxBlock ones = {0x408f276d, 0x41c83b0e, 0xa20bc7c6, 0x6d5451fd};
  const PhiloxBlock digits = {0xd16cfe09, 0x94fdcceb, 0x5001e420, 0x24126ea1};
  EXPECT_EQ(Philox({0, 0, 0, 0}, 0), zeros);
  EXPECT_EQ(Philox({~0u, ~0u, ~0u, ~0u}, ~std::uint64_t{0}), ones);
  EXPECT_EQ(Philox({0x243f6a88, 0x85a308d3, 0x13198a2e, 0x03707344}, 0x299f31d0a4093822), digits);
}

TEST(Philox, ShufflesAreUniform) {
  std::map<std::vector<int>, int> count;
  PhiloxRandom random(17, 0);
  for (int r = 0; r < 24000; ++r) {
    std::vector<int> nodes = {0, 1, 2, 3};
    random.StartRealization(r);
    EXPECT_EQ(random.Shuffle(nodes.data(), 4), 0);
    ++count[nodes];
  }
  double chiSquare = 0.0;
  for (const auto& [order, n] : count) chiSquare += (n - 1000.0) * (n - 1000.0) / 1000.0;
  EXPECT_EQ(count.size(), 24u);
  EXPECT_LT(chiSquare, 56.0);  // 23 degrees of freedom, exceeded once in 7,000 seeds
  // Longer than what is drawn ahead: still all nodes.
  std::vector<int> many(1000);
  for (int i = 0; i < 1000; ++i) many[i] = i;
  const std::vector<int> sorted = many;
  EXPECT_EQ(random.Shuffle(many.data(), 1000), 0);
  EXPECT_NE(many, sorted);
  std::sort(many.begin(), many.end());
  EXPECT_EQ(many, sorted);
}

// Realizations on a line of nodes, conditional to data at some, each node seeing all others: their law is Gaussian with
// the moments of simple kriging.
struct LineSimulation : RealizationSink {
  static constexpr int kNodes = 9;
  std::vector<std::vector<real>> values;
  std::vector<real> value = std::vector<real>(kNodes);

  void Begin(int) noexcept override {}
  int End(int) noexcept override {
    values.push_back(value);
    return 0;
  }

  void Run(std::uint64_t seed, int first, int count, Dealing dealing) {
    VORL_COVMODEL covModel = MakeModel({{COV_EXPONENTIAL, 1.0, 6.0, 6.0, 6.0}});
    const VORL_GRID grid = MakeGrid(kNodes, 1, 1);
    ModelSetup setup;
    setup.model.covModel = &covModel;
    setup.model.sill = 1.0;
    NeighborListOwner owner;
    VORL_RANDCONTEXT context;
    VORLInitRandContext(&context);
    ASSERT_EQ(BuildSearchNeighborhood(grid, setup.model, nullptr, {5.0}, 1, owner.offsets(), &context), 0);
    ASSERT_EQ(owner.Finish(grid, kNodes, Dealing::Serial(), setup.neighbors), 0);
    std::vector<int> status(kNodes, 1), path = {2, 0, 1, 3, 4, 5, 6, 7, 8};
    status[2] = 0;
    const real datum = 1.5;
    const Problem problem{grid,
                          {&setup, 1},
                          {status.data(), &datum},
                          {path.data(), kNodes, 1, 1},
                          {nullptr, nullptr, dealing},
                          {Solver::kFactorising}};
    PhiloxRandom random(seed, static_cast<std::uint32_t>(first));
    const LocalLaw law(nullptr, 0.0, LocalLaw::Variance::kOfModel, 1.0, nullptr);
    EXPECT_EQ(Simulate(problem, law, {1, 1}, count, random, value.data(), *this), 0);
    VORLKestrumFreeCovModel(&covModel);
  }
};

TEST(PhiloxSimulation, EnsembleHasTheConditionalLaw) {
  constexpr int kCount = 20000, kNodes = LineSimulation::kNodes;
  LineSimulation simulation;
  simulation.Run(4, 0, kCount, Dealing::Serial());
  const auto covariance = [](int i, int j) { return std::exp(-3.0 * std::abs(i - j) / 6.0); };
  const auto expectedMean = [&](int i) { return 1.5 * covariance(i, 2); };
  const auto expected = [&](int i, int j) { return covariance(i, j) - covariance(i, 2) * covariance(2, j); };
  for (int i = 0; i < kNodes; ++i) {
    double mean = 0.0;
    for (const auto& v : simulation.values) mean += v[i] / kCount;
    EXPECT_NEAR(mean, expectedMean(i), 4.5 * std::sqrt(expected(i, i) / kCount) + 1e-9) << i;
    for (int j = 0; j <= i; ++j) {
      double product = 0.0, next = 0.0;  // of the same realization, and of successive ones
      for (int r = 0; r < kCount; ++r) {
        const double u = simulation.values[r][i] - expectedMean(i);
        product += u * (simulation.values[r][j] - expectedMean(j)) / kCount;
        next += u * (simulation.values[(r + 1) % kCount][j] - expectedMean(j)) / kCount;
      }
      const double variance = expected(i, i) * expected(j, j);
      EXPECT_NEAR(product, expected(i, j), 4.5 * std::sqrt((variance + std::pow(expected(i, j), 2)) / kCount))
          << i << j;
      EXPECT_NEAR(next, 0.0, 4.5 * std::sqrt(variance / kCount) + 1e-9) << i << j;
    }
  }
  // Any realization alone, on any number of threads, is the same.
  for (const int nthreads : {1, 2, 3}) {
    LineSimulation alone;
    alone.Run(4, 777, 2, Dealing::Threads(nthreads));
    EXPECT_EQ(alone.values[0], simulation.values[777]);
    EXPECT_EQ(alone.values[1], simulation.values[778]);
  }
}

}  // namespace
