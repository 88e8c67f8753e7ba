#ifndef KESTRUM_ANALYSIS_AREA_MEANS_HPP
#define KESTRUM_ANALYSIS_AREA_MEANS_HPP

#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// Resamples an image of n[0] x n[1] x n[2] cells, the first axis the fastest, to m[0] x m[1] x m[2] cells of the same box:
// the mean over each new cell, in which an old cell counts by the part of it that lies there. NaN is left out, and comes out
// where less than half of a new cell is known. Sizes are 1 at least.
template <typename T>
[[nodiscard]] int AreaMeans(const int (&n)[3], const T* values, const int (&m)[3], const Dealing& dealing,
                            const Progress& progress, double* means) noexcept;

}  // namespace kestrum

#endif
