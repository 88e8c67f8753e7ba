#ifndef KESTRUM_ANALYSIS_OUTPUT_IMAGE_HPP
#define KESTRUM_ANALYSIS_OUTPUT_IMAGE_HPP

#include "core/records.hpp"

namespace kestrum {

// Makes the image of a result: `nvar` variables on the frame of `grid`, each named after the variable of `in` in the
// same place counted from `firstVar`, followed by `suffix`. Values are not set.
//   out  holds nothing on entry; releasable afterwards in every case
// Returns 0; before anything is allocated -20 if `out` is null or `in` itself and -623 if a name has no room for the
// suffix; the status of MallocImageOn.
[[nodiscard]] int MakeOutputImage(const VORL_IMAGE& in, int firstVar, int nvar, const VORL_GRID& grid,
                                  const char* suffix, VORL_IMAGE* out) noexcept;

// The usual case: all variables, on the grid of `in`.
[[nodiscard]] inline int MakeOutputImage(const VORL_IMAGE& in, const char* suffix, VORL_IMAGE* out) noexcept {
  return MakeOutputImage(in, 0, in.nvar, *in.grid, suffix, out);
}

}  // namespace kestrum

#endif
