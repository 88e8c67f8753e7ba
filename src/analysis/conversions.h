#ifndef KESTRUM_ANALYSIS_CONVERSIONS_H
#define KESTRUM_ANALYSIS_CONVERSIONS_H

/** @file
 * Sampling an image along a line, a plane or a box, and moving data between images and point sets.
 *
 * The grid box is [ox, ox + nx*sx] and so on, faces included. The nearest node of a point takes exact halves to the
 * lower index and is clipped to the grid.
 *
 * Inequality data: a source variable whose name is that of a target variable followed by "_min" or "_max" carries
 * bounds. The bounds of target variable j go to varMin[j] or varMax[j], each null or a vector of nxyz values in which
 * missing means no bound. A vector that is null and needed is allocated with VORLMalloc; it belongs to the caller
 * (VORLFree). With a null varMin or varMax there are no inequality data. The name before the suffix need only begin the
 * name of the target variable; the first that fits is taken. Of two bounds in one node the tighter stays, uncounted, in
 * every conflict mode but 0, which fails.
 */

#include "../core/image.h"
#include "../core/point_set.h"
#include "../core/types.h"

#define VORL_INEQUALITY_DATA_SUFFIX_FOR_MIN "_min" /**< ending of the names of lower bounds */
#define VORL_INEQUALITY_DATA_SUFFIX_FOR_MAX "_max" /**< ending of the names of upper bounds */

KESTRUM_BEGIN_DECLS

/** Samples an image at regular steps through a reference point, along one direction.
 *
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty. It has the variables of imageIn, and as many samples as the box of imageIn can
 *   need along the direction; its frame has the reference point at coordinate 0 and step as spacing. A sample outside
 *   the box is missing, one inside has the value of the nearest node
 * @param refX x of the reference point, in the box
 * @param refY y of the reference point, in the box
 * @param refZ z of the reference point, in the box
 * @param dirX x of the direction, which has a length of at least 1e-5 and is normalised here
 * @param dirY y of the direction
 * @param dirZ z of the direction
 * @param step distance between samples, at least 1e-5
 * @return 0; -86201, -86202, -86203: reference point outside along x, y, z; -86211: direction too short; -86206: step
 *   too small (also if the number of samples does not fit an int); -20: imageOut is imageIn; those of an image that is
 *   not filled, or of VORLMallocImage */
KESTRUM_API int VORLImageExtract1D(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, real refX, real refY, real refZ,
                                   real dirX, real dirY, real dirZ, real step) KESTRUM_NOEXCEPT;

/** Samples an image at regular steps through a reference point, on a plane along two directions.
 *
 * The directions need not be orthogonal. The first runs along x of imageOut.
 *
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty. It has the variables of imageIn, and as many samples as the box of imageIn can
 *   need along each direction; its frame has the reference point at coordinate 0 and the steps as spacings. A sample
 *   outside the box is missing, one inside has the value of the nearest node
 * @param refX x of the reference point, in the box
 * @param refY y of the reference point, in the box
 * @param refZ z of the reference point, in the box
 * @param dir1X x of direction 1, which has a length of at least 1e-5 and is normalised here
 * @param dir1Y y of direction 1
 * @param dir1Z z of direction 1
 * @param dir2X x of direction 2, which has a length of at least 1e-5 and is normalised here
 * @param dir2Y y of direction 2
 * @param dir2Z z of direction 2
 * @param step1 distance between samples along direction 1, at least 1e-5
 * @param step2 distance along direction 2; likewise
 * @return 0; -86201, -86202, -86203: reference point outside along x, y, z; -86211: a direction too short; -86206: a
 *   step too small (also if the number of samples does not fit an int); -20: imageOut is imageIn; those of an image
 *   that is not filled, or of VORLMallocImage */
KESTRUM_API int VORLImageExtract2D(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, real refX, real refY, real refZ,
                                   real dir1X, real dir1Y, real dir1Z, real dir2X, real dir2Y, real dir2Z, real step1,
                                   real step2) KESTRUM_NOEXCEPT;

/** Samples an image at regular steps through a reference point, in a box along three directions.
 *
 * The directions need not be orthogonal. They run along x, y and z of imageOut.
 *
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty. It has the variables of imageIn, and as many samples as the box of imageIn can
 *   need along each direction; its frame has the reference point at coordinate 0 and the steps as spacings. A sample
 *   outside the box is missing, one inside has the value of the nearest node
 * @param refX x of the reference point, in the box
 * @param refY y of the reference point, in the box
 * @param refZ z of the reference point, in the box
 * @param dir1X x of direction 1, which has a length of at least 1e-5 and is normalised here
 * @param dir1Y y of direction 1
 * @param dir1Z z of direction 1
 * @param dir2X x of direction 2, which has a length of at least 1e-5 and is normalised here
 * @param dir2Y y of direction 2
 * @param dir2Z z of direction 2
 * @param dir3X x of direction 3, which has a length of at least 1e-5 and is normalised here
 * @param dir3Y y of direction 3
 * @param dir3Z z of direction 3
 * @param step1 distance between samples along direction 1, at least 1e-5
 * @param step2 distance along direction 2; likewise
 * @param step3 distance along direction 3; likewise
 * @return 0; -86201, -86202, -86203: reference point outside along x, y, z; -86211: a direction too short; -86206: a
 *   step too small (also if the number of samples does not fit an int); -20: imageOut is imageIn; those of an image
 *   that is not filled, or of VORLMallocImage */
KESTRUM_API int VORLImageExtract3D(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, real refX, real refY, real refZ,
                                   real dir1X, real dir1Y, real dir1Z, real dir2X, real dir2Y, real dir2Z, real dir3X,
                                   real dir3Y, real dir3Z, real step1, real step2, real step3) KESTRUM_NOEXCEPT;

/** Moves the variables of an image to the variables of the same name of another image.
 *
 * A variable of source named as one of target with "_min" or "_max" behind carries bounds.
 *
 * @param[in] source the image to take from
 * @param[in,out] target the image to fill, with as many nodes along each axis as source (spacing and origin may
 *   differ). A failure leaves in it what has been moved before
 * @param[in,out] varMin lower bounds: for each variable of target null or a vector of nxyz values, missing where there
 *   is no bound. A vector that is null and needed is allocated with VORLMalloc; it belongs to the caller (VORLFree).
 *   Null is allowed: no inequality data
 * @param[in,out] varMax upper bounds; likewise
 * @param ignoreUnmatchedVar not 0: variables of source without a target are ignored; 0: they fail
 * @param conflictMode what happens when a value comes to a node that has one. 0: the call fails; 1: target keeps its
 *   value, and nconflict counts; 2: the value of source replaces it, and nconflict counts; others: as 1, without
 *   counting
 * @param[out] nvarIgnored number of variables of source ignored
 * @param[out] nconflict number of conflicts
 * @param merge FALSE: variables are copied as a whole, missing values too; TRUE: only informed nodes are moved
 * @return 0; those of an image that is not filled; -150: different dimensions; -151: variable without a target; -152:
 *   conflict in mode 0; allocation statuses */
KESTRUM_API int VORLImageToImage(VORL_IMAGE* source, VORL_IMAGE* target, real** varMin, real** varMax,
                                 int ignoreUnmatchedVar, int conflictMode, int* nvarIgnored, int* nconflict,
                                 BOOLEAN merge) KESTRUM_NOEXCEPT;

/** Moves the values of points to the nearest nodes of an image, in the order of the points.
 *
 * A variable of source named as one of target with "_min" or "_max" behind carries bounds.
 *
 * @param[in] source the points
 * @param[in,out] target the image to fill. A failure leaves in it what has been moved before
 * @param[in,out] varMin lower bounds, as for VORLImageToImage; null is allowed: no inequality data
 * @param[in,out] varMax upper bounds; likewise
 * @param ignoreUnmatchedVar not 0: variables of source without a target are ignored; 0: they fail
 * @param placementMode 0: a point out of the box fails; 1: it is dropped; 2: also a point not at a node is dropped
 *   (squared distance to the nearest node of 1e-10 or more)
 * @param conflictMode what happens when a value comes to a node that has one, as for VORLImageToImage
 * @param[out] nvarIgnored number of variables of source ignored
 * @param[out] npointDropped number of points dropped
 * @param[out] nconflict number of conflicts
 * @return 0; -20: source has a null pointer; those of an image that is not filled; -160: variable without a target;
 *   -161: point out of the box in mode 0; -162: conflict in mode 0; allocation statuses */
KESTRUM_API int VORLPointSetToImage(VORL_POINTSET* source, VORL_IMAGE* target, real** varMin, real** varMax,
                                    int ignoreUnmatchedVar, int placementMode, int conflictMode, int* nvarIgnored,
                                    int* npointDropped, int* nconflict) KESTRUM_NOEXCEPT;

/** Turns the informed nodes of an image into points at their centres, in node order.
 *
 * Only variables informed somewhere and nodes informed in some variable are kept.
 *
 * @param[in] image the image
 * @param[out] pointSet must be empty
 * @return 0; -165: nothing informed; those of an image that is not filled, or of VORLMallocPointSet */
KESTRUM_API int VORLImageToPointSet(VORL_IMAGE* image, VORL_POINTSET* pointSet) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
