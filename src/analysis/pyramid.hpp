#ifndef KESTRUM_ANALYSIS_PYRAMID_HPP
#define KESTRUM_ANALYSIS_PYRAMID_HPP

#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// The next level of the Gaussian pyramid of an array of n[0] x n[1] x n[2] nodes, the first axis the fastest, in which
// NaN is missing: filtered by 1 4 6 4 1 and taken at nodes 0, 2, 4 and so on of each axis of more than two nodes.
//   reduced  out; axes of (n + 1) / 2 nodes where n > 2
template <typename T>
[[nodiscard]] int ReduceArray(const int (&n)[3], const T* values, double* reduced, const Dealing& dealing,
                              const Progress& progress) noexcept;

// Back: the nodes of the array become nodes 0, 2, 4 and so on, and all are filtered by the same weights. NaN is
// missing as there.
//   changes   the axes, of two nodes at least, that are expanded
//   expanded  out; these axes have 2 n - 1 nodes
template <typename T>
[[nodiscard]] int ExpandArray(const int (&n)[3], const bool (&changes)[3], const T* values, double* expanded,
                              const Dealing& dealing, const Progress& progress) noexcept;

}  // namespace kestrum

#endif
