#ifndef KESTRUM_CORE_POINT_SET_H
#define KESTRUM_CORE_POINT_SET_H

/** @file
 * The point set: scattered points with the values of named variables.
 *
 * Life of a record: VORLInitPointSet; VORLMallocPointSet, VORLCopyPointSet or a reader; the creator fills sizes,
 * coordinates, names and values; use; VORLFreePointSet.
 *
 * Every function that reads points or values returns -20 if vectors that the sizes promise are null.
 */

#include <stdio.h>

#include "../core/grid.h"
#include "../core/text.h"
#include "../core/types.h"

KESTRUM_BEGIN_DECLS

typedef struct vorl_pointSet VORL_POINTSET; /**< see vorl_pointSet */

/** Scattered points with named variables. Null pointers are those of an empty record, or of one without points. */
struct vorl_pointSet {
  int npoint;     /**< number of points, at least 0 */
  real* x;        /**< x of each point, owned: npoint entries */
  real* y;        /**< y of each point, owned: npoint entries */
  real* z;        /**< z of each point, owned: npoint entries */
  int nvar;       /**< number of variables, at most VORL_MAX_NVAR */
  char** varName; /**< names, owned: nvar rows of VORL_VARNAME_LENGTH bytes in one block (VORLMallocArray2D) */
  real* var;      /**< values, owned: npoint * nvar; that of variable iv at point ip is var[iv*npoint + ip] */
};

/** Sets all fields to zero.
 *
 * @param[out] ps the point set; what it held is not released */
KESTRUM_API void VORLInitPointSet(VORL_POINTSET* ps) KESTRUM_NOEXCEPT;

/** Allocates what a point set holds: coordinates if npoint is above 0, empty names if nvar is, values if both are.
 *
 * The caller fills npoint and nvar.
 *
 * @param[in,out] ps must be empty; pointers that are not allocated become null
 * @param npoint number of points
 * @param nvar number of variables
 * @return 0, or the status of the first allocation that fails; what was allocated before stays in the record */
KESTRUM_API int VORLMallocPointSet(VORL_POINTSET* ps, int npoint, int nvar) KESTRUM_NOEXCEPT;

/** Releases all that a point set owns, not the record. The fields keep their values.
 *
 * @param[in,out] ps the point set; null is ignored */
KESTRUM_API void VORLFreePointSet(VORL_POINTSET* ps) KESTRUM_NOEXCEPT;

/** Copies a point set with all that it owns.
 *
 * @param[out] dst the copy; must be empty. Unless it is src, it can be released in every case
 * @param[in] src the point set, with at least one variable
 * @return 0; -20 if dst is src or a pointer of src is null; those of VORLMallocPointSet */
KESTRUM_API int VORLCopyPointSet(VORL_POINTSET* dst, VORL_POINTSET* src) KESTRUM_NOEXCEPT;

/** Tests the number of variables and their names; points and values are not tested.
 *
 * @param[in] ps the point set
 * @param[out] status 0 for a valid point set, otherwise the first failure: -641 nvar below 1; -642 nvar too large; -20
 *   names not allocated; -643 a name too long; -644 two equal names
 * @return 0 */
KESTRUM_API int VORLValidatePointSet(VORL_POINTSET* ps, int* status) KESTRUM_NOEXCEPT;

/** Finds the node of each point: the nearest one; half way between two, the lower one.
 *
 * The outer faces belong to the grid.
 *
 * @param[in] ps the point set
 * @param[in] grid the grid
 * @param[out] id npoint indices of nodes; -1 for a point outside the grid
 * @param ignoreOutside 0: stop at the first point outside the grid; otherwise continue
 * @return 0; -161 for a point outside the grid (the entries of the points before it are written); -601 if a size of the
 *   grid is below 1, or if nxy or nxyz is not their product */
KESTRUM_API int VORLGetIndexInGridForPointSet(VORL_POINTSET* ps, VORL_GRID* grid, int* id,
                                              int ignoreOutside) KESTRUM_NOEXCEPT;

/** Finds the node of each point, as VORLGetIndexInGridForPointSet, by its indices along the axes.
 *
 * @param[in] ps the point set
 * @param[in] grid the grid
 * @param[out] ix npoint indices along x; -1 for a point outside the grid
 * @param[out] iy npoint indices along y; -1 for a point outside the grid
 * @param[out] iz npoint indices along z; -1 for a point outside the grid
 * @param ignoreOutside 0: stop at the first point outside the grid; otherwise continue
 * @return 0; -161 for a point outside the grid (the entries of the points before it are written); -601 if a size of the
 *   grid is below 1, or if nxy or nxyz is not their product */
KESTRUM_API int VORLGetXYZIndexInGridForPointSet(VORL_POINTSET* ps, VORL_GRID* grid, int* ix, int* iy, int* iz,
                                                 int ignoreOutside) KESTRUM_NOEXCEPT;

/** Computes statistics of coordinates and variables.
 *
 * Minima, maxima, means and variances (divisor npoint - 1, at least 1) of the coordinates are VORL_INFINITY,
 * -VORL_INFINITY, 0 and 0 without points. The statistics of the variables are those of VORLGetImageVarStats, over
 * points.
 *
 * @param[in] ps the point set
 * @param[out] xmin least x
 * @param[out] ymin least y
 * @param[out] zmin least z
 * @param[out] xmax greatest x
 * @param[out] ymax greatest y
 * @param[out] zmax greatest z
 * @param[out] xmean mean x
 * @param[out] ymean mean y
 * @param[out] zmean mean z
 * @param[out] xvar variance of x
 * @param[out] yvar variance of y
 * @param[out] zvar variance of z
 * @param[out] n nvar by nvar: number of points where both variables are informed
 * @param[out] min nvar minima
 * @param[out] max nvar maxima
 * @param[out] mean nvar means
 * @param[out] cov nvar by nvar covariances
 * @return 0; -20 if an output is null */
KESTRUM_API int VORLGetPointSetInfo(VORL_POINTSET* ps, double* xmin, double* ymin, double* zmin, double* xmax,
                                    double* ymax, double* zmax, double* xmean, double* ymean, double* zmean,
                                    double* xvar, double* yvar, double* zvar, int** n, double* min, double* max,
                                    double* mean, double** cov) KESTRUM_NOEXCEPT;

/** Writes the sizes and the names of a point set.
 *
 * @param[in] ps the point set
 * @param[in] prefix text in front of each line
 * @param[in,out] stream open for writing
 * @return 0; allocation statuses */
KESTRUM_API int VORLPrintPointSet(VORL_POINTSET* ps, char* prefix, FILE* stream) KESTRUM_NOEXCEPT;

/** Writes the statistics of VORLGetPointSetInfo as a report.
 *
 * @param[in] ps the point set
 * @param[in] prefix text in front of each line but the empty ones
 * @param[in,out] stream open for writing
 * @return 0; allocation statuses */
KESTRUM_API int VORLPrintPointSetInfo(VORL_POINTSET* ps, char* prefix, FILE* stream) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
