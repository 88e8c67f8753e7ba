#ifndef KESTRUM_ANALYSIS_OUTPUT_IMAGE_HPP
#define KESTRUM_ANALYSIS_OUTPUT_IMAGE_HPP

#include <cstddef>

#include "core/image.h"
#include "core/variables.hpp"

namespace kestrum {

// Whether the nodes of an image can be walked: 0; -621 without a variable; -20 if grid, names or values are not
// allocated; -611 if a size is below 1 or the stored products of the sizes disagree with them. Tested after what a
// function tests of its own arguments.
[[nodiscard]] int CheckImage(const VORL_IMAGE& image) noexcept;

// The tests of a function of one variable: -1100 if the image has no variable of that index, -20 if an argument is null
// that is needed; then those of CheckImage.
template <typename... T>
[[nodiscard]] int CheckVariable(const VORL_IMAGE& image, int varIndex, const T*... needed) noexcept {
  if (varIndex < 0 || varIndex >= image.nvar) return -1100;
  return AnyNull(needed...) ? -20 : CheckImage(image);
}

inline const real* VariableOf(const VORL_IMAGE& image, int varIndex) noexcept {
  return image.var + std::ptrdiff_t{varIndex} * image.grid->nxyz;
}

// Allocates an image of `nvar` variables on the frame of `grid`, whose values an int counts. Names and values are not
// set. Returns the status of VORLMallocImage.
[[nodiscard]] int MallocImageOn(const VORL_GRID& grid, int nvar, VORL_IMAGE* out) noexcept;

// Makes the image of a result: `nvar` variables on the frame of `grid`, each named after the variable of `in` in the
// same place counted from `firstVar`, followed by `suffix`. Values are not set.
//   out  holds nothing on entry; releasable afterwards in every case
// Returns 0; before anything is allocated -20 if `out` is null or `in` itself, -623 if a name has no room for the
// suffix and -620 if the image would have more values than an int can count; the status of VORLMallocImage.
[[nodiscard]] int MakeOutputImage(const VORL_IMAGE& in, int firstVar, int nvar, const VORL_GRID& grid,
                                  const char* suffix, VORL_IMAGE* out) noexcept;

// The usual case: all variables, on the grid of `in`.
[[nodiscard]] inline int MakeOutputImage(const VORL_IMAGE& in, const char* suffix, VORL_IMAGE* out) noexcept {
  return MakeOutputImage(in, 0, in.nvar, *in.grid, suffix, out);
}

}  // namespace kestrum

#endif
