#ifndef KESTRUM_ANALYSIS_DISTANCE_MAPS_H
#define KESTRUM_ANALYSIS_DISTANCE_MAPS_H

/** @file
 * Distance maps: at each node of each variable, the distance to the nearest feature node of that variable, and curves
 * of connectivity with such a distance as the threshold.
 *
 * A feature node has a value that is neither 0.0 nor missing. For a difference of (dx, dy, dz) cells, distances are in
 * the unit of the cell sizes:
 * - L1: |dx|*sx + |dy|*sy + |dz|*sz
 * - Euclidean: sqrt(dx*dx*sx*sx + dy*dy*sy*sy + dz*dz*sz*sz)
 *
 * A missing node is missing in the map, too, and does not influence the distances of other nodes. With no feature in a
 * variable its nodes hold the far value, more than any distance on the grid: nx*sx + ny*sy + nz*sz, or sqrt(nx*nx*sx*sx
 * + ny*ny*sy*sy + nz*nz*sz*sz).
 */

#include "../core/image.h"
#include "../core/types.h"

KESTRUM_BEGIN_DECLS

/** Computes the exact L1 distance of each node to the nearest feature, in time linear in the number of nodes.
 *
 * A feature has a value that is neither 0.0 nor missing. A missing node is missing in the map. Without a feature all
 * others hold a value above any distance on the grid. A missing node with ix = 0 counts as a feature for other nodes
 * (Meijster, Roerdink and Hesselink, 2000, A general algorithm for computing distance transforms in linear time).
 *
 * @param[in] imageIn the image; not changed
 * @param[out] imageOut must be empty: the variables of imageIn on its grid, their names followed by
 *   VORL_SUFFIX_FOR_DISTANCE_L1
 * @return 0; -20: grid, names or values not allocated, or imageOut null or imageIn; -621: no variable; -611: a grid
 *   whose sizes are wrong; -623, before anything is allocated: a name has no room for the suffix; -620: too many
 *   values; allocation statuses */
KESTRUM_API int VORLImageDistanceL1(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut) KESTRUM_NOEXCEPT;

/** Computes the exact Euclidean distance of each node to the nearest feature, in time linear in the number of nodes.
 *
 * A feature has a value that is neither 0.0 nor missing. A missing node is missing in the map. Without a feature all
 * others hold a value above any distance on the grid. (Meijster, Roerdink and Hesselink, 2000, A general algorithm for
 * computing distance transforms in linear time.)
 *
 * @param[in] imageIn the image; not changed
 * @param[out] imageOut must be empty: the variables of imageIn on its grid, their names followed by
 *   VORL_SUFFIX_FOR_DISTANCE_L2
 * @return 0; -20: grid, names or values not allocated, or imageOut null or imageIn; -621: no variable; -611: a grid
 *   whose sizes are wrong; -623, before anything is allocated: a name has no room for the suffix; -620: too many
 *   values; allocation statuses */
KESTRUM_API int VORLImageDistanceEuclidean(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageDistanceL1.
 * @copydetails VORLImageDistanceL1
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageDistanceL1(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nthreads) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageDistanceEuclidean.
 * @copydetails VORLImageDistanceEuclidean
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageDistanceEuclidean(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nthreads) KESTRUM_NOEXCEPT;

/** Computes the L1 distance of each node to the nearest feature by comparing every node with every feature, for
 * control.
 *
 * The time grows with the square of the number of nodes. No missing node is a feature here.
 *
 * @param[in] imageIn the image; not changed
 * @param[out] imageOut must be empty: the variables of imageIn on its grid, their names followed by
 *   VORL_SUFFIX_FOR_DISTANCE_L1
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -20: grid, names or values not allocated, or imageOut null or imageIn; -621: no variable; -611: a grid
 *   whose sizes are wrong; -623, before anything is allocated: a name has no room for the suffix; -620: too many
 *   values; allocation statuses */
KESTRUM_API int VORLImageDistanceL1BruteForce(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut,
                                              BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Computes the Euclidean distance of each node to the nearest feature by comparing every node with every feature, for
 * control.
 *
 * The time grows with the square of the number of nodes. No missing node is a feature here.
 *
 * @param[in] imageIn the image; not changed
 * @param[out] imageOut must be empty: the variables of imageIn on its grid, their names followed by
 *   VORL_SUFFIX_FOR_DISTANCE_L2
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -20: grid, names or values not allocated, or imageOut null or imageIn; -621: no variable; -611: a grid
 *   whose sizes are wrong; -623, before anything is allocated: a name has no room for the suffix; -620: too many
 *   values; allocation statuses */
KESTRUM_API int VORLImageDistanceEuclideanBruteForce(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut,
                                                     BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Computes the signed L1 distance of each node to the border of the features.
 *
 * It is the distance to the features, less the distance to what is left as background when the features are eroded once
 * by the six faces (analysis/morphology.h). So it is positive outside the features, 0 on their layer next to
 * background, and negative further inside.
 *
 * @param[in] imageIn the image; not changed
 * @param[out] imageOut must be empty: the variables of imageIn on its grid, their names followed by
 *   VORL_SUFFIX_FOR_DISTANCE_L1_SIGN
 * @return 0; -20: grid, names or values not allocated, or imageOut null or imageIn; -621: no variable; -611: a grid
 *   whose sizes are wrong; -623, before anything is allocated: a name has no room for the suffix; -620: too many
 *   values; allocation statuses */
KESTRUM_API int VORLImageDistanceL1Sign(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut) KESTRUM_NOEXCEPT;

/** Computes the signed Euclidean distance of each node to the border of the features.
 *
 * It is the distance to the features, less the distance to what is left as background when the features are eroded once
 * by the six faces (analysis/morphology.h). So it is positive outside the features, 0 on their layer next to
 * background, and negative further inside.
 *
 * @param[in] imageIn the image; not changed
 * @param[out] imageOut must be empty: the variables of imageIn on its grid, their names followed by
 *   VORL_SUFFIX_FOR_DISTANCE_L2_SIGN
 * @return 0; -20: grid, names or values not allocated, or imageOut null or imageIn; -621: no variable; -611: a grid
 *   whose sizes are wrong; -623, before anything is allocated: a name has no room for the suffix; -620: too many
 *   values; allocation statuses */
KESTRUM_API int VORLImageDistanceEuclideanSign(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageDistanceL1Sign.
 * @copydetails VORLImageDistanceL1Sign
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageDistanceL1Sign(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nthreads) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageDistanceEuclideanSign.
 * @copydetails VORLImageDistanceEuclideanSign
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageDistanceEuclideanSign(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut,
                                                  int nthreads) KESTRUM_NOEXCEPT;

/** Computes the distance in steps of a dilation with any structuring element.
 *
 * Background nodes hold the number of the step that reaches them from the features, features of value 1.0 the negative
 * number of the step that reaches them from outside of these (0 for their outer layer). Nodes that no step reaches hold
 * 0. A feature of another value than 1.0 keeps its value, less 1.0 if it is above 1.0; it bounds the features of value
 * 1.0.
 *
 * @param[in] imageIn the image; not changed
 * @param[out] imageOut must be empty: the variables of imageIn on its grid, their names followed by
 *   VORL_SUFFIX_FOR_DISTANCE_DILATING
 * @param nshift number of offsets; below 1: none
 * @param[in] shiftX nshift offsets along x in cells, any int. A node is reached if it has a node reached before at one
 *   of the offsets
 * @param[in] shiftY nshift offsets along y; likewise
 * @param[in] shiftZ nshift offsets along z; likewise
 * @return 0; -20: grid, names or values not allocated, or imageOut null or imageIn, or offsets null; -621: no variable;
 *   -611: a grid whose sizes are wrong; -623, before anything is allocated: a name has no room for the suffix; -620:
 *   too many values; allocation statuses */
KESTRUM_API int VORLImageDistanceByDilation(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX,
                                            int* shiftY, int* shiftZ) KESTRUM_NOEXCEPT;

/** Computes Gamma by L1 distance: of the nodes whose signed distance is at or below a threshold, and of the others,
 * with 6 neighbours.
 *
 * Gamma is explained in analysis/connectivity.h. The thresholds are the multiples of step from one step below the
 * lowest signed distance to at or above the highest.
 *
 * @param[in] image the image, with one variable
 * @param step difference between thresholds, above 0
 * @param[out] n length of the curves
 * @param[out] thresholds n thresholds: a vector allocated here, which the caller releases with VORLFree
 * @param[out] gamma n values of Gamma of the nodes at or below, a vector like thresholds;
 *   VORL_CONNECTIVITY_GAMMA_VALUE_IF_NO_GEOBODY if there is none
 * @param[out] gammaComplement n values of Gamma of the other informed nodes; likewise
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -52: more or fewer variables than one; -20: grid, names or values not allocated, or a null pointer for a
 *   result; -611: a grid whose sizes are wrong; -3: a step that is not above 0; -3 or -1: no threshold results, as with
 *   no informed node and a step below the far value; -1: more result than an int can count; allocation statuses. A
 *   failure sets nothing */
KESTRUM_API int VORLImageDistanceL1Connectivity6GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                     real** thresholds, real** gamma,
                                                                     real** gammaComplement,
                                                                     BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Computes Gamma by L1 distance: of the nodes whose signed distance is at or below a threshold, and of the others,
 * with 18 neighbours.
 * @copydetails VORLImageDistanceL1Connectivity6GlobalIndicatorCurve */
KESTRUM_API int VORLImageDistanceL1Connectivity18GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                      real** thresholds, real** gamma,
                                                                      real** gammaComplement,
                                                                      BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Computes Gamma by L1 distance: of the nodes whose signed distance is at or below a threshold, and of the others,
 * with 26 neighbours.
 * @copydetails VORLImageDistanceL1Connectivity6GlobalIndicatorCurve */
KESTRUM_API int VORLImageDistanceL1Connectivity26GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                      real** thresholds, real** gamma,
                                                                      real** gammaComplement,
                                                                      BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Computes Gamma by Euclidean distance: of the nodes whose signed distance is at or below a threshold, and of the
 * others, with 6 neighbours.
 * @copydetails VORLImageDistanceL1Connectivity6GlobalIndicatorCurve */
KESTRUM_API int VORLImageDistanceEuclideanConnectivity6GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                            real** thresholds, real** gamma,
                                                                            real** gammaComplement,
                                                                            BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Computes Gamma by Euclidean distance: of the nodes whose signed distance is at or below a threshold, and of the
 * others, with 18 neighbours.
 * @copydetails VORLImageDistanceL1Connectivity6GlobalIndicatorCurve */
KESTRUM_API int VORLImageDistanceEuclideanConnectivity18GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                             real** thresholds, real** gamma,
                                                                             real** gammaComplement,
                                                                             BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Computes Gamma by Euclidean distance: of the nodes whose signed distance is at or below a threshold, and of the
 * others, with 26 neighbours.
 * @copydetails VORLImageDistanceL1Connectivity6GlobalIndicatorCurve */
KESTRUM_API int VORLImageDistanceEuclideanConnectivity26GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                             real** thresholds, real** gamma,
                                                                             real** gammaComplement,
                                                                             BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageDistanceL1Connectivity6GlobalIndicatorCurve.
 * @copydetails VORLImageDistanceL1Connectivity6GlobalIndicatorCurve
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageDistanceL1Connectivity6GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                        real** thresholds, real** gamma,
                                                                        real** gammaComplement, BOOLEAN verbose,
                                                                        int nthreads) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageDistanceL1Connectivity18GlobalIndicatorCurve.
 * @copydetails VORLImageDistanceL1Connectivity18GlobalIndicatorCurve
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageDistanceL1Connectivity18GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                         real** thresholds, real** gamma,
                                                                         real** gammaComplement, BOOLEAN verbose,
                                                                         int nthreads) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageDistanceL1Connectivity26GlobalIndicatorCurve.
 * @copydetails VORLImageDistanceL1Connectivity26GlobalIndicatorCurve
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageDistanceL1Connectivity26GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                         real** thresholds, real** gamma,
                                                                         real** gammaComplement, BOOLEAN verbose,
                                                                         int nthreads) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageDistanceEuclideanConnectivity6GlobalIndicatorCurve.
 * @copydetails VORLImageDistanceEuclideanConnectivity6GlobalIndicatorCurve
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageDistanceEuclideanConnectivity6GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                               real** thresholds, real** gamma,
                                                                               real** gammaComplement, BOOLEAN verbose,
                                                                               int nthreads) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageDistanceEuclideanConnectivity18GlobalIndicatorCurve.
 * @copydetails VORLImageDistanceEuclideanConnectivity18GlobalIndicatorCurve
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageDistanceEuclideanConnectivity18GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                                real** thresholds, real** gamma,
                                                                                real** gammaComplement, BOOLEAN verbose,
                                                                                int nthreads) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageDistanceEuclideanConnectivity26GlobalIndicatorCurve.
 * @copydetails VORLImageDistanceEuclideanConnectivity26GlobalIndicatorCurve
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImageDistanceEuclideanConnectivity26GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                                real** thresholds, real** gamma,
                                                                                real** gammaComplement, BOOLEAN verbose,
                                                                                int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
