#include "runs/place_kriging.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

namespace {

// Simple records of ordinary kriging from the header alone.
struct Records {
  std::vector<real> coordinates = {1.0, 1.0, 6.0, 2.0, 3.0, 7.0, 8.0, 8.0};
  std::vector<real> values = {1.0, 4.0, 2.0, 3.0};
  std::vector<real> estimates = std::vector<real>(12, -1.0), variances = estimates;
  std::vector<int> ndata = std::vector<int>(12, -1);
  std::vector<BOOLEAN> mask = std::vector<BOOLEAN>(12, TRUE);
  VORL_GRID grid = {4, 3, 1, 2.5, 3.0, 1.0, 0.0, 0.0, 0.0, 12, 12};
  VORL_COVMODELELEM elem;
  VORL_COVMODEL model;
  VORL_PLACEDATA data = {};
  VORL_PLACETARGETS targets = {};
  VORL_PLACEOPTIONS options;
  VORL_PLACERESULTS results = {};

  Records() {
    VORLKestrumInitCovModelElem(&elem);
    elem.covModelType = COV_SPHERICAL;
    elem.weightValue = 2.0;
    elem.rxValue = elem.ryValue = elem.rzValue = 9.0;
    VORLKestrumInitCovModel(&model);
    model.nelem = 1;
    model.covModelElem = &elem;
    VORLKestrumInitPlaceOptions(&options);
    data.ndata = 4;
    data.dimension = 2;
    data.coordinates = coordinates.data();
    data.values = values.data();
    targets.grid = &grid;
    results.estimates = estimates.data();
    results.variances = variances.data();
    results.ndata = ndata.data();
  }
  int Krige() { return VORLKestrumKrigePlaces(&model, &data, &targets, &options, &results, nullptr, nullptr); }
};

TEST(PlaceKrigingRun, KrigesAGridAndAList) {
  Records records;
  records.options.nthreads = 2;
  records.mask[5] = FALSE;
  records.targets.mask = records.mask.data();
  ASSERT_EQ(records.Krige(), 0);
  EXPECT_TRUE(std::isnan(records.estimates[5]) && std::isnan(records.variances[5]));
  EXPECT_EQ(records.ndata[5], 0);
  const std::vector<real> onGrid = records.estimates;
  // The data themselves, then a node of the grid.
  records.targets = {};
  std::vector<real> places = records.coordinates;
  places.insert(places.end(), {6.25, 4.5});
  records.targets.coordinates = places.data();
  records.targets.ntarget = 5;
  std::vector<real> weights(20);
  std::vector<int> weightData(20);
  records.results.nweight = 4;
  records.results.weights = weights.data();
  records.results.weightData = weightData.data();
  ASSERT_EQ(records.Krige(), 0);
  for (int i = 0; i < 4; ++i) {
    EXPECT_NEAR(records.estimates[i], records.values[i], 1e-14);
    EXPECT_NEAR(records.variances[i], 0.0, 1e-14);
    EXPECT_NEAR(weights[5 * i], 1.0, 1e-14);
  }
  EXPECT_EQ(records.estimates[4], onGrid[6]);
  EXPECT_NEAR(weights[16] + weights[17] + weights[18] + weights[19], 1.0, 1e-14);
  EXPECT_EQ(records.ndata[4], 4);
}

TEST(PlaceKrigingRun, TellsWhatIsRefused) {
  const struct {
    int status;
    VORL_PLACEREFUSAL refusal;
    long long first, second;
    std::function<void(Records&)> spoil;
  } rows[] = {
      {-20, KESTRUM_PLACE_ACCEPTED, -1, -1, [](Records& r) { r.data.values = nullptr; }},
      {-20, KESTRUM_PLACE_ACCEPTED, -1, -1, [](Records& r) { r.targets.grid = nullptr; }},
      {-20, KESTRUM_PLACE_ACCEPTED, -1, -1, [](Records& r) { r.options.ncovariate = 1; }},
      {-99, KESTRUM_PLACE_ACCEPTED, -1, -1, [](Records& r) { r.options.nthreads = -1; }},
      {-80136, KESTRUM_PLACE_NO_DATA, -1, -1, [](Records& r) { r.data.ndata = 0; }},
      {-80124, KESTRUM_PLACE_DIMENSION, -1, -1, [](Records& r) { r.data.dimension = 1; }},
      {-630, KESTRUM_PLACE_DATUM_COORDINATE, 1, -1, [](Records& r) { r.coordinates[3] = std::nan(""); }},
      {-162, KESTRUM_PLACE_SAME_PLACE, 0, 3, [](Records& r) { r.coordinates[6] = r.coordinates[7] = 1.0; }},
      {-80250, KESTRUM_PLACE_NEIGHBORS, -1, -1, [](Records& r) { r.options.nneighborMax = -1; }},
      {-80150, KESTRUM_PLACE_DEGREE, -1, -1, [](Records& r) { r.options.driftDegree = 3; }},
      {-80150, KESTRUM_PLACE_BLOCK, -1, -1, [](Records& r) { r.options.block[1] = 0; }},
      {-80150, KESTRUM_PLACE_BLOCK, -1, -1, [](Records& r) { r.options.block[2] = 2; }},
      {-80150, KESTRUM_PLACE_BLOCK, -1, -1, [](Records& r) { r.options.block[0] = r.options.block[1] = 65536; }},
      {-80150, KESTRUM_PLACE_BLOCK, -1, -1, [](Records& r) { std::fill_n(r.options.block, 3, 2097152); }},
      {-630, KESTRUM_PLACE_TARGET_COORDINATE, -1, -1,
       [](Records& r) {
         r.targets.grid = nullptr;
         r.targets.coordinates = r.coordinates.data();
         r.targets.ntarget = -3;
       }},
      {-80313, KESTRUM_PLACE_MODEL_RANGE, 0, -1, [](Records& r) { r.elem.ryValue = 0.0; }},
      {-80120, KESTRUM_PLACE_GRID, -1, -1, [](Records& r) { r.grid.nx = 0; }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.refusal);
    Records records;
    row.spoil(records);
    EXPECT_EQ(records.Krige(), row.status);
    EXPECT_EQ(records.results.refusal, row.refusal);
    EXPECT_EQ(records.results.first, row.first);
    EXPECT_EQ(records.results.second, row.second);
  }
  EXPECT_EQ(VORLKestrumKrigePlaces(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), -20);
}

}  // namespace
