#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "runs/run_records.hpp"

namespace {

using namespace kestrum_test;

// Runs by either solver, serial and threaded. What their values have to be is tested through Python, against a reference,
// and any number of threads by random trials.
TEST(Solvers, AgreeAndLeaveNoNodeOut) {
  const VORL_GRID map = MakeGrid(23, 17, 1), line = MakeGrid(90, 1, 1);
  const auto wave = [&](real low, real high) {
    std::vector<real> values(map.nxyz);
    for (int i = 0; i < map.nxyz; ++i) values[i] = low + (high - low) * (0.5 + 0.5 * std::sin(0.3 * i));
    return NewImage(map, values, {"p"});
  };
  const struct {
    const char* name;
    VORL_GRID grid;
    int ndata;
    std::function<void(VORL_KESTRUMINPUT&)> change;
    bool warns = false;  // in a simulation
  } cases[] = {{"Plain", map, 10, [](VORL_KESTRUMINPUT&) {}},
               {"Images", map, 10,
                [&](VORL_KESTRUMINPUT& input) {
                  input.covModel->angle1ImageFlag = TRUE;
                  input.covModel->angle1Image = wave(0.0, 90.0);
                  input.covModel->covModelElem[0].rxImageFlag = TRUE;
                  input.covModel->covModelElem[0].rxImage = wave(3.0, 7.0);
                  input.covModel->covModelElem[1].weightImageFlag = TRUE;
                  input.covModel->covModelElem[1].weightImage = wave(0.1, 0.5);
                }},
               {"Variances", map, 10,
                [&](VORL_KESTRUMINPUT& input) {
                  input.varianceUsage = 2;
                  input.varianceImage = wave(0.5, 1.5);
                }},
               {"Dropping", line, 4,
                [](VORL_KESTRUMINPUT& input) {
                  input.covModel->covModelElem[0].covModelType = COV_POWER;
                  input.covModel->covModelElem[1].weightValue = 0.0;
                  input.searchRadiusRelative = 3.0;
                },
                true}};
  for (const auto& c : cases) {
    for (const auto mode : {KESTRUM_SK, KESTRUM_SIM_SK}) {
      std::vector<real> serial[2];  // by solver
      for (const bool factorising : {false, true}) {
        for (const int nthreads : {0, 2, 4}) {
          SCOPED_TRACE(std::string(c.name) + (factorising ? ", factorising, " : ", ") + std::to_string(nthreads));
          RunRecords records(c.grid, {{COV_SPHERICAL, 0.9, 5.0, 5.0, 5.0, 1.0}, {COV_EXPONENTIAL, 0.1, 9.0, 9.0, 9.0}},
                             RandomData(c.grid, c.ndata, 4));
          records.input.computationMode = mode;
          records.input.nneighborMax = 8;
          records.input.nrealization = 3;
          records.input.seedIncrement = 1000;
          c.change(records.input);
          int status = -1;
          // Within a parallel region of the caller's the runtime gives one thread.
#pragma omp parallel num_threads(nthreads == 4 ? 2 : 1)
#pragma omp single
          status = factorising ? records.Factorise(nthreads) : records.Run(nthreads);
          ASSERT_EQ(status, 0);
          const VORL_IMAGE& image = *records.output.outputImage;
          const std::vector<real> values(image.var, image.var + image.nxyzv);
          if (nthreads == 0) serial[factorising] = values;
          EXPECT_EQ(values, serial[factorising]);  // and none is a NaN
          EXPECT_EQ(std::count(values.begin(), values.end(), kMissing), 0);
          EXPECT_EQ(records.monitor.nwarning > 0, c.warns && mode == KESTRUM_SIM_SK);
        }
      }
      if (c.warns && mode == KESTRUM_SIM_SK) {
        // Factorising gives up systems that leave a variance below 0; the iterative solver draws from them.
        const auto largest = [&](int solver) {
          return std::abs(*std::ranges::max_element(serial[solver], {}, [](real v) { return std::abs(v); }));
        };
        EXPECT_LT(largest(1), 0.5 * largest(0));
        continue;
      }
      // Of deviations the squares: a variance that is 0 but for rounding has a root of 1e-8.
      const std::size_t firstDeviation = mode == KESTRUM_SK ? serial[0].size() / 2 : serial[0].size();
      for (std::size_t i = 0; i < serial[0].size(); ++i) {
        const auto compared = [&](int solver) {
          return i < firstDeviation ? serial[solver][i] : serial[solver][i] * serial[solver][i];
        };
        ASSERT_NEAR(compared(0), compared(1), 1e-9) << c.name << i;
      }
    }
  }
}

TEST(Solvers, AgreeOnCategories) {
  const VORL_GRID grid = MakeGrid(19, 13, 2);
  std::vector<real> data(grid.nxyz, kMissing);
  for (int i = 0; i < grid.nxyz; i += 31) data[i] = 1.0 + i / 31 % 3;
  for (const auto mode : {KESTRUM_SK, KESTRUM_OK, KESTRUM_SIM_SK}) {
    for (const bool oneModel : {false, true}) {  // whose systems are solved once
      std::vector<real> first;
      for (const bool factorising : {false, true}) {
        IndicatorRunRecords records(grid, {{COV_SPHERICAL, 0.2, 4.0, 4.0, 2.0}}, {1.0, 2.0, 3.0}, data);
        records.input.computationMode = mode;
        if (!oneModel) records.SetModel(2, {{COV_EXPONENTIAL, 0.2, 6.0, 3.0, 2.0}});
        if (mode == KESTRUM_OK) records.input.searchRadiusRelative[0] = -1.0;
        ASSERT_EQ(factorising ? records.Factorise(2) : records.Run(2), 0);
        const VORL_IMAGE& image = *records.output.outputImage;
        if (!factorising) first.assign(image.var, image.var + image.nxyzv);
        for (int i = 0; i < image.nxyzv; ++i) ASSERT_NEAR(image.var[i], first[i], 1e-9) << mode << oneModel << i;
      }
    }
  }
}

// Data times f and a model times f squared: results times f, whatever the unit.
TEST(Solvers, FactorisingIsFreeOfTheUnit) {
  const VORL_GRID grid = MakeGrid(31, 24, 1);
  const std::vector<Datum> data = RandomData(grid, 60, 3);
  const auto krige = [&](real f, bool unique, int mode) {
    std::vector<Datum> scaled = data;
    for (Datum& d : scaled) d.value *= f;
    RunRecords records(grid, {{COV_SPHERICAL, 0.9 * f * f, 12.0, 8.0, 1.0}, {COV_NUGGET, 0.1 * f * f, 1.0, 1.0, 1.0}},
                       scaled);
    records.input.computationMode = static_cast<VORL_KESTRUMCOMPUTATIONMODE>(mode);
    records.input.searchRadiusRelative = unique ? -1.0 : 1.5;
    long long nfallback = -1;
    EXPECT_EQ(records.Factorise(1, &nfallback), 0);
    EXPECT_EQ(nfallback, 0);
    const VORL_IMAGE& image = *records.output.outputImage;
    return std::vector<real>(image.var, image.var + image.nxyzv);
  };
  for (const bool unique : {false, true}) {
    for (const int mode : {KESTRUM_OK, KESTRUM_SK, KESTRUM_SIM_OK}) {
      if (unique && mode == KESTRUM_SIM_OK) continue;
      const std::vector<real> expected = krige(1.0, unique, mode);
      for (const real f : {1e-12, 1e-3, 400.0, 1e12}) {
        const std::vector<real> values = krige(f, unique, mode);
        for (std::size_t i = 0; i < values.size(); ++i) {
          ASSERT_NEAR(values[i] / f, expected[i], 1e-12) << unique << mode << " " << f << " " << i;
        }
      }
    }
  }
}

// A model that is no covariance beyond its range gives singular systems: 1 - h is -1 between data two ranges apart. Where
// the right side does not fit, the farther datum is dropped.
TEST(Solvers, UnsolvableSystemsLoseNeighbors) {
  const VORL_GRID grid = MakeGrid(20, 1, 1);
  for (const bool factorising : {false, true}) {
    RunRecords records(grid, {{COV_POWER, 1.0, 4.0, 4.0, 4.0, 1.0}}, {{4, 0, 0, 1.0}, {12, 0, 0, 2.0}});
    records.input.computationMode = KESTRUM_SK;
    records.input.meanUsage = 1;
    records.input.meanValue = 0.5;
    records.input.searchRadiusRelative = 10.0;
    long long nfallback = 18;
    ASSERT_EQ(factorising ? records.Factorise(0, &nfallback) : records.Run(), 0);
    EXPECT_EQ(nfallback, 18);                 // the systems of all nodes but the two data
    EXPECT_EQ(records.monitor.nwarning, 11);  // the nodes outside the two data
    EXPECT_EQ(records.monitor.nwarningNumber, 1);
    EXPECT_EQ(records.monitor.warningNumberList[0], 2001);
    const VORL_IMAGE& image = *records.output.outputImage;
    // Half a range from the nearer datum, weight and covariance are 0.5.
    EXPECT_NEAR(image.var[2], 0.5 + 0.5 * 0.5, 1e-12);
    EXPECT_NEAR(image.var[20 + 2], std::sqrt(0.75), 1e-12);
  }
}

// Options out of their bounds are refused before anything is done.
TEST(Solvers, OptionsAreChecked) {
  const struct {
    int solver, nthreads, status;
  } rows[] = {{2, 0, -71060}, {-1, 0, -71060}, {KESTRUM_SOLVER_FACTORISING, -1, -99}, {KESTRUM_SOLVER_ITERATIVE, 3, 0}};
  for (const auto& row : rows) {
    RunRecords records(MakeGrid(4, 1, 1), {{COV_SPHERICAL, 1.0, 4.0, 4.0, 4.0}}, {{1, 0, 0, 1.0}});
    VORL_KESTRUMOPTIONS options;
    VORLKestrumInitOptions(&options);
    std::memcpy(&options.solver, &row.solver, sizeof row.solver);
    options.nthreads = row.nthreads;
    EXPECT_EQ(VORLKestrumSimWithOptions(&records.input, &records.output, nullptr, nullptr, &options), row.status);
    EXPECT_EQ(records.output.outputImage != nullptr, row.status == 0);
  }
}

// A weight image can hold values below zero behind its first, so that the sill at a node is 0 or negative: no system can
// be solved in the first case, and no variance is below 0 in either.
TEST(Solvers, SillAtOrBelowZero) {
  const VORL_GRID grid = MakeGrid(4, 1, 1);
  RunRecords records(grid, {{COV_SPHERICAL, 0.0, 10.0, 10.0, 10.0}, {COV_NUGGET, 1.0, 0.0, 0.0, 0.0}},
                     {{0, 0, 0, 3.0}});
  records.input.computationMode = KESTRUM_SK;
  records.input.meanUsage = 1;
  records.input.meanValue = 1.0;
  VORL_COVMODELELEM& element = records.input.covModel->covModelElem[0];
  element.weightImageFlag = TRUE;
  element.weightImage = NewImage(grid, {1.0, -1.0, -50.0, 1.0});
  ASSERT_EQ(records.Run(), 0);
  EXPECT_EQ(records.monitor.nwarning, 1);
  EXPECT_EQ(records.monitor.warningNumberList[0], 2015);
  const real* const var = records.output.outputImage->var;
  EXPECT_EQ(var[1], 1.0);
  EXPECT_EQ(var[4 + 1], 0.0);
  EXPECT_EQ(var[4 + 2], 0.0);
  EXPECT_GT(var[4 + 3], 0.0);
}

}  // namespace
