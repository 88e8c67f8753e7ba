// Counts of pairs: text for numeric/kernel_levels.hpp.

// Moves the marks of a row `shift` nodes down. The row ends with a word of zeros.
KESTRUM_KERNEL_INLINE void ShiftRow(const std::uint64_t* row, int nword, int shift, std::uint64_t* __restrict to) {
  const std::uint64_t* const from = row + shift / 64;
  const int bits = shift % 64;
  for (int w = 0; w < nword; ++w) to[w] = from[w] >> bits | from[w + 1] << 1 << (63 - bits);
}

// Adds, for the sets a and b, the nodes of the row of tails in a whose heads are in b. Rows of the sets lie `stride` words
// apart, and heads `shift` nodes on in rows of `nword` words after that shift.
KESTRUM_KERNEL_TARGET void AddPairsOfSets(const std::uint64_t* tails, const std::uint64_t* heads, std::ptrdiff_t stride,
                                          int nset, int nword, int shift, std::uint64_t* room,
                                          std::int64_t* pairs) noexcept {
  for (int b = 0; b < nset; ++b) {
    ShiftRow(heads + b * stride, nword, shift, room);
    for (int a = 0; a < nset; ++a) {
      const std::uint64_t* const tail = tails + a * stride;
      std::int64_t sum = 0;
      for (int w = 0; w < nword; ++w) sum += __builtin_popcountll(tail[w] & room[w]);
      pairs[a * nset + b] += sum;
    }
  }
}

// The same for nodes of which one of both is in a set, if both are in the last set; the last number is that of these.
KESTRUM_KERNEL_TARGET void AddChangesOfSets(const std::uint64_t* tails, const std::uint64_t* heads,
                                            std::ptrdiff_t stride, int nset, int nword, int shift, std::uint64_t* room,
                                            std::int64_t* changes) noexcept {
  std::uint64_t* const known = room + nword;
  const std::uint64_t* const knownTail = tails + (nset - 1) * stride;
  ShiftRow(heads + (nset - 1) * stride, nword, shift, known);
  std::int64_t all = 0;
  for (int w = 0; w < nword; ++w) all += __builtin_popcountll(known[w] &= knownTail[w]);
  changes[nset - 1] += all;
  for (int a = 0; a < nset - 1; ++a) {
    const std::uint64_t* const tail = tails + a * stride;
    ShiftRow(heads + a * stride, nword, shift, room);
    std::int64_t sum = 0;
    for (int w = 0; w < nword; ++w) sum += __builtin_popcountll((tail[w] ^ room[w]) & known[w]);
    changes[a] += sum;
  }
}

KESTRUM_KERNEL_TARGET int CountAlike(const int* tails, const int* heads, int n) noexcept {
  int count = 0;
  for (int i = 0; i < n; ++i) count += (tails[i] == heads[i]) & (tails[i] != 0);
  return count;
}
