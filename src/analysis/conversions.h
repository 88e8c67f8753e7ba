#ifndef KESTRUM_ANALYSIS_CONVERSIONS_H
#define KESTRUM_ANALYSIS_CONVERSIONS_H

#include "core/image.h"
#include "core/point_set.h"
#include "core/types.h"

/* Sampling an image along a line, a plane or a box, and moving data between images and point sets.
 *
 * The grid box is [ox, ox + nx*sx] and so on, faces included. The nearest node of a point takes exact halves to the
 * lower index and is clipped to the grid.
 *
 * Inequality data: a source variable whose name is that of a target variable followed by "_min" or "_max" carries
 * bounds. The bounds of target variable j go to varMin[j] or varMax[j], each null or a vector of nxyz values in which
 * missing means no bound. A vector that is null and needed is allocated with VORLMalloc; it belongs to the caller
 * (VORLFree). With a null varMin or varMax there are no inequality data. The name before the suffix need only begin the
 * name of the target variable; the first that fits is taken.
 *
 * conflictMode, when a value comes to a node that has one:
 *   0  the call fails
 *   1  the target keeps its value, *nconflict goes up
 *   2  the source value replaces it, *nconflict goes up
 *   others: as 1, without counting
 * Of two bounds in one node the tighter stays, uncounted, in every mode but 0, which fails.
 *
 * Thread safety: calls that write to different records may run at the same time.
 */

#define VORL_INEQUALITY_DATA_SUFFIX_FOR_MIN "_min"
#define VORL_INEQUALITY_DATA_SUFFIX_FOR_MAX "_max"

KESTRUM_BEGIN_DECLS

/* Samples an image at regular steps through a reference point, along one direction.
 *   imageIn           in
 *   imageOut          out; must hold nothing; its contents are allocated (VORLFreeImage). Same variables; as many
 *                     samples as the box of imageIn can need along the direction; the frame has the reference point at
 *                     coordinate 0 and `step` as spacing. A sample outside the box is missing, one inside has the
 *                     value of the nearest node.
 *   refX, refY, refZ  reference point, in the box
 *   dirX, dirY, dirZ  direction, of length at least 1e-5; normalised here
 *   step              distance between samples, at least 1e-5
 * Statuses: -86201, -86202, -86203 reference point outside along x, y, z; -86211 direction too short; -86206 step too
 * small (also if the number of samples does not fit an int); -20 or -611 imageIn not valid, or -20 imageOut is imageIn;
 * those of VORLMallocImage. */
KESTRUM_API int VORLImageExtract1D(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, real refX, real refY, real refZ,
                                   real dirX, real dirY, real dirZ, real step) KESTRUM_NOEXCEPT;

/* The same on a plane along two directions, which need not be orthogonal; the first runs along x of imageOut. */
KESTRUM_API int VORLImageExtract2D(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, real refX, real refY, real refZ,
                                   real dir1X, real dir1Y, real dir1Z, real dir2X, real dir2Y, real dir2Z, real step1,
                                   real step2) KESTRUM_NOEXCEPT;

/* The same in a box along three directions, which need not be orthogonal. */
KESTRUM_API int VORLImageExtract3D(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, real refX, real refY, real refZ,
                                   real dir1X, real dir1Y, real dir1Z, real dir2X, real dir2Y, real dir2Z, real dir3X,
                                   real dir3Y, real dir3Z, real step1, real step2, real step3) KESTRUM_NOEXCEPT;

/* Moves the variables of an image to the variables of the same name of another image.
 *   source              in
 *   target              in and out; must have as many nodes along each axis as source (spacing and origin may differ)
 *   varMin, varMax      in and out; one entry per variable of target, see above; null allowed
 *   ignoreUnmatchedVar  not 0: source variables without a target are ignored; 0: they fail
 *   conflictMode        see above
 *   nvarIgnored         out; number of source variables ignored
 *   nconflict           out; number of conflicts
 *   merge               FALSE: variables are copied as a whole, missing values too; TRUE: only informed nodes are moved
 * Statuses: -20 an image has a null pointer; -150 different dimensions; -151 variable without a target; -152 conflict
 * in mode 0; those of VORLMalloc. A failure leaves in target what has been moved until then. */
KESTRUM_API int VORLImageToImage(VORL_IMAGE* source, VORL_IMAGE* target, real** varMin, real** varMax,
                                 int ignoreUnmatchedVar, int conflictMode, int* nvarIgnored, int* nconflict,
                                 BOOLEAN merge) KESTRUM_NOEXCEPT;

/* Moves the values of points to the nearest nodes of an image, in the order of the points.
 *   source              in
 *   target              in and out
 *   varMin, varMax, ignoreUnmatchedVar, conflictMode, nvarIgnored, nconflict   as for VORLImageToImage
 *   placementMode       0: a point out of the box fails; 1: it is dropped; 2: also a point not at a node is dropped
 *                       (squared distance to the nearest node of 1e-10 or more)
 *   npointDropped       out; number of points dropped
 * Statuses: -20 source or target has a null pointer; -160 variable without a target; -161 point out of the box in mode
 * 0; -162 conflict in mode 0; those of VORLMalloc. A failure leaves in target what has been moved until then. */
KESTRUM_API int VORLPointSetToImage(VORL_POINTSET* source, VORL_IMAGE* target, real** varMin, real** varMax,
                                    int ignoreUnmatchedVar, int placementMode, int conflictMode, int* nvarIgnored,
                                    int* npointDropped, int* nconflict) KESTRUM_NOEXCEPT;

/* Turns the informed nodes of an image into points at their centres, in node order.
 *   image     in
 *   pointSet  out; must hold nothing; its contents are allocated (VORLFreePointSet). Only variables informed somewhere
 *             and nodes informed in some variable are kept.
 * Statuses: -165 nothing informed; -20 or -611 image not valid; those of VORLMallocPointSet. */
KESTRUM_API int VORLImageToPointSet(VORL_IMAGE* image, VORL_POINTSET* pointSet) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
