#ifndef KESTRUM_NEIGHBORHOOD_SEARCH_NEIGHBORHOOD_H
#define KESTRUM_NEIGHBORHOOD_SEARCH_NEIGHBORHOOD_H

/** @file
 * The list of relative node offsets inside the search ellipsoid of a covariance model, in the order in which they are
 * to be visited. A list is built on one thread and only read afterwards, so threads may share it.
 */

#include <stdio.h>

#include "../core/image.h"
#include "../core/types.h"
#include "../covariance/cov_model.h"
#include "../numeric/random.h"

typedef struct vorl_searchNeighborhood VORL_SEARCHNEIGHBORHOOD; /**< see vorl_searchNeighborhood */

/** A list of offsets between nodes, and their bounding box. */
struct vorl_searchNeighborhood {
  int size;       /**< number of entries */
  int* ix;        /**< offset of each entry along x in nodes, owned */
  int* iy;        /**< offset of each entry along y in nodes, owned */
  int* iz;        /**< offset of each entry along z in nodes, owned */
  real* distance; /**< sort key of each entry, owned: ascending up to the random order of equal keys */
  real* weight;   /**< weight of each entry, owned: what its maker gives it */
  int ixMin;      /**< least offset along x, at most 0 */
  int iyMin;      /**< least offset along y, at most 0 */
  int izMin;      /**< least offset along z, at most 0 */
  int ixMax;      /**< greatest offset along x, at least 0 */
  int iyMax;      /**< greatest offset along y, at least 0 */
  int izMax;      /**< greatest offset along z, at least 0 */
};

KESTRUM_BEGIN_DECLS

/** Sets all fields to zero or null.
 *
 * @param[out] searchNeighborhood the list; what it held is not released */
KESTRUM_API void VORLInitSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood) KESTRUM_NOEXCEPT;

/** Allocates the five arrays, without values; the other fields are not changed.
 *
 * @param[in,out] searchNeighborhood must be empty; released with VORLFreeSearchNeighborhood, also after a failure
 * @param size number of entries
 * @return 0, or the status of the first allocation that fails (-1, -3) */
KESTRUM_API int VORLMallocSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int size) KESTRUM_NOEXCEPT;

/** Resizes the five arrays; the field size is not changed.
 *
 * @param[in,out] searchNeighborhood the list
 * @param size number of entries
 * @return 0, or the status of the first reallocation that fails (-2, -5) */
KESTRUM_API int VORLReallocSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int size) KESTRUM_NOEXCEPT;

/** Releases the five arrays, not the record. The fields keep their values.
 *
 * @param[in,out] searchNeighborhood the list; null is ignored */
KESTRUM_API void VORLFreeSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood) KESTRUM_NOEXCEPT;

/** Writes the size and the bounding box.
 *
 * @param[in] searchNeighborhood the list
 * @param[in] prefix text in front of each line
 * @param[in,out] stream open for writing
 * @return 0 */
KESTRUM_API int VORLPrintSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, char* prefix,
                                            FILE* stream) KESTRUM_NOEXCEPT;

/** Builds the list of a covariance model.
 *
 * The weight of an entry is the covariance at its offset; it is 0.0 (but for entry (0, 0, 0)) if the model is not
 * stationary.
 *
 * @param sx cell size along x
 * @param sy cell size along y
 * @param sz cell size along z
 * @param searchRadiusRelative factor on the model's largest ranges that gives the search ellipsoid, above 0.0
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param[in] maskImage one variable, or null; its nodes of value 0.0 do not widen the ellipsoid of a model of variable
 *   ranges
 * @param[in] covModel the model
 * @param rotationStationary as VORLKestrumValidateCovModel reports it
 * @param weightStationary as VORLKestrumValidateCovModel reports it
 * @param rangeStationary as VORLKestrumValidateCovModel reports it
 * @param covModelStationary as VORLKestrumValidateCovModel reports it
 * @param rotationSupplied TRUE: rotationMatrix turns the ellipsoid; FALSE: the fixed angles of the model do. A model of
 *   variable angles has an enlarged ellipsoid without rotation instead
 * @param[in] rotationMatrix 3 by 3; null for no rotation
 * @param searchNeighborhoodSortMode 0: by Euclidean distance; 2: largest covariance first (stationary model only); any
 *   other: by distance in the ellipsoid
 * @param[out] searchNeighborhood must be empty; released with VORLFreeSearchNeighborhood, also after a failure
 * @param[in,out] randContext reseeded here with 1, so that equal keys come in the same random order in every run
 * @return 0; -71070: radius at or below 0.0; -71250: no room for an entry, or more than an int can count; -1, -2:
 *   memory is short */
KESTRUM_API int VORLKestrumBuildSearchNeighborhoodForCovModel(
    real sx, real sy, real sz, real searchRadiusRelative, int nx, int ny, int nz, VORL_IMAGE* maskImage,
    VORL_COVMODEL* covModel, BOOLEAN rotationStationary, BOOLEAN weightStationary, BOOLEAN rangeStationary,
    BOOLEAN covModelStationary, BOOLEAN rotationSupplied, real** rotationMatrix, int searchNeighborhoodSortMode,
    VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
