#ifndef KESTRUM_ENGINE_SAME_SYSTEMS_HPP
#define KESTRUM_ENGINE_SAME_SYSTEMS_HPP

#include "engine/kriging.hpp"
#include "engine/search_neighborhood.h"

namespace kestrum {

// Whether two categories have the same covariances everywhere, as they have if one model serves for all categories. A
// model that is not stationary counts as different from any other.
bool SameModel(const KrigingModel& a, const KrigingModel& b) noexcept;

// Whether two lists hold the same offsets and covariances in the same order.
bool SameList(const VORL_SEARCHNEIGHBORHOOD& a, const VORL_SEARCHNEIGHBORHOOD& b) noexcept;

// Writes for each category the first one that same(it, category) holds for: the category itself, if none comes before.
// Returns the number of categories that are first.
template <typename Same>
int FindFirstAlike(int ncategory, const Same& same, int* first) noexcept {
  int count = 0;
  for (int c = 0; c < ncategory; ++c) {
    first[c] = 0;
    while (first[c] < c && (first[first[c]] != first[c] || !same(first[c], c))) ++first[c];
    if (first[c] == c) ++count;
  }
  return count;
}

}  // namespace kestrum

#endif
