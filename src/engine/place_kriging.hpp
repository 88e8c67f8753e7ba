#ifndef KESTRUM_ENGINE_PLACE_KRIGING_HPP
#define KESTRUM_ENGINE_PLACE_KRIGING_HPP

// Kriging with data at their true places, of targets on a grid or anywhere.
//
// A target's data are the nearest, those within an ellipsoid, or all. With A their covariances, plus the variances of
// their errors on the diagonal, b those with the target, F the drift at the data and g at the target, the weights w and
// multipliers m solve A w + F m = b, F^T w = g (J.-P. Chiles and P. Delfiner, Geostatistics: Modeling Spatial
// Uncertainty, 2nd ed., Wiley 2012, chapter 3). The estimate is w.z, the variance c - w.b - m.g, with c the variance of
// the target: the drift's uncertainty is part of it. Errors of measurement are filtered: the estimate is of the value
// without error, and the variance of its error counts none either.
//
// Everything scales: data times f and a model times f^2 give estimates times f and variances times f^2, to rounding.
// Results are the same to the bit for any number of threads, any instruction set, and whatever targets are asked for in
// the same call: a target's data come in the order in which they were given, and its system is solved by itself.

#include "core/parallel.hpp"
#include "core/progress.hpp"
#include "engine/place_covariance.hpp"
#include "engine/place_dense.hpp"
#include "engine/place_records.hpp"
#include "engine/place_system.hpp"
#include "neighborhood/place_index.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Data and a model, ready for any number of calls with targets. Read by any number of threads at a time.
class PlaceKriging {
 public:
  // Copies the data. The model must outlive the object. Of progress it asks whether to go on. Returns 0, the status of a
  // failed allocation, or kAborted; if *problem tells one, then there is nothing to krige with.
  [[nodiscard]] int Prepare(const PlaceData& data, const VORL_COVMODEL& model, const PlaceKrigingOptions& options,
                            const Dealing& dealing, const Progress& progress, PlaceProblem* problem,
                            SimdLevel level = BestSimdLevel()) noexcept;

  // Kriges; the calling thread reports progress, in percent of the targets. Returns 0, the status of a failed allocation,
  // kAborted, or what the progress callback gave. With a problem, results are as they were.
  [[nodiscard]] int Krige(const PlaceKrigingTargets& targets, const PlaceKrigingResults& results,
                          const Dealing& dealing, const Progress& progress, PlaceKrigingReport* report,
                          PlaceProblem* problem, SimdLevel level = BestSimdLevel()) const noexcept;

  // Kriges each datum from the others: those of other folds, or all but itself if `folds` is null. Where neighbours are
  // sought, as many more are as the largest fold has. A known mean needs to be constant. Results are by datum, estimates
  // and variances alone; data that tell nothing have none if all serve. Returns as Krige does.
  [[nodiscard]] int LeaveOut(const PlaceFolds* folds, const PlaceKrigingResults& results, const Dealing& dealing,
                             const Progress& progress, PlaceKrigingReport* report, PlaceProblem* problem,
                             SimdLevel level = BestSimdLevel()) const noexcept;

 private:
  [[nodiscard]] int Run(const PlaceKrigingTargets& targets, const PlaceKrigingResults& results, const int* fold,
                        int largestFold, const Dealing& dealing, const Progress& progress, PlaceKrigingReport* report,
                        PlaceProblem* problem, SimdLevel level) const noexcept;
  PlaceNeighborhood NeighborhoodAt(const PlaceCovariance& covariance, int node) const noexcept;

  const VORL_COVMODEL* model_ = nullptr;
  PlaceKrigingOptions options_;
  PlaceDataset data_;
  PlaceIndex index_;
  bool all_ = false;   // all data serve every target:
  PlaceDense system_;  // they have one system
};

}  // namespace kestrum

#endif
