#ifndef KESTRUM_ANALYSIS_PAIR_COUNTS_HPP
#define KESTRUM_ANALYSIS_PAIR_COUNTS_HPP

#include <cstddef>
#include <cstdint>

#include "core/grid.h"
#include "core/parallel.hpp"
#include "core/progress.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Counts of the pairs of nodes of a grid, a tail and the head a lag away, at all lags from -maxLag to maxLag along x, y and
// z, each below the number of nodes. Tables have a number for each lag, those along x the fastest. A lag and its opposite
// have the same pairs, tails and heads exchanged, and are counted once. Codes are those of category_codes.hpp.

// The pairs by the categories of tail and head.
//   pairs  out; ncategory x ncategory tables, those of one tail category together. Pairs with an end in no category are not
//          counted
// Up to 11 categories are sets of bits, an eighth byte a node: the time is 1/64 step a node for two categories and a lag.
// Pairs of more are added one by one.
[[nodiscard]] int CountCategoryPairs(const VORL_GRID& grid, const std::int16_t* codes, int ncategory,
                                     const int (&maxLag)[3], const Dealing& dealing, const Progress& progress,
                                     std::int64_t* pairs, SimdLevel level = BestSimdLevel()) noexcept;

// The pairs of which one end is in a set and the other is not: the sets of each category or, if they are nested, of the
// codes above each but the last.
//   changes  out; a table for each category, or one less
//   pairs    out; a table of all pairs. Pairs with an end in no category are not counted
[[nodiscard]] int CountCategoryChanges(const VORL_GRID& grid, const std::int16_t* codes, int ncategory, bool nested,
                                       const int (&maxLag)[3], const Dealing& dealing, const Progress& progress,
                                       std::int64_t* changes, std::int64_t* pairs,
                                       SimdLevel level = BestSimdLevel()) noexcept;

// The pairs of nodes of one label, other than 0.
[[nodiscard]] int CountAlikePairs(const VORL_GRID& grid, const int* labels, const int (&maxLag)[3],
                                  const Dealing& dealing, const Progress& progress, std::int64_t* pairs,
                                  SimdLevel level = BestSimdLevel()) noexcept;

}  // namespace kestrum

#endif
