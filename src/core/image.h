#ifndef KESTRUM_CORE_IMAGE_H
#define KESTRUM_CORE_IMAGE_H

/** @file
 * The image: named variables on the nodes of a regular grid, each informed or missing at each node.
 *
 * Life of a record: VORLInitImage; VORLMallocImage, VORLCopyImage or a reader; the creator fills grid, nvar, nxyzv,
 * names and values; use; VORLFreeImage.
 *
 * Every function that reads the values of an image refuses one that is not filled, after the tests of its own
 * arguments: -20 if the grid, the names or the values are null; -621 if nvar is below 1; -611 if nx, ny or nz is below
 * 1, or if nxy or nxyz is not their product; -625 if nxyzv is less than nvar * nxyz.
 */

#include <stdio.h>

#include "../core/grid.h"
#include "../core/text.h"
#include "../core/types.h"

#define VORL_MAX_NVAR 10000 /**< largest number of variables */

KESTRUM_BEGIN_DECLS

typedef struct vorl_image VORL_IMAGE; /**< see vorl_image */

/** Named variables on the nodes of a regular grid. Null pointers are those of an empty record. */
struct vorl_image {
  VORL_GRID* grid; /**< the grid, owned */
  int nvar;        /**< number of variables, 1 to VORL_MAX_NVAR */
  int nxyzv;       /**< nvar * grid->nxyz, the number of values */
  char** varName;  /**< names, owned: nvar rows of VORL_VARNAME_LENGTH bytes in one block (VORLMallocArray2D) */
  real* var;       /**< values, owned: nxyzv; that of variable iv at node id is var[iv*grid->nxyz + id] */
};

/** Sets all fields to zero.
 *
 * @param[out] image the image; what it held is not released */
KESTRUM_API void VORLInitImage(VORL_IMAGE* image) KESTRUM_NOEXCEPT;

/** Allocates what an image holds: the grid record (cleared) and, if nvar is at least 1, nvar empty names and nvar *
 * nxyz values (not cleared).
 *
 * The caller fills nvar, nxyzv and the fields of the grid.
 *
 * @param[in,out] image must be empty; pointers that are not allocated become null
 * @param nxyz number of nodes, at least 1 if nvar is
 * @param nvar number of variables
 * @return 0, or the status of the first allocation that fails; what was allocated before stays in the record */
KESTRUM_API int VORLMallocImage(VORL_IMAGE* image, int nxyz, int nvar) KESTRUM_NOEXCEPT;

/** Releases grid, varName and var, not the record. The fields keep their values.
 *
 * @param[in,out] image the image; null is ignored */
KESTRUM_API void VORLFreeImage(VORL_IMAGE* image) KESTRUM_NOEXCEPT;

/** Copies an image with all that it owns.
 *
 * @param[out] dst the copy; must be empty. Unless it is src, it can be released in every case
 * @param[in] src the image, with at least one variable
 * @return 0; -20 if dst is src; those of an image that is not filled (see above) or of VORLMallocImage */
KESTRUM_API int VORLCopyImage(VORL_IMAGE* dst, VORL_IMAGE* src) KESTRUM_NOEXCEPT;

/** Tests an image: its grid, sizes, names and values.
 *
 * @param[in] image the image
 * @param extraNameLength number of characters, at least 0, that the caller will append to the names
 * @param[out] status 0 for a valid image, otherwise the first failure: -611 to -616 the grid (nx, ny, nz, sx, sy, sz);
 *   -621 nvar below 1; -622 nvar too large; -625 nxyzv below 1; -20 names or values not allocated; -623 a name too
 *   long; -624 two equal names; -627 a NaN; -628 an infinity
 * @return 0 */
KESTRUM_API int VORLValidateImage(VORL_IMAGE* image, int extraNameLength, int* status) KESTRUM_NOEXCEPT;

/** Writes the grid, the sizes and the names of an image.
 *
 * @param[in] image the image
 * @param[in] prefix text in front of each line
 * @param[in,out] stream open for writing
 * @return 0; allocation statuses */
KESTRUM_API int VORLPrintImage(VORL_IMAGE* image, char* prefix, FILE* stream) KESTRUM_NOEXCEPT;

/** Makes a picture that is always the same: 365 by 365 nodes, one variable "surprise" with the values 0, 1 and 2.
 *
 * @param[out] image the picture; must be empty
 * @return 0; those of VORLMallocImage */
KESTRUM_API int VORLImageEE(VORL_IMAGE* image) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
