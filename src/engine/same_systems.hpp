#ifndef KESTRUM_ENGINE_SAME_SYSTEMS_HPP
#define KESTRUM_ENGINE_SAME_SYSTEMS_HPP

#include "engine/kriging.hpp"
#include "neighborhood/search_neighborhood.h"

namespace kestrum {

// Whether two categories have the same covariances everywhere, as they have if one model serves for all categories. A
// model that is not stationary counts as different from any other.
bool SameModel(const KrigingModel& a, const KrigingModel& b) noexcept;

// Whether two lists hold the same offsets and covariances in the same order.
bool SameList(const VORL_SEARCHNEIGHBORHOOD& a, const VORL_SEARCHNEIGHBORHOOD& b) noexcept;

// The models and neighbourhoods of all categories, as a worker is given them: vectors by category.
struct CategorySystems {
  VORL_COVMODEL* covModel;
  BOOLEAN ordinaryKriging;
  const BOOLEAN* rotationStationary;
  const BOOLEAN* weightStationary;
  const BOOLEAN* covModelStationary;
  const real* sill;
  real*** rotationMatrix;
  const VORL_SEARCHNEIGHBORHOOD* offsets;
  int** shift;
  const int* limit;
  VORL_GRID grid;

  KrigingModel Model(int c) const noexcept {
    return MakeKrigingModel(&covModel[c], ordinaryKriging, rotationStationary[c], weightStationary[c],
                            covModelStationary[c], sill[c], rotationMatrix[c]);
  }
  NeighborList List(int c) const noexcept { return {&offsets[c], shift[c], grid}; }
  // Whether two categories with moving neighbourhoods have the same systems at every node.
  bool SameMoving(int a, int b) const noexcept {
    return limit[a] == limit[b] && SameModel(Model(a), Model(b)) && SameList(offsets[a], offsets[b]);
  }
};

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
