#include "analysis/geobodies.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "analysis/geobodies.hpp"
#include "core/memory.h"
#include "support/allocation_failure.hpp"
#include "support/test_image.hpp"

namespace {

using namespace kestrum_test;

struct Intervals {
  Values lower;
  Values upper;
  BOOLEAN excludeLower = FALSE;
  BOOLEAN excludeUpper = FALSE;
  BOOLEAN complement = FALSE;

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
    return function(&image, out, varIndex, complement, static_cast<int>(lower.size()), lower.data(), upper.data(),
                    excludeLower, excludeUpper, rest...);
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
      for (int code = 0; code < 27; ++code) {
        const int dx = code % 3 - 1, dy = code / 3 % 3 - 1, dz = code / 9 - 1;
        const int x = node % g.nx + dx, y = node / g.nx % g.ny + dy, z = node / g.nxy + dz;
        if (dx * dx + dy * dy + dz * dz > maxAxes) continue;
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

constexpr decltype(&VORLImageGeobody6) kGeobody[] = {VORLImageGeobody6, VORLImageGeobody18, VORLImageGeobody26};
constexpr decltype(&VORLImageGeobody6Vector) kGeobodyVector[] = {VORLImageGeobody6Vector, VORLImageGeobody18Vector,
                                                                 VORLImageGeobody26Vector};

void ExpectAsFloodFill(Image& image, int varIndex, Intervals set, int manyThreads) {
  const VORL_GRID& g = *image.grid;
  const real* const values = image.var + varIndex * g.nxyz;
  Ints marks(g.nxyz), indicator(g.nxyz), vector(g.nxyz, 77);
  for (int id = 0; id < g.nxyz; ++id) {
    marks[id] = set.Holds(values[id]);
    indicator[id] = values[id] == kMissing ? VORL_MISSING_VALUE : marks[id];
  }
  const int count = static_cast<int>(std::count(marks.begin(), marks.end(), 1));
  int found = -1;
  const auto expectImage = [&](int number, const Ints& labels, auto function, auto... nthreads) {
    Image out;
    ASSERT_EQ(set.Call(function, image, static_cast<VORL_IMAGE*>(&out), varIndex, &found, nthreads...), 0);
    EXPECT_EQ(found, number);
    EXPECT_EQ(out.Values(), Values(labels.begin(), labels.end()));
  };
  const auto expectVector = [&](int number, const Ints& labels, auto function) {
    ASSERT_EQ(set.Call(function, image, vector.data(), varIndex, &found), 0);
    EXPECT_EQ(found, number);
    ASSERT_EQ(vector, labels) << g.nx << ' ' << g.ny << ' ' << g.nz;
  };
  expectVector(count, indicator, VORLImageIndicatorVector);
  expectImage(count, indicator, VORLImageIndicator);
  expectImage(count, indicator, VORLOMPImageIndicator, manyThreads);
  for (int kind = 0; kind < 3; ++kind) {
    int ngeobody = -1;
    Ints labels = FloodFill(g, marks, kind + 1, &ngeobody);
    // Missing nodes stay missing beside fewer than two marked nodes.
    if (count < 2) labels = indicator;
    expectVector(ngeobody, labels, kGeobodyVector[kind]);
    expectImage(ngeobody, labels, kGeobody[kind]);
  }
}

TEST(Geobodies, RandomSetsAgainstFloodFill) {
  std::mt19937 random(1);
  constexpr int kShapes[][3] = {{1, 1, 1},   {7, 1, 1},   {1, 9, 1},   {1, 1, 8},   {5, 4, 1},   {1, 6, 5},
                                {6, 1, 5},   {2, 5, 6},   {4, 4, 4},   {5, 7, 3},   {9, 5, 6},   {64, 3, 3},
                                {63, 4, 3},  {65, 2, 4},  {130, 3, 2}, {1, 70, 6},  {128, 1, 1}, {2, 700, 1},
                                {3, 150, 4}, {31, 40, 2}, {32, 5, 3},  {100, 30, 3}};
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
      Values values(2 * shape[0] * shape[1] * shape[2]);
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
      // No node, one or all of them need no work memory.
      Ints expected(6), labels(6);
      int count = -1, ngeobody = -1;
      ASSERT_EQ(set.Call(VORLImageIndicatorVector, image, expected.data(), 0, &count), 0);
      const bool isFast = count < 2 || count == 6;
      for (auto* function : kGeobodyVector) {
        for (long k = 0; isFast && k < 4; ++k) {
          const FailAllocation fail(k);
          EXPECT_EQ(set.Call(function, image, labels.data(), 0, &ngeobody), 0);
          EXPECT_TRUE(fail.Happened());
          EXPECT_EQ(ngeobody, std::min(count, 1));
          EXPECT_EQ(labels, expected);
        }
      }
    }
  }
}

TEST(Geobodies, StatusesAndFrame) {
  Image image({3, 2, 1, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 0, 0}, {"a", std::string(248, 'n')}, {0, 1, 1, 0, kMissing, 1});
  Intervals set{{1.0}, {1.0}};
  const struct {
    decltype(&VORLImageGeobody6) function;
    const char* name;
    int number;
  } forms[] = {{VORLImageIndicator, "a_indicator", 3},
               {[](auto... arguments) noexcept { return VORLOMPImageIndicator(arguments..., 0); }, "a_indicator", 3},
               {VORLImageGeobody6, "a_geobody", 1},
               {VORLImageGeobody18, "a_geobody", 1},
               {VORLImageGeobody26, "a_geobody", 1}};
  int number = 5;
  for (const auto& form : forms) {
    const auto call = [&](int varIndex, VORL_IMAGE* out) {
      return set.Call(form.function, image, out, varIndex, &number);
    };
    Image out;
    EXPECT_EQ(call(-1, &out), -1100);
    EXPECT_EQ(call(2, &out), -1100);
    EXPECT_EQ(call(1, &out), -623);
    EXPECT_EQ(call(0, &image), -20);
    EXPECT_EQ(out.var, nullptr);
    EXPECT_EQ(call(0, &out), 0);
    EXPECT_STREQ(out.varName[0], form.name);
    EXPECT_EQ(VORLCmpGrid(out.grid, image.grid), 0);
    EXPECT_EQ(out.nvar, 1);
    EXPECT_EQ(out.nxyzv, 6);
    ForEachFailingAllocation([&] {
      number = 5;
      Image none;
      const int status = call(0, &none);
      EXPECT_EQ(number, status == 0 ? form.number : 5);
      return status;
    });
  }
  Ints vector(6);
  for (auto* function : kGeobodyVector) {
    ForEachFailingAllocation([&] { return set.Call(function, image, vector.data(), 1, &number); });
    EXPECT_EQ(set.Call(function, image, static_cast<int*>(nullptr), 0, &number), -20);
    EXPECT_EQ(function(&image, vector.data(), 0, FALSE, 1, nullptr, nullptr, FALSE, FALSE, &number), -20);
  }
}

TEST(Geobodies, SizesAndBoxes) {
  std::mt19937 random(3);
  for (const auto& shape : {std::array{6, 1, 1}, {1, 5, 2}, {4, 5, 3}}) {
    Values values(shape[0] * shape[1] * shape[2]);
    // Labels 1, 2, 3, 5 and 6, and what is none.
    const double choices[] = {0.0, 0.99, 1.0, 1.5, 2.0, 3.0, 5.0, 5.0, 6.0, -0.5, kMissing, kNaN, 1e300, 3e9, -3e9};
    for (double& value : values) value = choices[random() % std::size(choices)];
    values[0] = 6.0;
    Image image(Grid(shape[0], shape[1], shape[2]), {"a"}, values);
    int ngeobody = 0;
    int* table[] = {&ngeobody, &ngeobody, &ngeobody, &ngeobody};
    ForEachFailingAllocation([&] {
      const int status = VORLImageGeobodySize(&image, &ngeobody, &table[0], &table[1], &table[2], &table[3]);
      for (const int* vector : table) EXPECT_EQ(vector == &ngeobody, status != 0);
      return status;
    });
    ASSERT_EQ(ngeobody, 6);
    for (int label = 1; label <= 6; ++label) {
      int size = 0;
      int low[] = {shape[0], shape[1], shape[2]}, high[] = {-1, -1, -1};
      for (int id = 0; id < image.nxyzv; ++id) {
        if (!(values[id] >= label && values[id] < label + 1)) continue;
        ++size;
        const int at[] = {id % shape[0], id / shape[0] % shape[1], id / image.grid->nxy};
        for (int axis = 0; axis < 3; ++axis) {
          low[axis] = std::min(low[axis], at[axis]);
          high[axis] = std::max(high[axis], at[axis]);
        }
      }
      EXPECT_EQ(table[0][label - 1], size);
      for (int axis = 0; axis < 3; ++axis) EXPECT_EQ(table[1 + axis][label - 1], high[axis] - low[axis] + 1);
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
  int *x, *y, *z;
  EXPECT_EQ(VORLImageGeobodySize(&two, &ngeobody, &size, &x, &y, &z), -52);
  EXPECT_EQ(VORLImageGeobodySize(&labels, &ngeobody, &size, nullptr, &y, &z), -20);
  EXPECT_EQ(ngeobody, 7);
  EXPECT_EQ(VORLImageGeobodySize(&none, &ngeobody, &size, &x, &y, &z), -3);
  EXPECT_EQ(ngeobody, 0);
  EXPECT_EQ(size, &ngeobody);
}

TEST(Geobodies, FindLinkFollowsTheChain) {
  Ints link{0, 1, 1, 2, 4, 3};
  const int roots[] = {0, 1, 1, 1, 4, 1};
  for (int label = 0; label < 6; ++label) EXPECT_EQ(VORLFindLink(label, link.data()), roots[label]);
  EXPECT_EQ(link, (Ints{0, 1, 1, 2, 4, 3}));
}

}  // namespace
