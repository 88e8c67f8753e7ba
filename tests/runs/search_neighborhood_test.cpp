#include "neighborhood/search_neighborhood.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "neighborhood/neighbor_search.hpp"
#include "neighborhood/search_neighborhood.hpp"
#include "runs/run_records.hpp"
#include "support/allocation_failure.hpp"

namespace {

using namespace kestrum_test;
using kestrum::SimdLevel;

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
      EXPECT_TRUE(list.ix[0] == 0 && list.iy[0] == 0 && list.iz[0] == 0);
      EXPECT_EQ(list.ixMax, *std::max_element(list.ix, list.ix + list.size));
      EXPECT_EQ(list.iyMin, *std::min_element(list.iy, list.iy + list.size));
      EXPECT_EQ(list.izMax, *std::max_element(list.iz, list.iz + list.size));
    }
  }
}

// A list so long that it is sorted in runs, which are merged; and a job that is to stop.
TEST(SearchNeighborhood, LongLists) {
  constexpr int nx = 420, width = 2 * nx - 1;
  const VORL_GRID grid = MakeGrid(nx, nx, 1);
  List lists({{COV_SPHERICAL, 1.0, 1e30, 1e30, 1e30}});
  ASSERT_EQ(lists.Build(grid, 1.0, 0), 0);
  const VORL_SEARCHNEIGHBORHOOD& list = lists.list;
  ASSERT_EQ(list.size, width * width);
  std::vector<bool> found(width * width);
  for (int e = 0; e < list.size; ++e) {
    found[(list.iy[e] + nx - 1) * width + list.ix[e] + nx - 1] = true;
    ASSERT_EQ(list.distance[e], list.ix[e] * list.ix[e] + list.iy[e] * list.iy[e]);
    ASSERT_TRUE(e == 0 || list.distance[e] >= list.distance[e - 1]) << e;
  }
  EXPECT_EQ(std::count(found.begin(), found.end(), true), list.size);

  VORL_PROGRESSMONITOR monitor;
  VORLInitProgressMonitor(&monitor);
  monitor.abortedJobFlag = TRUE;
  kestrum::GridModel model{lists.model, true, true, true, true};
  VORL_RANDCONTEXT context;
  VORLInitRandContext(&context);
  for (const int size : {3, nx}) {
    VORLFreeSearchNeighborhood(&lists.list);
    VORLInitSearchNeighborhood(&lists.list);
    EXPECT_EQ(kestrum::BuildSearchNeighborhood(MakeGrid(size, size, 1), model, nullptr, {1.0}, 0, lists.list, &context,
                                               kestrum::Progress(&monitor, nullptr)),
              -1000);
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
  masked.model->covModelElem[0].rxImage = NewImage(grid, {1.0, 5.0, 1.0});
  VORL_IMAGE* const mask = NewImage(grid, {1.0, 0.0, 1.0});
  ASSERT_EQ(masked.Build(grid, 1.0, 1, false, true, false, mask), 0);
  EXPECT_EQ(masked.list.ixMax, 1);
  VORLFreeImage(mask);
  std::free(mask);
}

// The search among sparse data must find just what walking the list finds, at every node.
TEST(NeighborSearch, FindsAmongSparseDataWhatWalkingFinds) {
  const struct {
    VORL_GRID grid;
    int ndata;
    real range[3];
    int limit;
    int sortMode;
  } cases[] = {
      {MakeGrid(150, 40, 1), 60, {30.0, 30.0, 30.0}, 8, 1}, {MakeGrid(150, 40, 1), 60, {400.0, 10.0, 1.0}, 20, 1},
      {MakeGrid(70, 90, 1), 9, {60.0, 20.0, 5.0}, 12, 0},   {MakeGrid(40, 30, 12), 80, {20.0, 12.0, 6.0}, 10, 1},
      {MakeGrid(500, 1, 1), 40, {90.0, 1.0, 1.0}, 6, 2},    {MakeGrid(130, 130, 1), 3000, {40.0, 40.0, 1.0}, 20, 1},
      {MakeGrid(64, 64, 1), 2, {5.0, 5.0, 5.0}, 3, 1},
  };
  for (const auto& c : cases) {
    List lists({{COV_SPHERICAL, 1.0, c.range[0], c.range[1], c.range[2]}});
    ASSERT_EQ(lists.Build(c.grid, 1.0, c.sortMode), 0);
    kestrum::NeighborListOwner owner;
    const VORL_SEARCHNEIGHBORHOOD& offsets = owner.offsets() = std::exchange(lists.list, {});
    kestrum::NeighborList list;
    ASSERT_EQ(owner.Finish(c.grid, c.limit, kestrum::Dealing::Serial(), list), 0);
    kestrum::NodeBits isDatum;
    ASSERT_EQ(isDatum.Allocate(c.grid.nxyz), 0);
    for (const Datum& d : RandomData(c.grid, c.ndata, 3)) {
      isDatum.Set(d.ix + d.iy * c.grid.nx + d.iz * c.grid.nxy);
    }
    kestrum::SparseNeighborSearch search;
    ASSERT_EQ(search.Prepare(list, isDatum, c.ndata), 0);
    kestrum::SparseNeighborSearch::Scratch scratch;
    ASSERT_EQ(search.AllocateScratch(scratch), 0);
    std::vector<int> found(c.limit), walked(c.limit);
    const int run = kestrum::SparseNeighborSearch::kMaxRun;
    for (int node = 0; node < c.grid.nxyz; ++node) {
      const kestrum::NodeCoordinates at = kestrum::CoordinatesOf(c.grid, node);
      if (at.ix % run == 0) search.StartRun(at, std::min(at.ix + run, c.grid.nx) - 1, scratch);
      const int m = search.Find(node, at, scratch, found.data());
      std::vector<int> expected;
      for (int e = 0; e < offsets.size && static_cast<int>(expected.size()) < c.limit; ++e) {
        const int x = at.ix + offsets.ix[e], y = at.iy + offsets.iy[e], z = at.iz + offsets.iz[e];
        const bool inside = x >= 0 && x < c.grid.nx && y >= 0 && y < c.grid.ny && z >= 0 && z < c.grid.nz;
        if (inside && isDatum[x + y * c.grid.nx + z * c.grid.nxy] != 0) expected.push_back(e);
      }
      ASSERT_EQ(std::vector<int>(found.begin(), found.begin() + m), expected) << node;
      for (const auto level : {SimdLevel::kBaseline, SimdLevel::kAvx2, SimdLevel::kAvx512}) {
        kestrum::LimitSimdLevel(level);
        const int n = kestrum::WalkNeighbors(list, node, isDatum, walked.data());
        ASSERT_EQ(std::vector<int>(walked.begin(), walked.begin() + n), expected) << node;
      }
    }
  }
}

TEST(SearchNeighborhood, RecordsAndFailingAllocations) {
  // The statuses of malloc and of realloc.
  int nmalloc = 0, nrealloc = 0;
  const auto counted = [&](int status) {
    nmalloc += status == -1;
    nrealloc += status == -2;
    return status == -2 ? -1 : status;
  };
  VORL_SEARCHNEIGHBORHOOD record;
  ForEachFailingAllocation([&] {
    VORLInitSearchNeighborhood(&record);
    const int status = VORLMallocSearchNeighborhood(&record, 3);
    if (status != 0) VORLFreeSearchNeighborhood(&record);
    return counted(status);
  });
  record.iy[2] = 7;
  ForEachFailingAllocation([&] { return counted(VORLReallocSearchNeighborhood(&record, 5000)); });
  EXPECT_TRUE(record.iy[2] == 7 && nmalloc == 5 && nrealloc == 5);
  record.size = 4;
  record.iyMin = -3;
  record.izMax = 12;
  EXPECT_EQ(Printed(VORLPrintSearchNeighborhood, &record),
            "> size :          4\n> ixMin:          0\n> iyMin:         -3\n> izMin:          0\n"
            "> ixMax:          0\n> iyMax:          0\n> izMax:         12\n");
  EXPECT_EQ(VORLReallocSearchNeighborhood(&record, 0), -5);
  VORLFreeSearchNeighborhood(&record);
  VORLFreeSearchNeighborhood(nullptr);
  EXPECT_EQ(VORLMallocSearchNeighborhood(&record, -1), -3);
  List lists({{COV_SPHERICAL, 1.0, 3.0, 3.0, 3.0}});
  ForEachFailingAllocation([&] {
    VORLFreeSearchNeighborhood(&lists.list);
    VORLInitSearchNeighborhood(&lists.list);
    return counted(lists.Build(MakeGrid(9, 9, 9), 1.0, 1));
  });
  EXPECT_TRUE(nmalloc == 5 + 12 && nrealloc == 5 + 5);
}

}  // namespace
