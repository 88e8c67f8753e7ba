#include "engine/grid_run.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "support/run_builder.hpp"

namespace {

using namespace kestrum_test;
using namespace kestrum;

struct NoFront : RunFront {
  NoFront() : RunFront(nullptr, nullptr, Dealing::Threads(2)) {}
};

// Collects realizations.
struct Collector : RealizationSink {
  explicit Collector(const std::vector<real>& buffer) : value(buffer) {}
  const std::vector<real>& value;
  std::vector<real> all;
  void Begin(int) noexcept override {}
  int End(int) noexcept override {
    all.insert(all.end(), value.begin(), value.end());
    return 0;
  }
};

// Runs of the C interface from the same data give the same bits with its solver and its draws.
TEST(GridRun, GivesTheBitsOfTheCInterface) {
  const VORL_GRID grid = MakeGrid(19, 14, 2);
  const std::vector<Element> elements = {{COV_SPHERICAL, 0.8, 6.0, 4.0, 3.0}, {COV_NUGGET, 0.2, 1.0, 1.0, 1.0}};
  std::vector<Datum> data = RandomData(grid, 25, 5);
  const auto nodeOf = [&](const Datum& d) { return d.ix + d.iy * grid.nx + d.iz * grid.nxy; };
  std::sort(data.begin(), data.end(), [&](const Datum& a, const Datum& b) { return nodeOf(a) < nodeOf(b); });
  std::vector<int> nodes;
  std::vector<real> values;
  for (const Datum& d : data) {
    nodes.push_back(nodeOf(d));
    values.push_back(d.value);
  }
  std::vector<unsigned char> mask(grid.nxyz, 1);
  for (int i = 3; i < grid.nxyz; i += 7) mask[i] = std::count(nodes.begin(), nodes.end(), i) != 0;
  VORL_COVMODEL model = MakeModel(elements);
  model.angle1Value = 25.0;
  GridRunInput input;
  input.grid = grid;
  input.models = {&model, 1};
  input.dataNodes = nodes;
  input.dataValues = values.data();
  input.mask = mask.data();
  input.mean = 4.0;
  for (const int mode : {KESTRUM_OK, KESTRUM_SK, KESTRUM_SIM_OK, KESTRUM_SIM_SK}) {
    for (const bool unique : {false, true}) {
      const bool simulation = mode == KESTRUM_SIM_OK || mode == KESTRUM_SIM_SK;
      if (unique && simulation) continue;
      RunRecords records(grid, elements, data);
      records.input.computationMode = static_cast<VORL_KESTRUMCOMPUTATIONMODE>(mode);
      records.input.covModel->angle1Value = 25.0;
      records.input.meanUsage = 1;
      records.input.meanValue = 4.0;
      records.input.nneighborMax = 9;
      records.input.searchNeighborhoodSortMode = 1;
      records.input.searchRadiusRelative = unique ? -1.0 : 1.0;
      records.input.seed = 77;
      records.input.maskImageFlag = TRUE;
      records.input.maskImage = NewImage(grid, std::vector<real>(mask.begin(), mask.end()));
      ASSERT_EQ(records.Run(), 0);
      input.ordinaryKriging = mode == KESTRUM_OK || mode == KESTRUM_SIM_OK;
      input.neighbors = unique ? 0 : 9;
      GridRun run;
      ASSERT_EQ(run.Prepare(input, NoFront()), 0);
      std::vector<real> first(grid.nxyz), second(grid.nxyz);
      if (simulation) {
        Collector sink(first);
        SeededRandom random(77, 0);
        ASSERT_EQ(run.SimulateValues({1, 1}, 1, random, first.data(), sink), 0);
        run.MarkLeftOut(first.data());
      } else {
        ASSERT_EQ(run.Krige(first.data(), second.data()), 0);
      }
      const real* const expected = records.output.outputImage->var;
      for (int i = 0; i < grid.nxyz; ++i) {
        if (mask[i] == 0) {
          ASSERT_TRUE(std::isnan(first[i])) << i;
        } else {
          ASSERT_EQ(first[i], expected[i]) << mode << unique << " " << i;
          ASSERT_EQ(second[i], simulation ? 0.0 : expected[grid.nxyz + i]) << i;
        }
      }
    }
  }
  VORLKestrumFreeCovModel(&model);
}

// Bounds are honoured, a datum outside the mask counts, and an ellipsoid of half axes limits the search.
TEST(GridRun, BoundsMaskAndRadius) {
  const VORL_GRID grid = MakeGrid(30, 1, 1);
  VORL_COVMODEL model = MakeModel({{COV_SPHERICAL, 1.0, 12.0, 12.0, 12.0}});
  const std::vector<int> nodes = {4}, boundNodes = {10, 15, 20};
  const real value = 2.0, nan = std::nan("");
  const std::vector<real> lower = {0.5, nan, -0.2}, upper = {nan, -0.5, 0.2};
  std::vector<unsigned char> mask(30, 1);
  mask[4] = 0;
  GridRunInput input;
  input.grid = grid;
  input.models = {&model, 1};
  input.ordinaryKriging = false;
  input.neighbors = 10;
  input.dataNodes = nodes;
  input.dataValues = &value;
  input.mask = mask.data();
  input.boundNodes = boundNodes;
  input.lower = lower.data();
  input.upper = upper.data();
  GridRun run;
  ASSERT_EQ(run.Prepare(input, NoFront()), 0);
  std::vector<real> realization(30);
  Collector sink(realization);
  SeededRandom random(5, 1000);
  ASSERT_EQ(run.SimulateValues({1, 20}, 50, random, realization.data(), sink), 0);
  for (int r = 0; r < 50; ++r) {
    EXPECT_GE(sink.all[r * 30 + 10], 0.5);
    EXPECT_LE(sink.all[r * 30 + 15], -0.5);
    EXPECT_LE(std::abs(sink.all[r * 30 + 20]), 0.2);
  }
  const real radius[3] = {2.0, 2.0, 2.0};
  input.radius = radius;
  input.boundNodes = {};
  GridRun narrow;
  ASSERT_EQ(narrow.Prepare(input, NoFront()), 0);
  std::vector<real> estimate(30), deviation(30);
  ASSERT_EQ(narrow.Krige(estimate.data(), deviation.data()), 0);
  EXPECT_TRUE(std::isnan(estimate[4]));
  EXPECT_GT(estimate[6], 0.5);
  EXPECT_EQ(estimate[7], 0.0);
  EXPECT_EQ(deviation[7], 1.0);
  VORLKestrumFreeCovModel(&model);
}

}  // namespace
