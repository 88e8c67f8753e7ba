#include "analysis/resize.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "analysis/output_image.hpp"
#include "core/integers.hpp"
#include "core/statuses.hpp"

namespace kestrum {
namespace {

// Indices of the input along one axis of the output.
struct Range {
  std::int64_t first;
  std::int64_t last;

  std::int64_t size() const noexcept { return last - first + 1; }
};

bool IsIndex(std::int64_t i, int n) noexcept { return i >= 0 && i < n; }

int Resize(const VORL_IMAGE& in, VORL_IMAGE* out, const Range (&ranges)[4]) noexcept {
  for (int k = 0; k < 4; ++k) {
    if (ranges[k].size() < 1 || !FitsInt(ranges[k].size())) return kRangeIndex - k;
  }
  if (const int status = CheckImage(in); status != 0) return status;
  const auto& [x, y, z, v] = ranges;
  const VORL_GRID& grid = *in.grid;
  VORL_GRID window = grid;
  window.ox += static_cast<real>(x.first) * grid.sx;
  window.oy += static_cast<real>(y.first) * grid.sy;
  window.oz += static_cast<real>(z.first) * grid.sz;
  if (!SetSizes(&window, x.size(), y.size(), z.size())) return kImageTooLarge;
  if (out == &in) return kNotAllocated;
  if (const int status = MallocImageOn(window, static_cast<int>(v.size()), out); status != 0) return status;

  // Part of a row that the input has.
  const std::int64_t begin = std::max<std::int64_t>(x.first, 0);
  const std::int64_t end = std::max<std::int64_t>(std::min<std::int64_t>(x.last + 1, grid.nx), begin);
  real* row = out->var;
  for (std::int64_t iv = v.first; iv <= v.last; ++iv) {
    char* const name = out->varName[iv - v.first];
    const bool hasVariable = IsIndex(iv, in.nvar);
    if (hasVariable) {
      std::memcpy(name, in.varName[iv], VORL_VARNAME_LENGTH);
    } else {
      std::snprintf(name, VORL_VARNAME_LENGTH, "var%02d", static_cast<int>(iv - v.first));
    }
    for (std::int64_t iz = z.first; iz <= z.last; ++iz) {
      for (std::int64_t iy = y.first; iy <= y.last; ++iy, row += x.size()) {
        real* to = row;
        if (hasVariable && IsIndex(iz, grid.nz) && IsIndex(iy, grid.ny) && begin < end) {
          const real* const from = in.var + ((iv * grid.nz + iz) * grid.ny + iy) * grid.nx;
          to = std::fill_n(to, begin - x.first, real{VORL_MISSING_VALUE});
          to = std::copy(from + begin, from + end, to);
        }
        std::fill(to, row + x.size(), real{VORL_MISSING_VALUE});
      }
    }
  }
  return 0;
}

}  // namespace
}  // namespace kestrum

using namespace kestrum;

int VORLResizeImage(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int ixMin, int ixMax, int iyMin, int iyMax, int izMin,
                    int izMax, int ivMin, int ivMax) noexcept {
  return Resize(*imageIn, imageOut, {{ixMin, ixMax}, {iyMin, iyMax}, {izMin, izMax}, {ivMin, ivMax}});
}
