#ifndef KESTRUM_ANALYSIS_CONNECTIVITY_H
#define KESTRUM_ANALYSIS_CONNECTIVITY_H

#include "core/image.h"
#include "core/types.h"

/* How the connectivity of an image changes with a threshold: the global connectivity indicator Gamma, the Euler number
 * and the largest geobody (analysis/geobodies.h).
 *
 * Gamma is the sum of the squared sizes of the geobodies divided by the square of the sum of the sizes: the probability
 * that two nodes of the set, drawn at random, lie in one geobody (Renard and Allard, Connectivity metrics for
 * subsurface flow and transport, 2013). It is VORL_CONNECTIVITY_GAMMA_VALUE_IF_NO_GEOBODY without a geobody.
 *
 * The curves. Threshold i of the series, for i from 0 to n - 1, is start + i*step; the serial forms reach it by adding
 * step again and again, the threaded forms by i*step + start, so that its last bits may differ. At each threshold the
 * set is the informed nodes with a value at or below it, its complement the informed nodes above it.
 *   image       in; one variable
 *   n           length of the series and of all curve vectors, which are the caller's; below 1: nothing is done
 *   thresholds  out; the thresholds used
 *   verbose     not FALSE: progress lines on the standard output; no result depends on it
 *   nthreads    the thresholds are dealt out to this many threads, each with work vectors of its own
 * Statuses: -52 more or fewer variables than one; -20 a null pointer; -611 a grid whose sizes are wrong; those of a
 * failing allocation (-3 with nthreads below 1). Curve entries written until a failure stay.
 *
 * The VORLOMP functions give what the others give, but for the thresholds.
 *
 * Thread safety: calls that write to different vectors may run at the same time.
 */

KESTRUM_BEGIN_DECLS

/* Gamma of a label image. Values are truncated to integers; those below 1, and those that no int can hold, are no
 * labels. A node whose truncated value is not 0 counts in nodeCount: so does a missing node, which lowers Gamma.
 *   varIndex     variable of the image
 *   nodeCount    out; number of these nodes
 *   ngeobody     out; the largest label, 0 if there is none
 *   geobodySize  out; nodes of each geobody: a vector of ngeobody entries, the caller's (VORLFree); not touched if
 *                ngeobody is 0 or at a failure
 *   gamma        out; the sum of the squared sizes divided by the square of nodeCount
 * Statuses: -1100 varIndex out of range; -20 a null pointer; -611 a grid whose sizes are wrong; those of a failing
 * allocation of the sizes: then nodeCount and ngeobody are set, and gamma is 1.0. The VORLOMP form runs one thread if
 * nthreads is below 1. */
KESTRUM_API int VORLImageConnectivityGlobalIndicator(VORL_IMAGE* image, int varIndex, int* nodeCount, int* ngeobody,
                                                     int** geobodySize, double* gamma) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageConnectivityGlobalIndicator(VORL_IMAGE* image, int varIndex, int* nodeCount, int* ngeobody,
                                                        int** geobodySize, double* gamma,
                                                        int nthreads) KESTRUM_NOEXCEPT;

/* Gamma of the set, into gamma, and of its complement, into gammaComplement, at each threshold; geobodies with 6, 18 or
 * 26 neighbours. */
KESTRUM_API int VORLImageConnectivity6GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step,
                                                           real* thresholds, real* gamma, real* gammaComplement,
                                                           BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageConnectivity18GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step,
                                                            real* thresholds, real* gamma, real* gammaComplement,
                                                            BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageConnectivity26GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step,
                                                            real* thresholds, real* gamma, real* gammaComplement,
                                                            BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageConnectivity6GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step,
                                                              real* thresholds, real* gamma, real* gammaComplement,
                                                              BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageConnectivity18GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step,
                                                               real* thresholds, real* gamma, real* gammaComplement,
                                                               BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageConnectivity26GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step,
                                                               real* thresholds, real* gamma, real* gammaComplement,
                                                               BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/* Euler number of a set of voxels: vertices - edges + faces - cubes, summed over the nodes whose value is not 0, each
 * adding what it does not share with the nodes before it. Nodes share only if their values are equal, so that each
 * geobody of a label image counts by itself; a missing value is a value like another. The count is exact in an image of
 * one layer (nz of 1). In more layers three neighbours are deliberately taken otherwise: (0,1,-1) is never looked at,
 * (1,-1,0) in the first layer only, and in place of (1,0,-1) the node before the one below is read.
 *   varIndex     variable of the image
 *   eulerNumber  out
 * Statuses: -1100 varIndex out of range; -20 a null pointer; -611 a grid whose sizes are wrong; those of a failing
 * allocation (-3 with nthreads below 1). */
KESTRUM_API int VORLImageConnectivityEulerNumber(VORL_IMAGE* image, int varIndex, int* eulerNumber) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageConnectivityEulerNumber(VORL_IMAGE* image, int varIndex, int* eulerNumber,
                                                    int nthreads) KESTRUM_NOEXCEPT;

/* Euler number of the geobodies with 6 neighbours of the set, into euler, and of its complement, into eulerComplement,
 * at each threshold; 0 without a geobody. A set of one node has the missing nodes beside it in the count, as the label
 * image of such a set has (analysis/geobodies.h). */
KESTRUM_API int VORLImageConnectivity6EulerNumberCurve(VORL_IMAGE* image, int n, real start, real step,
                                                       real* thresholds, int* euler, int* eulerComplement,
                                                       BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageConnectivity6EulerNumberCurve(VORL_IMAGE* image, int n, real start, real step,
                                                          real* thresholds, int* euler, int* eulerComplement,
                                                          BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/* The largest geobody of the set at each threshold, with 6, 18 or 26 neighbours: the largest size in nodes and the
 * largest edge of a bounding box along each axis in cells, 0 without a geobody. The four maxima are taken separately
 * and need not come from one geobody. */
KESTRUM_API int VORLImageMaxGeobody6SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                              int* maxSize, int* maxExtentX, int* maxExtentY, int* maxExtentZ,
                                              BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageMaxGeobody18SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                               int* maxSize, int* maxExtentX, int* maxExtentY, int* maxExtentZ,
                                               BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLImageMaxGeobody26SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                               int* maxSize, int* maxExtentX, int* maxExtentY, int* maxExtentZ,
                                               BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageMaxGeobody6SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                                 int* maxSize, int* maxExtentX, int* maxExtentY, int* maxExtentZ,
                                                 BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageMaxGeobody18SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                                  int* maxSize, int* maxExtentX, int* maxExtentY, int* maxExtentZ,
                                                  BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageMaxGeobody26SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                                  int* maxSize, int* maxExtentX, int* maxExtentY, int* maxExtentZ,
                                                  BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
