#ifndef KESTRUM_PATHS_SEARCH_NEIGHBORHOOD_PARAMETERS_H
#define KESTRUM_PATHS_SEARCH_NEIGHBORHOOD_PARAMETERS_H

#include <stdio.h>

#include "core/image.h"
#include "core/types.h"
#include "neighborhood/search_neighborhood.h"
#include "numeric/random.h"

/* Search neighbourhoods from explicit radii, anisotropy ratios and angles, for programs that search a grid without a
 * covariance model. The lists are those of neighborhood/search_neighborhood.h.
 *
 * The search ellipsoid has the radii rx, ry, rz along its own axes, and the distance of an offset (x, y, z) along these
 * axes is the root of (x/ax)^2 + (y/ay)^2 + (z/az)^2. The axes are the grid's, turned by azimuth, dip and plunge as
 * VORLComputeRotationMatrix tells. The modes only say how the caller chose radii and ratios; nothing here computes
 * them.
 *
 * Thread safety: calls on different records, streams and random contexts may run at the same time.
 */

KESTRUM_BEGIN_DECLS

/* How radii are chosen; a file holds the radii only for the last. */
typedef enum {
  SEARCHNEIGHBORHOOD_RADIUS_LARGE_DEFAULT = 0,
  SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_DEFAULT = 1,
  SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE = 2,
  SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_XY = 3,
  SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_XZ = 4,
  SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_YZ = 5,
  SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_XYZ = 6,
  SEARCHNEIGHBORHOOD_RADIUS_MANUAL = 7
} VORL_SEARCHNEIGHBORHOOD_RADIUS_MODE;

/* How anisotropy ratios are chosen; a file holds the ratios only for the last. */
typedef enum {
  SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_ONE = 0,
  SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS = 1,
  SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS_XY = 2,
  SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS_XZ = 3,
  SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS_YZ = 4,
  SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS_XYZ = 5,
  SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_MANUAL = 6
} VORL_SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_MODE;

typedef struct vorl_searchNeighborhoodParameters VORL_SEARCHNEIGHBORHOODPARAMETERS;

struct vorl_searchNeighborhoodParameters {
  int radiusMode; /* VORL_SEARCHNEIGHBORHOOD_RADIUS_MODE */
  real rx;        /* search radii, in nodes, at least 0.0; a radius of 0.0 keeps to the node's own plane */
  real ry;
  real rz;
  int anisotropyRatioMode; /* VORL_SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_MODE */
  real ax; /* anisotropy ratios, in nodes for one unit of distance, at least VORL_MIN_ANISOTROPY_RATIO */
  real ay;
  real az;
  BOOLEAN rotationFlag; /* whether an angle is not 0.0 */
  real angle1;          /* azimuth, dip and plunge in degrees */
  real angle2;
  real angle3;
  real power; /* power to which distances are raised in the weights */
};

/* Sets all fields to zero. */
KESTRUM_API void VORLInitSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters) KESTRUM_NOEXCEPT;

/* Compares radii, ratios, angles and powers exactly; modes do not count. Returns 0 if all are equal, otherwise 1. */
KESTRUM_API int VORLCmpSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters1,
                                                    VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters2) KESTRUM_NOEXCEPT;

/* Reads the parameters from a seekable text stream, with white space and C or C++ comments allowed before each entry.
 *   fullForm  TRUE: the word of the radius mode, the radii if it is the manual one, the word of the anisotropy ratio
 *             mode, the ratios if it is the manual one, SEARCHNEIGHBORHOOD_ROTATION_OFF or
 *             SEARCHNEIGHBORHOOD_ROTATION_ON, the angles after the second, the power;
 *             FALSE: three radii, three ratios, three angles and the power: both modes become manual and rotationFlag
 *             TRUE.
 *   parameters  in and out: an initialised record. Fields that the file does not hold keep what they had; after
 *               SEARCHNEIGHBORHOOD_ROTATION_OFF these are the angles, by which VORLBuildSearchNeighborhood turns.
 * Values are not validated.
 * Returns 0 or the status of the entry that is missing or can not be read: -875 radiusMode; -876 to -878 radii; -880
 * anisotropyRatioMode; -881 to -883 ratios; -885 rotationFlag; -886 to -888 angles; -889 power. The fields before it
 * stay set. */
KESTRUM_API int VORLReadSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters, BOOLEAN fullForm,
                                                     FILE* stream) KESTRUM_NOEXCEPT;

/* Writes modes, rotation, radii, ratios, angles and power to stream, each line with prefix in front. Returns 0. */
KESTRUM_API int VORLPrintSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters, char* prefix,
                                                      FILE* stream) KESTRUM_NOEXCEPT;

/* Tests the parameters and, if they are valid, sets rotationFlag from the angles.
 *   error  out: 0, or the first failure: -686 radiusMode; -680 to -682 a negative radius, in the manual mode only; -687
 *          anisotropyRatioMode; -683 to -685 a ratio below VORL_MIN_ANISOTROPY_RATIO, in the manual mode only.
 * Returns 0. */
KESTRUM_API int VORLValidateSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters,
                                                         int* error) KESTRUM_NOEXCEPT;

/* Builds the list of the offsets in the search ellipsoid by increasing distance; equal distances come in a random but
 * fixed order. The distance of an entry is that of the ratios. Its weight is the distance raised to `power` (with
 * half the smallest 1/ratio for the distance 0.0 of the first entry, so that no weight vanishes), or 1.0 if `power` is
 * 0.0.
 *   parameters          radii, ratios, angles and power are used; an angle other than 0.0 turns the ellipsoid,
 *                       whatever rotationFlag says
 *   searchNeighborhood  out; initialised by the caller, who releases it with VORLFreeSearchNeighborhood, also after a
 *                       failure
 *   randContext         reseeded here with 1, so that the list depends on the parameters alone
 * Returns 0; -688 if the product of the sides of the box around the ellipsoid is below 1 or more than an int can count;
 * the status of a failing allocation (-1, -2). */
KESTRUM_API int VORLBuildSearchNeighborhood(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters,
                                            VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                            VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/* Approximate half-widths, in nodes, of the box around the search ellipsoid. Without rotation they are the radii, cut
 * to whole numbers; with rotation they come from a few points of its xz section, so that ry takes no part.
 *   nx, ny, nz  out
 * Returns 0. */
KESTRUM_API int VORLSearchNeighborhoodApproxBound(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters, int* nx, int* ny,
                                                  int* nz) KESTRUM_NOEXCEPT;

/* Turns a list into an image of its bounding box, with cells of size 1.0 and offset (0, 0, 0) at the origin of the
 * coordinates. The variables "index" (the place in the list, from 0), "distance" and "weight" are missing at nodes that
 * are not in the list.
 *   image  out; must hold nothing; its contents are allocated; release them with VORLFreeImage, also after a failure
 * Returns 0; -620 if the image would have more values than an int can count; -3 if the box is turned round; the status
 * of VORLMallocImage. */
KESTRUM_API int VORLSearchNeighborhoodToImage(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                              VORL_IMAGE* image) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
