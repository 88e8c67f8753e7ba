#include "core/records.hpp"

#include "core/integers.hpp"
#include "core/statuses.hpp"

namespace kestrum {

bool SetSizes(VORL_GRID* grid, std::int64_t nx, std::int64_t ny, std::int64_t nz) noexcept {
  bool held = true;
  const auto hold = [&held](std::int64_t number) noexcept {
    const bool fits = FitsInt(number);
    held = held && fits;
    return fits ? static_cast<int>(number) : 0;
  };
  grid->nx = hold(nx);
  grid->ny = hold(ny);
  grid->nz = hold(nz);
  grid->nxy = hold(std::int64_t{grid->nx} * grid->ny);
  grid->nxyz = hold(std::int64_t{grid->nxy} * grid->nz);
  return held;
}

int CheckGrid(const VORL_GRID& grid) noexcept {
  VORL_GRID filled;
  const bool sound = grid.nx >= 1 && grid.ny >= 1 && grid.nz >= 1 && SetSizes(&filled, grid.nx, grid.ny, grid.nz) &&
                     filled.nxy == grid.nxy && filled.nxyz == grid.nxyz;
  return sound ? 0 : kGridSize;
}

int CheckImage(const VORL_IMAGE& image) noexcept {
  if (image.grid == nullptr) return kNotAllocated;
  if (image.nvar < 1) return kImageVariableCount;
  if (image.varName == nullptr || image.var == nullptr) return kNotAllocated;
  if (CheckGrid(*image.grid) != 0) return kImageGridSize;
  return std::int64_t{image.nvar} * image.grid->nxyz <= image.nxyzv ? 0 : kImageValueCount;
}

int CheckImageIfAnyVariable(const VORL_IMAGE& image) noexcept {
  if (image.nvar > 0) return CheckImage(image);
  return image.grid != nullptr ? 0 : kNotAllocated;
}

int CheckPointSet(const VORL_POINTSET& ps) noexcept {
  const bool hasNames = ps.nvar < 1 || ps.varName != nullptr;
  const bool hasPoints = ps.npoint < 1 || !AnyNull(ps.x, ps.y, ps.z);
  const bool hasValues = ps.npoint < 1 || ps.nvar < 1 || ps.var != nullptr;
  return hasNames && hasPoints && hasValues ? 0 : kNotAllocated;
}

int MallocImageOn(const VORL_GRID& grid, int nvar, VORL_IMAGE* out) noexcept {
  VORLInitImage(out);
  const std::int64_t nvalue = std::int64_t{nvar} * grid.nxyz;
  if (!FitsInt(nvalue)) return kImageTooLarge;
  if (const int status = VORLMallocImage(out, grid.nxyz, nvar); status != 0) return status;
  *out->grid = grid;
  out->nvar = nvar;
  out->nxyzv = static_cast<int>(nvalue);
  return 0;
}

}  // namespace kestrum
