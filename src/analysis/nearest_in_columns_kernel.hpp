// Distances along lines: text for numeric/kernel_levels.hpp.

typedef float Floats __attribute__((vector_size(KESTRUM_KERNEL_BYTES)));
typedef float FloatsInMemory __attribute__((vector_size(KESTRUM_KERNEL_BYTES), aligned(4), may_alias));

template <typename T>
struct VectorOf {
  typedef Vector Type;
};
template <>
struct VectorOf<float> {
  typedef Floats Type;
};

KESTRUM_KERNEL_INLINE void LoadInto(Floats& x, const float* from) { x = *(const FloatsInMemory*)from; }
KESTRUM_KERNEL_INLINE void LoadInto(Vector& x, const double* from) { x = *(const VectorInMemory*)from; }
KESTRUM_KERNEL_INLINE void Store(float* to, Floats x) { *(FloatsInMemory*)to = x; }

// The smaller, and whether any element of a is above the same one of b. What is compared is never NaN.
#if KESTRUM_KERNEL_BYTES == 64
// Unmasked, these intrinsics read a variable that is not set.
KESTRUM_KERNEL_INLINE Floats Smaller(Floats a, Floats b) {
  return (Floats)_mm512_maskz_min_ps(0xffff, (__m512)a, (__m512)b);
}
KESTRUM_KERNEL_INLINE Vector Smaller(Vector a, Vector b) {
  return (Vector)_mm512_maskz_min_pd(0xff, (__m512d)a, (__m512d)b);
}
KESTRUM_KERNEL_INLINE bool AnyAbove(Floats a, Floats b) {
  return _mm512_cmp_ps_mask((__m512)a, (__m512)b, _CMP_GT_OQ) != 0;
}
KESTRUM_KERNEL_INLINE bool AnyAbove(Vector a, Vector b) {
  return _mm512_cmp_pd_mask((__m512d)a, (__m512d)b, _CMP_GT_OQ) != 0;
}
#elif KESTRUM_KERNEL_BYTES == 32
KESTRUM_KERNEL_INLINE Floats Smaller(Floats a, Floats b) { return (Floats)_mm256_min_ps((__m256)a, (__m256)b); }
KESTRUM_KERNEL_INLINE Vector Smaller(Vector a, Vector b) { return (Vector)_mm256_min_pd((__m256d)a, (__m256d)b); }
KESTRUM_KERNEL_INLINE bool AnyAbove(Floats a, Floats b) {
  return _mm256_movemask_ps(_mm256_cmp_ps((__m256)a, (__m256)b, _CMP_GT_OQ)) != 0;
}
KESTRUM_KERNEL_INLINE bool AnyAbove(Vector a, Vector b) {
  return _mm256_movemask_pd(_mm256_cmp_pd((__m256d)a, (__m256d)b, _CMP_GT_OQ)) != 0;
}
#else
template <typename V>
KESTRUM_KERNEL_INLINE V Smaller(V a, V b) {
  return a < b ? a : b;
}
template <typename V>
KESTRUM_KERNEL_INLINE bool AnyAbove(V a, V b) {
  const auto above = a > b;
  bool any = false;
  for (unsigned k = 0; k < sizeof(V) / sizeof(a[0]); ++k) any |= above[k] != 0;
  return any;
}
#endif

#if KESTRUM_KERNEL_BYTES == 64
KESTRUM_KERNEL_INLINE Floats SquareRoot(Floats x) { return (Floats)_mm512_maskz_sqrt_ps(0xffff, (__m512)x); }
#elif KESTRUM_KERNEL_BYTES == 32
KESTRUM_KERNEL_INLINE Floats SquareRoot(Floats x) { return (Floats)_mm256_sqrt_ps((__m256)x); }
#elif defined(__x86_64__)
KESTRUM_KERNEL_INLINE Floats SquareRoot(Floats x) { return (Floats)_mm_sqrt_ps((__m128)x); }
#else
KESTRUM_KERNEL_INLINE Floats SquareRoot(Floats x) {
  for (unsigned k = 0; k < sizeof(x) / sizeof(x[0]); ++k) x[k] = __builtin_sqrtf(x[k]);
  return x;
}
#endif

template <typename T>
KESTRUM_KERNEL_TARGET void ToLengths(T* values, std::ptrdiff_t n, DistanceMetric metric, T unit1, T unit2) noexcept {
  using V = typename VectorOf<T>::Type;
  constexpr int kStep = static_cast<int>(sizeof(V) / sizeof(T));
  for (std::ptrdiff_t i = 0; i < n; i += kStep) {
    V value;
    T part[kStep] = {};
    T* const at = i + kStep <= n ? values + i : std::copy_n(values + i, n - i, part) - (n - i);
    LoadInto(value, at);
    if (metric == DistanceMetric::kEuclidean) value = SquareRoot(value);
    Store(at, value * unit1 * unit2);
    if (at == part) std::copy_n(part, n - i, values + i);
  }
}

// By parts of rows, which are some vectors.
template <typename T>
KESTRUM_KERNEL_TARGET bool TryEach(const ColumnBlock<T>& block) noexcept {
  using V = typename VectorOf<T>::Type;
  constexpr int kStep = static_cast<int>(sizeof(V) / sizeof(T));
  constexpr int kVectors = kColumnLanes / kStep;
  const std::ptrdiff_t n = block.n;
  const std::ptrdiff_t lanes = block.lanes;
  const T weight = static_cast<T>(block.weight);
  std::ptrdiff_t left = n * (lanes / kColumnLanes) * kMeanTrials;
  for (std::ptrdiff_t part = 0; part < lanes; part += kColumnLanes) {
    const T* const cost = block.cost + part;
    const T* const lastRow = cost + (n - 1) * lanes;
    for (std::ptrdiff_t u = 0; u < n; ++u) {
      V nearest[kVectors];
#pragma GCC unroll 8
      for (int v = 0; v < kVectors; ++v) LoadInto(nearest[v], cost + u * lanes + v * kStep);
      const T* before = cost + u * lanes;
      const T* after = before;
      for (std::ptrdiff_t k = 1; k < n; ++k) {
        const T along = static_cast<T>(k) * static_cast<T>(k) * weight;
        const V reach = along - V{};
        bool nearer = false;
#pragma GCC unroll 8
        for (int v = 0; v < kVectors; ++v) nearer |= AnyAbove(nearest[v], reach);
        if (!nearer) break;
        if (--left < 0) return false;
        // A node at an end is tried in place of those beyond it: from there it seems no nearer than it is.
        before -= before == cost ? 0 : lanes;
        after += after == lastRow ? 0 : lanes;
#pragma GCC unroll 8
        for (int v = 0; v < kVectors; ++v) {
          V low;
          V high;
          LoadInto(low, before + v * kStep);
          LoadInto(high, after + v * kStep);
          nearest[v] = Smaller(nearest[v], Smaller(low, high) + reach);
        }
      }
#pragma GCC unroll 8
      for (int v = 0; v < kVectors; ++v) Store(block.distance + u * lanes + part + v * kStep, nearest[v]);
    }
  }
  return true;
}

// Some vectors side by side, since each step waits for the one before.
template <typename T, int kVectors>
KESTRUM_KERNEL_TARGET void SweepPart(const ColumnBlock<T>& block, std::ptrdiff_t part) noexcept {
  using V = typename VectorOf<T>::Type;
  constexpr int kStep = static_cast<int>(sizeof(V) / sizeof(T));
  const V weight = static_cast<T>(block.weight) - V{};
  for (int direction = 1; direction >= -1; direction -= 2) {
    V site[kVectors];   // the cost of the nearest site so far
    V steps[kVectors];  // and how far it is
    for (int v = 0; v < kVectors; ++v) {
      site[v] = std::numeric_limits<T>::infinity() - V{};
      steps[v] = V{};
    }
    for (std::ptrdiff_t i = 0; i < block.n; ++i) {
      const std::ptrdiff_t row = (direction > 0 ? i : block.n - 1 - i) * block.lanes + part;
#pragma GCC unroll 8
      for (int v = 0; v < kVectors; ++v) {
        V own;
        LoadInto(own, block.cost + row + v * kStep);
        steps[v] += T{1};
        const V distance = site[v] + steps[v] * weight;
        const auto farther = own > distance;
        site[v] = farther ? site[v] : own;
        steps[v] = farther ? steps[v] : V{};
        V nearest = Smaller(own, distance);
        if (direction < 0) {
          V other;
          LoadInto(other, block.distance + row + v * kStep);
          nearest = Smaller(nearest, other);
        }
        Store(block.distance + row + v * kStep, nearest);
      }
    }
  }
}

template <typename T>
KESTRUM_KERNEL_TARGET void SweepAll(const ColumnBlock<T>& block) noexcept {
  constexpr int kVectors = kColumnLanes * static_cast<int>(sizeof(T)) / kVectorBytes;
  constexpr int kTogether = kVectors < 4 ? 4 : kVectors;
  constexpr std::ptrdiff_t kWide = kColumnLanes * kTogether / kVectors;
  std::ptrdiff_t part = 0;
  for (; part + kWide <= block.lanes; part += kWide) SweepPart<T, kTogether>(block, part);
  for (; part < block.lanes; part += kColumnLanes) SweepPart<T, kVectors>(block, part);
}

template <typename T>
KESTRUM_KERNEL_INLINE T WithSign(T value, Word<T> sign) noexcept {
  return std::bit_cast<T>(std::bit_cast<Word<T>>(value) ^ sign) + T{0};
}

template <typename T>
KESTRUM_KERNEL_TARGET void NegateMarked(T* values, int n, std::uint64_t bits) noexcept {
  constexpr int kBits = 8 * static_cast<int>(sizeof(T));
  constexpr Word<T> kSign = Word<T>{1} << (kBits - 1);
  for (; n >= kBits; n -= kBits, values += kBits, bits = kBits == 64 ? 0 : bits >> (kBits % 64)) {
    const Word<T> part = static_cast<Word<T>>(bits);
    for (int i = 0; i < kBits; ++i) values[i] = WithSign(values[i], (part << (kBits - 1 - i)) & kSign);
  }
  for (int i = 0; i < n; ++i) values[i] = WithSign(values[i], static_cast<Word<T>>(bits >> i << (kBits - 1)));
}

template <typename T>
KESTRUM_KERNEL_TARGET void StepsInRow(const std::uint64_t* bits, std::ptrdiff_t n, DistanceMetric metric, double weight,
                                      T* distance) noexcept {
  constexpr std::ptrdiff_t kNone = std::numeric_limits<std::ptrdiff_t>::max();
  const T scale = static_cast<T>(weight);
  const bool squares = metric == DistanceMetric::kEuclidean;
  const std::ptrdiff_t nword = (n - 1) / 64 + 1;
  std::ptrdiff_t last = kNone;  // the last node of the set before the word
  std::ptrdiff_t next = 0;      // the first one after it
  std::ptrdiff_t nextWord = 0;  // whose word this is
  for (std::ptrdiff_t word = 0; word < nword; ++word) {
    const std::uint64_t here = bits[word];
    if (nextWord <= word) {
      for (nextWord = word + 1; nextWord < nword && bits[nextWord] == 0;) ++nextWord;
      next = nextWord < nword ? nextWord * 64 + std::countr_zero(bits[nextWord]) : kNone;
    }
    for (int at = 0; at < 64; at += 8) {
      const std::ptrdiff_t first = word * 64 + at;
      if (first >= n) break;
      const std::uint64_t below = here & ((std::uint64_t{1} << at) - 1);
      const std::uint64_t above = here >> at >> 8;
      const std::ptrdiff_t left = below != 0 ? word * 64 + 63 - std::countl_zero(below) : last;
      const std::ptrdiff_t right = above != 0 ? first + 8 + std::countr_zero(above) : next;
      const T fromLeft = left == kNone ? std::numeric_limits<T>::infinity() : static_cast<T>(first - left);
      const T fromRight = right == kNone ? std::numeric_limits<T>::infinity() : static_cast<T>(right - first);
      const float* const within = kStepsInByte[here >> at & 0xff].data();
      T eight[8];
      for (int i = 0; i < 8; ++i) {
        const T outside = std::min(fromLeft + static_cast<T>(i), fromRight - static_cast<T>(i));
        const T steps = std::min(outside, static_cast<T>(within[i]));
        eight[i] = (squares ? steps * steps : steps) * scale;
      }
      std::copy_n(eight, std::min(n - first, std::ptrdiff_t{8}), distance + first);
    }
    if (here != 0) last = word * 64 + 63 - std::countl_zero(here);
  }
}
