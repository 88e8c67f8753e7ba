#include "analysis/output_image.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "core/statuses.hpp"

namespace kestrum {
namespace {

// Whether every name of these variables has room for the suffix.
bool HasRoomForSuffix(const VORL_IMAGE& in, int firstVar, int nvar, const char* suffix) noexcept {
  const std::size_t room = VORL_VARNAME_LENGTH - std::strlen(suffix);
  return std::all_of(in.varName + firstVar, in.varName + firstVar + nvar,
                     [room](const char* name) { return strnlen(name, room) < room; });
}

}  // namespace

int MakeOutputImage(const VORL_IMAGE& in, int firstVar, int nvar, const VORL_GRID& grid, const char* suffix,
                    VORL_IMAGE* out) noexcept {
  if (out == nullptr || out == &in) return kNotAllocated;
  if (!HasRoomForSuffix(in, firstVar, nvar, suffix)) return kImageNameTooLong;
  if (const int status = MallocImageOn(grid, nvar, out); status != 0) return status;
  for (int v = 0; v < nvar; ++v) {
    std::snprintf(out->varName[v], VORL_VARNAME_LENGTH, "%s%s", in.varName[firstVar + v], suffix);
  }
  return 0;
}

}  // namespace kestrum
