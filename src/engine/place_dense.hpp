#ifndef KESTRUM_ENGINE_PLACE_DENSE_HPP
#define KESTRUM_ENGINE_PLACE_DENSE_HPP

#include <cstddef>

#include "core/buffer.hpp"
#include "core/parallel.hpp"
#include "engine/place_records.hpp"
#include "engine/place_run.hpp"
#include "engine/place_system.hpp"
#include "numeric/cholesky.hpp"

namespace kestrum {

// One kriging system, of all data or many, for any number of targets.
class PlaceDense {
 public:
  // Room for targets of one thread.
  struct Scratch {
    Buffer<double> b;
    Buffer<double> sums, factor, row, right, solved;  // of data that are left out
  };

  // Targets that are solved for at a time.
  static int targetsTogether() noexcept;

  // Builds the system of some data and factorises it. Nothing is kept of the arguments. Returns 0, the status of a
  // failed allocation, or kAborted.
  [[nodiscard]] int Build(const PlaceDataset& data, const PlaceMembers& members, const TargetCovariance& covariance,
                          const Dealing& dealing, const Progress& progress, SimdLevel level) noexcept;

  // Kriges some targets. Returns 0, the status of a failed allocation, or kAborted.
  [[nodiscard]] int Krige(const PlaceRun& run, const TargetCovariance& covariance, int ntarget,
                          const PlaceTarget* targets, Scratch* scratch, PlaceKrigingReport* report) const noexcept;

  // Kriges the data of folds `begin` to `end` - 1, each fold from the data of all others. With M the inverse of the
  // system's matrix, B the data of a fold and z the values, the errors are e = (M_BB)^-1 (M z)_B, and their covariances
  // (M_BB)^-1 (O. Dubrule, Cross validation of kriging in a unique neighborhood, Mathematical Geology 15, 1983). Data
  // that were left out of the system have no results. Returns 0, the status of a failed allocation, or kAborted.
  [[nodiscard]] int LeaveOut(const PlaceDataset& data, const PlaceFolds& folds, int begin, int end,
                             const PlaceKrigingResults& results, Scratch* scratch, PlaceKrigingReport* report,
                             const Progress& progress, SimdLevel level) const noexcept;

 private:
  PlaceVectors places() const noexcept {
    const auto count = static_cast<std::size_t>(n_);
    return {places_.data(), places_.data() + count, places_.data() + 2 * count};
  }
  void FillMatrix(const PlaceDataset& data, const TargetCovariance& covariance, const Dealing& dealing,
                  const Progress& progress) noexcept;

  PlaceDrift drift_;
  int n_ = 0;
  int q_ = 0;
  bool sound_ = false;  // the factor is of use
  SystemFlaws flaws_;
  Buffer<double> places_;  // of the data, by axis
  Buffer<int> datum_;
  Buffer<double> rows_;  // one for each thread, with lags
  Buffer<double> factor_, values_, dual_;
};

}  // namespace kestrum

#endif
