#ifndef KESTRUM_ANALYSIS_POINT_VARIOGRAM_HPP
#define KESTRUM_ANALYSIS_POINT_VARIOGRAM_HPP

#include <cstdint>

#include "analysis/point_pairs.hpp"
#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// Scattered values.
struct ScatteredValues {
  int n;                      // below 2^31 - kPairLanes
  int dimension;              // 2 or 3
  const double* coordinates;  // n rows of `dimension` finite numbers
  const double* value;        // n finite numbers
  const double* other;        // n values of a second variable, for a cross-variogram; null for none
};

// A double cone about a direction, cut by a cylinder. What lies on its border by rounding belongs to it.
struct DirectionCone {
  double axis[3];    // of length 1
  double cosine;     // of the half-angle, which is at most 90 degrees
  double bandwidth;  // radius of the cylinder; infinity for none
};

// Which pairs make a variogram. Lag k holds pairs at a distance in (k * lag, (k + 1) * lag].
struct PointVariogramOptions {
  double lag;  // above 0
  int nlag;    // at least 1
  VariogramEstimator estimator;
  const DirectionCone* cones;
  int ncone;  // 0 for all directions, in one row
};

// The results: rows of nlag numbers, a row for each cone.
struct PointVariogram {
  double* distance;          // mean of the pairs; NaN where there is none
  double* gamma;             // likewise
  std::int64_t* pairs;       // their number
  std::int64_t* coincident;  // one number: pairs at distance 0, which are in no lag
};

// Computes an experimental variogram: for differences d of the N pairs of a lag
//   mean d^2 / 2 (G. Matheron, Principles of geostatistics, Economic Geology 58, 1963),
//   (mean sqrt|d|)^4 / (0.457 + 0.494 / N + 0.045 / N^2) / 2 (N. Cressie and D. M. Hawkins, Robust estimation of the
//     variogram: I, Mathematical Geology 12, 1980),
//   or mean |d| / 2, the madogram;
// for two variables mean d e / 2. Only pairs of near cells are looked at. The sums have one order for any number of
// threads. Progress is that of one realization; a set abort flag ends the work. Returns 0, kAborted, what the
// progress callback gives, or the status of a failed allocation.
[[nodiscard]] int ComputePointVariogram(const ScatteredValues& data, const PointVariogramOptions& options,
                                        const Dealing& dealing, const Progress& progress,
                                        const PointVariogram& result) noexcept;

}  // namespace kestrum

#endif
