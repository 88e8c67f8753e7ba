#include "analysis/output_image.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>

namespace kestrum {

int CheckImage(const VORL_IMAGE& image) noexcept {
  if (image.grid == nullptr) return -20;
  if (image.nvar < 1) return -621;
  if (image.varName == nullptr || image.var == nullptr) return -20;
  const auto& [nx, ny, nz, sx, sy, sz, ox, oy, oz, nxy, nxyz] = *image.grid;
  if (nx < 1 || ny < 1 || nz < 1) return -611;
  const std::int64_t section = std::int64_t{nx} * ny;
  return section == nxy && section <= std::numeric_limits<int>::max() / nz && section * nz == nxyz ? 0 : -611;
}

bool HasRoomForSuffix(const VORL_IMAGE& in, int firstVar, int nvar, const char* suffix) noexcept {
  const std::size_t room = VORL_VARNAME_LENGTH - std::strlen(suffix);
  return std::all_of(in.varName + firstVar, in.varName + firstVar + nvar,
                     [room](const char* name) { return strnlen(name, room) < room; });
}

void NameOutputVariables(const VORL_IMAGE& in, int firstVar, const char* suffix, VORL_IMAGE& out) noexcept {
  for (int v = 0; v < out.nvar; ++v) {
    std::snprintf(out.varName[v], VORL_VARNAME_LENGTH, "%s%s", in.varName[firstVar + v], suffix);
  }
}

int MakeOutputImage(const VORL_IMAGE& in, int firstVar, int nvar, const VORL_GRID& grid, const char* suffix,
                    VORL_IMAGE* out) noexcept {
  if (out == nullptr || out == &in) return -20;
  if (!HasRoomForSuffix(in, firstVar, nvar, suffix)) return -623;
  if (std::int64_t{nvar} * grid.nxyz > std::numeric_limits<int>::max()) return -620;
  if (const int status = VORLMallocImage(out, grid.nxyz, nvar); status != 0) return status;
  *out->grid = grid;
  out->nvar = nvar;
  out->nxyzv = nvar * grid.nxyz;
  NameOutputVariables(in, firstVar, suffix, *out);
  return 0;
}

}  // namespace kestrum
