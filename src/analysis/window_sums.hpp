#ifndef KESTRUM_ANALYSIS_WINDOW_SUMS_HPP
#define KESTRUM_ANALYSIS_WINDOW_SUMS_HPP

#include <cstddef>

#include "numeric/simd_level.hpp"

namespace kestrum {

// Lines of n values that are done side by side: value u of lane j is [u*lanes + j]. Gives the n - width + 1 sums of
// `width` values that follow each other, in the same layout: sums of 1, 2, 4, ... values, each the sum of two of the ones
// before, make up those of any width. `values` and `work` are overwritten; all three are n*lanes long.
template <typename T>
struct WindowBlock {
  std::ptrdiff_t n;
  std::ptrdiff_t lanes;
  std::ptrdiff_t width;
  T* values;
  T* work;
  T* sums;
};
void SumWindows(const WindowBlock<double>& block, SimdLevel level) noexcept;
void SumWindows(const WindowBlock<unsigned>& block, SimdLevel level) noexcept;

}  // namespace kestrum

#endif
