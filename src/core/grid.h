#ifndef KESTRUM_CORE_GRID_H
#define KESTRUM_CORE_GRID_H

/** @file
 * The regular grid.
 */

#include <stdio.h>

#include "../core/types.h"

#define VORL_MIN_SPACING 1e-15          /**< smallest cell size */
#define VORL_SHIFT_FACTOR_FOR_POINT 0.5 /**< position of a node in its cell, in cell sizes from the lower corner */
#define VORL_MAX_NXYZ 2147483647        /**< largest number of nodes; for callers, no function applies it */
#define VORL_MAX_NXYZV 2147483647       /**< largest number of values; for callers, no function applies it */

KESTRUM_BEGIN_DECLS

typedef struct vorl_grid VORL_GRID; /**< see vorl_grid */

/** A regular grid of nx by ny by nz cells.
 *
 * The node (ix, iy, iz) is the centre of its cell, (ox + (ix + 0.5)*sx, oy + (iy + 0.5)*sy, oz + (iz + 0.5)*sz). A grid
 * holds no pointers and may be copied by value. */
struct vorl_grid {
  int nx;   /**< number of cells along x, at least 1 */
  int ny;   /**< number of cells along y, at least 1 */
  int nz;   /**< number of cells along z, at least 1 */
  real sx;  /**< cell size along x, at least VORL_MIN_SPACING */
  real sy;  /**< cell size along y, at least VORL_MIN_SPACING */
  real sz;  /**< cell size along z, at least VORL_MIN_SPACING */
  real ox;  /**< x of the lower corner of the first cell */
  real oy;  /**< y of the lower corner of the first cell */
  real oz;  /**< z of the lower corner of the first cell */
  int nxy;  /**< nx * ny; whoever fills a grid sets it */
  int nxyz; /**< nx * ny * nz, which an int must hold; whoever fills a grid sets it */
};

/** Sets every field to zero.
 *
 * @param[out] grid the grid */
KESTRUM_API void VORLInitGrid(VORL_GRID* grid) KESTRUM_NOEXCEPT;

/** Copies a grid.
 *
 * @param[out] dst the copy; may be src
 * @param[in] src the grid
 * @return 0 */
KESTRUM_API int VORLCopyGrid(VORL_GRID* dst, VORL_GRID* src) KESTRUM_NOEXCEPT;

/** Compares two grids exactly.
 *
 * @param[in] a first grid
 * @param[in] b second grid
 * @return 0 if no field differs; otherwise the position (from 1, in the order nx, ny, nz, sx, sy, sz, ox, oy, oz, nxy,
 *   nxyz) of the first field that differs, negative if that of a is less than that of b */
KESTRUM_API int VORLCmpGrid(VORL_GRID* a, VORL_GRID* b) KESTRUM_NOEXCEPT;

/** Gives the index of a value from its node and variable. No bounds are checked.
 *
 * @param[in] grid the grid
 * @param ix index of the node along x
 * @param iy index of the node along y
 * @param iz index of the node along z
 * @param iv index of the variable
 * @param[out] id ix + iy*nx + iz*nxy + iv*nxyz */
KESTRUM_API void VORLGridCoordToId(VORL_GRID* grid, int ix, int iy, int iz, int iv, int* id) KESTRUM_NOEXCEPT;

/** Gives the node and the variable of a value from its index. No bounds are checked.
 *
 * With an nx, nxy or nxyz below 1 all four results are -1.
 *
 * @param[in] grid the grid
 * @param id index of the value
 * @param[out] ix index of the node along x
 * @param[out] iy index of the node along y
 * @param[out] iz index of the node along z
 * @param[out] iv index of the variable */
KESTRUM_API void VORLGridIdToCoord(VORL_GRID* grid, int id, int* ix, int* iy, int* iz, int* iv) KESTRUM_NOEXCEPT;

/** Writes a grid in five lines.
 *
 * @param[in] grid the grid
 * @param[in] prefix text in front of each line
 * @param[in,out] stream open for writing
 * @return 0 */
KESTRUM_API int VORLPrintGrid(VORL_GRID* grid, char* prefix, FILE* stream) KESTRUM_NOEXCEPT;

/** Reads nx, ny, nz, sx, sy, sz, ox, oy and oz, and computes nxy and nxyz. The values are not validated.
 *
 * White space and comments of C or C++ may precede each entry.
 *
 * @param[out] grid the grid; a product that an int cannot hold becomes 0
 * @param[in,out] stream seekable text, open for reading
 * @return 0; -711 to -719 for the entry, in the order above, that cannot be read or that an int cannot hold (the
 *   fields before it stay set) */
KESTRUM_API int VORLReadGrid(VORL_GRID* grid, FILE* stream) KESTRUM_NOEXCEPT;

/** Tests the numbers of cells, then the cell sizes.
 *
 * @param[in] grid the grid
 * @param[out] status 0 for a valid grid, otherwise the first failure: -601 to -606 for nx, ny, nz, sx, sy, sz
 * @return 0 */
KESTRUM_API int VORLValidateGrid(VORL_GRID* grid, int* status) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
