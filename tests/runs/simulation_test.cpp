#include "runs/simulation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "support/run_builder.hpp"
#include "support/run_callbacks.hpp"
#include "support/seeded.hpp"

namespace {

using namespace kestrum_test;

constexpr real kMissing = VORL_MISSING_VALUE;

std::vector<real> Values(const VORL_KESTRUMOUTPUT& output) {
  const VORL_IMAGE& image = *output.outputImage;
  return {image.var, image.var + image.nxyzv};
}

// A vector of one value per node.
std::vector<real> PerNode(const VORL_GRID& grid, const std::function<real(int)>& value) {
  std::vector<real> values(grid.nxyz);
  for (int i = 0; i < grid.nxyz; ++i) values[i] = value(i);
  return values;
}

// Bounds as data: lower bounds at some nodes, upper ones at others, both at others.
void AddBounds(VORL_KESTRUMINPUT& input, const VORL_GRID& grid) {
  std::vector<real> values(2 * grid.nxyz, kMissing);
  for (int i = 0; i < grid.nxyz; i += 5) {
    if (i % 3 != 1) values[i] = 0.3 + 0.01 * (i % 7);               // lower
    if (i % 3 != 0) values[grid.nxyz + i] = 0.8 + 0.01 * (i % 11);  // upper
  }
  input.ndataImage = 1;
  input.dataImage = NewImage(grid, values, {"v_min", "v_max"});
}

// The same bits for the serial form and for any number of threads, over varied runs.
TEST(Simulation, ThreadsGiveTheSameBits) {
  const VORL_GRID map = MakeGrid(23, 17, 1), block = MakeGrid(9, 8, 7, 1.0, 2.0, 0.5), line = MakeGrid(90, 1, 1);
  const auto wave = [](real low, real high) {
    return [=](int i) { return low + (high - low) * (0.5 + 0.5 * std::sin(0.3 * i)); };
  };
  const struct {
    std::string name;
    VORL_GRID grid;
    int ndata;
    std::function<void(RunRecords&, const VORL_GRID&)> change;
  } cases[] = {
      {"Plain", map, 0, [](RunRecords&, const VORL_GRID&) {}},
      {"OrdinaryWithData", map, 20, [](RunRecords& r, const VORL_GRID&) { r.input.computationMode = KESTRUM_SIM_OK; }},
      {"Block", block, 12, [](RunRecords&, const VORL_GRID&) {}},
      {"Line", line, 3, [](RunRecords& r, const VORL_GRID&) { r.input.nneighborMax = 2; }},
      {"Unlimited", MakeGrid(12, 12, 1), 5, [](RunRecords& r, const VORL_GRID&) { r.input.nneighborMax = -1; }},
      {"Masked", map, 10,
       [](RunRecords& r, const VORL_GRID& grid) {
         r.input.maskImageFlag = TRUE;
         r.input.maskImage = NewImage(grid, PerNode(grid, [](int i) { return i % 4 == 0 ? 0.0 : 1.0; }));
       }},
      {"Rotated", map, 10,
       [](RunRecords& r, const VORL_GRID&) {
         r.input.covModel->angle1Value = 30.0;
         r.input.covModel->covModelElem[0].ryValue = 2.0;
       }},
      {"Images", map, 10,
       [&](RunRecords& r, const VORL_GRID& grid) {
         VORL_COVMODEL& model = *r.input.covModel;
         model.angle1ImageFlag = TRUE;
         model.angle1Image = NewImage(grid, PerNode(grid, wave(0.0, 90.0)));
         model.covModelElem[0].rxImageFlag = TRUE;
         model.covModelElem[0].rxImage = NewImage(grid, PerNode(grid, wave(3.0, 7.0)));
         model.covModelElem[1].weightImageFlag = TRUE;
         model.covModelElem[1].weightImage = NewImage(grid, PerNode(grid, wave(0.1, 0.5)));
       }},
      {"MeanAndVarianceImages", map, 10,
       [&](RunRecords& r, const VORL_GRID& grid) {
         r.input.meanUsage = 2;
         r.input.meanImage = NewImage(grid, PerNode(grid, wave(1.0, 2.0)));
         r.input.varianceUsage = 2;
         r.input.varianceImage = NewImage(grid, PerNode(grid, wave(0.5, 1.5)));
       }},
      {"Bounds", map, 10, [](RunRecords& r, const VORL_GRID& grid) { AddBounds(r.input, grid); }},
      {"Dropping", line, 4,
       [](RunRecords& r, const VORL_GRID&) {
         r.input.covModel->covModelElem[0].covModelType = COV_POWER;
         r.input.covModel->covModelElem[1].weightValue = 0.0;
         r.input.searchRadiusRelative = 3.0;
       }},
      // Node seeds that pass through 0, and a seed of 0 for the last realization.
      {"SeedsThroughZero", map, 10,
       [](RunRecords& r, const VORL_GRID&) {
         r.input.seed = -200;
         r.input.seedIncrement = 100;
       }},
  };
  for (const auto& c : cases) {
    std::vector<real> serial[2];  // by solver
    int nwarning = 0;
    for (const bool factorising : {false, true}) {
      for (const int nthreads : {0, 1, 2, 3, 5, 8}) {
        SCOPED_TRACE(c.name + (factorising ? ", factorising, " : ", ") + std::to_string(nthreads));
        RunRecords records(c.grid, {{COV_SPHERICAL, 0.9, 5.0, 5.0, 5.0, 1.0}, {COV_EXPONENTIAL, 0.1, 9.0, 9.0, 9.0}},
                           RandomData(c.grid, c.ndata, 4));
        records.input.computationMode = KESTRUM_SIM_SK;
        records.input.nneighborMax = 8;
        records.input.nrealization = 3;
        records.input.seedIncrement = 1000;
        c.change(records, c.grid);
        ASSERT_EQ(factorising ? records.Factorise(nthreads) : records.Run(nthreads), 0);
        const std::vector<real> values = Values(records.output);
        EXPECT_EQ(records.monitor.currentRealization, 3);
        if (nthreads == 0) {
          serial[factorising] = values;
          nwarning = records.monitor.nwarning;
          EXPECT_FALSE(std::equal(values.begin(), values.begin() + c.grid.nxyz, values.begin() + c.grid.nxyz));
        }
        EXPECT_EQ(values, serial[factorising]);  // and none is a NaN
        EXPECT_EQ(records.monitor.nwarning, nwarning);
      }
    }
    // The iterative solver stops at a relative residual of 1e-10, which the neighbours of neighbours enlarge.
    for (std::size_t i = 0; i < serial[0].size(); ++i) ASSERT_NEAR(serial[0][i], serial[1][i], 1e-5) << c.name << i;
    EXPECT_TRUE(nwarning > 0 || c.name != "Dropping");
  }
}

TEST(Simulation, IndicatorThreadsGiveTheSameBits) {
  const VORL_GRID grid = MakeGrid(19, 13, 2);
  const std::vector<Element> model = {{COV_SPHERICAL, 0.2, 4.0, 4.0, 2.0}};
  std::vector<real> data(grid.nxyz, kMissing);
  for (int i = 0; i < grid.nxyz; i += 31) data[i] = 1.0 + i / 31 % 3;
  for (const std::vector<real>& categories : {std::vector<real>{1.0, 2.0, 3.0}, {1.0}}) {
    if (categories.size() == 1) {
      for (real& value : data) value = value == 1.0 || value == kMissing ? value : 0.0;
    }
    // Different models, one model for all (whose systems are solved once), and estimation, moving and unique.
    for (const int kind : {0, 1, 2, 3}) {
      if (categories.size() == 1 && kind == 3) continue;
      std::vector<real> serial, factorised;
      for (const int nthreads : {0, 1, 2, 3, 5, 8}) {
        for (const bool factorising : {false, true}) {
          SCOPED_TRACE(std::to_string(categories.size()) + " " + std::to_string(kind) + " " + std::to_string(nthreads));
          IndicatorRunRecords records(grid, model, categories, data);
          records.input.computationMode = kind == 3 ? KESTRUM_OK : kind == 2 ? KESTRUM_SK : KESTRUM_SIM_SK;
          records.input.nrealization = 2;
          records.input.seedIncrement = 1000;
          if (kind != 1 && categories.size() > 1) {
            records.SetModel(2, {{COV_EXPONENTIAL, 0.2, 6.0, 3.0, 2.0}});
            records.input.covModel[2].angle1Value = 20.0;
          }
          if (kind >= 2) records.input.searchRadiusRelative[0] = -1.0;
          ASSERT_EQ(factorising ? records.Factorise(nthreads) : records.Run(nthreads), 0);
          std::vector<real>& first = factorising ? factorised : serial;
          if (nthreads == 0) first = Values(records.output);
          EXPECT_EQ(Values(records.output), first);
        }
      }
      for (std::size_t i = 0; i < serial.size(); ++i) ASSERT_NEAR(serial[i], factorised[i], 1e-7) << kind << " " << i;
      if (kind < 2) {
        for (const real value : serial) {
          EXPECT_TRUE(value == 0.0 || std::count(categories.begin(), categories.end(), value) == 1);
        }
      } else if (categories.size() == 3) {
        for (int i = 0; i < grid.nxyz; ++i) {
          EXPECT_NEAR(serial[i] + serial[grid.nxyz + i] + serial[2 * grid.nxyz + i], 1.0, 1e-12);
        }
      }
    }
  }
}

// Without neighbours each node is drawn from the global law. The number of the node at position p is the second of the
// sequence of the realization's seed plus p, along a path that the realization's seed shuffles.
TEST(Simulation, NodesWithoutNeighbors) {
  const VORL_GRID grid = MakeGrid(40, 30, 1);
  RunRecords records(grid, {{COV_SPHERICAL, 4.0, 0.5, 0.5, 0.5}}, {});
  records.input.computationMode = KESTRUM_SIM_SK;
  records.input.meanUsage = 1;
  records.input.meanValue = 10.0;
  records.input.varianceUsage = 1;
  records.input.varianceValue = 9.0;
  records.input.seed = 77;
  records.input.seedIncrement = 5;
  records.input.nrealization = 2;
  ASSERT_EQ(records.Run(2), 0);
  const std::vector<real> values = Values(records.output);
  for (int r = 0; r < 2; ++r) {
    const int seed = 77 + 5 * r;
    VORL_RANDCONTEXT context = Seeded(seed);
    std::vector<int> path(grid.nxyz);
    std::iota(path.begin(), path.end(), 0);
    VORLPathRandom(grid.nxyz, path.data(), &context);
    for (int p = 0; p < grid.nxyz; ++p) {
      VORLDoubleRand(seed + p, &context);
      const real number = VORLDoubleRand(0, &context);
      // The inverse of the table agrees with that of the distribution function where that is not steep.
      if (number < 0.01 || number > 0.99) continue;
      const real deviate = (values[r * grid.nxyz + path[p]] - 10.0) / 3.0;
      EXPECT_NEAR(0.5 * std::erfc(-deviate / std::sqrt(2.0)), number, 2e-6);
    }
  }
  EXPECT_STREQ(records.output.outputImage->varName[1], "v_real00001");
}

// Mean, variance and variogram of unconditional realizations, and moments of conditional ones against kriging.
TEST(Simulation, MomentsFollowTheModel) {
  const VORL_GRID grid = MakeGrid(60, 60, 1);
  const std::vector<Element> model = {{COV_SPHERICAL, 1.0, 10.0, 10.0, 10.0}};
  const auto run = [&](VORL_KESTRUMCOMPUTATIONMODE mode, const std::vector<Datum>& data, int n) {
    RunRecords records(grid, model, data);
    records.input.computationMode = mode;
    records.input.meanUsage = 1;
    records.input.nrealization = n;
    records.input.seedIncrement = 7919;
    records.input.nneighborMax = 12;
    EXPECT_EQ(records.Run(2), 0);
    return Values(records.output);
  };
  const std::vector<real> z = run(KESTRUM_SIM_SK, {}, 60);
  const auto gamma = [&](int h) {
    real sum = 0.0;
    int n = 0;
    for (std::size_t row = 0; row < z.size(); row += 60) {
      for (int x = 0; x + h < 60; ++x, ++n) sum += 0.5 * (z[row + x] - z[row + x + h]) * (z[row + x] - z[row + x + h]);
    }
    return sum / n;
  };
  const real mean = std::accumulate(z.begin(), z.end(), 0.0) / static_cast<real>(z.size());
  EXPECT_NEAR(mean, 0.0, 0.06);
  for (const int h : {1, 3, 6, 10, 20}) {
    const real r = std::min(1.0, h / 10.0);
    EXPECT_NEAR(gamma(h), 1.5 * r - 0.5 * r * r * r, 0.05) << h;
  }

  // The draws of a path's nodes are not independent of one another, so moments are compared over all nodes at once, on
  // a grid with many more nodes than a neighbourhood.
  constexpr int kRealizations = 200;
  const std::vector<Datum> data = {{20, 20, 0, 1.5}, {40, 45, 0, -1.0}, {23, 30, 0, 0.3}, {50, 20, 0, 2.0}};
  const std::vector<real> realizations = run(KESTRUM_SIM_SK, data, kRealizations), expected = run(KESTRUM_SK, data, 1);
  real meanError = 0.0, deviationError = 0.0;  // mean squares
  for (int i = 0; i < grid.nxyz; ++i) {
    real sum = 0.0, squares = 0.0;
    for (int r = 0; r < kRealizations; ++r) {
      const real value = realizations[r * grid.nxyz + i];
      sum += value / kRealizations;
      squares += value * value / kRealizations;
    }
    meanError += std::pow(sum - expected[i], 2) / grid.nxyz;
    deviationError += std::pow(std::sqrt(std::max(0.0, squares - sum * sum)) - expected[grid.nxyz + i], 2) / grid.nxyz;
  }
  EXPECT_LT(std::sqrt(meanError), 0.09);  // 1 / sqrt(200) is 0.07
  EXPECT_LT(std::sqrt(deviationError), 0.06);
}

TEST(Simulation, CategoriesComeInTheirProportions) {
  const VORL_GRID grid = MakeGrid(60, 60, 1);
  const std::vector<real> prior = {0.5, 0.3, 0.2};
  for (const auto mode : {KESTRUM_SIM_SK, KESTRUM_SIM_OK}) {
    IndicatorRunRecords records(grid, {{COV_SPHERICAL, 0.2, 5.0, 5.0, 5.0}}, {1.0, 2.0, 4.0}, {});
    records.input.computationMode = mode;
    records.input.nrealization = 60;
    records.input.seedIncrement = 7919;
    records.input.probabilityUsage = 1;
    records.input.probabilityValue = NewVector(prior);
    ASSERT_EQ(records.Run(2), 0);
    const std::vector<real> values = Values(records.output);
    for (int c = 0; c < 3; ++c) {
      const auto count = std::count(values.begin(), values.end(), records.input.categoryValue[c]);
      // Without the prior in the estimate the proportions wander.
      EXPECT_NEAR(static_cast<real>(count) / static_cast<real>(values.size()), prior[c],
                  mode == KESTRUM_SIM_SK ? 0.02 : 0.12);
    }
  }
}

TEST(Simulation, BoundsAreHonoured) {
  const VORL_GRID grid = MakeGrid(25, 20, 1);
  RunRecords records(grid, {{COV_SPHERICAL, 1.0, 6.0, 6.0, 6.0}}, {});
  records.input.computationMode = KESTRUM_SIM_SK;
  records.input.meanUsage = 1;
  records.input.meanValue = 0.5;
  records.input.nrealization = 20;
  records.input.seedIncrement = 7919;
  AddBounds(records.input, grid);
  const std::vector<real> bounds(records.input.dataImage->var, records.input.dataImage->var + 2 * grid.nxyz);
  ASSERT_EQ(records.Run(3), 0);
  EXPECT_EQ(records.monitor.nwarning, 0);
  const std::vector<real> z = Values(records.output);
  for (std::size_t k = 0; k < z.size(); ++k) {
    const std::size_t i = k % grid.nxyz;
    // The table of the normal law is interpolated, so that a bound may be missed by a little.
    EXPECT_TRUE(bounds[i] == kMissing || z[k] >= bounds[i] - 1e-5);
    EXPECT_TRUE(bounds[grid.nxyz + i] == kMissing || z[k] <= bounds[grid.nxyz + i] + 1e-5);
  }
}

// Two nodes next to each other whose bounds contradict the model: the last pass still had to relax one of them, and
// each warning is raised once per realization. How many passes are made shows in the state of the path that follows.
TEST(Simulation, GibbsPasses) {
  const VORL_GRID grid = MakeGrid(2, 1, 1);
  const auto run = [&](real low, real high, int npassMin, int npassMax) {
    RunRecords records(grid, {{COV_GAUSSIAN, 1.0, 50.0, 50.0, 50.0}}, {});
    records.input.computationMode = KESTRUM_SIM_SK;
    records.input.meanUsage = 1;
    records.input.nrealization = 2;
    records.input.seedIncrement = 100;
    records.input.nGibbsSamplerPathMin = npassMin;
    records.input.nGibbsSamplerPathMax = npassMax;
    records.input.ndataImage = 1;
    records.input.dataImage = NewImage(grid, {kMissing, low, high, kMissing}, {"v_min", "v_max"});
    toldWarnings.clear();
    EXPECT_EQ(records.Run(0, Collect), 0);
    return Values(records.output);
  };
  run(3.0, -3.0, 1, 4);
  EXPECT_EQ(toldWarnings, (std::vector<int>{2005, 2005}));
  run(3.0, -3.0, 1, 1);
  EXPECT_EQ(toldWarnings, (std::vector<int>{2005, 2005}));
  // Consistent bounds: one clean pass is enough, five are made if five are asked for, and no warning is due.
  const std::vector<real> one = run(-0.5, 0.5, 1, 10);
  EXPECT_TRUE(toldWarnings.empty());
  EXPECT_EQ(one, run(-0.5, 0.5, 1, 1));
  const std::vector<real> five = run(-0.5, 0.5, 5, 10);
  EXPECT_EQ(five, run(-0.5, 0.5, 5, 5));
  EXPECT_NE(five, one);
}

// All probabilities of a node come out as zero: the prior ones are drawn from, with a warning.
int StopAtWarning(VORL_PROGRESSMONITOR* monitor) { return monitor->warningNumber == 2020 ? -5 : 0; }

TEST(Simulation, ZeroProbabilities) {
  const VORL_GRID grid = MakeGrid(3, 1, 1);
  const auto make = [&] {
    auto records =
        std::make_unique<IndicatorRunRecords>(grid, std::vector<Element>{{COV_GAUSSIAN, 1.0, 9.0, 9.0, 9.0}},
                                              std::vector<real>{1.0, 2.0, 3.0}, std::vector<real>{3.0, kMissing, 3.0});
    records->input.computationMode = KESTRUM_SIM_SK;
    records->input.probabilityUsage = 1;
    // The weights of the two data add up to more than 1, which cuts the first category to 0.0; the second is 0.0 at the
    // data as well, and the data mean nothing to the third.
    records->input.probabilityValue = NewVector<real>({1.0, 0.0, 0.0});
    records->SetModel(2, {{COV_NUGGET, 1.0, 1.0, 1.0, 1.0}});
    return records;
  };
  auto records = make();
  toldWarnings.clear();
  ASSERT_EQ(records->Run(0, Collect), 0);
  EXPECT_EQ(toldWarnings, std::vector<int>{2020});
  EXPECT_EQ(records->output.outputImage->var[1], 1.0);
  // The answer to this warning ends the threaded form alone.
  EXPECT_EQ(make()->Run(0, StopAtWarning), 0);
  EXPECT_EQ(make()->Run(2, StopAtWarning), -5);
  // In an estimation as well, after all its nodes.
  auto estimation = make();
  estimation->input.computationMode = KESTRUM_SK;
  EXPECT_EQ(estimation->Run(2, StopAtWarning), -5);
}

}  // namespace
