#include "analysis/resize.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "support/test_image.hpp"

namespace {

using Image = kestrum_test::TestImage;

std::vector<double> Numbers(int n) {
  std::vector<double> numbers;
  for (int i = 0; i < n; ++i) numbers.push_back(i);
  return numbers;
}

TEST(Resize, WindowsAgainstNodeByNode) {
  Image in({4, 3, 2, 0.5, 2.0, 0.25, 1.0, -1.0, 3.0, 0, 0}, {"a", "b"}, Numbers(48));
  const int windows[][8] = {{0, 3, 0, 2, 0, 1, 0, 1},
                            {1, 2, 1, 1, 1, 1, 1, 1},
                            {2, 9, -3, 0, 1, 4, -1, 3},
                            {-5, -2, 0, 2, 0, 1, 0, 1},
                            {0, 3, 3, 4, -2, 1, 0, 1},
                            {-1, 0, -1, 3, -1, 2, 2, 2},
                            {INT_MAX - 1, INT_MAX, 0, 0, INT_MIN, INT_MIN, 0, 0}};
  for (const auto& w : windows) {
    SCOPED_TRACE(testing::Message() << w[0] << ' ' << w[2] << ' ' << w[4] << ' ' << w[6]);
    Image out;
    ASSERT_EQ(VORLResizeImage(&in, &out, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]), 0);
    const int nx = w[1] - w[0] + 1, ny = w[3] - w[2] + 1, nz = w[5] - w[4] + 1, nvar = w[7] - w[6] + 1;
    VORL_GRID expected{nx,      ny,          nz, 0.5, 2.0, 0.25, 1.0 + w[0] * 0.5, -1.0 + w[2] * 2.0, 3.0 + w[4] * 0.25,
                       nx * ny, nx * ny * nz};
    EXPECT_EQ(VORLCmpGrid(out.grid, &expected), 0);
    ASSERT_EQ(out.nvar, nvar);
    ASSERT_EQ(out.nxyzv, nvar * nx * ny * nz);
    for (int i = 0; i < out.nxyzv; ++i) {
      int ix, iy, iz, iv;
      VORLGridIdToCoord(out.grid, i, &ix, &iy, &iz, &iv);
      ix += w[0], iy += w[2], iz += w[4], iv += w[6];
      const bool inside = ix >= 0 && ix < 4 && iy >= 0 && iy < 3 && iz >= 0 && iz < 2 && iv >= 0 && iv < 2;
      EXPECT_EQ(out.var[i], inside ? ix + 4 * iy + 12 * iz + 24 * iv : VORL_MISSING_VALUE) << i;
    }
    for (int v = 0; v < nvar; ++v) {
      const int source = v + w[6];
      const std::string name = source == 0 ? "a" : source == 1 ? "b" : "var0" + std::to_string(v);
      EXPECT_EQ(out.varName[v], name);
    }
  }
}

TEST(Resize, Refusals) {
  const struct {
    int w[8];
    int status;
  } cases[] = {{{1, 0, 1, 0, 1, 0, 1, 0}, -2001},
               {{0, 0, INT_MIN, INT_MAX, 1, 0, 1, 0}, -2002},
               {{0, 0, 0, 0, INT_MAX, INT_MIN, 1, 0}, -2003},
               {{0, 0, 0, 0, 0, 0, 0, INT_MAX}, -2004},
               {{0, 65535, 0, 32766, 1, INT_MAX, 1, INT_MAX}, -620},
               {{0, 999, 0, 999, 0, 999, 0, 9}, -620}};
  for (const auto& [w, status] : cases) {
    Image in({1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0}, {"v"}, {5.0}), out;
    EXPECT_EQ(VORLResizeImage(&in, &out, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]), status);
    EXPECT_EQ(out.grid, nullptr);
  }
  Image in({2, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0}, {"v"}, {5.0});
  EXPECT_EQ(VORLResizeImage(&in, &in, 0, 0, 0, 0, 0, 0, 0, 0), -20);
}

}  // namespace
