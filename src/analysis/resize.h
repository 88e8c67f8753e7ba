#ifndef KESTRUM_ANALYSIS_RESIZE_H
#define KESTRUM_ANALYSIS_RESIZE_H

#include "core/image.h"
#include "core/types.h"

KESTRUM_BEGIN_DECLS

/* Cuts a window out of an image, or pads it: node (0, 0, 0) of the result is node (ixMin, iyMin, izMin) of the image.
 *   imageIn         in
 *   imageOut        out; must hold nothing; its contents are allocated (VORLFreeImage, after a failure too). The
 *                   spacing is that of imageIn, and each node keeps its place in space.
 *   ixMin .. izMax  nodes, both ends included; they may lie beyond the image, negative ones too
 *   ivMin, ivMax    variables, likewise. One that imageIn has keeps its name; another is named "var%02d" after its
 *                   position in imageOut, from 0.
 * What imageIn does not have is missing.
 * Statuses: -2001, -2002, -2003, -2004 no element in the range of x, y, z, variables, or more than an int counts; -20,
 * -611 or -621 image not valid, or -20 imageOut is imageIn; -620 result too large; those of VORLMallocImage.
 * Thread safety: calls that write to different records may run at the same time. */
KESTRUM_API int VORLResizeImage(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int ixMin, int ixMax, int iyMin, int iyMax,
                                int izMin, int izMax, int ivMin, int ivMax) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
