// Sums over pairs of points by lag and direction: text for numeric/kernel_levels.hpp. A lane is a head; tails are taken
// one after the other.

// Adding and subtracting it rounds a number of less than 2^51 to a whole one.
constexpr double kRounder = 6755399441055744.0;  // 1.5 * 2^52
constexpr int kSumSize = sizeof(PairSum) / sizeof(double);

alignas(64) constexpr double kLaneOffsets[kPairLanes] = {
    0, kSumSize, 2 * kSumSize, 3 * kSumSize, 4 * kSumSize, 5 * kSumSize, 6 * kSumSize, 7 * kSumSize};

// Heads whose distances, terms and places are found before any of them is added: so much work at a time hides the latency of
// both loops.
constexpr int kHeadBlock = 64;

enum class PairTerm { kSquare, kRoot, kSize, kProduct };

// The values of one point, in all lanes.
struct PairTail {
  Vector at[3];
  Vector value;
  Vector other;
};

KESTRUM_KERNEL_INLINE Vector AbsoluteValue(Vector x) { return x < Broadcast<Vector>(0.0) ? -x : x; }

// The sum of the numbers of the cones that hold a pair, for cones `first` to `end` - 1: 1, 2, 4, ...
template <bool kHasZ>
KESTRUM_KERNEL_INLINE Vector FindCones(const PairScan& scan, int first, int end, const Vector* difference,
                                       Vector square) {
  Vector set = Broadcast<Vector>(0.0);
  double number = 1.0;
  for (int c = first; c < end; ++c, number += number) {
    const PairCone& cone = scan.cones[c];
    Vector along = difference[0] * cone.axis[0] + difference[1] * cone.axis[1];
    if (kHasZ) along = along + difference[2] * cone.axis[2];
    Vector least = square * cone.leastAlong;
    if (cone.squaredBandwidth < __builtin_inf()) {
      const Vector inCylinder = square * cone.leastInCylinder - cone.squaredBandwidth;
      least = inCylinder > least ? inCylinder : least;
    }
    set = set + (along * along >= least ? Broadcast<Vector>(number) : Broadcast<Vector>(0.0));
  }
  return set;
}

// Adds a distance and a term to a sum, and 1 to its pairs.
KESTRUM_KERNEL_INLINE void AddTo(double* sum, const double* distanceAndTerm) {
#if KESTRUM_KERNEL_BYTES >= 32
  const __m256d both = _mm256_broadcast_pd(reinterpret_cast<const __m128d*>(distanceAndTerm));
  const __m256d term = _mm256_blend_pd(_mm256_setr_pd(0.0, 0.0, 1.0, 0.0), both, 3);
  _mm256_store_pd(sum, _mm256_add_pd(_mm256_load_pd(sum), term));
#else
  sum[0] += distanceAndTerm[0];
  sum[1] += distanceAndTerm[1];
  sum[2] += 1.0;
#endif
}

// Stores a number of x, one of y, the next of x, and so on.
KESTRUM_KERNEL_INLINE void StoreInTurn(double* to, Vector x, Vector y) {
#if KESTRUM_KERNEL_BYTES == 64
  Store(to, Shuffle<0, 8, 1, 9, 2, 10, 3, 11>(x, y));
  Store(to + kWidth, Shuffle<4, 12, 5, 13, 6, 14, 7, 15>(x, y));
#elif KESTRUM_KERNEL_BYTES == 32
  Store(to, Shuffle<0, 4, 1, 5>(x, y));
  Store(to + kWidth, Shuffle<2, 6, 3, 7>(x, y));
#else
  Store(to, Shuffle<0, 2>(x, y));
  Store(to + kWidth, Shuffle<1, 3>(x, y));
#endif
}

// Adds the pairs of a tail with `count` heads, at most kHeadBlock, from `head` on.
template <bool kHasZ, PairTerm kTerm, bool kHasCones>
KESTRUM_KERNEL_INLINE void AddHeads(const PairScan& scan, const PairTail& tail, std::ptrdiff_t head, int count,
                                    double* sums) {
  const Vector perLag = Broadcast<Vector>(scan.perLag);
  const Vector lag = Broadcast<Vector>(scan.lag);
  const Vector beyond = Broadcast<Vector>(scan.nlag + 1.0);
  const Vector one = Broadcast<Vector>(1.0);
  const Vector rounder = Broadcast<Vector>(kRounder);
  const double setSize = static_cast<double>(PairBinCount(scan.nlag) * kPairLanes * kSumSize);
  const int ngroup = kHasCones ? ConeGroupCount(scan.ncone) : 1;
  for (int group = 0; group < ngroup; ++group) {
    const int first = group * kConeGroup;
    const int end = first + kConeGroup < scan.ncone ? first + kConeGroup : scan.ncone;
    alignas(64) double terms[2 * kHeadBlock];  // a distance and a term in turn
    alignas(64) long long places[kHeadBlock];
    for (int k = 0; k < count; k += kWidth) {
      Vector difference[3];
      for (int a = 0; a < (kHasZ ? 3 : 2); ++a) difference[a] = Load<Vector>(scan.at[a] + head + k) - tail.at[a];
      Vector square = difference[0] * difference[0] + difference[1] * difference[1];
      if (kHasZ) square = square + difference[2] * difference[2];
      const Vector distance = SquareRoot(square);
      // The bin is found up to 1, and then by the borders themselves.
      const Vector guess = distance * perLag;
      Vector bin = ((guess < beyond ? guess : beyond) + rounder) - rounder;
      const Vector upper = bin * lag;
      const Vector lower = (bin - one) * lag;
      bin = distance > upper ? bin + one : distance <= lower ? bin - one : bin;
      Vector place = bin * Broadcast<Vector>(kPairLanes * kSumSize) + Load<Vector>(kLaneOffsets + k % kPairLanes);
      if (kHasCones) {
        const Vector set = FindCones<kHasZ>(scan, first, end, difference, square);
        place = place + set * Broadcast<Vector>(setSize);
      }
      Vector term = Load<Vector>(scan.value + head + k) - tail.value;
      if constexpr (kTerm == PairTerm::kSquare) {
        term = term * term;
      } else if constexpr (kTerm == PairTerm::kProduct) {
        term = term * (Load<Vector>(scan.other + head + k) - tail.other);
      } else {
        term = AbsoluteValue(term);
        if constexpr (kTerm == PairTerm::kRoot) term = SquareRoot(term);
      }
      StoreInTurn(terms + 2 * k, distance, term);
      Store(places + k, (Integers)(place + rounder) - (Integers)rounder);
    }
#pragma GCC unroll 8
    for (int i = 0; i < count; ++i) AddTo(sums + places[i], terms + 2 * i);
    sums += kConeSets * PairBinCount(scan.nlag) * kPairLanes * kSumSize;
  }
}

// The cell along an axis; the outermost one beyond the cells.
KESTRUM_KERNEL_INLINE int CellAlong(const PairScan& scan, int axis, double coordinate) {
  const double cell = (coordinate - scan.origin[axis]) * scan.perUnit[axis];
  const int last = scan.ncell[axis] - 1;
  return cell >= last ? last : cell > 0.0 ? static_cast<int>(cell) : 0;
}

// How far a coordinate is at least from the cells of a row.
KESTRUM_KERNEL_INLINE double GapTo(const PairScan& scan, int axis, double coordinate, int own, int cell) {
  if (cell == own) return 0.0;
  const double border = scan.origin[axis] + (cell > own ? cell : cell + 1) * scan.size[axis];
  const double gap = (cell > own ? border - coordinate : coordinate - border) - scan.margin;
  return gap > 0.0 ? gap : 0.0;
}

template <bool kHasZ, PairTerm kTerm, bool kHasCones>
KESTRUM_KERNEL_TARGET void AddPairs(const PairScan& given, std::ptrdiff_t begin, std::ptrdiff_t end,
                                    PairSum* sums) noexcept {
  const PairScan scan = given;  // which no sum can change
  const double reach = scan.reach;
  for (std::ptrdiff_t i = begin; i < end; ++i) {
    const double x = scan.at[0][i];
    const double y = scan.at[1][i];
    const double z = kHasZ ? scan.at[2][i] : 0.0;
    PairTail tail;
    tail.at[0] = Broadcast<Vector>(x);
    tail.at[1] = Broadcast<Vector>(y);
    tail.at[2] = Broadcast<Vector>(z);
    tail.value = Broadcast<Vector>(scan.value[i]);
    tail.other = Broadcast<Vector>(kTerm == PairTerm::kProduct ? scan.other[i] : 0.0);
    const int ownY = CellAlong(scan, 1, y);
    const int lastY = CellAlong(scan, 1, y + reach);
    const int ownZ = kHasZ ? CellAlong(scan, 2, z) : 0;
    const int lastZ = kHasZ ? CellAlong(scan, 2, z + reach) : 0;
    for (int rowZ = ownZ; rowZ <= lastZ; ++rowZ) {
      const double gapZ = kHasZ ? GapTo(scan, 2, z, ownZ, rowZ) : 0.0;
      for (int rowY = rowZ == ownZ ? ownY : CellAlong(scan, 1, y - reach); rowY <= lastY; ++rowY) {
        const double gapY = GapTo(scan, 1, y, ownY, rowY);
        const double rest = reach * reach - gapY * gapY - gapZ * gapZ;
        if (rest < 0.0) continue;
        const double width = __builtin_sqrt(rest);
        const int* const row = scan.begin + (static_cast<std::ptrdiff_t>(rowZ) * scan.ncell[1] + rowY) * scan.ncell[0];
        const bool own = rowZ == ownZ && rowY == ownY;
        std::ptrdiff_t head = own ? i + 1 : row[CellAlong(scan, 0, x - width)];
        const std::ptrdiff_t last = row[CellAlong(scan, 0, x + width) + 1];
        for (; head < last; head += kHeadBlock) {
          const std::ptrdiff_t left = last - head;
          AddHeads<kHasZ, kTerm, kHasCones>(scan, tail, head, left < kHeadBlock ? static_cast<int>(left) : kHeadBlock,
                                            &sums->distance);
        }
      }
    }
  }
}

template <PairTerm kTerm>
PairKernel PairKernelOfTerm(const PairScan& scan) {
  if (scan.at[2] == nullptr) return scan.ncone > 0 ? AddPairs<false, kTerm, true> : AddPairs<false, kTerm, false>;
  return scan.ncone > 0 ? AddPairs<true, kTerm, true> : AddPairs<true, kTerm, false>;
}

inline PairKernel ChoosePairKernel(const PairScan& scan) {
  if (scan.other != nullptr) return PairKernelOfTerm<PairTerm::kProduct>(scan);
  switch (scan.estimator) {
    case VariogramEstimator::kMatheron:
      return PairKernelOfTerm<PairTerm::kSquare>(scan);
    case VariogramEstimator::kCressie:
      return PairKernelOfTerm<PairTerm::kRoot>(scan);
    case VariogramEstimator::kMadogram:
      return PairKernelOfTerm<PairTerm::kSize>(scan);
  }
  return nullptr;
}
