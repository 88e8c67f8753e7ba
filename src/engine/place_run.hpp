#ifndef KESTRUM_ENGINE_PLACE_RUN_HPP
#define KESTRUM_ENGINE_PLACE_RUN_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "core/progress.hpp"
#include "engine/place_covariance.hpp"
#include "engine/place_records.hpp"
#include "engine/place_system.hpp"
#include "numeric/lanes.hpp"

namespace kestrum {

// A target with its place.
struct PlaceTarget {
  double x, y, z;
  std::int64_t number;
};

// The data of one system: n positions among candidates, ascending; without positions, all from the first on.
struct PlaceMembers {
  int n = 0;
  const int* position = nullptr;
  PlaceVectors candidates = {};
  const int* datum = nullptr;  // the candidates' numbers; without them, their positions

  int Position(int i) const noexcept { return position != nullptr ? position[i] : i; }
  int Datum(int i) const noexcept { return datum != nullptr ? datum[Position(i)] : Position(i); }
};

// What all systems of a call share. Read by all threads; each target's results are written by one.
struct PlaceRun {
  const PlaceDataset& data;
  const PlaceCovariance& covariance;
  const PlaceKrigingTargets& targets;
  PlaceKrigingResults results;
  const Progress& progress;
  SimdLevel level;
  // The fold of each datum, if targets are the data, by their number, and are kriged from those of other folds: from the
  // nearest `neighbors`, or from all if that is 0.
  const int* fold = nullptr;
  int neighbors = 0;

  // Variable v of the drift at a target.
  double AtTarget(int v, const PlaceTarget& target) const noexcept {
    const int axes = data.terms.coordinates();
    if (v < axes) return v == 0 ? target.x : v == 1 ? target.y : target.z;
    return targets.covariates[(v - axes) * targets.places.count() + target.number];
  }

  // Writes the terms of the drift at a target among the right sides of kLanes targets.
  void WriteDrift(const PlaceDrift& drift, const PlaceTarget& target, double* b) const noexcept {
    drift.Terms([&](int v) { return AtTarget(v, target); }, covariance.spread(),
                [&](int k, double term) { b[k * kLanes] = term; });
  }

  double Base(std::int64_t target) const noexcept {
    return data.terms.degree < 0 && targets.means != nullptr ? targets.means[target] : data.center;
  }

  // Writes the results of a target with n data, whose weighted sum of residuals and explained part are given.
  void Write(std::int64_t target, int n, double sum, double explained, double targetVariance,
             PlaceKrigingReport* report) const noexcept {
    // Rounding may take a variance of 0.0 below it, smooth models without a nugget by some 1e-8; more than that, and the
    // model can not be one of a random function.
    constexpr double kRounding = 1e-6;
    const double variance = targetVariance - explained;
    if (!(variance >= -kRounding * targetVariance)) {
      ++report->indefinite;
      return WriteNothing(target, n);
    }
    results.estimate[target] = Base(target) + sum;
    if (results.variance != nullptr) results.variance[target] = std::max(variance, 0.0);
    if (results.ndata != nullptr) results.ndata[target] = n;
  }
  // The results of a target that has no solution.
  void WriteNothing(std::int64_t target, int n) const noexcept {
    constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
    results.estimate[target] = kNone;
    if (results.variance != nullptr) results.variance[target] = kNone;
    if (results.ndata != nullptr) results.ndata[target] = n;
    WriteWeights(target, {}, [](int) { return 0.0; });
  }
  // The results of a target that no datum serves.
  void WriteWithoutData(std::int64_t target, double targetVariance, PlaceKrigingReport* report) const noexcept {
    ++report->withoutData;
    WriteNothing(target, 0);
    if (data.terms.degree >= 0) return;
    results.estimate[target] = Base(target);
    if (results.variance != nullptr) results.variance[target] = targetVariance;
  }
  // The weight of member i is weight(i).
  template <typename Weight>
  void WriteWeights(std::int64_t target, const PlaceMembers& members, const Weight& weight) const noexcept {
    if (results.weights == nullptr) return;
    double* const weights = results.weights + target * results.nweight;
    int* const numbers = results.weightData + target * results.nweight;
    for (int i = 0; i < results.nweight; ++i) {
      weights[i] = i < members.n ? weight(i) : 0.0;
      numbers[i] = i < members.n ? members.Datum(i) : -1;
    }
  }
};

// Covariances of n data with kLanes places side by side, of datum i with place `lane` at out[i*kLanes + lane]. The
// coordinates of datum i are entry i*step of the vectors if it serves all lanes (step 1), else entry i*kLanes + lane (step
// kLanes); those of the places have kLanes entries. evaluate(n, dx, dy, dz, cov) evaluates n lags, at most 128.
template <typename Evaluate>
void CovariancesOfLanes(int n, const PlaceVectors& data, int step, const PlaceVectors& places, SimdLevel level,
                        double* out, const Evaluate& evaluate) noexcept {
  constexpr int kTogether = 16;
  alignas(64) double lags[3][kTogether * kLanes];
  double* const lag[3] = {lags[0], lags[1], lags[2]};
  const double* const from[3] = {places.x, places.y, places.z};
  for (int begin = 0; begin < n; begin += kTogether) {
    const int count = std::min(kTogether, n - begin);
    const double* const at[3] = {data.x + begin * step, data.y + begin * step, data.z + begin * step};
    LagsOfLanes(count, at, step, from, lag, level);
    evaluate(count * kLanes, lags[0], lags[1], lags[2], out + begin * kLanes);
  }
}

// The covariances of data with kLanes targets.
inline void CovariancesWithTargets(const TargetCovariance& covariance, int n, const PlaceVectors& data, int step,
                                   const PlaceTarget* targets, SimdLevel level, double* out) noexcept {
  double at[3][kLanes];
  for (int l = 0; l < kLanes; ++l) {
    at[0][l] = targets[l].x;
    at[1][l] = targets[l].y;
    at[2][l] = targets[l].z;
  }
  CovariancesOfLanes(n, data, step, {at[0], at[1], at[2]}, level, out,
                     [&](int count, const double* dx, const double* dy, const double* dz, double* cov) {
                       covariance.WithTarget(count, dx, dy, dz, cov);
                     });
}

}  // namespace kestrum

#endif
