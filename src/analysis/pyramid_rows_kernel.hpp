// The work of a pyramid on rows: text for numeric/kernel_levels.hpp. Loops over registers are unrolled by name, or the
// sums would stay in memory.
//
// A body is written once for V, a vector or one number, and called for groups of vectors, for vectors, and for the
// nodes that are left.

template <MissingMark kMark, typename V>
KESTRUM_KERNEL_INLINE Mask<V> MissingIn(V values) {
  // A comparison with NaN is false.
  if constexpr (kMark == MissingMark::kNaN)
    return (values <= Broadcast<V>(std::numeric_limits<double>::infinity())) == Mask<V>{};
  return values == Broadcast<V>(MissingOf(kMark));
}

KESTRUM_KERNEL_INLINE bool Any(bool mask) { return mask; }
KESTRUM_KERNEL_INLINE bool Any(Mask<Vector> mask) {
  bool any = false;
  for (int k = 0; k < kWidth; ++k) any |= mask[k] != 0;
  return any;
}

template <MissingMark kMark>
KESTRUM_KERNEL_TARGET bool HasMissing(const double* values, std::size_t n) {
  constexpr std::size_t kParts = 4;
  Mask<Vector> found[kParts] = {};
  std::size_t i = 0;
  for (; i + kParts * kWidth <= n; i += kParts * kWidth) {
#pragma GCC unroll 4
    for (std::size_t p = 0; p < kParts; ++p) found[p] |= MissingIn<kMark>(Load<Vector>(values + i + p * kWidth));
  }
  bool rest = false;
  for (; i < n; ++i) rest |= MissingIn<kMark>(values[i]);
  return rest || Any(found[0] | found[1] | found[2] | found[3]);
}

template <MissingMark kMark, typename V, std::size_t kParts>
KESTRUM_KERNEL_INLINE Mask<V> AddTapsAt(const PyramidTap* taps, std::size_t ntap, std::size_t i, double* sums) {
  constexpr std::size_t kStep = sizeof(V) / sizeof(double);
  V sum[kParts] = {};
  for (std::size_t t = 0; t < ntap; ++t) {
    const double* const values = taps[t].values + i;
    const V factor = Broadcast<V>(taps[t].factor);
#pragma GCC unroll 4
    for (std::size_t p = 0; p < kParts; ++p) sum[p] = sum[p] + Load<V>(values + p * kStep) * factor;
  }
  Mask<V> found = {};
#pragma GCC unroll 4
  for (std::size_t p = 0; p < kParts; ++p) {
    Store(sums + i + p * kStep, sum[p]);
    found |= MissingIn<kMark>(sum[p]);
  }
  return found;
}

template <MissingMark kMark>
KESTRUM_KERNEL_TARGET bool AddTaps(const PyramidTap* taps, std::size_t ntap, std::size_t n, double* sums) {
  Mask<Vector> found = {};
  bool rest = false;
  std::size_t i = 0;
  for (; i + 4 * kWidth <= n; i += 4 * kWidth) found |= AddTapsAt<kMark, Vector, 4>(taps, ntap, i, sums);
  for (; i + kWidth <= n; i += kWidth) found |= AddTapsAt<kMark, Vector, 1>(taps, ntap, i, sums);
  for (; i < n; ++i) rest |= AddTapsAt<kMark, double, 1>(taps, ntap, i, sums);
  return rest || Any(found);
}

// A term of 0.0 in place of a missing one changes no bit: a sum that starts at 0.0 is never -0.0.
template <MissingMark kMark, typename V, std::size_t kParts>
KESTRUM_KERNEL_INLINE void AddInformedTapsAt(const PyramidTap* taps, std::size_t ntap, std::size_t i,
                                             const PyramidRowStorage& to) {
  constexpr std::size_t kStep = sizeof(V) / sizeof(double);
  const V zero = {};
  V sum[kParts] = {};
  V total[kParts] = {};
  for (std::size_t t = 0; t < ntap; ++t) {
    const double* const values = taps[t].values + i;
    const double* const weights = taps[t].weights + i;
    const V factor = Broadcast<V>(taps[t].factor);
#pragma GCC unroll 2
    for (std::size_t p = 0; p < kParts; ++p) {
      const V value = Load<V>(values + p * kStep);
      const Mask<V> missing = MissingIn<kMark>(value);
      sum[p] = sum[p] + (missing ? zero : value * factor);
      total[p] = total[p] + (missing ? zero : factor * Load<V>(weights + p * kStep));
    }
  }
#pragma GCC unroll 2
  for (std::size_t p = 0; p < kParts; ++p) {
    Store(to.values + i + p * kStep, total[p] == zero ? Broadcast<V>(MissingOf(kMark)) : sum[p]);
    Store(to.weights + i + p * kStep, total[p]);
  }
}

template <MissingMark kMark>
KESTRUM_KERNEL_TARGET void AddInformedTaps(const PyramidTap* taps, std::size_t ntap, std::size_t n,
                                           const PyramidRowStorage& to) {
  std::size_t i = 0;
  for (; i + 2 * kWidth <= n; i += 2 * kWidth) AddInformedTapsAt<kMark, Vector, 2>(taps, ntap, i, to);
  for (; i + kWidth <= n; i += kWidth) AddInformedTapsAt<kMark, Vector, 1>(taps, ntap, i, to);
  for (; i < n; ++i) AddInformedTapsAt<kMark, double, 1>(taps, ntap, i, to);
}

template <MissingMark kMark, typename V, bool kHasC>
KESTRUM_KERNEL_INLINE Mask<V> BlendAt(const PyramidBlend& blend, const double* a, const double* b, const double* c,
                                      std::size_t i, double* to) {
  V far = Load<V>(b + i);
  if constexpr (kHasC) far = Load<V>(c + i) + far;
  const V sum = Broadcast<V>(blend.near) * Load<V>(a + i) + Broadcast<V>(blend.far) * far;
  Store(to + i, sum);
  return MissingIn<kMark>(sum);
}

template <MissingMark kMark, bool kHasC>
KESTRUM_KERNEL_INLINE bool BlendRow(const PyramidBlend& blend, const double* a, const double* b, const double* c,
                                    std::size_t n, double* to) {
  Mask<Vector> found = {};
  bool rest = false;
  std::size_t i = 0;
  for (; i + kWidth <= n; i += kWidth) found |= BlendAt<kMark, Vector, kHasC>(blend, a, b, c, i, to);
  for (; i < n; ++i) rest |= BlendAt<kMark, double, kHasC>(blend, a, b, c, i, to);
  return rest || Any(found);
}

template <MissingMark kMark>
KESTRUM_KERNEL_TARGET bool Blend(const PyramidBlend& blend, const double* a, const double* b, const double* c,
                                 std::size_t n, double* to) {
  return c != nullptr ? BlendRow<kMark, true>(blend, a, b, c, n, to) : BlendRow<kMark, false>(blend, a, b, c, n, to);
}

// The sum of the terms there are. Adding -0.0 changes no number, not even the sign of a zero.
template <typename V>
KESTRUM_KERNEL_INLINE V SumOfTerms(const PyramidBlend& blend, V a, V b, V c, Mask<V> noA, Mask<V> noB, Mask<V> noC) {
  const V nothing = Broadcast<V>(-0.0);
  const V near = Broadcast<V>(blend.near) * a;
  const V far = Broadcast<V>(blend.far) * ((noC ? nothing : c) + (noB ? nothing : b));
  return (noA ? nothing : near) + ((noB & noC) ? nothing : far);
}

template <MissingMark kMark, typename V>
KESTRUM_KERNEL_INLINE void BlendInformedAt(const PyramidBlend& blend, const PyramidRow& a, const PyramidRow& b,
                                           const PyramidRow* c, std::size_t i, const PyramidRowStorage& to) {
  const V valueA = Load<V>(a.values + i);
  const V valueB = Load<V>(b.values + i);
  const V valueC = c != nullptr ? Load<V>(c->values + i) : Broadcast<V>(MissingOf(kMark));
  const V weightC = c != nullptr ? Load<V>(c->weights + i) : V{};
  const Mask<V> noA = MissingIn<kMark>(valueA);
  const Mask<V> noB = MissingIn<kMark>(valueB);
  const Mask<V> noC = MissingIn<kMark>(valueC);
  const Mask<V> nothing = noA & noB & noC;
  const V value = SumOfTerms(blend, valueA, valueB, valueC, noA, noB, noC);
  const V weight = SumOfTerms(blend, Load<V>(a.weights + i), Load<V>(b.weights + i), weightC, noA, noB, noC);
  Store(to.values + i, nothing ? Broadcast<V>(MissingOf(kMark)) : value);
  Store(to.weights + i, nothing ? V{} : weight);
}

template <MissingMark kMark>
KESTRUM_KERNEL_TARGET void BlendInformed(const PyramidBlend& blend, const PyramidRow& a, const PyramidRow& b,
                                         const PyramidRow* c, std::size_t n, const PyramidRowStorage& to) {
  std::size_t i = 0;
  for (; i + kWidth <= n; i += kWidth) BlendInformedAt<kMark, Vector>(blend, a, b, c, i, to);
  for (; i < n; ++i) BlendInformedAt<kMark, double>(blend, a, b, c, i, to);
}

template <MissingMark kMark, typename V>
KESTRUM_KERNEL_INLINE void DivideAt(const double* sums, const double* weights, double minWeight, std::size_t i,
                                    double* to) {
  const V sum = Load<V>(sums + i);
  const V weight = Load<V>(weights + i);
  const V missingValue = Broadcast<V>(MissingOf(kMark));
  const V mean = weight < Broadcast<V>(minWeight) ? missingValue : sum / weight;
  Store(to + i, MissingIn<kMark>(sum) ? missingValue : mean);
}

template <MissingMark kMark>
KESTRUM_KERNEL_TARGET void Divide(const double* sums, const double* weights, double minWeight, std::size_t n,
                                  double* to) {
  std::size_t i = 0;
  for (; i + kWidth <= n; i += kWidth) DivideAt<kMark, Vector>(sums, weights, minWeight, i, to);
  for (; i < n; ++i) DivideAt<kMark, double>(sums, weights, minWeight, i, to);
}

typedef std::make_integer_sequence<int, kWidth> Places;

// Every other element of two vectors, from the first or the second one on.
template <int first, int... i>
KESTRUM_KERNEL_INLINE Vector EveryOther(Vector a, Vector b, std::integer_sequence<int, i...>) {
  return Shuffle<(first + 2 * i)...>(a, b);
}

// The elements of two vectors by turns, from element `first` on.
template <int first, int... i>
KESTRUM_KERNEL_INLINE Vector ByTurns(Vector a, Vector b, std::integer_sequence<int, i...>) {
  return Shuffle<(first + i / 2 + i % 2 * kWidth)...>(a, b);
}

KESTRUM_KERNEL_TARGET void TakeApart(const double* pairs, std::size_t n, double* first, double* second) {
  std::size_t i = 0;
  for (; i + kWidth <= n; i += kWidth) {
    const Vector lower = Load<Vector>(pairs + 2 * i);
    const Vector upper = Load<Vector>(pairs + 2 * i + kWidth);
    Store(first + i, EveryOther<0>(lower, upper, Places{}));
    Store(second + i, EveryOther<1>(lower, upper, Places{}));
  }
  for (; i < n; ++i) {
    first[i] = pairs[2 * i];
    second[i] = pairs[2 * i + 1];
  }
}

KESTRUM_KERNEL_TARGET void Join(const double* first, const double* second, std::size_t n, double* pairs) {
  std::size_t i = 0;
  for (; i + kWidth <= n; i += kWidth) {
    const Vector even = Load<Vector>(first + i);
    const Vector odd = Load<Vector>(second + i);
    Store(pairs + 2 * i, ByTurns<0>(even, odd, Places{}));
    Store(pairs + 2 * i + kWidth, ByTurns<kWidth / 2>(even, odd, Places{}));
  }
  for (; i < n; ++i) {
    pairs[2 * i] = first[i];
    pairs[2 * i + 1] = second[i];
  }
}

template <MissingMark kMark>
constexpr PyramidKernels kPyramidKernels = {HasMissing<kMark>,
                                            AddTaps<kMark>,
                                            AddInformedTaps<kMark>,
                                            Blend<kMark>,
                                            BlendInformed<kMark>,
                                            Divide<kMark>,
                                            TakeApart,
                                            Join};
