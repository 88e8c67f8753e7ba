// Files, reports and names are the same bytes whatever decimal mark the program has chosen, and are read alike.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "kestrum.h"
#include "support/comma_locale.hpp"
#include "support/run_builder.hpp"
#include "support/test_image.hpp"
#include "support/text_stream.hpp"

namespace {

using namespace kestrum_test;
using Points = Owned<VORL_POINTSET, VORLInitPointSet, VORLFreePointSet>;

char prefix[] = "# ";

// The report of a run; the digits of its times are masked.
std::string Report() {
  const std::string path = testing::TempDir() + "kestrum_locale_report";
  kestrum_test::RunRecords run(kestrum_test::MakeGrid(3, 2, 1, 0.5), {{COV_SPHERICAL, 1.5, 2.5, 2.5, 2.5, 0.0}}, {});
  run.input.computationMode = KESTRUM_SIM_SK;
  run.input.outputReportFlag = TRUE;
  run.input.outputReportFileName = kestrum_test::NewText(path);
  EXPECT_EQ(run.Run(), 0);
  std::string report;
  FILE* const file = std::fopen(path.c_str(), "r");
  for (char line[VORL_LINE_LENGTH]; std::fgets(line, sizeof(line), file) != nullptr; report += line) {
    if (std::strncmp(line, "CPU", 3) != 0) continue;
    for (char* c = std::strchr(line, ':'); *c != '\0'; ++c) {
      if (std::strchr("0123456789+-", *c) != nullptr) *c = '#';
    }
  }
  std::fclose(file);
  std::remove(path.c_str());
  return report;
}

TEST(Locale, WritingIsTheSame) {
  // A plain format, and two that need printf.
  char formats[] = "%.3f;%+g;%'012.2f", format[] = "%+g";
  TestImage image({2, 2, 1, 0.5, 0.25, 1.0, 1234.5, -0.75, 0.0, 0, 0}, {"u", "v", "w"}, {1.5, -2.75, 12345.625, 0.1});
  Points points;
  ASSERT_EQ(VORLImageToPointSet(&image, &points), 0);
  kestrum_test::RunRecords run(*image.grid, {{COV_MATERN, 1.5, 2.5, 3.5, 4.5, 0.5}}, {});
  VORL_KESTRUMINDICATORINPUT indicatorInput;
  VORLKestrumInitKestrumIndicatorInput(&indicatorInput);
  indicatorInput.ncategory = 1;
  real category[] = {2.5}, *rows[] = {image.var};
  indicatorInput.categoryValue = category;
  VORL_SEARCHNEIGHBORHOODPARAMETERS neighborhood{7, 1.5, 2.5, 3.5, 6, 0.5, 0.5, 0.5, 1, 30.5, 0.0, 0.0, 1.5};
  VORL_SIMANDPATHPARAMETERS path{SIM_ONE_BY_ONE, PATH_RANDOM_HD_DISTANCE_SUM_PDF, 0, nullptr, 0.5, 2.5};
  VORL_PROGRESSMONITOR monitor;
  VORLInitProgressMonitor(&monitor);
  monitor.nrealization = 8;
  monitor.currentRealization = 1;

  const std::vector<std::function<int(FILE*)>> writers = {
      [&](FILE* stream) { return VORLWriteImage(&image, formats, 0, stream); },
      [&](FILE* stream) { return VORLWriteImage(&image, formats, 1, stream); },
      [&](FILE* stream) { return VORLWriteImage(&image, formats, 3, stream); },
      [&](FILE* stream) { return VORLWritePointSet(&points, formats, formats, stream); },
      [&](FILE* stream) { return VORLWriteArray2D(1, 4, rows, format, stream); },
      [&](FILE* stream) { return VORLPrintGrid(image.grid, prefix, stream); },
      [&](FILE* stream) { return VORLPrintImage(&image, prefix, stream); },
      [&](FILE* stream) { return VORLPrintImageInfo(&image, prefix, stream, 10); },
      [&](FILE* stream) { return VORLPrintPointSetInfo(&points, prefix, stream); },
      [&](FILE* stream) { return VORLKestrumPrintCovModel(run.input.covModel, prefix, stream); },
      [&](FILE* stream) { return VORLKestrumPrintKestrumInput(&run.input, prefix, stream); },
      [&](FILE* stream) { return VORLKestrumPrintKestrumIndicatorInput(&indicatorInput, prefix, stream); },
      [&](FILE* stream) { return VORLPrintSearchNeighborhoodParameters(&neighborhood, prefix, stream); },
      [&](FILE* stream) { return VORLPrintSimAndPathParameters(&path, prefix, stream); },
      [&](FILE* stream) {
        TestImage local;
        const int status = VORLGetImageVarStatsLocal(&image, &local, 1, category);
        std::fputs(local.varName[0], stream);
        return status;
      },
      [](FILE* stream) { return std::fputs(Report().c_str(), stream) < 0; },
      [&](FILE* stream) {
        testing::internal::CaptureStdout();
        const int status = VORLUpdateProgressMonitor2(&monitor);
        std::fputs(testing::internal::GetCapturedStdout().c_str(), stream);
        return status;
      },
  };
  std::vector<std::string> expected;
  for (const auto& write : writers) expected.push_back(Written(write));
  const CommaLocale comma;
  for (std::size_t i = 0; i < writers.size(); ++i) {
    EXPECT_EQ(Written(writers[i]), expected[i]);
    EXPECT_STREQ(std::localeconv()->decimal_point, ",");
    EXPECT_NE(expected[i].find_first_of("0123456789"), std::string::npos) << i;
  }
}

// The last number of a file without a line feed, too.
TEST(Locale, ReadingIsTheSame) {
  const auto readImage = [](FILE* stream) {
    TestImage image;
    EXPECT_EQ(VORLReadImage(&image, 0, stream), 0);
    return std::vector<real>{image.grid->sx, image.grid->oy, image.var[0], image.var[1]};
  };
  const auto readPoints = [](FILE* stream) {
    Points points;
    EXPECT_EQ(VORLReadPointSet(&points, stream), 0);
    return std::vector<real>{points.x[0], points.y[0], points.z[0], points.var[0]};
  };
  const auto readArray = [](FILE* stream) {
    int nrow = 0, ncol = 0;
    real** rows = nullptr;
    EXPECT_EQ(VORLReadArray2D(&nrow, &ncol, &rows, stream), 0);
    const std::vector<real> values(rows[0], rows[0] + nrow * ncol);
    VORLFreeArray2D(reinterpret_cast<void**>(rows));
    return values;
  };
  const auto readGrid = [](FILE* stream) {
    VORL_GRID grid = {};
    EXPECT_EQ(VORLReadGrid(&grid, stream), 0);
    return std::vector<real>{grid.sx, grid.sy, grid.oy, grid.oz};
  };
  const auto readPath = [](FILE* stream) {
    VORL_SIMANDPATHPARAMETERS path = {};
    EXPECT_EQ(VORLReadSimAndPathParameters(&path, stream), 0);
    return std::vector<real>{path.pow, path.strength};
  };
  const struct {
    std::function<std::vector<real>(FILE*)> read;
    std::string text;
    std::vector<real> expected;
  } cases[] = {
      {readImage, "2 1 1 0.5 1 1 0 -0.25 0\n1\nv\n0x1.8p0\n2.75", {0.5, -0.25, 1.5, 2.75}},
      {readPoints, "1 4 x y z v 1.5 -2.5e0 .5 2.75", {1.5, -2.5, 0.5, 2.75}},
      {readArray, "1 2 1.5 2.75", {1.5, 2.75}},
      {readGrid, "1 1 1 0.5 1.5/**/1 0 2.25 2.75", {0.5, 1.5, 2.25, 2.75}},
      {readPath, "SIM_ONE_BY_ONE PATH_RANDOM_HD_DISTANCE_SUM_PDF 1.5 0.75", {1.5, 0.75}},
  };
  const CommaLocale comma;
  for (const auto& [read, text, expected] : cases) {
    TextStream stream(text);
    EXPECT_EQ(read(stream.file), expected) << text;
  }
}

}  // namespace
