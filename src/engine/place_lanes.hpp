#ifndef KESTRUM_ENGINE_PLACE_LANES_HPP
#define KESTRUM_ENGINE_PLACE_LANES_HPP

#include <cstddef>

#include "core/buffer.hpp"
#include "engine/place_run.hpp"
#include "numeric/lanes.hpp"

namespace kestrum {

// Packed covariances of some places: of places i and j, j < i, at [i*(i - 1)/2 + j].
[[nodiscard]] int PackCovariances(const TargetCovariance& covariance, int n, const PlaceVectors& places,
                                  Buffer<double>* lags, Buffer<double>* packed) noexcept;

// Kriging systems of one thread, solved kLanes at a time, each with some targets that have the same data.
class PlaceLanes {
 public:
  // The most data of a system, and targets of a lane. Larger systems do better one by one.
  static constexpr int kMaxData = 128;
  static constexpr int kMaxTargets = 32;

  // `run` must outlive the object. Returns 0 or the status of a failed allocation.
  [[nodiscard]] int Allocate(const PlaceRun& run) noexcept;

  // Takes a system with at least one datum, no more than kMaxData, and 1 to kMaxTargets targets, but one if parameters
  // vary. Kriges once all lanes are taken. Nothing is kept of the arguments, but the covariances: they must stay until
  // lanes are flushed.
  //   packed   covariances of the candidates, as from PackCovariances; null to have them evaluated, which gives the same
  //            bits, but not if parameters vary
  void Add(const PlaceMembers& members, const double* packed, const TargetCovariance& covariance, int ntarget,
           const PlaceTarget* targets) noexcept;

  // Kriges what is left.
  void Flush() noexcept;

  PlaceKrigingReport& report() noexcept { return report_; }

 private:
  // The targets that are solved for at a time.
  static constexpr int kRounds = 4;

  struct Lane {
    int n = 0;
    int ntarget = 0;
    PlaceTarget target[kMaxTargets];
    int datum[kMaxData];  // their numbers
    double dataVariance, targetVariance;
    double covariance[kMaxData];  // with the target, if parameters vary: then there is one
  };

  void FillMatrix(int n) noexcept;
  void FillRow(int i, double* row) noexcept;
  void FillRightSide(int n, int round, double* b) noexcept;

  const PlaceRun* run_ = nullptr;
  int q_ = 0;
  int taken_ = 0;
  Lane lanes_[kLanes];
  const TargetCovariance* covariance_ = nullptr;
  const double* table_ = nullptr;  // of the covariances of all lanes, if one has them
  PlaceDrift drift_[kLanes];
  Buffer<double> x_, y_, z_;  // of datum i of a lane at [i*kLanes + lane]
  Buffer<int> position_;      // likewise: in the table
  Buffer<double> a_, values_, b_, work_;
  PlaceKrigingReport report_;
};

}  // namespace kestrum

#endif
