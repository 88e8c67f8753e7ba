#include "core/grid.h"

#include <cstdio>
#include <initializer_list>
#include <type_traits>

#include "core/integers.hpp"
#include "core/text.h"

static_assert(std::is_standard_layout_v<VORL_GRID> && sizeof(VORL_GRID) == 72);

namespace kestrum {
namespace {

// The product, or 0 where an int cannot hold it, so that the allocations made from it fail.
int ProductOfSizes(int a, int b) noexcept {
  int product = 0;
  return __builtin_mul_overflow(a, b, &product) ? 0 : product;
}

}  // namespace
}  // namespace kestrum

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
  std::fprintf(stream, "%sSize   : %7d %14d %14d\n", prefix, grid->nx, grid->ny, grid->nz);
  std::fprintf(stream, "%sSpacing: %14.6f %14.6f %14.6f\n", prefix, grid->sx, grid->sy, grid->sz);
  std::fprintf(stream, "%sOrigin : %14.6f %14.6f %14.6f\n", prefix, grid->ox, grid->oy, grid->oz);
  std::fprintf(stream, "%sNumber of nodes in a xy-section: %8d\n", prefix, grid->nxy);
  std::fprintf(stream, "%sTotal number of nodes          : %8d\n", prefix, grid->nxyz);
  return 0;
}

int VORLReadGrid(VORL_GRID* grid, FILE* stream) noexcept {
  int status = -711;  // of the entry being read
  for (int* const size : {&grid->nx, &grid->ny, &grid->nz}) {
    long long number = 0;
    if (VORLSkipComments(stream) != 0 || std::fscanf(stream, "%lld", &number) != 1) return status;
    if (!kestrum::FitsInt(number)) return status;
    *size = static_cast<int>(number);
    --status;
  }
  for (real* const value : {&grid->sx, &grid->sy, &grid->sz, &grid->ox, &grid->oy, &grid->oz}) {
    if (VORLSkipComments(stream) != 0 || std::fscanf(stream, "%lf", value) != 1) return status;
    --status;
  }
  grid->nxy = kestrum::ProductOfSizes(grid->nx, grid->ny);
  grid->nxyz = kestrum::ProductOfSizes(grid->nz, grid->nxy);
  return 0;
}

int VORLValidateGrid(VORL_GRID* grid, int* status) noexcept {
  *status = 0;
  int failure = -601;  // of the field being tested
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
