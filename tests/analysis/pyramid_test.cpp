#include "analysis/pyramid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "support/allocation_failure.hpp"
#include "support/test_image.hpp"

namespace {

constexpr double kMissing = VORL_MISSING_VALUE;
using kestrum_test::SameBits;
using Image = kestrum_test::TestImage;
using Values = std::vector<double>;
using Sizes = std::array<int, 3>;

// A grid of sums and weights, filtered axis by axis as a whole.
struct Field {
  Sizes n;
  Values values, weights;
};

std::size_t At(const Sizes& n, const Sizes& node) {
  return static_cast<std::size_t>((node[2] * n[1] + node[1]) * n[0] + node[0]);
}

// Calls node(o, at, sum, total) for each output node, at position o of a line along `axis`; at(k) is input node k of
// the line.
template <typename Node>
Field FilterAxis(const Field& in, std::size_t axis, int nOut, const Node& node) {
  Field out{in.n, {}, {}};
  out.n[axis] = nOut;
  out.values.resize(static_cast<std::size_t>(out.n[0] * out.n[1] * out.n[2]));
  out.weights = out.values;
  Sizes o;
  for (o[2] = 0; o[2] < out.n[2]; ++o[2]) {
    for (o[1] = 0; o[1] < out.n[1]; ++o[1]) {
      for (o[0] = 0; o[0] < out.n[0]; ++o[0]) {
        const auto at = [&](int position) {
          Sizes i = o;
          i[axis] = position;
          return At(in.n, i);
        };
        node(o[axis], at, out.values[At(out.n, o)], out.weights[At(out.n, o)]);
      }
    }
  }
  return out;
}

Field ReduceAxis(const Field& in, std::size_t axis, int f, const Values& w) {
  const int n = in.n[axis];
  const int offset = (n - 1) % f / 2;
  return FilterAxis(in, axis, (n - 1) / f + 1, [&](int o, const auto& at, double& sum, double& total) {
    sum = total = 0.0;
    const auto add = [&](int position, int j) {
      const std::size_t i = at(position < 0 ? 0 : position >= n ? n - 1 : position);
      if (in.values[i] == kMissing) return;
      sum += in.values[i] * w[static_cast<std::size_t>(j)];
      total += w[static_cast<std::size_t>(j)] * in.weights[i];
    };
    const int c = offset + o * f;
    add(c, 0);
    for (int j = 1; j <= f; ++j) {
      add(c + j, j);
      add(c - j, j);
    }
    if (total == 0.0) sum = kMissing;
  });
}

Field ExpandAxis(const Field& in, std::size_t axis, int f, const Values& w) {
  const int n = in.n[axis];
  const double w0 = f * w[0];
  const double wf = f * w[static_cast<std::size_t>(f)];
  return FilterAxis(in, axis, (n - 1) * f + 1, [&](int p, const auto& at, double& sum, double& total) {
    const int k = p / f;
    const int r = p % f;
    const auto has = [&](int position) { return position >= 0 && position < n && in.values[at(position)] != kMissing; };
    // Terms of the values, or of the weights; NaN for none.
    const auto blend = [&](const Values& v) {
      double near = NAN, far = NAN;
      if (r > 0) {
        if (has(k)) near = f * w[static_cast<std::size_t>(r)] * v[at(k)];
        if (has(k + 1)) far = f * w[static_cast<std::size_t>(f - r)] * v[at(k + 1)];
      } else {
        if (has(k)) near = (k == 0 || k == n - 1 ? w0 + wf : w0) * v[at(k)];
        if (has(k - 1) && has(k + 1)) {
          far = wf * (v[at(k - 1)] + v[at(k + 1)]);
        } else if (has(k - 1) || has(k + 1)) {
          far = wf * v[at(has(k - 1) ? k - 1 : k + 1)];
        }
      }
      return std::isnan(near) ? far : std::isnan(far) ? near : near + far;
    };
    sum = blend(in.values);
    total = blend(in.weights);
    if (std::isnan(sum)) {
      sum = kMissing;
      total = 0.0;
    }
  });
}

struct Case {
  Sizes n, steps;
  double central;
  double missingShare;
};

std::ostream& operator<<(std::ostream& stream, const Case& c) {
  for (const int i : c.n) stream << i << ' ';
  for (const int i : c.steps) stream << i << ' ';
  return stream << c.central << ' ' << c.missingShare;
}

Values Filter(int step, double central) {
  Values w(static_cast<std::size_t>(step) + 1);
  EXPECT_EQ(VORLPyramidWeight(step, w.data(), central), 0);
  return w;
}

// Nothing missing; single missing nodes among rows that are complete; much missing; whole sections missing.
Values Sample(const Sizes& n, double missingShare, unsigned seed) {
  std::mt19937 generator(seed);
  std::uniform_real_distribution<double> uniform(-1.0, 1.0);
  Values values(static_cast<std::size_t>(n[0] * n[1] * n[2]));
  for (double& v : values) v = uniform(generator);
  for (double& v : values) v = std::abs(uniform(generator)) < missingShare ? kMissing : v;
  for (double& v : values) v = std::abs(uniform(generator)) < 0.02 ? -0.0 : v;
  if (missingShare > 0.6) std::fill_n(values.begin(), n[0] * n[1], kMissing);
  return values;
}

// nthreads 0: the serial form.
int Resample(bool reduces, int nthreads, double* in, const Sizes& n, const Sizes& steps, Values (&w)[3],
             const Sizes& offset, const Sizes& nOut, double minWeight, Values* out, Values* total) {
  const auto& [nx, ny, nz] = n;
  const auto& [sx, sy, sz] = steps;
  const auto& [mx, my, mz] = nOut;
  const auto& [ox, oy, oz] = offset;
  double* const wx = w[0].data();
  double* const wy = w[1].data();
  double* const wz = w[2].data();
  out->resize(static_cast<std::size_t>(mx * my * mz));
  total->resize(out->size());
  double* const to = out->data();
  double* const weights = total->data();
  if (reduces && nthreads == 0) {
    return VORLPyramidReduce(in, nx, ny, nz, sx, sy, sz, wx, wy, wz, ox, oy, oz, mx, my, mz, to, weights, minWeight);
  }
  if (reduces) {
    return VORLOMPPyramidReduce(in, nx, ny, nz, sx, sy, sz, wx, wy, wz, ox, oy, oz, mx, my, mz, to, weights, minWeight,
                                nthreads);
  }
  return nthreads == 0 ? VORLPyramidExpand(in, nx, ny, nz, sx, sy, sz, wx, wy, wz, mx, my, mz, to, weights, minWeight)
                       : VORLOMPPyramidExpand(in, nx, ny, nz, sx, sy, sz, wx, wy, wz, mx, my, mz, to, weights,
                                              minWeight, nthreads);
}

const std::vector<Case> kCases = [] {
  std::vector<Case> cases;
  for (const double missingShare : {0.0, 0.02, 0.4, 0.9}) {
    for (const Sizes& n : {Sizes{23, 38, 9}, {41, 5, 70}, {9, 10, 11}, {1, 40, 6}, {1, 1, 30}, {67, 1, 1}, {2, 2, 2}}) {
      for (const Sizes& steps : {Sizes{2, 2, 2}, {1, 3, 2}, {0, 2, 0}, {3, 0, 1}, {0, 0, 4}, {5, 0, 0}, {0, 1, 1}}) {
        Sizes fitting = steps;
        for (std::size_t axis = 0; axis < 3; ++axis) fitting[axis] = std::min(steps[axis], n[axis] - 1);
        if (fitting != Sizes{}) cases.push_back({n, fitting, missingShare == 0.02 ? 0.4 : -1.0, missingShare});
      }
    }
  }
  return cases;
}();

TEST(Pyramid, KernelsAgainstWholeGridPasses) {
  for (const Case& c : kCases) {
    for (const bool reduces : {true, false}) {
      SCOPED_TRACE(testing::Message() << c << (reduces ? " reduced" : " expanded"));
      const auto& [n, steps, central, missingShare] = c;
      Values input = Sample(n, missingShare, 11);
      Field field{n, input, Values(input.size(), 1.0)};
      Sizes nOut, offset{};
      Values w[3];
      for (std::size_t axis = 0; axis < 3; ++axis) {
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
        EXPECT_TRUE(SameBits(output, expected)) << nthreads;
        EXPECT_TRUE(SameBits(weights, field.weights)) << nthreads;
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
  const Values third = Filter(3, -1.0);
  const double expected[] = {20.0 / 66, 15.0 / 63, 6.0 / 63, 1.0 / 66};
  for (std::size_t j = 0; j < 4; ++j) EXPECT_NEAR(third[j], expected[j], 1e-16);
  // Each input node gives 1/f in total, wherever it stands between output nodes.
  for (const int f : {4, 5, 17, 510}) {
    for (const double central : {-1.0, 0.2}) {
      const Values w = Filter(f, central);
      for (int r = 0; r <= f / 2; ++r) {
        const auto at = [&](int j) { return w[static_cast<std::size_t>(j)]; };
        EXPECT_NEAR((r == 0 ? at(0) + 2 * at(f) : at(r) + at(f - r)) * f, 1.0, 1e-14) << f << ' ' << r;
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
               {11, 2, 0, 6, 0, 0, 21},
               {8, 3, 0, 3, 0, 0, 22},
               {9, 3, 0, 3, 1, 0, 25},
               {5, 4, 0, 2, 0, 0, 17},
               {5, 5, -3505, 7, 7, 0, 21},
               {5, 1, 0, 5, 0, 0, 5},
               {5, 0, 0, 5, 0, 0, 5},
               {5, -1, -3501, 7, 7, -3511, 7},
               {1, 0, 0, 1, 0, 0, 1},
               {1, 1, -3505, 7, 7, -3515, 7},
               {INT_MAX, 2, 0, 1 << 30, 0, -3511, 7},
               {2, INT_MAX - 1, -3505, 7, 7, 0, INT_MAX},
               {2, INT_MAX, -3505, 7, 7, -3511, 7},
               {3, INT_MIN, -3501, 7, 7, -3511, 7}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.n << ' ' << c.step);
    int nReduced = 7, offset = 7, nExpanded = 7;
    EXPECT_EQ(VORLPyramidReduceDimension(c.n, c.step, &nReduced, &offset), c.reduced);
    EXPECT_EQ(VORLPyramidExpandDimension(c.n, c.step, &nExpanded), c.expanded);
    EXPECT_EQ(nReduced, c.nReduced);
    EXPECT_EQ(offset, c.offset);
    EXPECT_EQ(nExpanded, c.nExpanded);
  }
}

using ImageForm = decltype(&VORLImagePyramidReduce);

VORL_GRID Grid(int nx, int ny, int nz) { return {nx, ny, nz, 2.0, 1.0, 0.3, 10.0, -3.0, 0.5, 0, 0}; }

// Images of two variables against the kernels; the default of the minimal weight; the frame of the result.
TEST(Pyramid, ImagesAgainstKernels) {
  const Sizes n{9, 7, 6}, steps{2, 0, 3};
  for (const bool reduces : {true, false}) {
    Image in(Grid(9, 7, 6), {"a", "b"}, Sample({9, 7, 12}, 0.4, 5));
    Sizes nOut, offset{};
    Values w[3];
    for (std::size_t axis = 0; axis < 3; ++axis) {
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
      const auto serial = reduces ? VORLImagePyramidReduce : VORLImagePyramidExpand;
      const auto threaded = reduces ? VORLOMPImagePyramidReduce : VORLOMPImagePyramidExpand;
      ASSERT_EQ(nthreads == 0 ? serial(&in, &out, 2, 0, 3, -1, -1, 0.3, -2.0)
                              : threaded(&in, &out, 2, 0, 3, -1, -1, 0.3, -2.0, nthreads),
                0);
      EXPECT_TRUE(SameBits(out.Values(), expected));
      EXPECT_STREQ(out.varName[1], reduces ? "b_GPred" : "b_GPexp");
      const VORL_GRID& g = *out.grid;
      EXPECT_EQ((Sizes{g.nx, g.ny, g.nz}), nOut);
      EXPECT_EQ(g.nxy * g.nz, g.nxyz);
      EXPECT_EQ(g.sx, 9 * 2.0 / nOut[0]);
      EXPECT_EQ(g.sz, 6 * 0.3 / nOut[2]);
      EXPECT_EQ(g.oz, 0.5);
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
  Values output(4), total(4);
  for (const int nthreads : {0, 3}) {
    EXPECT_EQ(VORLOMPPyramidExpand(in.var, 2, 2, 1, 0, 0, 0, nullptr, nullptr, nullptr, 2, 2, 1, output.data(),
                                   total.data(), 0.0, nthreads),
              0);
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
    Image in(Grid(c.n[0], c.n[1], c.n[2]), {"v"}, {1.0}), reduced, expanded;
    EXPECT_EQ(VORLImagePyramidReduce(&in, &reduced, c.steps[0], c.steps[1], c.steps[2], -1, -1, -1, c.minWeight),
              c.reduced);
    EXPECT_EQ(VORLImagePyramidExpand(&in, &expanded, c.steps[0], c.steps[1], c.steps[2], -1, -1, -1, c.minWeight),
              c.expanded);
    EXPECT_EQ(reduced.var == nullptr, c.reduced != 0);
    EXPECT_EQ(expanded.var == nullptr, c.expanded != 0);
  }
  for (const ImageForm form : {VORLImagePyramidReduce, VORLImagePyramidExpand}) {
    Image longName(Grid(3, 3, 3), {std::string(VORL_VARNAME_LENGTH - 6, 'v')}, {1.0}), out, empty;
    EXPECT_EQ(form(&longName, &out, 1, 1, 1, -1, -1, -1, -1), -623);
    EXPECT_EQ(out.grid, nullptr);
    EXPECT_EQ(form(&empty, &out, 1, 1, 1, -1, -1, -1, -1), -20);
    Image in(Grid(3, 3, 3), {"v"}, {1.0});
    EXPECT_EQ(form(&in, &in, 1, 1, 1, -1, -1, -1, -1), -20);
    in.grid->nxy = 8;
    EXPECT_EQ(form(&in, &out, 1, 1, 1, -1, -1, -1, -1), -611);
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

TEST(Pyramid, AllocationsThatFail) {
  const auto threaded = {VORLOMPImagePyramidReduce, VORLOMPImagePyramidExpand};
  for (const auto form : threaded) {
    Image in(Grid(5, 5, 5), {"v"}, {1.0});
    kestrum_test::ForEachFailingAllocation([&] {
      Image out;
      return form(&in, &out, 2, 1, 2, -1, -1, -1, -1, 2);
    });
    Image out;
    EXPECT_EQ(form(&in, &out, 2, 1, 2, -1, -1, -1, -1, 0), -3);
  }
}

}  // namespace
