#ifndef KESTRUM_ANALYSIS_MORPHOLOGY_H
#define KESTRUM_ANALYSIS_MORPHOLOGY_H

/** @file
 * Binary dilation and erosion of images by a list of offsets (Serra, 1982, Image Analysis and Mathematical Morphology).
 *
 * A node belongs to the set if its value is neither 0.0 nor missing, and to the background if its value is 0.0. Offset
 * k of the structuring element is (shiftX[k], shiftY[k], shiftZ[k]) in cells. The element need not be symmetric, and
 * need not hold (0, 0, 0). A node at an offset counts only if it is in the grid: nothing is wrapped or mirrored, and
 * offsets may be any int.
 */

#include "../core/image.h"
#include "../core/types.h"

KESTRUM_BEGIN_DECLS

/** Dilates the set: in each iteration a background node with a node of the set at one of its offsets becomes 1.0.
 *
 * The set is the nodes whose value is neither 0.0 nor missing. All other nodes keep their value, missing ones too. A
 * node beyond the grid does not count.
 *
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty: the grid and all variables of imageIn, their names followed by
 *   VORL_SUFFIX_FOR_DILATING
 * @param nshift number of offsets; below 1: none
 * @param[in] shiftX nshift offsets along x in cells, any int
 * @param[in] shiftY nshift offsets along y in cells, any int
 * @param[in] shiftZ nshift offsets along z in cells, any int
 * @param niter number of iterations; below 1: the values are copied
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -20: null pointer; -621: no variable; -611: sizes of the grid below 1 or inconsistent; -623: a name has no
 *   room for the suffix; -620: too many values; allocation statuses */
KESTRUM_API int VORLImageDilate(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX, int* shiftY,
                                int* shiftZ, int niter, BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageDilate.
 * @copydetails VORLImageDilate
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPImageDilate(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX, int* shiftY,
                                   int* shiftZ, int niter, BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/** Erodes the set: in each iteration a node of the set with a background node at one of its offsets becomes 0.0.
 *
 * The set is the nodes whose value is neither 0.0 nor missing. Missing nodes and the outside of the grid erode nothing.
 *
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty: the grid and all variables of imageIn, their names followed by
 *   VORL_SUFFIX_FOR_ERODING
 * @param nshift number of offsets; below 1: none
 * @param[in] shiftX nshift offsets along x in cells, any int
 * @param[in] shiftY nshift offsets along y in cells, any int
 * @param[in] shiftZ nshift offsets along z in cells, any int
 * @param niter number of iterations; below 1: the values are copied
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -20: null pointer; -621: no variable; -611: sizes of the grid below 1 or inconsistent; -623: a name has no
 *   room for the suffix; -620: too many values; allocation statuses */
KESTRUM_API int VORLImageErode(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX, int* shiftY,
                               int* shiftZ, int niter, BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageErode.
 * @copydetails VORLImageErode
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPImageErode(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX, int* shiftY,
                                  int* shiftZ, int niter, BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
