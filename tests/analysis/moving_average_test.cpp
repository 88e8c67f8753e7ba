#include "analysis/moving_average.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "analysis/moving_average.hpp"
#include "support/test_image.hpp"

namespace {

using namespace kestrum_test;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
using kestrum::Dealing;

// One not-a-number is like another, and a zero has a sign.
bool Same(const Values& a, const Values& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](double x, double y) {
    return std::isnan(x) ? std::isnan(y) : x == y && std::signbit(x) == std::signbit(y);
  });
}

struct Box {
  int n[3];
  Values kernel[3];

  kestrum::AxisKernel Axis(int a) const { return {static_cast<int>(kernel[a].size()), kernel[a].data()}; }

  // Node by node, entry by entry.
  Values Expected(const Values& input, double minProportion) const {
    Values output(input.size(), kMissing);
    const int length[3] = {Axis(0).length, Axis(1).length, Axis(2).length};
    const auto inside = [&](int a, int i) {
      const int r = (length[a] - 1) / 2;
      return i >= r && i <= n[a] - length[a] + r;
    };
    for (std::size_t id = 0; id < input.size(); ++id) {
      const int node = static_cast<int>(id);
      if (!inside(0, node % n[0]) || !inside(1, node / n[0] % n[1]) || !inside(2, node / n[0] / n[1] % n[2])) continue;
      double sum = 0.0, sumWeight = 0.0, total = 0.0;
      bool complete = true, informed = false;
      for (int i = 0; i < length[0] * length[1] * length[2]; ++i) {
        const int x = i % length[0], y = i / length[0] % length[1], z = i / length[0] / length[1];
        const int shift = x - (length[0] - 1) / 2 + n[0] * (y - (length[1] - 1) / 2 + n[1] * (z - (length[2] - 1) / 2));
        const double value = input[node + shift];
        const double w = Axis(0).weight[x] * Axis(1).weight[y] * Axis(2).weight[z];
        total += w;
        if (value == kMissing) {
          complete = false;
        } else {
          informed = true;
          sumWeight += w;
          sum += value * w;
        }
      }
      if (complete) {
        output[id] = sum;
      } else if (informed && sumWeight >= minProportion * total) {
        output[id] = sum * total / sumWeight;
      }
    }
    return output;
  }
};

TEST(MovingBoxSum, AgainstEntryByEntry) {
  std::mt19937 generator(5);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  const int sizes[][3] = {{1, 1, 1},   {40, 1, 1}, {1, 30, 1}, {5, 9, 8},
                          {21, 12, 4}, {39, 7, 6}, {17, 1, 9}, {16, 4, 1}};
  const double proportions[] = {0.0, 0.5, 0.8, 1.0};
  const unsigned missing[] = {0, 20, 2, 1};  // one value in so many
  const int threads[] = {1, 2, 3, 8};
  for (int trial = 0; trial < 400; ++trial) {
    SCOPED_TRACE(trial);
    const auto& n = sizes[trial % 8];
    Box box{{n[0], n[1], n[2]}, {}};
    const bool equal = generator() % 2 == 0;
    for (int a = 0; a < 3; ++a) {
      const unsigned longest = static_cast<unsigned>(n[a]) + (generator() % 16 == 0 ? 1 : 0);
      const unsigned length = generator() % 24 == 0 ? 0 : 1 + generator() % std::min(longest, 8U);
      box.kernel[a].assign(length, uniform(generator));
      for (double& w : box.kernel[a]) w = equal ? w : generator() % 9 == 0 ? 0.0 : uniform(generator);
    }
    const int nvar = 1 + trial % 2;
    const unsigned often = missing[trial / 8 % 4];
    Values input(n[0] * n[1] * n[2] * nvar);
    for (double& v : input) {
      v = generator() % 999 == 0 ? kNaN : generator() % 999 == 0 ? 1e308 : uniform(generator);
      if (often != 0 && generator() % often == 0) v = kMissing;
    }
    const double proportion = proportions[generator() % 4];
    const Values expected = box.Expected(input, proportion);
    for (const Dealing& dealing : {Dealing::Serial(), Dealing::Threads(threads[trial / 32 % 4])}) {
      Values output(input.size());
      ASSERT_EQ(kestrum::MovingBoxSum(n[0], n[1], n[2], nvar, box.Axis(0), box.Axis(1), box.Axis(2), input.data(),
                                      output.data(), proportion, dealing),
                0);
      ASSERT_TRUE(Same(output, expected)) << dealing.nthreads();
    }
  }
}

TEST(MovingBoxSum, Oddities) {
  double one[] = {1.0};
  double ten[10] = {0.1, 0.1, 0.1, 0.1, 0.1, 0.1, 0.1, 0.1, 0.1, 0.1};
  double input[] = {1, 2, kMissing, 4, 5, 6, 7, kMissing, 9, 10};
  double output[10];
  // Eight of ten informed is enough for 0.8, and not for more; the centre of an even box is left of its middle.
  ASSERT_EQ(VORLMovingBoxSum(10, 1, 1, 1, 10, 1, 1, ten, one, one, input, output, 0.8), 0);
  EXPECT_NEAR(output[4], 44.0 / 8.0, 1e-12);
  EXPECT_EQ(output[5], kMissing);
  ASSERT_EQ(VORLOMPMovingBoxSum(10, 1, 1, 1, 10, 1, 1, ten, one, one, input, output, 0.81, 2), 0);
  EXPECT_EQ(output[4], kMissing);
  const int lengths[][3] = {{0, 1, 1}, {-3, 1, -5}, {1, INT_MIN, 1}};
  for (const auto& l : lengths) {
    ASSERT_EQ(VORLMovingBoxSum(10, 1, 1, 1, l[0], l[1], l[2], one, one, one, input, output, 0.8), 0);
    EXPECT_EQ(Values(output, output + 10), Values(10, 0.0));
  }
  ASSERT_EQ(VORLMovingBoxSum(10, 1, 1, 1, INT_MAX, INT_MAX, 0, one, one, one, input, output, 0.8), 0);
  EXPECT_EQ(Values(output, output + 10), Values(10, kMissing));
  EXPECT_EQ(VORLMovingBoxSum(10, 1, 1, 1, 1, 1, 1, one, nullptr, one, input, output, 0.8), -20);
  EXPECT_EQ(VORLMovingBoxSum(10, 1, 0, 1, 1, 1, 1, one, one, one, nullptr, nullptr, 0.8), 0);
  // The proportion of a value counts a missing node as one that has another value.
  Image in(Grid(5, 1, 1), {"a", "b"}, {2, 2, kMissing, 3, 2, kMissing, 2, kMissing, kMissing, kMissing}), out;
  ASSERT_EQ(VORLMovingBoxAverageImage(3.0, 1.0, 1.0, &in, &out, TRUE, 2.0, FALSE), 0);
  const double t = 1.0 / 3.0;
  EXPECT_EQ(out.Values(), (Values{kMissing, t + t, t, t, kMissing, kMissing, t, t, 0, kMissing}));
}

TEST(MovingBoxAverage, Kernels) {
  const Values three(3, 1.0 / 3.0);
  const double w = 1.0 / 3.5;
  const struct {
    double size, cell;
    int n;
    bool warns;
    Values kernel;  // none: refused
  } cases[] = {{3.0, 1.0, 9, false, three},     {1.5000004, 0.5, 9, false, three},
               {2.99999, 1.0, 9, false, three}, {7.0, 2.0, 9, false, {0.25 * w, w, w, w, 0.25 * w}},
               {1.0, 1.0, 1, false, {1.0}},     {2.0, 1.0, 3, false, {0.25, 0.5, 0.25}},
               {0.9, 1.0, 4, true, {1.0}},      {-kInfinity, 1.0, 2, true, {1.0}},
               {3.0, 1.0, 2, false, {}},        {2.0, 1.0, 2, false, {}},
               {kInfinity, 1.0, 2, false, {}},  {kNaN, 1.0, 2, false, {}}};
  for (const auto& c : cases) {
    for (int a = 0; a < 3; ++a) {
      SCOPED_TRACE(testing::Message() << c.size << " axis " << a);
      VORL_GRID grid = Grid(a == 0 ? c.n : 1, a == 1 ? c.n : 1, a == 2 ? c.n : 1);
      (a == 0 ? grid.sx : a == 1 ? grid.sy : grid.sz) = c.cell;
      Image in(grid, {"v"}, {0.1, 0.7, 0.2, 0.4, 0.9});
      Box box{{grid.nx, grid.ny, grid.nz}, {{1.0}, {1.0}, {1.0}}};
      box.kernel[a] = c.kernel;
      for (const bool verbose : {false, true}) {
        Image out;
        double size[3] = {1.0, 1.0, 1.0};
        size[a] = c.size;
        testing::internal::CaptureStdout();
        const int status =
            verbose ? VORLMovingBoxAverageImage(size[0], size[1], size[2], &in, &out, FALSE, 0.0, TRUE)
                    : VORLOMPMovingBoxAverageImage(size[0], size[1], size[2], &in, &out, FALSE, 0.0, FALSE, 2);
        const std::string warning =
            std::string("Warning: box size in ") + "xyz"[a] + " direction less than image grid node size!\n";
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.warns && verbose ? warning : "");
        ASSERT_EQ(status, c.kernel.empty() ? -3703 - a : 0);
        if (status != 0) continue;
        EXPECT_TRUE(Same(out.Values(), box.Expected(in.Values(), 0.8)));
        EXPECT_STREQ(out.varName[0], "v_moving_box_avg");
      }
    }
  }
}

struct Neighborhood : VORL_SEARCHNEIGHBORHOOD {
  explicit Neighborhood(int n) : VORL_SEARCHNEIGHBORHOOD{}, offsets(3 * n, 1), weights(n, 1.0) {
    size = n;
    ix = offsets.data();
    iy = ix + n;
    iz = iy + n;
    weight = weights.data();
  }
  std::vector<int> offsets;
  Values weights;
};

TEST(MovingNeighborhoodAverage, AgainstEntryByEntry) {
  std::mt19937 generator(9);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  const int sizes[][3] = {{1, 1, 1}, {50, 1, 1}, {1, 9, 1}, {33, 3, 2}, {6, 5, 4}, {18, 1, 7}};
  const int threads[] = {1, 2, 3, 8};
  const int far[] = {INT_MIN, INT_MAX, 1 << 20};
  for (int trial = 0; trial < 240; ++trial) {
    SCOPED_TRACE(trial);
    const auto& n = sizes[trial % 6];
    Image in(Grid(n[0], n[1], n[2]), {"a", "b"}, {0.0});
    const VORL_GRID& g = *in.grid;
    for (int id = 0; id < in.nxyzv; ++id) {
      const bool complete = id < g.nxyz && trial % 2 == 0;
      in.var[id] = complete ? uniform(generator) : generator() % 3 == 0 ? kMissing : generator() % 3;
    }
    Neighborhood list(static_cast<int>(generator() % 12));
    const auto draw = [&](int reach) {
      const int near = static_cast<int>(generator() % static_cast<unsigned>(2 * reach + 1)) - reach;
      return generator() % 16 == 0 ? far[generator() % 3] : near;
    };
    for (int k = 0; k < list.size; ++k) {
      list.ix[k] = draw(trial % 4 == 0 ? 2 : n[0]);
      list.iy[k] = draw(1);
      list.iz[k] = draw(1);
      list.weight[k] = uniform(generator);
    }
    const BOOLEAN proportion = generator() % 3 == 0 ? TRUE : FALSE;
    const double value = generator() % 8 == 0 ? kMissing : 1.0;
    Values expected(in.nxyzv, kMissing);
    std::string lines;
    for (int id = 0, last = -1; id <= in.nxyzv; ++id) {
      const int percent = id == in.nxyzv ? 100 : static_cast<int>(id * (100.0 / in.nxyzv));
      char line[48];
      std::snprintf(line, sizeof line, "Computing moving average: %3d %%\n", percent);
      if (percent > last) lines += line;
      last = percent;
      if (id == in.nxyzv || in.var[id] == kMissing) continue;
      const int node = id % g.nxyz;
      double sum = 0.0, sumWeight = 0.0;
      for (int k = 0; k < list.size; ++k) {
        const long x = node % g.nx + static_cast<long>(list.ix[k]);
        const long y = node / g.nx % g.ny + static_cast<long>(list.iy[k]);
        const long z = node / g.nxy + static_cast<long>(list.iz[k]);
        if (x < 0 || x >= g.nx || y < 0 || y >= g.ny || z < 0 || z >= g.nz) continue;
        const double v = in.var[id - node + (z * g.ny + y) * g.nx + x];
        if (v == kMissing) continue;
        sumWeight += list.weight[k];
        if (proportion == FALSE) sum += v * list.weight[k];
        if (proportion != FALSE && v == value) sum += list.weight[k];
      }
      expected[id] = sum / sumWeight;
    }
    for (const int nthreads : {0, threads[trial / 6 % 4]}) {
      Image out;
      const auto average = [&](auto form, auto... team) {
        return form(&list, &in, &out, proportion, value, TRUE, team...);
      };
      testing::internal::CaptureStdout();
      const int status = nthreads == 0 ? average(VORLMovingSearchNeighborhoodAverageImage)
                                       : average(VORLOMPMovingSearchNeighborhoodAverageImage, nthreads);
      EXPECT_EQ(testing::internal::GetCapturedStdout(), lines);
      ASSERT_EQ(status, 0);
      ASSERT_TRUE(Same(out.Values(), expected));
      EXPECT_STREQ(out.varName[1], "b_moving_sn_avg");
    }
  }
}

TEST(MovingAverage, Refusals) {
  Image in(Grid(4, 3, 2), {"v"}, {1.0, kMissing, 3.0}), out;
  Neighborhood list(2);
  EXPECT_EQ(VORLOMPMovingSearchNeighborhoodAverageImage(&list, &in, &out, FALSE, 0.0, FALSE, 0), -3);
  in.grid->nz = 0;
  EXPECT_EQ(VORLMovingBoxAverageImage(3.0, 9.0, 1.0, &in, &out, FALSE, 0.0, FALSE), -3704);
  EXPECT_EQ(VORLMovingBoxAverageImage(3.0, 1.0, 1.0, &in, &out, FALSE, 0.0, FALSE), -3705);
}

}  // namespace
