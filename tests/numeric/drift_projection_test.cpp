#include "numeric/drift_projection.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "support/allocation_failure.hpp"

namespace {

using kestrum::Dealing;

// Data on a line, more than are solved at a time, with a constant and a slope as drift.
struct Input {
  static constexpr int n = 70;
  Input() : matrix(n * n), drift(2 * n), projection(n * n, -7.0) {
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j < n; ++j) matrix[i * n + j] = std::exp(-0.1 * std::abs(i - j)) + (i == j);
      drift[i] = 1.0;
      drift[n + i] = i / 35.0 - 1.0;
    }
  }
  int Project(const Dealing& dealing) {
    return kestrum::ProjectOutDrift(n, 2, matrix.data(), drift.data(), dealing, kestrum::Progress(nullptr, nullptr),
                                    projection.data(), &logDeterminant);
  }
  std::vector<double> matrix, drift, projection;
  double logDeterminant = 0.0;
};

TEST(DriftProjection, IsTheInverseBesideTheDrift) {
  Input input;
  ASSERT_EQ(input.Project(Dealing::Serial()), 0);
  constexpr int n = Input::n;
  // P F = 0, and P A P = P, which with the rank of n - 2 is P alone: its trace with A is n - 2.
  double trace = 0.0;
  for (int i = 0; i < n; ++i) {
    double product[2] = {};
    for (int j = 0; j < n; ++j) {
      EXPECT_NEAR(input.projection[i * n + j], input.projection[j * n + i], 1e-14);
      trace += input.projection[i * n + j] * input.matrix[i * n + j];
      for (int k = 0; k < 2; ++k) product[k] += input.projection[i * n + j] * input.drift[k * n + j];
    }
    EXPECT_NEAR(product[0], 0.0, 1e-13);
    EXPECT_NEAR(product[1], 0.0, 1e-13);
  }
  EXPECT_NEAR(trace, n - 2, 1e-11);
  Input threaded;
  ASSERT_EQ(threaded.Project(Dealing::Threads(3)), 0);
  EXPECT_EQ(threaded.projection, input.projection);
  EXPECT_EQ(threaded.logDeterminant, input.logDeterminant);
}

TEST(DriftProjection, RefusesWhatHasNoInverse) {
  Input same;
  for (int j = 0; j < Input::n; ++j) same.matrix[Input::n + j] = same.matrix[j];
  same.matrix[Input::n] = same.matrix[Input::n + 1] = same.matrix[0];
  Input dependent;
  for (int i = 0; i < Input::n; ++i) dependent.drift[Input::n + i] = 3.0;
  for (Input* input : {&same, &dependent}) {
    EXPECT_EQ(input->Project(Dealing::Serial()), 0);
    EXPECT_EQ(input->logDeterminant, HUGE_VAL);
    EXPECT_EQ(input->projection[0], -7.0);
  }
}

TEST(DriftProjection, EachAllocationMayFail) {
  Input input;
  kestrum_test::ForEachFailingAllocation([&] { return input.Project(Dealing::Serial()); });
}

}  // namespace
