#ifndef KESTRUM_ENGINE_PLACE_CELLS_HPP
#define KESTRUM_ENGINE_PLACE_CELLS_HPP

#include "core/buffer.hpp"
#include "engine/place_run.hpp"
#include "neighborhood/place_search.hpp"
#include "numeric/cholesky_head.hpp"

namespace kestrum {

// Kriging where data are dense: nearly each target has data of its own, but those of a cell have many in common. They come
// first in each system and are eliminated once for the cell, from all covariances that any of its targets needs; what
// is left of the systems is solved side by side. One for each thread.
class PlaceCells {
 public:
  // Whether the targets of a call come in cells, which depends on the data, the grid and what is asked for only, not on
  // the window: a mean that is known or constant, and few neighbours.
  static bool Serve(const PlaceRun& run, const PlaceNeighborhood& neighborhood) noexcept;

  // `run` must outlive the object. Returns 0 or the status of a failed allocation.
  [[nodiscard]] int Allocate(const PlaceRun& run) noexcept;

  void Krige(const PlaceNodes& nodes, const PlaceCell& cell, const TargetCovariance& covariance) noexcept;

  PlaceKrigingReport& report() noexcept { return report_; }

 private:
  static constexpr int kMaxCandidates = 64;
  static constexpr int kMaxMembers = PlaceCell::kMaxMembers;

  double DataVariance(const PlaceCell& cell, int candidate, const TargetCovariance& covariance) const noexcept;
  void FillTable(const PlaceNodes& nodes, const PlaceCell& cell, const TargetCovariance& covariance) noexcept;
  void KrigeLeft(const PlaceNodes& nodes, const PlaceCell& cell, int first, const HeadOutcome& head,
                 const TargetCovariance& covariance) noexcept;

  const PlaceRun* run_ = nullptr;
  HeadTable table_;
  int start_[kMaxCandidates + 1];
  int rightStart_[kMaxCandidates];
  Buffer<double> lags_, covariances_, right_, factor_;
  Buffer<double> a_, b_, values_, diagonal_, work_;  // of what is left, side by side
  double estimate_[HeadTable::kTargets];
  double explained_[HeadTable::kTargets];
  PlaceKrigingReport report_;
};

}  // namespace kestrum

#endif
