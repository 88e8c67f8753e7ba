#include "core/grid.h"

#include <cstdio>
#include <initializer_list>
#include <type_traits>

#include "core/plain_numbers.hpp"
#include "core/records.hpp"
#include "core/statuses.hpp"
#include "core/text_reader.hpp"

static_assert(std::is_standard_layout_v<VORL_GRID> && sizeof(VORL_GRID) == 72);

void VORLInitGrid(VORL_GRID* grid) noexcept { *grid = VORL_GRID{}; }

int VORLCopyGrid(VORL_GRID* dst, VORL_GRID* src) noexcept {
  *dst = *src;
  return 0;
}

int VORLCmpGrid(VORL_GRID* a, VORL_GRID* b) noexcept {
  const real fields[][2] = {
      {static_cast<real>(a->nx), static_cast<real>(b->nx)},
      {static_cast<real>(a->ny), static_cast<real>(b->ny)},
      {static_cast<real>(a->nz), static_cast<real>(b->nz)},
      {a->sx, b->sx},
      {a->sy, b->sy},
      {a->sz, b->sz},
      {a->ox, b->ox},
      {a->oy, b->oy},
      {a->oz, b->oz},
      {static_cast<real>(a->nxy), static_cast<real>(b->nxy)},
      {static_cast<real>(a->nxyz), static_cast<real>(b->nxyz)},
  };
  int position = 0;
  for (const auto& [ofA, ofB] : fields) {
    ++position;
    if (ofA < ofB) return -position;
    if (ofA > ofB) return position;
  }
  return 0;
}

void VORLGridCoordToId(VORL_GRID* grid, int ix, int iy, int iz, int iv, int* id) noexcept {
  // Unsigned, so that indices far outside wrap.
  *id = static_cast<int>(static_cast<unsigned>(ix) + static_cast<unsigned>(iy) * static_cast<unsigned>(grid->nx) +
                         static_cast<unsigned>(iz) * static_cast<unsigned>(grid->nxy) +
                         static_cast<unsigned>(iv) * static_cast<unsigned>(grid->nxyz));
}

void VORLGridIdToCoord(VORL_GRID* grid, int id, int* ix, int* iy, int* iz, int* iv) noexcept {
  if (grid->nx < 1 || grid->nxy < 1 || grid->nxyz < 1) {  // no divisors: a grid that nobody filled
    *ix = *iy = *iz = *iv = -1;
    return;
  }
  *iv = id / grid->nxyz;
  *iz = (id % grid->nxyz) / grid->nxy;
  *iy = (id % grid->nxy) / grid->nx;
  *ix = (id % grid->nxy) % grid->nx;
}

int VORLPrintGrid(VORL_GRID* grid, char* prefix, FILE* stream) noexcept {
  const kestrum::PlainNumbers plainNumbers;
  std::fprintf(stream, "%sSize   : %7d %14d %14d\n", prefix, grid->nx, grid->ny, grid->nz);
  std::fprintf(stream, "%sSpacing: %14.6f %14.6f %14.6f\n", prefix, grid->sx, grid->sy, grid->sz);
  std::fprintf(stream, "%sOrigin : %14.6f %14.6f %14.6f\n", prefix, grid->ox, grid->oy, grid->oz);
  std::fprintf(stream, "%sNumber of nodes in a xy-section: %8d\n", prefix, grid->nxy);
  std::fprintf(stream, "%sTotal number of nodes          : %8d\n", prefix, grid->nxyz);
  return 0;
}

int VORLReadGrid(VORL_GRID* grid, FILE* stream) noexcept {
  VORL_GRID& g = *grid;
  if (const int status = kestrum::TakeInts(stream, kestrum::kReadGridSize, {&g.nx, &g.ny, &g.nz}); status != 0)
    return status;
  const int status = kestrum::TakeReals(stream, kestrum::kReadGridSpacing, {&g.sx, &g.sy, &g.sz, &g.ox, &g.oy, &g.oz});
  if (status != 0) return status;
  kestrum::SetSizes(grid, g.nx, g.ny, g.nz);
  return 0;
}

int VORLValidateGrid(VORL_GRID* grid, int* status) noexcept {
  *status = 0;
  int failure = kestrum::kGridSize;  // of the field being tested
  for (const int size : {grid->nx, grid->ny, grid->nz}) {
    if (size < 1) {
      *status = failure;
      return 0;
    }
    --failure;
  }
  for (const real spacing : {grid->sx, grid->sy, grid->sz}) {
    if (VORL_MIN_SPACING > spacing) {  // a NaN passes
      *status = failure;
      return 0;
    }
    --failure;
  }
  return 0;
}
