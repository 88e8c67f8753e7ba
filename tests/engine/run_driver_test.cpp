#include "engine/run_driver.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/allocation_failure.hpp"
#include "support/run_builder.hpp"
#include "support/run_callbacks.hpp"

namespace {

using kestrum_test::AbortAtForty;
using kestrum_test::Collect;
using kestrum_test::Datum;
using kestrum_test::Element;
using kestrum_test::IndicatorRunRecords;
using kestrum_test::MakeGrid;
using kestrum_test::NewText;
using kestrum_test::RunRecords;
using kestrum_test::StopAtForty;
using kestrum_test::toldPercentages;

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
      {"Simulation", [](RunRecords& r) { r.input.computationMode = KESTRUM_SIM_OK; }, 0},
      {"NoRealization",
       [](RunRecords& r) {
         r.input.computationMode = KESTRUM_SIM_SK;
         r.input.nrealization = -1;
         r.input.outputMode = KESTRUM_OUTPUT_ALL_IN_ONE_FILE;
         r.input.outputImageFileName = NewText("/dev/null");
       },
       0},
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

TEST(RunDriver, ProgressAndItsAnswers) {
  const auto run = [](int nthreads, int (*callback)(VORL_PROGRESSMONITOR*)) {
    toldPercentages.clear();
    RunRecords records(MakeGrid(257, 1, 1), kModel, {{100, 0, 0, 1.0}});
    return records.Run(nthreads, callback);
  };
  // Of 256 nodes: none is more than one percent, not even where thread 0 reports every other one.
  for (const int nthreads : {0, 1, 2}) {
    EXPECT_EQ(run(nthreads, Collect), 0);
    ASSERT_EQ(toldPercentages.size(), 100u);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(toldPercentages[i], i + 1);
  }
  // Four threads: thread 0 reports every fourth node, the first of them at 0 percent, and the end is reported.
  EXPECT_EQ(run(4, Collect), 0);
  EXPECT_EQ(toldPercentages.size(), 64u);
  EXPECT_EQ(run(0, StopAtForty), -7);
  EXPECT_EQ(toldPercentages.back(), 40);
  EXPECT_EQ(run(0, AbortAtForty), -1000);
  EXPECT_EQ(toldPercentages.back(), 40);
  // A threaded estimation does all its nodes.
  EXPECT_EQ(run(2, AbortAtForty), -1000);
  EXPECT_EQ(toldPercentages.back(), 99);
}

// Runs with each allocation failing once: the run tells it, hands nothing out and leaks nothing (a leak is for the
// sanitised build to find).
template <typename Records, typename Change>
void FailEachAllocation(int nthreads, const Change& change, const Records& make) {
  int failures = 0;
  for (long k = 0;; ++k) {
    ASSERT_LT(k, 1000);
    auto records = make();
    change(records->input);
    int status;
    bool happened;
    {
      const kestrum_test::FailAllocation failing(k);
      status = records->Run(nthreads);
      happened = failing.Happened();
    }
    if (!happened) {
      EXPECT_EQ(status, 0);
      break;
    }
    ++failures;
    EXPECT_TRUE(status == -1 || status == -2) << k << ": " << status;
    EXPECT_EQ(records->output.outputImage, nullptr);
  }
  EXPECT_GT(failures, 15);
}

TEST(RunDriver, EveryAllocationMayFail) {
  const VORL_GRID grid = MakeGrid(12, 10, 1);
  const auto continuous = [&] {
    return std::make_unique<RunRecords>(grid, kModel,
                                        std::vector<Datum>{{0, 0, 0, 1.0}, {5, 3, 0, 4.0}, {7, 8, 0, 2.0}});
  };
  const auto categorical = [&] {
    std::vector<real> data(120, VORL_MISSING_VALUE);
    data[7] = 1.0;
    data[77] = 2.0;
    return std::make_unique<IndicatorRunRecords>(grid, kModel, std::vector<real>{1.0, 2.0}, data);
  };
  for (const int nthreads : {0, 2}) {
    FailEachAllocation(
        nthreads, [](auto&) {}, continuous);
    FailEachAllocation(
        nthreads, [](auto& input) { input.searchRadiusRelative = -1.0; }, continuous);
    FailEachAllocation(
        nthreads, [](auto& input) { input.computationMode = KESTRUM_SIM_OK; }, continuous);
    FailEachAllocation(
        nthreads, [](auto& input) { input.searchRadiusRelative[1] = -1.0; }, categorical);
    FailEachAllocation(
        nthreads, [](auto& input) { input.computationMode = KESTRUM_SIM_SK; }, categorical);
  }
}

// Proportions of the data, which stay in the record, and what each run of a categorical variable hands out.
TEST(RunDriver, IndicatorProportions) {
  const VORL_GRID grid = MakeGrid(4, 1, 1);
  const real m = VORL_MISSING_VALUE;
  const struct {
    std::vector<real> categories, data;
    int status;
    std::vector<real> proportion;
  } cases[] = {
      {{1, 2, 3}, {1, 3, 1, m}, 0, {2.0 / 3, 0.0, 1.0 / 3}},
      {{1, 2, 3}, {1, 5, 1, m}, -71115, {}},
      {{1, 2, 3, 4}, {m, m, m, m}, 0, {0.25, 0.25, 0.25, 0.25}},
      {{2}, {2, 0, 0, m}, 0, {1.0 / 3}},
      {{2}, {2, 0, 1, m}, -71116, {}},
      {{2}, {m, m, m, m}, 0, {0.5}},
  };
  for (const auto& c : cases) {
    for (const int nthreads : {0, 2}) {
      for (const auto mode : {KESTRUM_OK, KESTRUM_SIM_SK}) {
        IndicatorRunRecords records(grid, kModel, c.categories, c.data);
        records.input.computationMode = mode;
        records.input.nrealization = 7;
        EXPECT_EQ(records.Run(nthreads), c.status);
        EXPECT_EQ(records.input.ndataImage, 0);
        for (std::size_t i = 0; i < c.proportion.size(); ++i) {
          EXPECT_DOUBLE_EQ(records.input.probabilityValue[i], c.proportion[i]);
        }
        ASSERT_EQ(records.output.outputImage != nullptr, c.status == 0);
        if (c.status != 0) continue;
        const VORL_IMAGE& image = *records.output.outputImage;
        const int ncategory = static_cast<int>(c.categories.size());
        EXPECT_EQ(image.nvar, mode == KESTRUM_OK ? ncategory : 7);
        EXPECT_STREQ(image.varName[0], mode == KESTRUM_OK ? "v_prob000" : "v_real00000");
        // The datum at node 0, told as a probability of 1 or as itself.
        if (c.data[0] != m) {
          for (int v = 0; v < image.nvar; ++v) {
            const real certain = c.categories[v % ncategory] == c.data[0] ? 1.0 : 0.0;
            EXPECT_EQ(image.var[v * 4], mode == KESTRUM_OK ? certain : c.data[0]);
          }
        }
      }
    }
  }
  EXPECT_EQ(VORLOMPKestrumIndicatorSim(nullptr, nullptr, nullptr, nullptr, 0), -99);
}

}  // namespace
