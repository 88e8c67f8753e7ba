#ifndef KESTRUM_RUNS_PLACE_KRIGING_H
#define KESTRUM_RUNS_PLACE_KRIGING_H

#include "../core/grid.h"
#include "../core/progress_monitor.h"
#include "../core/types.h"
#include "../covariance/cov_model.h"

/** @file
 * Kriging with data at their true places, of the nodes of a grid or of any places. No datum moves to a node, and none is
 * lost; systems are factorised, so that results do not depend on the unit of the variable.
 *
 * The method is that of J.-P. Chiles and P. Delfiner, Geostatistics: Modeling Spatial Uncertainty, 2nd ed., Wiley 2012,
 * chapter 3. The covariances are those of covariance/cov_evaluation.h, right to 1e-13 of the sill, but for two types:
 * COV_SINUS_CARDINAL is the weight at the zero lag, and COV_MATERN is exact near it. Results are the same to the bit for
 * any number of threads. */

KESTRUM_BEGIN_DECLS

/** Why input is refused, and what `first` and `second` of the report are about. Of a model's parameter that varies,
 * `second` is the node. */
typedef enum {
  KESTRUM_PLACE_ACCEPTED,          /**< it is not */
  KESTRUM_PLACE_NO_DATA,           /**< fewer than 1 datum */
  KESTRUM_PLACE_DIMENSION,         /**< neither 2 nor 3 */
  KESTRUM_PLACE_DATUM_COORDINATE,  /**< of datum `first`: not finite */
  KESTRUM_PLACE_DATUM_VALUE,       /**< of datum `first`: not finite */
  KESTRUM_PLACE_ERROR_VARIANCE,    /**< of datum `first`: below 0.0 or not finite */
  KESTRUM_PLACE_DATUM_MEAN,        /**< of datum `first`: not finite */
  KESTRUM_PLACE_DATUM_COVARIATE,   /**< number `second` of datum `first`: not finite */
  KESTRUM_PLACE_SAME_PLACE,        /**< of data `first` and `second`, which do not both carry an error */
  KESTRUM_PLACE_NEIGHBORS,         /**< below 0 */
  KESTRUM_PLACE_RADIUS,            /**< one below 0.0, not finite, or 0.0 beside another */
  KESTRUM_PLACE_DEGREE,            /**< not from -1 to 2 */
  KESTRUM_PLACE_MEAN,              /**< not finite, or covariates beside a known mean */
  KESTRUM_PLACE_BLOCK,             /**< below 1; above 1 for a list, or along z in the plane; above INT_MAX in all */
  KESTRUM_PLACE_MODEL_TYPE,        /**< of element `first`; or no element */
  KESTRUM_PLACE_MODEL_WEIGHT,      /**< of element `first`: below 0.0 or not finite; `first` is -1: their sum is 0.0 */
  KESTRUM_PLACE_MODEL_RANGE,       /**< of element `first`: not above 0.0 and finite */
  KESTRUM_PLACE_MODEL_PARAMETER,   /**< s of element `first`: out of its bounds */
  KESTRUM_PLACE_MODEL_ANGLE,       /**< not finite */
  KESTRUM_PLACE_MODEL_IMAGE,       /**< a parameter varies, but not on the grid of the targets */
  KESTRUM_PLACE_GRID,              /**< no node along an axis, a spacing not above 0.0, or a number not finite */
  KESTRUM_PLACE_TARGET_COORDINATE, /**< of target `first`: not finite; `first` is -1: ntarget is below 0 */
  KESTRUM_PLACE_TARGET_MEAN,       /**< of target `first`: not finite */
  KESTRUM_PLACE_TARGET_COVARIATE,  /**< number `second` of target `first`: not finite */
  KESTRUM_PLACE_ROOM_FOR_WEIGHTS   /**< nweight is below the number of data that can serve a target */
} VORL_PLACEREFUSAL;

typedef struct vorl_placeData VORL_PLACEDATA; /**< see vorl_placeData */

/** The data. The caller owns all vectors; none is changed. */
struct vorl_placeData {
  int ndata;                  /**< number of data, at least 1 */
  int dimension;              /**< 2 or 3 */
  const real* coordinates;    /**< coordinate a of datum i at [i*dimension + a] */
  const real* values;         /**< by datum */
  const real* errorVariances; /**< of measurement, by datum: filtered out of the estimates; null for none */
  const real* means;          /**< by datum, if the mean is known; null for meanValue */
  const real* covariates;     /**< covariate k of datum i at [k*ndata + i]; not read if ncovariate is 0 */
};

typedef struct vorl_placeTargets VORL_PLACETARGETS; /**< see vorl_placeTargets */

/** What is kriged: the nodes of a grid, in node order, or the places of a list. The caller owns all vectors; none is
 * changed. */
struct vorl_placeTargets {
  VORL_GRID* grid;         /**< null for a list */
  long long ntarget;       /**< number of places of the list, at least 0; not read if there is a grid */
  const real* coordinates; /**< of the list: coordinate a of target t at [t*dimension + a] */
  const BOOLEAN* mask;     /**< by target, 0 for those to leave out; null for none */
  const real* means;       /**< by target, if the mean is known; null for meanValue */
  const real* covariates;  /**< covariate k of target t at [k*number of targets + t] */
};

typedef struct vorl_placeOptions VORL_PLACEOPTIONS; /**< see vorl_placeOptions */

/** How it is kriged. */
struct vorl_placeOptions {
  int nneighborMax; /**< the most data of a target, the nearest, of those at one distance the earlier; 0 for all */
  real radius[3];   /**< half axes, along the model's, of an ellipsoid beyond which no datum serves; 0.0 for none */
  BOOLEAN euclideanFlag; /**< the nearest by Euclid's distance; else in units of the longest range along each axis of
                              the model */
  int driftDegree;       /**< of the polynomial of coordinates that is the drift, 0 (ordinary kriging) to 2; -1 if the
                              mean is known (simple kriging) */
  real meanValue;        /**< the known mean */
  int ncovariate;        /**< number of covariates of an external drift, beside the polynomial */
  int block[3];          /**< regular points along each side of a cell whose mean is kriged; 1, 1, 1 for points. The
                              third is 1 if dimension is 2. The nugget has no share in covariances of a cell */
  int nthreads;          /**< number of threads, at least 1; or 0: no parallel region is opened */
};

typedef struct vorl_placeResults VORL_PLACERESULTS; /**< see vorl_placeResults */

/** Vectors by target, allocated by the caller. Targets that are left out, or have no result, get NaN. */
struct vorl_placeResults {
  real* estimates; /**< of the value without error of measurement */
  real* variances; /**< of the error of estimation, the uncertainty of the drift included; may be null */
  int* ndata;      /**< number of data that serve the target; may be null */
  int nweight;     /**< room for weights per target: the most data of a target */
  real* weights;   /**< of target t from [t*nweight] on, in the order of the data, then 0.0; null if not wanted */
  int* weightData; /**< the data that the weights belong to, then -1; null if weights is */
  VORL_PLACEREFUSAL refusal; /**< why the input is refused, if the status says that it is */
  long long first;           /**< what the refusal is about; -1 for nothing */
  long long second;          /**< what else it is about; -1 for nothing */
  long long nwithoutData;    /**< targets that no datum serves: NaN, or mean and variance if the mean is known */
  long long nundetermined;   /**< targets whose data do not determine the drift: NaN */
  long long nindefinite;     /**< targets for whose data the model is not positive definite: NaN */
  long long nredundant;      /**< targets some of whose data were left out, for others say the same to rounding */
};

/**
 * Sets the defaults: ordinary kriging of points with all data, without threads.
 * @param options out
 */
KESTRUM_API void VORLKestrumInitPlaceOptions(VORL_PLACEOPTIONS* options) KESTRUM_NOEXCEPT;

/**
 * Kriges.
 * @param model the covariance model; where a parameter is an image, on the grid of the targets, that of the target holds
 *   for its system. It need not be valid for the grid, and is not changed
 * @param data the data
 * @param targets the targets
 * @param options the choices
 * @param results in and out: vectors to fill, and what is reported of them
 * @param progressMonitor in and out: may be null
 * @param progressCallback may be null
 * @return 0; -1 no memory; -20 a null argument or vector; -99 nthreads below 0; -1000 aborted; what the callback gives;
 *   or a status near to the refusal, which says more
 */
KESTRUM_API int VORLKestrumKrigePlaces(const VORL_COVMODEL* model, const VORL_PLACEDATA* data,
                                       const VORL_PLACETARGETS* targets, const VORL_PLACEOPTIONS* options,
                                       VORL_PLACERESULTS* results, VORL_PROGRESSMONITOR* progressMonitor,
                                       int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
