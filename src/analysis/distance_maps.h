#ifndef KESTRUM_ANALYSIS_DISTANCE_MAPS_H
#define KESTRUM_ANALYSIS_DISTANCE_MAPS_H

#include "core/image.h"
#include "core/types.h"

/* Distance maps: at each node of each variable, the distance to the nearest feature node of that variable, and curves
 * of connectivity with such a distance as the threshold.
 *
 * A feature node has a value that is neither 0.0 nor missing. Distances are in the units of the cell sizes:
 *   L1         |dx|*sx + |dy|*sy + |dz|*sz for a difference of (dx, dy, dz) cells
 *   Euclidean  sqrt(dx*dx*sx*sx + dy*dy*sy*sy + dz*dz*sz*sz)
 * A missing node is missing in the map, too, and does not stand in the way of distances of other nodes. With no feature
 * in a variable its nodes hold the far value, more than any distance on the grid: nx*sx + ny*sy + nz*sz, or
 * sqrt(nx*nx*sx*sx + ny*ny*sy*sy + nz*nz*sz*sz).
 *
 * Common arguments:
 *   imageIn   in; not changed
 *   imageOut  out; must hold nothing; its contents are allocated (VORLFreeImage): the variables of imageIn on its grid,
 *             named after them with the suffix of the operation
 *   verbose   not FALSE: progress lines on the standard output; no result depends on it
 *   nthreads  number of threads of a VORLOMP form; no result depends on it
 *
 * Statuses of the functions with imageOut: -20 grid, names or values not allocated, or imageOut null or imageIn; -621
 * no variable; -611 a grid whose sizes are wrong; -623, before anything is allocated, if a name has no room for the
 * suffix; -620 too many values; those of a failing allocation (-3 with nthreads below 1). imageOut can be released in
 * every case.
 *
 * Thread safety: calls that write to different records may run at the same time.
 */

KESTRUM_BEGIN_DECLS

/* The exact maps, in time linear in the number of nodes (Meijster, Roerdink and Hesselink, 2000, A general algorithm
 * for computing distance transforms in linear time). In the L1 map a missing node with ix = 0 counts as a feature for
 * other nodes. Suffixes: VORL_SUFFIX_FOR_DISTANCE_L1, VORL_SUFFIX_FOR_DISTANCE_L2. */
KESTRUM_API int VORLImageDistanceL1(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageDistanceEuclidean(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageDistanceL1(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nthreads) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageDistanceEuclidean(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nthreads) KESTRUM_NOEXCEPT;

/* The same maps by comparing every node with every feature, for control: the time grows with the square of the number
 * of nodes. No missing node is a feature here. Suffixes as for the exact maps. */
KESTRUM_API int VORLImageDistanceL1BruteForce(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut,
                                              BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageDistanceEuclideanBruteForce(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut,
                                                     BOOLEAN verbose) KESTRUM_NOEXCEPT;

/* Signed maps: the distance to the features, less the distance to what is left as background when the features are
 * eroded once by the six faces (analysis/morphology.h). So it is positive outside the features, 0 on their layer next
 * to background, and negative further inside. Suffixes: VORL_SUFFIX_FOR_DISTANCE_L1_SIGN,
 * VORL_SUFFIX_FOR_DISTANCE_L2_SIGN. */
KESTRUM_API int VORLImageDistanceL1Sign(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageDistanceEuclideanSign(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageDistanceL1Sign(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nthreads) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageDistanceEuclideanSign(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut,
                                                  int nthreads) KESTRUM_NOEXCEPT;

/* Distance in steps of a dilation with any structuring element: background nodes hold the number of the step that
 * reaches them from the features, features of value 1.0 the negative number of the step that reaches them from outside
 * of these (0 for their outer layer). Nodes that no step reaches hold 0. A feature of another value than 1.0 keeps its
 * value, less 1.0 if it is above 1.0; it bounds the features of value 1.0. Suffix: VORL_SUFFIX_FOR_DISTANCE_DILATING.
 *   nshift                  number of offsets; below 1: none
 *   shiftX, shiftY, shiftZ  in; nshift entries each: offsets in cells, any int. A node is reached if it has a node
 *                           reached before at one of the offsets.
 * Status -20 also if these are null and nshift is not below 1. */
KESTRUM_API int VORLImageDistanceByDilation(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX,
                                            int* shiftY, int* shiftZ) KESTRUM_NOEXCEPT;

/* Curves of Gamma (analysis/connectivity.h), by geobodies with 6, 18 or 26 neighbours, of the nodes whose signed
 * distance is at or below a threshold, and of the other informed nodes. The thresholds are the multiples of `step` from
 * one step below the lowest signed distance to at or above the highest.
 *   image            in; one variable
 *   step             above 0
 *   n                out; length of the curves
 *   thresholds       out; n thresholds: a vector of the caller's (VORLFree), as those that follow
 *   gamma            out; n entries; VORL_CONNECTIVITY_GAMMA_VALUE_IF_NO_GEOBODY if no node is at or below
 *   gammaComplement  out; n entries
 * Statuses: -52 more or fewer variables than one; -20 grid, names or values not allocated, or a null pointer for a
 * result; -611 a grid whose sizes are wrong; -3 for a step that is not above 0, or nthreads below 1; -3 or -1 if no
 * threshold results, as with no informed node and a step below the far value; -1 if more result than an int can count;
 * those of a failing allocation. A failure sets nothing. */
KESTRUM_API int VORLImageDistanceL1Connectivity6GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                     real** thresholds, real** gamma,
                                                                     real** gammaComplement,
                                                                     BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageDistanceL1Connectivity18GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                      real** thresholds, real** gamma,
                                                                      real** gammaComplement,
                                                                      BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageDistanceL1Connectivity26GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                      real** thresholds, real** gamma,
                                                                      real** gammaComplement,
                                                                      BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageDistanceEuclideanConnectivity6GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                            real** thresholds, real** gamma,
                                                                            real** gammaComplement,
                                                                            BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageDistanceEuclideanConnectivity18GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                             real** thresholds, real** gamma,
                                                                             real** gammaComplement,
                                                                             BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageDistanceEuclideanConnectivity26GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                             real** thresholds, real** gamma,
                                                                             real** gammaComplement,
                                                                             BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageDistanceL1Connectivity6GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                        real** thresholds, real** gamma,
                                                                        real** gammaComplement, BOOLEAN verbose,
                                                                        int nthreads) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageDistanceL1Connectivity18GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                         real** thresholds, real** gamma,
                                                                         real** gammaComplement, BOOLEAN verbose,
                                                                         int nthreads) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageDistanceL1Connectivity26GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                         real** thresholds, real** gamma,
                                                                         real** gammaComplement, BOOLEAN verbose,
                                                                         int nthreads) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageDistanceEuclideanConnectivity6GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                               real** thresholds, real** gamma,
                                                                               real** gammaComplement, BOOLEAN verbose,
                                                                               int nthreads) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageDistanceEuclideanConnectivity18GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                                real** thresholds, real** gamma,
                                                                                real** gammaComplement, BOOLEAN verbose,
                                                                                int nthreads) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageDistanceEuclideanConnectivity26GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                                real** thresholds, real** gamma,
                                                                                real** gammaComplement, BOOLEAN verbose,
                                                                                int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
