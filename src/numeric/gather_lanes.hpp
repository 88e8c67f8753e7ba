#ifndef KESTRUM_NUMERIC_GATHER_LANES_HPP
#define KESTRUM_NUMERIC_GATHER_LANES_HPP

#include "numeric/lanes.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Gathers rows of a table for kLanes systems side by side: out[i*kLanes + lane] becomes
// table[start[lane] + position[i*kLanes + lane]], for i below n.
void GatherLanes(int n, const double* table, const int* start, const int* position, double* out,
                 SimdLevel level = BestSimdLevel()) noexcept;

}  // namespace kestrum

#endif
