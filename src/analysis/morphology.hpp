#ifndef KESTRUM_ANALYSIS_MORPHOLOGY_HPP
#define KESTRUM_ANALYSIS_MORPHOLOGY_HPP

#include <span>

#include "core/grid.h"
#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// `size` offsets in cells; any int, those that never land in the grid are never used.
struct StructuringElement {
  int size;
  const int* x;
  const int* y;
  const int* z;

  // Whether its offsets are there.
  bool IsComplete() const noexcept { return size < 1 || (x != nullptr && y != nullptr && z != nullptr); }
};

// Erosion of `nvar` variables from `in` to `out`, nvar * grid.nxyz values each, as VORLImageErode does it. `out` may be
// `in`. The grid must be one that CheckImage accepts. Prints nothing.
// Returns 0 or the status of VORLMalloc (the work memory is four bits per node of one variable).
[[nodiscard]] int ErodeValues(const VORL_GRID& grid, int nvar, const real* in, real* out,
                              const StructuringElement& element, int niter, const Dealing& dealing) noexcept;

// Dilation or erosion of one mask, of unsigned char, int, float or double, by elements in turn: true nodes grow into
// the others, or zeros do. NaN neither grows nor stops growth, and comes out false. `out`: 0 or 1 for each node.
// Returns 0, the status of a failing allocation (three bits per node), or kAborted.
template <typename T>
[[nodiscard]] int ChangeMask(const VORL_GRID& grid, const T* mask, bool dilating,
                             std::span<const StructuringElement> elements, unsigned char* out, const Dealing& dealing,
                             const Progress& progress) noexcept;

}  // namespace kestrum

#endif
