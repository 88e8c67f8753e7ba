#include "analysis/morphology.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "analysis/morphology.hpp"
#include "support/test_image.hpp"

namespace {

using namespace kestrum_test;

struct Offsets {
  std::vector<int> x, y, z;
  int Size() const { return static_cast<int>(x.size()); }
};

int Transform(bool dilate, Image& in, Image& out, Offsets& o, int niter, bool verbose, int nthreads) {
  const auto serial = dilate ? VORLImageDilate : VORLImageErode;
  const auto threaded = dilate ? VORLOMPImageDilate : VORLOMPImageErode;
  const BOOLEAN v = verbose ? TRUE : FALSE;
  return nthreads == 0 ? serial(&in, &out, o.Size(), o.x.data(), o.y.data(), o.z.data(), niter, v)
                       : threaded(&in, &out, o.Size(), o.x.data(), o.y.data(), o.z.data(), niter, v, nthreads);
}

std::string Line(bool dilate, int percent) {
  char line[64];
  std::snprintf(line, sizeof line, "%s image: %3d %%\n", dilate ? "Dilating" : "Eroding", percent);
  return line;
}

// Node by node, offset by offset; the progress lines go to `lines`.
Values Expected(bool dilate, const Image& in, const Offsets& o, int niter, std::string& lines) {
  const VORL_GRID& g = *in.grid;
  Values values = in.Values();
  const double step = 1.0 / (std::max(niter, 1) * in.nxyzv);
  int last = 0;
  lines = Line(dilate, 0);
  for (int v = 0; v < in.nvar; ++v) {
    for (int it = 0, k = 0; it < niter; ++it, k += v + 1) {
      const Values source = values;
      for (int node = 0; node < g.nxyz; ++node) {
        const int percent = static_cast<int>((k * g.nxyz + node) * (100.0 * step));
        if (percent > last) lines += Line(dilate, last = percent);
        double& value = values[v * g.nxyz + node];
        if (dilate ? value != 0.0 : value == 0.0 || value == kMissing) continue;
        for (std::size_t i = 0; i < o.x.size(); ++i) {
          const long x = node % g.nx + static_cast<long>(o.x[i]);
          const long y = node / g.nx % g.ny + static_cast<long>(o.y[i]);
          const long z = node / g.nxy + static_cast<long>(o.z[i]);
          if (x < 0 || x >= g.nx || y < 0 || y >= g.ny || z < 0 || z >= g.nz) continue;
          const double from = source[v * g.nxyz + (z * g.ny + y) * g.nx + x];
          if (dilate ? from != 0.0 && from != kMissing : from == 0.0) value = dilate ? 1.0 : 0.0;
        }
      }
    }
  }
  if (last < 100) lines += Line(dilate, 100);
  return values;
}

TEST(Morphology, AgainstNodeByNode) {
  std::mt19937 generator(7);
  const int sizes[][3] = {{1, 1, 1}, {7, 1, 1}, {1, 6, 1}, {1, 3, 5}, {64, 2, 2}, {65, 3, 1}, {200, 2, 3}, {9, 8, 7}};
  const int far[] = {INT_MIN, INT_MAX, -64, 64, 63, -65, 128, -1, 1};
  const double rare[] = {0.0, 0.0, 1.0, 1.0, -0.0, 2.5, -1e300, std::nan(""), kMissing};
  const double common[] = {0.0, 1.0, kMissing};  // with few others iterations have room to grow
  const int threads[] = {1, 2, 3, 8};
  for (int trial = 0; trial < 160; ++trial) {
    SCOPED_TRACE(trial);
    const auto& n = sizes[trial % 8];
    const bool dilate = generator() % 2 == 0;
    Values start(n[0] * n[1] * n[2] * 2);
    for (double& v : start) v = generator() % 8 != 0 ? common[trial % 3] : rare[generator() % std::size(rare)];
    Image in(Grid(n[0], n[1], n[2]), {"a", "b"}, start);
    Offsets offsets;
    const auto draw = [&](int reach) {
      const int near = static_cast<int>(generator() % static_cast<unsigned>(2 * reach + 1)) - reach;
      return generator() % 8 == 0 ? far[generator() % std::size(far)] : near;
    };
    for (unsigned k = generator() % 6; k > 0; --k) {
      offsets.x.push_back(draw(trial % 2 == 0 ? 1 : n[0]));
      offsets.y.push_back(draw(1));
      offsets.z.push_back(draw(1));
    }
    const int niter = static_cast<int>(generator() % 6) - 1;
    std::string lines;
    const Values expected = Expected(dilate, in, offsets, niter, lines);
    for (const int nthreads : {0, threads[trial / 8 % 4]}) {
      Image out;
      testing::internal::CaptureStdout();
      const int status = Transform(dilate, in, out, offsets, niter, true, nthreads);
      EXPECT_EQ(testing::internal::GetCapturedStdout(), lines);
      ASSERT_EQ(status, 0);
      EXPECT_TRUE(SameBits(out.Values(), expected));
      EXPECT_STREQ(out.varName[1], dilate ? "b_dilated" : "b_eroded");
    }
    EXPECT_TRUE(SameBits(in.Values(), start));
    if (dilate) continue;
    const kestrum::StructuringElement element{offsets.Size(), offsets.x.data(), offsets.y.data(), offsets.z.data()};
    ASSERT_EQ(kestrum::ErodeValues(*in.grid, 2, in.var, in.var, element, niter, kestrum::Dealing::Serial()), 0);
    EXPECT_TRUE(SameBits(in.Values(), expected));
  }
}

// Iterations after which nothing changes are not run, but their lines come.
TEST(Morphology, CountlessIterations) {
  Offsets offsets{{-1, 1}, {0, 0}, {0, 0}};
  Image in(Grid(5, 1, 1), {"a", "b"}, {0, 0, 3, kMissing, 0, 0, 0, 0, 0, 0});
  Image out;
  std::string lines;
  for (int percent = 0; percent <= 100; ++percent) lines += Line(true, percent);
  testing::internal::CaptureStdout();
  ASSERT_EQ(Transform(true, in, out, offsets, INT_MAX, true, 0), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), lines);
  EXPECT_EQ(out.Values(), (Values{1, 1, 3, kMissing, 0, 0, 0, 0, 0, 0}));
}

TEST(Morphology, Refusals) {
  Offsets offsets{{1}, {0}, {0}};
  Image in(Grid(4, 3, 2), {"v"}, {1.0, 0.0});
  Image out;
  EXPECT_EQ(VORLImageDilate(&in, &out, 1, nullptr, offsets.y.data(), offsets.z.data(), 1, FALSE), -20);
  EXPECT_EQ(VORLImageErode(&in, &out, INT_MIN, nullptr, nullptr, nullptr, 1, FALSE), 0);
  EXPECT_EQ(out.Values(), in.Values());
}

}  // namespace
