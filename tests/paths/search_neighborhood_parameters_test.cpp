#include "paths/search_neighborhood_parameters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/allocation_failure.hpp"
#include "support/owned.hpp"
#include "support/seeded.hpp"
#include "support/test_image.hpp"
#include "support/text_stream.hpp"

namespace {

using Parameters = VORL_SEARCHNEIGHBORHOODPARAMETERS;

struct List : kestrum_test::Owned<VORL_SEARCHNEIGHBORHOOD, VORLInitSearchNeighborhood, VORLFreeSearchNeighborhood> {
  int Build(Parameters parameters, int seed = 1) {
    VORL_RANDCONTEXT context = kestrum_test::Seeded(seed);
    return VORLBuildSearchNeighborhood(&parameters, this, &context);
  }
};

// An entry that is missing or spoilt gives its own status, in each form.
TEST(SearchNeighborhoodParameters, ReadingTellsTheEntryThatFails) {
  const struct {
    BOOLEAN full;
    std::string entries;
    std::vector<int> statuses;
    Parameters expected;
  } forms[] = {{TRUE,
                "SEARCHNEIGHBORHOOD_RADIUS_MANUAL 1.5 2 -3e1 SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_MANUAL 4 5 6 "
                "SEARCHNEIGHBORHOOD_ROTATION_ON 10. 20 30 0.5",
                {-875, -876, -877, -878, -880, -881, -882, -883, -885, -886, -887, -888, -889},
                {7, 1.5, 2, -30, 6, 4, 5, 6, 1, 10, 20, 30, 0.5}},
               {TRUE,
                "SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_XZ SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS_YZ "
                "SEARCHNEIGHBORHOOD_ROTATION_OFF 0.5",
                {-875, -880, -885, -889},
                {4, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 0.5}},
               {FALSE,
                "1.5 2 -3e1 4 5 6 10. 20 30 0.5",
                {-876, -877, -878, -881, -882, -883, -886, -887, -888, -889},
                {7, 1.5, 2, -30, 6, 4, 5, 6, 1, 10, 20, 30, 0.5}}};
  const auto read = [](const std::string& text, Parameters* p, BOOLEAN full) {
    return VORLReadSearchNeighborhoodParameters(p, full, kestrum_test::TextStream(text).file);
  };
  for (const auto& form : forms) {
    std::istringstream entries(form.entries);
    std::string text, entry;
    Parameters p{}, expected = form.expected;
    for (const int status : form.statuses) {
      for (const char* const bad : {"", "/* open", "// end", "x1", "/1"})
        EXPECT_EQ(read(text + bad, &p, form.full), status);
      EXPECT_EQ(read(text + std::string(5000, '7') + "x", &p, form.full), status);
      entries >> entry;
      text += entry + " // of a line\n /* of a block **/\t";
    }
    p = {};
    EXPECT_EQ(read(text, &p, form.full), 0);
    EXPECT_EQ(VORLCmpSearchNeighborhoodParameters(&p, &expected), 0);
    EXPECT_EQ(p.radiusMode, expected.radiusMode);
    EXPECT_EQ(p.anisotropyRatioMode, expected.anisotropyRatioMode);
    EXPECT_EQ(p.rotationFlag, expected.rotationFlag);
  }
}

TEST(SearchNeighborhoodParameters, PrintsItsLines) {
  const std::string numbers =
      "> Search radii (in number of nodes)        :       1.000000       2.000000       3.000000\n"
      "> Anisotropy ratios (inverse distance unit):       4.000000       5.000000       6.000000\n"
      "> Angles (azimuth, dip, plunge) in degrees :       7.000000       8.000000       9.000000\n"
      "> Power (at which the distance is raised)  :       0.500000\n";
  Parameters p{7, 1, 2, 3, 6, 4, 5, 6, 1, 7, 8, 9, 0.5};
  EXPECT_EQ(kestrum_test::Printed(VORLPrintSearchNeighborhoodParameters, &p),
            "> radiusMode: SEARCHNEIGHBORHOOD_RADIUS_MANUAL (search radii specified by user)\n"
            "> anisotropyRatioMode: SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_MANUAL (ratios specified by user)\n"
            "> rotationFlag: 1 (SEARCHNEIGHBORHOOD_ROTATION_ON)\n" +
                numbers);
  p.radiusMode = 8;
  p.anisotropyRatioMode = -1;
  p.rotationFlag = FALSE;
  EXPECT_EQ(kestrum_test::Printed(VORLPrintSearchNeighborhoodParameters, &p),
            "> radiusMode: unknown\n> anisotropyRatioMode: unknown\n"
            "> rotationFlag: 0 (SEARCHNEIGHBORHOOD_ROTATION_OFF)\n" +
                numbers);
}

TEST(SearchNeighborhoodParameters, ComparesAndValidates) {
  const struct {
    Parameters parameters;
    int verdict;
    int comparison = 1;
    BOOLEAN rotated = FALSE;
  } cases[] = {
      {{7, 1, 2, 3, 6, 4, 5, 6, 1, 0, 0, 0, 1}, 0, 0},        {{7, -.1, 2, 3, 6, 4, 5, 6, 0, 0, 0, 0, 1}, -680},
      {{7, 1, -1, -1, 6, 4, 5, 6, 0, 0, 0, 0, 1}, -681},      {{7, 1, 2, -1, 6, 0, 5, 6, 0, 0, 0, 0, 1}, -682},
      {{6, 1, 2, -3, 6, 4, 5, 6, 0, 0, 0, 0, 1}, 0},          {{8, 1, 2, 3, 6, 4, 5, 6, 0, 0, 0, 0, 1}, -686, 0},
      {{-1, 1, 2, 3, 6, 4, 5, 6, 0, 0, 0, 0, 1}, -686, 0},    {{7, 1, 2, 3, 6, 9e-7, 5, 6, 0, 0, 0, 0, 1}, -683},
      {{7, 1, 2, 3, 6, 4, 0, 0, 0, 0, 0, 0, 1}, -684},        {{7, 1, 2, 3, 6, 4, 5, -1, 0, 0, 0, 0, 1}, -685},
      {{7, 1, 2, 3, 6, 4, 5, 1e-6, 0, 0, 0, 0, 1}, 0},        {{7, 1, 2, 3, 5, 4, 5, -6, 0, 0, 0, 0, 1}, 0},
      {{7, 1, 2, 3, 7, 4, 5, 6, 0, 1, 0, 0, 1}, -687},        {{7, 1, 2, 3, 6, 4, 5, 6, 0, 1, 0, 0, 1}, 0, 1, TRUE},
      {{7, 1, 2, 3, 6, 4, 5, 6, 0, 0, -1, 0, 1}, 0, 1, TRUE}, {{7, 1, 2, 3, 6, 4, 5, 6, 0, 0, 0, 1, 1}, 0, 1, TRUE},
      {{7, 1, 2, 3, 6, 4, 5, 6, 0, 0, 0, 0, -1}, 0}};
  for (const auto& c : cases) {
    Parameters first = cases[0].parameters, p = c.parameters;
    EXPECT_EQ(VORLCmpSearchNeighborhoodParameters(&first, &p), c.comparison) << &c - cases;
    int error = 1;
    EXPECT_EQ(VORLValidateSearchNeighborhoodParameters(&p, &error), 0);
    EXPECT_EQ(error, c.verdict) << &c - cases;
    EXPECT_EQ(p.rotationFlag, c.rotated) << &c - cases;
  }
}

struct Entry {
  int i, j, k;
  double distance, key;
};

// The builder's definition, followed plainly: the offsets in their order, then the sort with noise.
std::vector<Entry> ReferenceList(const Parameters& p) {
  const double d = 0.017453292519943295;
  const double ca = std::cos(p.angle1 * d), cb = std::cos(p.angle2 * d), cc = std::cos(p.angle3 * d);
  const double sa = std::sin(p.angle1 * d), sb = std::sin(p.angle2 * d), sc = std::sin(p.angle3 * d);
  const bool rotated = p.angle1 != 0 || p.angle2 != 0 || p.angle3 != 0;
  const int m = static_cast<int>(std::max({p.rx, p.ry, p.rz}));
  const int nx = rotated ? m : static_cast<int>(p.rx), ny = rotated ? m : static_cast<int>(p.ry);
  const int nz = rotated ? m : static_cast<int>(p.rz);
  const auto coefficient = [](double r) { return r > 0 ? 1 / (r * r) : 9.999999999999998e+19; };
  std::vector<Entry> list = {{0, 0, 0, 0.0, 0.0}};
  for (int k = 0; k <= nz; ++k) {
    for (int j = k == 0 ? 0 : -ny; j <= ny; ++j) {
      for (int i = k == 0 && j == 0 ? 1 : -nx; i <= nx; ++i) {
        double x = i, y = j, z = k;
        if (rotated) {
          x = (ca * cc + sa * sb * sc) * i + (ca * sb * sc - sa * cc) * j + cb * sc * k;
          y = sa * cb * i + ca * cb * j - sb * k;
          z = (sa * sb * cc - ca * sc) * i + (sa * sc + ca * sb * cc) * j + cb * cc * k;
        }
        const auto sum = [&](double a, double b, double c) { return a * (x * x) + b * (y * y) + c * (z * z); };
        if (sum(coefficient(p.rx), coefficient(p.ry), coefficient(p.rz)) > 1.0000000001) continue;
        const double distance = std::sqrt(sum(1 / (p.ax * p.ax), 1 / (p.ay * p.ay), 1 / (p.az * p.az)));
        list.insert(list.end(), {{i, j, k, distance, 0.0}, {-i, -j, -k, distance, 0.0}});
      }
    }
  }
  std::vector<double> sorted;
  for (const Entry& entry : list) sorted.push_back(entry.distance);
  std::sort(sorted.begin(), sorted.end());
  const double spread = sorted.back() - sorted.front();
  double step = spread == 0 ? 2.0 : spread;
  for (std::size_t i = 1; i < sorted.size(); ++i) {
    if (sorted[i] - sorted[i - 1] > 1e-10) step = std::min(step, sorted[i] - sorted[i - 1]);
  }
  VORL_RANDCONTEXT context = kestrum_test::Seeded(1);
  for (Entry& entry : list) entry.key = entry.distance + step / 2 * VORLDoubleRand(0, &context);
  std::stable_sort(list.begin(), list.end(), [](const Entry& a, const Entry& b) { return a.key < b.key; });
  return list;
}

TEST(SearchNeighborhoodParameters, BuildsTheListOfItsDefinition) {
  const Parameters cases[] = {
      {7, 0, 0, 0, 6, 2, 4, 8, 0, 0, 0, 0, 1},         {7, 3.9, 2, 1, 6, 1, 1, 1, 0, 0, 0, 0, 0},
      {7, 4, 0.5, 2, 6, 4, .5, 2, 0, 0, 0, 0, 2},      {7, 5, 3, 0, 6, 5, 3, 1, 0, 30, 0, 0, 1},
      {7, 4, 3, 2, 6, 1, 1, 1, 0, 20, -35, 50, .25},   {7, 0, 6, 0, 6, 1, 2, 3, 0, 0, 0, 90, -1},
      {7, 2, 2, 2, 6, 1e99, 1e99, 1e99, 0, 0, 0, 0, 1}};
  for (const Parameters& p : cases) {
    SCOPED_TRACE(testing::Message() << &p - cases);
    const std::vector<Entry> expected = ReferenceList(p);
    List list;
    ASSERT_EQ(list.Build(p, 77), 0);
    ASSERT_EQ(static_cast<std::size_t>(list.size), expected.size());
    kestrum_test::TestImage image;
    ASSERT_EQ(VORLSearchNeighborhoodToImage(&list, &image), 0);
    const VORL_GRID& grid = *image.grid;
    int low = 0, high = 0;
    for (int e = 0; e < list.size; ++e) {
      const auto& [i, j, k, distance, key] = expected[static_cast<std::size_t>(e)];
      ASSERT_TRUE(list.ix[e] == i && list.iy[e] == j && list.iz[e] == k) << e;
      ASSERT_NEAR(list.distance[e], distance, 1e-14 * distance);  // coordinates may be rounded in another way
      const double base = e > 0 ? list.distance[e] : 0.5 / std::max({p.ax, p.ay, p.az});
      ASSERT_EQ(list.weight[e], std::pow(base, p.power));
      low = std::min(low, j);
      high = std::max(high, j);
      // The node whose centre is at the offset.
      const real node = i - 0.5 - grid.ox + grid.nx * (j - 0.5 - grid.oy + grid.ny * (k - 0.5 - grid.oz));
      const real* const value = image.var + static_cast<int>(node);
      ASSERT_TRUE(value[0] == e && value[grid.nxyz] == list.distance[e] && value[2 * grid.nxyz] == list.weight[e]);
    }
    EXPECT_TRUE(list.iyMin == low && list.iyMax == high);
    EXPECT_EQ(std::count(image.var, image.var + image.nxyzv, VORL_MISSING_VALUE), 3 * (grid.nxyz - list.size));
    EXPECT_STREQ(image.varName[1], "distance");
  }
}

TEST(SearchNeighborhoodParameters, FailuresGiveTheirStatus) {
  const double nan = std::nan("");
  for (const double radius : {-1.0, -1e300, 1e5, 1e9, 1e300, HUGE_VAL, -HUGE_VAL, nan}) {
    List list;
    EXPECT_EQ(list.Build({7, 2, radius, std::fabs(radius), 6, 1, 1, 1, 0, 0, 0, 0, 1}), -688) << radius;
  }
  for (const double odd : {nan, HUGE_VAL, 0.0}) {
    List list;
    EXPECT_EQ(list.Build({7, 2, -2, 2, 6, odd, 1, -1, 0, odd, 1, odd, odd}), 0);
  }
  for (long k = 0; k < 18; ++k) {
    List list;
    kestrum_test::FailAllocation failure(k);
    const int status = list.Build({7, 3, 3, 3, 6, 1, 1, 1, 0, 0, 0, 0, 1});
    EXPECT_EQ(status, !failure.Happened() ? 0 : k >= 5 && k < 10 ? -2 : -1) << k;
    EXPECT_EQ(failure.Happened(), k < 17);
  }
  List list;
  ASSERT_EQ(list.Build({7, 3, 3, 3, 6, 1, 1, 1, 0, 0, 0, 0, 1}), 0);
  kestrum_test::ForEachFailingAllocation([&] {
    kestrum_test::TestImage image;
    return VORLSearchNeighborhoodToImage(&list, &image);
  });
}

// The points of the rotated bound lie within 156 * (pi - 3.14) of the z axis of the ellipsoid.
TEST(SearchNeighborhoodParameters, ApproximateBound) {
  const double width = 100 * std::sin(156 * (std::acos(-1.0) - 3.14));
  const std::pair<Parameters, std::vector<double>> cases[] = {
      {{7, 4.9, 3, 0.5, 6, 1, 1, 1, 0, 0, 0, 0, 1}, {4, 3, 0}},
      {{7, 100, 50, 7.5, 6, 1, 1, 1, 0, 90, 0, 0, 1}, {0, width, 7}},
      {{7, 100, 50, 7.5, 6, 1, 1, 1, 0, 0, 0, 1e-9, 1}, {width, 0, 7}},
      {{7, 1e300, 0, std::nan(""), 6, 1, 1, 1, 0, 0, 0, 0, 1}, {1 << 30, 0, -(1 << 30)}}};
  for (auto [parameters, expected] : cases) {
    int bound[3];
    EXPECT_EQ(VORLSearchNeighborhoodApproxBound(&parameters, &bound[0], &bound[1], &bound[2]), 0);
    for (int axis = 0; axis < 3; ++axis) EXPECT_EQ(bound[axis], static_cast<int>(expected[axis]));
  }
}

}  // namespace
