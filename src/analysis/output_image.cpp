#include "analysis/output_image.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "core/integers.hpp"
#include "core/node_coordinates.hpp"

namespace kestrum {
namespace {

// Whether every name of these variables has room for the suffix.
bool HasRoomForSuffix(const VORL_IMAGE& in, int firstVar, int nvar, const char* suffix) noexcept {
  const std::size_t room = VORL_VARNAME_LENGTH - std::strlen(suffix);
  return std::all_of(in.varName + firstVar, in.varName + firstVar + nvar,
                     [room](const char* name) { return strnlen(name, room) < room; });
}

}  // namespace

int CheckImage(const VORL_IMAGE& image) noexcept {
  if (image.grid == nullptr) return -20;
  if (image.nvar < 1) return -621;
  if (image.varName == nullptr || image.var == nullptr) return -20;
  const VORL_GRID& grid = *image.grid;
  return grid.nx >= 1 && grid.ny >= 1 && grid.nz >= 1 && ProductsAgree(grid) ? 0 : -611;
}

int MallocImageOn(const VORL_GRID& grid, int nvar, VORL_IMAGE* out) noexcept {
  if (const int status = VORLMallocImage(out, grid.nxyz, nvar); status != 0) return status;
  *out->grid = grid;
  out->nvar = nvar;
  out->nxyzv = nvar * grid.nxyz;
  return 0;
}

int MakeOutputImage(const VORL_IMAGE& in, int firstVar, int nvar, const VORL_GRID& grid, const char* suffix,
                    VORL_IMAGE* out) noexcept {
  if (out == nullptr || out == &in) return -20;
  if (!HasRoomForSuffix(in, firstVar, nvar, suffix)) return -623;
  if (!FitsInt(std::int64_t{nvar} * grid.nxyz)) return -620;
  if (const int status = MallocImageOn(grid, nvar, out); status != 0) return status;
  for (int v = 0; v < nvar; ++v) {
    std::snprintf(out->varName[v], VORL_VARNAME_LENGTH, "%s%s", in.varName[firstVar + v], suffix);
  }
  return 0;
}

}  // namespace kestrum
