// The marks of nodes: text for numeric/kernel_levels.hpp. Loops without branches, for the vector units.

template <bool excludeLower, bool excludeUpper>
KESTRUM_KERNEL_INLINE void MarkBlockOfType(const real* values, const IntervalSet& set, unsigned char* marks) noexcept {
  std::memset(marks, 0, kMarkBlock);
  for (int k = 0; k < set.n; ++k) {
    const real lower = set.lower[k];
    const real upper = set.upper[k];
    for (int i = 0; i < kMarkBlock; ++i) {
      const real value = values[i];
      marks[i] |= static_cast<unsigned char>((excludeLower ? value > lower : value >= lower) &
                                             (excludeUpper ? value < upper : value <= upper));
    }
  }
  const unsigned char complement = set.complement ? 1 : 0;
  for (int i = 0; i < kMarkBlock; ++i) {
    marks[i] = static_cast<unsigned char>((marks[i] ^ complement) & (IsMissing(values[i]) ? 0 : 1));
  }
}

KESTRUM_KERNEL_INLINE void SetMarks(const real* values, const IntervalSet& set, unsigned char* marks) noexcept {
  if (set.excludeLower) {
    set.excludeUpper ? MarkBlockOfType<true, true>(values, set, marks)
                     : MarkBlockOfType<true, false>(values, set, marks);
  } else {
    set.excludeUpper ? MarkBlockOfType<false, true>(values, set, marks)
                     : MarkBlockOfType<false, false>(values, set, marks);
  }
}

template <typename T>
KESTRUM_KERNEL_INLINE void SetMarks(const T* values, TrueValues, unsigned char* marks) noexcept {
  // No comparison holds for NaN.
  for (int i = 0; i < kMarkBlock; ++i) marks[i] = static_cast<unsigned char>((values[i] < 0) | (values[i] > 0));
}

template <typename T>
KESTRUM_KERNEL_INLINE void SetMarks(const T* values, KnownValues, unsigned char* marks) noexcept {
  for (int i = 0; i < kMarkBlock; ++i) marks[i] = static_cast<unsigned char>((values[i] <= 0) | (values[i] > 0));
}

KESTRUM_KERNEL_INLINE void SetMarks(const std::int16_t* values, CodeRange codes, unsigned char* marks) noexcept {
  for (int i = 0; i < kMarkBlock; ++i) {
    marks[i] = static_cast<unsigned char>((values[i] >= codes.first) & (values[i] <= codes.last));
  }
}

template <typename T, typename Set>
KESTRUM_KERNEL_TARGET void MarkBlockOf(const T* values, const Set& set, unsigned char* marks) noexcept {
  SetMarks(values, set, marks);
}

// The marks of a block as bits.
KESTRUM_KERNEL_INLINE std::uint64_t PackMarks(const unsigned char* marks) noexcept {
  std::uint64_t bits = 0;
#if KESTRUM_KERNEL_BYTES >= 32
  for (int half = 0; half < 2; ++half) {
    const __m256i bytes = _mm256_loadu_si256((const __m256i*)(marks + 32 * half));
    bits |= std::uint64_t{static_cast<unsigned>(_mm256_movemask_epi8(_mm256_slli_epi16(bytes, 7)))} << (32 * half);
  }
#else
  static_assert(std::endian::native == std::endian::little);
  for (int byte = 0; byte < 8; ++byte) {
    std::uint64_t eight;
    std::memcpy(&eight, marks + 8 * byte, 8);
    // Mark j, at bit 8j, is moved to bit 56 + j by the term 2^(56 - 7j); no other sums of places meet there.
    bits |= (eight * 0x0102040810204080u >> 56) << (8 * byte);
  }
#endif
  return bits;
}

template <typename T, typename Set>
KESTRUM_KERNEL_TARGET int MarkWordsOf(const T* values, std::ptrdiff_t n, const Set& set,
                                      std::uint64_t* words) noexcept {
  unsigned char marks[kMarkBlock];
  int count = 0;
  for (; n >= kMarkBlock; n -= kMarkBlock, values += kMarkBlock) {
    SetMarks(values, set, marks);
    *words = PackMarks(marks);
    count += std::popcount(*words++);
  }
  if (n == 0) return count;
  T rest[kMarkBlock] = {};
  std::copy_n(values, n, rest);
  SetMarks(rest, set, marks);
  *words = PackMarks(marks) & ((std::uint64_t{1} << n) - 1);
  return count + std::popcount(*words);
}
