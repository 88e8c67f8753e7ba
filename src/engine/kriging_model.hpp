#ifndef KESTRUM_ENGINE_KRIGING_MODEL_HPP
#define KESTRUM_ENGINE_KRIGING_MODEL_HPP

#include "covariance/grid_model.hpp"

namespace kestrum {

// The covariance model of kriging systems.
struct KrigingModel : GridModel {
  bool ordinaryKriging = false;

  // Size of a system of m neighbours.
  int SystemSize(int m) const noexcept { return ordinaryKriging ? m + 1 : m; }
};

// Whether two models have the same covariances everywhere, as those of categories have if one model serves for all. A
// model with parameter images counts as different from any other.
bool SameModel(const KrigingModel& a, const KrigingModel& b) noexcept;

}  // namespace kestrum

#endif
