#ifndef KESTRUM_PATHS_UNILATERAL_ORDER_HPP
#define KESTRUM_PATHS_UNILATERAL_ORDER_HPP

#include <cstdint>

namespace kestrum {

inline constexpr int kMaxUnilateralAxes = 4;

// The rank of an axis: its entry without the sign. Wide, since the least int has no opposite.
inline std::int64_t RankOf(int entry) noexcept { return entry < 0 ? -std::int64_t{entry} : entry; }

// Writes the axes by increasing rank to `axes`; axes of one rank keep their order.
inline void SortAxesByRank(const int* order, int naxis, int* axes) noexcept {
  for (int axis = 0; axis < naxis; ++axis) {
    int place = axis;
    for (; place > 0 && RankOf(order[axes[place - 1]]) > RankOf(order[axis]); --place) axes[place] = axes[place - 1];
    axes[place] = axis;
  }
}

}  // namespace kestrum

#endif
