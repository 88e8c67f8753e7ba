#include "runs/place_kriging.h"

#include <algorithm>
#include <iterator>
#include <type_traits>

#include "core/statuses.hpp"
#include "engine/place_kriging.hpp"

namespace kestrum {
namespace {

// The status for each refusal, in their order.
constexpr int kStatusOf[] = {
    0,
    kGeostatisticsNoDatum,
    kGeostatisticsDimension,
    kPointSetCoordinates,
    kPointSetNan,
    kPointSetNan,
    kPointSetNan,
    kPointSetNan,
    kPointSetConflict,
    kGeostatisticsNeighbors,
    kGeostatisticsRadius,
    kGeostatisticsKriging,
    kGeostatisticsMean,
    kGeostatisticsKriging,
    kModelType,
    kVariogramSill,
    kVariogramRange,
    kVariogramExponent,
    kVariogramAngle,
    kGeostatisticsMeanGrid,
    kGeostatisticsGrid,
    kPointSetCoordinates,
    kGeostatisticsMean,
    kPointSetNan,
    kNotAllocated,
};
static_assert(std::size(kStatusOf) == KESTRUM_PLACE_ROOM_FOR_WEIGHTS + 1);
static_assert(static_cast<int>(PlaceRefusal::kWeights) == KESTRUM_PLACE_ROOM_FOR_WEIGHTS);

static_assert(std::is_standard_layout_v<VORL_PLACEDATA> && sizeof(VORL_PLACEDATA) == 48);
static_assert(std::is_standard_layout_v<VORL_PLACETARGETS> && sizeof(VORL_PLACETARGETS) == 48);
static_assert(std::is_standard_layout_v<VORL_PLACEOPTIONS> && sizeof(VORL_PLACEOPTIONS) == 72);
static_assert(std::is_standard_layout_v<VORL_PLACERESULTS> && sizeof(VORL_PLACERESULTS) == 104);

int StatusOf(const PlaceProblem& problem, VORL_PLACERESULTS* results) noexcept {
  results->refusal = static_cast<VORL_PLACEREFUSAL>(problem.refusal);
  results->first = problem.first;
  results->second = problem.second;
  return kStatusOf[static_cast<int>(problem.refusal)];
}

bool LacksVectors(const VORL_PLACEDATA& data, const VORL_PLACETARGETS& targets, const VORL_PLACEOPTIONS& options,
                  const VORL_PLACERESULTS& results) noexcept {
  return data.coordinates == nullptr || data.values == nullptr ||
         (targets.grid == nullptr && targets.coordinates == nullptr) ||
         (options.ncovariate > 0 && (data.covariates == nullptr || targets.covariates == nullptr)) ||
         results.estimates == nullptr || (results.weights != nullptr && results.weightData == nullptr);
}

int KrigePlaces(const VORL_COVMODEL& model, const VORL_PLACEDATA& data, const VORL_PLACETARGETS& targets,
                const VORL_PLACEOPTIONS& options, VORL_PLACERESULTS* results, const Progress& progress) noexcept {
  const Dealing dealing = options.nthreads == 0 ? Dealing::Serial() : Dealing::Threads(options.nthreads);
  PlaceKrigingOptions own;
  own.neighbors = options.nneighborMax;
  std::copy_n(options.radius, 3, own.radius);
  own.euclidean = options.euclideanFlag != FALSE;
  own.degree = options.driftDegree;
  own.mean = options.meanValue;
  own.ncovariate = options.ncovariate;
  std::copy_n(options.block, 3, own.block);
  PlaceKriging kriging;
  PlaceProblem problem;
  int status = kriging.Prepare(
      {data.ndata, data.dimension, data.coordinates, data.values, data.errorVariances, data.means, data.covariates},
      model, own, dealing, progress, &problem);
  if (status == 0) status = StatusOf(problem, results);
  if (status != 0) return status;

  PlaceKrigingTargets places;
  places.places.dimension = data.dimension;
  places.places.mask = reinterpret_cast<const unsigned char*>(targets.mask);
  if (targets.grid != nullptr) {
    places.places.grid = *targets.grid;
    std::fill_n(places.places.first, 3, 0);
    std::copy_n(&targets.grid->nx, 3, places.places.extent);
  } else {
    places.places.list = targets.coordinates;
    places.places.nlist = targets.ntarget;
  }
  places.means = targets.means;
  places.covariates = targets.covariates;
  PlaceKrigingReport report;
  status = kriging.Krige(
      places,
      {results->estimates, results->variances, results->ndata, results->nweight, results->weights, results->weightData},
      dealing, progress, &report, &problem);
  results->nwithoutData = report.withoutData;
  results->nundetermined = report.undetermined;
  results->nindefinite = report.indefinite;
  results->nredundant = report.redundant;
  return status != 0 ? status : StatusOf(problem, results);
}

}  // namespace
}  // namespace kestrum

void VORLKestrumInitPlaceOptions(VORL_PLACEOPTIONS* options) noexcept {
  *options = VORL_PLACEOPTIONS{};
  std::fill_n(options->block, 3, 1);
}

int VORLKestrumKrigePlaces(const VORL_COVMODEL* model, const VORL_PLACEDATA* data, const VORL_PLACETARGETS* targets,
                           const VORL_PLACEOPTIONS* options, VORL_PLACERESULTS* results,
                           VORL_PROGRESSMONITOR* progressMonitor,
                           int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  if (model == nullptr || data == nullptr || targets == nullptr || options == nullptr || results == nullptr) {
    return kestrum::kNotAllocated;
  }
  results->refusal = KESTRUM_PLACE_ACCEPTED;
  results->first = results->second = -1;
  results->nwithoutData = results->nundetermined = results->nindefinite = results->nredundant = 0;
  if (options->nthreads < 0) return kestrum::kThreadCount;
  if (kestrum::LacksVectors(*data, *targets, *options, *results)) return kestrum::kNotAllocated;
  return kestrum::KrigePlaces(*model, *data, *targets, *options, results,
                              kestrum::Progress(progressMonitor, progressCallback));
}
