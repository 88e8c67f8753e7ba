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

  // Builds the system of some data and factorises it. `run` and the covariances must outlive the object; nothing is kept
  // of the members. Returns 0 or the status of a failed allocation.
  [[nodiscard]] int Build(const PlaceRun& run, const PlaceMembers& members, const TargetCovariance& covariance,
                          const Dealing& dealing) noexcept;

  // Kriges some targets. Returns 0 or the status of a failed allocation.
  [[nodiscard]] int Krige(int ntarget, const PlaceTarget* targets, Scratch* scratch,
                          PlaceKrigingReport* report) const noexcept;

 private:
  PlaceVectors places() const noexcept {
    const auto count = static_cast<std::size_t>(n_);
    return {places_.data(), places_.data() + count, places_.data() + 2 * count};
  }
  void FillMatrix(const Dealing& dealing) noexcept;

  const PlaceRun* run_ = nullptr;
  const TargetCovariance* covariance_ = nullptr;
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
