#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "engine/place_problem.hpp"

namespace {

using kestrum_test::PlaceOutcome;
using kestrum_test::PlaceProblem;

// The numbers of a table by rows; fields that are none become NaN. The first `skipped` lines are left out.
std::vector<std::vector<double>> ReadTable(const std::string& name, int skipped) {
  std::ifstream file(KESTRUM_SOURCE_DIR "/" + name);
  EXPECT_TRUE(file) << name;
  std::vector<std::vector<double>> table;
  for (std::string line; std::getline(file, line);) {
    if (skipped-- > 0) continue;
    table.emplace_back();
    std::istringstream fields(line);
    for (std::string field; std::getline(fields, field, ',');) {
      std::istringstream text(field);
      double number;
      table.back().push_back(text >> number ? number : std::nan(""));
    }
  }
  return table;
}

// Every kind that meuse/gstat.R has gstat krige, in its order. Exponential models reach 95 % at the range here, and
// three times as far as in gstat, whose range is a scale.
TEST(PlaceKrigingOfMeuse, AgreesWithGstat) {
  const auto samples = ReadTable("examples/data/meuse/meuse.csv", 1);
  const auto expected = ReadTable("tests/engine/meuse/gstat.csv", 0);
  ASSERT_EQ(samples.size(), 155U);
  ASSERT_EQ(expected.size(), 154U);
  constexpr int kZinc = 5;
  constexpr int kDistance = 7;
  PlaceProblem common;
  for (const auto& row : samples) {
    common.places.push_back({row[0], row[1], 0.0});
    common.values.push_back(std::log(row[kZinc]));
  }
  for (const auto& row : expected) common.list.push_back({row[0], row[1], 0.0});
  common.AddElement(COV_NUGGET, 0.05, {});
  common.AddElement(COV_SPHERICAL, 0.59, {900.0, 900.0, 900.0});

  const auto takeZinc = [&](PlaceProblem& p) {
    for (int i = 0; i < p.n(); ++i) p.values[i] = samples[i][kZinc];
    p.elements.clear();
    p.AddElement(COV_NUGGET, 20000.0, {});
    p.AddElement(COV_SPHERICAL, 140000.0, {850.0, 850.0, 850.0});
  };
  const std::function<void(PlaceProblem&)> kinds[] = {
      [](PlaceProblem& p) { p.options.neighbors = 20; },
      [](PlaceProblem&) {},
      [&](PlaceProblem& p) {
        takeZinc(p);
        p.options.neighbors = 20;
      },
      takeZinc,
      [](PlaceProblem& p) {
        p.options.neighbors = 20;
        p.options.degree = -1;
        p.options.mean = 5.9;
      },
      [](PlaceProblem& p) { p.options.degree = 1; },
      [&](PlaceProblem& p) {
        p.options.neighbors = 40;
        p.options.ncovariate = 1;
        for (const auto& row : samples) p.covariates.push_back(std::sqrt(row[kDistance]));
        for (const auto& row : expected) p.targetCovariates.push_back(row[2]);
      },
      [](PlaceProblem& p) {
        p.options.neighbors = 24;
        p.options.euclidean = true;
        p.angles[0] = 30.0;
        p.elements[1].rxValue = 600.0;
        p.elements[1].ryValue = 1200.0;
      },
      [](PlaceProblem& p) {
        p.options.neighbors = 15;
        std::fill_n(p.options.radius, 3, 500.0);
        p.elements[1].weightValue = 0.4;
        p.AddElement(COV_EXPONENTIAL, 0.2, {900.0, 900.0, 900.0});
      },
      [](PlaceProblem& p) {
        p.options.neighbors = 20;
        std::copy_n(std::array{4, 4, 1}.data(), 3, p.options.block);
        // The cells lie on the grid of the whole area.
        p.list.clear();
        p.SetGrid(78, 104, 1, {40.0, 40.0, 1.0}, {178440.0, 329600.0, 0.0});
      },
  };
  std::size_t column = 3;
  for (const auto& change : kinds) {
    SCOPED_TRACE("column " + std::to_string(column));
    PlaceProblem problem = common;
    change(problem);
    const PlaceOutcome outcome = problem.Krige();
    ASSERT_EQ(outcome.status, 0);
    ASSERT_EQ(outcome.problem.refusal, kestrum::PlaceRefusal::kNone);
    for (std::size_t t = 0; t < expected.size(); ++t) {
      const std::vector<double>& row = expected[t];
      std::size_t own = t;
      if (problem.list.empty()) {
        own = static_cast<std::size_t>((row[0] - 178440.0) / 40.0) +
              78 * static_cast<std::size_t>((row[1] - 329600.0) / 40.0);
      }
      EXPECT_NEAR(outcome.estimate[own] / row[column], 1.0, 1e-9) << "cell " << t;
      EXPECT_NEAR(outcome.variance[own] / row[column + 1], 1.0, 1e-9) << "cell " << t;
    }
    column += 2;
  }
  EXPECT_EQ(column, expected[0].size());
}

}  // namespace
