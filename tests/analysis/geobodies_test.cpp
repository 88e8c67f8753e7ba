#include "analysis/geobodies.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "analysis/geobodies.hpp"
#include "core/constants.h"
#include "core/memory.h"
#include "support/allocation_failure.hpp"
#include "support/test_image.hpp"

namespace {

constexpr double kMissing = VORL_MISSING_VALUE;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
using kestrum_test::Grid;
using Image = kestrum_test::TestImage;
using Ints = std::vector<int>;
using Values = std::vector<double>;

struct Intervals {
  Values lower;
  Values upper;
  BOOLEAN excludeLower = FALSE;
  BOOLEAN excludeUpper = FALSE;
  BOOLEAN complement = FALSE;

  int n() const { return static_cast<int>(lower.size()); }
  bool Holds(double value) const {
    if (value == kMissing) return false;
    bool inside = false;
    for (std::size_t k = 0; k < lower.size(); ++k) {
      const bool aboveLower = excludeLower ? value > lower[k] : value >= lower[k];
      inside = inside || (aboveLower && (excludeUpper ? value < upper[k] : value <= upper[k]));
    }
    return inside != (complement != FALSE);
  }
  // Calls one of the functions with a set of intervals.
  template <typename Function, typename Out, typename... Rest>
  int Call(Function* function, Image& image, Out* out, int varIndex, Rest... rest) {
    return function(&image, out, varIndex, complement, n(), lower.data(), upper.data(), excludeLower, excludeUpper,
                    rest...);
  }
};

// Flood fill from each unlabelled marked node in turn; nodes are neighbours if their coordinates differ by at most one,
// along at most maxAxes axes.
Ints FloodFill(const VORL_GRID& g, const Ints& marked, int maxAxes, int* ngeobody) {
  Ints labels(marked.size(), 0);
  *ngeobody = 0;
  for (int seed = 0; seed < g.nxyz; ++seed) {
    if (marked[seed] == 0 || labels[seed] != 0) continue;
    labels[seed] = ++*ngeobody;
    for (Ints stack{seed}; !stack.empty();) {
      const int node = stack.back();
      stack.pop_back();
      const int at[3] = {node % g.nx, node / g.nx % g.ny, node / g.nxy};
      for (int code = 0; code < 27; ++code) {
        const int d[3] = {code % 3 - 1, code / 3 % 3 - 1, code / 9 - 1};
        const int x = at[0] + d[0], y = at[1] + d[1], z = at[2] + d[2];
        if (std::abs(d[0]) + std::abs(d[1]) + std::abs(d[2]) > maxAxes) continue;
        if (x < 0 || x >= g.nx || y < 0 || y >= g.ny || z < 0 || z >= g.nz) continue;
        const int next = x + y * g.nx + z * g.nxy;
        if (marked[next] == 0 || labels[next] != 0) continue;
        labels[next] = labels[seed];
        stack.push_back(next);
      }
    }
  }
  return labels;
}

Values AsReals(const Ints& integers) { return {integers.begin(), integers.end()}; }

constexpr decltype(&VORLImageGeobody6) kGeobody[] = {VORLImageGeobody6, VORLImageGeobody18, VORLImageGeobody26};
constexpr decltype(&VORLImageGeobody6Vector) kGeobodyVector[] = {VORLImageGeobody6Vector, VORLImageGeobody18Vector,
                                                                 VORLImageGeobody26Vector};

void ExpectAsFloodFill(Image& image, int varIndex, Intervals set, int manyThreads) {
  const VORL_GRID& g = *image.grid;
  const real* const values = image.var + varIndex * g.nxyz;
  Ints marks(g.nxyz), indicator(g.nxyz);
  for (int id = 0; id < g.nxyz; ++id) {
    marks[id] = set.Holds(values[id]);
    indicator[id] = values[id] == kMissing ? VORL_MISSING_VALUE : marks[id];
  }
  const int count = static_cast<int>(std::count(marks.begin(), marks.end(), 1));

  int found = -1;
  Ints vector(g.nxyz, 77);
  ASSERT_EQ(set.Call(VORLImageIndicatorVector, image, vector.data(), varIndex, &found), 0);
  EXPECT_EQ(found, count);
  EXPECT_EQ(vector, indicator);
  for (int nthreads : {0, manyThreads}) {
    Image out;
    ASSERT_EQ(nthreads == 0
                  ? set.Call(VORLImageIndicator, image, static_cast<VORL_IMAGE*>(&out), varIndex, &found)
                  : set.Call(VORLOMPImageIndicator, image, static_cast<VORL_IMAGE*>(&out), varIndex, &found, nthreads),
              0);
    EXPECT_EQ(found, count);
    EXPECT_EQ(out.Values(), AsReals(indicator));
  }
  for (int kind = 0; kind < 3; ++kind) {
    int ngeobody = -1;
    Ints labels = FloodFill(g, marks, kind + 1, &ngeobody);
    // Missing nodes stay missing beside fewer than two marked nodes.
    if (count < 2) labels = indicator;
    ASSERT_EQ(set.Call(kGeobodyVector[kind], image, vector.data(), varIndex, &found), 0);
    EXPECT_EQ(found, ngeobody);
    ASSERT_EQ(vector, labels) << g.nx << ' ' << g.ny << ' ' << g.nz << ", kind " << kind;
    Image out;
    ASSERT_EQ(set.Call(kGeobody[kind], image, static_cast<VORL_IMAGE*>(&out), varIndex, &found), 0);
    EXPECT_EQ(found, ngeobody);
    EXPECT_EQ(out.Values(), AsReals(labels));
  }
}

TEST(Geobodies, RandomSetsAgainstFloodFill) {
  std::mt19937 random(1);
  constexpr int kShapes[][3] = {{1, 1, 1},  {7, 1, 1},  {1, 9, 1},   {1, 1, 8},  {5, 4, 1},  {1, 6, 5},
                                {6, 1, 5},  {2, 5, 6},  {4, 4, 4},   {5, 7, 3},  {9, 5, 6},  {64, 3, 3},
                                {63, 4, 3}, {65, 2, 4}, {130, 3, 2}, {1, 70, 6}, {128, 1, 1}};
  for (const auto& shape : kShapes) {
    for (int trial = 0; trial < 24; ++trial) {
      // All eight kinds of intervals, none to three of them; few levels, so that values meet bounds.
      Intervals set;
      set.excludeLower = trial & 1 ? TRUE : FALSE;
      set.excludeUpper = trial & 2 ? static_cast<BOOLEAN>(-128) : FALSE;
      set.complement = trial & 4 ? static_cast<BOOLEAN>(2) : FALSE;
      for (int k = trial / 8 + static_cast<int>(random() % 2); k > 0; --k) {
        set.lower.push_back(static_cast<double>(random() % 6));
        set.upper.push_back(set.lower.back() + static_cast<double>(random() % 4));
      }
      Values values(2 * static_cast<std::size_t>(shape[0] * shape[1] * shape[2]));
      for (double& value : values) {
        const unsigned draw = random() % 32;
        value = draw == 0 ? kMissing : draw == 1 ? kNaN : draw == 2 ? HUGE_VAL : static_cast<double>(draw % 8);
      }
      Image image(Grid(shape[0], shape[1], shape[2]), {"a", "b"}, values);
      constexpr int kThreads[] = {1, 2, 3, 8};
      ExpectAsFloodFill(image, trial % 2, set, kThreads[random() % 4]);
      if (HasFatalFailure()) return;
    }
  }
}

TEST(Geobodies, FewAndAllNodes) {
  const double m = kMissing;
  for (const Values& values : std::vector<Values>{
           {1, 1, 1, 1, 1, 1}, {m, 0, 0, 0, 0, 0}, {m, 0, 1, 0, 0, 0}, {m, 0, 1, 0, 0, 1}, {m, m, m, m, m, m}}) {
    Image image(Grid(3, 2, 1), {"a"}, values);
    for (BOOLEAN complement : {FALSE, TRUE}) {
      Intervals set{{1.0}, {1.0}, FALSE, FALSE, complement};
      ExpectAsFloodFill(image, 0, set, 2);
      ExpectAsFloodFill(image, 0, {{}, {}, FALSE, FALSE, complement}, 2);
      // These need no work memory.
      Ints expected(6), labels(6);
      int count = -1, ngeobody = -1;
      ASSERT_EQ(set.Call(VORLImageIndicatorVector, image, expected.data(), 0, &count), 0);
      const bool isFast = count < 2 || count == 6;
      const kestrum_test::FailAllocation fail(0);
      EXPECT_EQ(set.Call(VORLImageGeobody6Vector, image, labels.data(), 0, &ngeobody), isFast ? 0 : -1);
      EXPECT_EQ(ngeobody, isFast ? std::min(count, 1) : -1);
      EXPECT_TRUE(!isFast || labels == expected);
    }
  }
}

TEST(Geobodies, MarksAtEachSimdLevel) {
  std::mt19937 random(2);
  for (int trial = 0; trial < 64; ++trial) {
    Values values(kestrum::kMarkBlock);
    for (double& value : values) value = random() % 9 == 0 ? (random() % 2 ? kMissing : kNaN) : random() % 5;
    const double lower[] = {1.0, 3.0};
    const double upper[] = {2.0, 4.0};
    const kestrum::IntervalSet set{trial / 8 % 3, lower, upper, (trial & 1) != 0, (trial & 2) != 0, (trial & 4) != 0};
    std::array<unsigned char, kestrum::kMarkBlock> baseline, best;
    kestrum::MarkBlock(values.data(), set, kestrum::SimdLevel::kBaseline, baseline.data());
    kestrum::MarkBlock(values.data(), set, kestrum::BestSimdLevel(), best.data());
    EXPECT_EQ(baseline, best);
  }
}

TEST(Geobodies, StatusesAndFrame) {
  Image image({3, 2, 1, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 0, 0}, {"a", std::string(248, 'n')}, {0, 1, 1, 0, kMissing, 1});
  Intervals set{{1.0}, {1.0}};
  int number = 0;
  Ints vector(6);
  const auto expect = [&](int status, int varIndex) {
    for (auto* function : {VORLImageIndicator, VORLImageGeobody6, VORLImageGeobody18, VORLImageGeobody26}) {
      Image out;
      EXPECT_EQ(set.Call(function, image, static_cast<VORL_IMAGE*>(&out), varIndex, &number), status);
      EXPECT_EQ(out.var == nullptr, status != 0);
    }
  };
  expect(-1100, -1);
  expect(-1100, 2);
  expect(-623, 1);
  expect(0, 0);
  EXPECT_EQ(set.Call(VORLImageIndicator, image, static_cast<VORL_IMAGE*>(&image), 0, &number), -20);
  EXPECT_EQ(set.Call(VORLImageGeobody6Vector, image, vector.data(), 1, &number), 0);
  EXPECT_EQ(set.Call(VORLImageGeobody6Vector, image, static_cast<int*>(nullptr), 0, &number), -20);
  EXPECT_EQ(VORLImageGeobody6Vector(&image, vector.data(), 0, FALSE, 1, nullptr, nullptr, FALSE, FALSE, &number), -20);

  Image indicator, geobody;
  ASSERT_EQ(set.Call(VORLOMPImageIndicator, image, static_cast<VORL_IMAGE*>(&indicator), 0, &number, 0), 0);
  ASSERT_EQ(set.Call(VORLImageGeobody26, image, static_cast<VORL_IMAGE*>(&geobody), 0, &number), 0);
  EXPECT_STREQ(indicator.varName[0], "a_indicator");
  EXPECT_STREQ(geobody.varName[0], "a_geobody");
  for (const Image* out : {&indicator, &geobody}) {
    EXPECT_EQ(VORLCmpGrid(out->grid, image.grid), 0);
    EXPECT_EQ(out->nvar, 1);
    EXPECT_EQ(out->nxyzv, 6);
  }
  kestrum_test::ForEachFailingAllocation([&] {
    number = 5;
    Image out;
    const int status = set.Call(VORLImageGeobody18, image, static_cast<VORL_IMAGE*>(&out), 0, &number);
    EXPECT_EQ(number, status == 0 ? 1 : 5);
    return status;
  });
  image.grid->nxy = 5;
  expect(-611, 0);
}

TEST(Geobodies, SizesAndBoxes) {
  std::mt19937 random(3);
  for (const auto& shape : {std::array{6, 1, 1}, {1, 5, 2}, {4, 5, 3}}) {
    Values values(static_cast<std::size_t>(shape[0] * shape[1] * shape[2]));
    // Labels 1, 2, 3, 5 and 6, and what is none.
    const double choices[] = {0.0, 0.99, 1.0, 1.5, 2.0, 3.0, 5.0, 5.0, 6.0, -0.5, kMissing, kNaN, 1e300, 3e9, -3e9};
    for (double& value : values) value = choices[random() % std::size(choices)];
    values[0] = 6.0;
    Image image(Grid(shape[0], shape[1], shape[2]), {"a"}, values);
    int ngeobody = 0;
    int* table[4];
    ASSERT_EQ(VORLImageGeobodySize(&image, &ngeobody, &table[0], &table[1], &table[2], &table[3]), 0);
    ASSERT_EQ(ngeobody, 6);
    for (int label = 1; label <= 6; ++label) {
      int size = 0;
      Ints at[3];
      for (int id = 0; id < image.nxyzv; ++id) {
        if (!(values[id] >= label && values[id] < label + 1)) continue;
        ++size;
        int coordinate[3], variable;
        VORLGridIdToCoord(image.grid, id, &coordinate[0], &coordinate[1], &coordinate[2], &variable);
        for (int axis = 0; axis < 3; ++axis) at[axis].push_back(coordinate[axis]);
      }
      EXPECT_EQ(table[0][label - 1], size);
      for (int axis = 0; axis < 3; ++axis) {
        const auto [low, high] = std::minmax_element(at[axis].begin(), at[axis].end());
        EXPECT_EQ(table[1 + axis][label - 1], size == 0 ? -shape[axis] : *high - *low + 1);
      }
    }
    for (int* vector : table) VORLFree(vector);
  }
}

TEST(Geobodies, SizeStatuses) {
  Image labels(Grid(3, 1, 1), {"a"}, {1, 0, 3});
  Image none(Grid(3, 1, 1), {"a"}, {0.9, kMissing, 1e10});
  Image two(Grid(3, 1, 1), {"a", "b"}, {1});
  int ngeobody = 7;
  int* size = &ngeobody;
  int* x;
  int* y;
  int* z;
  EXPECT_EQ(VORLImageGeobodySize(&two, &ngeobody, &size, &x, &y, &z), -52);
  EXPECT_EQ(VORLImageGeobodySize(&labels, &ngeobody, &size, nullptr, &y, &z), -20);
  EXPECT_EQ(ngeobody, 7);
  EXPECT_EQ(VORLImageGeobodySize(&none, &ngeobody, &size, &x, &y, &z), -3);
  EXPECT_EQ(ngeobody, 0);
  EXPECT_EQ(size, &ngeobody);
  for (long k = 0; k < 5; ++k) {
    const kestrum_test::FailAllocation fail(k);
    EXPECT_EQ(VORLImageGeobodySize(&labels, &ngeobody, &size, &x, &y, &z), -1);
    EXPECT_TRUE(fail.Happened());
  }
  EXPECT_EQ(size, &ngeobody);
}

TEST(Geobodies, FindLinkFollowsTheChain) {
  Ints link{0, 1, 1, 2, 4, 3};
  const int roots[] = {0, 1, 1, 1, 4, 1};
  for (int label = 0; label < 6; ++label) EXPECT_EQ(VORLFindLink(label, link.data()), roots[label]);
  EXPECT_EQ(link, (Ints{0, 1, 1, 2, 4, 3}));
}

}  // namespace
