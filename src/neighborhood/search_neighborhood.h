#ifndef KESTRUM_NEIGHBORHOOD_SEARCH_NEIGHBORHOOD_H
#define KESTRUM_NEIGHBORHOOD_SEARCH_NEIGHBORHOOD_H

#include <stdio.h>

#include "core/image.h"
#include "core/types.h"
#include "covariance/cov_model.h"
#include "numeric/random.h"

/* The list of relative node offsets inside the search ellipsoid of a covariance model, in the order in which they are
 * to be visited. A list is built on one thread and only read afterwards, so threads may share it.
 */

typedef struct vorl_searchNeighborhood VORL_SEARCHNEIGHBORHOOD;

struct vorl_searchNeighborhood {
  int size; /* number of entries */
  int* ix;  /* relative offset of each entry, in nodes */
  int* iy;
  int* iz;
  real* distance; /* sort key of each entry, ascending up to the random order of equal keys */
  real* weight;   /* covariance at the offset of each entry; 0.0 (but for entry (0, 0, 0)) if not stationary */
  int ixMin;      /* bounding box of the offsets; always contains 0 */
  int iyMin;
  int izMin;
  int ixMax;
  int iyMax;
  int izMax;
};

KESTRUM_BEGIN_DECLS

/* Sets all fields to zero or null. */
KESTRUM_API void VORLInitSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood) KESTRUM_NOEXCEPT;

/* Allocates the five arrays for `size` entries, which are left uninitialised; the other fields are not changed. The
 * caller releases them with VORLFreeSearchNeighborhood, also after a failure.
 * Returns 0 or the status of the first allocation that fails (-1, -3).
 */
KESTRUM_API int VORLMallocSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int size) KESTRUM_NOEXCEPT;

/* Resizes the five arrays to `size` entries; the field `size` is not changed.
 * Returns 0 or the status of the first reallocation that fails (-2, -5).
 */
KESTRUM_API int VORLReallocSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int size) KESTRUM_NOEXCEPT;

/* Releases the five arrays, and neither the record nor its other fields. Null is ignored. */
KESTRUM_API void VORLFreeSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood) KESTRUM_NOEXCEPT;

/* Writes the size and the bounding box, each line behind `prefix`. Returns 0. */
KESTRUM_API int VORLPrintSearchNeighborhood(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, char* prefix,
                                            FILE* stream) KESTRUM_NOEXCEPT;

/* Builds the list of a covariance model.
 *
 * sx, sy, sz: cell sizes of the grid; nx, ny, nz: its numbers of cells.
 * searchRadiusRelative: factor on the model's largest ranges that gives the search ellipsoid; above 0.0.
 * maskImage: null, or one variable; its nodes of value 0.0 do not widen the ellipsoid of a model of variable ranges.
 * rotationStationary ... covModelStationary: as VORLKestrumValidateCovModel tells them.
 * rotationSupplied: TRUE: rotationMatrix (3 by 3, null for none) turns the ellipsoid; FALSE: the fixed angles of the
 *   model do. A model of variable angles has an enlarged ellipsoid without rotation instead.
 * searchNeighborhoodSortMode: 0: by Euclidean distance; 2: largest covariance first (stationary model only); any other:
 *   by distance in the ellipsoid.
 * searchNeighborhood: out; initialised by the caller, who releases it with VORLFreeSearchNeighborhood, also after a
 *   failure.
 * randContext: reseeded here with 1, so that equal keys come in the same random order in every run.
 *
 * Statuses: -71070 radius at or below 0.0; -71250 no room for an entry, or more than an int can count; -1, -2 memory.
 */
KESTRUM_API int VORLKestrumBuildSearchNeighborhoodForCovModel(
    real sx, real sy, real sz, real searchRadiusRelative, int nx, int ny, int nz, VORL_IMAGE* maskImage,
    VORL_COVMODEL* covModel, BOOLEAN rotationStationary, BOOLEAN weightStationary, BOOLEAN rangeStationary,
    BOOLEAN covModelStationary, BOOLEAN rotationSupplied, real** rotationMatrix, int searchNeighborhoodSortMode,
    VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
