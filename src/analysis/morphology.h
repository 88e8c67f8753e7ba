#ifndef KESTRUM_ANALYSIS_MORPHOLOGY_H
#define KESTRUM_ANALYSIS_MORPHOLOGY_H

#include "core/image.h"
#include "core/types.h"

/* Binary dilation and erosion of images by a list of offsets (Serra, 1982, Image Analysis and Mathematical Morphology).
 *
 * A node belongs to the set if its value is neither 0.0 nor missing, and to the background if its value is 0.0.
 * Offset k of the structuring element is (shiftX[k], shiftY[k], shiftZ[k]) in cells. The element need not be
 * symmetric, and need not hold (0, 0, 0). A node at an offset counts only if it lies in the grid: nothing is wrapped or
 * mirrored, and offsets may be any int.
 *
 * Common arguments:
 *   imageIn                 in
 *   imageOut                out; must hold nothing; its contents are allocated (VORLFreeImage). The grid and all
 *                           variables of imageIn, their names followed by the suffix of the operation.
 *   nshift                  number of offsets; below 1: none
 *   shiftX, shiftY, shiftZ  in; nshift entries each
 *   niter                   number of iterations; below 1: the values are copied
 *   verbose                 TRUE: progress is printed on the standard output
 *   nthreads                number of threads of the VORLOMP form, one if it is below 1; the result does not depend
 *                           on it
 *
 * Statuses: -20 null pointer; -621 no variable; -611 sizes of the grid below 1 or inconsistent; -623 a name has no room
 * for the suffix; -620 too many values; those of VORLMalloc and VORLMallocImage. After a failure imageOut may be
 * released.
 *
 * Thread safety: calls that write to different images may run at the same time.
 */

KESTRUM_BEGIN_DECLS

/* Dilation: in each iteration a background node with a node of the set at one of its offsets becomes 1.0. All other
 * nodes keep their value, missing ones too. Suffix: VORL_SUFFIX_FOR_DILATING. */
KESTRUM_API int VORLImageDilate(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX, int* shiftY,
                                int* shiftZ, int niter, BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageDilate(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX, int* shiftY,
                                   int* shiftZ, int niter, BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/* Erosion: in each iteration a node of the set with a background node at one of its offsets becomes 0.0. Missing nodes
 * and the outside of the grid erode nothing. Suffix: VORL_SUFFIX_FOR_ERODING. */
KESTRUM_API int VORLImageErode(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX, int* shiftY,
                               int* shiftZ, int niter, BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageErode(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX, int* shiftY,
                                  int* shiftZ, int niter, BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
