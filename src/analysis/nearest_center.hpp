#ifndef KESTRUM_ANALYSIS_NEAREST_CENTER_HPP
#define KESTRUM_ANALYSIS_NEAREST_CENTER_HPP

#include <cstddef>

#include "numeric/simd_level.hpp"

namespace kestrum {

// Finds the nearest centre, the first of several, of points begin to begin + count - 1.
//   data      nfeature vectors, one entry per point
//   center    ncluster centres of nfeature entries
//   nearest   out: its number, per point; 0 if no distance is finite
//   distance  out: the square of the distance, summed in the order of the features
using NearestCenterKernel = void (*)(const double* const* data, int nfeature, std::ptrdiff_t begin, int count,
                                     const double* center, int ncluster, int* nearest, double* distance) noexcept;
NearestCenterKernel NearestCenterKernelOf(SimdLevel level) noexcept;

}  // namespace kestrum

#endif
