#ifndef KESTRUM_ANALYSIS_MOVING_AVERAGE_H
#define KESTRUM_ANALYSIS_MOVING_AVERAGE_H

/** @file
 * Averages over a neighbourhood that slides over the nodes of an image: a box, or a search neighbourhood.
 */

#include "../core/image.h"
#include "../core/types.h"
#include "../neighborhood/search_neighborhood.h"

KESTRUM_BEGIN_DECLS

/** Computes weighted sums over a box, at the nodes where the whole box is in the grid; all other nodes are missing.
 *
 * With a complete box the result is the sum of weight * value over z, y, x, in this order. With missing values in the
 * box, it is the sum over the others, times the sum of all weights, divided by the sum of theirs; missing if that is
 * below minWeightProportion times the sum of all weights, or if none is informed. A length below 1 makes an empty box:
 * 0.0. With sizes or a number of variables below 1 nothing is done.
 *
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param nvar number of variables
 * @param kernelLengthX length L of the box along x in nodes; its node (L - 1)/2 is at the output node
 * @param kernelLengthY length along y; likewise
 * @param kernelLengthZ length along z; likewise
 * @param[in] kernelX kernelLengthX factors. Kernel entry (i, j, k) has the weight (kernelX[i] * kernelY[j]) *
 *   kernelZ[k]
 * @param[in] kernelY kernelLengthY factors
 * @param[in] kernelZ kernelLengthZ factors
 * @param[in] input nvar * nx*ny*nz values
 * @param[out] output as many values
 * @param minWeightProportion smallest share of the weights that must fall on informed nodes
 * @return 0; -20: null pointer; allocation statuses */
KESTRUM_API int VORLMovingBoxSum(int nx, int ny, int nz, int nvar, int kernelLengthX, int kernelLengthY,
                                 int kernelLengthZ, double* kernelX, double* kernelY, double* kernelZ, double* input,
                                 double* output, double minWeightProportion) KESTRUM_NOEXCEPT;

/** Threaded form of VORLMovingBoxSum.
 * @copydetails VORLMovingBoxSum
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPMovingBoxSum(int nx, int ny, int nz, int nvar, int kernelLengthX, int kernelLengthY,
                                    int kernelLengthZ, double* kernelX, double* kernelY, double* kernelZ, double* input,
                                    double* output, double minWeightProportion, int nthreads) KESTRUM_NOEXCEPT;

/** Averages over a box of any size: VORLMovingBoxSum with the share of each cell in the box as its weight, and
 * VORL_MIN_WEIGHT_PROPORTION_MOVING_BOX_SUM.
 *
 * A size within 2e-5 cells of an odd number of cells is that number; a smaller size than one cell is one cell. A
 * missing node lowers the proportion of a value, as any other node without the value.
 *
 * @param boxSizeX size of the box along x in the unit of the cell sizes
 * @param boxSizeY size along y; likewise
 * @param boxSizeZ size along z; likewise
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty: the grid and all variables of imageIn, their names followed by
 *   VORL_SUFFIX_FOR_MOVING_BOX_AVERAGE
 * @param proportionOfValue FALSE: averages of the values; TRUE: of the indicator that a value equals value exactly
 * @param value the value whose proportion is asked for; not looked at otherwise
 * @param verbose TRUE: print warnings on the standard output
 * @return 0; -3703, -3704, -3705: box too large along x, y, z, tested first; -20: null pointer; -621: no variable;
 *   -611: sizes of the grid below 1 or inconsistent; -623: a name has no room for the suffix; -620: too many values;
 *   allocation statuses */
KESTRUM_API int VORLMovingBoxAverageImage(real boxSizeX, real boxSizeY, real boxSizeZ, VORL_IMAGE* imageIn,
                                          VORL_IMAGE* imageOut, BOOLEAN proportionOfValue, real value,
                                          BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLMovingBoxAverageImage.
 * @copydetails VORLMovingBoxAverageImage
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPMovingBoxAverageImage(real boxSizeX, real boxSizeY, real boxSizeZ, VORL_IMAGE* imageIn,
                                             VORL_IMAGE* imageOut, BOOLEAN proportionOfValue, real value,
                                             BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/** Averages over the informed nodes at the offsets of a search neighbourhood, with its weights.
 *
 * The average is the sum of value * weight divided by the sum of the weights, each over the entries in order. A missing
 * node stays missing. An informed node with no informed neighbour becomes a not-a-number (0/0).
 *
 * @param[in] searchNeighborhood size, ix, iy, iz and weight are read. A node itself counts only if (0, 0, 0) is listed
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty: the grid and all variables of imageIn, their names followed by
 *   VORL_SUFFIX_FOR_MOVING_SN_AVERAGE
 * @param proportionOfValue FALSE: averages of the values; TRUE: of the indicator that a value equals value exactly
 * @param value the value whose proportion is asked for; not looked at otherwise
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -20: null pointer; -621: no variable; -611: sizes of the grid below 1 or inconsistent; -623: a name has no
 *   room for the suffix; -620: too many values; allocation statuses */
KESTRUM_API int VORLMovingSearchNeighborhoodAverageImage(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                                         VORL_IMAGE* imageIn, VORL_IMAGE* imageOut,
                                                         BOOLEAN proportionOfValue, real value,
                                                         BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLMovingSearchNeighborhoodAverageImage.
 * @copydetails VORLMovingSearchNeighborhoodAverageImage
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPMovingSearchNeighborhoodAverageImage(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                                            VORL_IMAGE* imageIn, VORL_IMAGE* imageOut,
                                                            BOOLEAN proportionOfValue, real value, BOOLEAN verbose,
                                                            int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
