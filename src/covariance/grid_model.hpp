#ifndef KESTRUM_COVARIANCE_GRID_MODEL_HPP
#define KESTRUM_COVARIANCE_GRID_MODEL_HPP

#include "covariance/cov_evaluation.hpp"

namespace kestrum {

// The model at one node: sill and rotation.
struct LocalModel {
  real sill;
  bool rotated;
  Rotation rotation;

  const Rotation* rotationOrNull() const noexcept { return rotated ? &rotation : nullptr; }
};

// A covariance model over the nodes of a grid: which of its parameters are the same everywhere, and their values.
// Read-only, shared by all threads.
struct GridModel {
  VORL_COVMODEL* covModel = nullptr;
  bool rotationStationary = true;
  bool weightStationary = true;
  bool rangeStationary = true;
  bool covModelStationary = true;
  real sill = 0.0;       // valid if weightStationary
  bool rotated = false;  // whether there is a fixed rotation
  Rotation rotation{};

  // Takes the fixed rotation from a matrix of 3 by 3; null for none.
  void SetRotation(const real* const* matrix) noexcept {
    rotated = matrix != nullptr;
    if (rotated) rotation = Rotation::FromMatrix(matrix);
  }
  // Takes it from the model's constant angles; none if all are 0.0.
  void SetRotationFromAngles() noexcept {
    real angles[3];
    rotated = StationaryAngles(*covModel, angles);
    if (rotated) rotation = Rotation::FromAngles(angles);
  }

  LocalModel At(int node) const noexcept {
    LocalModel local{sill, rotated, rotation};
    if (!weightStationary) local.sill = SillAtNode(*covModel, node);
    if (!rotationStationary) {
      real angles[3];
      local.rotated = AnglesAtNode(*covModel, node, angles);
      if (local.rotated) local.rotation = Rotation::FromAngles(angles);
    }
    return local;
  }
};

}  // namespace kestrum

#endif
