#include "runs/conditioning.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/progress.hpp"
#include "runs/run_records.hpp"

using namespace kestrum_test;

namespace {

constexpr real M = kMissing;

// An input with nothing but data and mask, on a line of nodes.
class LineRun {
 public:
  explicit LineRun(int nnode) : grid_(MakeGrid(nnode, 1, 1)), status_(static_cast<std::size_t>(nnode), 99) {
    VORLKestrumInitKestrumInput(&input_);
    image_ = MakeImage(grid_, {M});
    VORLInitProgressMonitor(&monitor);
  }
  LineRun(const LineRun&) = delete;
  LineRun& operator=(const LineRun&) = delete;
  ~LineRun() {
    VORLKestrumFreeKestrumInput(&input_);
    VORLFreeImage(&image_);
    VORLFree(min_);
    VORLFree(max_);
  }

  void AddImage(const std::vector<std::string>& names, const std::vector<real>& values) {
    images_.push_back(MakeImage(grid_, values, names));
    VORLFree(input_.dataImage);  // the vector alone
    input_.dataImage = NewVector(images_);
    ++input_.ndataImage;
  }
  void AddPoints(const std::vector<real>& x, const std::vector<std::string>& names, const std::vector<real>& values) {
    points_.push_back(MakePoints(x, names, values));
    Replace(input_.dataPointSet, NewVector(points_));
    ++input_.ndataPointSet;
  }
  void SetMask(const std::vector<real>& values) {
    input_.maskImageFlag = TRUE;
    input_.maskImage = NewImage(grid_, values);
  }

  int Simulation() { return Integrate(&min_, &max_); }
  int Estimation() { return Integrate(nullptr, nullptr); }

  const std::vector<int>& nodeStatus() const { return status_; }
  std::vector<real> values() const { return Values(image_.var); }
  std::vector<real> min() const { return Values(min_); }
  std::vector<real> max() const { return Values(max_); }
  // The distinct warnings, in order of their first occurrence.
  std::vector<int> warnings() const {
    return {monitor.warningNumberList, monitor.warningNumberList + monitor.nwarningNumber};
  }

  VORL_PROGRESSMONITOR monitor;
  int (*callback)(VORL_PROGRESSMONITOR*) = VORLUpdateProgressMonitor0;
  int ndata = 99;

 private:
  int Integrate(real** min, real** max) {
    Release(min_);
    Release(max_);
    return VORLKestrumIntegrateConditioningData(&input_, &image_, min, max, status_.data(), &ndata, &monitor, callback);
  }
  std::vector<real> Values(const real* values) const {
    return values == nullptr ? std::vector<real>() : std::vector<real>(values, values + status_.size());
  }

  VORL_GRID grid_;
  VORL_KESTRUMINPUT input_;
  VORL_IMAGE image_;
  real* min_ = nullptr;
  real* max_ = nullptr;
  std::vector<int> status_;
  std::vector<VORL_IMAGE> images_;
  std::vector<VORL_POINTSET> points_;
};

TEST(Conditioning, BoundsAreReconciledWithValues) {
  const struct {
    real value, min, max;
    int status, nodeStatus;
    real valueAfter, minAfter, maxAfter;
    int warning;
  } rows[] = {
      {M, M, M, 0, 1, M, M, M, 0},    {5, M, M, 0, 0, 5, M, M, 0},    {M, 2, M, 0, -1, M, 2, M, 0},
      {M, M, 8, 0, -2, M, M, 8, 0},   {M, 2, 8, 0, -3, M, 2, 8, 0},   {M, 4, 4, 0, 0, 4, M, M, 63},
      {5, 2, M, 0, 0, 5, M, M, 61},   {5, 5, M, 0, 0, 5, M, M, 61},   {5, M, 8, 0, 0, 5, M, M, 62},
      {5, M, 5, 0, 0, 5, M, M, 62},   {5, 2, 8, 0, 0, 5, M, M, 60},   {5, 5, 5, 0, 0, 5, M, M, 60},
      {5, 6, M, -191, 0, 5, 6, M, 0}, {5, M, 4, -192, 0, 5, M, 4, 0}, {5, 6, 8, -191, 0, 5, 6, 8, 0},
      {5, 2, 4, -192, 0, 5, 2, 4, 0}, {5, 8, 2, -190, 0, 5, 8, 2, 0}, {M, 8, 2, -190, 1, M, 8, 2, 0},
      {5, 6, 6, -191, 0, 5, 6, 6, 0}, {5, 4, 4, -192, 0, 5, 4, 4, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.value) + " in [" + std::to_string(row.min) + ", " + std::to_string(row.max) + "]");
    LineRun run(1);
    run.AddImage({"v", "v_min", "v_max"}, {row.value, row.min, row.max});
    EXPECT_EQ(run.Simulation(), row.status);
    EXPECT_EQ(run.nodeStatus()[0], row.nodeStatus);
    EXPECT_EQ(run.values()[0], row.valueAfter);
    EXPECT_EQ(run.min()[0], row.minAfter);
    EXPECT_EQ(run.max()[0], row.maxAfter);
    EXPECT_EQ(run.warnings(), row.warning == 0 ? std::vector<int>() : std::vector<int>{row.warning});
    EXPECT_EQ(run.ndata, row.status == 0 && row.nodeStatus == 0 ? 1 : 0);
  }
}

// Everything at once: the order of the warnings, and each of the last ones once in spite of two occasions for 61.
TEST(Conditioning, WarningsComeInTheirOrder) {
  LineRun run(9);
  //                   0  1  2  3  4  5  6  7  8
  run.AddImage({"v", "other"}, {1, 2, 3, M, M, M, M, M, M,  //
                                7, 7, 7, 7, 7, 7, 7, 7, 7});
  run.AddImage({"v", "v_min"}, {M, 4, M, M, M, M, M, M, 1,  //
                                0, 0, 0, 6, 7, M, M, M, 9});
  run.AddPoints({0.1, 9.5, 2.5, 3.5, 4.5, 5.5, 5.6, 6.5}, {"v_max", "w", "v"}, {M, M, 5, 6, 8, M, M, 2,  //
                                                                                1, 1, 1, 1, 1, 1, 1, 1,  //
                                                                                M, 1, M, M, M, 3, 4, M});
  run.SetMask({1, 1, 1, 1, 1, 1, 1, 1, 0});
  EXPECT_EQ(run.Simulation(), 0);
  EXPECT_EQ(run.warnings(), (std::vector<int>{44, 45, 43, 42, 41, 40, 60, 61, 63}));
  EXPECT_EQ(run.monitor.nwarning, 9);
  EXPECT_EQ(run.monitor.warningNumber, 0);
  EXPECT_EQ(run.nodeStatus(), (std::vector<int>{0, 0, 0, 0, -3, 0, -2, 1, 1}));
  EXPECT_EQ(run.values(), (std::vector<real>{1, 4, 3, 6, M, 4, M, M, M}));
  EXPECT_EQ(run.min(), (std::vector<real>{M, M, M, M, 7, M, M, M, M}));
  EXPECT_EQ(run.max(), (std::vector<real>{M, M, M, M, 8, M, 2, M, M}));
  EXPECT_EQ(run.ndata, 5);
}

TEST(Conditioning, MaskWithoutDataUnderItIsSilent) {
  LineRun run(2);
  run.SetMask({1, 0});
  EXPECT_EQ(run.Simulation(), 0);
  EXPECT_EQ(run.nodeStatus(), (std::vector<int>{1, 1}));
  EXPECT_EQ(run.ndata, 0);
  EXPECT_TRUE(run.warnings().empty());
  // A bound under the mask counts as data that are removed.
  LineRun bounded(2);
  bounded.AddImage({"v_max"}, {M, 1});
  bounded.SetMask({1, 0});
  EXPECT_EQ(bounded.Simulation(), 0);
  EXPECT_EQ(bounded.warnings(), std::vector<int>{40});
  EXPECT_EQ(bounded.max(), (std::vector<real>{M, M}));
}

TEST(Conditioning, CallersCanStopAtEveryWarning) {
  const auto refuse = [](VORL_PROGRESSMONITOR* monitor) { return monitor->warningNumber == 61 ? 5 : 0; };
  const auto abort = [](VORL_PROGRESSMONITOR* monitor) {
    monitor->abortedJobFlag = monitor->warningNumber == 61;
    return 0;
  };
  const struct {
    int (*callback)(VORL_PROGRESSMONITOR*);
    int status;
  } rows[] = {{refuse, 5}, {abort, -1000}, {nullptr, 0}};
  for (const auto& row : rows) {
    LineRun run(2);
    run.callback = row.callback;
    run.AddImage({"v", "v_min"}, {1, 1, 0, 0});
    EXPECT_EQ(run.Simulation(), row.status);
    EXPECT_EQ(run.monitor.warningNumber, 0);
  }
  LineRun run(2);
  run.AddPoints({0.5}, {"v"}, {1});
  run.monitor.abortedJobFlag = TRUE;
  EXPECT_EQ(run.Estimation(), -1000);
  EXPECT_EQ(kestrum::Progress(nullptr, VORLUpdateProgressMonitor0).Warn(61), 0);
}

struct Path {
  std::vector<int> nodes;
  int firstInequality = 99, firstSimulated = 99, nsimulated = 99;
};

Path PreparePath(std::vector<int> status, std::vector<real> mask) {
  Path path;
  const int nnode = static_cast<int>(status.size());
  path.nodes.assign(status.size() + 1, 99);  // one more, to see that it is not touched
  VORL_IMAGE maskImage{nullptr, 1, nnode, nullptr, mask.data()};
  EXPECT_EQ(VORLSKestrumPrepareSimulationPath(mask.empty() ? nullptr : &maskImage, status.data(), nnode,
                                              path.nodes.data(), &path.firstInequality, &path.firstSimulated,
                                              &path.nsimulated, nullptr, nullptr),
            0);
  EXPECT_EQ(path.nodes.back(), 99);
  path.nodes.pop_back();
  return path;
}

// All combinations of a status and a mask value on up to 5 nodes.
TEST(Conditioning, PathHasItsThreeSegments) {
  const int statuses[] = {1, 0, -1, -3};
  for (int nnode = 0; nnode <= 5; ++nnode) {
    for (int code = 0; code < 1 << (3 * nnode); ++code) {
      std::vector<int> status;
      std::vector<real> mask;
      std::vector<int> segments[3];
      for (int i = 0; i < nnode; ++i) {
        status.push_back(statuses[(code >> (3 * i)) & 3]);
        mask.push_back((code >> (3 * i + 2)) & 1 ? 0.0 : 1.0);
        segments[status.back() == 0 || mask.back() == 0.0 ? 0 : status.back() < 0 ? 1 : 2].push_back(i);
      }
      Path path = PreparePath(status, mask);
      ASSERT_EQ(path.firstInequality, static_cast<int>(segments[0].size()));
      ASSERT_EQ(path.firstSimulated, nnode - static_cast<int>(segments[2].size()));
      ASSERT_EQ(path.nsimulated, static_cast<int>(segments[2].size()));
      if (segments[1].empty()) {
        std::reverse(segments[2].begin(), segments[2].end());
      } else {
        std::sort(path.nodes.begin() + path.firstInequality, path.nodes.begin() + path.firstSimulated);
        std::sort(path.nodes.begin() + path.firstSimulated, path.nodes.end());
      }
      std::vector<int> expected;
      for (const auto& segment : segments) expected.insert(expected.end(), segment.begin(), segment.end());
      ASSERT_EQ(path.nodes, expected);
    }
  }
}

// The exchanges followed by hand; without a mask.
TEST(Conditioning, PathExchangesInequalityNodesInAFixedOrder) {
  const Path path = PreparePath({1, -1, 0, 1, -2, 1, -3}, {});
  // Back part after the first pass: 6 5 4 3 1 0, behind node 2. Node 1 changes places with 6, then 6 with 5; 4 is met
  // last and stays.
  EXPECT_EQ(path.nodes, (std::vector<int>{2, 1, 6, 4, 3, 5, 0}));
  EXPECT_EQ(path.firstInequality, 1);
  EXPECT_EQ(path.firstSimulated, 4);
  EXPECT_EQ(path.nsimulated, 3);
}

}  // namespace
