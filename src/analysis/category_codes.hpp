#ifndef KESTRUM_ANALYSIS_CATEGORY_CODES_HPP
#define KESTRUM_ANALYSIS_CATEGORY_CODES_HPP

#include <cstddef>
#include <cstdint>

#include "core/parallel.hpp"

namespace kestrum {

// Categories of nodes are codes from 0 on; this one is none. NaN is in none.
constexpr std::int16_t kNoCategory = -1;
constexpr int kMostCategories = 255;

// Finds the distinct values, in increasing order. Returns their number, or kMostCategories + 1 if there are more.
//   categories  out; room for kMostCategories
template <typename T>
int FindCategories(std::ptrdiff_t n, const T* values, double* categories) noexcept;

// Writes the number of each value among the categories, at most kMostCategories distinct ones.
template <typename T>
void CodeCategories(std::ptrdiff_t n, const T* values, int ncategory, const double* categories, const Dealing& dealing,
                    std::int16_t* codes) noexcept;

// Writes how many of the cuts, which increase, are at or below each value.
template <typename T>
void CodeByCuts(std::ptrdiff_t n, const T* values, int ncut, const double* cuts, const Dealing& dealing,
                std::int16_t* codes) noexcept;

}  // namespace kestrum

#endif
