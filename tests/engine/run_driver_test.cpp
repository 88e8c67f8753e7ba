#include "engine/run_driver.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "support/allocation_failure.hpp"
#include "support/run_builder.hpp"

namespace {

using kestrum_test::Element;
using kestrum_test::MakeGrid;
using kestrum_test::New;
using kestrum_test::NewImage;
using kestrum_test::NewText;
using kestrum_test::RunRecords;

const std::vector<Element> kModel = {{COV_SPHERICAL, 1.0, 4.0, 4.0, 4.0}};

std::string TemporaryName(const std::string& name) {
  return ::testing::TempDir() + "kestrum_" + std::to_string(getpid()) + "_" + name;
}

std::string ReadAndRemove(const std::string& name) {
  std::ifstream file(name);
  std::stringstream text;
  text << file.rdbuf();
  std::remove(name.c_str());
  return text.str();
}

bool Exists(const std::string& name) { return std::ifstream(name).good(); }

// The times of a report vary: their digits become #.
std::string HideTimes(std::string report) {
  for (std::size_t at = report.find("CPU time"); at != std::string::npos; at = report.find("CPU time", at + 1)) {
    const std::size_t number = report.find(": ", at) + 2;
    report.replace(number, report.find('\n', number) - number, "#");
  }
  return report;
}

TEST(RunDriver, ReportIsExact) {
  const std::string stars(80, '*'), equals(80, '=');
  for (const int nthreads : {0, 2}) {
    const std::string name = TemporaryName("report");
    RunRecords records(MakeGrid(5, 1, 1), kModel, {{0, 0, 0, 1.0}, {7, 0, 0, 1.0}});
    records.input.outputReportFlag = TRUE;
    records.input.outputReportFileName = NewText(name);
    char prefix[] = "   ";
    char* printed = nullptr;
    std::size_t size = 0;
    FILE* const stream = open_memstream(&printed, &size);
    ASSERT_EQ(VORLKestrumPrintKestrumInput(&records.input, prefix, stream), 0);
    std::fclose(stream);
    const std::string input(printed, size);
    std::free(printed);
    ASSERT_EQ(records.Run(nthreads), 0);
    const std::string form = nthreads == 0 ? "Serial" : "OpenMP 2 thread(s)";
    const std::string expected =
        stars + "\nKESTRUM VERSION 2.0 / BUILD NUMBER 20240322 / " + form + "\n" + stars + "\n" + equals +
        "\nkestrumInput:\n" + input + equals + "\n" + equals + "\nCPU time (sec), in total" + std::string(44, ' ') +
        ": #\n" + equals + "\n" + equals + "\nWarnings encountered (1 times in all):\n#  1: WARNING 00042: " +
        "conditioning location(s) has(have) been ignored from data point set (out of the simulation grid!)\n" + equals +
        "\n";
    EXPECT_EQ(HideTimes(ReadAndRemove(name)), expected);
  }
}

TEST(RunDriver, WritesFilesByOutputMode) {
  const std::string header = "3 1 1 1.000000 1.000000 1.000000 0.000000 0.000000 0.000000\n";
  for (const bool console : {false, true}) {
    for (const auto mode : {KESTRUM_OUTPUT_NO_FILE, KESTRUM_OUTPUT_ALL_IN_ONE_FILE, KESTRUM_OUTPUT_SEPARATE_FILE}) {
      const std::string name = TemporaryName("result");
      RunRecords records(MakeGrid(3, 1, 1), {{COV_SPHERICAL, 1.0, 1.0, 1.0, 1.0}}, {{0, 0, 0, 4.0}});
      records.input.consoleAppFlag = console ? TRUE : FALSE;
      records.input.outputMode = mode;
      records.input.outputImageFileName = NewText(name);
      ASSERT_EQ(records.Run(), 0);
      EXPECT_EQ(records.output.outputImage != nullptr, !console);
      EXPECT_EQ(Exists(name), mode == KESTRUM_OUTPUT_ALL_IN_ONE_FILE);
      EXPECT_EQ(Exists(name + "_est.gslib"), mode == KESTRUM_OUTPUT_SEPARATE_FILE);
      // The lone datum is the mean; its neighbour lies at the range, so that it does not know it.
      if (mode == KESTRUM_OUTPUT_ALL_IN_ONE_FILE) {
        EXPECT_EQ(ReadAndRemove(name), header + "2\nv_est\nv_std\n4 0\n4 1.414213562\n4 1\n");
      }
      if (mode == KESTRUM_OUTPUT_SEPARATE_FILE) {
        EXPECT_EQ(ReadAndRemove(name + "_est.gslib"), header + "1\nv_est\n4\n4\n4\n");
        EXPECT_EQ(ReadAndRemove(name + "_std.gslib"), header + "1\nv_std\n0\n1.414213562\n1\n");
      }
    }
  }
}

// What a run does to its input record, and the exact refusals. Each row also runs threaded.
TEST(RunDriver, StatusesAndRewrittenInput) {
  const VORL_GRID grid = MakeGrid(6, 4, 1);
  const struct {
    const char* name;
    std::function<void(RunRecords&)> change;
    int status;
  } cases[] = {
      {"Sound", [](RunRecords&) {}, 0},
      {"BrokenRule", [](RunRecords& r) { r.input.nneighborMax = 0; }, -71062},
      {"NoReport",
       [](RunRecords& r) {
         r.input.outputReportFlag = TRUE;
         r.input.outputReportFileName = NewText("/nowhere/at/all");
       },
       -110},
      {"NoResultFile",
       [](RunRecords& r) {
         r.input.outputMode = KESTRUM_OUTPUT_ALL_IN_ONE_FILE;
         r.input.outputImageFileName = NewText("/nowhere/at/all");
       },
       -110},
      {"NoSeparateFile",
       [](RunRecords& r) {
         r.input.outputMode = KESTRUM_OUTPUT_SEPARATE_FILE;
         r.input.outputImageFileName = NewText("/nowhere/at/all");
       },
       -110},
      {"Aborted", [](RunRecords& r) { r.monitor.abortedJobFlag = TRUE; }, -1000},
      {"Simulation", [](RunRecords& r) { r.input.computationMode = KESTRUM_SIM_OK; }, -71060},
      {"WrongProducts", [](RunRecords& r) { r.input.simGrid->nxyz = 1000; }, -601},
      {"Unlimited", [](RunRecords& r) { r.input.nneighborMax = -1; }, 0},
      {"MoreThanThereAre", [](RunRecords& r) { r.input.nneighborMax = 2147483647; }, 0},
  };
  for (const auto& c : cases) {
    for (const int nthreads : {0, 2}) {
      SCOPED_TRACE(c.name);
      RunRecords records(grid, kModel, {{0, 0, 0, 1.0}, {5, 3, 0, 4.0}});
      c.change(records);
      EXPECT_EQ(records.Run(nthreads), c.status);
      EXPECT_EQ(records.output.outputImage != nullptr, c.status == 0);
      if (c.status == 0) {
        EXPECT_EQ(records.input.dataPointSet, nullptr);
        EXPECT_EQ(records.input.ndataPointSet, 0);
        EXPECT_EQ(records.input.meanValue, 2.5);
        EXPECT_STREQ(records.monitor.progressName, "Kestrum progress... ");
      }
    }
  }
  RunRecords unique(grid, kModel, {});
  unique.input.searchRadiusRelative = -1.0;
  EXPECT_EQ(unique.Run(), -71265);
  RunRecords empty(grid, kModel, {});
  EXPECT_EQ(empty.Run(), 0);
  EXPECT_EQ(empty.output.outputImage->var[3], 0.0);
  EXPECT_EQ(empty.output.outputImage->var[24 + 3], 1.0);
  RunRecords threads(grid, kModel, {});
  EXPECT_EQ(threads.Run(-1), -99);
}

std::vector<int> percentages;

int Collect(VORL_PROGRESSMONITOR* monitor) {
  if (monitor->warningNumber == 0) percentages.push_back(monitor->allRealizationProgress);
  return 0;
}
int StopAtForty(VORL_PROGRESSMONITOR* monitor) {
  Collect(monitor);
  return monitor->allRealizationProgress >= 40 ? -7 : 0;
}
int AbortAtForty(VORL_PROGRESSMONITOR* monitor) {
  Collect(monitor);
  if (monitor->allRealizationProgress >= 40) monitor->abortedJobFlag = TRUE;
  return 0;
}

TEST(RunDriver, ProgressAndItsAnswers) {
  const auto run = [](int nthreads, int (*callback)(VORL_PROGRESSMONITOR*)) {
    percentages.clear();
    RunRecords records(MakeGrid(257, 1, 1), kModel, {{100, 0, 0, 1.0}});
    return records.Run(nthreads, callback);
  };
  // Of 256 nodes: none is more than one percent, not even where thread 0 reports every other one.
  for (const int nthreads : {0, 1, 2}) {
    EXPECT_EQ(run(nthreads, Collect), 0);
    ASSERT_EQ(percentages.size(), 100u);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(percentages[i], i + 1);
  }
  // Four threads: thread 0 reports every fourth node, the first of them at 0 percent, and the end is reported.
  EXPECT_EQ(run(4, Collect), 0);
  EXPECT_EQ(percentages.size(), 64u);
  EXPECT_EQ(run(0, StopAtForty), -7);
  EXPECT_EQ(percentages.back(), 40);
  EXPECT_EQ(run(0, AbortAtForty), -1000);
  EXPECT_EQ(percentages.back(), 40);
  // A threaded estimation does all its nodes.
  EXPECT_EQ(run(2, AbortAtForty), -1000);
  EXPECT_EQ(percentages.back(), 99);
}

// Every allocation of a run fails once: the run tells it, hands nothing out and leaks nothing (a leak is for the
// sanitised build to find).
TEST(RunDriver, EveryAllocationMayFail) {
  const VORL_GRID grid = MakeGrid(12, 10, 1);
  for (const bool unique : {false, true}) {
    for (const int nthreads : {0, 2}) {
      int failures = 0;
      for (long k = 0;; ++k) {
        ASSERT_LT(k, 1000);
        RunRecords records(grid, kModel, {{0, 0, 0, 1.0}, {5, 3, 0, 4.0}, {7, 8, 0, 2.0}});
        if (unique) records.input.searchRadiusRelative = -1.0;
        int status;
        bool happened;
        {
          const kestrum_test::FailAllocation failing(k);
          status = records.Run(nthreads);
          happened = failing.Happened();
        }
        if (!happened) {
          EXPECT_EQ(status, 0);
          break;
        }
        ++failures;
        EXPECT_TRUE(status == -1 || status == -2) << k << ": " << status;
        EXPECT_EQ(records.output.outputImage, nullptr);
      }
      EXPECT_GT(failures, 15);
    }
  }
}

VORL_KESTRUMINDICATORINPUT MakeIndicatorInput(const VORL_GRID& grid, const std::vector<real>& categories,
                                              const std::vector<real>& data) {
  VORL_KESTRUMINDICATORINPUT input;
  VORLKestrumInitKestrumIndicatorInput(&input);
  const int n = static_cast<int>(categories.size());
  input.simGrid = New<VORL_GRID>();
  *input.simGrid = grid;
  input.varName = NewText("v");
  input.ncategory = n;
  input.categoryValue = New<real>(n);
  input.covModel = New<VORL_COVMODEL>(n);
  input.searchRadiusRelative = New<real>(n);
  input.nneighborMax = New<int>(n);
  input.searchNeighborhoodSortMode = New<int>(n);
  for (int c = 0; c < n; ++c) {
    input.categoryValue[c] = categories[c];
    VORL_COVMODEL* const model = kestrum_test::NewModel(kModel);
    input.covModel[c] = *model;
    std::free(model);
    input.searchRadiusRelative[c] = 1.0;
    input.nneighborMax[c] = 4;
  }
  input.computationMode = KESTRUM_OK;
  input.ndataImage = 1;
  VORL_IMAGE* const image = NewImage(grid, data);
  input.dataImage = image;
  return input;
}

// The categorical run prepares and refuses; its proportions stay in the record.
TEST(RunDriver, IndicatorPreparation) {
  const VORL_GRID grid = MakeGrid(4, 1, 1);
  const real m = VORL_MISSING_VALUE;
  const struct {
    std::vector<real> categories, data;
    int status;
    std::vector<real> proportion;
  } cases[] = {
      {{1, 2, 3}, {1, 3, 1, m}, -71060, {2.0 / 3, 0.0, 1.0 / 3}},
      {{1, 2, 3}, {1, 5, 1, m}, -71115, {}},
      {{1, 2, 3, 4}, {m, m, m, m}, -71060, {0.25, 0.25, 0.25, 0.25}},
      {{2}, {2, 0, 0, m}, -71060, {1.0 / 3}},
      {{2}, {2, 0, 1, m}, -71116, {}},
      {{2}, {m, m, m, m}, -71060, {0.5}},
  };
  for (const auto& c : cases) {
    for (const int nthreads : {0, 2}) {
      VORL_KESTRUMINDICATORINPUT input = MakeIndicatorInput(grid, c.categories, c.data);
      VORL_KESTRUMOUTPUT output;
      VORLKestrumInitKestrumOutput(&output);
      VORL_PROGRESSMONITOR monitor;
      VORLInitProgressMonitor(&monitor);
      const int status =
          nthreads == 0 ? VORLKestrumIndicatorSim(&input, &output, &monitor, VORLUpdateProgressMonitor0)
                        : VORLOMPKestrumIndicatorSim(&input, &output, &monitor, VORLUpdateProgressMonitor0, nthreads);
      EXPECT_EQ(status, c.status);
      EXPECT_EQ(output.outputImage, nullptr);
      for (std::size_t i = 0; i < c.proportion.size(); ++i) {
        EXPECT_DOUBLE_EQ(input.probabilityValue[i], c.proportion[i]);
      }
      EXPECT_EQ(input.ndataImage, 0);
      VORLKestrumFreeKestrumIndicatorInput(&input);
    }
  }
  // Its allocations fail one by one, up to the failure that ends every run of this kind.
  for (long k = 0;; ++k) {
    ASSERT_LT(k, 1000);
    VORL_KESTRUMINDICATORINPUT input = MakeIndicatorInput(grid, {1, 2}, {1, 2, m, m});
    VORL_KESTRUMOUTPUT output;
    VORLKestrumInitKestrumOutput(&output);
    int status;
    bool happened;
    {
      const kestrum_test::FailAllocation failing(k);
      status = VORLKestrumIndicatorSim(&input, &output, nullptr, nullptr);
      happened = failing.Happened();
    }
    VORLKestrumFreeKestrumIndicatorInput(&input);
    EXPECT_EQ(output.outputImage, nullptr);
    if (!happened) {
      EXPECT_EQ(status, -71060);
      EXPECT_GT(k, 20);
      break;
    }
    EXPECT_TRUE(status == -1 || status == -2) << k << ": " << status;
  }
  EXPECT_EQ(VORLOMPKestrumIndicatorSim(nullptr, nullptr, nullptr, nullptr, 0), -99);
}

}  // namespace
