#ifndef KESTRUM_CORE_IMAGE_H
#define KESTRUM_CORE_IMAGE_H

/* The image: named variables on the nodes of a regular grid, each informed or missing at each node. The functions hold
 * no state; an image may be read from several threads at once.
 *
 * Life of a record: VORLInitImage; VORLMallocImage, VORLCopyImage or a reader; the creator fills grid, nvar, nxyzv,
 * names and values; use; VORLFreeImage.
 */

#include <stdio.h>

#include "core/grid.h"
#include "core/text.h"
#include "core/types.h"

#define VORL_MAX_NVAR 10000

KESTRUM_BEGIN_DECLS

typedef struct vorl_image VORL_IMAGE;

struct vorl_image {
  VORL_GRID* grid; /* owned */
  int nvar;        /* number of variables */
  int nxyzv;       /* nvar * grid->nxyz, the number of values */
  char** varName;  /* owned: nvar rows of VORL_VARNAME_LENGTH bytes in one block (VORLMallocArray2D) */
  real* var;       /* owned: nxyzv values; variable iv at node id is var[iv*grid->nxyz + id] */
};

/* Sets all fields to zero. */
KESTRUM_API void VORLInitImage(VORL_IMAGE* image) KESTRUM_NOEXCEPT;

/* Allocates the grid record (cleared) and, if nvar is at least 1, nvar empty names and nvar * nxyz values (not
 * cleared). Sizes and grid fields are left to the caller.
 *   image  in/out: a record whose pointers are unused; pointers that are not allocated become null.
 * Returns 0 or the first failing allocation's status; what was allocated until then stays in the record. */
KESTRUM_API int VORLMallocImage(VORL_IMAGE* image, int nxyz, int nvar) KESTRUM_NOEXCEPT;

/* Releases grid, varName and var, not the record; the fields keep their values. Null is ignored. */
KESTRUM_API void VORLFreeImage(VORL_IMAGE* image) KESTRUM_NOEXCEPT;

/* Copies src, which has at least one variable, with all that it owns.
 *   dst  out: a record whose pointers are unused.
 * Returns 0; -20 if dst is src, or a pointer of src is null; the status of VORLMallocImage. A dst of its own can be
 * released in every case. */
KESTRUM_API int VORLCopyImage(VORL_IMAGE* dst, VORL_IMAGE* src) KESTRUM_NOEXCEPT;

/* Tests an image.
 *   extraNameLength  number of characters that the caller will append to the names.
 *   status           out: 0 for a valid image, otherwise the first failure: -611 to -616 the grid (nx, ny, nz, sx, sy,
 *                    sz), -621 nvar below 1, -622 nvar too large, -625 nxyzv below 1, -20 names or values not
 *                    allocated, -623 a name too long, -624 two equal names, -627 a NaN, -628 an infinity.
 * Returns 0. */
KESTRUM_API int VORLValidateImage(VORL_IMAGE* image, int extraNameLength, int* status) KESTRUM_NOEXCEPT;

/* Writes grid, sizes and names to stream, each line with prefix in front.
 * Returns 0 or the status of a failing allocation. */
KESTRUM_API int VORLPrintImage(VORL_IMAGE* image, char* prefix, FILE* stream) KESTRUM_NOEXCEPT;

/* Fills a record whose pointers are unused with a constant picture: 365 by 365 nodes, one variable named "surprise"
 * with the values 0, 1 and 2. Returns 0 or the status of VORLMallocImage. */
KESTRUM_API int VORLImageEE(VORL_IMAGE* image) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
