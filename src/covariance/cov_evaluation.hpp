#ifndef KESTRUM_COVARIANCE_COV_EVALUATION_HPP
#define KESTRUM_COVARIANCE_COV_EVALUATION_HPP

#include <algorithm>

#include "covariance/cov_evaluation.h"
#include "covariance/cov_model.hpp"

namespace kestrum {

// A rotation matrix as VORLComputeRotationMatrix makes it: the columns are the model's axes.
struct Rotation {
  struct Lag {
    real x, y, z;
  };

  real m[3][3];

  bool operator==(const Rotation& other) const = default;

  static Rotation FromAngles(real angle1, real angle2, real angle3) noexcept;
  static Rotation FromAngles(const real angles[3]) noexcept { return FromAngles(angles[0], angles[1], angles[2]); }
  // With the sines and cosines of numeric/elementary.hpp, which are exact for right angles.
  static Rotation FromAnglesExactly(const real angles[3]) noexcept;
  static Rotation FromMatrix(const real* const* matrix) noexcept {
    Rotation rotation;
    for (int i = 0; i < 3; ++i) std::copy_n(matrix[i], 3, rotation.m[i]);
    return rotation;
  }

  // The lag (dx, dy, dz) of the grid's axes along the model's axes: the transposed matrix times the lag.
  Lag ToModelAxes(real dx, real dy, real dz) const noexcept {
    return {m[0][0] * dx + m[1][0] * dy + m[2][0] * dz, m[0][1] * dx + m[1][1] * dy + m[2][1] * dz,
            m[0][2] * dx + m[1][2] * dy + m[2][2] * dz};
  }
};

// The evaluators behind the public ones: cov[k] becomes the covariance of lag k, with the parameters at the node or the
// constants. A null rotation means that the lags are along the model's axes already.
void EvaluateAtNode(const VORL_COVMODEL& model, int node, const Rotation* rotation, int n, const real* dx,
                    const real* dy, const real* dz, real* cov) noexcept;
void EvaluateFixed(const VORL_COVMODEL& model, const Rotation* rotation, int n, const real* dx, const real* dy,
                   const real* dz, real* cov) noexcept;

}  // namespace kestrum

#endif
