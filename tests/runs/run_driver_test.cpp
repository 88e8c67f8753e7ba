#include "runs/run_driver.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <numeric>
#include <sstream>
#include <string>
#include <vector>

#include "engine/problem.hpp"
#include "support/allocation_failure.hpp"
#include "support/run_builder.hpp"
#include "support/text_stream.hpp"

namespace {

using namespace kestrum_test;

const std::vector<Element> kModel = {{COV_SPHERICAL, 1.0, 4.0, 4.0, 4.0}};

// A folder for the files of a test.
class RunDriver : public ::testing::Test {
 protected:
  const std::filesystem::path folder = ::testing::TempDir() + "kestrum_" + std::to_string(getpid());
  const std::string file = folder / "file";

  void SetUp() override { std::filesystem::create_directory(folder); }
  void TearDown() override { std::filesystem::remove_all(folder); }
};

std::string ReadAndRemove(const std::string& name) {
  std::stringstream text;
  text << std::ifstream(name).rdbuf();
  std::filesystem::remove(name);
  return text.str();
}

template <typename Input>
void SetOutput(Input& input, VORL_KESTRUMOUTPUTMODE mode, const std::string& name) {
  input.outputMode = mode;
  input.outputImageFileName = NewText(name);
}

// The times of a report vary: their digits become #.
std::string HideTimes(std::string report) {
  for (std::size_t at = report.find("CPU time"); at != std::string::npos; at = report.find("CPU time", at + 1)) {
    const std::size_t number = report.find(": ", at) + 2;
    report.replace(number, report.find('\n', number) - number, "#");
  }
  return report;
}

TEST_F(RunDriver, ReportIsExact) {
  const std::string stars(80, '*'), equals(80, '=');
  for (const int nthreads : {0, 2}) {
    RunRecords records(MakeGrid(5, 1, 1), kModel, {{0, 0, 0, 1.0}, {7, 0, 0, 1.0}});
    records.input.outputReportFlag = TRUE;
    records.input.outputReportFileName = NewText(file);
    const std::string input = Printed(VORLKestrumPrintKestrumInput, &records.input, "   ");
    ASSERT_EQ(records.Run(nthreads), 0);
    const std::string form = nthreads == 0 ? "Serial" : "OpenMP 2 thread(s)";
    const std::string expected =
        stars + "\nKESTRUM VERSION 2.0 / BUILD NUMBER 20240322 / " + form + "\n" + stars + "\n" + equals +
        "\nkestrumInput:\n" + input + equals + "\n" + equals + "\nCPU time (sec), in total" + std::string(44, ' ') +
        ": #\n" + equals + "\n" + equals + "\nWarnings encountered (1 times in all):\n#  1: WARNING 00042: " +
        "conditioning location(s) has(have) been ignored from data point set (out of the simulation grid!)\n" + equals +
        "\n";
    EXPECT_EQ(HideTimes(ReadAndRemove(file)), expected);
  }
}

TEST_F(RunDriver, WritesFilesByOutputMode) {
  const std::string header = "3 1 1 1.000000 1.000000 1.000000 0.000000 0.000000 0.000000\n";
  for (const bool console : {false, true}) {
    for (const auto mode : {KESTRUM_OUTPUT_NO_FILE, KESTRUM_OUTPUT_ALL_IN_ONE_FILE, KESTRUM_OUTPUT_SEPARATE_FILE}) {
      RunRecords records(MakeGrid(3, 1, 1), {{COV_SPHERICAL, 1.0, 1.0, 1.0, 1.0}}, {{0, 0, 0, 4.0}});
      records.input.consoleAppFlag = console ? TRUE : FALSE;
      SetOutput(records.input, mode, file);
      ASSERT_EQ(records.Run(), 0);
      EXPECT_EQ(records.output.outputImage != nullptr, !console);
      // The lone datum is the mean; its neighbour lies at the range, so that it does not know it.
      if (mode == KESTRUM_OUTPUT_ALL_IN_ONE_FILE) {
        EXPECT_EQ(ReadAndRemove(file), header + "2\nv_est\nv_std\n4 0\n4 1.414213562\n4 1\n");
      }
      if (mode == KESTRUM_OUTPUT_SEPARATE_FILE) {
        EXPECT_EQ(ReadAndRemove(file + "_est.gslib"), header + "1\nv_est\n4\n4\n4\n");
        EXPECT_EQ(ReadAndRemove(file + "_std.gslib"), header + "1\nv_std\n0\n1.414213562\n1\n");
      }
      EXPECT_TRUE(std::filesystem::is_empty(folder));
    }
  }
}

// What a run does to its input record, and the exact refusals. Each row also runs threaded.
TEST_F(RunDriver, StatusesAndRewrittenInput) {
  const VORL_GRID grid = MakeGrid(6, 4, 1);
  const struct {
    const char* name;
    std::function<void(RunRecords&)> change;
    int status;
  } cases[] = {
      {"Sound", [](RunRecords&) {}, 0},
      {"DataOnAnotherGrid",
       [](RunRecords& r) {
         r.input.ndataImage = 1;
         r.input.dataImage = NewImage(MakeGrid(2, 1, 1), {1.0});
       },
       -150},
      {"BrokenRule", [](RunRecords& r) { r.input.nneighborMax = 0; }, -71062},
      {"NoReport",
       [](RunRecords& r) {
         r.input.outputReportFlag = TRUE;
         r.input.outputReportFileName = NewText("/nowhere/at/all");
       },
       -110},
      {"NoReportName", [](RunRecords& r) { r.input.outputReportFlag = TRUE; }, -110},
      {"FullDiskForReport",
       [](RunRecords& r) {
         r.input.outputReportFlag = TRUE;
         r.input.outputReportFileName = NewText("/dev/full");
       },
       -110},
      {"FullDiskForResult", [](RunRecords& r) { SetOutput(r.input, KESTRUM_OUTPUT_ALL_IN_ONE_FILE, "/dev/full"); },
       -110},
      {"NoResultFile", [](RunRecords& r) { SetOutput(r.input, KESTRUM_OUTPUT_ALL_IN_ONE_FILE, "/no/where"); }, -110},
      {"NoSeparateFile", [](RunRecords& r) { SetOutput(r.input, KESTRUM_OUTPUT_SEPARATE_FILE, "/no/where"); }, -110},
      {"Aborted", [](RunRecords& r) { r.monitor.abortedJobFlag = TRUE; }, -1000},
      {"Simulation", [](RunRecords& r) { r.input.computationMode = KESTRUM_SIM_OK; }, 0},
      {"NoRealization",
       [](RunRecords& r) {
         r.input.computationMode = KESTRUM_SIM_SK;
         r.input.nrealization = -1;
         SetOutput(r.input, KESTRUM_OUTPUT_ALL_IN_ONE_FILE, "/dev/null");
       },
       0},
      {"WrongProducts", [](RunRecords& r) { r.input.simGrid->nxyz = 1000; }, -601},
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
        EXPECT_TRUE(records.input.dataPointSet == nullptr && records.input.ndataPointSet == 0);
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
  EXPECT_TRUE(empty.output.outputImage->var[3] == 0.0 && empty.output.outputImage->var[24 + 3] == 1.0);
  EXPECT_EQ(VORLOMPKestrumSim(nullptr, nullptr, nullptr, nullptr, 0), -99);
  EXPECT_EQ(VORLOMPKestrumIndicatorSim(nullptr, nullptr, nullptr, nullptr, 0), -99);
  VORLKestrumFreeKestrumInput(nullptr);
  VORLKestrumFreeKestrumOutput(nullptr);
}

// Callbacks that record the progress they are given.
std::vector<int> percentages;
int Collect(VORL_PROGRESSMONITOR* monitor) {
  percentages.push_back(monitor->allRealizationProgress);
  return 0;
}
int StopAtForty(VORL_PROGRESSMONITOR* monitor) { return Collect(monitor), percentages.back() >= 40 ? -7 : 0; }
int AbortAtForty(VORL_PROGRESSMONITOR* monitor) {
  monitor->abortedJobFlag = StopAtForty(monitor) != 0;
  return 0;
}

// The answers to an estimation, a simulation, and one of categories.
TEST_F(RunDriver, ProgressAndItsAnswers) {
  const auto run = [](int kind, int nthreads, int (*callback)(VORL_PROGRESSMONITOR*)) {
    percentages.clear();
    const std::vector<Datum> data = {{kind == 0 ? 100 : 9, 0, 0, 1.0}};
    RunRecords records(MakeGrid(kind == 0 ? 257 : 61, 1, 1), kModel, data);
    IndicatorRunRecords categorical(MakeGrid(60, 1, 1), kModel, {1.0, 2.0}, {});
    records.input.computationMode = kind == 0 ? KESTRUM_OK : KESTRUM_SIM_SK;
    categorical.input.computationMode = KESTRUM_SIM_SK;
    records.input.nrealization = categorical.input.nrealization = 2;
    return kind == 2 ? categorical.Run(nthreads, callback) : records.Run(nthreads, callback);
  };
  std::vector<int> all(100);
  std::iota(all.begin(), all.end(), 1);
  for (const int kind : {0, 1, 2}) {
    for (const int nthreads : {0, 1, 2, 4}) {
      SCOPED_TRACE(std::to_string(kind) + " " + std::to_string(nthreads));
      EXPECT_EQ(run(kind, nthreads, Collect), 0);
      if (kind == 0 && nthreads == 4) {  // thread 0 reports every fourth node, and the end is reported
        EXPECT_EQ(percentages.size(), 64u);
        continue;
      }
      // Every percentage that the nodes can reach, in order, whatever the number of threads.
      EXPECT_EQ(percentages, all);
      // A threaded estimation ends at the next chunk, a threaded simulation with the realization.
      EXPECT_EQ(run(kind, nthreads, AbortAtForty), -1000);
      EXPECT_EQ(percentages.back(), nthreads == 0 ? 40 : 49);
      if (kind == 0 && nthreads > 0) continue;
      EXPECT_EQ(run(kind, nthreads, StopAtForty), -7);
      EXPECT_EQ(percentages.back(), 40);
    }
  }
}

// Runs with each allocation failing once: the run reports it, of each list of neighbours the five arrays that are made
// smaller in another way, hands nothing out and leaks nothing (a leak is for the sanitised build to find).
template <typename Make>
void FailEachAllocation(int nthreads, int nlist, bool factorising, const Make& make) {
  int nmalloc = 0, nrealloc = 0;
  for (bool happened = true; happened;) {
    const auto records = make();
    int status;
    {
      const FailAllocation failing(nmalloc + nrealloc);
      status = factorising ? records->Factorise(nthreads) : records->Run(nthreads);
      happened = failing.Happened();
    }
    if (happened) ++(status == -2 ? nrealloc : nmalloc);
    ASSERT_TRUE(happened ? status == -1 || status == -2 : status == 0) << status;
    EXPECT_EQ(records->output.outputImage == nullptr, happened);
    EXPECT_TRUE(records->monitor.nwarning == 0 && !records->monitor.abortedJobFlag);
  }
  EXPECT_GT(nmalloc, 20);
  EXPECT_EQ(nrealloc, 5 * nlist);
}

TEST_F(RunDriver, EveryAllocationMayFail) {
  const VORL_GRID grid = MakeGrid(12, 10, 1);
  const real m = VORL_MISSING_VALUE;
  std::vector<real> bounds(240, m), events(120, m);
  bounds[30] = bounds[31] = -0.5;
  bounds[120 + 31] = bounds[120 + 75] = 3.0;
  events[7] = 1.0;
  events[77] = 2.0;
  const std::vector<Datum> data = {{0, 0, 0, 1.0}, {5, 3, 0, 4.0}, {7, 8, 0, 2.0}};
  // So many neighbours that a search among the few data pays.
  const std::vector<Element> wide = {{COV_SPHERICAL, 1.0, 8.0, 8.0, 8.0}};
  for (const int nthreads : {0, 1, 2, 3}) {
    const bool factorising = nthreads == 2;
    for (const auto mode : {KESTRUM_OK, KESTRUM_SK, KESTRUM_SIM_OK, KESTRUM_SIM_SK}) {
      const bool simulation = mode == KESTRUM_SIM_OK || mode == KESTRUM_SIM_SK;
      const bool ordinary = mode == KESTRUM_OK || mode == KESTRUM_SIM_OK;
      for (const bool unique : {false, true}) {
        if (unique && simulation) continue;
        if (factorising && (mode == KESTRUM_SK || mode == KESTRUM_SIM_OK)) continue;
        SCOPED_TRACE(std::to_string(nthreads) + " " + std::to_string(mode) + (unique ? " unique" : ""));
        const auto prepared = [&](auto records) {
          records->input.computationMode = mode;
          SetOutput(records->input, ordinary ? KESTRUM_OUTPUT_ALL_IN_ONE_FILE : KESTRUM_OUTPUT_SEPARATE_FILE, file);
          records->input.outputReportFlag = TRUE;
          records->input.outputReportFileName = NewText(file + ".txt");
          return records;
        };
        FailEachAllocation(nthreads, unique ? 0 : 1, factorising, [&] {
          auto records = prepared(std::make_unique<RunRecords>(grid, wide, data));
          if (unique) records->input.searchRadiusRelative = -1.0;
          if (factorising) records->input.nneighborMax = 170;  // with room for a factor of a large system
          if (!simulation) return records;
          records->input.ndataImage = 1;
          records->input.dataImage = NewImage(grid, bounds, {"v_min", "v_max"});
          return records;
        });
        FailEachAllocation(nthreads, unique ? 1 : 2, factorising, [&] {
          auto records =
              prepared(std::make_unique<IndicatorRunRecords>(grid, wide, std::vector<real>{1.0, 2.0}, events));
          if (unique) records->input.searchRadiusRelative[1] = -1.0;
          if (mode == KESTRUM_SIM_OK) records->SetModel(1, {{COV_EXPONENTIAL, 1.0, 3.0, 3.0, 3.0}});
          return records;
        });
      }
    }
  }
}

// A grid so large that threads share the passes over its nodes, with data on it and a mask: the same values.
TEST_F(RunDriver, ThreadsShareALargeGrid) {
  const VORL_GRID grid = MakeGrid(411, 333, 1);
  ASSERT_GE(grid.nxyz, kestrum::Dealing::kWorthATeam);
  std::vector<std::vector<real>> results;
  for (const int nthreads : {0, 1, 3}) {
    RunRecords records(grid, kModel, {{0, 0, 0, 1.0}, {200, 100, 0, 4.0}, {410, 332, 0, 2.0}});
    records.input.computationMode = KESTRUM_SIM_SK;
    records.input.nneighborMax = 3;
    records.input.nrealization = 2;
    std::vector<real> mask(grid.nxyz, 1.0);
    for (int i = 1; i < grid.nxyz; i += 7) mask[i] = 0.0;
    records.input.maskImageFlag = TRUE;
    records.input.maskImage = NewImage(grid, mask);
    ASSERT_EQ(records.Run(nthreads), 0);
    const VORL_IMAGE& image = *records.output.outputImage;
    results.emplace_back(image.var, image.var + 2 * grid.nxyz);
    EXPECT_TRUE(results.back() == results[0]) << nthreads;
  }
}

// What a further thread takes grows with the grid by a bit a node alone.
TEST_F(RunDriver, ThreadsTakeABitANode) {
  const auto bytesOfTwoThreads = [](int side) {
    const auto bytes = [side](int nthreads) {
      RunRecords records(MakeGrid(side, side, 1), kModel, {{0, 0, 0, 1.0}});
      records.input.computationMode = KESTRUM_SIM_SK;
      records.input.nneighborMax = 2;
      records.input.nrealization = 1;
      return BytesAllocatedBy([&] { ASSERT_EQ(records.Factorise(nthreads), 0); });
    };
    return bytes(4) - bytes(2);
  };
  constexpr int kSmall = 400, kLarge = 800;
  constexpr long long kMoreNodes = kLarge * kLarge - kSmall * kSmall;
  const long long small = bytesOfTwoThreads(kSmall), large = bytesOfTwoThreads(kLarge);
  EXPECT_GT(small, 2 * kSmall * kSmall / 8);
  EXPECT_NEAR(static_cast<double>(large - small), 2 * kMoreNodes / 8, 1e4);
}

// Data that are no category are refused, and the proportions of the others stay in the record.
TEST_F(RunDriver, IndicatorProportions) {
  const real m = VORL_MISSING_VALUE;
  const struct {
    std::vector<real> categories, data;
    int status;
    std::vector<real> proportion;
  } cases[] = {{{1, 2, 3}, {1, 3, 1, m}, 0, {2.0 / 3, 0.0, 1.0 / 3}},
               {{1, 2, 3}, {1, 5, 1, m}, -71115, {}},
               {{1, 2, 3, 4}, {m, m, m, m}, 0, {0.25, 0.25, 0.25, 0.25}},
               {{2}, {2, 0, 0, m}, 0, {1.0 / 3}},
               {{2}, {2, 0, 1, m}, -71116, {}},
               {{2}, {m, m, m, m}, 0, {0.5}}};
  for (const auto& c : cases) {
    IndicatorRunRecords records(MakeGrid(4, 1, 1), kModel, c.categories, c.data);
    EXPECT_EQ(records.Run(2), c.status);
    EXPECT_TRUE(records.input.ndataImage == 0 && (records.output.outputImage != nullptr) == (c.status == 0));
    for (std::size_t i = 0; i < c.proportion.size(); ++i) {
      EXPECT_DOUBLE_EQ(records.input.probabilityValue[i], c.proportion[i]);
    }
  }
}

// All probabilities of a node come out as zero, which a warning reports: its answer ends the threaded form alone.
TEST_F(RunDriver, AnswersToAWarning) {
  const real m = VORL_MISSING_VALUE;
  const auto stop = [](VORL_PROGRESSMONITOR* monitor) { return monitor->warningNumber == 2020 ? -5 : 0; };
  for (const auto mode : {KESTRUM_SIM_SK, KESTRUM_SK}) {
    for (const int nthreads : {0, 2}) {
      // The weights of the two data add up to more than 1, which cuts the first category to 0.0; the second is 0.0 at
      // the data as well, and the data mean nothing to the third.
      IndicatorRunRecords records(MakeGrid(3, 1, 1), {{COV_GAUSSIAN, 1.0, 9.0, 9.0, 9.0}}, {1, 2, 3}, {3, m, 3});
      records.SetModel(2, {{COV_NUGGET, 1.0, 1.0, 1.0, 1.0}});
      records.input.computationMode = mode;
      records.input.probabilityUsage = 1;
      records.input.probabilityValue = NewVector<real>({1.0, 0.0, 0.0});
      EXPECT_EQ(records.Run(nthreads, stop), nthreads == 0 ? 0 : -5);
    }
  }
}

}  // namespace
