#include "engine/search_neighborhood.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <tuple>
#include <vector>

#include "support/run_builder.hpp"

namespace {

using kestrum_test::MakeGrid;
using kestrum_test::NewModel;

class List {
 public:
  VORL_COVMODEL* model;
  VORL_SEARCHNEIGHBORHOOD list;

  explicit List(const std::vector<kestrum_test::Element>& elements) : model(NewModel(elements)) {
    VORLInitSearchNeighborhood(&list);
  }
  ~List() {
    VORLFreeSearchNeighborhood(&list);
    VORLKestrumFreeCovModel(model);
    std::free(model);
  }
  int Build(const VORL_GRID& grid, real radius, int sortMode, bool stationary = true, bool rotationStationary = true,
            bool rangeStationary = true, VORL_IMAGE* mask = nullptr) {
    VORL_RANDCONTEXT context;
    VORLInitRandContext(&context);
    return VORLKestrumBuildSearchNeighborhoodForCovModel(grid.sx, grid.sy, grid.sz, radius, grid.nx, grid.ny, grid.nz,
                                                         mask, model, rotationStationary, 1, rangeStationary,
                                                         stationary, 0, nullptr, sortMode, &list, &context);
  }
};

// Offsets, keys and covariances against the definition, for each order, with and without rotation.
TEST(SearchNeighborhood, HoldsTheEllipsoidInOrder) {
  const VORL_GRID grid = MakeGrid(15, 30, 4, 2.0, 1.0, 3.0);
  for (const real azimuth : {0.0, 30.0}) {
    for (const int mode : {0, 1, 2}) {
      SCOPED_TRACE(mode);
      List lists({{COV_SPHERICAL, 0.7, 12.0, 6.0, 7.0}, {COV_NUGGET, 0.3, 0.0, 0.0, 0.0}});
      lists.model->angle1Value = azimuth;
      ASSERT_EQ(lists.Build(grid, 1.5, mode), 0);
      const VORL_SEARCHNEIGHBORHOOD& list = lists.list;
      std::set<std::tuple<int, int, int>> expected, found;
      const real a = azimuth * std::acos(-1.0) / 180.0;
      const auto reduced = [&](int i, int j, int k) {
        // The azimuth turns the model's y axis from y towards x.
        const real x = (i * 2.0 * std::cos(a) - j * 1.0 * std::sin(a)) / (12.0 * 1.5);
        const real y = (i * 2.0 * std::sin(a) + j * 1.0 * std::cos(a)) / (6.0 * 1.5);
        const real z = k * 3.0 / (7.0 * 1.5);
        return x * x + y * y + z * z;
      };
      for (int i = -14; i <= 14; ++i) {
        for (int j = -29; j <= 29; ++j) {
          for (int k = -3; k <= 3; ++k) {
            if (reduced(i, j, k) <= 1.0 + 1e-10) expected.insert({i, j, k});
          }
        }
      }
      for (int e = 0; e < list.size; ++e) {
        found.insert({list.ix[e], list.iy[e], list.iz[e]});
        const real x = list.ix[e] * 2.0, y = list.iy[e] * 1.0, z = list.iz[e] * 3.0;
        const real d2 = reduced(list.ix[e], list.iy[e], list.iz[e]);
        const real h = std::sqrt(d2) * 1.5;
        const real covariance = d2 == 0.0 ? 1.0 : h < 1.0 ? 0.7 * (1.0 - 1.5 * h + 0.5 * h * h * h) : 0.0;
        EXPECT_NEAR(list.weight[e], covariance, 1e-12);
        const real key = mode == 0 ? x * x + y * y + z * z : mode == 1 || list.weight[e] == 0.0 ? d2 : -covariance;
        EXPECT_NEAR(list.distance[e], key, 1e-9);
        if (e > 0) {
          EXPECT_GE(list.distance[e], list.distance[e - 1] - 1e-10);
        }
      }
      EXPECT_EQ(found, expected);
      EXPECT_EQ(found.size(), static_cast<std::size_t>(list.size));
      EXPECT_EQ(list.ix[0], 0);
      EXPECT_EQ(list.iy[0], 0);
      EXPECT_EQ(list.iz[0], 0);
      EXPECT_EQ(list.ixMax, *std::max_element(list.ix, list.ix + list.size));
      EXPECT_EQ(list.iyMin, *std::min_element(list.iy, list.iy + list.size));
      EXPECT_EQ(list.izMax, *std::max_element(list.iz, list.iz + list.size));
    }
  }
}

TEST(SearchNeighborhood, ExtentFollowsRangesAndAngles) {
  const VORL_GRID grid = MakeGrid(50, 50, 50);
  const struct {
    bool angle[3];
    int halfWidth[3];  // of the ranges 4, 9, 6
  } cases[] = {
      {{false, false, false}, {4, 9, 6}}, {{true, false, false}, {9, 9, 6}}, {{false, true, false}, {4, 9, 9}},
      {{false, false, true}, {6, 9, 6}},  {{true, true, false}, {9, 9, 9}},  {{true, true, true}, {9, 9, 9}},
  };
  for (const auto& c : cases) {
    List lists({{COV_SPHERICAL, 1.0, 4.0, 9.0, 6.0}});
    lists.model->angle1ImageFlag = c.angle[0];
    lists.model->angle2ImageFlag = c.angle[1];
    lists.model->angle3ImageFlag = c.angle[2];
    ASSERT_EQ(lists.Build(grid, 1.0, 1, false, !(c.angle[0] || c.angle[1] || c.angle[2])), 0);
    EXPECT_EQ(lists.list.ixMax, c.halfWidth[0]);
    EXPECT_EQ(lists.list.iyMax, c.halfWidth[1]);
    EXPECT_EQ(lists.list.izMax, c.halfWidth[2]);
    EXPECT_EQ(lists.list.weight[0], 1.0);
    EXPECT_EQ(*std::max_element(lists.list.weight + 1, lists.list.weight + lists.list.size), 0.0);
  }
}

TEST(SearchNeighborhood, SpecialSizes) {
  List point({{COV_NUGGET, 1.0, 0.0, 0.0, 0.0}});
  ASSERT_EQ(point.Build(MakeGrid(9, 9, 9), 2.0, 1), 0);
  EXPECT_EQ(point.list.size, 1);

  List flat({{COV_SPHERICAL, 1.0, 3.0, 3.0, 0.0}});
  ASSERT_EQ(flat.Build(MakeGrid(9, 9, 9), 2.0, 1), 0);
  EXPECT_EQ(flat.list.izMax, 0);

  List wide({{COV_SPHERICAL, 1.0, 1e30, 1e30, 1e30}});
  ASSERT_EQ(wide.Build(MakeGrid(6, 4, 2), 1.0, 1), 0);
  EXPECT_EQ(wide.list.size, 11 * 7 * 3);

  List refused({{COV_SPHERICAL, 1.0, 3.0, 3.0, 3.0}});
  EXPECT_EQ(refused.Build(MakeGrid(9, 9, 9), 0.0, 1), -71070);
  List tooLarge({{COV_SPHERICAL, 1.0, 1e9, 1e9, 1e9}});
  EXPECT_EQ(tooLarge.Build(MakeGrid(1200, 1200, 1200), 1.0, 1), -71250);

  // Ranges at masked nodes do not count.
  const VORL_GRID grid = MakeGrid(3, 1, 1);
  List masked({{COV_SPHERICAL, 1.0, 1.0, 1.0, 1.0}});
  masked.model->covModelElem[0].rxImage = kestrum_test::NewImage(grid, {1.0, 5.0, 1.0});
  VORL_IMAGE* const mask = kestrum_test::NewImage(grid, {1.0, 0.0, 1.0});
  ASSERT_EQ(masked.Build(grid, 1.0, 1, false, true, false, mask), 0);
  EXPECT_EQ(masked.list.ixMax, 1);
  VORLFreeImage(mask);
  std::free(mask);
}

}  // namespace
