#include "analysis/conversions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "core/memory.h"
#include "support/allocation_failure.hpp"
#include "support/test_image.hpp"

namespace {

constexpr double kMissing = VORL_MISSING_VALUE;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
using Image = kestrum_test::TestImage;
using Values = std::vector<double>;
using Names = std::vector<std::string>;

struct PointSet : VORL_POINTSET {
  PointSet() { VORLInitPointSet(this); }
  PointSet(const Names& names, const Values& xyz, const Values& values) : PointSet() {
    npoint = static_cast<int>(xyz.size() / 3);
    nvar = static_cast<int>(names.size());
    EXPECT_EQ(VORLMallocPointSet(this, npoint, nvar), 0);
    for (int p = 0; p < npoint; ++p) {
      const double* const point = &xyz[3 * static_cast<std::size_t>(p)];
      x[p] = point[0];
      y[p] = point[1];
      z[p] = point[2];
    }
    for (int v = 0; v < nvar; ++v) std::strcpy(varName[v], names[static_cast<std::size_t>(v)].c_str());
    for (int i = 0; i < nvar * npoint; ++i) var[i] = values[static_cast<std::size_t>(i)];
  }
  PointSet(const PointSet&) = delete;
  ~PointSet() { VORLFreePointSet(this); }
};

// The bounds of a merge, which belong to its caller.
struct Bounds {
  explicit Bounds(const VORL_IMAGE& target) : lower(Size(target)), upper(Size(target)), nxyz(target.grid->nxyz) {}
  ~Bounds() {
    for (double* bound : lower) VORLFree(bound);
    for (double* bound : upper) VORLFree(bound);
  }
  static std::size_t Size(const VORL_IMAGE& target) { return static_cast<std::size_t>(target.nvar); }
  Values Of(const double* bound) const { return bound == nullptr ? Values{} : Values(bound, bound + nxyz); }
  std::vector<double*> lower;
  std::vector<double*> upper;
  int nxyz;
};

VORL_GRID Line(int n) { return {n, 1, 1, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, 0, 0}; }

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
  Values values(5 * 4 * 3 * 2);
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<double>(i);
  // Powers of two make steps, products and halves exact.
  Image image({5, 4, 3, 0.5, 1.0, 2.0, -1.0, 8.0, 0.25, 0, 0}, {"a", "b"}, values);
  const VORL_GRID& g = *image.grid;
  const double reference[3] = {0.25, 10.5, 3.0};
  const double axes[3][3] = {{0.0, 0.0, -4.0}, {0.5, 0.0, 0.0}, {0.0, 2.0, 0.0}};
  const double steps[3] = {0.5, 0.25, 0.125};
  for (int ndirection = 1; ndirection <= 3; ++ndirection) {
    SCOPED_TRACE(ndirection);
    Image out;
    const auto& r = reference;
    const auto& d = axes;
    const auto& s = steps;
    const int status =
        ndirection == 1   ? VORLImageExtract1D(&image, &out, r[0], r[1], r[2], d[0][0], d[0][1], d[0][2], s[0])
        : ndirection == 2 ? VORLImageExtract2D(&image, &out, r[0], r[1], r[2], d[0][0], d[0][1], d[0][2], d[1][0],
                                               d[1][1], d[1][2], s[0], s[1])
                          : VORLImageExtract3D(&image, &out, r[0], r[1], r[2], d[0][0], d[0][1], d[0][2], d[1][0],
                                               d[1][1], d[1][2], d[2][0], d[2][1], d[2][2], s[0], s[1], s[2]);
    ASSERT_EQ(status, 0);
    const VORL_GRID& o = *out.grid;
    // Along -z from 3.0: the box ends 2.75 before and 3.25 behind; along x 1.25 and 1.25; along y 2.5 and 1.5.
    const VORL_GRID expected{12,
                             ndirection > 1 ? 11 : 1,
                             ndirection > 2 ? 33 : 1,
                             0.5,
                             ndirection > 1 ? 0.25 : 1.0,
                             ndirection > 2 ? 0.125 : 1.0,
                             -6.5 * 0.5,
                             ndirection > 1 ? -5.5 * 0.25 : -0.5,
                             ndirection > 2 ? -20.5 * 0.125 : -0.5,
                             12 * (ndirection > 1 ? 11 : 1),
                             12 * (ndirection > 1 ? 11 : 1) * (ndirection > 2 ? 33 : 1)};
    EXPECT_EQ(VORLCmpGrid(out.grid, const_cast<VORL_GRID*>(&expected)), 0);
    EXPECT_EQ(out.nvar, 2);
    EXPECT_EQ(out.nxyzv, 2 * o.nxyz);
    EXPECT_STREQ(out.varName[1], "b");
    for (int id = 0; id < o.nxyz; ++id) {
      int ix, iy, iz, iv;
      VORLGridIdToCoord(out.grid, id, &ix, &iy, &iz, &iv);
      const double z = reference[2] - (o.ox + (ix + 0.5) * o.sx);
      const double x = reference[0] + (ndirection > 1 ? o.oy + (iy + 0.5) * o.sy : 0.0);
      const double y = reference[1] + (ndirection > 2 ? o.oz + (iz + 0.5) * o.sz : 0.0);
      const bool inside = x >= -1.0 && x <= 1.5 && y >= 8.0 && y <= 12.0 && z >= 0.25 && z <= 6.25;
      const int node = NearestByTrial(x, g.ox, g.sx, 5) + 5 * NearestByTrial(y, g.oy, g.sy, 4) +
                       20 * NearestByTrial(z, g.oz, g.sz, 3);
      for (int v = 0; v < 2; ++v) {
        ASSERT_EQ(out.var[v * o.nxyz + id], inside ? node + 60 * v : kMissing) << x << ' ' << y << ' ' << z;
      }
    }
  }
}

TEST(Conversions, ObliqueExtraction) {
  Image image({2, 2, 1, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, 0, 0}, {"v"}, {1, 2, 3, 4});
  // The reference point is (1.5, 0), on the outer face: corners project to -0.9 .. 1.9, and to -0.3 .. 2.5.
  const struct {
    double dirX, step, origin;
    Values samples;
  } cases[] = {{3.0, 0.5, -0.75, {kMissing, 2, 2, kMissing, kMissing}}, {-3.0, 0.4, -0.2, {2, 2, 2, 1, 3, 3, 3}}};
  for (const auto& c : cases) {
    Image out;
    ASSERT_EQ(VORLImageExtract1D(&image, &out, 1.5, 0.0, 0.5, c.dirX, 4.0, 0.0, c.step), 0);
    EXPECT_EQ(out.Values(), c.samples);
    EXPECT_EQ(out.grid->ox, c.origin);
  }
}

TEST(Conversions, ExtractionRefusals) {
  Image image({2, 2, 2, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, 0, 0}, {"v"}, {1});
  const struct {
    Values reference, direction;
    double step;
    int status;
  } cases[] = {
      {{2, 2, 2}, {1, 0, 0}, 1, 0},         {{0, 0, 0}, {1e-5, 0, 0}, 1e-5, 0},   {{2.1, 3, 3}, {0, 0, 0}, 0, -86201},
      {{kNaN, 1, 1}, {1, 0, 0}, 1, -86201}, {{1, -0.1, 3}, {0, 0, 0}, 0, -86202}, {{1, 1, 2.1}, {0, 0, 0}, 0, -86203},
      {{1, 1, 1}, {0, 9e-6, 0}, 0, -86211}, {{1, 1, 1}, {0, kNaN, 0}, 1, -86211}, {{1, 1, 1}, {0, 1, 0}, 9e-6, -86206},
      {{1, 1, 1}, {0, 1, 0}, kNaN, -86206}, {{1, 1, 1}, {0, 1, 0}, INFINITY, 0}};
  for (const auto& c : cases) {
    Image out;
    EXPECT_EQ(VORLImageExtract1D(&image, &out, c.reference[0], c.reference[1], c.reference[2], c.direction[0],
                                 c.direction[1], c.direction[2], c.step),
              c.status);
  }
  Image out;
  EXPECT_EQ(VORLImageExtract3D(&image, &out, 1, 1, 1, 1, 0, 0, 0, 1, 0, 0, 0, 1, 1e-4, 1e-4, 1e-4), -86206);
  Image wide({1, 1, 1, 1e6, 1.0, 1.0, 0.0, 0.0, 0.0, 0, 0}, {"v"}, {1});
  EXPECT_EQ(VORLImageExtract1D(&wide, &out, 1, 1, 1, 1, 0, 0, 1e-5), -86206);
}

TEST(Conversions, ImageIntoImage) {
  const double m = kMissing;
  const Values before{m, 1, m, 1};
  const Values source{m, m, 2, 2};
  const struct {
    int conflictMode;
    bool merge;
    int status, nconflict;
    Values after;
  } cases[] = {{0, false, 0, 0, source},      {2, false, 0, 0, source},      {0, true, -152, 0, {m, 1, 2, 1}},
               {1, true, 0, 1, {m, 1, 2, 1}}, {2, true, 0, 1, {m, 1, 2, 2}}, {3, true, 0, 0, {m, 1, 2, 1}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.conflictMode);
    Image target(Line(4), {"other", "v"}, {7, 7, 7, 7, m, 1, m, 1});
    VORL_GRID elsewhere = Line(4);
    elsewhere.ox = elsewhere.sy = 3.0;
    Image from(elsewhere, {"unknown", "v"}, {9, 9, 9, 9, m, m, 2, 2});
    int nignored = 5, nconflict = 5;
    EXPECT_EQ(VORLImageToImage(&from, &target, nullptr, nullptr, 1, c.conflictMode, &nignored, &nconflict, c.merge),
              c.status);
    EXPECT_EQ(nignored, 1);
    EXPECT_EQ(nconflict, c.nconflict);
    EXPECT_EQ(Values(target.var, target.var + 4), Values(4, 7.0));
    EXPECT_EQ(Values(target.var + 4, target.var + 8), c.after);
  }
  Image target(Line(4), {"v"}, before);
  Image unknown(Line(4), {"v_min"}, source);
  Image turned({1, 4, 1, 1, 1, 1, 0, 0, 0, 0, 0}, {"v"}, source);
  Bounds bounds(target);
  int nignored, nconflict;
  EXPECT_EQ(VORLImageToImage(&turned, &target, nullptr, nullptr, 1, 0, &nignored, &nconflict, TRUE), -150);
  EXPECT_EQ(VORLImageToImage(&unknown, &target, nullptr, nullptr, 0, 0, &nignored, &nconflict, TRUE), -151);
  EXPECT_EQ(VORLImageToImage(&unknown, &target, bounds.lower.data(), nullptr, 0, 0, &nignored, &nconflict, TRUE), -151);
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
    Image target(Line(1), {"poro", "por", "perm", "k_min"}, {kMissing});
    Image source(Line(1), {c.name}, {5});
    PointSet points({c.name}, {0.5, 0.5, 0.5}, {5});
    for (const bool fromPoints : {false, true}) {
      Bounds bounds(target);
      for (int v = 0; v < target.nvar; ++v) target.var[v] = kMissing;
      int nignored, ndropped, nconflict;
      EXPECT_EQ(fromPoints ? VORLPointSetToImage(&points, &target, bounds.lower.data(), bounds.upper.data(), 1, 0, 0,
                                                 &nignored, &ndropped, &nconflict)
                           : VORLImageToImage(&source, &target, bounds.lower.data(), bounds.upper.data(), 1, 0,
                                              &nignored, &nconflict, TRUE),
                0);
      EXPECT_EQ(nignored, c.variable < 0 ? 1 : 0);
      for (int v = 0; v < target.nvar; ++v) {
        const auto expected = [&](char kind) { return v == c.variable && kind == c.kind; };
        const std::size_t i = static_cast<std::size_t>(v);
        EXPECT_EQ(target.var[v], expected('v') ? 5.0 : kMissing) << v;
        EXPECT_EQ(bounds.Of(bounds.lower[i]), expected('<') ? Values{5} : Values{}) << v;
        EXPECT_EQ(bounds.Of(bounds.upper[i]), expected('>') ? Values{5} : Values{}) << v;
      }
    }
  }
}

TEST(Conversions, TighterBoundStays) {
  const double m = kMissing;
  for (const int conflictMode : {0, 1, 2, 3}) {
    SCOPED_TRACE(conflictMode);
    Image target(Line(4), {"v"}, {m});
    Bounds bounds(target);
    Image first(Line(4), {"v_min", "v_max"}, {1, 1, m, m, 1, 1, m, m});
    Image second(Line(4), {"v_min", "v_max"}, {2, 0, 2, m, 2, 0, 2, m});
    int nignored, nconflict;
    EXPECT_EQ(VORLImageToImage(&first, &target, bounds.lower.data(), bounds.upper.data(), 0, conflictMode, &nignored,
                               &nconflict, FALSE),
              0);
    EXPECT_EQ(VORLImageToImage(&second, &target, bounds.lower.data(), bounds.upper.data(), 0, conflictMode, &nignored,
                               &nconflict, FALSE),
              conflictMode == 0 ? -152 : 0);
    EXPECT_EQ(nconflict, 0);
    EXPECT_EQ(bounds.Of(bounds.lower[0]), conflictMode == 0 ? (Values{1, 1, m, m}) : (Values{2, 1, 2, m}));
    EXPECT_EQ(bounds.Of(bounds.upper[0]), conflictMode == 0 ? (Values{1, 1, m, m}) : (Values{1, 0, 2, m}));
  }
}

TEST(Conversions, PlacementOfPoints) {
  const double m = kMissing;
  // Cells [10, 12], [12, 14], [14, 16] along x.
  const VORL_GRID grid{3, 1, 1, 2.0, 1.0, 1.0, 10.0, 0.0, 0.0, 0, 0};
  const struct {
    double x, z;
    int placementMode, status, ndropped;
    Values after;
  } cases[] = {
      {10, 0, 0, 0, 0, {5, m, m}},        {12, 1, 0, 0, 0, {5, m, m}},          {12.001, 0.5, 1, 0, 0, {m, 5, m}},
      {16, 0.5, 0, 0, 0, {m, m, 5}},      {16.001, 0.5, 0, -161, 0, {m, m, m}}, {16.001, 0.5, 1, 0, 1, {m, m, m}},
      {9.999, 0.5, 2, 0, 1, {m, m, m}},   {11, 1.001, 1, 0, 1, {m, m, m}},      {kNaN, 0.5, 0, -161, 0, {m, m, m}},
      {11, kNaN, 1, 0, 1, {m, m, m}},     {13.000009, 0.5, 2, 0, 0, {m, 5, m}}, {13.000011, 0.5, 2, 0, 1, {m, m, m}},
      {13, 0.500011, 2, 0, 1, {m, m, m}}, {INFINITY, 0.5, 3, 0, 1, {m, m, m}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.x << ' ' << c.z << ' ' << c.placementMode);
    Image target(grid, {"v"}, {m});
    PointSet points({"v"}, {c.x, 0.5, c.z}, {5});
    int nignored, ndropped, nconflict;
    EXPECT_EQ(VORLPointSetToImage(&points, &target, nullptr, nullptr, 0, c.placementMode, 0, &nignored, &ndropped,
                                  &nconflict),
              c.status);
    EXPECT_EQ(ndropped, c.ndropped);
    EXPECT_EQ(target.Values(), c.after);
  }
}

TEST(Conversions, PointsInOneNode) {
  const double m = kMissing;
  const Values twice{0.4, 0.5, 0.5, 0.6, 0.5, 0.5, 0.5, 0.5, 0.5};
  const struct {
    int conflictMode, status, nconflict;
    double value;
  } cases[] = {{0, -162, 0, 1}, {1, 0, 1, 1}, {2, 0, 1, 3}, {9, 0, 0, 1}};
  for (const auto& c : cases) {
    Image target(Line(2), {"v", "w"}, {m, m, 8, m});
    PointSet points({"v", "u", "w"}, twice, {1, m, 3, 1, 2, 3, m, m, m});
    int nignored, ndropped, nconflict;
    EXPECT_EQ(
        VORLPointSetToImage(&points, &target, nullptr, nullptr, 1, 0, c.conflictMode, &nignored, &ndropped, &nconflict),
        c.status);
    EXPECT_EQ(nignored, 1);
    EXPECT_EQ(nconflict, c.nconflict);
    EXPECT_EQ(target.Values(), (Values{c.value, m, 8, m}));
  }
  Image target(Line(2), {"v"}, {m});
  Bounds bounds(target);
  PointSet limits({"v_min", "v_max"}, twice, {1, 3, 2, 1, m, -2});
  int nignored, ndropped, nconflict;
  const auto merge = [&](VORL_POINTSET* points, int ignoreUnmatched, int conflictMode) {
    return VORLPointSetToImage(points, &target, bounds.lower.data(), bounds.upper.data(), ignoreUnmatched, 0,
                               conflictMode, &nignored, &ndropped, &nconflict);
  };
  EXPECT_EQ(merge(&limits, 0, 1), 0);
  EXPECT_EQ(nconflict, 0);
  EXPECT_EQ(bounds.Of(bounds.lower[0]), (Values{3, m}));
  EXPECT_EQ(bounds.Of(bounds.upper[0]), (Values{-2, m}));
  EXPECT_EQ(merge(&limits, 0, 0), -162);
  // Nothing to move: points out of the grid do not matter.
  PointSet unknown({"u"}, {50, 0, 0}, {1});
  EXPECT_EQ(merge(&unknown, 0, 0), -160);
  EXPECT_EQ(merge(&unknown, 1, 0), 0);
  EXPECT_EQ(ndropped, 0);
}

TEST(Conversions, ImageToPoints) {
  const double m = kMissing;
  Image image({2, 1, 2, 2.0, 1.0, 0.5, 10.0, -1.0, 0.0, 0, 0}, {"a", "none", "b"},
              {m, 1, m, 2, m, m, m, m, m, m, 3, 4});
  PointSet points;
  ASSERT_EQ(VORLImageToPointSet(&image, &points), 0);
  ASSERT_EQ(points.npoint, 3);
  ASSERT_EQ(points.nvar, 2);
  EXPECT_STREQ(points.varName[0], "a");
  EXPECT_STREQ(points.varName[1], "b");
  EXPECT_EQ(Values(points.x, points.x + 3), (Values{13, 11, 13}));
  EXPECT_EQ(Values(points.y, points.y + 3), (Values{-0.5, -0.5, -0.5}));
  EXPECT_EQ(Values(points.z, points.z + 3), (Values{0.25, 0.75, 0.75}));
  EXPECT_EQ(Values(points.var, points.var + 6), (Values{1, m, 2, m, 3, 4}));

  Image back({2, 1, 2, 2.0, 1.0, 0.5, 10.0, -1.0, 0.0, 0, 0}, {"a", "none", "b"}, {m});
  int nignored, ndropped, nconflict;
  EXPECT_EQ(VORLPointSetToImage(&points, &back, nullptr, nullptr, 0, 2, 0, &nignored, &ndropped, &nconflict), 0);
  EXPECT_EQ(back.Values(), image.Values());

  PointSet none;
  Image blank(Line(2), {"a"}, {m});
  EXPECT_EQ(VORLImageToPointSet(&blank, &none), -165);
  Image empty(Line(2), {}, {});
  EXPECT_EQ(VORLImageToPointSet(&empty, &none), -165);
}

TEST(Conversions, FailingAllocations) {
  Image image(Line(3), {"v"}, {1});
  Image bounded(Line(3), {"v_min"}, {1});
  PointSet limits({"v_max"}, {0.5, 0.5, 0.5}, {1});
  Bounds bounds(image);
  int nignored, ndropped, nconflict;
  using kestrum_test::ForEachFailingAllocation;
  ForEachFailingAllocation([&] {
    Image out;
    return VORLImageExtract1D(&image, &out, 1, 0.5, 0.5, 1, 0, 0, 1);
  });
  ForEachFailingAllocation([&] {
    PointSet points;
    return VORLImageToPointSet(&image, &points);
  });
  ForEachFailingAllocation([&] {
    return VORLImageToImage(&bounded, &image, bounds.lower.data(), bounds.upper.data(), 0, 1, &nignored, &nconflict,
                            TRUE);
  });
  ForEachFailingAllocation([&] {
    return VORLPointSetToImage(&limits, &image, bounds.lower.data(), bounds.upper.data(), 0, 1, 1, &nignored, &ndropped,
                               &nconflict);
  });
}

}  // namespace
