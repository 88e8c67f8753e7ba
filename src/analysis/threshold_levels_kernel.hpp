// Levels of values: text for numeric/kernel_levels.hpp.

// Which elements pass, one bit each, the first one lowest.
template <bool above>
KESTRUM_KERNEL_INLINE unsigned Passing(Vector x, Vector threshold) noexcept {
#if KESTRUM_KERNEL_BYTES == 64
  return _mm512_cmp_pd_mask((__m512d)x, (__m512d)threshold, above ? _CMP_GT_OQ : _CMP_LE_OQ);
#else
  const Integers passing = above ? x > threshold : x <= threshold;
#if KESTRUM_KERNEL_BYTES == 32
  return static_cast<unsigned>(_mm256_movemask_pd((__m256d)passing));
#else
  return static_cast<unsigned>((passing[0] & 1) | (passing[1] & 2));
#endif
#endif
}

template <bool above>
KESTRUM_KERNEL_INLINE std::uint64_t PassingBlock(const double* values, double threshold) noexcept {
  const Vector thresholds = Broadcast<Vector>(threshold);
  std::uint64_t bits = 0;
  for (int i = 0; i < kLevelBlock; i += kWidth) {
    bits |= std::uint64_t{Passing<above>(Load<Vector>(values + i), thresholds)} << i;
  }
  return bits;
}

// How many thresholds a value passes.
template <bool above>
KESTRUM_KERNEL_INLINE int LevelOf(double value, int n, const double* thresholds) noexcept {
  int level = 0;
  for (int k = 0; k < n; k += kWidth) {
    level += std::popcount(Passing<above>(Broadcast<Vector>(value), Load<Vector>(thresholds + k)));
  }
  return level;
}

template <bool above>
KESTRUM_KERNEL_INLINE void WriteLevelBitsOf(const double* values, int n, const double* thresholds,
                                            const LevelBits& levels) noexcept {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  constexpr int kAhead = 512;
  Vector least = Broadcast<Vector>(kInfinity);
  Vector most = Broadcast<Vector>(-kInfinity);
  for (int i = 0; i < kLevelBlock; i += kWidth) {
    const Vector x = Load<Vector>(values + i);
    __builtin_prefetch(values + i + kAhead);
    least = x < least ? x : least;
    most = x > most ? x : most;
  }
  double first = least[0];
  double last = most[0];
  for (int i = 1; i < kWidth; ++i) {
    first = std::min(first, least[i]);
    last = std::max(last, most[i]);
  }
  // Values need not be compared with thresholds that all of them pass, or none.
  const int all = LevelOf<above>(above ? first : last, n, thresholds);
  const int any = LevelOf<above>(above ? last : first, n, thresholds);
  const std::uint64_t known = PassingBlock<false>(values, kInfinity);
  constexpr int kBits = 8;
  Integers bits[kBits / kWidth];
  Integers lower[kBits / kWidth];  // than each bit
  for (int b = 0; b < kBits; ++b) {
    bits[b / kWidth][b % kWidth] = (all >> b & 1) != 0 ? static_cast<long long>(known) : 0;
    lower[b / kWidth][b % kWidth] = (1 << b) - 1;
  }
  for (int level = all + 1; level <= any; ++level) {
    // A bit changes wherever levels pass a multiple of its value.
    const auto passing = static_cast<long long>(PassingBlock<above>(values, thresholds[level - 1]));
    for (int i = 0; i < kBits / kWidth; ++i)
      bits[i] ^= (Integers)((lower[i] & static_cast<long long>(level)) == 0) & passing;
  }
  for (int b = 0; b < levels.nbit; ++b) {
    levels.words[b * levels.stride] = static_cast<std::uint64_t>(bits[b / kWidth][b % kWidth]);
  }
}

KESTRUM_KERNEL_TARGET void WriteLevelBits(const double* values, int n, const double* thresholds, bool above,
                                          const LevelBits& levels) noexcept {
  above ? WriteLevelBitsOf<true>(values, n, thresholds, levels)
        : WriteLevelBitsOf<false>(values, n, thresholds, levels);
}

KESTRUM_KERNEL_TARGET int MarkByLevelBits(const LevelBits& levels, int least, std::ptrdiff_t nword,
                                          std::uint64_t* marks) noexcept {
  constexpr std::ptrdiff_t kWords = 64;
  int count = 0;
  for (std::ptrdiff_t first = 0; first < nword; first += kWords) {
    const std::ptrdiff_t n = std::min(nword - first, kWords);
    // Numbers above least - 1, by their bits from the lowest on. Before the first clear one, none is.
    std::uint64_t above[kWords] = {};
    for (int b = std::countr_one(static_cast<unsigned>(least - 1)); b < levels.nbit; ++b) {
      const std::uint64_t* const bits = levels.words + b * levels.stride + first;
      const std::uint64_t clear = ((least - 1) >> b & 1) != 0 ? 0 : ~std::uint64_t{0};
      for (std::ptrdiff_t i = 0; i < n; ++i) above[i] = (bits[i] & above[i]) | (clear & (bits[i] | above[i]));
    }
    for (std::ptrdiff_t i = 0; i < n; ++i) {
      marks[first + i] = above[i];
      count += std::popcount(above[i]);
    }
  }
  return count;
}
