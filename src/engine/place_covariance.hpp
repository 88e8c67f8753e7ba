#ifndef KESTRUM_ENGINE_PLACE_COVARIANCE_HPP
#define KESTRUM_ENGINE_PLACE_COVARIANCE_HPP

#include "core/buffer.hpp"
#include "core/progress.hpp"
#include "covariance/exact_covariance.hpp"
#include "neighborhood/place_metric.hpp"

namespace kestrum {

// A model as it serves the targets of a call.
class PlaceCovariance {
 public:
  // `model` and `progress` must outlive the object. Targets are the means over cells with sides `spacing` of block[a]
  // points along each axis, or points if all are 1. Returns 0, the status of a failed allocation, or kAborted.
  [[nodiscard]] int Prepare(const VORL_COVMODEL& model, const int* block, const double* spacing,
                            const Progress& progress) noexcept;

  // Whether parameters vary from node to node. Where a node is asked for below, it is not read otherwise.
  bool varies() const noexcept { return varies_; }

  // The metric in which nearness is judged: in units of the longest range along each axis, of elements that contribute;
  // Euclid's if none has a range.
  PlaceMetric MetricAt(int node, int dimension) const noexcept;

  // Gives the model's axes; false if they are those of the coordinates.
  bool RotationAt(int node, Rotation* rotation) const noexcept;

  // The mean square of the distances of a cell's points from its centre, by axis.
  const double* spread() const noexcept { return spread_; }

 private:
  friend class TargetCovariance;

  template <typename Visit>
  int ForEachPoint(const Visit& visit) const noexcept;

  const Progress* progress_ = nullptr;
  const VORL_COVMODEL* model_ = nullptr;
  bool varies_ = false;
  int points_ = 1;  // of a cell
  int block_[3] = {1, 1, 1};
  double spacing_[3] = {};
  double spread_[3] = {};
  Buffer<double> offset_[3];  // of the points of a cell from its centre, along each axis
  Buffer<VORL_COVMODELELEM> elements_;
  VORL_COVMODEL smooth_;  // the model without its nugget
};

// The covariances of a target's system: of data, of data with the target, and the variances of both. Any number of
// threads may evaluate it at a time.
class TargetCovariance {
 public:
  // `all` must outlive the object. Returns 0 or the status of a failed allocation.
  [[nodiscard]] int Allocate(const PlaceCovariance& all, SimdLevel level) noexcept;

  // Takes the parameters at a node, if they vary. Returns 0 or kAborted.
  [[nodiscard]] int Prepare(int node) noexcept;

  void BetweenData(int n, const double* dx, const double* dy, const double* dz, double* cov) const noexcept {
    data_.Evaluate(n, dx, dy, dz, cov, level_);
  }
  void BetweenData(const LagRows& lags) const noexcept { data_.EvaluateRows(lags, level_); }
  // Lags are data minus target. Covariances are of no use once the job is to stop.
  void WithTarget(int n, const double* dx, const double* dy, const double* dz, double* cov) const noexcept;
  // The same of targets that lags are formed from. `room` holds three times as many numbers as there are lags.
  void WithTargets(const LagRows& lags, double* room) const noexcept;
  double cost() const noexcept { return data_.cost(); }
  double dataVariance() const noexcept { return dataVariance_; }
  double targetVariance() const noexcept { return targetVariance_; }

 private:
  [[nodiscard]] int FindMeanWithinCell(double* mean) const noexcept;

  const PlaceCovariance* all_ = nullptr;
  SimdLevel level_ = SimdLevel::kBaseline;
  ExactCovariance data_, smooth_;
  double dataVariance_ = 0.0;
  double targetVariance_ = 0.0;
};

}  // namespace kestrum

#endif
