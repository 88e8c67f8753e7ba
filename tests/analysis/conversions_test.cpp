#include "analysis/conversions.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "core/memory.h"
#include "support/allocation_failure.hpp"
#include "support/owned.hpp"
#include "support/test_image.hpp"

namespace {

using namespace kestrum_test;
using Reals = std::vector<double>;
using Names = std::vector<std::string>;

struct PointSet : Owned<VORL_POINTSET, VORLInitPointSet, VORLFreePointSet> {
  PointSet() = default;
  // All with y of 0.5, and one z.
  PointSet(const Names& names, const Reals& xs, const Reals& values, double height = 0.5) {
    npoint = static_cast<int>(xs.size());
    nvar = static_cast<int>(names.size());
    EXPECT_EQ(VORLMallocPointSet(this, npoint, nvar), 0);
    std::copy(xs.begin(), xs.end(), x);
    std::fill_n(y, npoint, 0.5);
    std::fill_n(z, npoint, height);
    for (int v = 0; v < nvar; ++v) std::strcpy(varName[v], names[v].c_str());
    std::copy(values.begin(), values.end(), var);
  }
};

// What a merge changes: an image, the bounds that belong to its caller, and counts.
struct Target : Image {
  Target(const VORL_GRID& frame, const Names& names, const Reals& values)
      : Image(frame, names, values), lower(names.size()), upper(names.size()) {}
  ~Target() {
    for (double* bound : lower) VORLFree(bound);
    for (double* bound : upper) VORLFree(bound);
  }
  int Take(VORL_IMAGE* source, int ignoreUnmatched, int conflictMode, BOOLEAN merge) {
    return VORLImageToImage(source, this, lower.data(), upper.data(), ignoreUnmatched, conflictMode, &nignored,
                            &nconflict, merge);
  }
  int Take(VORL_POINTSET* source, int ignoreUnmatched, int placementMode, int conflictMode) {
    return VORLPointSetToImage(source, this, lower.data(), upper.data(), ignoreUnmatched, placementMode, conflictMode,
                               &nignored, &ndropped, &nconflict);
  }
  Reals Of(const double* bound) const { return bound == nullptr ? Reals{} : Reals(bound, bound + grid->nxyz); }
  std::vector<double*> lower, upper;
  int nignored = 5, ndropped = 5, nconflict = 5;
};

// Along the first ndirection directions.
int Extract(Image& in, VORL_IMAGE* out, int ndirection, const Reals& r, const std::vector<Reals>& d, const Reals& s) {
  return ndirection == 1   ? VORLImageExtract1D(&in, out, r[0], r[1], r[2], d[0][0], d[0][1], d[0][2], s[0])
         : ndirection == 2 ? VORLImageExtract2D(&in, out, r[0], r[1], r[2], d[0][0], d[0][1], d[0][2], d[1][0], d[1][1],
                                                d[1][2], s[0], s[1])
                           : VORLImageExtract3D(&in, out, r[0], r[1], r[2], d[0][0], d[0][1], d[0][2], d[1][0], d[1][1],
                                                d[1][2], d[2][0], d[2][1], d[2][2], s[0], s[1], s[2]);
}

// Nearest centre by trying all; the first, and so the lower one, of two that are equally near.
int NearestByTrial(double coordinate, double origin, double spacing, int n) {
  int nearest = 0;
  for (int i = 1; i < n; ++i) {
    const double distance = std::abs(coordinate - (origin + (i + 0.5) * spacing));
    if (distance < std::abs(coordinate - (origin + (nearest + 0.5) * spacing))) nearest = i;
  }
  return nearest;
}

TEST(Conversions, ExtractionAgainstTrial) {
  Reals values(5 * 4 * 3 * 2);
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<double>(i);
  // Powers of two make steps, products and halves exact.
  Image image({5, 4, 3, 0.5, 1.0, 2.0, -1.0, 8.0, 0.25, 0, 0}, {"a", "b"}, values);
  for (int ndirection = 1; ndirection <= 3; ++ndirection) {
    SCOPED_TRACE(ndirection);
    std::optional<Image> made;
    ForEachFailingAllocation([&] {
      return Extract(image, &made.emplace(), ndirection, {0.25, 10.5, 3.0}, {{0, 0, -4}, {0.5, 0, 0}, {0, 2, 0}},
                     {0.5, 0.25, 0.125});
    });
    const Image& out = *made;
    // Along -z from 3.0: the box ends 2.75 before and 3.25 behind; along x 1.25 and 1.25; along y 2.5 and 1.5.
    VORL_GRID expected{12, 1, 1, 0.5, 1.0, 1.0, -6.5 * 0.5, -0.5, -0.5, 0, 0};
    if (ndirection > 1) expected.ny = 11, expected.sy = 0.25, expected.oy = -5.5 * 0.25;
    if (ndirection > 2) expected.nz = 33, expected.sz = 0.125, expected.oz = -20.5 * 0.125;
    expected.nxy = 12 * expected.ny;
    expected.nxyz = expected.nxy * expected.nz;
    EXPECT_EQ(VORLCmpGrid(out.grid, &expected), 0);
    EXPECT_EQ(out.nvar, 2);
    EXPECT_EQ(out.nxyzv, 2 * expected.nxyz);
    EXPECT_STREQ(out.varName[1], "b");
    for (int id = 0; id < expected.nxyz; ++id) {
      int ix, iy, iz, iv;
      VORLGridIdToCoord(out.grid, id, &ix, &iy, &iz, &iv);
      const double z = 3.0 - (expected.ox + (ix + 0.5) * expected.sx);
      const double x = 0.25 + (ndirection > 1 ? expected.oy + (iy + 0.5) * expected.sy : 0.0);
      const double y = 10.5 + (ndirection > 2 ? expected.oz + (iz + 0.5) * expected.sz : 0.0);
      const bool inside = x >= -1.0 && x <= 1.5 && y >= 8.0 && y <= 12.0 && z >= 0.25 && z <= 6.25;
      const int node =
          NearestByTrial(x, -1.0, 0.5, 5) + 5 * NearestByTrial(y, 8.0, 1.0, 4) + 20 * NearestByTrial(z, 0.25, 2.0, 3);
      for (int v = 0; v < 2; ++v) {
        ASSERT_EQ(out.var[v * expected.nxyz + id], inside ? node + 60 * v : kMissing) << x << ' ' << y << ' ' << z;
      }
    }
  }
}

TEST(Conversions, ObliqueExtraction) {
  const double m = kMissing;
  Image image(Grid(2, 2, 1), {"v"}, {1, 2, 3, 4});
  // The reference point is (1.5, 0), on the outer face: corners project to -0.9 .. 1.9, and to -0.3 .. 2.5.
  const struct {
    double dirX, step, origin;
    Reals samples;
  } cases[] = {{3.0, 0.5, -0.75, {m, 2, 2, m, m}}, {-3.0, 0.4, -0.2, {2, 2, 2, 1, 3, 3, 3}}};
  for (const auto& c : cases) {
    Image out;
    ASSERT_EQ(VORLImageExtract1D(&image, &out, 1.5, 0.0, 0.5, c.dirX, 4.0, 0.0, c.step), 0);
    EXPECT_EQ(out.Values(), c.samples);
    EXPECT_EQ(out.grid->ox, c.origin);
  }
}

TEST(Conversions, ExtractionRefusals) {
  Image image(Grid(2, 3, 4), {"v", "w"}, {1});
  const struct {
    Reals reference, direction;
    double step;
    int status;
  } cases[] = {
      {{2, 3, 4}, {1, 0, 0}, 1, 0},         {{0, 0, 0}, {1e-5, 0, 0}, 1e-5, 0},   {{2.1, 4, 5}, {0, 0, 0}, 0, -86201},
      {{kNaN, 1, 1}, {1, 0, 0}, 1, -86201}, {{1, -0.1, 5}, {0, 0, 0}, 0, -86202}, {{1, 1, 4.1}, {0, 0, 0}, 0, -86203},
      {{1, 1, 1}, {0, 9e-6, 0}, 0, -86211}, {{1, 1, 1}, {0, kNaN, 0}, 1, -86211}, {{1, 1, 1}, {0, 1, 0}, 9e-6, -86206},
      {{1, 1, 1}, {0, 1, 0}, kNaN, -86206}, {{1, 1, 1}, {0, 1, 0}, INFINITY, 0}};
  for (const auto& c : cases) {
    Image out;
    EXPECT_EQ(Extract(image, &out, 1, c.reference, {c.direction}, {c.step}), c.status);
  }
  Image out;
  const std::vector<Reals> axes{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  // More samples than an int counts, or values.
  for (const double step : {1e-4, 2.7e-3}) {
    EXPECT_EQ(Extract(image, &out, 3, {1, 1, 1}, axes, {step, step, step}), -86206);
  }
  Image wide(Grid(1, 1, 1, 1e6), {"v"}, {1});
  EXPECT_EQ(Extract(wide, &out, 1, {1, 1, 1}, axes, {1e-5}), -86206);
}

TEST(Conversions, ImageIntoImage) {
  const double m = kMissing;
  const Reals before{m, 1, m, 1};
  const Reals source{m, m, 2, 2};
  const struct {
    int conflictMode;
    bool merge;
    int status, nconflict;
    Reals after;
  } cases[] = {{0, false, 0, 0, source},      {2, false, 0, 0, source},      {0, true, -152, 0, {m, 1, 2, 1}},
               {1, true, 0, 1, {m, 1, 2, 1}}, {2, true, 0, 1, {m, 1, 2, 2}}, {3, true, 0, 0, {m, 1, 2, 1}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.conflictMode);
    Target target(Grid(4, 1, 1), {"other", "v"}, {7, 7, 7, 7, m, 1, m, 1});
    Image from({4, 1, 1, 3, 1, 1, 3, 0, 0, 0, 0}, {"unknown", "v"}, {9, 9, 9, 9, m, m, 2, 2});
    EXPECT_EQ(target.Take(&from, 1, c.conflictMode, c.merge), c.status);
    EXPECT_EQ(target.nignored, 1);
    EXPECT_EQ(target.nconflict, c.nconflict);
    EXPECT_EQ(Reals(target.var, target.var + 4), Reals(4, 7.0));
    EXPECT_EQ(Reals(target.var + 4, target.var + 8), c.after);
  }
  Target target(Grid(4, 1, 1), {"v"}, before);
  Image unknown(Grid(4, 1, 1), {"v_min"}, source);
  Image turned(Grid(1, 4, 1), {"v"}, source);
  EXPECT_EQ(target.Take(&turned, 1, 0, TRUE), -150);
  for (double** const lower : {static_cast<double**>(nullptr), target.lower.data()}) {
    EXPECT_EQ(VORLImageToImage(&unknown, &target, lower, nullptr, 0, 0, &target.nignored, &target.nconflict, TRUE),
              -151);
  }
  EXPECT_EQ(target.Values(), before);
}

TEST(Conversions, WhereVariablesGo) {
  // Target variable, or -1 if ignored, and the kind of data that a source name leads to.
  const struct {
    const char* name;
    int variable;
    char kind;
  } cases[] = {{"por", 1, 'v'},      {"por_min", 0, '<'}, {"perm_max", 2, '>'}, {"_min", 0, '<'},
               {"_max", 0, '>'},     {"k_min", 3, 'v'},   {"k_max", 3, '>'},    {"min", -1, ' '},
               {"por_Min", -1, ' '}, {"po", -1, ' '},     {"poro_min", 0, '<'}, {"poros_max", -1, ' '},
               {"", -1, ' '}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Image source(Grid(1, 1, 1), {c.name}, {5});
    PointSet points({c.name}, {0.5}, {5});
    for (const bool fromPoints : {false, true}) {
      Target target(Grid(1, 1, 1), {"poro", "por", "perm", "k_min"}, {kMissing});
      ForEachFailingAllocation(
          [&] { return fromPoints ? target.Take(&points, 1, 0, 0) : target.Take(&source, 1, 0, TRUE); });
      EXPECT_EQ(target.nignored, c.variable < 0 ? 1 : 0);
      for (int v = 0; v < target.nvar; ++v) {
        const auto expected = [&](char kind) { return v == c.variable && kind == c.kind; };
        EXPECT_EQ(target.var[v], expected('v') ? 5.0 : kMissing) << v;
        EXPECT_EQ(target.Of(target.lower[v]), expected('<') ? Reals{5} : Reals{}) << v;
        EXPECT_EQ(target.Of(target.upper[v]), expected('>') ? Reals{5} : Reals{}) << v;
      }
    }
  }
}

TEST(Conversions, TighterBoundStays) {
  const double m = kMissing;
  const Names names{"v_min", "v_max"};
  for (const int conflictMode : {0, 1, 2, 3}) {
    SCOPED_TRACE(conflictMode);
    const bool fails = conflictMode == 0;
    Target target(Grid(4, 1, 1), {"v"}, {m});
    Image first(Grid(4, 1, 1), names, {1, 1, m, m}), second(Grid(4, 1, 1), names, {2, 0, 2, m});
    ForEachFailingAllocation([&] { return target.Take(&first, 0, 1, FALSE); });
    EXPECT_EQ(target.Take(&second, 0, conflictMode, FALSE), fails ? -152 : 0);
    EXPECT_EQ(target.nconflict, 0);
    EXPECT_EQ(target.Of(target.lower[0]), fails ? (Reals{1, 1, m, m}) : (Reals{2, 1, 2, m}));
    EXPECT_EQ(target.Of(target.upper[0]), fails ? (Reals{1, 1, m, m}) : (Reals{1, 0, 2, m}));
  }
}

TEST(Conversions, PlacementOfPoints) {
  const double m = kMissing;
  // Cells [10, 12], [12, 14], [14, 16] along x.
  const struct {
    double x, z;
    int placementMode, status, ndropped;
    Reals after;
  } cases[] = {
      {10, 0, 0, 0, 0, {5, m, m}},        {12, 1, 0, 0, 0, {5, m, m}},          {12.001, 0.5, 1, 0, 0, {m, 5, m}},
      {16, 0.5, 0, 0, 0, {m, m, 5}},      {16.001, 0.5, 0, -161, 0, {m, m, m}}, {16.001, 0.5, 1, 0, 1, {m, m, m}},
      {9.999, 0.5, 2, 0, 1, {m, m, m}},   {11, 1.001, 1, 0, 1, {m, m, m}},      {kNaN, 0.5, 0, -161, 0, {m, m, m}},
      {11, kNaN, 1, 0, 1, {m, m, m}},     {13.000009, 0.5, 2, 0, 0, {m, 5, m}}, {13.000011, 0.5, 2, 0, 1, {m, m, m}},
      {13, 0.500011, 2, 0, 1, {m, m, m}}, {INFINITY, 0.5, 3, 0, 1, {m, m, m}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.x << ' ' << c.z << ' ' << c.placementMode);
    Target target({3, 1, 1, 2.0, 1.0, 1.0, 10.0, 0.0, 0.0, 0, 0}, {"v"}, {m});
    PointSet points({"v"}, {c.x}, {5}, c.z);
    EXPECT_EQ(target.Take(&points, 0, c.placementMode, 0), c.status);
    EXPECT_EQ(target.ndropped, c.ndropped);
    EXPECT_EQ(target.Values(), c.after);
  }
}

TEST(Conversions, PointsInOneNode) {
  const double m = kMissing;
  const struct {
    int conflictMode, status, nconflict;
    double value;
  } cases[] = {{0, -162, 0, 1}, {1, 0, 1, 1}, {2, 0, 1, 3}, {9, 0, 0, 1}};
  for (const auto& c : cases) {
    Target target(Grid(2, 1, 1), {"v", "w"}, {m, m, 8, m});
    PointSet points({"v", "u", "w"}, {0.4, 0.6, 0.5}, {1, m, 3, 1, 2, 3, m, m, m});
    EXPECT_EQ(target.Take(&points, 1, 0, c.conflictMode), c.status);
    EXPECT_EQ(target.nignored, 1);
    EXPECT_EQ(target.nconflict, c.nconflict);
    EXPECT_EQ(target.Values(), (Reals{c.value, m, 8, m}));
  }
  Target target(Grid(1, 2, 1), {"v"}, {m});
  PointSet limits({"v_min", "v_max"}, {0.4, 0.6, 0.5}, {1, 3, 2, 1, m, -2});
  ForEachFailingAllocation([&] { return target.Take(&limits, 0, 0, 1); });
  EXPECT_EQ(target.nconflict, 0);
  EXPECT_EQ(target.Of(target.lower[0]), (Reals{3, m}));
  EXPECT_EQ(target.Of(target.upper[0]), (Reals{-2, m}));
  EXPECT_EQ(target.Take(&limits, 0, 0, 0), -162);
  // Nothing to move: points out of the grid do not matter.
  PointSet unknown({"u"}, {50}, {1});
  EXPECT_EQ(target.Take(&unknown, 0, 0, 0), -160);
  EXPECT_EQ(target.Take(&unknown, 1, 0, 0), 0);
  EXPECT_EQ(target.ndropped, 0);
}

TEST(Conversions, ImageToPoints) {
  const double m = kMissing;
  const VORL_GRID grid{2, 1, 2, 2.0, 1.0, 0.5, 10.0, -1.0, 0.0, 0, 0};
  Image image(grid, {"a", "none", "b"}, {m, 1, m, 2, m, m, m, m, m, m, 3, 4});
  std::optional<PointSet> made;
  ForEachFailingAllocation([&] { return VORLImageToPointSet(&image, &made.emplace()); });
  PointSet& points = *made;
  ASSERT_EQ(points.npoint, 3);
  ASSERT_EQ(points.nvar, 2);
  EXPECT_STREQ(points.varName[0], "a");
  EXPECT_STREQ(points.varName[1], "b");
  EXPECT_EQ(Reals(points.x, points.x + 3), (Reals{13, 11, 13}));
  EXPECT_EQ(Reals(points.y, points.y + 3), (Reals{-0.5, -0.5, -0.5}));
  EXPECT_EQ(Reals(points.z, points.z + 3), (Reals{0.25, 0.75, 0.75}));
  EXPECT_EQ(Reals(points.var, points.var + 6), (Reals{1, m, 2, m, 3, 4}));

  Target back(grid, {"a", "none", "b"}, {m});
  EXPECT_EQ(back.Take(&points, 0, 2, 0), 0);
  EXPECT_EQ(back.Values(), image.Values());

  for (const Names& names : {Names{"a"}, Names{}}) {
    Image blank(Grid(2, 1, 1), names, {m});
    PointSet none;
    EXPECT_EQ(VORLImageToPointSet(&blank, &none), -165);
  }
}

}  // namespace
