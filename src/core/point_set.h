#ifndef KESTRUM_CORE_POINT_SET_H
#define KESTRUM_CORE_POINT_SET_H

/* The point set: scattered points with the values of named variables. The functions hold no state; a point set may be
 * read from several threads at once.
 */

#include <stdio.h>

#include "core/grid.h"
#include "core/text.h"
#include "core/types.h"

KESTRUM_BEGIN_DECLS

typedef struct vorl_pointSet VORL_POINTSET;

struct vorl_pointSet {
  int npoint; /* number of points */
  real* x;    /* owned: coordinates, npoint entries each */
  real* y;
  real* z;
  int nvar;       /* number of variables */
  char** varName; /* owned: nvar rows of VORL_VARNAME_LENGTH bytes in one block (VORLMallocArray2D) */
  real* var;      /* owned: npoint * nvar values; variable iv at point ip is var[iv*npoint + ip] */
};

/* Sets all fields to zero. */
KESTRUM_API void VORLInitPointSet(VORL_POINTSET* ps) KESTRUM_NOEXCEPT;

/* Allocates coordinates if npoint is above 0, empty names if nvar is, values if both are. The sizes are left to the
 * caller.
 *   ps  in/out: a record whose pointers are unused; pointers that are not allocated become null.
 * Returns 0 or the first failing allocation's status; what was allocated until then stays in the record. */
KESTRUM_API int VORLMallocPointSet(VORL_POINTSET* ps, int npoint, int nvar) KESTRUM_NOEXCEPT;

/* Releases all that the record owns, not the record; the fields keep their values. Null is ignored. */
KESTRUM_API void VORLFreePointSet(VORL_POINTSET* ps) KESTRUM_NOEXCEPT;

/* Copies src, which has at least one variable, with all that it owns.
 *   dst  out: a record whose pointers are unused.
 * Returns 0; -20 if dst is src, or a pointer of src is null; the status of VORLMallocPointSet. A dst of its own can be
 * released in every case. */
KESTRUM_API int VORLCopyPointSet(VORL_POINTSET* dst, VORL_POINTSET* src) KESTRUM_NOEXCEPT;

/* Tests the variables' number and names; points and values are not tested.
 *   status  out: 0 for a valid point set, otherwise the first failure: -641 nvar below 1, -642 nvar too large, -20
 *           names not allocated, -643 a name too long, -644 two equal names.
 * Returns 0. */
KESTRUM_API int VORLValidatePointSet(VORL_POINTSET* ps, int* status) KESTRUM_NOEXCEPT;

/* Finds the cell that holds each point: the one whose centre is nearest; between two centres, the lower one. The
 * outer faces belong to the grid.
 *   id / ix, iy, iz  out: npoint node indices, or npoint indices along each axis; -1 for a point outside.
 *   ignoreOutside    0: stop at the first point outside.
 * Return 0, or -161 for a point outside (the entries of the points before it are written). */
KESTRUM_API int VORLGetIndexInGridForPointSet(VORL_POINTSET* ps, VORL_GRID* grid, int* id,
                                              int ignoreOutside) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLGetXYZIndexInGridForPointSet(VORL_POINTSET* ps, VORL_GRID* grid, int* ix, int* iy, int* iz,
                                                 int ignoreOutside) KESTRUM_NOEXCEPT;

/* Statistics of coordinates and variables.
 *   xmin to zvar        out: minimum, maximum, mean and variance (divisor npoint - 1, at least 1) of the coordinates;
 *                       1e25, -1e25, 0 and 0 if there are no points.
 *   n, min, max, mean, cov  out: as for VORLGetImageVarStats, over points.
 * Returns 0, or -20 if an output is null. */
KESTRUM_API int VORLGetPointSetInfo(VORL_POINTSET* ps, double* xmin, double* ymin, double* zmin, double* xmax,
                                    double* ymax, double* zmax, double* xmean, double* ymean, double* zmean,
                                    double* xvar, double* yvar, double* zvar, int** n, double* min, double* max,
                                    double* mean, double** cov) KESTRUM_NOEXCEPT;

/* Writes sizes and names to stream, each line with prefix in front. Returns 0 or the status of a failing
 * allocation. */
KESTRUM_API int VORLPrintPointSet(VORL_POINTSET* ps, char* prefix, FILE* stream) KESTRUM_NOEXCEPT;

/* Writes the numbers of VORLGetPointSetInfo as a report to stream, each line with prefix in front; an empty line has
 * none. Returns 0 or the status of a failing allocation. */
KESTRUM_API int VORLPrintPointSetInfo(VORL_POINTSET* ps, char* prefix, FILE* stream) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
