#include "numeric/linear_solver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <random>
#include <utility>
#include <vector>

#include "core/array_2d.hpp"
#include "numeric/gmres.hpp"
#include "support/allocation_failure.hpp"

namespace {

using Vector = std::vector<real>;

class Matrix {
 public:
  explicit Matrix(const std::vector<Vector>& rows) : n_(static_cast<int>(rows.size())) {
    EXPECT_EQ(array_.Allocate(rows.size(), rows.size()), 0);
    for (std::size_t i = 0; i < rows.size(); ++i) std::copy(rows[i].begin(), rows[i].end(), array_.rows()[i]);
  }
  int n() const { return n_; }
  real** rows() { return array_.rows(); }
  real* operator[](int i) { return array_.rows()[i]; }

 private:
  int n_;
  kestrum::Array2D<real> array_;
};

std::vector<Vector> RandomRows(int n, unsigned seed) {
  std::mt19937 generator(seed);
  std::uniform_real_distribution<real> uniform(-1.0, 1.0);
  std::vector<Vector> rows(static_cast<std::size_t>(n), Vector(n));
  for (Vector& row : rows) {
    for (real& entry : row) entry = uniform(generator);
  }
  return rows;
}

struct Answer {
  Vector x;
  int niter = -7;
  real residual = -7.0;
  BOOLEAN converged = 7;
  int status = 0;
  bool operator==(const Answer&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Answer& answer) {
  return stream << testing::PrintToString(answer.x) << " after " << answer.niter << ", residual " << answer.residual
                << ", converged " << int{answer.converged} << ", status " << answer.status;
}

Answer Gmres(const std::vector<Vector>& rows, Vector b, Vector guess, int restart, int ncycle,
             BOOLEAN verbose = FALSE) {
  Matrix a(rows);
  Answer answer{std::move(guess)};
  answer.status = VORLGmresMatrixNotCompressed(1e-10, a.n(), a.rows(), b.data(), restart, ncycle, answer.x.data(),
                                               &answer.niter, &answer.residual, &answer.converged, verbose);
  return answer;
}

TEST(Gmres, FindsTheSolutionOfRandomSystems) {
  for (int n = 1; n <= 30; ++n) {
    const std::vector<Vector> rows = RandomRows(n, static_cast<unsigned>(n));
    Vector b(rows.size(), 0.0);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      for (std::size_t j = 0; j < rows.size(); ++j) b[i] += rows[i][j] * static_cast<real>(j + 1);
    }
    const Answer answer = Gmres(rows, b, Vector(rows.size(), 0.25), n, 3);
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.converged, TRUE) << n;
    EXPECT_LT(answer.residual, 1e-10);
    // An error of x is at most the condition number (below 1e4 here) times the relative residual.
    for (std::size_t j = 0; j < rows.size(); ++j) EXPECT_NEAR(answer.x[j], static_cast<real>(j + 1), 1e-5) << n;

    Vector flat;
    for (const Vector& row : rows) flat.insert(flat.end(), row.begin(), row.end());
    Vector x(rows.size(), 0.25);
    Vector work(kestrum::GmresWorkSize(n, n));
    EXPECT_TRUE(kestrum::Gmres({1e-10, n, 3}, n, flat.data(), n, b.data(), x.data(), work.data()));
    EXPECT_EQ(x, answer.x) << n;
  }
}

TEST(Gmres, SpecialCourses) {
  const std::vector<Vector> diagonal = {{2, 0, 0}, {0, 2, 0}, {0, 0, 2}};
  const std::vector<Vector> general = {{4, 1, 0}, {1, 3, 1}, {0, 1, 2}};
  const std::vector<Vector> shift = {{0, 1}, {-1, 0}};
  const struct {
    const char* name;
    std::vector<Vector> a;
    Vector b, guess;
    int restart, ncycle;
    Answer expected;
  } cases[] = {
      {"zero right side", general, {0, 0, 0}, {3, 1, 4}, 3, 1, {{0, 0, 0}, 0, 0.0, TRUE}},
      {"one unknown", {Vector{4}}, {2}, {0}, 1, 1, {{0.5}, 1, 0.0, TRUE}},
      {"exact guess", general, {6, 10, 8}, {1, 2, 3}, 3, 1, {{1, 2, 3}, 0, 0.0, TRUE}},
      {"no cycle, exact guess", general, {6, 10, 8}, {1, 2, 3}, 3, 0, {{1, 2, 3}, 0, 0.0, TRUE}},
      {"no cycle", general, {3, 4, 0}, {0, 0, 0}, 3, 0, {{0, 0, 0}, 0, 1.0, FALSE}},
      {"exhausted space, long restart", diagonal, {8, 0, 0}, {0, 0, 0}, 9, 1, {{4, 0, 0}, 1, 0.0, TRUE}},
      {"checked where the second cycle begins", diagonal, {8, 0, 0}, {0, 0, 0}, 9, 5, {{4, 0, 0}, 1, 0.0, TRUE}},
      // One step from a right side that A turns by a right angle makes no progress.
      {"stagnation", shift, {1, 0}, {0, 0}, 1, 50, {{0, 0}, 1, 1.0, FALSE}},
  };
  for (const auto& c : cases) EXPECT_EQ(Gmres(c.a, c.b, c.guess, c.restart, c.ncycle), c.expected) << c.name;
  const Answer untouched{{5}, -7, -7.0, FALSE, -7};
  EXPECT_EQ(Gmres({Vector{1}}, {1}, {5}, 0, 1), untouched);
  EXPECT_EQ(Gmres({Vector{1}}, {1}, {5}, std::numeric_limits<int>::max(), 1).status, -1);
}

// The second difference on a line: 2 on the diagonal, -1 beside it.
struct Csr {
  Vector values;
  std::vector<int> columns, rowStart{0};
};

Csr SecondDifference(int n) {
  Csr a;
  for (int i = 0; i < n; ++i) {
    for (int j = i > 0 ? i - 1 : 0; j <= i + 1 && j < n; ++j) {
      a.values.push_back(i == j ? 2.0 : -1.0);
      a.columns.push_back(j);
    }
    a.rowStart.push_back(static_cast<int>(a.values.size()));
  }
  return a;
}

Answer ConjugateGradient(Csr a, Vector b, Vector guess, int maxIter, BOOLEAN verbose = FALSE) {
  const int n = static_cast<int>(b.size());
  Vector invDiag(b.size());
  EXPECT_EQ(VORLComputeInvDiagOfMatrixCSR(n, a.values.data(), a.columns.data(), a.rowStart.data(), invDiag.data()), 0);
  Answer answer{guess};
  answer.status =
      VORLConjGradDiag(1e-10, n, a.values.data(), a.columns.data(), a.rowStart.data(), invDiag.data(), b.data(),
                       maxIter, answer.x.data(), &answer.niter, &answer.residual, &answer.converged, verbose);
  return answer;
}

TEST(ConjGrad, SolvesTheSecondDifference) {
  const int n = 40;
  const Answer answer = ConjugateGradient(SecondDifference(n), Vector(n, 1.0), Vector(n, 0.0), 1000);
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.converged, TRUE);
  EXPECT_LE(answer.niter, n);
  for (int i = 0; i < n; ++i) EXPECT_NEAR(answer.x[i], 0.5 * (i + 1) * (n - i), 1e-7);
}

TEST(ConjGrad, SpecialCourses) {
  const struct {
    const char* name;
    Vector b, guess;
    int maxIter;
    Answer expected;
  } cases[] = {
      {"zero right side", {0, 0, 0}, {1, 2, 3}, 9, {{0, 0, 0}, 0, 0.0, TRUE}},
      {"exact guess", {1, 0, 1}, {1, 1, 1}, 9, {{1, 1, 1}, 0, 0.0, TRUE}},
      {"no iteration", {3, 4, 0}, {0, 0, 0}, 0, {{0, 0, 0}, 0, 1.0, FALSE}},
      // By hand: z = (1, 0, 0), rho = 2, q = (2, -1, 0), alpha = 1, r = (0, 1, 0).
      {"one iteration of two", {2, 0, 0}, {0, 0, 0}, 1, {{1, 0, 0}, 1, 0.5, FALSE}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ConjugateGradient(SecondDifference(3), c.b, c.guess, c.maxIter), c.expected) << c.name;
  }
  // A denominator of zero gives NaN, which satisfies no test.
  const Answer nan = ConjugateGradient({{1.0, -1.0}, {0, 1}, {0, 1, 2}}, {1, 1}, {0, 0}, 3);
  EXPECT_EQ(nan.converged, FALSE);
  EXPECT_EQ(nan.niter, 3);
  EXPECT_TRUE(std::isnan(nan.residual));
}

TEST(IterativeSolvers, VerboseLines) {
  testing::internal::CaptureStdout();
  Gmres({{2, 0, 0}, {0, 2, 0}, {0, 0, 2}}, {8, 0, 0}, {0, 0, 0}, 9, 5, TRUE);
  ConjugateGradient(SecondDifference(3), {2, 0, 0}, {0, 0, 0}, 2, TRUE);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "GMRES(9): niter =      0, residu =  1.00000000E+00\n"
            "GMRES(1): niter =      1, residu =  0.00000000E+00\n"
            "CG ALGO: niter =      0, residu =  1.00000000E+00\n"
            "CG ALGO: niter =      1, residu =  5.00000000E-01\n");
}

// Without memory nothing is touched, but that GMRES has not converged; without unknowns none is asked for.
TEST(LinearSolvers, FailingAllocationsAndEmptySystems) {
  Matrix a({Vector{2}});
  Csr csr{{2}, {0}, {0, 1}};
  Answer answer;
  real b = 1.0, x = 0.0, invDiag = 0.5;
  int pivot;
  const auto gmres = [&](int n) {
    return VORLGmresMatrixNotCompressed(1e-10, n, a.rows(), &b, 1, 1, &x, &answer.niter, &answer.residual,
                                        &answer.converged, FALSE);
  };
  const auto conjugateGradient = [&](int n) {
    return VORLConjGradDiag(1e-10, n, csr.values.data(), csr.columns.data(), csr.rowStart.data(), &invDiag, &b, 9, &x,
                            &answer.niter, &answer.residual, &answer.converged, FALSE);
  };
  const auto call = [&](const auto& solve, BOOLEAN convergedAtFailure) {
    answer = {};
    x = -1.0;
    const int status = solve(1);
    const bool touched = answer.niter != -7 || answer.residual != -7.0 || x != -1.0;
    EXPECT_EQ(touched, status == 0);
    EXPECT_EQ(answer.converged, status == 0 ? TRUE : convergedAtFailure);
    return status;
  };
  kestrum_test::ForEachFailingAllocation({
      {"GMRES", [&] { return call(gmres, FALSE); }},
      {"conjugate gradient", [&] { return call(conjugateGradient, 7); }},
      {"LU", [&] { return VORLMatrixLUDecompositionPivoting(1, a.rows(), &pivot); }},
  });
  for (const int n : {0, -1}) {
    for (const bool dense : {true, false}) {
      answer = {};
      EXPECT_EQ(dense ? gmres(n) : conjugateGradient(n), 0);
      EXPECT_EQ(answer, (Answer{{}, 0, 0.0, TRUE}));
    }
  }
  EXPECT_EQ(VORLMatrixLUDecompositionPivoting(0, a.rows(), &pivot), -3);
}

TEST(Products, WholeNumbersAreExact) {
  // Row 1 is empty, row 2 holds column 2 twice, row 3 has no diagonal entry.
  Vector values = {3, 5, 4, 8, 7};
  std::vector<int> columns = {2, 0, 2, 2, 0}, rowStart = {0, 2, 2, 4, 5};
  Vector x = {1, 10, 100, 1000}, y(4, -1.0), invDiag(4, 9.0);
  EXPECT_EQ(VORLProductMatrixCSRVector(4, values.data(), columns.data(), rowStart.data(), x.data(), y.data()), 0);
  EXPECT_EQ(y, (Vector{305, 0, 1200, 7}));
  EXPECT_EQ(VORLComputeInvDiagOfMatrixCSR(4, values.data(), columns.data(), rowStart.data(), invDiag.data()), 0);
  EXPECT_EQ(invDiag, (Vector{0.2, 9.0, 0.25, 9.0}));

  for (int n = 0; n <= 9; ++n) {
    std::vector<Vector> rows(9, Vector(9));
    Vector ones(9, 1.0), sums(9, -1.0), expected(9, -1.0);
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j < n; ++j) rows[i][j] = 10.0 * i + j;
      expected[i] = 10.0 * i * n + 0.5 * n * (n - 1);
    }
    Matrix a(rows);
    EXPECT_EQ(VORLProductMatrixVector(n, a.rows(), ones.data(), sums.data()), 0);
    EXPECT_EQ(sums, expected) << n;
  }
}

TEST(Lu, FactorsGiveTheMatrixBack) {
  for (const int n : {1, 2, 5, 17}) {
    std::vector<Vector> rows = RandomRows(n, static_cast<unsigned>(100 + n));
    Matrix a(rows);
    std::vector<int> pivot(rows.size(), -1);
    ASSERT_EQ(VORLMatrixLUDecompositionPivoting(n, a.rows(), pivot.data()), 0);
    for (std::size_t k = 0; k < rows.size(); ++k) {
      ASSERT_GE(pivot[k], static_cast<int>(k));
      std::swap(rows[k], rows[pivot[k]]);
    }
    for (int i = 0; i < n; ++i) {
      for (int j = 0; j < n; ++j) {
        // The pivot is the largest of its column of L.
        EXPECT_TRUE(i <= j || std::fabs(a[i][j]) <= std::fabs(a[j][j]));
        real sum = 0.0;
        for (int k = 0; k <= i && k <= j; ++k) sum += a[i][k] * (k == j ? 1.0 : a[k][j]);
        EXPECT_NEAR(sum, rows[i][j], 1e-13);
      }
    }
  }
}

TEST(Lu, PivotsAndFailures) {
  // Of equal candidates the first stays.
  Matrix equal({{1, 0}, {-1, 2}});
  int pivot[3] = {7, 7, 7};
  EXPECT_EQ(VORLMatrixLUDecompositionPivoting(2, equal.rows(), pivot), 0);
  EXPECT_EQ(pivot[0], 0);

  Matrix noFirst({{0, 1, 2}, {0, 3, 4}, {0, 5, 6}});
  EXPECT_EQ(VORLMatrixLUDecompositionPivoting(3, noFirst.rows(), pivot), -60001);
  EXPECT_EQ(noFirst[2][2], 6.0);
  // Left as far as it got: the first step done, the second column reduced.
  Matrix noSecond({{1, 2}, {2, 4}});
  EXPECT_EQ(VORLMatrixLUDecompositionPivoting(2, noSecond.rows(), pivot), -60001);
  EXPECT_EQ(Vector(noSecond[0], noSecond[0] + 4), (Vector{2, 2, 1, 0}));
}

TEST(Lu, Solves) {
  struct Case {
    const char* name;
    std::vector<Vector> a;
    Vector b, x;
  };
  // The last row shows what the forward pass leaves out: with it x would be (1, 1).
  const Case cases[] = {
      {"diagonal", {{2, 0, 0}, {0, 4, 0}, {0, 0, 8}}, {2, 8, 24}, {1, 2, 3}},
      {"rows exchanged", {{0, 0, 4}, {0, 2, 0}, {8, 0, 0}}, {12, 4, 8}, {1, 2, 3}},
      {"upper triangle", {{2, 2, 4}, {0, 4, 4}, {0, 0, 2}}, {18, 20, 6}, {1, 2, 3}},
      {"lower part not subtracted", {{2, 2}, {1, 3}}, {4, 4}, {0, 2}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Matrix a(c.a);
    Vector b = c.b;
    int pivot[3];
    ASSERT_EQ(VORLMatrixLUDecompositionPivoting(a.n(), a.rows(), pivot), 0);
    EXPECT_EQ(VORLMatrixLUDecompositionPivotingSolve(a.n(), a.rows(), pivot, b.data()), 0);
    EXPECT_EQ(b, c.x);
  }
  // L = {{2,0,0},{4,1,0},{2,3,4}}, U = {{1,2,3},{0,1,5},{0,0,1}}; A = L U = {{2,4,6},{4,9,17},{2,7,25}}, x = (1, 2, 3).
  Matrix factors({{2, 2, 3}, {4, 1, 5}, {2, 3, 4}});
  Vector b = {28, 73, 91};
  EXPECT_EQ(VORLMatrixLUDecompositionSolve(3, factors.rows(), b.data()), 0);
  EXPECT_EQ(b, (Vector{1, 2, 3}));
  EXPECT_EQ(VORLMatrixLUDecompositionSolve(0, factors.rows(), b.data()), 0);
  EXPECT_EQ(VORLMatrixLUDecompositionPivotingSolve(-1, factors.rows(), nullptr, b.data()), 0);
  EXPECT_EQ(b, (Vector{1, 2, 3}));
}

}  // namespace
