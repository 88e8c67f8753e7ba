#ifndef KESTRUM_ANALYSIS_POINT_PAIRS_HPP
#define KESTRUM_ANALYSIS_POINT_PAIRS_HPP

#include <cstddef>

#include "numeric/simd_level.hpp"

namespace kestrum {

// How the differences of a variable make a semivariance.
enum class VariogramEstimator { kMatheron, kCressie, kMadogram };

// A double cone about a direction, cut by a cylinder: holds differences at a distance h with an extent a along the axis
// if a^2 is at least h^2 leastAlong and h^2 leastInCylinder - squaredBandwidth.
struct PairCone {
  double axis[3];  // of length 1
  double leastAlong;
  double leastInCylinder;
  double squaredBandwidth;
};

// Points by cell, and the pairs to sum. Coordinates and values have kPairLanes further entries, which are read but not
// used.
struct PairScan {
  const double* at[3];  // no third in the plane
  const double* value;
  const double* other;  // a second variable; null for none
  // The cells: a point is in cell (coordinate - origin) * perUnit, cut to a whole number, along each axis. Cells are
  // numbered with the first axis fastest, and begin[cell] is the first point of a cell.
  double origin[3];
  double size[3];
  double perUnit[3];
  int ncell[3];
  const int* begin;
  double reach;   // a little more than the largest lag
  double margin;  // more than rounding moves a coordinate
  double lag;
  double perLag;
  int nlag;
  VariogramEstimator estimator;  // not used with a second variable
  const PairCone* cones;
  int ncone;  // 0 for all directions
};

// Sums over pairs of one lag.
struct alignas(32) PairSum {
  double distance;
  double term;  // the square, the root or the size of a difference; the product of those of two variables
  double pairs;
  double unused;
};

// Pairs are dealt out to this many lanes, each with sums of its own, so that the order of every sum is the same with
// any instruction set.
constexpr int kPairLanes = 8;
// Cones are looked at in groups. A pair is added once for a group: to the sums of the set of cones that hold it.
constexpr int kConeGroup = 4;
constexpr int kConeSets = 1 << kConeGroup;

// Bins of a set: 0 for pairs at distance 0, 1 to nlag for the lags, two for what is beyond.
constexpr std::ptrdiff_t PairBinCount(int nlag) { return static_cast<std::ptrdiff_t>(nlag) + 3; }
constexpr int ConeGroupCount(int ncone) { return ncone == 0 ? 1 : (ncone + kConeGroup - 1) / kConeGroup; }

// Adds the pairs of points begin to end - 1 with the points behind them. Sums are those of group, set, bin and lane,
// the last fastest; without cones there is one group with one set.
using PairKernel = void (*)(const PairScan& scan, std::ptrdiff_t begin, std::ptrdiff_t end, PairSum* sums) noexcept;
PairKernel PairKernelOf(const PairScan& scan, SimdLevel level) noexcept;

}  // namespace kestrum

#endif
