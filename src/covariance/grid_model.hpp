#ifndef KESTRUM_COVARIANCE_GRID_MODEL_HPP
#define KESTRUM_COVARIANCE_GRID_MODEL_HPP

#include "covariance/cov_evaluation.hpp"
#include "covariance/exact_covariance.hpp"

namespace kestrum {

// The model at one node, with its sill and rotation.
struct LocalModel {
  const VORL_COVMODEL* covModel;
  int node;
  bool stationary;  // constant parameters, whatever the node
  real sill;
  bool rotated;
  Rotation rotation;
  const ExactCovariance* exact;  // null: with the functions of the C library

  // The covariances of n lags along the grid's axes.
  void Evaluate(int n, const real* dx, const real* dy, const real* dz, real* cov) const noexcept {
    const Rotation* const turn = rotated ? &rotation : nullptr;
    if (exact != nullptr) {
      exact->Evaluate(n, dx, dy, dz, cov);
    } else if (stationary) {
      EvaluateFixed(*covModel, turn, n, dx, dy, dz, cov);
    } else {
      EvaluateAtNode(*covModel, node, turn, n, dx, dy, dz, cov);
    }
  }
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
  // Where covariances have the same bits on every machine: the model with its constants, if it is stationary, else any.
  // Null for those of covariance/cov_evaluation.h, with the functions of the C library.
  const ExactCovariance* exact = nullptr;

  // Takes the fixed rotation from a matrix of 3 by 3; null for none.
  void SetRotation(const real* const* matrix) noexcept {
    rotated = matrix != nullptr;
    if (rotated) rotation = Rotation::FromMatrix(matrix);
  }
  // Takes it from the model's constant angles; none if all are 0.0.
  void SetRotationFromAngles() noexcept {
    real angles[3];
    rotated = StationaryAngles(*covModel, angles);
    if (rotated) rotation = RotationOf(angles);
  }

  real SillAt(int node) const noexcept { return weightStationary ? sill : SillAtNode(*covModel, node); }

  // The model at a node. If it is exact and not stationary it is prepared in `own`, which has room for its elements.
  LocalModel At(int node, ExactCovariance& own) const noexcept {
    LocalModel local{covModel, node, covModelStationary, SillAt(node), rotated, rotation, exact};
    if (exact != nullptr && !covModelStationary) {
      own.Prepare(*covModel, ParametersAtNode{node});
      local.exact = &own;
    } else if (!rotationStationary) {
      real angles[3];
      local.rotated = AnglesAtNode(*covModel, node, angles);
      if (local.rotated) local.rotation = RotationOf(angles);
    }
    return local;
  }

  // The covariance of a lag along the grid's axes, for a stationary model.
  real Covariance(real dx, real dy, real dz) const noexcept {
    real covariance;
    LocalModel{covModel, 0, true, sill, rotated, rotation, exact}.Evaluate(1, &dx, &dy, &dz, &covariance);
    return covariance;
  }

 private:
  Rotation RotationOf(const real angles[3]) const noexcept {
    return exact != nullptr ? Rotation::FromAnglesExactly(angles) : Rotation::FromAngles(angles);
  }
};

}  // namespace kestrum

#endif
