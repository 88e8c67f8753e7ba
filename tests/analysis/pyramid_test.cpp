#include "analysis/pyramid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "analysis/pyramid_levels.hpp"
#include "support/allocation_failure.hpp"
#include "support/test_image.hpp"

namespace {

constexpr double kMissing = VORL_MISSING_VALUE;
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

bool SameBits(const Values& a, const Values& b) {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0);
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
        Values output(expected.size()), weights(expected.size());
        const auto& [sx, sy, sz] = steps;
        double* const in = input.data();
        const int status =
            reduces ? nthreads == 0
                          ? VORLPyramidReduce(in, n[0], n[1], n[2], sx, sy, sz, w[0].data(), w[1].data(), w[2].data(),
                                              offset[0], offset[1], offset[2], nOut[0], nOut[1], nOut[2], output.data(),
                                              weights.data(), 0.5)
                          : VORLOMPPyramidReduce(in, n[0], n[1], n[2], sx, sy, sz, w[0].data(), w[1].data(),
                                                 w[2].data(), offset[0], offset[1], offset[2], nOut[0], nOut[1],
                                                 nOut[2], output.data(), weights.data(), 0.5, nthreads)
            : nthreads == 0
                ? VORLPyramidExpand(in, n[0], n[1], n[2], sx, sy, sz, w[0].data(), w[1].data(), w[2].data(), nOut[0],
                                    nOut[1], nOut[2], output.data(), weights.data(), 0.5)
                : VORLOMPPyramidExpand(in, n[0], n[1], n[2], sx, sy, sz, w[0].data(), w[1].data(), w[2].data(), nOut[0],
                                       nOut[1], nOut[2], output.data(), weights.data(), 0.5, nthreads);
        ASSERT_EQ(status, 0);
        EXPECT_TRUE(SameBits(output, expected)) << nthreads;
        EXPECT_TRUE(SameBits(weights, field.weights)) << nthreads;
      }
      EXPECT_EQ(input, before);
    }
  }
}

// The kernels of all instruction sets on rows of all lengths.
TEST(Pyramid, LevelsGiveTheSameBits) {
  const kestrum::PyramidKernels& baseline = kestrum::PyramidKernelsOf(kestrum::SimdLevel::kBaseline);
  for (const auto level : {kestrum::SimdLevel::kAvx2, kestrum::SimdLevel::kAvx512}) {
    if (level > kestrum::BestSimdLevel()) continue;
    const kestrum::PyramidKernels& kernels = kestrum::PyramidKernelsOf(level);
    for (std::size_t n = 0; n < 70; ++n) {
      const Values values = Sample({200, 1, 1}, n % 2 == 0 ? 0.3 : 0.0, static_cast<unsigned>(n));
      const Values weights = Sample({200, 1, 1}, 0.0, 77);
      const auto run = [&](const kestrum::PyramidKernels& of) {
        const double* const v = values.data();
        const double* const w = weights.data();
        const kestrum::PyramidTap taps[] = {{v, w, 0.4}, {v + 3, w + 5, 0.1}, {v + 70, w, 0.2}};
        const kestrum::PyramidRow a{v, w, false}, b{v + 9, w + 1, false}, c{v + 20, w + 2, false};
        Values out(1200, 5.0);
        double* to = out.data();
        out[0] = of.hasMissing(v + 1, n) + 2 * of.addTaps(taps, 3, n, to + 1) +
                 4 * of.blend({0.3, 0.2}, v, v + 9, nullptr, n, to + 101) +
                 8 * of.blend({0.3, 0.2}, v, v + 9, v + 20, n, to + 201);
        of.addInformedTaps(taps, 3, n, {to + 301, to + 401});
        of.blendInformed({0.3, 0.2}, a, b, nullptr, n, {to + 501, to + 601});
        of.blendInformed({0.3, 0.2}, a, b, &c, n, {to + 701, to + 801});
        of.divide(v, w, 0.25, n, to + 901);
        of.takeApart(v, n, to + 1001, to + 1071);
        return out;
      };
      EXPECT_TRUE(SameBits(run(kernels), run(baseline))) << n;
      Values first(n), second(n), pairs(2 * n);
      kernels.takeApart(values.data(), n, first.data(), second.data());
      kernels.join(first.data(), second.data(), n, pairs.data());
      EXPECT_TRUE(SameBits(pairs, Values(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(2 * n)))) << n;
      EXPECT_EQ(kernels.hasMissing(values.data(), n), std::count(values.begin(), values.begin() + n, kMissing) > 0);
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
    const auto nxyz = static_cast<std::size_t>(nOut[0] * nOut[1] * nOut[2]);
    Values expected(2 * nxyz), weights(nxyz);
    for (std::size_t v = 0; v < 2; ++v) {
      double* const from = in.var + v * 378;
      double* const to = expected.data() + v * nxyz;
      reduces ? VORLPyramidReduce(from, 9, 7, 6, 2, 0, 3, w[0].data(), nullptr, w[2].data(), offset[0], 0, offset[2],
                                  nOut[0], nOut[1], nOut[2], to, weights.data(), 0.6)
              : VORLPyramidExpand(from, 9, 7, 6, 2, 0, 3, w[0].data(), nullptr, w[2].data(), nOut[0], nOut[1], nOut[2],
                                  to, weights.data(), 0.6);
    }
    for (const int nthreads : {0, 1, 2, 3, 8}) {
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

TEST(Pyramid, ConstantImagesStayConstant) {
  for (const double missingShare : {0.0, 0.3}) {
    for (const ImageForm form : {VORLImagePyramidReduce, VORLImagePyramidExpand}) {
      Values values = Sample({13, 9, 8}, missingShare, 3);
      for (double& v : values) v = v == kMissing ? v : 0.7;
      Image in(Grid(13, 9, 8), {"v"}, values), out;
      ASSERT_EQ(form(&in, &out, 2, 3, 1, -1, -1, -1, 1e-10), 0);
      for (const double v : out.Values()) EXPECT_TRUE(std::abs(v - 0.7) < 1e-14 || (v == kMissing && missingShare > 0));
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
    in.grid->nxy = 8;
    EXPECT_EQ(form(&in, &out, 1, 1, 1, -1, -1, -1, -1), -611);
  }
  double value = 1.0, total;
  const auto reduce = [&](int n, int nOut, int stepX, double minWeight) {
    return VORLPyramidReduce(&value, n, 1, 1, stepX, 0, 0, nullptr, nullptr, nullptr, 0, 0, 0, nOut, 1, 1, &value,
                             &total, minWeight);
  };
  const auto expand = [&](int n, int nOut, int stepZ, double minWeight) {
    return VORLPyramidExpand(&value, 1, 1, n, 0, 0, stepZ, nullptr, nullptr, nullptr, 1, 1, nOut, &value, &total,
                             minWeight);
  };
  EXPECT_EQ(reduce(1, 1, -2, 1.0), -3501);
  EXPECT_EQ(reduce(1, 1, -2, 0.0), -3509);
  EXPECT_EQ(reduce(0, 1, 1, 1.0), -3505);
  EXPECT_EQ(reduce(1, -1, 1, 1.0), -3505);
  EXPECT_EQ(expand(2, 3, -1, 1.0), -3511);
  EXPECT_EQ(expand(2, 3, 1, 0.0), -3519);
  EXPECT_EQ(expand(1, 1, 1, 1.0), -3515);
}

TEST(Pyramid, AllocationsThatFail) {
  const auto threaded = {VORLOMPImagePyramidReduce, VORLOMPImagePyramidExpand};
  for (const auto form : threaded) {
    Image in(Grid(5, 5, 5), {"v"}, {1.0});
    bool happened = true;
    for (long k = 0; happened; ++k) {
      Image out;
      const kestrum_test::FailAllocation failure(k);
      const int status = form(&in, &out, 2, 1, 2, -1, -1, -1, -1, 2);
      happened = failure.Happened();
      EXPECT_EQ(status, happened ? -1 : 0) << k;
    }
    Image out;
    EXPECT_EQ(form(&in, &out, 2, 1, 2, -1, -1, -1, -1, 0), -3);
  }
}

}  // namespace
