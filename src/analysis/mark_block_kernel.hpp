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

KESTRUM_KERNEL_TARGET void MarkBlockOfAnyType(const real* values, const IntervalSet& set,
                                              unsigned char* marks) noexcept {
  if (set.excludeLower) {
    set.excludeUpper ? MarkBlockOfType<true, true>(values, set, marks)
                     : MarkBlockOfType<true, false>(values, set, marks);
  } else {
    set.excludeUpper ? MarkBlockOfType<false, true>(values, set, marks)
                     : MarkBlockOfType<false, false>(values, set, marks);
  }
}

template <typename T>
KESTRUM_KERNEL_TARGET void MarkTrue(const T* values, unsigned char* marks) noexcept {
  // No comparison holds for NaN.
  for (int i = 0; i < kMarkBlock; ++i) marks[i] = static_cast<unsigned char>((values[i] < 0) | (values[i] > 0));
}

template <typename T>
KESTRUM_KERNEL_TARGET void MarkKnown(const T* values, unsigned char* marks) noexcept {
  for (int i = 0; i < kMarkBlock; ++i) marks[i] = static_cast<unsigned char>((values[i] <= 0) | (values[i] > 0));
}
