#include "core/image.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "core/memory.h"
#include "core/nested_prefix.hpp"
#include "core/records.hpp"

static_assert(std::is_standard_layout_v<VORL_IMAGE> && sizeof(VORL_IMAGE) == 32);

namespace kestrum {
namespace {

int ValidationVerdict(VORL_IMAGE* image, int extraNameLength) noexcept {
  VORL_GRID grid{};  // a missing grid is as bad as an empty one
  if (image->grid != nullptr) grid = *image->grid;
  int status = 0;
  VORLValidateGrid(&grid, &status);
  if (status != 0) return status - 10;  // -611 to -616 for an image, where a grid has -601 to -606
  if (image->nvar < 1) return kImageVariableCount;
  if (image->nvar > VORL_MAX_NVAR) return kImageTooManyVariables;
  if (image->nxyzv < 1) return kImageValueCount;
  if (image->varName == nullptr || image->var == nullptr) return kNotAllocated;
  if (const int verdict =
          ValidateNames(image->nvar, image->varName, extraNameLength, kImageNameTooLong, kImageNamesNotUnique);
      verdict != 0) {
    return verdict;
  }
  for (int k = 0; k < image->nxyzv; ++k) {
    if (!std::isfinite(image->var[k])) return std::isnan(image->var[k]) ? kImageNaN : kImageInfinite;
  }
  return 0;
}

// The constant picture, a kestrel over hills, in node order (from the bottom row up): each entry is a run, its length
// times 3 plus its value.
constexpr std::uint16_t kPictureRuns[] = {
#include "core/picture_table.inc"
#include "core/statuses.hpp"
};
constexpr int kPictureSide = 365;

}  // namespace
}  // namespace kestrum

void VORLInitImage(VORL_IMAGE* image) noexcept { *image = VORL_IMAGE{}; }

int VORLMallocImage(VORL_IMAGE* image, int nxyz, int nvar) noexcept {
  image->grid = nullptr;
  image->varName = nullptr;
  image->var = nullptr;
  int status = 0;
  image->grid = static_cast<VORL_GRID*>(VORLMalloc(1, sizeof(VORL_GRID), &status));
  if (status != 0) return status;
  VORLInitGrid(image->grid);
  if (nvar < 1) return 0;
  status = kestrum::MallocNames(nvar, &image->varName);
  if (status != 0) return status;
  image->var = static_cast<real*>(
      VORLMalloc(static_cast<std::size_t>(nvar) * static_cast<std::size_t>(std::max(nxyz, 0)), sizeof(real), &status));
  return status;
}

void VORLFreeImage(VORL_IMAGE* image) noexcept {
  if (image == nullptr) return;
  VORLFree(image->grid);
  VORLFreeArray2D(reinterpret_cast<void**>(image->varName));
  VORLFree(image->var);
}

int VORLCopyImage(VORL_IMAGE* dst, VORL_IMAGE* src) noexcept {
  if (dst == src) return kestrum::kNotAllocated;
  VORLInitImage(dst);
  if (const int status = kestrum::CheckImageIfAnyVariable(*src); status != 0) return status;
  if (const int status = kestrum::MallocImageOn(*src->grid, src->nvar, dst); status != 0) return status;
  kestrum::CopyNames(src->nvar, src->varName, dst->varName);
  if (src->nvar > 0) std::copy_n(src->var, dst->nxyzv, dst->var);
  return 0;
}

int VORLValidateImage(VORL_IMAGE* image, int extraNameLength, int* status) noexcept {
  *status = kestrum::ValidationVerdict(image, extraNameLength);
  return 0;
}

int VORLPrintImage(VORL_IMAGE* image, char* prefix, FILE* stream) noexcept {
  kestrum::NestedPrefix nested;
  if (const int status = nested.Extend(prefix); status != 0) return status;
  std::fprintf(stream, "%sgrid:\n", prefix);
  // A report prints an input before it is validated: what is missing is left out.
  if (image->grid != nullptr) VORLPrintGrid(image->grid, nested.text(), stream);
  std::fprintf(stream, "%snvar:  %8d\n", prefix, image->nvar);
  std::fprintf(stream, "%snxyzv: %8d\n", prefix, image->nxyzv);
  std::fprintf(stream, "%svarName:\n", prefix);
  kestrum::PrintNames(image->nvar, image->varName, nested.text(), stream);
  return 0;
}

int VORLImageEE(VORL_IMAGE* image) noexcept {
  constexpr int kSide = kestrum::kPictureSide;
  constexpr int kSize = kSide * kSide;
  const VORL_GRID grid{kSide, kSide, 1, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, kSize, kSize};
  if (const int status = kestrum::MallocImageOn(grid, 1, image); status != 0) return status;
  std::strcpy(image->varName[0], "surprise");
  real* node = image->var;
  for (const int run : kestrum::kPictureRuns) node = std::fill_n(node, run / 3, static_cast<real>(run % 3));
  return 0;
}
