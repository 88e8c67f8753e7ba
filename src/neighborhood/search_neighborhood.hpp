#ifndef KESTRUM_NEIGHBORHOOD_SEARCH_NEIGHBORHOOD_HPP
#define KESTRUM_NEIGHBORHOOD_SEARCH_NEIGHBORHOOD_HPP

#include "core/progress.hpp"
#include "covariance/grid_model.hpp"
#include "neighborhood/search_neighborhood.h"

namespace kestrum {

// How far neighbours are sought: a factor on the largest ranges of the model along its axes, or on the half axes of an
// ellipsoid, if there is one.
struct SearchReach {
  real factor;
  const real* axes = nullptr;
};

// Builds the list of a covariance model, as VORLKestrumBuildSearchNeighborhoodForCovModel does. Of the grid its spacing
// and numbers of cells count. mask: null, or one variable. Of progress it asks whether to go on: kAborted if not.
[[nodiscard]] int BuildSearchNeighborhood(const VORL_GRID& grid, const GridModel& model, const VORL_IMAGE* mask,
                                          SearchReach reach, int sortMode, VORL_SEARCHNEIGHBORHOOD& list,
                                          VORL_RANDCONTEXT* randContext,
                                          const Progress& progress = Progress(nullptr, nullptr)) noexcept;

// Steps that the builders of lists share.

// Calls consider(i, j, k) for one offset of each pair of opposite ones in a box of these half-widths: those on the x
// axis, then in the xy plane, then the rest. Offset (0, 0, 0) is left out.
template <typename Consider>
void ForEachHalfOffset(int hx, int hy, int hz, const Consider& consider) noexcept {
  for (int i = 1; i <= hx; ++i) consider(i, 0, 0);
  for (int j = 1; j <= hy; ++j) {
    for (int i = -hx; i <= hx; ++i) consider(i, j, 0);
  }
  for (int k = 1; k <= hz; ++k) {
    for (int j = -hy; j <= hy; ++j) {
      for (int i = -hx; i <= hx; ++i) consider(i, j, k);
    }
  }
}

// Sorts the five arrays by `distance`; keys that differ by at most VORL_EPSILON come in a random but fixed order, since
// the context is reseeded with 1. Returns 0, the status of a failing allocation, or kAborted.
[[nodiscard]] int SortByKey(VORL_SEARCHNEIGHBORHOOD& list, VORL_RANDCONTEXT* randContext,
                            const Progress& progress = Progress(nullptr, nullptr)) noexcept;

void ComputeBoundingBox(VORL_SEARCHNEIGHBORHOOD& list) noexcept;

}  // namespace kestrum

#endif
