#include "analysis/pyramid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/test_image.hpp"

namespace {

using namespace kestrum_test;
using Sizes = std::array<int, 3>;

// A grid of sums and weights, filtered axis by axis as a whole.
struct Field {
  Sizes n;
  Values values, weights;
};

// Calls node(o, at, sum, total) for each output node, at position o of a line along `axis`; at(k) is input node k of
// the line.
template <typename Node>
Field FilterAxis(const Field& in, int axis, int nOut, const Node& node) {
  const int stride = axis == 0 ? 1 : axis == 1 ? in.n[0] : in.n[0] * in.n[1];
  Sizes m = in.n;
  m[axis] = nOut;
  Field out{m, Values(m[0] * m[1] * m[2]), Values(m[0] * m[1] * m[2])};
  for (std::size_t i = 0; i < out.values.size(); ++i) {
    const int id = static_cast<int>(i);
    Sizes o{id % m[0], id / m[0] % m[1], id / m[0] / m[1]};
    const int position = std::exchange(o[axis], 0);
    const int first = (o[2] * in.n[1] + o[1]) * in.n[0] + o[0];
    node(
        position, [=](int k) { return first + k * stride; }, out.values[i], out.weights[i]);
  }
  return out;
}

Field ReduceAxis(const Field& in, int axis, int f, const Values& w) {
  const int n = in.n[axis];
  return FilterAxis(in, axis, (n - 1) / f + 1, [&](int o, const auto& at, double& sum, double& total) {
    const auto add = [&](int position, int j) {
      const int i = at(std::clamp(position, 0, n - 1));
      if (in.values[i] == kMissing) return;
      sum += in.values[i] * w[j];
      total += w[j] * in.weights[i];
    };
    const int c = (n - 1) % f / 2 + o * f;
    add(c, 0);
    for (int j = 1; j <= f; ++j) {
      add(c + j, j);
      add(c - j, j);
    }
    if (total == 0.0) sum = kMissing;
  });
}

Field ExpandAxis(const Field& in, int axis, int f, const Values& w) {
  const int n = in.n[axis];
  return FilterAxis(in, axis, (n - 1) * f + 1, [&](int p, const auto& at, double& sum, double& total) {
    const int k = p / f;
    const int r = p % f;
    // NaN where there is none.
    const auto of = [&](const Values& v, int position) {
      return position < 0 || position >= n || in.values[at(position)] == kMissing ? NAN : v[at(position)];
    };
    const auto add = [](double a, double b) { return std::isnan(a) ? b : std::isnan(b) ? a : a + b; };
    const auto blend = [&](const Values& v) {
      if (r > 0) return add(f * w[r] * of(v, k), f * w[f - r] * of(v, k + 1));
      const double center = k == 0 || k == n - 1 ? f * w[0] + f * w[f] : f * w[0];
      return add(center * of(v, k), f * w[f] * add(of(v, k - 1), of(v, k + 1)));
    };
    sum = blend(in.values);
    total = blend(in.weights);
    if (std::isnan(sum)) {
      sum = kMissing;
      total = 0.0;
    }
  });
}

Values Filter(int step, double central) {
  Values w(step + 1);
  EXPECT_EQ(VORLPyramidWeight(step, w.data(), central), 0);
  return w;
}

// Nothing missing; single missing nodes among rows that are complete; much missing; whole sections missing.
Values Sample(const Sizes& n, double missingShare, unsigned seed) {
  std::mt19937 generator(seed);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  Values values(n[0] * n[1] * n[2]);
  for (double& v : values) v = uniform(generator);
  for (double& v : values) v = std::abs(uniform(generator)) < missingShare ? kMissing : v;
  for (double& v : values) v = std::abs(uniform(generator)) < 0.02 ? -0.0 : v;
  if (missingShare > 0.6) std::fill_n(values.begin(), n[0] * n[1], kMissing);
  return values;
}

// nthreads 0: the serial form.
int Resample(bool reduces, int nthreads, double* in, const Sizes& n, const Sizes& s, Values (&w)[3], const Sizes& o,
             const Sizes& m, double minWeight, Values* out, Values* total) {
  out->resize(m[0] * m[1] * m[2]);
  total->resize(out->size());
  double* const wx = w[0].data();
  double* const wy = w[1].data();
  double* const wz = w[2].data();
  const auto reduce = [&](auto form, auto... threads) {
    return form(in, n[0], n[1], n[2], s[0], s[1], s[2], wx, wy, wz, o[0], o[1], o[2], m[0], m[1], m[2], out->data(),
                total->data(), minWeight, threads...);
  };
  const auto expand = [&](auto form, auto... threads) {
    return form(in, n[0], n[1], n[2], s[0], s[1], s[2], wx, wy, wz, m[0], m[1], m[2], out->data(), total->data(),
                minWeight, threads...);
  };
  if (reduces) return nthreads == 0 ? reduce(VORLPyramidReduce) : reduce(VORLOMPPyramidReduce, nthreads);
  return nthreads == 0 ? expand(VORLPyramidExpand) : expand(VORLOMPPyramidExpand, nthreads);
}

struct Case {
  Sizes n, steps;
  double central, missingShare;
};

std::vector<Case> Cases() {
  std::vector<Case> cases;
  for (const double missingShare : {0.0, 0.02, 0.4, 0.9}) {
    for (const Sizes& n : {Sizes{23, 38, 9}, {41, 5, 70}, {9, 10, 11}, {1, 40, 6}, {1, 1, 30}, {67, 1, 1}, {2, 2, 2}}) {
      for (const Sizes& steps : {Sizes{2, 2, 2}, {1, 3, 2}, {0, 2, 0}, {3, 0, 1}, {0, 0, 4}, {5, 0, 0}, {0, 1, 1}}) {
        Sizes fitting = steps;
        for (int axis = 0; axis < 3; ++axis) fitting[axis] = std::min(steps[axis], n[axis] - 1);
        if (fitting != Sizes{}) cases.push_back({n, fitting, missingShare == 0.02 ? 0.4 : -1.0, missingShare});
      }
    }
  }
  return cases;
}

TEST(Pyramid, KernelsAgainstWholeGridPasses) {
  for (const auto& [n, steps, central, missingShare] : Cases()) {
    for (const bool reduces : {true, false}) {
      SCOPED_TRACE(testing::PrintToString(n) + testing::PrintToString(steps) + testing::PrintToString(missingShare) +
                   (reduces ? " reduced" : " expanded"));
      Values input = Sample(n, missingShare, 11);
      Field field{n, input, Values(input.size(), 1.0)};
      Sizes nOut, offset{};
      Values w[3];
      for (int axis = 0; axis < 3; ++axis) {
        ASSERT_EQ(reduces ? VORLPyramidReduceDimension(n[axis], steps[axis], &nOut[axis], &offset[axis])
                          : VORLPyramidExpandDimension(n[axis], steps[axis], &nOut[axis]),
                  0);
        if (steps[axis] == 0) continue;
        w[axis] = Filter(steps[axis], central);
        field = (reduces ? ReduceAxis : ExpandAxis)(field, axis, steps[axis], w[axis]);
      }
      ASSERT_EQ(nOut, field.n);
      Values expected = field.values;
      for (std::size_t i = 0; i < expected.size(); ++i) {
        if (expected[i] == kMissing) continue;
        expected[i] = field.weights[i] < 0.5 ? kMissing : expected[i] / field.weights[i];
      }
      const Values before = input;
      for (const int nthreads : {0, 1, 2, 3, 8}) {
        Values output, weights;
        ASSERT_EQ(Resample(reduces, nthreads, input.data(), n, steps, w, offset, nOut, 0.5, &output, &weights), 0);
        EXPECT_TRUE(SameBits(output, expected) && SameBits(weights, field.weights)) << nthreads;
      }
      EXPECT_EQ(input, before);
    }
  }
}

TEST(Pyramid, Weights) {
  EXPECT_EQ(Filter(1, -1.0), (Values{0.5, 0.25}));
  EXPECT_EQ(Filter(2, -1.0), (Values{0.375, 0.25, 0.0625}));
  EXPECT_EQ(Filter(2, 0.4), (Values{0.4, 0.25, 0.25 - 0.4 / 2}));
  EXPECT_EQ(Filter(1, 0.0), (Values{0.0, 0.5}));
  // C(6, k): 20 and 1 share with both sides, 15 and 6 with each other.
  const double third[] = {20.0 / 66, 15.0 / 63, 6.0 / 63, 1.0 / 66};
  for (int j = 0; j < 4; ++j) EXPECT_NEAR(Filter(3, -1.0)[j], third[j], 1e-16);
  // Each input node gives 1/f in total, wherever it is between output nodes.
  for (const int f : {4, 5, 17, 510}) {
    for (const double central : {-1.0, 0.2}) {
      const Values w = Filter(f, central);
      for (int r = 0; r <= f / 2; ++r) {
        EXPECT_NEAR((r == 0 ? w[0] + 2 * w[f] : w[r] + w[f - r]) * f, 1.0, 1e-14) << f << ' ' << r;
      }
    }
  }
  double untouched = 7.0;
  for (const int f : {0, -1, INT_MIN}) EXPECT_EQ(VORLPyramidWeight(f, &untouched, -1.0), 0);
  EXPECT_EQ(untouched, 7.0);
}

TEST(Pyramid, Dimensions) {
  const struct {
    int n, step, reduced, nReduced, offset, expanded, nExpanded;
  } cases[] = {{9, 2, 0, 5, 0, 0, 17},
               {10, 2, 0, 5, 0, 0, 19},
               {8, 3, 0, 3, 0, 0, 22},
               {9, 3, 0, 3, 1, 0, 25},
               {5, 4, 0, 2, 0, 0, 17},
               {5, 5, -3505, 7, 7, 0, 21},
               {5, 1, 0, 5, 0, 0, 5},
               {5, INT_MIN, -3501, 7, 7, -3511, 7},
               {5, -1, -3501, 7, 7, -3511, 7},
               {1, 0, 0, 1, 0, 0, 1},
               {1, 1, -3505, 7, 7, -3515, 7},
               {INT_MAX, 2, 0, 1 << 30, 0, -3511, 7},
               {2, INT_MAX - 1, -3505, 7, 7, 0, INT_MAX},
               {2, INT_MAX, -3505, 7, 7, -3511, 7}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.n << ' ' << c.step);
    int nReduced = 7, offset = 7, nExpanded = 7;
    EXPECT_EQ(VORLPyramidReduceDimension(c.n, c.step, &nReduced, &offset), c.reduced);
    EXPECT_EQ(VORLPyramidExpandDimension(c.n, c.step, &nExpanded), c.expanded);
    EXPECT_TRUE(nReduced == c.nReduced && offset == c.offset && nExpanded == c.nExpanded);
  }
}

using ImageForm = decltype(&VORLImagePyramidReduce);

VORL_GRID Grid(int nx, int ny, int nz) { return {nx, ny, nz, 2.0, 1.0, 0.3, 10.0, -3.0, 0.5, 0, 0}; }

// nthreads 0: the serial form; with the default of the minimal weight.
int ResampleImage(bool reduces, int nthreads, Image& in, Image* out) {
  const auto serial = reduces ? VORLImagePyramidReduce : VORLImagePyramidExpand;
  const auto threaded = reduces ? VORLOMPImagePyramidReduce : VORLOMPImagePyramidExpand;
  return nthreads == 0 ? serial(&in, out, 2, 0, 3, -1, -1, 0.3, -2.0)
                       : threaded(&in, out, 2, 0, 3, -1, -1, 0.3, -2.0, nthreads);
}

// Images of two variables against the kernels; the default of the minimal weight; the frame of the result.
TEST(Pyramid, ImagesAgainstKernels) {
  const Sizes n{9, 7, 6}, steps{2, 0, 3};
  for (const bool reduces : {true, false}) {
    Image in(Grid(9, 7, 6), {"a", "b"}, Sample({9, 7, 12}, 0.4, 5));
    Sizes nOut, offset{};
    Values w[3];
    for (int axis = 0; axis < 3; ++axis) {
      w[axis] = Filter(steps[axis] > 0 ? steps[axis] : 1, axis == 2 ? 0.3 : -1.0);
      reduces ? VORLPyramidReduceDimension(n[axis], steps[axis], &nOut[axis], &offset[axis])
              : VORLPyramidExpandDimension(n[axis], steps[axis], &nOut[axis]);
    }
    Values expected, second, weights;
    ASSERT_EQ(Resample(reduces, 0, in.var, n, steps, w, offset, nOut, 0.6, &expected, &weights), 0);
    ASSERT_EQ(Resample(reduces, 0, in.var + 378, n, steps, w, offset, nOut, 0.6, &second, &weights), 0);
    expected.insert(expected.end(), second.begin(), second.end());
    for (const int nthreads : {0, 2}) {
      Image out;
      ASSERT_EQ(ResampleImage(reduces, nthreads, in, &out), 0);
      EXPECT_TRUE(SameBits(out.Values(), expected));
      EXPECT_STREQ(out.varName[1], reduces ? "b_GPred" : "b_GPexp");
      const auto& [mx, my, mz] = nOut;
      VORL_GRID frame{mx, my, mz, 9 * 2.0 / mx, 1.0, 6 * 0.3 / mz, 10.0, -3.0, 0.5, mx * my, mx * my * mz};
      EXPECT_EQ(VORLCmpGrid(out.grid, &frame), 0);
    }
  }
}

TEST(Pyramid, MinimalWeight) {
  const double m = kMissing;
  const struct {
    Values input;
    double central, minWeight, value;
  } cases[] = {{{m, 4.0, m}, 0.59, -1.0, m},  {{m, 4.0, m}, 0.6, -1.0, 4.0},  {{m, 4.0, m}, 0.59, 0.59, 4.0},
               {{4.0, m, m}, 0.5, 0.25, 4.0}, {{4.0, m, 8.0}, 0.5, 0.5, 6.0}, {{4.0, m, 8.0}, 0.5, 0.51, m},
               {{m, m, m}, 0.5, 1e-10, m},    {{m, 4.0, m}, 0.0, 1e-10, m}};
  for (const auto& c : cases) {
    Image in(Grid(3, 1, 1), {"v"}, c.input), out;
    ASSERT_EQ(VORLImagePyramidReduce(&in, &out, 1, 0, 0, c.central, 0, 0, c.minWeight), 0);
    EXPECT_EQ(out.var[1], c.value) << c.central << ' ' << c.minWeight;
  }
  // A sum that is by chance the missing value, here 0.5 times its double, counts as missing from then on.
  double input[] = {2.0 * m, 2.0 * m, 4.0, 4.0};
  double w[] = {0.25, 0.125}, output[4], total[4];
  ASSERT_EQ(VORLPyramidReduce(input, 2, 2, 1, 1, 1, 0, w, w, nullptr, 0, 0, 0, 2, 2, 1, output, total, 0.01), 0);
  EXPECT_EQ(output[0], 4.0);
  EXPECT_EQ(total[0], 0.125 * 0.5);
}

TEST(Pyramid, StepsOfZeroCopy) {
  Image in(Grid(2, 2, 1), {"v"}, {1.0, kMissing, -0.0, 4.0});
  for (const ImageForm form : {VORLImagePyramidReduce, VORLImagePyramidExpand}) {
    Image out;
    ASSERT_EQ(form(&in, &out, 0, 0, 0, -1, -1, -1, 0.0), 0);
    EXPECT_TRUE(SameBits(out.Values(), in.Values()));
  }
  Values w[3], output, total;
  for (const int nthreads : {0, -1, 3}) {
    EXPECT_EQ(Resample(false, nthreads, in.var, {2, 2, 1}, {}, w, {}, {2, 2, 1}, 0.0, &output, &total), 0);
    EXPECT_TRUE(SameBits(output, in.Values()));
    EXPECT_EQ(total, (Values{1.0, 0.0, 1.0, 1.0}));
  }
}

TEST(Pyramid, Refusals) {
  const double nan = std::nan("");
  const struct {
    Sizes n, steps;
    double minWeight;
    int reduced, expanded;
  } cases[] = {{{5, 5, 5}, {-1, -1, -1}, 0.0, -3502, -3512},
               {{5, 5, 5}, {1, -1, 9}, 0.0, -3503, -3513},
               {{5, 5, 5}, {1, 1, -1}, 0.0, -3504, -3514},
               {{1, 1, 1}, {1, -1, 1}, 0.0, -3506, -3516},
               {{5, 1, 5}, {1, 1, -1}, 0.0, -3507, -3517},
               {{5, 5, 1}, {1, 1, 1}, 0.0, -3508, -3518},
               {{5, 5, 5}, {1, 0, 0}, 0.9e-10, -3509, -3519},
               {{5, 5, 5}, {0, 0, 1}, nan, -3509, -3519},
               {{5, 5, 5}, {0, 0, 1}, 1e-10, 0, 0},
               {{5, 5, 5}, {INT_MAX, 0, 0}, 0.6, -3506, -3512},
               {{5, 5, 5}, {4, 70000, 70000}, 0.6, -3507, -620}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.reduced << ' ' << c.expanded);
    const auto& [sx, sy, sz] = c.steps;
    Image in(Grid(c.n[0], c.n[1], c.n[2]), {"v"}, {1.0}), reduced, expanded;
    EXPECT_EQ(VORLImagePyramidReduce(&in, &reduced, sx, sy, sz, -1, -1, -1, c.minWeight), c.reduced);
    EXPECT_EQ(VORLImagePyramidExpand(&in, &expanded, sx, sy, sz, -1, -1, -1, c.minWeight), c.expanded);
    EXPECT_TRUE((reduced.var == nullptr) == (c.reduced != 0) && (expanded.var == nullptr) == (c.expanded != 0));
  }
  for (const ImageForm form : {VORLImagePyramidReduce, VORLImagePyramidExpand}) {
    Image longName(Grid(3, 3, 3), {std::string(VORL_VARNAME_LENGTH - 6, 'v')}, {1.0}), out;
    EXPECT_EQ(form(&longName, &out, 1, 1, 1, -1, -1, -1, -1), -623);
    EXPECT_EQ(out.grid, nullptr);
    EXPECT_EQ(form(&longName, &longName, 1, 1, 1, -1, -1, -1, -1), -20);
  }
  for (const bool reduces : {true, false}) {
    Image sound(Grid(5, 5, 5), {"v"}, {1.0}), out;
    EXPECT_EQ(ResampleImage(reduces, -1, sound, &out), -3);
  }
  // Along one axis of the kernels, with a filter or without.
  double value[3] = {}, output[5], total[5], weight[2] = {};
  const struct {
    int n, nOut, step;
    double minWeight;
    double *in, *filter;
    int reduced, expanded;
  } kernels[] = {{2, 2, -2, 1.0, value, weight, -3501, -3511}, {2, 2, -2, 0.0, value, weight, -3509, -3519},
                 {0, 1, 1, 1.0, value, weight, -3505, -3515},  {1, -1, 1, 1.0, value, weight, -3505, -3515},
                 {3, 3, 1, 1.0, value, weight, 0, 0},          {3, 3, 1, 1.0, nullptr, weight, -20, -20},
                 {3, 3, 1, 1.0, value, nullptr, -20, -20},     {3, 5, 1, 1.0, value, weight, 0, -3515},
                 {1, 1, 1, 1.0, value, weight, 0, -3515}};
  for (const auto& [n, nOut, step, minWeight, in, filter, reduced, expanded] : kernels) {
    SCOPED_TRACE(testing::Message() << n << ' ' << nOut << ' ' << step);
    EXPECT_EQ(VORLPyramidReduce(in, n, 1, 1, step, 0, 0, filter, nullptr, nullptr, 0, 0, 0, nOut, 1, 1, output, total,
                                minWeight),
              reduced);
    EXPECT_EQ(
        VORLPyramidExpand(in, 1, 1, n, 0, 0, step, nullptr, nullptr, filter, 1, 1, nOut, output, total, minWeight),
        expanded);
  }
  // The other axis has no step, and another size.
  EXPECT_EQ(VORLPyramidReduce(value, 3, 1, 1, 1, 0, 0, weight, nullptr, nullptr, 0, 0, 0, 3, 2, 1, output, total, 1.0),
            -3505);
  EXPECT_EQ(VORLPyramidExpand(value, 3, 1, 1, 1, 0, 0, weight, nullptr, nullptr, 3, 2, 1, output, total, 1.0), -3515);
}

}  // namespace
