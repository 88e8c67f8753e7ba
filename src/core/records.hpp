#ifndef KESTRUM_CORE_RECORDS_HPP
#define KESTRUM_CORE_RECORDS_HPP

#include <cstddef>
#include <cstdint>

#include "core/image.h"
#include "core/point_set.h"
#include "core/statuses.hpp"
#include "core/variables.hpp"

// Making and checking the records that callers may fill by hand. The checks take constant time. A function that walks
// the nodes of a record makes them before, after the tests of its own arguments.
namespace kestrum {

// Sets the sizes of a grid and their products; a number that an int cannot hold becomes 0. Returns whether an int
// holds them all.
bool SetSizes(VORL_GRID* grid, std::int64_t nx, std::int64_t ny, std::int64_t nz) noexcept;

// 0, or -601 if a size is below 1 or a stored product of the sizes is not theirs.
[[nodiscard]] int CheckGrid(const VORL_GRID& grid) noexcept;

// 0; -621 without a variable; -20 if grid, names or values are not allocated; -611 if a size is below 1 or a stored
// product of the sizes is not theirs; -625 if nxyzv is less than the number of values of the variables.
[[nodiscard]] int CheckImage(const VORL_IMAGE& image) noexcept;

// The same for a function that takes images without variables, too: of those only the grid must be allocated.
[[nodiscard]] int CheckImageIfAnyVariable(const VORL_IMAGE& image) noexcept;

// The tests of a function of one variable: -1100 if the image has no variable of that index, -20 if an argument is null
// that is needed; then those of CheckImage.
template <typename... T>
[[nodiscard]] int CheckVariable(const VORL_IMAGE& image, int varIndex, const T*... needed) noexcept {
  if (varIndex < 0 || varIndex >= image.nvar) return kVariableIndex;
  return AnyNull(needed...) ? kNotAllocated : CheckImage(image);
}

// 0, or -20 if coordinates, names or values that the counts promise are not allocated.
[[nodiscard]] int CheckPointSet(const VORL_POINTSET& ps) noexcept;

inline real* VariableOf(const VORL_IMAGE& image, int varIndex) noexcept {
  return image.var + std::ptrdiff_t{varIndex} * image.grid->nxyz;
}

// Allocates an image of `nvar` variables on a copy of `grid`. Names are empty, values are not set.
//   out  whatever it held is not released; releasable afterwards in every case
// Returns 0; -620, with nothing allocated, if an int cannot count the values; the status of VORLMallocImage.
[[nodiscard]] int MallocImageOn(const VORL_GRID& grid, int nvar, VORL_IMAGE* out) noexcept;

}  // namespace kestrum

#endif
