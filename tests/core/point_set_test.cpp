#include "core/point_set.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "core/owned_image.hpp"
#include "support/allocation_failure.hpp"

namespace {

struct OwnedPointSet : VORL_POINTSET {
  OwnedPointSet(int points, int variables) : VORL_POINTSET{} {
    VORLMallocPointSet(this, points, variables);
    npoint = points;
    nvar = variables;
    for (real* const axis : {x, y, z}) std::fill_n(axis, points, 0.5);
    for (int iv = 0; iv < variables; ++iv) std::strcpy(varName[iv], std::to_string(iv).c_str());
    if (variables > 0) std::fill_n(var, points * variables, 0.0);
  }
  OwnedPointSet(const OwnedPointSet&) = delete;
  ~OwnedPointSet() { VORLFreePointSet(this); }
};

}  // namespace

TEST(PointSet, CopyOwnsItsParts) {
  OwnedPointSet ps(3, 2);
  ps.var[5] = 7.0;
  VORL_POINTSET copy;
  ASSERT_EQ(VORLCopyPointSet(&copy, &ps), 0);
  ps.x[2] = ps.y[0] = ps.z[1] = ps.var[5] = -1.0;
  ps.varName[1][0] = '?';
  EXPECT_TRUE(copy.npoint == 3 && copy.nvar == 2);
  EXPECT_TRUE(copy.x[2] == 0.5 && copy.y[0] == 0.5 && copy.z[1] == 0.5 && copy.var[5] == 7.0);
  EXPECT_STREQ(copy.varName[1], "1");
  VORLFreePointSet(&copy);
  ASSERT_EQ(VORLMallocPointSet(&copy, 0, 2), 0);
  EXPECT_TRUE(copy.x == nullptr && copy.var == nullptr && copy.varName != nullptr);
  VORLFreePointSet(&copy);
  VORLFreePointSet(nullptr);
  VORL_POINTSET empty;
  VORLInitPointSet(&empty);
  empty.npoint = 3;
  EXPECT_EQ(VORLCopyPointSet(&copy, &empty), -20);
  VORLFreePointSet(&copy);
  EXPECT_EQ(VORLCopyPointSet(&ps, &ps), -20);
}

// A point set can be released after a failure, whatever it held before.
TEST(PointSet, FailingAllocations) {
  OwnedPointSet ps(3, 2);
  char prefix[] = "> ";
  const auto make = [](auto... arguments) { return MakeFromGarbage<VORL_POINTSET, VORLFreePointSet>(arguments...); };
  const auto print = [&](auto function) {
    return kestrum_test::WriteStatus([&](FILE* stream) { return function(&ps, prefix, stream); });
  };
  kestrum_test::ForEachFailingAllocation({
      {"memory", [&] { return make(VORLMallocPointSet, 3, 2); }},
      {"copy", [&] { return make(VORLCopyPointSet, &ps); }},
      {"print", [&] { return print(VORLPrintPointSet); }},
      {"report", [&] { return print(VORLPrintPointSetInfo); }},
  });
}

TEST(PointSet, ValidationTellsTheFirstFailure) {
  struct Row {
    int expected;
    void (*spoil)(VORL_POINTSET*);
  };
  const Row rows[] = {
      {0, [](VORL_POINTSET* ps) { ps->var[0] = ps->x[0] = std::nan(""); }},
      {0, [](VORL_POINTSET* ps) { ps->nvar = 1; }},
      {-641, [](VORL_POINTSET* ps) { ps->nvar = 0; }},
      {-642, [](VORL_POINTSET* ps) { ps->nvar = 10001; }},
      {-643, [](VORL_POINTSET* ps) { std::memset(ps->varName[1], 'n', VORL_VARNAME_LENGTH), ps->varName[2][0] = '0'; }},
      {-644, [](VORL_POINTSET* ps) { ps->varName[2][0] = '0'; }},
  };
  for (const Row& row : rows) {
    OwnedPointSet ps(1, 3);
    row.spoil(&ps);
    int status = 7;
    EXPECT_EQ(VORLValidatePointSet(&ps, &status), 0);
    EXPECT_EQ(status, row.expected);
  }
}

TEST(PointSet, PointsGoToTheNearestCell) {
  struct Row {
    real x;
    int cell;  // of 4 cells of size 2 from 10 on
  };
  const Row rows[] = {{10.0, 0},   {9.999, -1},  {11.0, 0},      {12.0, 0},         {12.001, 1}, {13.999, 1},
                      {14.0, 1},   {14.01, 2},   {16.0, 2},      {17.9, 3},         {18.0, 3},   {18.001, -1},
                      {1e300, -1}, {-1e300, -1}, {HUGE_VAL, -1}, {std::nan(""), -1}};
  for (int axis = 0; axis < 3; ++axis) {
    VORL_GRID grid = {1, 1, 1, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, 1, 1};
    (axis == 0 ? grid.nx : axis == 1 ? grid.ny : grid.nz) = 4;
    (axis == 0 ? grid.sx : axis == 1 ? grid.sy : grid.sz) = 2.0;
    (axis == 0 ? grid.ox : axis == 1 ? grid.oy : grid.oz) = 10.0;
    grid.nxy = grid.nx * grid.ny;
    grid.nxyz = 4;
    for (const Row& row : rows) {
      OwnedPointSet ps(2, 0);
      (axis == 0 ? ps.x : axis == 1 ? ps.y : ps.z)[0] = 15.0;
      (axis == 0 ? ps.x : axis == 1 ? ps.y : ps.z)[1] = row.x;
      int id[2] = {-7, -7}, cell[3][2] = {{-7, -7}, {-7, -7}, {-7, -7}};
      EXPECT_EQ(VORLGetIndexInGridForPointSet(&ps, &grid, id, 1), 0);
      EXPECT_EQ(id[0], 2);
      EXPECT_EQ(id[1], row.cell) << row.x;
      EXPECT_EQ(VORLGetXYZIndexInGridForPointSet(&ps, &grid, cell[0], cell[1], cell[2], 0), row.cell == -1 ? -161 : 0);
      for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(cell[k][0], k == axis ? 2 : 0);
        EXPECT_EQ(cell[k][1], row.cell == -1 ? -7 : k == axis ? row.cell : 0);
      }
      EXPECT_EQ(VORLGetXYZIndexInGridForPointSet(&ps, &grid, cell[0], cell[1], cell[2], 1), 0);
      for (int k = 0; k < 3; ++k) EXPECT_EQ(cell[k][1] == -1, row.cell == -1);
    }
  }
}

TEST(PointSet, SingleIndexCombinesTheAxes) {
  VORL_GRID grid = {5, 4, 3, 0.3, 0.7, 1.1, -2.0, 5.0, 0.0, 20, 60};
  OwnedPointSet ps(60, 0);
  std::vector<int> id(60), expected(60);
  for (int k = 0; k < 60; ++k) {
    ps.x[k] = grid.ox + (k % 5 + 0.1 + 0.013 * k) * grid.sx;
    ps.y[k] = grid.oy + (k / 5 % 4 + 0.93 - 0.015 * k) * grid.sy;
    ps.z[k] = grid.oz + (k / 20 + 0.5) * grid.sz;
    expected[k] = k;
  }
  EXPECT_EQ(VORLGetIndexInGridForPointSet(&ps, &grid, id.data(), 0), 0);
  EXPECT_EQ(id, expected);
}

TEST(PointSet, StatisticsWithoutPoints) {
  OwnedPointSet ps(0, 1);
  double c[12], min, max, mean, cov, *covRow = &cov;
  int n, *nRow = &n;
  const auto info = [&](double* zmean, int** pairs) {
    return VORLGetPointSetInfo(&ps, &c[0], &c[1], &c[2], &c[3], &c[4], &c[5], &c[6], &c[7], zmean, &c[9], &c[10],
                               &c[11], pairs, &min, &max, &mean, &covRow);
  };
  EXPECT_EQ(info(&c[8], &nRow), 0);
  EXPECT_EQ(std::vector<double>(c, c + 12),
            (std::vector<double>{1e25, 1e25, 1e25, -1e25, -1e25, -1e25, 0, 0, 0, 0, 0, 0}));
  EXPECT_TRUE(n == 0 && min == 1e25 && max == -1e25 && mean == 0.0 && cov == 0.0);
  EXPECT_EQ(info(nullptr, &nRow), -20);
  EXPECT_EQ(info(&c[8], nullptr), -20);
}

TEST(PointSet, Reports) {
  OwnedPointSet ps(3, 1);
  const real x[] = {0.0, 1.0, 2.0}, z[] = {-1.0, 0.0, 4.0}, values[] = {10.0, kMissing, 20.0};
  std::copy_n(x, 3, ps.x);
  std::copy_n(z, 3, ps.z);
  std::copy_n(values, 3, ps.var);
  EXPECT_EQ(kestrum_test::Printed(VORLPrintPointSet, &ps),
            "> npoint:        3\n> nvar:          1\n> varName\n>    0\n");
  const std::string expected =
      "> Number of points:      3\n"
      "> Coord             min             max            mean             var             std\n"
      ">     x  0.00000000E+00  2.00000000E+00  1.00000000E+00  1.00000000E+00  1.00000000E+00\n"
      ">     y  5.00000000E-01  5.00000000E-01  5.00000000E-01  0.00000000E+00  0.00000000E+00\n"
      ">     z -1.00000000E+00  4.00000000E+00  1.00000000E+00  7.00000000E+00  2.64575131E+00\n"
      "\n"
      "> Number of variables:   1\n"
      "> Variable #  0: 0\n"
      "\n"
      "> Number of informed nodes for each pair of variables,\n"
      "> n(i,j) = number of nodes in point set where both i-th and j-th variables are informed:\n"
      ">                     #  0\n"
      ">     #  0               2\n"
      "\n"
      "> Variable             min             max            mean             var             std\n"
      ">     #  0  1.00000000E+01  2.00000000E+01  1.50000000E+01  5.00000000E+01  7.07106781E+00\n";
  const std::string report = kestrum_test::Printed(VORLPrintPointSetInfo, &ps);
  EXPECT_EQ(report.substr(0, expected.size()), expected);
}
