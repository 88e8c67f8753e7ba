#ifndef KESTRUM_ANALYSIS_BOX_MEAN_HPP
#define KESTRUM_ANALYSIS_BOX_MEAN_HPP

#include "core/grid.h"
#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// The sides of a box in nodes, which are odd.
struct BoxSides {
  int x;
  int y;
  int z;
};

// The mean of the box about each node, NaN where the box leaves the grid or less than 80 % of its values are known.
// Sums are added up pairwise from values of the box alone, along x, y and z in turn, so that the error of a mean is that
// of its box's largest value, whatever lies elsewhere. Work memory: 4 bytes a node if some value is NaN.
// values: nxyz numbers of unsigned char, int, float or double. means: out; nxyz numbers.
// Returns 0, the status of a failing allocation, or kAborted.
template <typename T>
[[nodiscard]] int BoxMean(const VORL_GRID& grid, const T* values, const BoxSides& sides, const Dealing& dealing,
                          double* means, const Progress& progress) noexcept;

}  // namespace kestrum

#endif
