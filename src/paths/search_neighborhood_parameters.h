#ifndef KESTRUM_PATHS_SEARCH_NEIGHBORHOOD_PARAMETERS_H
#define KESTRUM_PATHS_SEARCH_NEIGHBORHOOD_PARAMETERS_H

/** @file
 * Search neighbourhoods from explicit radii, anisotropy ratios and angles, for programs that search a grid without a
 * covariance model. The lists are those of neighborhood/search_neighborhood.h.
 *
 * The search ellipsoid has the radii rx, ry, rz along its own axes, and the distance of an offset (x, y, z) along these
 * axes is the root of (x/ax)^2 + (y/ay)^2 + (z/az)^2. The axes are the grid's, turned by azimuth, dip and plunge as in
 * VORLComputeRotationMatrix. The modes only say how the caller chose radii and ratios; nothing here computes them.
 */

#include <stdio.h>

#include "../core/image.h"
#include "../core/types.h"
#include "../neighborhood/search_neighborhood.h"
#include "../numeric/random.h"

KESTRUM_BEGIN_DECLS

/** How radii are chosen; a file holds the radii only for the last. */
typedef enum {
  SEARCHNEIGHBORHOOD_RADIUS_LARGE_DEFAULT = 0,    /**< large radii */
  SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_DEFAULT = 1, /**< from the variogram ranges */
  SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE = 2,         /**< from the variogram ranges, independently */
  SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_XY = 3,      /**< from the variogram ranges, rx = ry */
  SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_XZ = 4,      /**< from the variogram ranges, rx = rz */
  SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_YZ = 5,      /**< from the variogram ranges, ry = rz */
  SEARCHNEIGHBORHOOD_RADIUS_TI_RANGE_XYZ = 6,     /**< from the variogram ranges, rx = ry = rz */
  SEARCHNEIGHBORHOOD_RADIUS_MANUAL = 7            /**< given by the caller */
} VORL_SEARCHNEIGHBORHOOD_RADIUS_MODE;

/** How anisotropy ratios are chosen; a file holds the ratios only for the last. */
typedef enum {
  SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_ONE = 0,        /**< ax = ay = az = 1 */
  SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS = 1,     /**< ax = rx, ay = ry, az = rz */
  SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS_XY = 2,  /**< ax = ay = max(rx, ry), az = rz */
  SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS_XZ = 3,  /**< ax = az = max(rx, rz), ay = ry */
  SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS_YZ = 4,  /**< ay = az = max(ry, rz), ax = rx */
  SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_RADIUS_XYZ = 5, /**< ax = ay = az = max(rx, ry, rz) */
  SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_MANUAL = 6      /**< given by the caller */
} VORL_SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_MODE;

/** see vorl_searchNeighborhoodParameters */
typedef struct vorl_searchNeighborhoodParameters VORL_SEARCHNEIGHBORHOODPARAMETERS;

/** A search ellipsoid and its distance. It holds no pointers and may be copied by value. */
struct vorl_searchNeighborhoodParameters {
  int radiusMode;          /**< a VORL_SEARCHNEIGHBORHOOD_RADIUS_MODE */
  real rx;                 /**< radius along x in nodes, at least 0.0; 0.0 keeps to the node's own plane */
  real ry;                 /**< radius along y in nodes; likewise */
  real rz;                 /**< radius along z in nodes; likewise */
  int anisotropyRatioMode; /**< a VORL_SEARCHNEIGHBORHOOD_ANISOTROPY_RATIO_MODE */
  real ax;                 /**< nodes along x for one unit of distance, at least VORL_MIN_ANISOTROPY_RATIO */
  real ay;                 /**< nodes along y for one unit of distance; likewise */
  real az;                 /**< nodes along z for one unit of distance; likewise */
  BOOLEAN rotationFlag;    /**< TRUE: an angle is not 0.0 */
  real angle1;             /**< azimuth in degrees */
  real angle2;             /**< dip in degrees */
  real angle3;             /**< plunge in degrees */
  real power;              /**< power to which distances are raised in the weights */
};

/** Sets all fields to zero.
 *
 * @param[out] parameters the parameters */
KESTRUM_API void VORLInitSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters) KESTRUM_NOEXCEPT;

/** Compares radii, ratios, angles and powers exactly; modes do not count.
 *
 * @param[in] parameters1 first parameters
 * @param[in] parameters2 second parameters
 * @return 0 if all are equal, otherwise 1 */
KESTRUM_API int VORLCmpSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters1,
                                                    VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters2) KESTRUM_NOEXCEPT;

/** Reads parameters. Values are not validated.
 *
 * White space and comments of C or C++ may precede each entry.
 *
 * @param[in,out] parameters an initialised record. Fields that the file does not hold keep what they had; after
 *   SEARCHNEIGHBORHOOD_ROTATION_OFF these are the angles, by which VORLBuildSearchNeighborhood turns
 * @param fullForm TRUE: the word of the radius mode, the radii if it is the manual one, the word of the anisotropy
 *   ratio mode, the ratios if it is the manual one, SEARCHNEIGHBORHOOD_ROTATION_OFF or SEARCHNEIGHBORHOOD_ROTATION_ON,
 *   the angles after the second, the power; FALSE: three radii, three ratios, three angles and the power: both modes
 *   become manual and rotationFlag TRUE
 * @param[in,out] stream seekable text, open for reading
 * @return 0, or the status of the entry that is missing or cannot be read (the fields before it stay set): -875
 *   radiusMode; -876 to -878 radii; -880 anisotropyRatioMode; -881 to -883 ratios; -885 rotationFlag; -886 to -888
 *   angles; -889 power */
KESTRUM_API int VORLReadSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters, BOOLEAN fullForm,
                                                     FILE* stream) KESTRUM_NOEXCEPT;

/** Writes modes, rotation, radii, ratios, angles and power.
 *
 * @param[in] parameters the parameters
 * @param[in] prefix text in front of each line
 * @param[in,out] stream open for writing
 * @return 0 */
KESTRUM_API int VORLPrintSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters, char* prefix,
                                                      FILE* stream) KESTRUM_NOEXCEPT;

/** Tests the parameters and, if they are valid, sets rotationFlag from the angles.
 *
 * @param[in,out] parameters the parameters
 * @param[out] error 0, or the first failure: -686 radiusMode; -680 to -682 a negative radius, in the manual mode only;
 *   -687 anisotropyRatioMode; -683 to -685 a ratio below VORL_MIN_ANISOTROPY_RATIO, in the manual mode only
 * @return 0 */
KESTRUM_API int VORLValidateSearchNeighborhoodParameters(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters,
                                                         int* error) KESTRUM_NOEXCEPT;

/** Builds the list of the offsets in the search ellipsoid by increasing distance; equal distances come in a random but
 * fixed order.
 *
 * The distance of an entry is that of the ratios. Its weight is the distance raised to the power (with half the
 * smallest 1/ratio for the distance 0.0 of the first entry, so that no weight vanishes), or 1.0 if the power is 0.0.
 *
 * @param[in] parameters radii, ratios, angles and power are used; an angle other than 0.0 turns the ellipsoid, whatever
 *   rotationFlag says
 * @param[out] searchNeighborhood must be empty; released with VORLFreeSearchNeighborhood, also after a failure
 * @param[in,out] randContext reseeded here with 1, so that the list depends on the parameters alone
 * @return 0; -688: the product of the sides of the box around the ellipsoid is below 1 or more than an int can count;
 *   -1, -2: memory is short */
KESTRUM_API int VORLBuildSearchNeighborhood(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters,
                                            VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                            VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Computes approximate half-widths, in nodes, of the box around the search ellipsoid.
 *
 * Without rotation they are the radii, cut to whole numbers; with rotation they come from a few points of its xz
 * section, so that ry takes no part.
 *
 * @param[in] parameters the parameters
 * @param[out] nx half-width along x
 * @param[out] ny half-width along y
 * @param[out] nz half-width along z
 * @return 0 */
KESTRUM_API int VORLSearchNeighborhoodApproxBound(VORL_SEARCHNEIGHBORHOODPARAMETERS* parameters, int* nx, int* ny,
                                                  int* nz) KESTRUM_NOEXCEPT;

/** Turns a list into an image of its bounding box, with cells of size 1.0 and offset (0, 0, 0) at the origin of the
 * coordinates.
 *
 * The variables are "index" (the place in the list, from 0), "distance" and "weight", missing at nodes that are not in
 * the list.
 *
 * @param[in] searchNeighborhood the list
 * @param[out] image must be empty
 * @return 0; -620: more values than an int can count; -3: the box is turned round; -688: the list is empty, or an offset
 *   lies outside the box; -20: a vector of the list is null; those of VORLMallocImage */
KESTRUM_API int VORLSearchNeighborhoodToImage(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                              VORL_IMAGE* image) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
