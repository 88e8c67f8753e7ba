#include "covariance/cov_evaluation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <vector>

#include "covariance/cov_evaluation.hpp"
#include "support/allocation_failure.hpp"

namespace {

struct Lag {
  real x, y, z;
};

VORL_COVMODELELEM Element(int type, real w, real rx, real ry, real rz, real s = 0.0) {
  VORL_COVMODELELEM elem;
  VORLKestrumInitCovModelElem(&elem);
  elem.covModelType = static_cast<VORL_COVMODELTYPE>(type);
  elem.weightValue = w;
  elem.rxValue = rx;
  elem.ryValue = ry;
  elem.rzValue = rz;
  elem.sValue = s;
  return elem;
}

VORL_COVMODEL Model(std::vector<VORL_COVMODELELEM>& elements) {
  VORL_COVMODEL model;
  VORLKestrumInitCovModel(&model);
  model.nelem = static_cast<int>(elements.size());
  model.covModelElem = elements.data();
  return model;
}

real Fixed(VORL_COVMODELELEM elem, Lag lag) {
  std::vector<VORL_COVMODELELEM> elements{elem};
  VORL_COVMODEL model = Model(elements);
  real cov = -1.0;
  EXPECT_EQ(VORLKestrumEvaluateCovModelFixParamNoRotation(&model, 1, &lag.x, &lag.y, &lag.z, &cov), 0);
  return cov;
}

// One-variable image of two nodes, for reading parameters at a node.
struct TwoNodes {
  real values[2];
  VORL_IMAGE image{};
  TwoNodes(real first, real second) : values{first, second} { image.var = values; }
};

struct Matrix {
  real rows[3][3];
  real* pointers[3] = {rows[0], rows[1], rows[2]};
  explicit Matrix(Lag angles) { VORLComputeRotationMatrix(angles.x, angles.y, angles.z, pointers); }
};

}  // namespace

TEST(CovEvaluation, HasItsSpecialLags) {
  const real infinity = HUGE_VAL;
  const struct {
    VORL_COVMODELELEM elem;
    Lag lag;
    real expected;
  } rows[] = {
      {Element(COV_NUGGET, 2, 0, 0, 0), {0, 0, 0}, 2},
      {Element(COV_NUGGET, 2, 0, 0, 0), {1e-30, 0, 0}, 0},
      {Element(COV_NUGGET, 2, 9, 9, 9), {0, 0, -1}, 0},
      {Element(COV_SPHERICAL, 3, 5, 5, 5), {0, 0, 0}, 3},
      {Element(COV_SPHERICAL, 3, 5, 5, 5), {5, 0, 0}, 0},
      {Element(COV_LINEAR, 3, 5, 5, 5), {0, 5, 0}, 0},
      {Element(COV_CUBIC, 3, 5, 5, 5), {0, 0, -5}, 0},
      {Element(COV_SPHERICAL, 1, 10, 0, 0), {5, 1000, 1000}, 0.3125},  // a zonal element
      {Element(COV_SPHERICAL, 1, 10, -3, 0), {0, 1000, 1000}, 1},      // a negative range counts as zero
      {Element(COV_EXPONENTIAL, 4, 0, 0, 0), {1, 2, 3}, 4},            // no axis in the distance
      {Element(COV_EXPONENTIAL, 4, 1, 1, 1), {infinity, 0, 0}, 0},
      {Element(COV_SINUS_CARDINAL, 1, 1, 1, 1), {0, 0, 0}, 0},  // not the weight
      {Element(COV_SINUS_CARDINAL, 1, 1, 1, 1), {0.5, 0, 0}, 2 / std::numbers::pi},
      {Element(COV_GAUSSIAN, 1, 10, 1, 1), {10, 0, 0}, std::exp(-3.0)},
      {Element(COV_GAMMA, 1, 2, 2, 2, 0.3), {2, 0, 0}, 0.05},
      {Element(COV_GAMMA, 1, 2, 2, 2, 7), {0, 2, 0}, 0.05},
      {Element(COV_POWER, 1, 1, 1, 1, 1), {0, 0, 2}, -1},  // no lower bound
      {Element(COV_MATERN, 5, 1, 1, 1, 0.8), {9e-11, 0, 0}, 5},
      {Element(COV_MATERN, 5, 1, 1, 1, 0.8), {0, 0, 0}, 5},
      {Element(11, 5, 1, 1, 1, 1), {0, 0, 0}, 0},  // no such type
  };
  for (const auto& row : rows) EXPECT_NEAR(Fixed(row.elem, row.lag), row.expected, 1e-14) << row.elem.covModelType;
  EXPECT_TRUE(std::isnan(Fixed(Element(COV_SINUS_CARDINAL, 1, 0, 1, 0), {3, 0, 0})));
}

TEST(CovEvaluation, SumsElementsInOrderForAnyNumberOfLags) {
  // The sums of 0.1, 0.2 and 0.3 depend on their order; 300 lags pass every boundary of a block of lags.
  std::vector<VORL_COVMODELELEM> elements{Element(COV_EXPONENTIAL, 0.1, 9, 8, 7), Element(COV_NUGGET, 0.2, 0, 0, 0),
                                          Element(COV_GAUSSIAN, 0.3, 5, 5, 5), Element(COV_MATERN, 0.7, 9, 9, 9, 1.2)};
  VORL_COVMODEL model = Model(elements);
  std::vector<real> dx(300), dy(300), dz(300), cov(301, -7.0);
  for (int k = 0; k < 300; ++k) {
    dx[k] = 0.1 * (k % 13);
    dy[k] = 0.2 * (k % 7);
    dz[k] = k % 13 == 0 && k % 7 == 0 ? 0.0 : 0.05 * k;
  }
  for (const int n : {0, 1, 2, 127, 128, 129, 300}) {
    std::fill(cov.begin(), cov.end(), -7.0);
    ASSERT_EQ(VORLKestrumEvaluateCovModelFixParamNoRotation(&model, n, dx.data(), dy.data(), dz.data(), cov.data()), 0);
    for (int k = 0; k < n; ++k) {
      real expected = 0.0;
      for (const VORL_COVMODELELEM& elem : elements) expected += Fixed(elem, {dx[k], dy[k], dz[k]});
      ASSERT_EQ(cov[k], expected) << n << " lags, lag " << k;
    }
    EXPECT_EQ(cov[n], -7.0);
  }
}

TEST(CovEvaluation, ReadsParametersAtTheNodeByTheImagePointer) {
  TwoNodes w(2, 3), rx(10, 20), s(1, 2), azimuth(0, 90);
  std::vector<VORL_COVMODELELEM> elements{Element(COV_POWER, 1, 5, 0, 0, 1.5)};
  elements[0].weightImage = &w.image;  // the flags stay 0: the pointers decide
  elements[0].rxImage = &rx.image;
  elements[0].sImage = &s.image;
  VORL_COVMODEL model = Model(elements);
  model.angle1Image = &azimuth.image;
  real dx = 4, dy = 3, dz = 0, cov;

  VORLKestrumEvaluateCovModelNoRotation(&model, 0, 1, &dx, &dy, &dz, &cov);
  EXPECT_NEAR(cov, 2 * (1 - 0.4), 1e-14);
  VORLKestrumEvaluateCovModelNoRotation(&model, 1, 1, &dx, &dy, &dz, &cov);
  EXPECT_NEAR(cov, 3 * (1 - 0.04), 1e-14);
  VORLKestrumEvaluateCovModelFixParamNoRotation(&model, 1, &dx, &dy, &dz, &cov);
  EXPECT_NEAR(cov, 1 - std::pow(0.8, 1.5), 1e-14);
  // At node 1 the model's x axis is the grid's negative y axis.
  VORLKestrumEvaluateCovModel(&model, 1, FALSE, nullptr, 1, &dx, &dy, &dz, &cov);
  EXPECT_NEAR(cov, 3 * (1 - 0.15 * 0.15), 1e-14);
  VORLKestrumEvaluateCovModelFixParam(&model, FALSE, nullptr, 1, &dx, &dy, &dz, &cov);
  EXPECT_NEAR(cov, 1 - std::pow(0.8, 1.5), 1e-14);

  EXPECT_EQ(kestrum::SillAtNode(model, 1), 3);
  EXPECT_EQ(kestrum::StationarySill(model), 1);
}

TEST(CovEvaluation, TakesTheRotationFromTheArgumentsOrTheAngles) {
  std::vector<VORL_COVMODELELEM> elements{Element(COV_EXPONENTIAL, 1, 30, 10, 3)};
  VORL_COVMODEL model = Model(elements);
  real dx = 4, dy = 3, dz = -1;
  const auto expected = [&](const Matrix* matrix) {
    if (matrix == nullptr) return Fixed(elements[0], {dx, dy, dz});
    const auto& m = matrix->rows;
    return Fixed(elements[0], {m[0][0] * dx + m[1][0] * dy + m[2][0] * dz, m[0][1] * dx + m[1][1] * dy + m[2][1] * dz,
                               m[0][2] * dx + m[1][2] * dy + m[2][2] * dz});
  };
  Matrix all({35, -20, 60}), one({0, -20, 0}), other({10, 0, 0});
  const struct {
    Lag angles;
    BOOLEAN given;
    Matrix* matrix;
    Matrix* used;
  } rows[] = {{{35, -20, 60}, FALSE, nullptr, &all},   {{0, -20, 0}, FALSE, nullptr, &one},
              {{0, -20, 0}, FALSE, &other, &one},      {{35, -20, 60}, TRUE, &other, &other},
              {{35, -20, 60}, TRUE, nullptr, nullptr}, {{0, 0, 0}, FALSE, &other, nullptr},
              {{0, 0, 0}, 5, &other, &other}};
  for (const auto& row : rows) {
    model.angle1Value = row.angles.x;
    model.angle2Value = row.angles.y;
    model.angle3Value = row.angles.z;
    real** matrix = row.matrix != nullptr ? row.matrix->pointers : nullptr;
    const kestrum_test::FailAllocation noAllocation(0);
    real fixed, atNode;
    EXPECT_EQ(VORLKestrumEvaluateCovModelFixParam(&model, row.given, matrix, 1, &dx, &dy, &dz, &fixed), 0);
    EXPECT_EQ(VORLKestrumEvaluateCovModel(&model, 0, row.given, matrix, 1, &dx, &dy, &dz, &atNode), 0);
    EXPECT_FALSE(noAllocation.Happened());
    EXPECT_EQ(fixed, expected(row.used));
    EXPECT_EQ(atNode, fixed);
  }
}

namespace {

// The range along one axis by its definition, every pair looked at node by node.
real BruteForceRange(const std::vector<real>& v, const int (&size)[3], int axis, real tolerance) {
  real sum = 0, squares = 0, n = 0;
  for (const real value : v) {
    if (value == VORL_MISSING_VALUE) continue;
    sum += value;
    squares += value * value;
    ++n;
  }
  const real mean = sum / n, threshold = (squares / n - mean * mean) * tolerance + mean * mean;
  if (size[axis] == 1) return 0;
  const int stride = axis == 0 ? 1 : axis == 1 ? size[0] : size[0] * size[1];
  const auto found = [&](int lag) {
    real products = 0, pairs = 0;
    for (int tail = 0; tail < static_cast<int>(v.size()); ++tail) {
      const int head = tail + lag * stride;
      if (tail / stride % size[axis] + lag >= size[axis]) continue;
      if (v[tail] == VORL_MISSING_VALUE || v[head] == VORL_MISSING_VALUE) continue;
      products += v[tail] * v[head];
      ++pairs;
    }
    return pairs > 0 && products / pairs < threshold;
  };
  const int step = size[axis] / 20 + 1;
  for (int lag = step; lag < size[axis]; lag += step) {
    if (!found(lag)) continue;
    for (int fine = lag - step + 1; fine < lag; ++fine) {
      if (found(fine)) return fine;
    }
    return lag;
  }
  return size[axis];
}

}  // namespace

TEST(VariogramRangeApprox, AgreesWithBruteForce) {
  const struct {
    int size[3];
    real wavelength[3];
    int gapEvery;  // 0 for no gap
  } rows[] = {{{70, 45, 1}, {40, 30, 1}, 0}, {{64, 1, 9}, {24, 1, 7}, 5},  {{1, 41, 30}, {1, 13, 90}, 3},
              {{7, 6, 5}, {900, 3, 9}, 2},   {{100, 1, 1}, {63, 1, 1}, 0}, {{2, 1, 1}, {9, 1, 1}, 2}};
  for (const auto& row : rows) {
    // Whole numbers, so that sums are exact in any order.
    std::vector<real> v(static_cast<std::size_t>(row.size[0] * row.size[1] * row.size[2]));
    for (int i = 0; i < static_cast<int>(v.size()); ++i) {
      const int place[3] = {i % row.size[0], i / row.size[0] % row.size[1], i / row.size[0] / row.size[1]};
      real wave = 0.0;
      for (int axis = 0; axis < 3; ++axis) wave += std::cos(2 * M_PI * place[axis] / row.wavelength[axis]);
      v[i] = std::round(100 * wave) + 37;
    }
    for (std::size_t i = 1; row.gapEvery != 0 && i < v.size(); i += row.gapEvery) v[i] = VORL_MISSING_VALUE;
    real expected[3], range[3];
    for (int axis = 0; axis < 3; ++axis) {
      expected[axis] = BruteForceRange(v, row.size, axis, VORL_APPROX_RANGE_TOLERANCE);
    }
    for (const int nthreads : {0, 1, 2, 3}) {  // 0 for the serial form
      const int status =
          nthreads == 0
              ? VORLComputeVariogramRangeApprox(VORL_APPROX_RANGE_TOLERANCE, row.size[0], row.size[1], row.size[2],
                                                v.data(), &range[0], &range[1], &range[2])
              : VORLOMPComputeVariogramRangeApprox(VORL_APPROX_RANGE_TOLERANCE, row.size[0], row.size[1], row.size[2],
                                                   v.data(), &range[0], &range[1], &range[2], nthreads);
      EXPECT_EQ(status, 0);
      for (int axis = 0; axis < 3; ++axis) EXPECT_EQ(range[axis], expected[axis]) << axis << ' ' << nthreads;
    }
  }
}

TEST(VariogramRangeApprox, HandlesConstantAndEmptyVariables) {
  std::vector<real> v(24, 3.0);
  real rx, ry, rz;
  EXPECT_EQ(VORLComputeVariogramRangeApprox(0.05, 4, 6, 1, v.data(), &rx, &ry, &rz), 0);
  EXPECT_TRUE(rx == 4 && ry == 6 && rz == 0);
  EXPECT_EQ(VORLComputeVariogramRangeApprox(0.05, 4, 0, 1, v.data(), &rx, &ry, &rz), -1061);
  EXPECT_EQ(rx, 0);
  std::fill(v.begin(), v.end(), VORL_MISSING_VALUE);
  EXPECT_EQ(VORLOMPComputeVariogramRangeApprox(0.05, 4, 6, 1, v.data(), &rx, &ry, &rz, 2), -1061);
}
