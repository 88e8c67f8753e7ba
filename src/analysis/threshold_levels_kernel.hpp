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
  Vector least = Broadcast<Vector>(kInfinity);
  Vector most = Broadcast<Vector>(-kInfinity);
  for (int i = 0; i < kLevelBlock; i += kWidth) {
    const Vector x = Load<Vector>(values + i);
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
  *levels.smallest = static_cast<unsigned char>(~known == 0 ? all : 0);
  *levels.largest = static_cast<unsigned char>(any);
  constexpr int kBits = 8;
  Integers bits[kBits / kWidth];
  Integers lower[kBits / kWidth];  // than each bit
  for (int i = 0; i < kBits / kWidth; ++i) {
    for (int k = 0; k < kWidth; ++k) lower[i][k] = (1 << (i * kWidth + k)) - 1;
    bits[i] = (Integers)((all & (lower[i] + 1)) != 0) & static_cast<long long>(known);
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
  // Numbers above `below`, by their bits from the lowest on. Before the first clear one, none is.
  const int below = least - 1;
  const int first = std::countr_one(static_cast<unsigned>(below));
  typedef unsigned char Bytes __attribute__((vector_size(8)));
  const auto reach = [least](const unsigned char* extremes) {
    Bytes bytes;
    __builtin_memcpy(&bytes, extremes, sizeof bytes);
    return (std::uint64_t)(bytes >= static_cast<unsigned char>(least));
  };
  constexpr std::ptrdiff_t kWords = sizeof(Bytes);
  constexpr int kRegisters = kWords / kWidth;
  int count = 0;
  std::ptrdiff_t i = 0;
  for (; i + kWords <= nword; i += kWords) {
    if (reach(levels.largest + i) == 0) {
      std::fill_n(marks + i, kWords, std::uint64_t{0});
      continue;
    }
    if (~reach(levels.smallest + i) == 0) {
      std::fill_n(marks + i, kWords, ~std::uint64_t{0});
      count += kWords * kLevelBlock;
      continue;
    }
    Integers above[kRegisters] = {};
    for (int b = first; b < levels.nbit; ++b) {
      const Integers set = Integers{} - (below >> b & 1);
#pragma GCC unroll 16
      for (int k = 0; k < kRegisters; ++k) {
        const auto bits = (Integers)Load<Vector>((const double*)(levels.words + b * levels.stride + i + k * kWidth));
        above[k] = (bits & above[k]) | ((bits | above[k]) & ~set);
      }
    }
#pragma GCC unroll 16
    for (int k = 0; k < kRegisters; ++k) __builtin_memcpy(marks + i + k * kWidth, &above[k], sizeof(Integers));
    for (std::ptrdiff_t k = 0; k < kWords; ++k) count += std::popcount(marks[i + k]);
  }
  for (; i < nword; ++i) {
    marks[i] = 0;
    for (int b = first; b < levels.nbit; ++b) {
      const std::uint64_t bits = levels.words[b * levels.stride + i];
      marks[i] = (below >> b & 1) != 0 ? bits & marks[i] : bits | marks[i];
    }
    count += std::popcount(marks[i]);
  }
  return count;
}
