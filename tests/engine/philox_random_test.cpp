// The law of realizations drawn from it is tested through Python.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <vector>

#include "engine/philox_random.hpp"

namespace {

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

}  // namespace
