#ifndef KESTRUM_ANALYSIS_CATEGORY_CODES_HPP
#define KESTRUM_ANALYSIS_CATEGORY_CODES_HPP

#include <cstddef>
#include <cstdint>

#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// Categories of nodes are codes from 0 on; this one is none. NaN is in none.
constexpr std::int16_t kNoCategory = -1;
constexpr int kMostCategories = 255;

// Finds the distinct values, in increasing order.
//   categories   out; room for kMostCategories
//   ncategory    out; their number, or kMostCategories + 1 if there are more
template <typename T>
[[nodiscard]] int FindCategories(std::ptrdiff_t n, const T* values, const Dealing& dealing, const Progress& progress,
                                 double* categories, int* ncategory) noexcept;

// Writes the number of each value among the categories, at most kMostCategories distinct ones.
template <typename T>
[[nodiscard]] int CodeCategories(std::ptrdiff_t n, const T* values, int ncategory, const double* categories,
                                 const Dealing& dealing, const Progress& progress, std::int16_t* codes) noexcept;

// Writes how many of the cuts, which increase, are at or below each value.
template <typename T>
[[nodiscard]] int CodeByCuts(std::ptrdiff_t n, const T* values, int ncut, const double* cuts, const Dealing& dealing,
                             const Progress& progress, std::int16_t* codes) noexcept;

}  // namespace kestrum

#endif
