#ifndef KESTRUM_ANALYSIS_CONNECTIVITY_H
#define KESTRUM_ANALYSIS_CONNECTIVITY_H

/** @file
 * How the connectivity of an image changes with a threshold: the global connectivity indicator Gamma, the Euler number
 * and the largest geobody (analysis/geobodies.h).
 *
 * Gamma is the sum of the squared sizes of the geobodies divided by the square of the sum of the sizes: the probability
 * that two nodes of the set, drawn at random, are in one geobody (Renard and Allard, Connectivity metrics for
 * subsurface flow and transport, 2013). It is VORL_CONNECTIVITY_GAMMA_VALUE_IF_NO_GEOBODY without a geobody.
 *
 * The curves. Threshold i, for i from 0 to n - 1, is start + i*step; the serial forms reach it by adding step again and
 * again, the threaded forms by i*step + start, so that its last bits may differ. At each threshold the set is the
 * informed nodes with a value at or below it, its complement the informed nodes above it.
 */

#include "../core/image.h"
#include "../core/types.h"

KESTRUM_BEGIN_DECLS

/** Computes Gamma of a label image.
 *
 * Values are truncated to integers; those below 1, and those that no int can hold, are no labels. A node whose
 * truncated value is not 0 counts in nodeCount: so does a missing node, which lowers Gamma.
 *
 * @param[in] image the image
 * @param varIndex index of the variable, 0 to nvar - 1
 * @param[out] nodeCount number of these nodes
 * @param[out] ngeobody the largest label; 0 if there is none
 * @param[out] geobodySize number of nodes of each geobody: a vector of ngeobody entries, allocated here, which the
 *   caller releases with VORLFree; untouched if ngeobody is 0, and after a failure
 * @param[out] gamma sum of the squared sizes divided by the square of nodeCount
 * @return 0; -1100: varIndex out of range; -20: a null pointer; -611: a grid whose sizes are wrong; allocation statuses
 *   of the sizes (nodeCount and ngeobody are set then, and gamma is 1.0) */
KESTRUM_API int VORLImageConnectivityGlobalIndicator(VORL_IMAGE* image, int varIndex, int* nodeCount, int* ngeobody,
                                                     int** geobodySize, double* gamma) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageConnectivityGlobalIndicator.
 * @copydetails VORLImageConnectivityGlobalIndicator
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPImageConnectivityGlobalIndicator(VORL_IMAGE* image, int varIndex, int* nodeCount, int* ngeobody,
                                                        int** geobodySize, double* gamma,
                                                        int nthreads) KESTRUM_NOEXCEPT;

/** Computes Gamma of a set and of its complement at a series of thresholds, with 6 neighbours.
 *
 * At each of n thresholds start + i*step the set is the informed nodes with a value at or below it, its complement the
 * informed nodes above it.
 *
 * @param[in] image the image, with one variable
 * @param n number of thresholds, and length of all vectors; below 1 nothing is done
 * @param start first threshold
 * @param step difference between thresholds
 * @param[out] thresholds n thresholds
 * @param[out] gamma n values of Gamma of the set
 * @param[out] gammaComplement n values of Gamma of the complement
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -52: more or fewer variables than one; -20: a null pointer; -611: a grid whose sizes are wrong; allocation
 *   statuses. What was written before a failure stays */
KESTRUM_API int VORLImageConnectivity6GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step,
                                                           real* thresholds, real* gamma, real* gammaComplement,
                                                           BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Computes Gamma of a set and of its complement at a series of thresholds, with 18 neighbours.
 * @copydetails VORLImageConnectivity6GlobalIndicatorCurve */
KESTRUM_API int VORLImageConnectivity18GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step,
                                                            real* thresholds, real* gamma, real* gammaComplement,
                                                            BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Computes Gamma of a set and of its complement at a series of thresholds, with 26 neighbours.
 * @copydetails VORLImageConnectivity6GlobalIndicatorCurve */
KESTRUM_API int VORLImageConnectivity26GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step,
                                                            real* thresholds, real* gamma, real* gammaComplement,
                                                            BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageConnectivity6GlobalIndicatorCurve; thresholds are computed as i*step + start.
 * @copydetails VORLImageConnectivity6GlobalIndicatorCurve
 * @param nthreads number of threads, which share the thresholds; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageConnectivity6GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step,
                                                              real* thresholds, real* gamma, real* gammaComplement,
                                                              BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageConnectivity18GlobalIndicatorCurve; thresholds are computed as i*step + start.
 * @copydetails VORLImageConnectivity18GlobalIndicatorCurve
 * @param nthreads number of threads, which share the thresholds; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageConnectivity18GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step,
                                                               real* thresholds, real* gamma, real* gammaComplement,
                                                               BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageConnectivity26GlobalIndicatorCurve; thresholds are computed as i*step + start.
 * @copydetails VORLImageConnectivity26GlobalIndicatorCurve
 * @param nthreads number of threads, which share the thresholds; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageConnectivity26GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step,
                                                               real* thresholds, real* gamma, real* gammaComplement,
                                                               BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/** Computes the Euler number of a set of voxels: vertices - edges + faces - cubes.
 *
 * The sum is over the nodes whose value is not 0, each adding what it does not share with the nodes before it. Nodes
 * share only if their values are equal, so that each geobody of a label image counts by itself; a missing value is a
 * value like another. The count is exact in an image of one layer (nz of 1). In more layers three neighbours are
 * deliberately taken otherwise: (0,1,-1) is never looked at, (1,-1,0) in the first layer only, and in place of (1,0,-1)
 * the node before the one below is read.
 *
 * @param[in] image the image
 * @param varIndex index of the variable, 0 to nvar - 1
 * @param[out] eulerNumber the number
 * @return 0; -1100: varIndex out of range; -20: a null pointer; -611: a grid whose sizes are wrong; allocation statuses
 */
KESTRUM_API int VORLImageConnectivityEulerNumber(VORL_IMAGE* image, int varIndex, int* eulerNumber) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageConnectivityEulerNumber.
 * @copydetails VORLImageConnectivityEulerNumber
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageConnectivityEulerNumber(VORL_IMAGE* image, int varIndex, int* eulerNumber,
                                                    int nthreads) KESTRUM_NOEXCEPT;

/** Computes the Euler number of the geobodies of a set and of its complement at a series of thresholds, with 6
 * neighbours.
 *
 * At each of n thresholds start + i*step the set is the informed nodes with a value at or below it, its complement the
 * informed nodes above it. The numbers are 0 without a geobody. A set of one node has the missing nodes beside it in
 * the count, as the label image of such a set has (analysis/geobodies.h).
 *
 * @param[in] image the image, with one variable
 * @param n number of thresholds, and length of all vectors; below 1 nothing is done
 * @param start first threshold
 * @param step difference between thresholds
 * @param[out] thresholds n thresholds
 * @param[out] euler n Euler numbers of the set
 * @param[out] eulerComplement n Euler numbers of the complement
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -52: more or fewer variables than one; -20: a null pointer; -611: a grid whose sizes are wrong; allocation
 *   statuses. What was written before a failure stays */
KESTRUM_API int VORLImageConnectivity6EulerNumberCurve(VORL_IMAGE* image, int n, real start, real step,
                                                       real* thresholds, int* euler, int* eulerComplement,
                                                       BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageConnectivity6EulerNumberCurve; thresholds are computed as i*step + start.
 * @copydetails VORLImageConnectivity6EulerNumberCurve
 * @param nthreads number of threads, which share the thresholds; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageConnectivity6EulerNumberCurve(VORL_IMAGE* image, int n, real start, real step,
                                                          real* thresholds, int* euler, int* eulerComplement,
                                                          BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/** Computes the size and the extents of the largest geobody at a series of thresholds, with 6 neighbours.
 *
 * At each of n thresholds start + i*step the set is the informed nodes with a value at or below it, its complement the
 * informed nodes above it. The four maxima are taken separately and need not come from one geobody.
 *
 * @param[in] image the image, with one variable
 * @param n number of thresholds, and length of all vectors; below 1 nothing is done
 * @param start first threshold
 * @param step difference between thresholds
 * @param[out] thresholds n thresholds
 * @param[out] maxSize n largest sizes in nodes; 0 without a geobody
 * @param[out] maxExtentX n largest edges of a bounding box along x in cells; 0 without a geobody
 * @param[out] maxExtentY n largest edges along y; likewise
 * @param[out] maxExtentZ n largest edges along z; likewise
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -52: more or fewer variables than one; -20: a null pointer; -611: a grid whose sizes are wrong; allocation
 *   statuses. What was written before a failure stays */
KESTRUM_API int VORLImageMaxGeobody6SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                              int* maxSize, int* maxExtentX, int* maxExtentY, int* maxExtentZ,
                                              BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Computes the size and the extents of the largest geobody at a series of thresholds, with 18 neighbours.
 * @copydetails VORLImageMaxGeobody6SizeCurve */
KESTRUM_API int VORLImageMaxGeobody18SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                               int* maxSize, int* maxExtentX, int* maxExtentY, int* maxExtentZ,
                                               BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Computes the size and the extents of the largest geobody at a series of thresholds, with 26 neighbours.
 * @copydetails VORLImageMaxGeobody6SizeCurve */
KESTRUM_API int VORLImageMaxGeobody26SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                               int* maxSize, int* maxExtentX, int* maxExtentY, int* maxExtentZ,
                                               BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageMaxGeobody6SizeCurve; thresholds are computed as i*step + start.
 * @copydetails VORLImageMaxGeobody6SizeCurve
 * @param nthreads number of threads, which share the thresholds; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageMaxGeobody6SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                                 int* maxSize, int* maxExtentX, int* maxExtentY, int* maxExtentZ,
                                                 BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageMaxGeobody18SizeCurve; thresholds are computed as i*step + start.
 * @copydetails VORLImageMaxGeobody18SizeCurve
 * @param nthreads number of threads, which share the thresholds; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageMaxGeobody18SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                                  int* maxSize, int* maxExtentX, int* maxExtentY, int* maxExtentZ,
                                                  BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageMaxGeobody26SizeCurve; thresholds are computed as i*step + start.
 * @copydetails VORLImageMaxGeobody26SizeCurve
 * @param nthreads number of threads, which share the thresholds; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageMaxGeobody26SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                                  int* maxSize, int* maxExtentX, int* maxExtentY, int* maxExtentZ,
                                                  BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
