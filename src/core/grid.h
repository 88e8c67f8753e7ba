#ifndef KESTRUM_CORE_GRID_H
#define KESTRUM_CORE_GRID_H

/* The regular grid. All functions are safe from any thread on distinct grids and streams. */

#include <stdio.h>

#include "core/types.h"

#define VORL_MIN_SPACING 1e-15
/* Position of a node in its cell, in cell sizes from the lower corner. */
#define VORL_SHIFT_FACTOR_FOR_POINT 0.5
/* Largest numbers of nodes and of values; for callers, no function applies them. */
#define VORL_MAX_NXYZ 2147483647
#define VORL_MAX_NXYZV 2147483647

KESTRUM_BEGIN_DECLS

typedef struct vorl_grid VORL_GRID;

/* A grid holds no pointers and is copied by value. The node (ix, iy, iz) stands at its cell's centre,
 * (ox + (ix + 0.5)*sx, oy + (iy + 0.5)*sy, oz + (iz + 0.5)*sz). */
struct vorl_grid {
  int nx; /* number of cells along each axis, at least 1 */
  int ny;
  int nz;
  real sx; /* cell size along each axis, at least VORL_MIN_SPACING */
  real sy;
  real sz;
  real ox; /* lower corner of the first cell */
  real oy;
  real oz;
  int nxy;  /* nx * ny; whoever fills a grid sets it */
  int nxyz; /* nx * ny * nz; whoever fills a grid sets it */
};

/* Sets every field to zero. */
KESTRUM_API void VORLInitGrid(VORL_GRID* grid) KESTRUM_NOEXCEPT;

/* Copies all fields of src into dst. Returns 0. */
KESTRUM_API int VORLCopyGrid(VORL_GRID* dst, VORL_GRID* src) KESTRUM_NOEXCEPT;

/* Compares two grids exactly. Returns 0 if no field differs; otherwise the position (from 1, in the order nx, ny, nz,
 * sx, sy, sz, ox, oy, oz, nxy, nxyz) of the first field that differs, negative if a's is less than b's. */
KESTRUM_API int VORLCmpGrid(VORL_GRID* a, VORL_GRID* b) KESTRUM_NOEXCEPT;

/* Index of the value of variable iv at node (ix, iy, iz), written to id. No bounds are checked. */
KESTRUM_API void VORLGridCoordToId(VORL_GRID* grid, int ix, int iy, int iz, int iv, int* id) KESTRUM_NOEXCEPT;

/* Node and variable of the value with index id, written to ix, iy, iz, iv. No bounds are checked. With an nx, nxy or
 * nxyz below 1 all four become -1. */
KESTRUM_API void VORLGridIdToCoord(VORL_GRID* grid, int id, int* ix, int* iy, int* iz, int* iv) KESTRUM_NOEXCEPT;

/* Writes five lines on the grid to stream, each with prefix in front. Returns 0. */
KESTRUM_API int VORLPrintGrid(VORL_GRID* grid, char* prefix, FILE* stream) KESTRUM_NOEXCEPT;

/* Reads nx, ny, nz, sx, sy, sz, ox, oy, oz from a seekable text stream, with white space and C or C++ comments
 * allowed before each entry, and fills nxy and nxyz. The values are not validated.
 * Products that an int can not hold become 0.
 * Returns 0, or -711 to -719 for the entry that could not be read, or that an int can not hold; the fields before it
 * stay set. */
KESTRUM_API int VORLReadGrid(VORL_GRID* grid, FILE* stream) KESTRUM_NOEXCEPT;

/* Tests sizes, then spacings.
 *   status  out: 0 for a valid grid, otherwise the first failure, -601 to -606 for nx, ny, nz, sx, sy, sz.
 * Returns 0. */
KESTRUM_API int VORLValidateGrid(VORL_GRID* grid, int* status) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
