#ifndef KESTRUM_ANALYSIS_LAG_SUMS_HPP
#define KESTRUM_ANALYSIS_LAG_SUMS_HPP

#include <cstddef>

#include "core/missing_mark.hpp"
#include "core/progress.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

enum class TwoPointStatistic {
  kVariogram,
  kCovariance,
  kCovarianceNotCentred,
  kCorrelogram,
  kTransiogram,
  kConnectivityFunction0,
  kConnectivityFunction1,
  kConnectivityFunction2
};

// The connectivity functions take a missing value as background.
constexpr bool LeavesMissingOut(TwoPointStatistic statistic) noexcept {
  return statistic < TwoPointStatistic::kConnectivityFunction0;
}

// Number of sums of a statistic. The first is the same for a lag and its opposite; the others come in pairs, the one
// of the tails and the one of the heads, which change places. Both of ConnectivityFunction2 are of the first kind.
constexpr int SumCount(TwoPointStatistic statistic) noexcept {
  switch (statistic) {
    case TwoPointStatistic::kCovariance:
    case TwoPointStatistic::kTransiogram:
    case TwoPointStatistic::kConnectivityFunction1:
      return 3;
    case TwoPointStatistic::kConnectivityFunction2:
      return 2;
    case TwoPointStatistic::kCorrelogram:
      return 5;
    default:
      return 1;
  }
}
constexpr int kMaxSums = 5;

// Lags that a kernel takes at once. They follow each other along the lane axis, a step apart.
constexpr int kLagRun = 32;

// The sums of a run of lags. `pairs` counts pairs without a missing end, for a variable that has missing values; it is
// not set for others.
struct LagSums {
  double sum[kMaxSums][kLagRun];
  double pairs[kLagRun];
};

// The variable, twice: as it is, for the tails, and rearranged for the heads, such that the heads of one tail at the
// lags of a run lie side by side. Position p along the lane axis has the index
//   (p + margin) % step * phaseStride + (p + margin) / step
// from the start of its line; headStride holds the strides along the other axes, and 0 for the lane axis. Positions out
// of the grid are marked as missing; so do missing nodes, but not where the variable is taken as one without them.
struct PairField {
  const double* tails;
  const double* heads;
  int n[3];
  int laneAxis;
  std::ptrdiff_t step;
  std::ptrdiff_t margin;
  std::ptrdiff_t phaseStride;
  std::ptrdiff_t headStride[3];
  bool hasMissing;
  MissingMark mark;
  Progress progress{nullptr, nullptr};  // sums of a job that is to stop are not completed
};

// Sums over the pairs of `count` lags, at most kLagRun, of which `lag` is the first, each in the order z, y, x of its
// tails.
using LagSumsKernel = void (*)(TwoPointStatistic statistic, const PairField& field, const int* lag, int count,
                               LagSums* sums) noexcept;
LagSumsKernel LagSumsKernelOf(SimdLevel level) noexcept;

}  // namespace kestrum

#endif
