// The Euler number of rows: text for numeric/kernel_levels.hpp.

// What the nodes of a row add to the Euler number. `below`: there are rows below; without them, the neighbours
// there drop out of the loop.
//
// The flags are numbered in the order of the scan: a0 is (-1,-1,-1), a1 (0,-1,-1) and so on to a12, (-1,0,0).
// Deliberately a5 looks at the node one before the one below, wherever that is, there is no a7, and a11 counts in the
// first layer alone.
template <bool below, typename T>
KESTRUM_KERNEL_INLINE int EulerNumberOfRow(const VORL_GRID& grid, const T* values, int row) noexcept {
  const int nx = grid.nx;
  const int iy = row % grid.ny;
  const T* const here = values + std::ptrdiff_t{row} * nx;
  const std::ptrdiff_t toBelow = below ? -std::ptrdiff_t{grid.nxy} : 0;
  // A row outside the grid is replaced by one inside, whose flags are masked.
  const int hasBack = iy > 0;
  const int hasFront = iy + 1 < grid.ny;
  const T* const back = here - hasBack * nx;
  const T* const under = here + toBelow;
  const T* const underBack = back + toBelow;
  const T* const underFront = here + hasFront * nx + toBelow;

  // As wide as a value, for the vector units.
  using Flag = std::conditional_t<sizeof(T) == 8, std::int64_t, std::int32_t>;
  // left and right: whether the node has a neighbour on that side.
  const auto increment = [=](int ix, int left, int right) __attribute__((always_inline))->Flag {
    const T value = here[ix];
    const auto same = [value](const T& other) -> Flag { return static_cast<Flag>(other == value); };
    const Flag a9 = hasBack & left & same(back[ix - left]);
    const Flag a10 = hasBack & same(back[ix]);
    const Flag a11 = below ? 0 : hasBack & right & same(back[ix + right]);
    const Flag a12 = left & same(here[ix - left]);
    const Flag t5 = a9 | a10 | a12;
    const Flag t6 = a10 | a11;
    Flag v = 8 - t5 - t6 - a12;
    Flag e = 12 - a10 - a12 - t5 - t6 - a12;
    Flag f = 6 - a10 - a12;
    if constexpr (below) {
      const int inVariable = left == 1 || under != values;
      const Flag a0 = hasBack & left & same(underBack[ix - left]);
      const Flag a1 = hasBack & same(underBack[ix]);
      const Flag a2 = hasBack & right & same(underBack[ix + right]);
      const Flag a3 = left & same(under[ix - left]);
      const Flag a4 = same(under[ix]);
      const Flag a5 = inVariable & right & same(under[ix - inVariable]);
      const Flag a6 = hasFront & left & same(underFront[ix - left]);
      const Flag a8 = hasFront & right & same(underFront[ix + right]);
      v -= (a0 | a1 | a3 | a4 | a9 | a10 | a12) + (a1 | a2 | a4 | a5 | a10 | a11) + (a4 | a5 | a8) +
           (a3 | a4 | a6 | a12);
      e -= (a1 | a4 | a10) + a4 + (a3 | a4 | a12) + (a4 | a5);
      f -= a4;
    } else {
      v -= t5 + t6 + a12;
      e -= a10 + a12;
    }
    // A mask in place of a branch.
    return -static_cast<Flag>(value != T{0}) & (v - e + f - 1);
  };
  Flag sum = increment(0, 0, nx > 1);
  for (int ix = 1; ix + 1 < nx; ++ix) sum += increment(ix, 1, 1);
  if (nx > 1) sum += increment(nx - 1, 1, 0);
  return static_cast<int>(sum);
}

template <typename T>
KESTRUM_KERNEL_TARGET int SumOverRows(const VORL_GRID& grid, const T* values, int first, int step) noexcept {
  // Unsigned, so that it may wrap.
  unsigned sum = 0;
  for (std::ptrdiff_t row = first; row < std::ptrdiff_t{grid.ny} * grid.nz; row += step) {
    const int index = static_cast<int>(row);
    sum += static_cast<unsigned>(index < grid.ny ? EulerNumberOfRow<false>(grid, values, index)
                                                 : EulerNumberOfRow<true>(grid, values, index));
  }
  return static_cast<int>(sum);
}
