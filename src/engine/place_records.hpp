#ifndef KESTRUM_ENGINE_PLACE_RECORDS_HPP
#define KESTRUM_ENGINE_PLACE_RECORDS_HPP

// What kriging at true places takes and gives.

#include <cstdint>

#include "neighborhood/place_search.hpp"

namespace kestrum {

// The data. Vectors belong to the caller and are read by PlaceKriging::Prepare alone.
struct PlaceData {
  int count = 0;                           // at least 1
  int dimension = 3;                       // 2 or 3
  const double* coordinates = nullptr;     // coordinate a of datum i at coordinates[i*dimension + a]; finite
  const double* values = nullptr;          // finite
  const double* errorVariances = nullptr;  // of measurement, at least 0.0; null for none
  const double* means = nullptr;           // the mean at each datum, for simple kriging; null for the constant one
  const double* covariates = nullptr;      // covariate k of datum i at covariates[k*count + i]; finite
};

// What is kriged, and how.
struct PlaceKrigingOptions {
  // The most data of a target, the nearest; 0 for all.
  int neighbors = 0;
  // The half axes of an ellipsoid beyond which no datum serves, along the model's axes; all 0.0 for none.
  double radius[3] = {0.0, 0.0, 0.0};
  // Whether the nearest are so by Euclid's distance. Otherwise a distance counts in units of the model's longest range
  // along each of its axes.
  bool euclidean = false;
  // The degree of the polynomial of the coordinates that is the drift, 0 (ordinary kriging) to 2; -1 if the mean is
  // known (simple kriging).
  int degree = 0;
  // The known mean.
  double mean = 0.0;
  // Covariates of an external drift, beside the polynomial; 0 if the mean is known.
  int ncovariate = 0;
  // Regular points of equal weight along each side of a cell, the mean over which is kriged; all 1 for points. The
  // nugget has no share in the covariances of a cell: it averages out. In the plane cells have no third side.
  int block[3] = {1, 1, 1};
};

// Why something is refused.
enum class PlaceRefusal {
  kNone,
  kNumberOfData,       // below 1
  kDimension,          // neither 2 nor 3
  kCoordinate,         // of datum `first`: not finite
  kValue,              // of datum `first`: not finite
  kErrorVariance,      // of datum `first`: below 0.0 or not finite
  kMeanAtDatum,        // of datum `first`: not finite
  kCovariateAtDatum,   // number `second` of datum `first`: not finite
  kSamePlace,          // data `first` and `second` lie at one place, and not both carry an error
  kNeighbors,          // below 0
  kRadius,             // an axis below 0.0, not finite, or 0.0 beside others that are not
  kDegree,             // not from -1 to 2
  kMean,               // not finite, or covariates beside a known mean
  kBlock,              // below 1 along an axis, above 1 along z in the plane, too many in all, or for a list of targets
  kModelType,          // of element `first`
  kModelSill,          // of element `first`: below 0.0 or not finite; of the model (`first` is -1): not above 0.0
  kModelRange,         // of element `first`: not above 0.0 and finite
  kModelShape,         // of element `first`: the extra parameter is out of its bounds
  kModelAngle,         // not finite
  kModelImage,         // a parameter varies, but not on the grid of the targets
  kGrid,               // no node along an axis, no spacing above 0.0, a window that leaves the grid, or not finite
  kTarget,             // coordinate of target `first`: not finite; `first` is -1: their number is below 0
  kMeanAtTarget,       // of target `first`: not finite
  kCovariateAtTarget,  // number `second` of target `first`: not finite
  kWeights,            // room for fewer than the data of a target
};

// A refusal with what it is about. Of a parameter that varies, `second` is the node.
struct PlaceProblem {
  PlaceRefusal refusal = PlaceRefusal::kNone;
  std::int64_t first = -1;
  std::int64_t second = -1;
};

// Where to krige, with what is known there.
struct PlaceKrigingTargets {
  PlaceTargets places;
  const double* means = nullptr;       // the mean at each target, for simple kriging; null for the constant one
  const double* covariates = nullptr;  // covariate k of target t at covariates[k*count + t]
};

// Groups of data. Those of fold f are member[i] for i from start[f] to start[f + 1] - 1; each datum is in one of them.
struct PlaceFolds {
  int count = 0;
  const int* start = nullptr;
  const int* member = nullptr;
};

// Vectors of the caller's, by target. Those left out by a mask get NaN, and no datum.
struct PlaceKrigingResults {
  double* estimate = nullptr;
  double* variance = nullptr;  // may be null
  int* ndata = nullptr;        // the number of data that serve it; may be null
  // The weights, and the data that they belong to, in their order, at weights[t*nweight] and on; beyond the data of a
  // target 0.0 and -1. Both null if they are not wanted.
  int nweight = 0;
  double* weights = nullptr;
  int* weightData = nullptr;
};

// How many targets were out of the ordinary.
struct PlaceKrigingReport {
  std::int64_t withoutData = 0;   // no datum in reach: NaN, or mean and variance if the mean is known
  std::int64_t undetermined = 0;  // the data do not determine the drift (too few of them, or on a line): NaN
  std::int64_t indefinite = 0;    // the model is not positive definite there: NaN
  std::int64_t redundant = 0;     // some data were left out, for others tell the same to rounding
};

}  // namespace kestrum

#endif
