#ifndef KESTRUM_NEIGHBORHOOD_PLACE_METRIC_HPP
#define KESTRUM_NEIGHBORHOOD_PLACE_METRIC_HPP

#include <algorithm>
#include <cmath>

#include "covariance/cov_evaluation.hpp"

namespace kestrum {

// How far two places lie apart: the sum of the squares of the lag's components along three axes, each times a weight.
// The weight of the axis with the longest range is 1, so that the distance is Euclid's if all ranges are equal.
struct PlaceMetric {
  bool rotated = false;                                   // else the axes are those of the coordinates
  double axis[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};  // by rows
  double weight[3] = {1, 1, 1};
  bool planar = false;  // no lag has a component along z

  // The metric in units of a range along each axis of the model; of lags in the plane if `dimension` is 2.
  //   ranges     above 0.0; one along an axis that no lag has a component of is not read
  //   rotation   null for none
  //   longest    out: the longest range, which is the length of what lies at a distance of 1; may be null
  static PlaceMetric FromRanges(const double* ranges, const Rotation* rotation, int dimension,
                                double* longest = nullptr) noexcept {
    PlaceMetric metric;
    metric.planar = dimension < 3;
    for (int a = 0; a < 3; ++a) {
      for (int b = 0; b < 3 && rotation != nullptr; ++b) metric.axis[a][b] = rotation->m[b][a];
    }
    const auto used = [&](int a) { return dimension > 2 || metric.axis[a][0] != 0.0 || metric.axis[a][1] != 0.0; };
    double greatest = 0.0;
    for (int a = 0; a < 3; ++a) {
      if (used(a)) greatest = std::max(greatest, ranges[a]);
    }
    bool isotropic = true;
    for (int a = 0; a < 3; ++a) {
      const double ratio = used(a) ? greatest / ranges[a] : 1.0;
      metric.weight[a] = ratio * ratio;
      isotropic = isotropic && ratio == 1.0;
    }
    metric.rotated = rotation != nullptr && !isotropic;
    if (longest != nullptr) *longest = greatest;
    return metric;
  }

  double Square(double dx, double dy, double dz) const noexcept {
    if (!rotated) return weight[0] * (dx * dx) + weight[1] * (dy * dy) + weight[2] * (dz * dz);
    double sum = 0.0;
    for (int a = 0; a < 3; ++a) {
      const double u = axis[a][0] * dx + axis[a][1] * dy + axis[a][2] * dz;
      sum += weight[a] * (u * u);
    }
    return sum;
  }

  // What no lag is longer than whose components along the axes of the coordinates are so long at most.
  double Reach(const double* half) const noexcept {
    if (!rotated) return std::sqrt(Square(half[0], half[1], half[2]));
    double sum = 0.0;
    for (int a = 0; a < 3; ++a) {
      const double u = std::abs(axis[a][0]) * half[0] + std::abs(axis[a][1]) * half[1] + std::abs(axis[a][2]) * half[2];
      sum += weight[a] * (u * u);
    }
    return std::sqrt(sum);
  }

  double GreatestWeight() const noexcept { return std::max({weight[0], weight[1], weight[2]}); }

  // The length of a lag of 1 along an axis of the coordinates.
  double Scale(int b) const noexcept { return std::sqrt(Square(b == 0, b == 1, b == 2)); }
};

// The square of a distance that is longer by `reach` than one whose square is given, and longer still by more than the
// rounding of squares, of which there is none along turned axes, and of what underflows.
inline double WithinReach(double square, double reach) noexcept {
  const double distance = std::sqrt(square) + reach;
  return distance * distance * (1.0 + 0x1p-40) + 1e-290;
}

// Which data serve a target: the `limit` nearest, of data at one distance the earlier ones, or all; of those within an
// ellipsoid, if there is one.
struct PlaceNeighborhood {
  PlaceMetric metric;
  int limit = 0;             // 0 for all
  bool bounded = false;      // whether there is an ellipsoid
  PlaceMetric ellipsoid;     // the metric in which it is a sphere
  double squaredRadius = 0;  // of that sphere; data on it are inside
};

}  // namespace kestrum

#endif
