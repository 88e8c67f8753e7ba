// Sets as bits: text for numeric/kernel_levels.hpp.

KESTRUM_KERNEL_TARGET void AddAll(const std::uint64_t* from, std::ptrdiff_t n, std::uint64_t* __restrict to) noexcept {
  for (std::ptrdiff_t i = 0; i < n; ++i) to[i] |= from[i];
}

// Some words at a time, of whole rows if these are not longer: those of three words that a word grows from, and which of
// them lie on its row.
KESTRUM_KERNEL_TARGET void GrowAll(const RowsOfBits& rows, std::ptrdiff_t begin, std::ptrdiff_t end, std::ptrdiff_t low,
                                   int length, std::uint64_t* to) noexcept {
  constexpr int kWords = 256;
  constexpr int kTop = 63;
  alignas(64) std::uint64_t window[kWords + 2];
  alignas(64) std::uint64_t onRow[3][kWords];
  alignas(64) std::uint64_t set[kWords];
  alignas(64) std::uint64_t rest[kWords];  // the word after each
  const int block = rows.words <= kWords ? kWords / rows.words * rows.words : kWords;
  const std::ptrdiff_t first = low >> 6;
  const int bits = static_cast<int>(low & kTop);
  std::ptrdiff_t placed = -1;  // the place on its row of the first word of a block
  for (std::ptrdiff_t at = begin; at < end; at += block) {
    const int n = static_cast<int>(std::min<std::ptrdiff_t>(block, end - at));
    if (at % rows.words != placed) {
      placed = at % rows.words;
      std::ptrdiff_t place = placed + first;
      for (int i = 0; i < n; ++i, ++place) {
        if (place == rows.words + first) place = first;
        for (int k = 0; k < 3; ++k) onRow[k][i] = place + k >= 0 && place + k < rows.words ? ~std::uint64_t{0} : 0;
      }
    }
    const std::ptrdiff_t from = at + first;
    const std::ptrdiff_t known = std::clamp<std::ptrdiff_t>(-from, 0, n + 2);
    const std::ptrdiff_t unknown = std::clamp<std::ptrdiff_t>(rows.n - from, known, n + 2);
    std::fill(window, window + known, std::uint64_t{0});
    std::copy(rows.bits + from + known, rows.bits + from + unknown, window + known);
    std::fill(window + unknown, window + n + 2, std::uint64_t{0});
    for (int i = 0; i < n; ++i) {
      const std::uint64_t next = window[i + 1] & onRow[1][i];
      set[i] = (window[i] & onRow[0][i]) >> bits | next << 1 << (kTop - bits);
      rest[i] = next >> bits | (window[i + 2] & onRow[2][i]) << 1 << (kTop - bits);
    }
    for (int done = 1; done < length;) {
      const int step = std::min(done, length - done);
      for (int i = 0; i < n; ++i) {
        set[i] |= set[i] >> step | rest[i] << (kTop + 1 - step);
        rest[i] |= rest[i] >> step;
      }
      done += step;
    }
    std::copy(set, set + n, to + at);
  }
}
