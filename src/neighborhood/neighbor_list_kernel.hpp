// Which entries of a list of offsets lead to marked nodes: text for numeric/kernel_levels.hpp. Without a branch: whether
// a node is marked cannot be predicted.

#if KESTRUM_KERNEL_BYTES == 64
// The numbers at `from` whose bits are set.
KESTRUM_KERNEL_INLINE __m512i LoadSome(__mmask16 some, const int* from) { return _mm512_maskz_loadu_epi32(some, from); }

KESTRUM_KERNEL_INLINE __m512i Add(__m512i x, __m512i y) { return (__m512i)((__v16su)x + (__v16su)y); }
#endif

KESTRUM_KERNEL_TARGET std::uint64_t MarkedEntries(const EntriesAround& a, int count) noexcept {
  std::uint64_t marked = 0;
#if KESTRUM_KERNEL_BYTES == 64
  for (int i = 0; i < count; i += 16) {
    __mmask16 some = count - i < 16 ? static_cast<__mmask16>((1U << (count - i)) - 1) : static_cast<__mmask16>(0xffff);
    const __m512i shift = LoadSome(some, a.shift + i);
    if (!a.interior) {
      // Unsigned, a coordinate below zero or beyond the range of int is beyond the axis.
      for (int axis = 0; axis < 3; ++axis) {
        const __m512i at = Add(_mm512_set1_epi32(a.at[axis]), LoadSome(some, a.offset[axis] + i));
        some = _mm512_mask_cmplt_epu32_mask(some, at, _mm512_set1_epi32(a.cells[axis]));
      }
    }
    const __m512i place = Add(_mm512_set1_epi32(a.node), shift);
    // Unmasked, intrinsics of shifts read a variable that is not set.
    const __m512i bit =
        _mm512_maskz_sllv_epi32(some, _mm512_set1_epi32(1), _mm512_and_epi32(place, _mm512_set1_epi32(31)));
    const __m512i word =
        _mm512_mask_i32gather_epi32(_mm512_setzero_si512(), some, _mm512_maskz_srli_epi32(some, place, 5), a.words, 4);
    marked |= std::uint64_t{_mm512_test_epi32_mask(word, bit)} << i;
  }
#elif KESTRUM_KERNEL_BYTES == 32
  const __m256i places = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
  for (int i = 0; i < count; i += 8) {
    // All bits of an entry, or none.
    __m256i some = _mm256_cmpgt_epi32(_mm256_set1_epi32(count - i), places);
    const __m256i shift = _mm256_maskload_epi32(a.shift + i, some);
    if (!a.interior) {
      for (int axis = 0; axis < 3; ++axis) {
        const __m256i at =
            _mm256_add_epi32(_mm256_set1_epi32(a.at[axis]), _mm256_maskload_epi32(a.offset[axis] + i, some));
        // Unsigned, a coordinate below zero or beyond the range of int is beyond the axis.
        const __m256i last = _mm256_set1_epi32(a.cells[axis] - 1);
        some = _mm256_and_si256(some, _mm256_cmpeq_epi32(_mm256_max_epu32(at, last), last));
      }
    }
    const __m256i place = _mm256_add_epi32(_mm256_set1_epi32(a.node), shift);
    const __m256i word =
        _mm256_mask_i32gather_epi32(_mm256_setzero_si256(), (const int*)a.words, _mm256_srli_epi32(place, 5), some, 4);
    // The sign becomes the bit of the entry.
    const __m256i signs = _mm256_sllv_epi32(word, _mm256_andnot_si256(place, _mm256_set1_epi32(31)));
    marked |= std::uint64_t{static_cast<unsigned>(_mm256_movemask_ps((__m256)signs))} << i;
  }
#else
  // By blocks that the registers hold.
  constexpr int kBlock = 16;
  for (int begin = 0; begin < count; begin += kBlock) {
    const int n = count - begin < kBlock ? count - begin : kBlock;
    const int* const shift = a.shift + begin;
    int place[kBlock];
    unsigned inside[kBlock];
    for (int i = 0; i < n; ++i) {
      int outside = 0;
      if (!a.interior) {
        // All bits are set if any of these is negative, that is, if the entry leads out of the grid.
        for (int axis = 0; axis < 3; ++axis) {
          const int at = Moved(a.at[axis], a.offset[axis][begin + i]);
          outside |= at | Left(a.cells[axis], at);
        }
        outside >>= 31;
      }
      place[i] = a.node + (shift[i] & ~outside);
      inside[i] = ~static_cast<unsigned>(outside);
    }
    unsigned block = 0;
    for (int i = 0; i < n; ++i) {
      block |= (a.words[static_cast<unsigned>(place[i]) / 32] >> place[i] % 32 & 1u & inside[i]) << i;
    }
    marked |= std::uint64_t{block} << begin;
  }
#endif
  return marked;
}
