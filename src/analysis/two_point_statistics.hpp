#ifndef KESTRUM_ANALYSIS_TWO_POINT_STATISTICS_HPP
#define KESTRUM_ANALYSIS_TWO_POINT_STATISTICS_HPP

#include <cstdint>

#include "analysis/lag_sums.hpp"
#include "core/image.h"
#include "core/parallel.hpp"
#include "core/progress.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// The lags min, min + step, .. up to max along an axis.
struct LagAxis {
  int min;
  int max;
  int step;
};

struct LagBox {
  LagAxis axis[3];
};

// The one body of the public functions (two_point_statistics.h). `level` must run on this machine.
[[nodiscard]] int ComputeTwoPointStatistic(TwoPointStatistic statistic, const VORL_IMAGE& in, VORL_IMAGE* out,
                                           int varIndex, LagBox box, bool verbose, const Dealing& dealing,
                                           SimdLevel level = BestSimdLevel()) noexcept;

// What the variogram, covariance (centred or not) or correlogram of an array in which NaN is missing is made of, at all
// lags from -maxLag to maxLag, each below the number of nodes along its axis.
//   sums   out; SumCount(statistic) tables one after the other, each in the order of the lags, those along x the fastest:
//          of squared differences for the variogram; else of products, and then of tails, heads, and their squares
//   pairs  out; their numbers, in the order of the lags
[[nodiscard]] int ComputeTwoPointSums(TwoPointStatistic statistic, const VORL_GRID& grid, const double* values,
                                      const int (&maxLag)[3], const Dealing& dealing, const Progress& progress,
                                      double* sums, std::int64_t* pairs) noexcept;

}  // namespace kestrum

#endif
