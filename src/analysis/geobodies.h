#ifndef KESTRUM_ANALYSIS_GEOBODIES_H
#define KESTRUM_ANALYSIS_GEOBODIES_H

/** @file
 * Indicators and geobodies of one variable of an image.
 *
 * The interval set. nintervals intervals [lowerBound[k], upperBound[k]] mark the nodes whose value is in one of them;
 * excludeLowerBound and excludeUpperBound leave the lower or upper ends of all intervals out. complement marks the
 * nodes whose value is in none. A missing value is never marked. With nintervals below 1 no interval is read: no node
 * is marked, or every informed one with complement.
 *
 * A geobody is a connected component of the marked nodes. Two marked nodes are neighbours if they share
 * - 6: a face
 * - 18: a face or an edge
 * - 26: a face, an edge or a corner
 *
 * Geobodies are numbered from 1 by their first node in node order; a label is such a number, or 0 for background.
 *
 * Missing nodes: with fewer than two marked nodes they keep the missing value among the labels, otherwise they are
 * background.
 */

#include "../core/image.h"
#include "../core/types.h"

KESTRUM_BEGIN_DECLS

/** Marks nodes whose value is in given intervals: 1 for a marked node, 0 for another informed one, missing for a
 * missing one.
 *
 * @param[in] imageIn the image; not changed
 * @param[out] imageOut must be empty: one variable on the grid of imageIn, with its name followed by
 *   VORL_SUFFIX_FOR_INDICATOR
 * @param varIndex index of the variable, 0 to nvar - 1
 * @param complement TRUE: mark the nodes whose value is in no interval; FALSE: those whose value is in one
 * @param nintervals number of intervals
 * @param[in] lowerBound nintervals lower ends
 * @param[in] upperBound nintervals upper ends
 * @param excludeLowerBound TRUE: the lower ends are not in the intervals
 * @param excludeUpperBound TRUE: the upper ends are not in the intervals
 * @param[out] nodeCount number of marked nodes
 * @return 0; -1100: varIndex out of range; -20: a null pointer; -611: a grid whose sizes are wrong; -623: no room for
 *   the suffix in the name; allocation statuses */
KESTRUM_API int VORLImageIndicator(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement,
                                   int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                   BOOLEAN excludeUpperBound, int* nodeCount) KESTRUM_NOEXCEPT;

/** Marks nodes as VORLImageIndicator, in a vector of integers.
 *
 * @param[in] imageIn the image; not changed
 * @param[out] indicator nxyz integers: 1, 0, or VORL_MISSING_VALUE
 * @param varIndex index of the variable, 0 to nvar - 1
 * @param complement TRUE: mark the nodes whose value is in no interval; FALSE: those whose value is in one
 * @param nintervals number of intervals
 * @param[in] lowerBound nintervals lower ends
 * @param[in] upperBound nintervals upper ends
 * @param excludeLowerBound TRUE: the lower ends are not in the intervals
 * @param excludeUpperBound TRUE: the upper ends are not in the intervals
 * @param[out] nodeCount number of marked nodes
 * @return 0; -1100: varIndex out of range; -20: a null pointer; -611: a grid whose sizes are wrong; allocation statuses
 */
KESTRUM_API int VORLImageIndicatorVector(VORL_IMAGE* imageIn, int* indicator, int varIndex, BOOLEAN complement,
                                         int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                         BOOLEAN excludeUpperBound, int* nodeCount) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageIndicator.
 * @copydetails VORLImageIndicator
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPImageIndicator(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement,
                                      int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                      BOOLEAN excludeUpperBound, int* nodeCount, int nthreads) KESTRUM_NOEXCEPT;

/** Labels geobodies with 6 neighbours: nodes that share a face.
 *
 * A geobody is a connected component of the nodes that VORLImageIndicator marks. Labels count from 1 by the first node
 * of a geobody in node order; background is 0. With fewer than two marked nodes missing nodes stay missing, otherwise
 * they are background. The time is linear in the number of nodes.
 *
 * @param[in] imageIn the image; not changed
 * @param[out] imageOut must be empty: one variable on the grid of imageIn, with its name followed by
 *   VORL_SUFFIX_FOR_GEOBODY
 * @param varIndex index of the variable, 0 to nvar - 1
 * @param complement TRUE: mark the nodes whose value is in no interval; FALSE: those whose value is in one
 * @param nintervals number of intervals
 * @param[in] lowerBound nintervals lower ends
 * @param[in] upperBound nintervals upper ends
 * @param excludeLowerBound TRUE: the lower ends are not in the intervals
 * @param excludeUpperBound TRUE: the upper ends are not in the intervals
 * @param[out] ngeobody number of geobodies; not set after a failure
 * @return 0; -1100: varIndex out of range; -20: a null pointer; -611: a grid whose sizes are wrong; -623: no room for
 *   the suffix in the name; allocation statuses */
KESTRUM_API int VORLImageGeobody6(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement,
                                  int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                  BOOLEAN excludeUpperBound, int* ngeobody) KESTRUM_NOEXCEPT;

/** Labels geobodies with 18 neighbours: nodes that share a face or an edge.
 * @copydetails VORLImageGeobody6 */
KESTRUM_API int VORLImageGeobody18(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement,
                                   int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                   BOOLEAN excludeUpperBound, int* ngeobody) KESTRUM_NOEXCEPT;

/** Labels geobodies with 26 neighbours: nodes that share a face, an edge or a corner.
 * @copydetails VORLImageGeobody6 */
KESTRUM_API int VORLImageGeobody26(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement,
                                   int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                   BOOLEAN excludeUpperBound, int* ngeobody) KESTRUM_NOEXCEPT;

/** Labels geobodies as VORLImageGeobody6, in a vector of integers.
 *
 * A geobody is a connected component of the nodes that VORLImageIndicator marks. Labels count from 1 by the first node
 * of a geobody in node order; background is 0. With fewer than two marked nodes missing nodes stay missing, otherwise
 * they are background. The time is linear in the number of nodes.
 *
 * @param[in] imageIn the image; not changed
 * @param[out] indicator nxyz labels
 * @param varIndex index of the variable, 0 to nvar - 1
 * @param complement TRUE: mark the nodes whose value is in no interval; FALSE: those whose value is in one
 * @param nintervals number of intervals
 * @param[in] lowerBound nintervals lower ends
 * @param[in] upperBound nintervals upper ends
 * @param excludeLowerBound TRUE: the lower ends are not in the intervals
 * @param excludeUpperBound TRUE: the upper ends are not in the intervals
 * @param[out] ngeobody number of geobodies; not set after a failure
 * @return 0; -1100: varIndex out of range; -20: a null pointer; -611: a grid whose sizes are wrong; allocation statuses
 */
KESTRUM_API int VORLImageGeobody6Vector(VORL_IMAGE* imageIn, int* indicator, int varIndex, BOOLEAN complement,
                                        int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                        BOOLEAN excludeUpperBound, int* ngeobody) KESTRUM_NOEXCEPT;

/** Labels geobodies as VORLImageGeobody18, in a vector of integers.
 * @copydetails VORLImageGeobody6Vector */
KESTRUM_API int VORLImageGeobody18Vector(VORL_IMAGE* imageIn, int* indicator, int varIndex, BOOLEAN complement,
                                         int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                         BOOLEAN excludeUpperBound, int* ngeobody) KESTRUM_NOEXCEPT;

/** Labels geobodies as VORLImageGeobody26, in a vector of integers.
 * @copydetails VORLImageGeobody6Vector */
KESTRUM_API int VORLImageGeobody26Vector(VORL_IMAGE* imageIn, int* indicator, int varIndex, BOOLEAN complement,
                                         int nintervals, real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound,
                                         BOOLEAN excludeUpperBound, int* ngeobody) KESTRUM_NOEXCEPT;

/** Computes the size and the bounding box of each geobody of a label image.
 *
 * Values are truncated to integers; those below 1, and those that no int can hold, are no labels. The vectors are
 * allocated here, by a success alone, and released by the caller with VORLFree.
 *
 * @param[in] image the image, with one variable
 * @param[out] ngeobody the largest label; 0 if there is none
 * @param[out] geobodySize ngeobody numbers of nodes; 0 for a label that no node has
 * @param[out] extentX ngeobody edges of the bounding boxes along x in cells; -nx for a label that no node has
 * @param[out] extentY ngeobody edges along y; -ny for a label that no node has
 * @param[out] extentZ ngeobody edges along z; -nz for a label that no node has
 * @return 0; -52: more or fewer variables than one; -3: no label, ngeobody is 0 then; -20: a null pointer; -611: a grid
 *   whose sizes are wrong; allocation statuses */
KESTRUM_API int VORLImageGeobodySize(VORL_IMAGE* image, int* ngeobody, int** geobodySize, int** extentX, int** extentY,
                                     int** extentZ) KESTRUM_NOEXCEPT;

/** Follows a link table, in which every label points to a label that is not larger, to the label that points to itself.
 *
 * @param label where to start, an index of the table
 * @param[in] link the table; not changed
 * @return the root: the label that points to itself */
KESTRUM_API int VORLFindLink(int label, int* link) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
