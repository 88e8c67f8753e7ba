// The loops of the search at true places: text for numeric/kernel_levels.hpp.

static_assert(kDecidedTogether % kWidth == 0 && kPlacePadding >= kWidth);
constexpr int kParts = kDecidedTogether / kWidth;

// A vector with its halves exchanged, or those of its halves, and so on.
template <int kDistance, typename V>
KESTRUM_KERNEL_INLINE V Exchange(V x) {
#if KESTRUM_KERNEL_BYTES == 64
  if constexpr (kDistance == 4) return Shuffle<4, 5, 6, 7, 0, 1, 2, 3>(x, x);
  if constexpr (kDistance == 2) return Shuffle<2, 3, 0, 1, 6, 7, 4, 5>(x, x);
  return Shuffle<1, 0, 3, 2, 5, 4, 7, 6>(x, x);
#elif KESTRUM_KERNEL_BYTES == 32
  if constexpr (kDistance == 2) return Shuffle<2, 3, 0, 1>(x, x);
  return Shuffle<1, 0, 3, 2>(x, x);
#else
  return Shuffle<1, 0>(x, x);
#endif
}

KESTRUM_KERNEL_INLINE Vector Larger(Vector x, Vector y) { return x > y ? x : y; }
KESTRUM_KERNEL_INLINE Vector Lesser(Vector x, Vector y) { return x < y ? x : y; }

KESTRUM_KERNEL_INLINE double Greatest(Vector x) {
  if constexpr (kWidth > 4) x = Larger(x, Exchange<4>(x));
  if constexpr (kWidth > 2) x = Larger(x, Exchange<2>(x));
  return Larger(x, Exchange<1>(x))[0];
}

KESTRUM_KERNEL_INLINE long long Sum(Integers x) {
  if constexpr (kWidth > 4) x += Exchange<4>(x);
  if constexpr (kWidth > 2) x += Exchange<2>(x);
  return x[0] + x[1];
}

KESTRUM_KERNEL_INLINE Vector AbsoluteValue(Vector x) { return x < Vector{} ? -x : x; }

// Bounds of the distances of kWidth places. The exact bounds are widened by more than the rounding errors of all steps:
// of components, which are errors of the whole lag if the axes are turned, and of squares.
KESTRUM_KERNEL_INLINE void BoundsOfVector(const PlaceMetric& metric, const PlaceBox& box, const Vector (&place)[3],
                                          double greatestWeight, Vector* lower, Vector* upper) {
  Vector middle[3];
  Vector half[3];
#pragma GCC unroll 3
  for (int b = 0; b < 3; ++b) {
    const Vector least = place[b] - Broadcast<Vector>(box.high[b]);
    const Vector greatest = place[b] - Broadcast<Vector>(box.low[b]);
    middle[b] = 0.5 * (least + greatest);
    half[b] = Broadcast<Vector>(0.5 * (box.high[b] - box.low[b]));
  }
  Vector low = Vector{};
  Vector high = Vector{};
  const bool plain = metric.planar && !metric.rotated;
#pragma GCC unroll 3
  for (int a = 0; a < 3; ++a) {
    if (a == 2 && plain) break;
    Vector u = middle[a];
    Vector reach = half[a];
    if (metric.rotated) {
      u = reach = Vector{};
#pragma GCC unroll 3
      for (int b = 0; b < 3; ++b) {
        const double c = metric.axis[a][b];
        u += c * middle[b];
        reach += (c < 0.0 ? -c : c) * half[b];
      }
    }
    u = AbsoluteValue(u);
    const Vector near = u > reach ? u - reach : Vector{};
    const Vector far = u + reach;
    low += metric.weight[a] * (near * near);
    high += metric.weight[a] * (far * far);
  }
  constexpr double kSlack = 64 * 2.220446049250313e-16;
  Vector slack = kSlack * high;
  if (metric.rotated) {
    Vector square = Vector{};
#pragma GCC unroll 3
    for (int b = 0; b < 3; ++b) {
      const Vector far = AbsoluteValue(middle[b]) + half[b];
      square += far * far;
    }
    slack = kSlack * greatestWeight * square;
  }
  *lower = low - slack;
  *upper = high + slack;
}

KESTRUM_KERNEL_TARGET void Bounds(const PlaceMetric& metric, const PlaceBox& box, int n, const PlaceVectors& places,
                                  double* lower, double* upper) noexcept {
  double greatestWeight = 0.0;
  for (int a = 0; a < 3; ++a) {
    if (metric.weight[a] > greatestWeight) greatestWeight = metric.weight[a];
  }
  for (int i = 0; i < n; i += kWidth) {
    const Vector place[3] = {Load<Vector>(places.x + i), Load<Vector>(places.y + i), Load<Vector>(places.z + i)};
    Vector low;
    Vector high;
    BoundsOfVector(metric, box, place, greatestWeight, &low, &high);
    Store(lower + i, low);
    Store(upper + i, high);
  }
}

// The box of n places.
KESTRUM_KERNEL_TARGET void FindBox(int n, const PlaceVectors& places, PlaceBox* box) noexcept {
  const double* const coordinates[3] = {places.x, places.y, places.z};
  for (int a = 0; a < 3; ++a) {
    const double* const c = coordinates[a];
    Vector low = Broadcast<Vector>(c[0]);
    Vector high = low;
    int i = 0;
    for (; i + kWidth <= n; i += kWidth) {
      const Vector own = Load<Vector>(c + i);
      low = Lesser(low, own);
      high = Larger(high, own);
    }
    for (; i < n; ++i) {
      const Vector own = Broadcast<Vector>(c[i]);
      low = Lesser(low, own);
      high = Larger(high, own);
    }
    box->low[a] = -Greatest(-low);
    box->high[a] = Greatest(high);
  }
}

KESTRUM_KERNEL_INLINE int CountAtMost(int n, const double* values, double limit) {
  const Vector bound = Broadcast<Vector>(limit);
  Integers count = Integers{};
  for (int i = 0; i < n; i += kWidth) count -= Load<Vector>(values + i) <= bound;
  return static_cast<int>(Sum(count));
}

// Finds what no fewer, or no more, than k of n values are at most. Guesses as if values were spread evenly between two
// limits, as squared distances are in the plane, until it is wrong by one value at most, or often enough.
template <bool kNoFewer>
KESTRUM_KERNEL_INLINE double FindLimit(int n, double* values, int k) {
  Store(values + n, Vector{});
  Vector greatest = Vector{};
  for (int i = 0; i < n; i += kWidth) greatest = Larger(greatest, Load<Vector>(values + i));
  Store(values + n, Broadcast<Vector>(__builtin_inf()));
  double low = -1.0;
  double high = Greatest(greatest);
  int lowCount = 0;
  int highCount = n;
  constexpr int kMaxGuesses = 10;
  for (int guesses = 0; guesses < kMaxGuesses; ++guesses) {
    if (kNoFewer ? highCount <= k + 1 : lowCount >= k - 1 && low >= 0.0) break;
    const double share = (k + (kNoFewer ? 0.75 : 0.25) - lowCount) / (highCount + 0.5 - lowCount);
    const double guess = low + (guesses % 3 == 2 ? 0.5 : share) * (high - low);
    const int count = CountAtMost(n, values, guess);
    if (kNoFewer ? count < k : count <= k) {
      low = guess;
      lowCount = count;
    } else {
      high = guess;
      highCount = count;
    }
  }
  return kNoFewer ? high : low;
}

KESTRUM_KERNEL_TARGET double LimitOfNoFewer(int n, double* values, int k) noexcept {
  return FindLimit<true>(n, values, k);
}

KESTRUM_KERNEL_TARGET double LimitOfNoMore(int n, double* values, int k) noexcept {
  return FindLimit<false>(n, values, k);
}

KESTRUM_KERNEL_INLINE Vector Square(const PlaceMetric& metric, Vector dx, Vector dy, Vector dz) {
  if (!metric.rotated) {
    const Vector inPlane = metric.weight[0] * (dx * dx) + metric.weight[1] * (dy * dy);
    return metric.planar ? inPlane : inPlane + metric.weight[2] * (dz * dz);
  }
  Vector sum = Vector{};
#pragma GCC unroll 3
  for (int a = 0; a < 3; ++a) {
    const Vector u = metric.axis[a][0] * dx + metric.axis[a][1] * dy + metric.axis[a][2] * dz;
    sum += metric.weight[a] * (u * u);
  }
  return sum;
}

// Ranks data by their squared distance; a datum at the distance of an earlier one comes after it. Lanes are targets.
KESTRUM_KERNEL_TARGET void Select(const PlaceNeighborhood& neighborhood, const PlaceVectors& targets, int n,
                                  const PlaceVectors& data, const int* bit, int need, std::uint64_t* masks) noexcept {
  Vector square[kMaxRanked];
  Integers rank[kMaxRanked];
  const Vector infinite = Broadcast<Vector>(__builtin_inf());
  for (int part = 0; part < kParts; ++part) {
    const Vector x = Load<Vector>(targets.x + part * kWidth);
    const Vector y = Load<Vector>(targets.y + part * kWidth);
    const Vector z = Load<Vector>(targets.z + part * kWidth);
    for (int i = 0; i < n; ++i) {
      const Vector dx = data.x[i] - x;
      const Vector dy = data.y[i] - y;
      const Vector dz = data.z[i] - z;
      square[i] = Square(neighborhood.metric, dx, dy, dz);
      if (neighborhood.bounded) {
        const Vector inEllipsoid = Square(neighborhood.ellipsoid, dx, dy, dz);
        square[i] = inEllipsoid <= Broadcast<Vector>(neighborhood.squaredRadius) ? square[i] : infinite;
      }
      rank[i] = Integers{};
    }
    // The comparison is -1 if the datum i comes first.
    for (int i = 0; i < n; ++i) {
      const Vector own = square[i];
      Integers later = Integers{};
      for (int j = i + 1; j < n; ++j) {
        const Integers first = own <= square[j];
        rank[j] -= first;
        later += first;
      }
      const Integers ownRank = rank[i] + later + (n - 1 - i);
      std::uint64_t* const words = masks + bit[i] / 64 * kDecidedTogether + part * kWidth;
      const Integers selected = (ownRank < need) & (own < infinite);
      const std::uint64_t markBits = std::uint64_t{1} << bit[i] % 64;
      const auto mark = static_cast<long long>(markBits);
      IntegersInMemory* const word = (IntegersInMemory*)words;
      *word = *word | (selected & mark);
    }
  }
}

KESTRUM_KERNEL_TARGET PlaceCounts Pick(int n, const PlaceBounds& bounds, int* picked, int* sure) noexcept {
  PlaceCounts counts = {0, 0, 0};
#if KESTRUM_KERNEL_BYTES == 64
  const auto atMost = [](const double* values, int i, double limit) KESTRUM_KERNEL_TARGET {
    return static_cast<unsigned>(_mm512_cmp_pd_mask(_mm512_loadu_pd(values + i), _mm512_set1_pd(limit), _CMP_LE_OQ));
  };
  const auto append = [](int* list, int* count, unsigned mask, __m512i number) KESTRUM_KERNEL_TARGET {
    const __m512i chosen = _mm512_maskz_compress_epi64(static_cast<__mmask8>(mask), number);
    _mm256_storeu_si256((__m256i*)(list + *count), _mm512_maskz_cvtepi64_epi32(0xff, chosen));
    *count += __builtin_popcount(mask);
  };
  __m512i number = _mm512_setr_epi64(0, 1, 2, 3, 4, 5, 6, 7);
  for (int i = 0; i < n; i += kWidth) {
    const unsigned counted = n - i < kWidth ? (1U << (n - i)) - 1 : 0xff;
    const unsigned inside = atMost(bounds.greatest, i, bounds.radius);
    const unsigned wanted = counted & atMost(bounds.lower, i, bounds.most) & atMost(bounds.least, i, bounds.radius);
    const unsigned isSure = wanted & inside & atMost(bounds.upper, i, bounds.surely);
    append(picked, &counts.picked, wanted & ~isSure, number);
    append(sure, &counts.sure, isSure, number);
    counts.inside += __builtin_popcount(wanted & inside);
    number = _mm512_add_epi64(number, _mm512_set1_epi64(kWidth));
  }
#else
  // Every datum is written down, and the next one over it if it was not wanted: a loop without a branch.
  for (int i = 0; i < n; ++i) {
    const bool isInside = bounds.greatest[i] <= bounds.radius;
    const bool isWanted = (bounds.lower[i] <= bounds.most) & (bounds.least[i] <= bounds.radius);
    const bool isSure = isWanted & isInside & (bounds.upper[i] <= bounds.surely);
    picked[counts.picked] = sure[counts.sure] = i;
    counts.picked += isWanted & !isSure;
    counts.sure += isSure;
    counts.inside += isWanted & isInside;
  }
#endif
  return counts;
}

// A place within `reach` has as many data within the distance that `need` are from the middle, and `reach`.
KESTRUM_KERNEL_TARGET int KeepNear(const PlaceMetric& metric, const double* middle, double reach, int need, int n,
                                   const PlaceVectors& data, const int* number, double* squares,
                                   const PlacesToKeep& kept, double* limit) noexcept {
  const double weight[3] = {metric.weight[0], metric.weight[1], metric.planar ? 0.0 : metric.weight[2]};
  for (int i = 0; i < n; i += kWidth) {
    const Vector dx = Load<Vector>(data.x + i) - middle[0];
    const Vector dy = Load<Vector>(data.y + i) - middle[1];
    const Vector dz = Load<Vector>(data.z + i) - middle[2];
    Store(squares + i, weight[0] * (dx * dx) + weight[1] * (dy * dy) + weight[2] * (dz * dz));
  }
  *limit = FindLimit<true>(n, squares, need);
  const double most = WithinReach(*limit, 2.0 * reach);
  int count = 0;
#if KESTRUM_KERNEL_BYTES == 64
  for (int i = 0; i < n; i += kWidth) {
    const unsigned counted = n - i < kWidth ? (1U << (n - i)) - 1 : 0xff;
    const auto chosen = static_cast<__mmask8>(
        counted & _mm512_cmp_pd_mask(_mm512_loadu_pd(squares + i), _mm512_set1_pd(most), _CMP_LE_OQ));
    const auto append = [&](const double* from, double* to) KESTRUM_KERNEL_TARGET {
      _mm512_storeu_pd(to + count, _mm512_maskz_compress_pd(chosen, _mm512_loadu_pd(from + i)));
    };
    append(data.x, kept.x);
    append(data.y, kept.y);
    append(data.z, kept.z);
    const __m512i numbers = _mm512_maskz_cvtepi32_epi64(chosen, _mm256_loadu_si256((const __m256i*)(number + i)));
    const __m512i own = _mm512_maskz_compress_epi64(chosen, numbers);
    _mm256_storeu_si256((__m256i*)(kept.number + count), _mm512_maskz_cvtepi64_epi32(0xff, own));
    count += __builtin_popcount(chosen);
  }
#else
  for (int i = 0; i < n; ++i) {
    kept.x[count] = data.x[i];
    kept.y[count] = data.y[i];
    kept.z[count] = data.z[i];
    kept.number[count] = number[i];
    count += squares[i] <= most;
  }
#endif
  return count;
}

// A bit for each element that is at most, or below, a bound.
KESTRUM_KERNEL_INLINE std::uint64_t BitsAtMost(Vector x, Vector bound) {
#if KESTRUM_KERNEL_BYTES == 64
  return _mm512_cmp_pd_mask((__m512d)x, (__m512d)bound, _CMP_LE_OQ);
#elif KESTRUM_KERNEL_BYTES == 32
  return static_cast<unsigned>(_mm256_movemask_pd((__m256d)(x <= bound)));
#else
  const Integers comparison = x <= bound;
  return static_cast<std::uint64_t>((comparison[0] & 1) | (comparison[1] & 2));
#endif
}

// Marks those of 64 values that are at most a limit.
KESTRUM_KERNEL_INLINE std::uint64_t MarkAtMost(const double* values, double limit) {
  const Vector bound = Broadcast<Vector>(limit);
  std::uint64_t parts[4] = {};
#pragma GCC unroll 8
  for (int i = 0; i < 64; i += kWidth) {
    parts[i / kWidth % 4] |= BitsAtMost(Load<Vector>(values + i), bound) << i;
  }
  return (parts[0] | parts[1]) | (parts[2] | parts[3]);
}

// The words of a target lie kMaxSelected apart.
KESTRUM_KERNEL_INLINE int MarkWordsAtMost(int words, const double* values, double limit, std::uint64_t* bits) {
  int count = 0;
  for (int w = 0; w < words; ++w) {
    const std::uint64_t word = MarkAtMost(values + 64 * w, limit);
    bits[w * kMaxSelected] = word;
    count += __builtin_popcountll(word);
  }
  return count;
}

// Squared distances of n data from a target in whole words; infinite for those outside the ellipsoid, and beyond the last.
KESTRUM_KERNEL_INLINE void FindSquares(const PlaceNeighborhood& neighborhood, double x, double y, double z, int n,
                                       const PlaceVectors& data, double* squares) {
  const PlaceMetric metric = neighborhood.metric;
  const PlaceMetric ellipsoid = neighborhood.ellipsoid;
  const Vector infinite = Broadcast<Vector>(__builtin_inf());
  const bool plain = metric.planar && !metric.rotated && !neighborhood.bounded;
  for (int i = 0; plain && i < n; i += kWidth) {
    const Vector dx = Load<Vector>(data.x + i) - x;
    const Vector dy = Load<Vector>(data.y + i) - y;
    Store(squares + i, metric.weight[0] * (dx * dx) + metric.weight[1] * (dy * dy));
  }
  for (int i = plain ? n : 0; i < n; i += kWidth) {
    const Vector dx = Load<Vector>(data.x + i) - x;
    const Vector dy = Load<Vector>(data.y + i) - y;
    const Vector dz = Load<Vector>(data.z + i) - z;
    Vector square = Square(metric, dx, dy, dz);
    if (neighborhood.bounded) {
      const Vector inEllipsoid = Square(ellipsoid, dx, dy, dz);
      square = inEllipsoid <= Broadcast<Vector>(neighborhood.squaredRadius) ? square : infinite;
    }
    Store(squares + i, square);
  }
  for (int i = n; i < (n + 63) / 64 * 64; i += kWidth) Store(squares + i, infinite);
}

// Marks the `need` nearest of n data, of which those that are marked are some, one by one.
KESTRUM_KERNEL_TARGET void MarkOneByOne(int n, const double* squares, const int* datum, int need, std::uint64_t* mask) {
  const auto word = [&](int i) KESTRUM_KERNEL_TARGET -> std::uint64_t& { return mask[i / 64 * kMaxSelected]; };
  int count = 0;
  for (int i = 0; i < n; i += 64) count += __builtin_popcountll(word(i));
  for (; count < need; ++count) {
    int nearest = -1;
    for (int i = 0; i < n; ++i) {
      if ((word(i) >> i % 64 & 1) != 0) continue;
      const bool earlier = nearest >= 0 && squares[i] == squares[nearest] && datum[i] < datum[nearest];
      if (nearest < 0 || squares[i] < squares[nearest] || earlier) nearest = i;
    }
    word(nearest) |= std::uint64_t{1} << nearest % 64;
  }
}

// Finds a limit for each target that `need` of n values are within by guessing, as if values between two limits were spread
// evenly. All targets guess in turn, so that none waits for its own last count.
KESTRUM_KERNEL_TARGET double Nearest(const PlaceNeighborhood& neighborhood, int ntarget, const PlaceVectors& targets,
                                     int n, const PlaceVectors& data, const int* datum, int need, double guess,
                                     double* squares, std::uint64_t* masks) noexcept {
  const int words = (n + 63) / 64;
  const int step = 64 * words;
  unsigned open = 0;
  for (int t = 0; t < ntarget; ++t) {
    double* const own = squares + t * step;
    FindSquares(neighborhood, targets.x[t], targets.y[t], targets.z[t], n, data, own);
    const bool few = n <= need || neighborhood.bounded;
    const bool closed = few && MarkWordsAtMost(words, own, __DBL_MAX__, masks + t) <= need;
    open |= (closed ? 0U : 1U) << t;
  }
  if (!(guess > 0.0)) guess = squares[0] > 0.0 && squares[0] < __DBL_MAX__ ? squares[0] : 1.0;
  double at[kMaxSelected];
  double count[kMaxSelected];
  double low[kMaxSelected];
  double high[kMaxSelected];
  double lowCount[kMaxSelected];
  double highCount[kMaxSelected];
  for (int t = 0; t < kMaxSelected; ++t) {
    at[t] = guess;
    low[t] = -1.0;
    high[t] = __DBL_MAX__;
    lowCount[t] = count[t] = 0.0;
    highCount[t] = n;
  }
  constexpr int kMaxGuesses = 8;
  for (int guesses = 0; guesses < kMaxGuesses && open != 0; ++guesses) {
    for (unsigned rest = open; rest != 0; rest &= rest - 1) {
      const int t = __builtin_ctz(rest);
      const int found = MarkWordsAtMost(words, squares + t * step, at[t], masks + t);
      count[t] = found;
      open &= ~((found == need ? 1U : 0U) << t);
    }
    for (int t = 0; t < ntarget; t += kWidth) {
      const Vector own = Load<Vector>(at + t);
      const Vector counted = Load<Vector>(count + t);
      const auto below = counted < Broadcast<Vector>(need);
      const Vector from = below ? own : Load<Vector>(low + t);
      const Vector to = below ? Load<Vector>(high + t) : own;
      const Vector fromCount = below ? counted : Load<Vector>(lowCount + t);
      const Vector toCount = below ? Load<Vector>(highCount + t) : counted;
      Store(low + t, from);
      Store(high + t, to);
      Store(lowCount + t, fromCount);
      Store(highCount + t, toCount);
      const Vector least = Larger(from, Vector{});
      const Vector between = least + (need + 0.5 - fromCount) / (toCount + 1.0 - fromCount) * (to - least);
      const Vector beyond = own * ((need + 0.5) / (counted + 0.5));
      Store(at + t, to == Broadcast<Vector>(__DBL_MAX__) ? beyond : between);
    }
  }
  // What is left lies close together, or at one distance.
  for (; open != 0; open &= open - 1) {
    const int t = __builtin_ctz(open);
    MarkWordsAtMost(words, squares + t * step, low[t], masks + t);
    MarkOneByOne(n, squares + t * step, datum, need, masks + t);
  }
  return at[0];
}

KESTRUM_KERNEL_TARGET void Rank(int n, double* values, int* rank) noexcept {
  Store(values + n, Broadcast<Vector>(__builtin_inf()));
  for (int i = 0; i < n; ++i) {
    const Vector own = Broadcast<Vector>(values[i]);
    std::uint64_t before = 0;
    for (int j = 0; j < n; j += kWidth) {
      const Vector other = Load<Vector>(values + j);
      // Of equal values the earlier ones; none is before itself.
      const std::uint64_t later = BitsAtMost(own, other) << j;
      before |= BitsAtMost(other, own) << j & ~(later & ~std::uint64_t{0} << i);
    }
    rank[i] = __builtin_popcountll(before);
  }
}

KESTRUM_KERNEL_TARGET void Reorder(int n, const int* position, const int* rank, const std::uint64_t* masks,
                                   std::uint64_t* reordered) noexcept {
  for (int t = 0; t < kMaxSelected; t += kWidth) {
    Integers sum = Integers{};
    for (int i = 0; i < n; ++i) {
      const Integers bit = Integers{} + static_cast<long long>(std::uint64_t{1} << position[i] % 64);
      const Integers own = *(const IntegersInMemory*)(masks + position[i] / 64 * kMaxSelected + t);
      sum |= ((own & bit) != 0) & (Integers{} + static_cast<long long>(std::uint64_t{1} << rank[i]));
    }
    *(IntegersInMemory*)(reordered + t) = sum;
  }
}
