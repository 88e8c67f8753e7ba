#ifndef KESTRUM_ANALYSIS_GEOBODIES_H
#define KESTRUM_ANALYSIS_GEOBODIES_H

#include "core/image.h"
#include "core/types.h"

/* Indicators and geobodies of one variable of an image.
 *
 * The interval set. nintervals intervals [lowerBound[k], upperBound[k]] mark the nodes whose value lies in one of them;
 * excludeLowerBound and excludeUpperBound, not FALSE, leave the lower or upper ends of all intervals out. complement,
 * not FALSE, marks the nodes whose value lies in none. A missing value is never marked. With nintervals below 1 no
 * interval is read: no node is marked, or every informed one with complement.
 *
 * A geobody is a connected component of the marked nodes. Two marked nodes are neighbours if they share
 *   6   a face
 *   18  a face or an edge
 *   26  a face, an edge or a corner
 * Geobodies are numbered from 1 by their first node in node order; a label is such a number, or 0 for background.
 *
 * Missing nodes: with fewer than two marked nodes they keep the missing value among the labels, otherwise they are
 * background.
 *
 * Common arguments:
 *   imageIn   in; not changed
 *   varIndex  variable of imageIn
 *   imageOut  out; must hold nothing; its contents are allocated (VORLFreeImage): one variable on the grid of imageIn,
 *             named after the variable with VORL_SUFFIX_FOR_INDICATOR or VORL_SUFFIX_FOR_GEOBODY
 *   indicator  out; nxyz integers of the caller's, in place of an image
 *   lowerBound, upperBound   in; nintervals values each
 *
 * Statuses of the functions that take an interval set: -1100 varIndex out of range, -20 a null pointer, -611 a grid
 * whose sizes are wrong; of the forms with imageOut also -623 no room for the suffix in the name; those of a failing
 * allocation. imageOut can be released in every case.
 *
 * Thread safety: calls that write to different records and vectors may run at the same time.
 */

KESTRUM_BEGIN_DECLS

/* Marks nodes: 1 for a marked node, 0 for another informed one, VORL_MISSING_VALUE for a missing one. The Vector form
 * writes them as integers; VORLOMPImageIndicator gives the same as VORLImageIndicator with nthreads threads, or with
 * one if nthreads is below 1.
 *   nodeCount  out; number of marked nodes */
KESTRUM_API int VORLImageIndicator(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement,
                                   int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                   BOOLEAN excludeUpperBound, int* nodeCount) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageIndicatorVector(VORL_IMAGE* imageIn, int* indicator, int varIndex, BOOLEAN complement,
                                         int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                         BOOLEAN excludeUpperBound, int* nodeCount) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageIndicator(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement,
                                      int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                      BOOLEAN excludeUpperBound, int* nodeCount, int nthreads) KESTRUM_NOEXCEPT;

/* Labels geobodies with 6, 18 or 26 neighbours, in time linear in the number of nodes. The Vector forms write the
 * labels to indicator as integers.
 *   ngeobody  out; number of geobodies; not set at a failure */
KESTRUM_API int VORLImageGeobody6(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement,
                                  int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                  BOOLEAN excludeUpperBound, int* ngeobody) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageGeobody18(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement,
                                   int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                   BOOLEAN excludeUpperBound, int* ngeobody) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageGeobody26(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement,
                                   int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                   BOOLEAN excludeUpperBound, int* ngeobody) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageGeobody6Vector(VORL_IMAGE* imageIn, int* indicator, int varIndex, BOOLEAN complement,
                                        int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                        BOOLEAN excludeUpperBound, int* ngeobody) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageGeobody18Vector(VORL_IMAGE* imageIn, int* indicator, int varIndex, BOOLEAN complement,
                                         int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                         BOOLEAN excludeUpperBound, int* ngeobody) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageGeobody26Vector(VORL_IMAGE* imageIn, int* indicator, int varIndex, BOOLEAN complement,
                                         int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                         BOOLEAN excludeUpperBound, int* ngeobody) KESTRUM_NOEXCEPT;

/* Size and bounding box of each geobody of a label image. Values are truncated to integers; those below 1, and those
 * that no int can hold, are no labels.
 *   image                      in; one variable
 *   ngeobody                   out; the largest label, 0 if there is none
 *   geobodySize                out; nodes of each geobody: a vector of ngeobody entries, the caller's (VORLFree)
 *   extentX, extentY, extentZ  out; edges of the bounding boxes in cells; vectors as geobodySize. A label that no node
 *                              has gets size 0 and the edges -nx, -ny and -nz.
 * Statuses: -52 more or fewer variables than one; -3 no label, ngeobody is 0 then; -20 a null pointer; -611 a grid
 * whose sizes are wrong; those of a failing allocation. The vectors are set by a success alone. */
KESTRUM_API int VORLImageGeobodySize(VORL_IMAGE* image, int* ngeobody, int** geobodySize, int** extentX, int** extentY,
                                     int** extentZ) KESTRUM_NOEXCEPT;

/* Follows a link table, in which every label points to a label that is not larger, from `label` to the label that
 * points to itself, and returns that root. The table is not changed. */
KESTRUM_API int VORLFindLink(int label, int* link) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
