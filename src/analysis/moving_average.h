#ifndef KESTRUM_ANALYSIS_MOVING_AVERAGE_H
#define KESTRUM_ANALYSIS_MOVING_AVERAGE_H

#include "core/image.h"
#include "core/types.h"
#include "neighborhood/search_neighborhood.h"

/* Averages over a neighbourhood that slides over the nodes of an image: a box, or a search neighbourhood.
 *
 * Common arguments:
 *   imageIn            in
 *   imageOut           out; must hold nothing; its contents are allocated (VORLFreeImage). The grid and all variables
 *                      of imageIn, their names followed by the suffix of the operation.
 *   proportionOfValue  FALSE: averages of the values; TRUE: of the indicator that a node's value equals `value` exactly
 *   verbose            TRUE: warnings of the box average, progress of the neighbourhood average, on the standard output
 *   nthreads           number of threads of the VORLOMP form, one if it is below 1 (the neighbourhood average fails
 *                      then); the result does not depend on it
 *
 * Statuses of the image functions: -20 null pointer; -621 no variable; -611 sizes of the grid below 1 or inconsistent;
 * -623 a name has no room for the suffix; -620 too many values; those of VORLMalloc and VORLMallocImage; those told
 * below. After a failure imageOut may be released.
 *
 * Thread safety: calls that write to different records may run at the same time.
 */

KESTRUM_BEGIN_DECLS

/* Weighted sums over a box, at the nodes where the whole box lies in the grid; all other nodes are missing.
 *   nx, ny, nz                   sizes of the grid
 *   nvar                         number of variables
 *   kernelLengthX, ..Y, ..Z      lengths L of the box in nodes; node r = (L - 1)/2 of each axis lies at the output node
 *   kernelX, kernelY, kernelZ    in; factors along the axes. Kernel entry (i, j, k) has the weight
 *                                (kernelX[i] * kernelY[j]) * kernelZ[k].
 *   input                        in; nvar * nx*ny*nz values
 *   output                       out; as many, allocated by the caller, not overlapping input
 *   minWeightProportion          smallest share of the weights that must fall on informed nodes
 * With a complete box the sum of weight * value over z, y, x, in this order. With missing values in the box, the sum
 * over the others, times the sum of all weights, divided by the sum of theirs; missing if that is below
 * minWeightProportion times the sum of all weights, or if none is informed. A length below 1 makes an empty box: 0.0.
 * Sizes or a number of variables below 1: nothing is done. Statuses: -20 null pointer; those of VORLMalloc. */
KESTRUM_API int VORLMovingBoxSum(int nx, int ny, int nz, int nvar, int kernelLengthX, int kernelLengthY,
                                 int kernelLengthZ, double* kernelX, double* kernelY, double* kernelZ, double* input,
                                 double* output, double minWeightProportion) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPMovingBoxSum(int nx, int ny, int nz, int nvar, int kernelLengthX, int kernelLengthY,
                                    int kernelLengthZ, double* kernelX, double* kernelY, double* kernelZ, double* input,
                                    double* output, double minWeightProportion, int nthreads) KESTRUM_NOEXCEPT;

/* Average over a box of any size: VORLMovingBoxSum with the share of each cell in the box as its weight, and
 * VORL_MIN_WEIGHT_PROPORTION_MOVING_BOX_SUM. A size within 2e-5 cells of an odd number of cells is that number; a
 * smaller size than one cell is one cell. Suffix: VORL_SUFFIX_FOR_MOVING_BOX_AVERAGE.
 *   boxSizeX, boxSizeY, boxSizeZ  sizes of the box in the unit of the cell sizes
 * A missing node lowers the proportion of a value, as any other node without the value.
 * Statuses: -3703, -3704, -3705 box too large along x, y, z, tested first. */
KESTRUM_API int VORLMovingBoxAverageImage(real boxSizeX, real boxSizeY, real boxSizeZ, VORL_IMAGE* imageIn,
                                          VORL_IMAGE* imageOut, BOOLEAN proportionOfValue, real value,
                                          BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPMovingBoxAverageImage(real boxSizeX, real boxSizeY, real boxSizeZ, VORL_IMAGE* imageIn,
                                             VORL_IMAGE* imageOut, BOOLEAN proportionOfValue, real value,
                                             BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/* Average over the informed nodes at the offsets of a search neighbourhood, with its weights: the sum of value * weight
 * divided by the sum of the weights, each over the entries in order. A missing node stays missing. An informed node
 * with no informed neighbour becomes a not-a-number (0/0). Suffix: VORL_SUFFIX_FOR_MOVING_SN_AVERAGE.
 *   searchNeighborhood  in; size, ix, iy, iz and weight are read. A node itself counts only if (0, 0, 0) is listed.
 * Status -3 with nthreads below 1. */
KESTRUM_API int VORLMovingSearchNeighborhoodAverageImage(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                                         VORL_IMAGE* imageIn, VORL_IMAGE* imageOut,
                                                         BOOLEAN proportionOfValue, real value,
                                                         BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPMovingSearchNeighborhoodAverageImage(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                                            VORL_IMAGE* imageIn, VORL_IMAGE* imageOut,
                                                            BOOLEAN proportionOfValue, real value, BOOLEAN verbose,
                                                            int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
