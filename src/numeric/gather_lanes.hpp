#ifndef KESTRUM_NUMERIC_GATHER_LANES_HPP
#define KESTRUM_NUMERIC_GATHER_LANES_HPP

#include <cstddef>

#include "numeric/lanes.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Gathers rows of a table for kLanes systems side by side: out[i*kLanes + lane] becomes
// table[start[lane] + position[i*kLanes + lane]], for i below n.
void GatherLanes(int n, const double* table, const int* start, const int* position, double* out,
                 SimdLevel level = BestSimdLevel()) noexcept;

// Gathers by differences, for a row of kLanes symmetric matrices side by side: row[i*stride + lane] becomes
// table[|to[i*kLanes + lane] - from[lane]|] for i below n, and so does column[i*step + lane]. Other threads may store
// into the table meanwhile. Returns whether no number gathered is `missing`.
[[nodiscard]] bool GatherDifferences(int n, const double* table, double missing, const int* from, const int* to,
                                     double* row, std::ptrdiff_t stride, double* column, std::ptrdiff_t step,
                                     SimdLevel level = BestSimdLevel()) noexcept;

}  // namespace kestrum

#endif
