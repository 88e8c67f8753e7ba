#ifndef KESTRUM_ENGINE_PLACE_DENSE_HPP
#define KESTRUM_ENGINE_PLACE_DENSE_HPP

#include <cstddef>

#include "core/buffer.hpp"
#include "core/parallel.hpp"
#include "engine/place_run.hpp"
#include "engine/place_system.hpp"
#include "numeric/cholesky.hpp"

namespace kestrum {

// One kriging system, of all data or many, for any number of targets.
class PlaceDense {
 public:
  // Room for targets of one thread.
  struct Scratch {
    Buffer<double> b, x;
  };

  // Builds the system of some data and factorises it. Nothing is kept of the arguments. Returns 0 or the status of a
  // failed allocation.
  [[nodiscard]] int Build(const PlaceDataset& data, const PlaceMembers& members, const TargetCovariance& covariance,
                          const Dealing& dealing, SimdLevel level) noexcept;

  // Kriges some targets. Returns 0 or the status of a failed allocation.
  [[nodiscard]] int Krige(const PlaceRun& run, const TargetCovariance& covariance, int ntarget,
                          const PlaceTarget* targets, Scratch* scratch, PlaceKrigingReport* report) const noexcept;

 private:
  PlaceVectors places() const noexcept {
    const auto count = static_cast<std::size_t>(n_);
    return {places_.data(), places_.data() + count, places_.data() + 2 * count};
  }
  void FillMatrix(const PlaceDataset& data, const TargetCovariance& covariance, const Dealing& dealing) noexcept;

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
