#include "engine/categories.hpp"

namespace kestrum {
namespace {

// Whether two lists hold the same offsets and covariances in the same order.
bool SameList(const VORL_SEARCHNEIGHBORHOOD& a, const VORL_SEARCHNEIGHBORHOOD& b) noexcept {
  return a.size == b.size && std::equal(a.ix, a.ix + a.size, b.ix) && std::equal(a.iy, a.iy + a.size, b.iy) &&
         std::equal(a.iz, a.iz + a.size, b.iz) && std::equal(a.weight, a.weight + a.size, b.weight);
}

bool SameSystems(const ModelSetup& a, const ModelSetup& b) noexcept {
  if (a.unique() != b.unique() || !SameModel(a.model, b.model)) return false;
  return a.unique() || (a.neighbors.limit == b.neighbors.limit && SameList(*a.neighbors.offsets, *b.neighbors.offsets));
}

}  // namespace

int CategoryGroups::Find(std::span<const ModelSetup> setups) noexcept {
  if (const int status = first_.Allocate(setups.size()); status != 0) return status;
  for (int c = 0; c < static_cast<int>(setups.size()); ++c) {
    int f = 0;
    while (f < c && (!isFirst(f) || !SameSystems(setups[f], setups[c]))) ++f;
    first_[c] = f;
    if (f == c) ++count_;
  }
  return 0;
}

}  // namespace kestrum
