#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "neighborhood/neighbor_search.hpp"
#include "runs/estimation.h"
#include "runs/run_records.hpp"

namespace {

using namespace kestrum_test;

// Solves a dense system by elimination with partial pivoting.
std::vector<real> SolveDense(std::vector<std::vector<real>> a, std::vector<real> b) {
  for (std::size_t k = 0; k < b.size(); ++k) {
    std::size_t pivot = k;
    for (std::size_t i = k + 1; i < b.size(); ++i) pivot = std::abs(a[i][k]) > std::abs(a[pivot][k]) ? i : pivot;
    std::swap(a[k], a[pivot]);
    std::swap(b[k], b[pivot]);
    for (std::size_t i = 0; i < b.size(); ++i) {
      const real factor = i == k ? 0.0 : a[i][k] / a[k][k];
      for (std::size_t j = k; j < b.size(); ++j) a[i][j] -= factor * a[k][j];
      b[i] -= factor * b[k];
    }
  }
  for (std::size_t k = 0; k < b.size(); ++k) b[k] /= a[k][k];
  return b;
}

struct Result {
  std::vector<real> estimate, deviation;
};

// Textbook kriging of every node from its nearest data: all data sorted by the distance in the model's ellipsoid, with
// the covariance of the model at the node. Ties in distance must not matter: data sets are small, or all data count.
Result Reference(const VORL_KESTRUMINPUT& input, const std::vector<Datum>& data, bool unique) {
  const VORL_GRID& grid = *input.simGrid;
  VORL_COVMODEL* const model = input.covModel;
  const bool ordinary = input.computationMode == KESTRUM_OK;
  real dataMean = 0.0;
  for (const Datum& datum : data) dataMean += datum.value / static_cast<real>(data.size());
  const auto meanAt = [&](int node) {
    return input.meanUsage == 0 ? dataMean : input.meanUsage == 1 ? input.meanValue : input.meanImage->var[node];
  };
  const auto nodeOf = [&](const Datum& d) { return d.ix + d.iy * grid.nx + d.iz * grid.nxy; };
  Result result{std::vector<real>(grid.nxyz), std::vector<real>(grid.nxyz)};
  for (int node = 0; node < grid.nxyz; ++node) {
    if (input.maskImageFlag && input.maskImage->var[node] == 0.0) {
      result.estimate[node] = result.deviation[node] = kMissing;
      continue;
    }
    const auto covariance = [&](real dx, real dy, real dz) {
      real value;
      VORLKestrumEvaluateCovModel(model, node, FALSE, nullptr, 1, &dx, &dy, &dz, &value);
      return value;
    };
    real sill = 0.0;
    for (int e = 0; e < model->nelem; ++e) {
      const VORL_COVMODELELEM& element = model->covModelElem[e];
      sill += element.weightImage != nullptr ? element.weightImage->var[node] : element.weightValue;
    }
    const real ratio = input.varianceUsage == 1   ? std::sqrt(input.varianceValue / sill)
                       : input.varianceUsage == 2 ? std::sqrt(input.varianceImage->var[node] / sill)
                                                  : 1.0;
    const int ix = node % grid.nx, iy = node / grid.nx % grid.ny, iz = node / grid.nxy;
    std::vector<Datum> near;
    bool known = false;
    const real reach = input.searchRadiusRelative * model->covModelElem[0].rxValue;
    for (const Datum& d : data) {
      const real dx = (d.ix - ix) * grid.sx, dy = (d.iy - iy) * grid.sy, dz = (d.iz - iz) * grid.sz;
      if (dx == 0.0 && dy == 0.0 && dz == 0.0) {
        known = true;
        result.estimate[node] = d.value;
        result.deviation[node] = 0.0;
      }
      if (unique || dx * dx + dy * dy + dz * dz <= reach * reach * (1 + 1e-10)) near.push_back(d);
    }
    if (known) continue;
    const std::size_t m = near.size();
    if (m == 0) {
      result.estimate[node] = meanAt(node);
      result.deviation[node] = std::sqrt(sill) * ratio;
      continue;
    }
    const std::size_t size = ordinary ? m + 1 : m;
    std::vector<std::vector<real>> a(size, std::vector<real>(size, 1.0));
    std::vector<real> b(size, 1.0);
    for (std::size_t i = 0; i < m; ++i) {
      for (std::size_t j = 0; j < m; ++j) {
        a[i][j] = i == j ? sill
                         : covariance((near[j].ix - near[i].ix) * grid.sx, (near[j].iy - near[i].iy) * grid.sy,
                                      (near[j].iz - near[i].iz) * grid.sz);
      }
      b[i] = covariance((near[i].ix - ix) * grid.sx, (near[i].iy - iy) * grid.sy, (near[i].iz - iz) * grid.sz);
    }
    if (ordinary) a[m][m] = 0.0;
    const std::vector<real> weight = SolveDense(a, b);
    real estimate = 0.0, explained = ordinary ? weight[m] : 0.0;
    for (std::size_t i = 0; i < m; ++i) {
      const int other = nodeOf(near[i]);
      const real scale = input.varianceUsage == 2 ? ratio / std::sqrt(input.varianceImage->var[other] / sill) : 1.0;
      estimate += weight[i] * (near[i].value - meanAt(other)) * scale;
      explained += weight[i] * b[i];
    }
    result.estimate[node] = estimate + meanAt(node);
    result.deviation[node] = std::sqrt(std::max(0.0, sill - explained)) * ratio;
  }
  return result;
}

struct Case {
  std::string name;
  VORL_GRID grid;
  int ndata;
  std::vector<Element> model;
  std::function<void(VORL_KESTRUMINPUT&)> change;
  bool unique = false;
};

std::vector<Case> Cases() {
  const VORL_GRID map = MakeGrid(23, 17, 1, 2.0, 2.0, 1.0);
  const VORL_GRID block = MakeGrid(9, 8, 7);
  const std::vector<Element> spherical = {{COV_SPHERICAL, 0.8, 16.0, 16.0, 16.0}, {COV_NUGGET, 0.2, 0.0, 0.0, 0.0}};
  const std::vector<Element> nested = {
      {COV_EXPONENTIAL, 0.5, 12.0, 12.0, 12.0}, {COV_CUBIC, 0.4, 9.0, 7.0, 5.0}, {COV_NUGGET, 0.1, 0.0, 0.0, 0.0}};
  const auto wave = [](const VORL_GRID& grid, real low, real high) {
    std::vector<real> values(grid.nxyz);
    for (int i = 0; i < grid.nxyz; ++i) values[i] = low + (high - low) * (0.5 + 0.5 * std::sin(0.37 * i));
    return values;
  };
  const auto simple = [](VORL_KESTRUMINPUT& input) {
    input.computationMode = KESTRUM_SK;
    input.meanUsage = 1;
    input.meanValue = 4.5;
  };
  return {
      {"OrdinaryMap", map, 12, spherical, [](VORL_KESTRUMINPUT&) {}},
      {"SimpleMap", map, 12, spherical, simple},
      {"OneDatum", map, 1, spherical, simple},
      {"Block", block, 14, nested, [](VORL_KESTRUMINPUT&) {}},
      {"FixedAngles", block, 14, nested,
       [](VORL_KESTRUMINPUT& input) {
         input.covModel->angle1Value = 30.0;
         input.covModel->angle2Value = -20.0;
         input.covModel->angle3Value = 65.0;
       }},
      {"SortedByCovariance", map, 12, spherical,
       [](VORL_KESTRUMINPUT& input) { input.searchNeighborhoodSortMode = 2; }},
      {"Mask", map, 9, spherical,
       [map](VORL_KESTRUMINPUT& input) {
         std::vector<real> mask(map.nxyz, 0.0);
         for (int i = 0; i < map.nxyz; ++i) mask[i] = i % 5 == 3 ? 0.0 : 1.0;
         input.maskImageFlag = TRUE;
         input.maskImage = NewImage(map, mask);
       }},
      {"MeanImage", map, 12, spherical,
       [=](VORL_KESTRUMINPUT& input) {
         input.meanUsage = 2;
         input.meanImage = NewImage(map, wave(map, 2.0, 7.0));
       }},
      {"VarianceValue", map, 12, spherical,
       [=](VORL_KESTRUMINPUT& input) {
         simple(input);
         input.varianceUsage = 1;
         input.varianceValue = 6.0;
       }},
      {"VarianceImage", map, 12, spherical,
       [=](VORL_KESTRUMINPUT& input) {
         simple(input);
         input.varianceUsage = 2;
         input.varianceImage = NewImage(map, wave(map, 0.5, 9.0));
       }},
      {"AngleImage",
       map,
       12,
       {{COV_GAUSSIAN, 0.9, 14.0, 14.0, 14.0}, {COV_EXPONENTIAL, 0.3, 14.0, 6.0, 14.0}},
       [=](VORL_KESTRUMINPUT& input) {
         input.covModel->angle1ImageFlag = TRUE;
         input.covModel->angle1Image = NewImage(map, wave(map, 0.0, 90.0));
       }},
      {"WeightAndPowerImage",
       map,
       12,
       {{COV_EXPONENTIAL_GENERALIZED, 0.9, 14.0, 14.0, 14.0, 1.2}},
       [=](VORL_KESTRUMINPUT& input) {
         VORL_COVMODELELEM& element = input.covModel->covModelElem[0];
         element.weightImageFlag = TRUE;
         element.weightImage = NewImage(map, wave(map, 0.4, 2.0));
         element.sImageFlag = TRUE;
         element.sImage = NewImage(map, wave(map, 0.5, 1.4));
       }},
      {"UniqueOrdinary", map, 40, spherical, [](VORL_KESTRUMINPUT&) {}, true},
      {"UniqueRotated", block, 25, nested,
       [=](VORL_KESTRUMINPUT& input) {
         simple(input);
         input.covModel->angle1Value = 40.0;
         input.covModel->angle3Value = 10.0;
         input.varianceUsage = 2;
         input.varianceImage = NewImage(block, wave(block, 0.5, 9.0));
       },
       true},
      {"UniqueManyData", map, 120, spherical, simple, true},
  };
}

// Every case against the textbook with either solver, and every number of threads against the serial form, bit for bit.
TEST(Estimation, AgreesWithTextbookAndBetweenThreads) {
  for (const Case& c : Cases()) {
    // Data stay off the mask's holes.
    std::vector<Datum> data = RandomData(c.grid, c.ndata, 7);
    if (c.name == "Mask") {
      std::erase_if(data, [&](const Datum& d) { return (d.ix + d.iy * c.grid.nx) % 5 == 3; });
    }
    for (const bool factorising : {false, true}) {
      std::vector<real> serial;
      for (const int nthreads : {0, 1, 2, 3, 8, 4}) {
        SCOPED_TRACE(c.name + (factorising ? ", factorising, " : ", ") + std::to_string(nthreads));
        RunRecords records(c.grid, c.model, data);
        c.change(records.input);
        if (c.unique) records.input.searchRadiusRelative = -1.0;
        const Result expected = nthreads == 0 ? Reference(records.input, data, c.unique) : Result();
        int status = -1;
        long long nfallback = 0;
        // Within a parallel region of the caller's the runtime gives one thread: no node is left out.
#pragma omp parallel num_threads(nthreads == 4 ? 2 : 1)
#pragma omp single
        status = factorising ? records.Factorise(nthreads, &nfallback) : records.Run(nthreads);
        ASSERT_EQ(status, 0);
        ASSERT_EQ(nfallback, 0);
        const VORL_IMAGE& image = *records.output.outputImage;
        ASSERT_EQ(image.nvar, 2);
        if (nthreads == 0) serial.assign(image.var, image.var + image.nxyzv);
        ASSERT_TRUE(std::equal(serial.begin(), serial.end(), image.var));
        EXPECT_EQ(records.monitor.nwarning, 0);
        if (nthreads != 0) continue;
        EXPECT_STREQ(image.varName[0], "v_est");
        EXPECT_STREQ(image.varName[1], "v_std");
        for (int i = 0; i < c.grid.nxyz; ++i) {
          // The iterative solver stops at a relative residual of 1e-10; these systems have condition numbers below 1e4.
          // A square root near 0 halves the digits.
          ASSERT_NEAR(image.var[i], expected.estimate[i], factorising ? 1e-10 : 1e-5) << i;
          ASSERT_NEAR(image.var[c.grid.nxyz + i], expected.deviation[i], factorising ? 1e-6 : 1e-4) << i;
        }
      }
    }
  }
}

// Data times f and a model times f squared: results times f, whatever the unit.
TEST(Estimation, FactorisingIsFreeOfTheUnit) {
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
          ASSERT_NEAR(values[i] / f, expected[i], 1e-7) << unique << mode << " " << f << " " << i;
        }
      }
    }
  }
}

// The search among sparse data must find just what walking the list finds, at every node.
TEST(Estimation, SparseSearchFindsWhatWalkingFinds) {
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
    VORL_SEARCHNEIGHBORHOOD& offsets = lists.list;
    kestrum::NodeBits isDatum;
    ASSERT_EQ(isDatum.Allocate(c.grid.nxyz), 0);
    std::vector<int> shift(offsets.size);
    for (int e = 0; e < offsets.size; ++e) {
      shift[e] = offsets.ix[e] + offsets.iy[e] * c.grid.nx + offsets.iz[e] * c.grid.nxy;
    }
    for (const Datum& d : RandomData(c.grid, c.ndata, 3)) {
      isDatum.Set(d.ix + d.iy * c.grid.nx + d.iz * c.grid.nxy);
    }
    const kestrum::NeighborList list{&offsets, shift.data(), c.limit, c.grid};
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
        if (inside && isDatum[node + shift[e]] != 0) expected.push_back(e);
      }
      ASSERT_EQ(std::vector<int>(found.begin(), found.begin() + m), expected) << node;
      const int n = kestrum::WalkNeighbors(list, node, isDatum, walked.data());
      ASSERT_EQ(std::vector<int>(walked.begin(), walked.begin() + n), expected) << node;
    }
  }
}

// A model that is no covariance beyond its range gives singular systems: 1 - h is -1 between data two ranges apart. Where
// the right side does not fit, the farther datum is dropped.
TEST(Estimation, UnsolvableSystemsLoseNeighbors) {
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
TEST(Estimation, OptionsAreChecked) {
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
TEST(Estimation, SillAtOrBelowZero) {
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
