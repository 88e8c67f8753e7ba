// Sizes up to those that an int counts are handled, and those beyond are refused.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include "analysis/category_order.h"
#include "core/image_statistics.h"
#include "core/progress_monitor.h"
#include "neighborhood/neighbor_search.hpp"
#include "paths/search_neighborhood_parameters.h"
#include "support/test_image.hpp"

TEST(Limits, SizesThatNoIntHoldsAreNotRead) {
  const std::string huge[] = {"2147483648 ", "-2147483649 ", "4294967297 ", "99999999999999999999 "};
  for (const std::string& size : huge) {
    for (int entry = 0; entry < 3; ++entry) {
      std::string text = std::string("1 1 ").substr(0, 2 * entry) + size + "1 1 1 1 1 0 0 0";
      FILE* const stream = fmemopen(text.data(), text.size(), "r");
      VORL_GRID grid = {};
      EXPECT_EQ(VORLReadGrid(&grid, stream), -711 - entry) << text;
      std::fclose(stream);
    }
  }
}

TEST(Limits, MoreValuesThanAnIntCountsAreRefused) {
  const std::vector<real> one = {1.0};
  std::vector<real> categories(2048, 1.0);
  kestrum_test::TestImage in(kestrum_test::Grid(1024, 1024, 1), {"v"}, one), out;  // 2^20 nodes times 2^11 proportions
  EXPECT_EQ(VORLGetImageVarStatsLocal(&in, &out, 2048, categories.data()), -620);
  EXPECT_EQ(out.var, nullptr);
}

TEST(Limits, CountersStayAtTheGreatestNumber) {
  VORL_PROGRESSMONITOR monitor;
  VORLInitProgressMonitor(&monitor);
  monitor.nwarning = INT_MAX;
  monitor.warningNumber = 2015;
  EXPECT_EQ(VORLUpdateProgressMonitor0(&monitor), 0);
  EXPECT_EQ(monitor.nwarning, INT_MAX);

  int index[] = {0, 1, 0, 1, 0}, first[] = {5, INT_MAX - 1}, second[] = {INT_MAX, 5};
  int* matrix[] = {first, second};
  EXPECT_EQ(VORLUpdateTransitionMatrix(5, 1, 1, index, matrix, TRUE, FALSE, FALSE), 0);
  EXPECT_EQ(first[1], INT_MAX);
  EXPECT_EQ(second[0], INT_MAX);
  EXPECT_EQ(VORLUpdateTransitionMatrix(46341, 46341, 1, index, matrix, TRUE, FALSE, FALSE), -620);  // never walked
}

TEST(Limits, BoxesBeyondIntAreRefused) {
  kestrum_test::TestImage image;
  VORL_SEARCHNEIGHBORHOOD list = {};
  list.ixMin = INT_MIN;
  list.ixMax = INT_MAX;
  EXPECT_EQ(VORLSearchNeighborhoodToImage(&list, &image), -620);
  list.iyMin = list.ixMin = 1;  // turned round along two axes: no product may hide it
  list.iyMax = list.ixMax = -1;
  EXPECT_EQ(VORLSearchNeighborhoodToImage(&list, &image), -3);
}

// The last node of the longest line: an offset beyond it passes INT_MAX, and must lead nowhere.
TEST(Limits, NeighborsAtTheEndOfTheLongestLine) {
  int x[] = {0, 1, -1, 40, -40, 1 << 30}, zero[6] = {};
  VORL_SEARCHNEIGHBORHOOD offsets = {};
  offsets.size = 6;
  offsets.ix = x;
  offsets.iy = offsets.iz = zero;
  offsets.ixMin = -40;
  offsets.ixMax = 1 << 30;
  const kestrum::NeighborList list{&offsets, x, 6, {INT_MAX, 1, 1, 1, 1, 1, 0, 0, 0, INT_MAX, INT_MAX}};
  kestrum::NodeBits bits;
  ASSERT_EQ(bits.Allocate(INT_MAX), 0);
  for (const int node : {INT_MAX - 1, INT_MAX - 2, INT_MAX - 41, INT_MAX - 81}) bits.Set(node);
  int entries[6];
  EXPECT_EQ(kestrum::WalkNeighbors(list, INT_MAX - 1, bits, entries), 3);   // 0, -1 and -40
  EXPECT_EQ(kestrum::WalkNeighbors(list, INT_MAX - 41, bits, entries), 3);  // 0, 40 and -40
}
