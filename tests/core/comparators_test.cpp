#include "core/comparators.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>

TEST(Comparators, OrderOfElements) {
  const int whole[] = {-5, 3};
  const real numbers[] = {-1e-300, 0.0, -0.0, std::nan("")};
  for (const auto& [a, b, order] : {std::array{0, 1, -1}, {1, 0, 1}, {0, 0, 0}}) {
    EXPECT_EQ(VORLCmpInt(&whole[a], &whole[b]), order);
    EXPECT_EQ(VORLCmpReal(&numbers[a], &numbers[b]), order);
  }
  for (const auto& [a, b] : {std::array{1, 2}, {3, 0}, {0, 3}}) EXPECT_EQ(VORLCmpReal(&numbers[a], &numbers[b]), 0);
}

TEST(Comparators, OrderOfRecords) {
  const VORL_INFOINTVALUE a = {1, 9}, b = {2, 9}, c = {2, 5};
  EXPECT_EQ(VORLCmpInfoIntValue(&a, &b), 0);
  EXPECT_EQ(VORLCmpInfoIntValue(&a, &c), 1);
  EXPECT_EQ(VORLCmpInfoIntValueAll(&a, &c), -1);
  EXPECT_EQ(VORLCmpInfoIntValueAll(&b, &c), 1);
  EXPECT_EQ(VORLCmpInfoIntValueAll(&b, &b), 0);
  const VORL_INFODOUVALUE d = {5, 0.5}, e = {1, 1.5};
  EXPECT_EQ(VORLCmpInfoDouValue(&d, &e), -1);
  const VORL_INFOREAVALUE f = {5, 0.5}, g = {1, 1.5};
  EXPECT_EQ(VORLCmpInfoReaValue(&g, &f), 1);
}

TEST(Comparators, OrderOfVectors) {
  classIdType a[] = {1, 2, VORL_MISSING_CLASSID}, b[] = {1, 2, 3};
  EXPECT_EQ(VORLCmpVectorOfClassId(a, b, 2), 0);
  EXPECT_EQ(VORLCmpVectorOfClassId(a, b, 3), -1);  // bytes are signed
  EXPECT_EQ(VORLCmpVectorOfClassId(b, a, 3), 1);
  EXPECT_EQ(VORLCmpVectorOfClassId(a, b, 0), 0);
  real x[] = {0.0, 7.0, 1.0}, y[] = {0.0, 6.0, 2.0};
  EXPECT_EQ(VORLCmpVectorOfReal(x, y, 3), 1);
  EXPECT_EQ(VORLCmpVectorOfReal(y, x, 3), -1);
  EXPECT_EQ(VORLCmpVectorOfReal(x, y, -1), 0);
}
