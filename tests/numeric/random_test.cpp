#include "numeric/random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <numeric>
#include <vector>

#include "numeric/random.hpp"
#include "numeric/weight_sums.hpp"
#include "support/allocation_failure.hpp"
#include "support/seeded.hpp"

namespace {

using kestrum_test::Seeded;

// Draws number 0 (the seeding call), 36, 100 and 999, from an independent rendering in whole-number arithmetic.
// Seeds from 715827882 on wrap in the seeding.
TEST(Random, SequencesAreThoseOfTheReference) {
  constexpr int kDraws[] = {0, 36, 100, 999};
  const struct {
    int seed;
    double expected[4];
  } rows[] = {
      {0, {0x1.592404032e848p-3, 0x1.57c34f5f86a68p-2, 0x1.9d65b1d751828p-2, 0x1.3796dc15c2758p-1}},
      {12345, {0x1.3f62ae0df099cp-1, 0x1.579c5213b4098p-3, 0x1.21e9253753cf8p-1, 0x1.fdb2ed6ce3f18p-2}},
      {715827882, {0x1.1f353690014f1p-4, 0x1.1ca50342810fcp-2, 0x1.726242fb8f7a9p-1, 0x1.54a066bd7178bp-4}},
      {INT_MAX, {0x1.cc3bc375deb45p-1, 0x1.73d51a6b65bfcp-1, 0x1.581f579511829p-1, 0x1.7be5f8a401afcp-2}},
      {INT_MIN, {0x1.f8c29f5237181p-4, 0x1.bca4a103458c8p-3, 0x1.17fb229b60409p-1, 0x1.a9e4629054f27p-2}},
  };
  for (const auto& row : rows) {
    VORL_RANDCONTEXT context;
    VORLInitRandContext(&context);
    int next = 0;
    for (const int draw : kDraws) {
      double value = 0.0;
      for (; next <= draw; ++next) value = VORLDoubleRand(next == 0 ? row.seed : 0, &context);
      EXPECT_EQ(value, row.expected[std::find(kDraws, kDraws + 4, draw) - kDraws]) << row.seed << ", draw " << draw;
    }
  }
}

TEST(Random, SeedRestartsAndZeroContinues) {
  VORL_RANDCONTEXT a = Seeded(7);
  VORL_RANDCONTEXT b = Seeded(-7);
  EXPECT_EQ(std::memcmp(&a, &b, sizeof(a)), 0);
  VORL_RANDCONTEXT fresh;
  VORLInitRandContext(&fresh);
  const double first = VORLDoubleRand(0, &fresh);
  const double second = VORLDoubleRand(0, &fresh);
  EXPECT_NE(second, first);
  VORLInitRandContext(&fresh);
  EXPECT_EQ(VORLDoubleRand(0, &fresh), first);
  for (int draw = 0; draw < 250; ++draw) VORLDoubleRand(0, &a);
  VORLDoubleRand(7, &a);
  EXPECT_EQ(std::memcmp(&a, &b, sizeof(a)), 0);
}

// The rounds of the three sequences one by one, in whole numbers.
TEST(Random, SeedingGoesThroughAllRounds) {
  const auto compare = [](int seed) {
    const unsigned magnitude = seed < 0 ? 0U - static_cast<unsigned>(seed) : static_cast<unsigned>(seed);
    int a = static_cast<int>((magnitude + 1) * 171) % 30269;
    int b = static_cast<int>((2 * magnitude + 3) * 172) % 30307;
    int c = static_cast<int>((3 * magnitude + 4) * 170) % 30323;
    VORL_RANDCONTEXT context;
    VORLInitRandContext(&context);
    VORLDoubleRand(seed, &context);
    for (int round = 1; round < 111; ++round, a = 171 * a % 30269, b = 172 * b % 30307, c = 170 * c % 30323) {
      const double sum = a / 30269.0 + b / 30307.0 + c / 30323.0;
      const int place = round - 11;
      if (place <= 0) continue;  // the first value has been replaced by the draw
      ASSERT_EQ(context.state[place], std::floor((sum - std::floor(sum)) * 1000009711.0)) << seed;
    }
  };
  for (const int seed : {INT_MIN, INT_MIN + 1, INT_MAX, -1, 1, 715827880, 715827881, 1073741822}) compare(seed);
  for (long long seed = INT_MIN + 77; seed <= INT_MAX; seed += 23456789) compare(static_cast<int>(seed));
}

TEST(Random, DrawAfterSeedingIsTheDrawOfTheFullGenerator) {
  const auto compare = [](int seed) {
    VORL_RANDCONTEXT context;
    VORLInitRandContext(&context);
    for (int skip = 0; skip < 64; ++skip) {
      const double drawn = VORLDoubleRand(skip == 0 ? seed : 0, &context);
      for (const auto level : {kestrum::SimdLevel::kBaseline, kestrum::SimdLevel::kAvx2, kestrum::SimdLevel::kAvx512}) {
        if (level > kestrum::BestSimdLevel()) continue;
        double number[11];  // more than fill a vector; the one looked at is the last
        kestrum::DrawAfterSeeding(kestrum::WrappingSum(seed, -10), skip, 11, number, level);
        ASSERT_EQ(number[10], drawn) << seed << ", " << skip;
      }
    }
  };
  for (const int seed : {INT_MIN, INT_MIN + 1, INT_MAX - 1, INT_MAX, -1, 0, 1, 715827880, 715827881, 1073741822}) {
    compare(seed);
  }
  for (int seed = 2; seed < 500; ++seed) compare(seed);
  for (long long seed = INT_MIN; seed <= INT_MAX; seed += 2345679) compare(static_cast<int>(seed));
}

// What a caller may have left in a context must not make a shuffle write outside its list, or a draw last for ever.
TEST(Random, SpoiltContextsStillGiveIndices) {
  for (const double spoilt : {0.0, -3.5e9, 1e300, HUGE_VAL, std::numeric_limits<double>::quiet_NaN()}) {
    for (const int position : {0, -1, 101, INT_MAX, INT_MIN}) {
      VORL_RANDCONTEXT context{};
      context.y = spoilt;
      std::fill(std::begin(context.state), std::end(context.state), spoilt);
      context.position = position;
      for (int draw = 0; draw < 200; ++draw) {
        const int value = VORLIntRand(0, 10, &context);
        ASSERT_TRUE(value >= 0 && value < 10);
      }
    }
  }
}

TEST(Random, ShufflePermutesInTheOrderOfTheReference) {
  VORL_RANDCONTEXT context = Seeded(42);
  int list[10];
  std::iota(list, list + 10, 0);
  EXPECT_EQ(VORLPathRandom(10, list, &context), 0);
  const int expected[] = {6, 2, 1, 9, 3, 8, 5, 4, 0, 7};
  EXPECT_TRUE(std::equal(list, list + 10, expected));

  for (const int n : {INT_MIN, -1, 0, 1, 2}) {
    VORL_RANDCONTEXT before = context;
    EXPECT_EQ(VORLRandomizeListOfInt(n, list, &context), 0);
    if (n == 2) VORLDoubleRand(0, &before);
    EXPECT_EQ(std::memcmp(&before, &context, sizeof(context)), 0) << n;
  }
}

// The first entry is drawn in proportion to the weights, and the second in proportion to what is left.
TEST(Random, WeightedShuffleFollowsTheWeights) {
  constexpr double kWeights[] = {1.0, 4.0, 0.0, 3.0, 2.0};
  constexpr int kCount = 20000;
  VORL_RANDCONTEXT context = Seeded(3);
  int pairs[5][5] = {};
  for (int trial = 0; trial < kCount; ++trial) {
    int list[] = {0, 1, 2, 3, 4};
    double cumulative[6] = {0.0};
    std::partial_sum(kWeights, kWeights + 5, cumulative + 1);
    ASSERT_EQ(VORLRandomizeWeightedListOfInt(5, list, cumulative, &context), 0);
    ASSERT_EQ(list[4], 2);
    ++pairs[list[0]][list[1]];
    std::sort(list, list + 5);
    for (int i = 0; i < 5; ++i) ASSERT_EQ(list[i], i);
  }
  for (int a = 0; a < 5; ++a) {
    for (int b = 0; b < 5; ++b) {
      const double p = a == b ? 0.0 : kWeights[a] / 10.0 * kWeights[b] / (10.0 - kWeights[a]);
      EXPECT_NEAR(pairs[a][b], kCount * p, 5 * std::sqrt(kCount * p * (1 - p))) << a << ", " << b;
    }
  }
}

// The tree holds reductions back and rounds them in other units: still every bit is that of the plain sums, whatever
// the weights. Halves of last places make ties of the rounding.
TEST(Random, WeightTreeIsThePlainSums) {
  VORL_RANDCONTEXT context = Seeded(8);
  const auto uniform = [&context]() { return VORLDoubleRand(0, &context); };
  const std::function<double(int)> weights[] = {
      [](int) { return 1.0; },
      [](int i) { return i % 5 == 0 ? 0.0 : 0.1; },
      [&](int) { return uniform(); },
      [&](int) { return std::pow(1e-10, uniform()); },
      [&](int) { return std::pow(10.0, -300 * uniform()); },
      [&](int) { return std::ldexp(1.0, static_cast<int>(uniform() * 60) - 30); },
      [&](int) { return std::ldexp(1.0 / 3, static_cast<int>(uniform() * 5)); },
      [&](int) { return 1.0 + std::floor(uniform() * 3) * 0x1p-50; },
      [](int i) { return std::pow(0.9, i); },
      [](int i) { return std::ldexp(1.0, i % 900 - 800); },
      [&](int i) { return i % 3 == 0 ? 5e-324 : uniform() * 1e-307; },
  };
  for (int trial = 0; trial < 110; ++trial) {
    const int n = 2 + VORLIntRand(0, 700, &context);
    std::vector<double> sums(n + 1, 0.0);
    for (int i = 0; i < n; ++i) sums[i + 1] = sums[i] + weights[trial % 11](i);
    std::vector<double> treeSums = sums;
    kestrum::PlainWeightSums plain(sums.data(), n);
    kestrum::WeightSumTree tree;
    ASSERT_TRUE(tree.Build(treeSums.data(), n));
    for (int i = 0; i < n; ++i) {
      const double target = uniform() * plain.Value(n);
      int k = i;
      for (int entry = i; entry <= n; ++entry) {
        ASSERT_EQ(tree.IsAtMost(entry, target), plain.IsAtMost(entry, target));
        if (entry < n && plain.IsAtMost(entry, target)) k = entry;
      }
      const double weightOfI = plain.Value(i + 1) - plain.Value(i), weightOfK = plain.Value(k + 1) - plain.Value(k);
      ASSERT_EQ(tree.Value(k), plain.Value(k));
      plain.Reduce(i + 1, k, weightOfI, weightOfK);
      tree.Reduce(i + 1, k, weightOfI, weightOfK);
    }
    tree.Settle();
    ASSERT_EQ(std::memcmp(sums.data(), treeSums.data(), sums.size() * sizeof(double)), 0) << trial;
  }
  for (std::vector<double> odd : {std::vector<double>{0, 2, 1}, {0, -1, 1}, {0, std::nan(""), 1}, {0, 1, HUGE_VAL}}) {
    EXPECT_FALSE(kestrum::WeightSumTree().Build(odd.data(), 2));
  }
}

// A list long enough for the tree gets the order of the plain way, which is also what is left if memory fails.
TEST(Random, WeightedShuffleOfALongList) {
  constexpr int kCount = 12000;
  std::vector<int> lists[2];
  std::vector<double> sums[2];
  for (const int k : {0, 1}) {
    VORL_RANDCONTEXT context = Seeded(4);
    lists[k].resize(kCount);
    std::iota(lists[k].begin(), lists[k].end(), 0);
    sums[k].resize(kCount + 1, 0.0);
    for (int i = 0; i < kCount; ++i) sums[k][i + 1] = sums[k][i] + std::pow(0.999, i);
    const kestrum_test::FailAllocation failure(k);
    EXPECT_EQ(VORLRandomizeWeightedListOfInt(kCount, lists[k].data(), sums[k].data(), &context), 0);
    EXPECT_EQ(failure.Happened(), k == 0);  // there is one allocation
    VORL_RANDCONTEXT follower = Seeded(4);
    for (int draw = 1; draw < kCount; ++draw) VORLDoubleRand(0, &follower);
    EXPECT_EQ(std::memcmp(&context, &follower, sizeof(context)), 0);
  }
  EXPECT_EQ(lists[0], lists[1]);
  EXPECT_EQ(sums[0], sums[1]);
}

TEST(Random, IndexFromPdf) {
  VORL_RANDCONTEXT context = Seeded(5);
  VORL_RANDCONTEXT follower = context;
  int index = 99;
  EXPECT_EQ(VORLDrawIndexFromPdf(1, nullptr, &index, &context), 0);
  EXPECT_EQ(index, 0);
  VORLDoubleRand(0, &follower);
  EXPECT_EQ(std::memcmp(&context, &follower, sizeof(context)), 0);

  real pdf[] = {0.25, 0.0, 0.5, 1e300};  // the last entry takes the rest, whatever it says
  for (int trial = 0; trial < 1000; ++trial) {
    const double u = VORLDoubleRand(0, &follower);
    VORLDrawIndexFromPdf(4, pdf, &index, &context);
    EXPECT_EQ(index, u < 0.25 ? 0 : u < 0.75 ? 2 : 3) << u;
  }
}

}  // namespace
