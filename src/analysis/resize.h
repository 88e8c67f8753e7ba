#ifndef KESTRUM_ANALYSIS_RESIZE_H
#define KESTRUM_ANALYSIS_RESIZE_H

/** @file
 * Windows of images.
 */

#include "../core/image.h"
#include "../core/types.h"

KESTRUM_BEGIN_DECLS

/** Cuts a window out of an image, or pads it: node (0, 0, 0) of the result is node (ixMin, iyMin, izMin) of the image.
 *
 * Nodes and variables are given by their first and last index, both included; they may be beyond the image, negative
 * ones too. What imageIn does not have is missing.
 *
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty. The spacing is that of imageIn, and each node keeps its place in space
 * @param ixMin first index along x
 * @param ixMax last index along x
 * @param iyMin first index along y
 * @param iyMax last index along y
 * @param izMin first index along z
 * @param izMax last index along z
 * @param ivMin first variable. One that imageIn has keeps its name; another is named "var" followed by its position in
 *   imageOut, from 0, in two digits
 * @param ivMax last variable
 * @return 0; -2001, -2002, -2003, -2004: no element in the range of x, y, z, variables, or more than an int counts;
 *   -20, -611 or -621: image not valid, or -20: imageOut is imageIn; -620: result too large; those of VORLMallocImage
 */
KESTRUM_API int VORLResizeImage(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int ixMin, int ixMax, int iyMin, int iyMax,
                                int izMin, int izMax, int ivMin, int ivMax) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
