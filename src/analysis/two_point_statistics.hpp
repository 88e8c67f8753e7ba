#ifndef KESTRUM_ANALYSIS_TWO_POINT_STATISTICS_HPP
#define KESTRUM_ANALYSIS_TWO_POINT_STATISTICS_HPP

#include "analysis/lag_sums.hpp"
#include "core/image.h"
#include "core/parallel.hpp"
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

}  // namespace kestrum

#endif
