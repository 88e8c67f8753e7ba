#include "engine/place_kriging.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <tuple>

#include "engine/place_problem.hpp"
#include "support/allocation_failure.hpp"
#include "support/simd_levels.hpp"

namespace {

using kestrum::Dealing;
using kestrum::PlaceRefusal;
using kestrum::SimdLevel;
using kestrum_test::PlaceOracle;
using kestrum_test::PlaceOutcome;
using kestrum_test::PlaceProblem;
using kestrum_test::Triple;

// Ordinary kriging with a nested model of random data on a small grid that reaches beyond them.
PlaceProblem MakeProblem(int dimension, bool turned, int n = 60) {
  std::mt19937 generator(11);
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  PlaceProblem problem;
  problem.dimension = dimension;
  for (int i = 0; i < n; ++i) {
    const double x = 30.0 * uniform(generator);
    const double y = 20.0 * uniform(generator);
    const double z = dimension > 2 ? 10.0 * uniform(generator) : 0.0;
    problem.places.push_back({x, y, z});
    problem.values.push_back(40.0 + std::sin(0.3 * x) + std::cos(0.5 * y) + 0.1 * z + 0.2 * uniform(generator));
  }
  if (turned) problem.angles = {35.0, dimension > 2 ? 20.0 : 0.0, dimension > 2 ? -15.0 : 0.0};
  const Triple shape = turned ? Triple{1.0, 2.5, 0.6} : Triple{1.0, 1.0, 1.0};
  const auto ranges = [&](double range) { return Triple{range * shape[0], range * shape[1], range * shape[2]}; };
  problem.AddElement(COV_NUGGET, 0.1, {});
  problem.AddElement(COV_SPHERICAL, 0.7, ranges(9.0));
  problem.AddElement(COV_EXPONENTIAL, 0.4, ranges(25.0));
  problem.options.neighbors = 12;
  problem.SetGrid(9, 7, dimension > 2 ? 2 : 1, {4.0, 3.5, 6.0}, {-2.0, -1.5, -1.0});
  return problem;
}

// Checks each `step`th target.
void ExpectSolved(const PlaceProblem& problem, const PlaceOutcome& outcome, double tolerance = 1e-11, int step = 1) {
  ASSERT_EQ(outcome.status, 0);
  ASSERT_EQ(outcome.problem.refusal, PlaceRefusal::kNone);
  const PlaceOracle oracle(problem);
  const std::size_t nweight = outcome.weights.size() / problem.ntarget();
  for (int t = 0; t < problem.ntarget(); t += step) {
    SCOPED_TRACE("target " + std::to_string(t));
    const auto solution = oracle.Solve(t);
    EXPECT_NEAR(outcome.estimate[t], static_cast<double>(solution.estimate), 40.0 * tolerance);
    EXPECT_NEAR(outcome.variance[t], static_cast<double>(solution.variance), tolerance);
    const std::size_t n = solution.data.size();
    ASSERT_EQ(outcome.ndata[t], static_cast<int>(n));
    for (std::size_t j = 0; j < nweight; ++j) {
      ASSERT_EQ(outcome.weightData[t * nweight + j], j < n ? solution.data[j] : -1);
      ASSERT_NEAR(outcome.weights[t * nweight + j], j < n ? static_cast<double>(solution.weights[j]) : 0.0, tolerance);
    }
  }
}

bool SameBits(const std::vector<double>& a, const std::vector<double>& b) {
  return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0);
}
bool SameBits(const PlaceOutcome& a, const PlaceOutcome& b) {
  return SameBits(a.estimate, b.estimate) && SameBits(a.variance, b.variance) && a.ndata == b.ndata &&
         SameBits(a.weights, b.weights) && a.weightData == b.weightData;
}

// What makes a kind of kriging of the common problem.
struct Kind {
  std::string name;
  std::function<void(PlaceProblem&)> change;
};

// Numbers that vary without a pattern.
double Odd(int i) { return std::fmod(0.6180339887 * (i + 1) * (i + 3), 1.0); }

void AddCovariates(PlaceProblem& problem, int count) {
  problem.options.ncovariate = count;
  for (int k = 0; k < count; ++k) {
    for (int i = 0; i < problem.n(); ++i) problem.covariates.push_back(300.0 * k + Odd(i + 7 * k));
    for (int t = 0; t < problem.ntarget(); ++t) problem.targetCovariates.push_back(300.0 * k + Odd(t + 100 + k));
  }
}

const Kind kKinds[] = {
    {"Ordinary", [](PlaceProblem&) {}},
    {"OrdinaryAll", [](PlaceProblem& p) { p.options.neighbors = 0; }},
    {"Simple",
     [](PlaceProblem& p) {
       p.options.degree = -1;
       p.options.mean = 39.0;
     }},
    {"SimpleAll",
     [](PlaceProblem& p) {
       p.options.degree = -1;
       p.options.mean = 41.0;
       p.options.neighbors = p.n();
     }},
    {"SimpleVaryingMean",
     [](PlaceProblem& p) {
       p.options.degree = -1;
       for (int i = 0; i < p.n(); ++i) p.means.push_back(39.0 + Odd(i));
       for (int t = 0; t < p.ntarget(); ++t) p.targetMeans.push_back(40.0 + Odd(t + 9));
     }},
    {"Linear", [](PlaceProblem& p) { p.options.degree = 1; }},
    {"Quadratic",
     [](PlaceProblem& p) {
       p.options.degree = 2;
       p.options.neighbors = 25;
     }},
    {"QuadraticAll",
     [](PlaceProblem& p) {
       p.options.degree = 2;
       p.options.neighbors = 0;
     }},
    {"ExternalDrift", [](PlaceProblem& p) { AddCovariates(p, 1); }},
    {"ExternalDrifts", [](PlaceProblem& p) { AddCovariates(p, 3); }},
    {"ExternalDriftAll",
     [](PlaceProblem& p) {
       AddCovariates(p, 2);
       p.options.neighbors = 0;
     }},
    {"LinearAndExternalDrift",
     [](PlaceProblem& p) {
       AddCovariates(p, 1);
       p.options.degree = 1;
     }},
    {"Block",
     [](PlaceProblem& p) {
       std::copy_n(std::array{3, 2, p.dimension > 2 ? 2 : 1}.data(), 3, p.options.block);
     }},
    {"BlockAll",
     [](PlaceProblem& p) {
       std::copy_n(std::array{4, 4, 1}.data(), 3, p.options.block);
       p.options.neighbors = 0;
     }},
    {"BlockQuadratic",
     [](PlaceProblem& p) {
       std::copy_n(std::array{2, 3, 1}.data(), 3, p.options.block);
       p.options.degree = 2;
       p.options.neighbors = 30;
     }},
    {"ErrorVariances",
     [](PlaceProblem& p) {
       for (int i = 0; i < p.n(); ++i) p.errorVariances.push_back(i % 3 == 0 ? 0.0 : 0.3 * Odd(i));
       // Two data with errors may share a place.
       p.places[7] = p.places[22];
     }},
    {"ErrorVariancesAll",
     [](PlaceProblem& p) {
       for (int i = 0; i < p.n(); ++i) p.errorVariances.push_back(0.2 * Odd(i));
       p.options.neighbors = 0;
     }},
    {"Radius",
     [](PlaceProblem& p) {
       std::fill_n(p.options.radius, 3, 12.0);
       p.options.neighbors = 6;
     }},
    {"EllipsoidAlone",
     [](PlaceProblem& p) {
       p.options.neighbors = 0;
       std::copy_n(Triple{14.0, 21.0, 9.0}.data(), 3, p.options.radius);
     }},
    {"Euclidean", [](PlaceProblem& p) { p.options.euclidean = true; }},
};

class PlaceKrigingKinds : public testing::TestWithParam<std::tuple<Kind, int, bool>> {};

TEST_P(PlaceKrigingKinds, SolvesTheEquations) {
  const auto& [kind, dimension, turned] = GetParam();
  PlaceProblem problem = MakeProblem(dimension, turned);
  kind.change(problem);
  const PlaceOutcome whole = problem.Krige();
  ExpectSolved(problem, whole);
  EXPECT_EQ(whole.report.withoutData + whole.report.undetermined + whole.report.indefinite + whole.report.redundant, 0);

  for (const int nthreads : {1, 3}) EXPECT_TRUE(SameBits(problem.Krige(Dealing::Threads(nthreads)), whole));
  for (const SimdLevel level : {SimdLevel::kBaseline, SimdLevel::kAvx2}) {
    if (level > kestrum::BestSimdLevel()) continue;
    EXPECT_TRUE(SameBits(problem.Krige(Dealing::Serial(), true, nullptr, nullptr, nullptr, level), whole));
  }
  // A window of the grid alone.
  if (problem.targetMeans.empty() && problem.targetCovariates.empty()) {
    const int window[6] = {2, 3, 0, 5, 2, 1};
    const PlaceOutcome part =
        problem.Krige(Dealing::Serial(), true, nullptr, nullptr, nullptr, kestrum::BestSimdLevel(), window);
    for (int t = 0; t < 10; ++t) {
      const int node = 2 + t % 5 + 9 * (3 + t / 5);
      EXPECT_EQ(part.estimate[t], whole.estimate[node]);
      EXPECT_EQ(part.variance[t], whole.variance[node]);
    }
  }
  // The same targets as a list, in another order and with some left out.
  if (problem.options.block[0] > 1) return;
  PlaceProblem listed = problem;
  const int count = problem.ntarget();
  const auto from = [&](int t) { return (t * 5) % count; };
  for (int t = 0; t < count; ++t) {
    listed.list.push_back(problem.Target(from(t)));
    listed.mask.push_back(t % 4 != 1);
    if (!problem.targetMeans.empty()) listed.targetMeans[t] = problem.targetMeans[from(t)];
    for (int k = 0; k < problem.options.ncovariate; ++k) {
      listed.targetCovariates[k * count + t] = problem.targetCovariates[k * count + from(t)];
    }
  }
  const PlaceOutcome again = listed.Krige();
  for (int t = 0; t < count; ++t) {
    if (t % 4 == 1) {
      EXPECT_TRUE(std::isnan(again.estimate[t]) && std::isnan(again.variance[t]) && again.ndata[t] == 0);
      continue;
    }
    EXPECT_EQ(again.estimate[t], whole.estimate[from(t)]);
    EXPECT_EQ(again.variance[t], whole.variance[from(t)]);
  }
}

INSTANTIATE_TEST_SUITE_P(All, PlaceKrigingKinds,
                         testing::Combine(testing::ValuesIn(kKinds), testing::Values(2, 3), testing::Bool()),
                         [](const auto& tested) {
                           return std::get<0>(tested.param).name +
                                  (std::get<1>(tested.param) == 2 ? "Plane" : "Space") +
                                  (std::get<2>(tested.param) ? "Turned" : "");
                         });

// Where data are dense, targets come in cells that begin their systems together. Which of them there are makes no
// difference, nor where tiles and threads part them.
TEST_P(PlaceKrigingKinds, SolvesCellsOfTargets) {
  const auto& [kind, dimension, turned] = GetParam();
  PlaceProblem problem = MakeProblem(dimension, turned, 10000);
  problem.options.neighbors = 20;
  problem.SetGrid(19, 14, dimension > 2 ? 3 : 1, {0.1, 0.08, 0.4}, {14.0, 9.0, 4.0});
  kind.change(problem);
  problem.wantWeights = false;
  const kestrum::PlaceKrigingOptions& options = problem.options;
  if (options.degree > 0 || options.ncovariate > 0 || options.neighbors == 0 || options.neighbors > 32) return;
  if (!problem.targetMeans.empty()) problem.targetMeans.resize(problem.ntarget(), 7.0);
  if (!problem.means.empty()) problem.means.resize(problem.n(), 7.0);
  const PlaceOutcome whole = problem.Krige();
  ExpectSolved(problem, whole, 1e-11, 13);
  EXPECT_TRUE(SameBits(problem.Krige(Dealing::Threads(3)), whole));
  for (const SimdLevel level : {SimdLevel::kBaseline, SimdLevel::kAvx2}) {
    if (level > kestrum::BestSimdLevel()) continue;
    EXPECT_TRUE(SameBits(problem.Krige(Dealing::Serial(), true, nullptr, nullptr, nullptr, level), whole));
  }
  const int window[6] = {3, 2, 0, 11, 7, 1};
  PlaceProblem masked = problem;
  if (!problem.targetMeans.empty()) return;
  for (int t = 0; t < 77; ++t) masked.mask.push_back(t % 3 != 1);
  const PlaceOutcome part =
      masked.Krige(Dealing::Serial(), true, nullptr, nullptr, nullptr, kestrum::BestSimdLevel(), window);
  for (int t = 0; t < 77; ++t) {
    if (t % 3 == 1) continue;
    const int node = 3 + t % 11 + 19 * (2 + t / 11);
    EXPECT_EQ(part.estimate[t], whole.estimate[node]);
    EXPECT_EQ(part.variance[t], whole.variance[node]);
    EXPECT_EQ(part.ndata[t], whole.ndata[node]);
  }
}

// More data of a target than the systems that are solved side by side take.
TEST(PlaceKriging, SolvesLargeSystems) {
  for (const double radius : {0.0, 100.0}) {
    PlaceProblem problem = MakeProblem(2, true, 200);
    problem.options.neighbors = radius > 0.0 ? 0 : 150;
    std::fill_n(problem.options.radius, 3, radius);
    problem.options.degree = 1;
    problem.SetGrid(4, 3, 1, {9.0, 7.0, 1.0}, {-2.0, -1.5, 0.0});
    const PlaceOutcome whole = problem.Krige();
    ExpectSolved(problem, whole);
    EXPECT_TRUE(SameBits(problem.Krige(Dealing::Threads(3)), whole));
  }
}

// Estimates alone come from dual weights where all data serve.
TEST(PlaceKriging, EstimatesAloneAgreeWithThoseBesideVariances) {
  for (const int neighbors : {0, 12}) {
    PlaceProblem problem = MakeProblem(3, true);
    problem.options.neighbors = neighbors;
    problem.options.degree = 1;
    const PlaceOutcome both = problem.Krige();
    const PlaceOutcome alone = problem.Krige(Dealing::Threads(2), false);
    for (int t = 0; t < problem.ntarget(); ++t) EXPECT_NEAR(alone.estimate[t], both.estimate[t], 1e-11);
  }
}

// At a datum the estimate is its value and the variance 0, unless it carries an error.
TEST(PlaceKriging, IsExactAtData) {
  for (const int neighbors : {0, 8}) {
    for (const int degree : {-1, 0, 2}) {
      PlaceProblem problem = MakeProblem(3, true);
      problem.options.neighbors = neighbors;
      problem.options.degree = degree;
      if (neighbors > 0 && degree == 2) problem.options.neighbors = 20;
      problem.list = problem.places;
      const PlaceOutcome outcome = problem.Krige();
      for (int t = 0; t < problem.n(); ++t) {
        EXPECT_NEAR(outcome.estimate[t], problem.values[t], 1e-11);
        EXPECT_NEAR(outcome.variance[t], 0.0, 1e-12);
        EXPECT_GE(outcome.variance[t], 0.0);
      }
      problem.errorVariances.assign(problem.n(), 0.05);
      EXPECT_GT(problem.Krige().variance[0], 0.01);
    }
  }
}

// A constant is estimated to the bit, whatever the sill.
TEST(PlaceKriging, EstimatesAConstantExactly) {
  for (const int neighbors : {0, 12}) {
    for (const double sill : {1e-10, 1e10}) {
      PlaceProblem problem = MakeProblem(2, false);
      problem.options.neighbors = neighbors;
      problem.values.assign(problem.n(), 100.0);
      for (VORL_COVMODELELEM& element : problem.elements) element.weightValue *= sill;
      for (const double estimate : problem.Krige().estimate) EXPECT_EQ(estimate, 100.0);
    }
  }
}

// Data times f and the model times f^2: estimates times f, variances times f^2; coordinates and ranges times another.
TEST(PlaceKriging, ScalesWithUnits) {
  for (const int neighbors : {0, 12}) {
    for (const int degree : {0, 2}) {
      PlaceProblem problem = MakeProblem(3, true);
      problem.options.neighbors = neighbors;
      problem.options.degree = degree;
      if (neighbors > 0 && degree == 2) problem.options.neighbors = 25;
      problem.errorVariances.assign(problem.n(), 0.02);
      const PlaceOutcome one = problem.Krige();
      for (const double f : {1e-90, 1e-12, 1e-3, 1e5, 1e12, 1e90}) {
        PlaceProblem scaled = problem;
        for (double& value : scaled.values) value *= f;
        for (double& variance : scaled.errorVariances) variance *= f * f;
        for (Triple& place : scaled.places) {
          for (double& c : place) c *= f;
        }
        for (VORL_COVMODELELEM& e : scaled.elements) {
          e.weightValue *= f * f;
          for (real* range : {&e.rxValue, &e.ryValue, &e.rzValue}) *range *= f;
        }
        scaled.SetGrid(9, 7, 2, {4.0 * f, 3.5 * f, 6.0 * f}, {-2.0 * f, -1.5 * f, -1.0 * f});
        const PlaceOutcome outcome = scaled.Krige();
        for (int t = 0; t < problem.ntarget(); ++t) {
          EXPECT_NEAR(outcome.estimate[t] / f, one.estimate[t], 1e-9);
          EXPECT_NEAR(outcome.variance[t] / (f * f), one.variance[t], 1e-10);
        }
      }
    }
  }
}

// Far from the origin nothing changes, for the drift counts from the data.
TEST(PlaceKriging, DoesNotDependOnTheOrigin) {
  PlaceProblem problem = MakeProblem(2, true);
  problem.options.degree = 2;
  problem.options.neighbors = 25;
  for (Triple& place : problem.places) {
    for (double& c : place) c = std::floor(c * 1024.0) / 1024.0;  // so that places far away are as exact
  }
  const PlaceOutcome here = problem.Krige();
  for (Triple& place : problem.places) {
    place[0] += 4194304.0;
    place[1] -= 1048576.0;
  }
  problem.grid.ox += 4194304.0;
  problem.grid.oy -= 1048576.0;
  const PlaceOutcome there = problem.Krige();
  for (int t = 0; t < problem.ntarget(); ++t) {
    EXPECT_NEAR(there.estimate[t], here.estimate[t], 1e-9);
    EXPECT_NEAR(there.variance[t], here.variance[t], 1e-9);
  }
}

// Axes exchanged, and one turned round.
TEST(PlaceKriging, KeepsSymmetries) {
  for (const int neighbors : {0, 12}) {
    PlaceProblem problem = MakeProblem(3, false);
    problem.options.neighbors = neighbors;
    problem.options.degree = 1;
    problem.SetGrid(5, 4, 3, {6.0, 5.0, 4.0}, {0.0, 0.0, -1.0});
    for (VORL_COVMODELELEM& e : problem.elements) e.ryValue *= 3.0;
    const PlaceOutcome outcome = problem.Krige();
    PlaceProblem exchanged = problem;
    for (Triple& place : exchanged.places) place = {place[1], -place[0], place[2]};
    for (VORL_COVMODELELEM& e : exchanged.elements) std::swap(e.rxValue, e.ryValue);
    exchanged.SetGrid(4, 5, 3, {5.0, 6.0, 4.0}, {0.0, -30.0, -1.0});
    const PlaceOutcome other = exchanged.Krige();
    for (int t = 0; t < problem.ntarget(); ++t) {
      const int x = t % 5;
      const int y = t / 5 % 4;
      const int s = y + 4 * (4 - x + 5 * (t / 20));
      EXPECT_NEAR(other.estimate[s], outcome.estimate[t], 1e-11);
      EXPECT_NEAR(other.variance[s], outcome.variance[t], 1e-11);
    }
  }
}

// Targets that no datum serves, or whose data do not determine the drift.
TEST(PlaceKriging, CountsTargetsWithoutASolution) {
  PlaceProblem problem = MakeProblem(2, false);
  for (Triple& place : problem.places) place[0] = std::min(place[0], 8.0 + 0.01 * place[1]);
  std::fill_n(problem.options.radius, 3, 5.0);
  PlaceOutcome outcome = problem.Krige();
  EXPECT_GT(outcome.report.withoutData, 10);
  for (int t = 0; t < problem.ntarget(); ++t) {
    EXPECT_EQ(std::isnan(outcome.estimate[t]), outcome.ndata[t] == 0);
    EXPECT_EQ(std::isnan(outcome.variance[t]), outcome.ndata[t] == 0);
  }
  problem.options.degree = -1;
  problem.options.mean = 7.0;
  const PlaceOutcome simple = problem.Krige();
  EXPECT_EQ(simple.report.withoutData, outcome.report.withoutData);
  for (int t = 0; t < problem.ntarget(); ++t) {
    if (simple.ndata[t] > 0) continue;
    EXPECT_EQ(simple.estimate[t], 7.0);
    EXPECT_DOUBLE_EQ(simple.variance[t], 1.2);
  }
  // Two data are too few for a plane, and so is any number on a line.
  problem.options.degree = 1;
  problem.options.neighbors = 2;
  outcome = problem.Krige();
  EXPECT_EQ(outcome.report.undetermined + outcome.report.withoutData, problem.ntarget());
  problem = MakeProblem(2, false);
  for (int i = 0; i < problem.n(); ++i) problem.places[i] = {0.5 * i, 20.0 - 0.25 * i, 0.0};
  for (const int neighbors : {0, 10}) {
    problem.options.degree = 1;
    problem.options.neighbors = neighbors;
    outcome = problem.Krige();
    EXPECT_EQ(outcome.report.undetermined, problem.ntarget());
    for (const double estimate : outcome.estimate) EXPECT_TRUE(std::isnan(estimate));
  }
}

// A very smooth model, of which many data tell nothing new: those are left out, and values of a smooth surface come back.
TEST(PlaceKriging, LeavesOutDataThatTellNothing) {
  for (const int neighbors : {0, 30}) {
    PlaceProblem problem = MakeProblem(2, false, 120);
    problem.elements.clear();
    problem.AddElement(COV_GAUSSIAN, 1.0, {60.0, 60.0, 60.0});
    problem.options.neighbors = neighbors;
    for (int i = 0; i < problem.n(); ++i) {
      problem.values[i] = std::sin(0.05 * problem.places[i][0]) + std::cos(0.06 * problem.places[i][1]);
    }
    problem.SetGrid(9, 7, 1, {3.0, 2.5, 1.0}, {1.5, 1.0, 0.0});
    const PlaceOutcome outcome = problem.Krige();
    EXPECT_GT(outcome.report.redundant, 0);
    EXPECT_EQ(outcome.report.indefinite, 0);
    for (int t = 0; t < problem.ntarget(); ++t) {
      const Triple at = problem.Target(t);
      EXPECT_NEAR(outcome.estimate[t], std::sin(0.05 * at[0]) + std::cos(0.06 * at[1]), 1e-4);
    }
  }
}

// Parameters that vary from node to node: each target as with a model of its own parameters.
TEST(PlaceKriging, TakesParametersOfTheTarget) {
  for (const int kind : {0, 1, 2}) {
    PlaceProblem problem = MakeProblem(2, true);
    const int count = problem.ntarget();
    if (kind == 1) problem.options.neighbors = 0;
    if (kind == 2) {
      std::fill_n(problem.options.radius, 3, 9.0);
      std::copy_n(std::array{2, 2, 1}.data(), 3, problem.options.block);
    }
    // Images of the azimuth, a sill and a range.
    std::vector<real> parameters[3];
    VORL_IMAGE images[3];
    for (int k = 0; k < 3; ++k) {
      for (int t = 0; t < count; ++t)
        parameters[k].push_back((k == 0 ? 90.0 : k == 1 ? 0.5 : 12.0) * (0.5 + Odd(t + 5 * k)));
      VORLInitImage(&images[k]);
      images[k].grid = &problem.grid;
      images[k].nvar = 1;
      images[k].nxyzv = count;
      images[k].var = parameters[k].data();
    }
    VORL_COVMODEL model = problem.Model();
    std::vector<VORL_COVMODELELEM> elements = problem.elements;
    model.covModelElem = elements.data();
    model.angle1Image = &images[0];
    elements[2].weightImage = &images[1];
    elements[1].ryImage = &images[2];
    const PlaceOutcome outcome = problem.Krige(Dealing::Serial(), true, &model);
    ASSERT_EQ(outcome.status, 0);
    ASSERT_EQ(outcome.problem.refusal, PlaceRefusal::kNone);
    EXPECT_TRUE(SameBits(problem.Krige(Dealing::Threads(3), true, &model), outcome));
    for (int t = 0; t < count; ++t) {
      PlaceProblem own = problem;
      own.angles[0] = parameters[0][t];
      own.elements[2].weightValue = parameters[1][t];
      own.elements[1].ryValue = parameters[2][t];
      const auto solution = PlaceOracle(own).Solve(t);
      EXPECT_EQ(outcome.ndata[t], static_cast<int>(solution.data.size()));
      if (solution.data.empty()) continue;
      EXPECT_NEAR(outcome.estimate[t], static_cast<double>(solution.estimate), 1e-10);
      EXPECT_NEAR(outcome.variance[t], static_cast<double>(solution.variance), 1e-11);
    }
  }
}

TEST(PlaceKriging, RefusesWhatMakesNoSense) {
  const double nan = std::nan("");
  const double infinity = std::numeric_limits<double>::infinity();
  const struct {
    PlaceRefusal refusal;
    std::int64_t first, second;
    std::function<void(PlaceProblem&)> spoil;
  } rows[] = {
      {PlaceRefusal::kNumberOfData, -1, -1, [](PlaceProblem& p) { p.places.clear(); }},
      {PlaceRefusal::kCoordinate, 5, -1, [&](PlaceProblem& p) { p.places[5][1] = nan; }},
      {PlaceRefusal::kValue, 6, -1, [&](PlaceProblem& p) { p.values[6] = infinity; }},
      {PlaceRefusal::kErrorVariance, 2, -1,
       [](PlaceProblem& p) {
         p.errorVariances.assign(p.n(), 0.1);
         p.errorVariances[2] = -0.1;
       }},
      {PlaceRefusal::kMeanAtDatum, 4, -1,
       [&](PlaceProblem& p) {
         p.options.degree = -1;
         p.means.assign(p.n(), 1.0);
         p.means[4] = nan;
       }},
      {PlaceRefusal::kCovariateAtDatum, 9, 1,
       [&](PlaceProblem& p) {
         AddCovariates(p, 2);
         p.covariates[p.n() + 9] = nan;
       }},
      {PlaceRefusal::kSamePlace, 8, 20, [](PlaceProblem& p) { p.places[20] = p.places[8]; }},
      {PlaceRefusal::kSamePlace, 8, 20,
       [](PlaceProblem& p) {
         p.places[20] = p.places[8];
         p.errorVariances.assign(p.n(), 0.1);
         p.errorVariances[8] = 0.0;
       }},
      {PlaceRefusal::kNeighbors, -1, -1, [](PlaceProblem& p) { p.options.neighbors = -1; }},
      {PlaceRefusal::kRadius, -1, -1, [](PlaceProblem& p) { p.options.radius[0] = 4.0; }},
      {PlaceRefusal::kRadius, -1, -1, [&](PlaceProblem& p) { std::fill_n(p.options.radius, 3, infinity); }},
      {PlaceRefusal::kDegree, -1, -1, [](PlaceProblem& p) { p.options.degree = 3; }},
      {PlaceRefusal::kMean, -1, -1,
       [&](PlaceProblem& p) {
         p.options.degree = -1;
         p.options.mean = nan;
       }},
      {PlaceRefusal::kMean, -1, -1,
       [](PlaceProblem& p) {
         AddCovariates(p, 1);
         p.options.degree = -1;
       }},
      {PlaceRefusal::kBlock, -1, -1, [](PlaceProblem& p) { p.options.block[1] = 0; }},
      {PlaceRefusal::kBlock, -1, -1,
       [](PlaceProblem& p) {
         p.options.block[1] = 2;
         p.list = p.places;
       }},
      {PlaceRefusal::kModelType, 1, -1,
       [](PlaceProblem& p) {
         const int type = 11;
         std::memcpy(&p.elements[1].covModelType, &type, sizeof type);
       }},
      {PlaceRefusal::kModelSill, 0, -1, [](PlaceProblem& p) { p.elements[0].weightValue = -1.0; }},
      {PlaceRefusal::kModelSill, -1, -1,
       [](PlaceProblem& p) {
         for (VORL_COVMODELELEM& e : p.elements) e.weightValue = 0.0;
       }},
      {PlaceRefusal::kModelRange, 2, -1, [](PlaceProblem& p) { p.elements[2].ryValue = 0.0; }},
      {PlaceRefusal::kModelShape, 3, -1,
       [](PlaceProblem& p) {
         p.AddElement(COV_GAMMA, 1.0, {1.0, 1.0, 1.0}, 0.0);
       }},
      {PlaceRefusal::kModelAngle, -1, -1, [&](PlaceProblem& p) { p.angles[1] = nan; }},
      {PlaceRefusal::kGrid, -1, -1, [](PlaceProblem& p) { p.grid.sx = 0.0; }},
      {PlaceRefusal::kGrid, -1, -1, [](PlaceProblem& p) { p.grid.ny = 0; }},
      {PlaceRefusal::kTarget, 3, -1,
       [&](PlaceProblem& p) {
         p.list = p.places;
         p.list[3][0] = nan;
         p.list[1][0] = nan;
         p.mask.assign(p.n(), 1);
         p.mask[1] = 0;
       }},
      {PlaceRefusal::kMeanAtTarget, 7, -1,
       [&](PlaceProblem& p) {
         p.options.degree = -1;
         p.targetMeans.assign(p.ntarget(), 1.0);
         p.targetMeans[7] = nan;
       }},
      {PlaceRefusal::kCovariateAtTarget, 7, 1,
       [&](PlaceProblem& p) {
         AddCovariates(p, 2);
         p.targetCovariates[p.ntarget() + 7] = nan;
       }},
  };
  for (std::size_t row = 0; row < std::size(rows); ++row) {
    SCOPED_TRACE("row " + std::to_string(row));
    PlaceProblem problem = MakeProblem(2, false);
    rows[row].spoil(problem);
    const PlaceOutcome outcome = problem.Krige();
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.problem.refusal, rows[row].refusal);
    EXPECT_EQ(outcome.problem.first, rows[row].first);
    EXPECT_EQ(outcome.problem.second, rows[row].second);
  }
  PlaceProblem problem = MakeProblem(2, false);
  VORL_COVMODEL model = problem.Model();
  VORL_GRID other = problem.grid;
  other.nx = 8;
  std::vector<real> sills(problem.ntarget(), 1.0);
  VORL_IMAGE image;
  VORLInitImage(&image);
  image.grid = &other;
  image.nvar = 1;
  image.var = sills.data();
  problem.elements[0].weightImage = &image;
  EXPECT_EQ(problem.Krige(Dealing::Serial(), true, &model).problem.refusal, PlaceRefusal::kModelImage);
  image.grid = &problem.grid;
  sills[12] = -1.0;
  const PlaceOutcome outcome = problem.Krige(Dealing::Serial(), true, &model);
  EXPECT_EQ(outcome.problem.refusal, PlaceRefusal::kModelSill);
  EXPECT_EQ(outcome.problem.second, 12);
}

TEST(PlaceKriging, TellsProgressAndStops) {
  PlaceProblem problem = MakeProblem(2, false);
  problem.SetGrid(90, 70, 1, {0.4, 0.3, 1.0}, {0.0, 0.0, 0.0});
  VORL_PROGRESSMONITOR monitor;
  VORLInitProgressMonitor(&monitor);
  ASSERT_EQ(problem.Krige(Dealing::Serial(), true, nullptr, &monitor).status, 0);
  EXPECT_EQ(monitor.allRealizationProgress, 100);
  // Of two threads, one may finish while the other, which reports, waits for a processor: they find the flag set.
  for (const int nthreads : {1, 2}) {
    VORLInitProgressMonitor(&monitor);
    monitor.abortedJobFlag = nthreads > 1;
    const auto stopAtThird = [](VORL_PROGRESSMONITOR* own) {
      if (own->allRealizationProgress > 30) own->abortedJobFlag = TRUE;
      return 0;
    };
    const PlaceOutcome outcome = problem.Krige(Dealing::Threads(nthreads), true, nullptr, &monitor, stopAtThird);
    EXPECT_EQ(outcome.status, -1000);
    EXPECT_EQ(outcome.estimate.back(), -1.0);
  }
  VORLInitProgressMonitor(&monitor);
  EXPECT_EQ(problem.Krige(Dealing::Serial(), true, nullptr, &monitor, [](VORL_PROGRESSMONITOR*) { return -7; }).status,
            -7);
}

// Each datum from those of other folds, or from all others: alike at all levels and for any number of threads.
TEST(PlaceKriging, LeavesDataOut) {
  PlaceProblem problem = MakeProblem(3, true);
  problem.options.degree = 1;
  const int n = problem.n();
  const int start[] = {0, 1, 17, 18, n};
  std::vector<int> member(n);
  for (int i = 0; i < n; ++i) member[i] = (7 * i + 3) % n;
  const kestrum::PlaceFolds parts{4, start, member.data()};
  std::vector<double> coordinates;
  for (const Triple& at : problem.places) coordinates.insert(coordinates.end(), at.begin(), at.end());
  for (const auto& [neighbors, folds] : {std::pair{0, &parts}, {0, nullptr}, {12, nullptr}, {9, &parts}}) {
    problem.options.neighbors = neighbors;
    const VORL_COVMODEL model = problem.Model();
    std::vector<double> estimate(n), variance(n);
    const auto leaveOut = [&, &folds = folds](const Dealing& dealing, SimdLevel level) {
      kestrum::PlaceKriging kriging;
      kestrum::PlaceProblem refused;
      kestrum::PlaceKrigingReport report;
      const kestrum::Progress progress(nullptr, nullptr);
      const int status = kriging.Prepare({n, 3, coordinates.data(), problem.values.data()}, model, problem.options,
                                         dealing, progress, &refused, level);
      if (status != 0) return status;
      return kriging.LeaveOut(folds, {estimate.data(), variance.data()}, dealing, progress, &report, &refused, level);
    };
    ASSERT_EQ(leaveOut(Dealing::Serial(), SimdLevel::kBaseline), 0);
    const std::vector<double> estimates = estimate;
    const std::vector<double> variances = variance;
    for (const SimdLevel level : kestrum_test::Levels()) {
      ASSERT_EQ(leaveOut(Dealing::Threads(3), level), 0);
      EXPECT_TRUE(SameBits(estimate, estimates) && SameBits(variance, variances));
    }
    kestrum_test::ForEachFailingAllocation([&] { return leaveOut(Dealing::Serial(), kestrum::BestSimdLevel()); });
  }
}

TEST(PlaceKriging, SurvivesFailingAllocations) {
  for (const char* name :
       {"Ordinary", "OrdinaryAll", "Linear", "ExternalDrift", "ErrorVariances", "EllipsoidAlone", "Block"}) {
    SCOPED_TRACE(name);
    PlaceProblem problem = MakeProblem(2, true, 40);
    problem.SetGrid(3, 2, 1, {9.0, 8.0, 1.0}, {0.0, 0.0, 0.0});
    std::find_if(std::begin(kKinds), std::end(kKinds), [&](const Kind& kind) {
      return kind.name == name;
    })->change(problem);
    for (const bool list : {false, true}) {
      if (list && problem.options.block[0] == 1)
        problem.list = {{1, 2, 0}, {12, 3, 0}, {7, 8, 0}, {0, 3, 0}, {4, 4, 0}, {2, 9, 0}};
      kestrum_test::ForEachFailingAllocation([&] { return problem.Krige().status; });
    }
  }
  // By cells.
  PlaceProblem dense = MakeProblem(2, true, 1000);
  dense.SetGrid(5, 4, 1, {0.3, 0.2, 1.0}, {4.0, 5.0, 0.0});
  dense.options.neighbors = 20;
  dense.wantWeights = false;
  kestrum_test::ForEachFailingAllocation([&] { return dense.Krige().status; });
}

// Kriging takes memory for the data that serve its targets, not for those elsewhere: as dense, and a hundred times as many.
// Targets may lie among them, or far beyond.
TEST(PlaceKriging, TakesMemoryForWhatItMeets) {
  struct Taken {
    long long toPrepare, toKrige;
  };
  const auto take = [](int side, int neighbors, double radius, double spacing) {
    PlaceProblem problem;
    std::mt19937 generator(3);
    std::uniform_real_distribution<double> uniform(-0.5 * side, 0.5 * side);
    std::vector<double> coordinates;
    for (int i = 0; i < side * side; ++i) {
      coordinates.insert(coordinates.end(), {uniform(generator), uniform(generator)});
      problem.values.push_back(std::sin(i));
    }
    problem.AddElement(COV_SPHERICAL, 1.0, {30.0, 30.0, 30.0});
    problem.SetGrid(40, 40, 1, {spacing, spacing, 1.0}, {-20.0 * spacing, -20.0 * spacing, 0.0});
    problem.options.neighbors = neighbors;
    std::fill_n(problem.options.radius, 3, radius);
    const VORL_COVMODEL model = problem.Model();
    const kestrum::Progress quiet(nullptr, nullptr);
    kestrum::PlaceKriging kriging;
    kestrum::PlaceKrigingReport report;
    kestrum::PlaceProblem refused;
    std::vector<double> estimate(1600), variance(1600);
    kestrum::PlaceKrigingTargets targets;
    targets.places.grid = problem.grid;
    targets.places.dimension = 2;
    std::copy_n(std::array{0, 0, 0, 40, 40, 1}.data(), 3, targets.places.first);
    std::copy_n(std::array{40, 40, 1}.data(), 3, targets.places.extent);
    const long long toPrepare = kestrum_test::BytesAllocatedBy([&] {
      ASSERT_EQ(kriging.Prepare({side * side, 2, coordinates.data(), problem.values.data()}, model, problem.options,
                                Dealing::Serial(), quiet, &refused),
                0);
    });
    const long long toKrige = kestrum_test::BytesAllocatedBy([&] {
      ASSERT_EQ(kriging.Krige(targets, {estimate.data(), variance.data()}, Dealing::Serial(), quiet, &report, &refused),
                0);
    });
    EXPECT_EQ(refused.refusal, kestrum::PlaceRefusal::kNone);
    return Taken{toPrepare, toKrige};
  };
  // By cells, by sets, and in a circle; then beyond the data.
  const struct {
    int neighbors;
    double radius, spacing;
  } cases[] = {{20, 0.0, 0.25}, {40, 0.0, 0.25}, {0, 3.0, 0.25}, {20, 0.0, 250.0}, {40, 0.0, 250.0}};
  for (const auto& [neighbors, radius, spacing] : cases) {
    const Taken few = take(40, neighbors, radius, spacing), many = take(400, neighbors, radius, spacing);
    EXPECT_GT(many.toPrepare, 50 * few.toPrepare);
    EXPECT_LT(many.toKrige, 1.1 * few.toKrige) << neighbors << ' ' << spacing;
  }
}

}  // namespace
