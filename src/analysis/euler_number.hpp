#ifndef KESTRUM_ANALYSIS_EULER_NUMBER_HPP
#define KESTRUM_ANALYSIS_EULER_NUMBER_HPP

#include "core/grid.h"
#include "numeric/simd_level.hpp"

namespace kestrum {

// What the rows first, first + step, and so on add to the Euler number of the geobodies labelled by values, or by
// labels. The sum over all rows may wrap, and ends in the range of int.
int EulerNumberOfRows(const VORL_GRID& grid, const real* values, int first, int step,
                      SimdLevel level = BestSimdLevel()) noexcept;
int EulerNumberOfRows(const VORL_GRID& grid, const int* labels, int first, int step,
                      SimdLevel level = BestSimdLevel()) noexcept;

}  // namespace kestrum

#endif
