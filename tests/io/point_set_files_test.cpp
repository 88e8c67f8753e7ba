#include "io/point_set_files.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "core/memory.h"
#include "support/allocation_failure.hpp"
#include "support/owned.hpp"
#include "support/text_stream.hpp"

namespace {

constexpr double kMissing = VORL_MISSING_VALUE;

using kestrum_test::ForEachFailingAllocation;
using kestrum_test::TextStream;
using kestrum_test::Written;

using PointSet = kestrum_test::Owned<VORL_POINTSET, VORLInitPointSet, VORLFreePointSet>;

int Read(VORL_POINTSET& ps, const std::string& text, std::string* rest = nullptr) {
  TextStream stream(text);
  const int status = VORLReadPointSet(&ps, stream.file);
  if (rest != nullptr) *rest = stream.Rest();
  return status;
}

std::string WrittenAs(VORL_POINTSET& ps, std::string coordFormat, std::string varFormat, int expected = 0) {
  return Written([&](FILE* file) { return VORLWritePointSet(&ps, coordFormat.data(), varFormat.data(), file); },
                 expected);
}

const std::string kHeader = "2\n6\nx\ny\nz\npor\nperm\nfacies\n";
const std::string kRows = "1.25 -2.75 0 2.9 -9999999 7\n2.25 -2.75 1000000 -2.9 0.5 1e+30\n";

TEST(PointSetFiles, ReadAndWrittenAgain) {
  PointSet ps;
  std::string rest;
  ASSERT_EQ(Read(ps, kHeader + kRows + "7 and more", &rest), 0);
  EXPECT_EQ(rest, "\n7 and more");
  ASSERT_TRUE(ps.npoint == 2 && ps.nvar == 3);
  EXPECT_STREQ(ps.varName[2], "facies");
  EXPECT_TRUE(ps.x[1] == 2.25 && ps.y[0] == -2.75 && ps.z[1] == 1e6);
  const double values[] = {2.9, -2.9, kMissing, 0.5, 7, 1e30};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(ps.var[i], values[i]);

  const struct {
    const char* coordFormat;
    const char* varFormat;
    std::string rows;
  } cases[] = {
      {"%.10g", "%.10g", kRows},
      {";;%.2f;", "%d;%f", "1.25 -2.75 0.00 2 -9999999.000000 7\n2.25 -2.75 1000000.00 -2 0.500000 -2147483648\n"},
      {"%.1f;%i;;<%g>;%s", ";%.10g;%.10g;%5d;",
       "1.2 -2 <0> 2.9 -9999999     7\n2.2 -2 <1e+06> -2.9 0.5 -2147483648\n"}};
  for (const auto& c : cases) EXPECT_EQ(WrittenAs(ps, c.coordFormat, c.varFormat), kHeader + c.rows);
  const char* const unfit[][2] = {{";", "%g"}, {"", "%g"}, {"%g", ""}, {"%g", ";;"}, {"%s", "%g"}, {"%g", "%f;%n"}};
  for (const auto& formats : unfit) EXPECT_EQ(WrittenAs(ps, formats[0], formats[1], -1021), "");
  EXPECT_EQ(VORLWritePointSet(&ps, nullptr, nullptr, stdout), -1021);
  ps.nvar = 0;
  EXPECT_EQ(WrittenAs(ps, "%g", ";"), "2\n3\nx\ny\nz\n1.25 -2.75 0\n2.25 -2.75 1e+06\n");
}

TEST(PointSetFiles, Headers) {
  const std::string longest(255, 'n');
  const std::string huge(100000, 'q');
  const struct {
    std::string text;
    int status;
    int npoint, nvar;
    const char* rest;
  } cases[] = {{"", -771, 0, 0, ""},
               {" two", -771, 0, 0, "two"},
               {"99999999999 4", -771, 0, 0, " 4"},
               {"1", -772, 0, 0, ""},
               {"1 x", -772, 0, 0, "x"},
               {"1 -99999999999 x", -772, 0, 0, " x"},
               {"1 2 x", -630, 0, 0, " x"},
               {"1 -5", -630, 0, 0, ""},
               {"2 3 x y z 1 2 3 4 5 6", 0, 2, 0, " x y z 1 2 3 4 5 6"},
               {"0 4 x y z v 5", 0, 0, 1, " 5"},
               {"-3 4 xcoord Y Z" + huge + " v 5", 0, -3, 1, " 5"},
               {"1 4", -773, 1, 1, ""},
               {"1 4 Easting y z v", -631, 1, 1, " y z v"},
               {"1 4 x", -774, 1, 1, ""},
               {"1 4 X x z v", -632, 1, 1, " z v"},
               {"1 4 X" + huge, -774, 1, 1, ""},
               {"1 4 x y", -775, 1, 1, ""},
               {"1 4 x y y" + huge, -633, 1, 1, ""},
               {"1 5 x y z a", -776, 1, 2, ""},
               {"1 4 x y z " + longest + " 1 2 3 4", 0, 1, 1, ""},
               {"1 4 x y z " + longest + "n 1 2 3 4", -777, 1, 1, "n 1 2 3 4"},
               {"1 4 x y z v 1 2 3", -731, 1, 1, ""},
               {"1 4 x y z v 1 2 ? 4", -731, 1, 1, "? 4"},
               {"100000000 4 x y z v 1 2 3 4 5", -731, 100000000, 1, ""},
               {"1 2000000000 a b c", -631, 0, 0, " b c"},
               {"1 2000000000 x y", -775, 0, 0, ""},
               {"1 2000000000 x y z a b c", -776, 0, 0, ""},
               {"1 2000000000 x y z " + longest + "n", -777, 0, 0, "n"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 40));
    PointSet ps;
    std::string rest;
    EXPECT_EQ(Read(ps, c.text, &rest), c.status);
    EXPECT_EQ(rest, c.rest);
    EXPECT_TRUE(ps.npoint == c.npoint && ps.nvar == c.nvar) << ps.npoint << ' ' << ps.nvar;
  }
}

TEST(ArrayFiles, WrittenAndReadAgain) {
  double entries[] = {1, 2.75, -3.5, kMissing, 1e-3, 6};
  double* rows[] = {entries, entries + 3};
  const auto written = [&](std::string format, int expected) {
    return Written([&](FILE* file) { return VORLWriteArray2D(2, 3, rows, format.data(), file); }, expected);
  };
  EXPECT_EQ(written("%d", 0), "2 3\n1\n2\n-3\n-9999999\n0\n6\n");
  EXPECT_EQ(written("<%5.1f>", 0), "2 3\n<  1.0>\n<  2.8>\n< -3.5>\n<-9999999.0>\n<  0.0>\n<  6.0>\n");
  for (const char* unfit : {"", "%s", "%g %g", "%n"}) EXPECT_EQ(written(unfit, -1021), "");

  const std::string text = written("%.17g", 0);
  const struct {
    std::string text;
    int status;
    bool allocated;
  } cases[] = {{text + "7", 0, true},         {text.substr(0, text.size() - 2), -27, true},
               {"2 3 1 2 x", -27, true},      {"", -25, false},
               {"3000000000 1", -25, false},  {"2", -26, false},
               {"2 -3000000000", -26, false}, {"0 3", -7, false},
               {"2 0 1", -7, false},          {"-2 3", -1, false},
               {"2 -3", -1, false},           {"2000000000 1 1 2 3", -27, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    int nrow = 0, ncol = 0;
    real** array = nullptr;
    TextStream stream(c.text);
    EXPECT_EQ(VORLReadArray2D(&nrow, &ncol, &array, stream.file), c.status);
    ASSERT_EQ(array != nullptr, c.allocated);
    for (int i = 0; i < 6 && c.status == 0; ++i) EXPECT_EQ(array[i / 3][i % 3], entries[i]);
    VORLFreeArray2D(reinterpret_cast<void**>(array));
  }
}

// Also with names and rows that are read before there is memory for them; they end early here, which is no failure of an
// allocation.
TEST(PointSetFiles, FailingAllocations) {
  PointSet sample;
  ASSERT_EQ(Read(sample, kHeader + kRows), 0);
  for (const std::string& text : {kHeader + kRows, std::string("1 2000000000 x y z a")}) {
    ForEachFailingAllocation([&] {
      PointSet ps;
      const int status = Read(ps, text);
      return status == -776 ? 0 : status;
    });
  }
  ForEachFailingAllocation([&] {
    char format[] = "%g";
    TextStream stream;
    return VORLWritePointSet(&sample, format, format, stream.file);
  });
  for (const char* const text : {"2 3 1 2 3 4 5 6", "2000000000 1 1 2"}) {
    ForEachFailingAllocation([&] {
      int nrow = 0, ncol = 0;
      real** array = nullptr;
      TextStream stream(text);
      const int status = VORLReadArray2D(&nrow, &ncol, &array, stream.file);
      VORLFreeArray2D(reinterpret_cast<void**>(array));
      return status == -27 ? 0 : status;
    });
  }
}

}  // namespace
