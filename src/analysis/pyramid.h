#ifndef KESTRUM_ANALYSIS_PYRAMID_H
#define KESTRUM_ANALYSIS_PYRAMID_H

#include "core/image.h"
#include "core/types.h"

/* One step of a Gaussian pyramid: shrinking or enlarging an image by a whole factor per axis with a symmetric
 * separable filter (Burt and Adelson, 1983, IEEE Transactions on Communications 31), for any factor and with missing
 * values.
 *
 * Step: one per axis. 0 leaves the axis as it is; f > 0 reduces by f (f is less than the number of nodes) or expands by
 * f (the axis has two nodes at least).
 *
 * Filter: for a step f a vector w of f + 1 weights, w[0] at the centre and w[j] at distance j on each side. An axis
 * with step 0 needs none.
 *
 * Weights: a value travels from axis to axis (x, y, z) as a sum over informed nodes together with the total weight of
 * that sum; a node beyond an end of the grid has the value of the end. Last the sum is divided by its weight, which
 * makes it a weighted average of what is there. It is missing if the weight is less than minWeight.
 *
 * Statuses of the forms that filter: reduction -3509 and expansion -3519 if minWeight is less than 1e-10, unless all
 * steps are 0; those of VORLMalloc, so -3 with nthreads below 1. A VORLOMP form has the bits of its serial form for any
 * other number of threads.
 *
 * Thread safety: calls that write to different arrays or records may run at the same time.
 */

KESTRUM_BEGIN_DECLS

/* The filter of a step, from the binomial coefficients C(2f, k), scaled so that each input node has the same total
 * weight over the output nodes, 1/f.
 *   step           f; nothing is written if it is less than 1. Beyond 510 the coefficients overflow and the weights are
 *                  not numbers.
 *   weight         out; f + 1 entries
 *   centralWeight  w[0], or negative for that of the binomial filter
 * Returns 0. */
KESTRUM_API int VORLPyramidWeight(int step, double* weight, double centralWeight) KESTRUM_NOEXCEPT;

/* Size of an axis of n nodes after reduction, and input node of the first output node: output node o stands at input
 * node offset + o * step.
 * Statuses: -3501 step less than 0; -3505 step not less than n. Then nothing is written. */
KESTRUM_API int VORLPyramidReduceDimension(int n, int step, int* nOut, int* offset) KESTRUM_NOEXCEPT;

/* Size of an axis of n nodes after expansion, (n - 1) * step + 1: input node k becomes output node k * step.
 * Statuses: -3511 step less than 0, or so large that an int can not hold the size; -3515 n less than 2 with a step.
 * Then nothing is written. */
KESTRUM_API int VORLPyramidExpandDimension(int n, int step, int* nOut) KESTRUM_NOEXCEPT;

/* Reduces one variable.
 *   input                      in; nx * ny * nz values in node order
 *   weightX, weightY, weightZ  in; filters, see above
 *   offsetX .. nzOut           as VORLPyramidReduceDimension gives them
 *   output                     out; nxOut * nyOut * nzOut values; must not overlap input
 *   totalWeight                out; as many total weights, 0 where no node of the window is informed
 * With all steps 0 output is a copy of input and totalWeight is 1 at informed nodes, 0 at others.
 * Statuses: -3501 a step less than 0; -3505 a size less than 1, or another than that of the input with step 0; -20 a
 * null pointer; those above. */
KESTRUM_API int VORLPyramidReduce(double* input, int nx, int ny, int nz, int stepX, int stepY, int stepZ,
                                  double* weightX, double* weightY, double* weightZ, int offsetX, int offsetY,
                                  int offsetZ, int nxOut, int nyOut, int nzOut, double* output, double* totalWeight,
                                  double minWeight) KESTRUM_NOEXCEPT;

/* The same with nthreads threads. */
KESTRUM_API int VORLOMPPyramidReduce(double* input, int nx, int ny, int nz, int stepX, int stepY, int stepZ,
                                     double* weightX, double* weightY, double* weightZ, int offsetX, int offsetY,
                                     int offsetZ, int nxOut, int nyOut, int nzOut, double* output, double* totalWeight,
                                     double minWeight, int nthreads) KESTRUM_NOEXCEPT;

/* Expands one variable. Arguments as of VORLPyramidReduce, sizes as VORLPyramidExpandDimension gives them.
 * Statuses: -3511 a step less than 0; -3515 a size less than 1, or less than 2 with a step, or a size of the output
 * that VORLPyramidExpandDimension does not give; -20 a null pointer; those above. */
KESTRUM_API int VORLPyramidExpand(double* input, int nx, int ny, int nz, int stepX, int stepY, int stepZ,
                                  double* weightX, double* weightY, double* weightZ, int nxOut, int nyOut, int nzOut,
                                  double* output, double* totalWeight, double minWeight) KESTRUM_NOEXCEPT;

/* The same with nthreads threads. */
KESTRUM_API int VORLOMPPyramidExpand(double* input, int nx, int ny, int nz, int stepX, int stepY, int stepZ,
                                     double* weightX, double* weightY, double* weightZ, int nxOut, int nyOut, int nzOut,
                                     double* output, double* totalWeight, double minWeight,
                                     int nthreads) KESTRUM_NOEXCEPT;

/* Reduces all variables of an image.
 *   imageIn                          in
 *   imageOut                         out; must hold nothing; its contents are allocated (VORLFreeImage, after a failure
 *                                    too). Names have "_GPred" appended. The origin is that of imageIn and so is the
 *                                    extent: the spacing is n * s / nOut.
 *   stepX, stepY, stepZ              see above
 *   centralWeightX, Y, Z             weight at the centre of each filter; negative: that of the binomial filter
 *   minWeight                        see above; negative: VORL_GAUSSIAN_PYRAMID_RED_TOTAL_WEIGHT_MIN
 * Statuses: -3502, -3503, -3504 step along x, y, z less than 0; -3506, -3507, -3508 not less than the number of nodes;
 * -3509 minWeight; -20, -611 or -621 image not valid; -623 name without room for the suffix; -620 result too large;
 * those of VORLMalloc. */
KESTRUM_API int VORLImagePyramidReduce(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int stepX, int stepY, int stepZ,
                                       real centralWeightX, real centralWeightY, real centralWeightZ,
                                       real minWeight) KESTRUM_NOEXCEPT;

/* The same with nthreads threads. */
KESTRUM_API int VORLOMPImagePyramidReduce(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int stepX, int stepY, int stepZ,
                                          real centralWeightX, real centralWeightY, real centralWeightZ, real minWeight,
                                          int nthreads) KESTRUM_NOEXCEPT;

/* Expands all variables of an image. As VORLImagePyramidReduce, but names have "_GPexp" appended and the default of
 * minWeight is VORL_GAUSSIAN_PYRAMID_EXP_TOTAL_WEIGHT_MIN. The spacing is n * s / nOut too, not s / step.
 * Statuses: -3512, -3513, -3514 step along x, y, z less than 0 or too large; -3516, -3517, -3518 fewer than two nodes
 * along an axis with a step; -3519 minWeight; the others as there. */
KESTRUM_API int VORLImagePyramidExpand(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int stepX, int stepY, int stepZ,
                                       real centralWeightX, real centralWeightY, real centralWeightZ,
                                       real minWeight) KESTRUM_NOEXCEPT;

/* The same with nthreads threads. */
KESTRUM_API int VORLOMPImagePyramidExpand(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int stepX, int stepY, int stepZ,
                                          real centralWeightX, real centralWeightY, real centralWeightZ, real minWeight,
                                          int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
