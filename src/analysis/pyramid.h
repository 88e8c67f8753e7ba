#ifndef KESTRUM_ANALYSIS_PYRAMID_H
#define KESTRUM_ANALYSIS_PYRAMID_H

/** @file
 * One step of a Gaussian pyramid: shrinking or enlarging an image by a whole factor per axis with a symmetric separable
 * filter (Burt and Adelson, 1983, IEEE Transactions on Communications 31), for any factor and with missing values.
 *
 * Step: one per axis. 0 leaves the axis as it is; f > 0 reduces by f (f is less than the number of nodes) or expands by
 * f (the axis has two nodes at least).
 *
 * Filter: for a step f a vector w of f + 1 weights, w[0] at the centre and w[j] at distance j on each side. An axis
 * with step 0 needs none.
 *
 * Weights: a value goes from axis to axis (x, y, z) as a sum over informed nodes together with the total weight of that
 * sum; a node beyond an end of the grid has the value of the end. Last the sum is divided by its weight, which makes it
 * a weighted average of what is there. It is missing if the weight is less than minWeight.
 */

#include "../core/image.h"
#include "../core/types.h"

KESTRUM_BEGIN_DECLS

/** Computes the filter of a step, from the binomial coefficients C(2f, k), scaled so that each input node has the same
 * total weight over the output nodes, 1/f.
 *
 * @param step the step f; nothing is written if it is less than 1. Beyond 510 the coefficients overflow and the weights
 *   are not numbers
 * @param[out] weight f + 1 weights
 * @param centralWeight weight at the centre; negative: that of the binomial filter
 * @return 0 */
KESTRUM_API int VORLPyramidWeight(int step, double* weight, double centralWeight) KESTRUM_NOEXCEPT;

/** Computes the size of an axis after reduction: output node o is at input node offset + o * step.
 *
 * @param n number of nodes
 * @param step the step, 0 to n - 1
 * @param[out] nOut number of output nodes; not written after a failure
 * @param[out] offset input node of the first output node; not written after a failure
 * @return 0; -3501: step less than 0; -3505: step not less than n */
KESTRUM_API int VORLPyramidReduceDimension(int n, int step, int* nOut, int* offset) KESTRUM_NOEXCEPT;

/** Computes the size of an axis after expansion, (n - 1) * step + 1: input node k becomes output node k * step.
 *
 * @param n number of nodes
 * @param step the step, at least 0
 * @param[out] nOut number of output nodes; not written after a failure
 * @return 0; -3511: step less than 0, or so large that an int cannot hold the size; -3515: n less than 2 with a step */
KESTRUM_API int VORLPyramidExpandDimension(int n, int step, int* nOut) KESTRUM_NOEXCEPT;

/** Reduces one variable.
 *
 * With all steps 0 output is a copy of input and totalWeight is 1 at informed nodes, 0 at others.
 *
 * @param[in] input nx*ny*nz values in node order
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param stepX step along x
 * @param stepY step along y
 * @param stepZ step along z
 * @param[in] weightX filter along x, stepX + 1 weights; null is allowed with step 0
 * @param[in] weightY filter along y; likewise
 * @param[in] weightZ filter along z; likewise
 * @param offsetX input node of the first output node along x, as VORLPyramidReduceDimension gives it
 * @param offsetY the same along y
 * @param offsetZ the same along z
 * @param nxOut number of output nodes along x, as VORLPyramidReduceDimension gives it
 * @param nyOut number of output nodes along y
 * @param nzOut number of output nodes along z
 * @param[out] output nxOut*nyOut*nzOut values
 * @param[out] totalWeight as many total weights, 0 where no node of the window is informed; null is allowed
 * @param minWeight an output value of a smaller total weight is missing
 * @return 0; -3501: a step less than 0; -3505: a size less than 1, or another than that of the input with step 0;
 *   -3509: minWeight less than 1e-10, unless all steps are 0; -20: a null pointer; allocation statuses */
KESTRUM_API int VORLPyramidReduce(double* input, int nx, int ny, int nz, int stepX, int stepY, int stepZ,
                                  double* weightX, double* weightY, double* weightZ, int offsetX, int offsetY,
                                  int offsetZ, int nxOut, int nyOut, int nzOut, double* output, double* totalWeight,
                                  double minWeight) KESTRUM_NOEXCEPT;

/** Threaded form of VORLPyramidReduce, with the same bits.
 * @copydetails VORLPyramidReduce
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPPyramidReduce(double* input, int nx, int ny, int nz, int stepX, int stepY, int stepZ,
                                     double* weightX, double* weightY, double* weightZ, int offsetX, int offsetY,
                                     int offsetZ, int nxOut, int nyOut, int nzOut, double* output, double* totalWeight,
                                     double minWeight, int nthreads) KESTRUM_NOEXCEPT;

/** Expands one variable.
 *
 * With all steps 0 output is a copy of input and totalWeight is 1 at informed nodes, 0 at others.
 *
 * @param[in] input nx*ny*nz values in node order
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param stepX step along x
 * @param stepY step along y
 * @param stepZ step along z
 * @param[in] weightX filter along x, stepX + 1 weights; null is allowed with step 0
 * @param[in] weightY filter along y; likewise
 * @param[in] weightZ filter along z; likewise
 * @param nxOut number of output nodes along x, as VORLPyramidExpandDimension gives it
 * @param nyOut number of output nodes along y
 * @param nzOut number of output nodes along z
 * @param[out] output nxOut*nyOut*nzOut values
 * @param[out] totalWeight as many total weights, 0 where no node of the window is informed; null is allowed
 * @param minWeight an output value of a smaller total weight is missing
 * @return 0; -3511: a step less than 0; -3515: a size less than 1, or less than 2 with a step, or a size of the output
 *   that VORLPyramidExpandDimension does not give; -3519: minWeight less than 1e-10, unless all steps are 0; -20: a
 *   null pointer; allocation statuses */
KESTRUM_API int VORLPyramidExpand(double* input, int nx, int ny, int nz, int stepX, int stepY, int stepZ,
                                  double* weightX, double* weightY, double* weightZ, int nxOut, int nyOut, int nzOut,
                                  double* output, double* totalWeight, double minWeight) KESTRUM_NOEXCEPT;

/** Threaded form of VORLPyramidExpand, with the same bits.
 * @copydetails VORLPyramidExpand
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPPyramidExpand(double* input, int nx, int ny, int nz, int stepX, int stepY, int stepZ,
                                     double* weightX, double* weightY, double* weightZ, int nxOut, int nyOut, int nzOut,
                                     double* output, double* totalWeight, double minWeight,
                                     int nthreads) KESTRUM_NOEXCEPT;

/** Reduces all variables of an image.
 *
 * Origin and extent stay: the spacing is n * s / nOut.
 *
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty: all variables of imageIn, their names followed by
 *   VORL_SUFFIX_FOR_GAUSSIAN_PYRAMID_RED
 * @param stepX step along x
 * @param stepY step along y
 * @param stepZ step along z
 * @param centralWeightX weight at the centre of the filter along x; negative: that of the binomial filter
 * @param centralWeightY the same along y
 * @param centralWeightZ the same along z
 * @param minWeight an output value of a smaller total weight is missing; negative:
 *   VORL_GAUSSIAN_PYRAMID_RED_TOTAL_WEIGHT_MIN
 * @return 0; -3502, -3503, -3504: step along x, y, z less than 0; -3506, -3507, -3508: not less than the number of
 *   nodes; -3509: minWeight less than 1e-10; -20, -611 or -621: image not valid; -623: a name has no room for the
 *   suffix; -620: result too large; allocation statuses */
KESTRUM_API int VORLImagePyramidReduce(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int stepX, int stepY, int stepZ,
                                       real centralWeightX, real centralWeightY, real centralWeightZ,
                                       real minWeight) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImagePyramidReduce, with the same bits.
 * @copydetails VORLImagePyramidReduce
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImagePyramidReduce(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int stepX, int stepY, int stepZ,
                                          real centralWeightX, real centralWeightY, real centralWeightZ, real minWeight,
                                          int nthreads) KESTRUM_NOEXCEPT;

/** Expands all variables of an image.
 *
 * Origin and extent stay: the spacing is n * s / nOut, not s / step.
 *
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty: all variables of imageIn, their names followed by
 *   VORL_SUFFIX_FOR_GAUSSIAN_PYRAMID_EXP
 * @param stepX step along x
 * @param stepY step along y
 * @param stepZ step along z
 * @param centralWeightX weight at the centre of the filter along x; negative: that of the binomial filter
 * @param centralWeightY the same along y
 * @param centralWeightZ the same along z
 * @param minWeight an output value of a smaller total weight is missing; negative:
 *   VORL_GAUSSIAN_PYRAMID_EXP_TOTAL_WEIGHT_MIN
 * @return 0; -3512, -3513, -3514: step along x, y, z less than 0 or too large; -3516, -3517, -3518: fewer than two
 *   nodes along an axis with a step; -3519: minWeight less than 1e-10; -20, -611 or -621: image not valid; -623: a name
 *   has no room for the suffix; -620: result too large; allocation statuses */
KESTRUM_API int VORLImagePyramidExpand(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int stepX, int stepY, int stepZ,
                                       real centralWeightX, real centralWeightY, real centralWeightZ,
                                       real minWeight) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImagePyramidExpand, with the same bits.
 * @copydetails VORLImagePyramidExpand
 * @param nthreads number of threads; -3 is the status of one below 1 */
KESTRUM_API int VORLOMPImagePyramidExpand(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int stepX, int stepY, int stepZ,
                                          real centralWeightX, real centralWeightY, real centralWeightZ, real minWeight,
                                          int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
