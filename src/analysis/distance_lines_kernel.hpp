// The line kernels: text for numeric/kernel_levels.hpp.
//
// The envelope is a stack of segments. A segment has a start and a site, the node whose function is the lowest from the
// start to the start of the next segment. The top is held in registers; a node that became a site remembers the segment
// below its own, so that the stack needs no memory by depth, and lanes with stacks of different depths proceed in step.
// Numbers of nodes are kept as doubles, which hold them exactly.

constexpr int kLanes = kWidth == 1 ? 1 : kLineLanes;
constexpr int kGroups = kLanes / kWidth;

typedef unsigned long long Unsigned __attribute__((vector_size(KESTRUM_KERNEL_BYTES)));

KESTRUM_KERNEL_INLINE bool Any(Integers mask) {
#if KESTRUM_KERNEL_BYTES == 64
  return _mm512_test_epi64_mask((__m512i)mask, (__m512i)mask) != 0;
#elif KESTRUM_KERNEL_BYTES == 32
  return _mm256_movemask_pd((__m256d)mask) != 0;
#else
  bool any = false;
  for (int k = 0; k < kWidth; ++k) any |= mask[k] != 0;
  return any;
#endif
}

KESTRUM_KERNEL_INLINE Vector Gather(const double* from, Integers index) {
#if KESTRUM_KERNEL_BYTES == 64
  // Unmasked, this intrinsic reads a variable that is not set.
  return (Vector)_mm512_mask_i64gather_pd(_mm512_setzero_pd(), 0xff, (__m512i)index, from, 8);
#elif KESTRUM_KERNEL_BYTES == 32
  return (Vector)_mm256_i64gather_pd(from, (__m256i)index, 8);
#else
  Vector x;
  for (int k = 0; k < kWidth; ++k) x[k] = from[index[k]];
  return x;
#endif
}

KESTRUM_KERNEL_INLINE Integers GatherLinks(const long long* from, Integers index) {
  return (Integers)Gather((const double*)from, index);
}

// Added to a whole number from 0 to 2^51 it leaves the number in the low bits; no instruction set lacks an addition.
constexpr double kLowBits = 4503599627370496.0;  // 2^52
constexpr long long kLowBitsPattern = 0x4330000000000000;

KESTRUM_KERNEL_INLINE Integers ToIntegers(Vector x) { return (Integers)(x + kLowBits) ^ kLowBitsPattern; }
KESTRUM_KERNEL_INLINE Vector ToDoubles(Integers x) { return (Vector)(x | kLowBitsPattern) - kLowBits; }

// Toward zero; for numbers of less than 2^51.
KESTRUM_KERNEL_INLINE Vector Truncate(Vector x) {
  const Vector size = x < 0.0 ? -x : x;
  Vector whole = (size + kLowBits) - kLowBits;
  whole = whole > size ? whole - 1.0 : whole;
  return x < 0.0 ? -whole : whole;
}

template <DistanceMetric metric>
KESTRUM_KERNEL_INLINE Vector Along(Vector steps, double weight) {
  if constexpr (metric == DistanceMetric::kL1) return (steps < 0.0 ? -steps : steps) * weight;
  return steps * steps * weight;
}

struct Segment {
  Vector start;
  Vector site;
  Vector cost;  // of the site
};

// Starts are this far from the lowest that can be distinguished, so that they can be stored without a sign.
constexpr double kStartBias = 1073741824.0;  // 2^30

// What a site stores of the segment below its own: the start in the upper half, the site in the lower one.
constexpr long long kNoSegment = -1;
constexpr long long kSiteBits = 0xffffffff;

KESTRUM_KERNEL_INLINE Integers Pack(const Segment& segment) {
  return ToIntegers(segment.start + kStartBias) << 32 | ToIntegers(segment.site);
}

KESTRUM_KERNEL_INLINE Integers NodeIndex(Vector node, Integers lane) { return ToIntegers(node) * kLanes + lane; }

// Replaces segments, in the lanes of `mask`, by those in `packed`.
KESTRUM_KERNEL_INLINE void Unpack(Integers packed, Integers mask, const double* cost, Integers lane, Segment* segment) {
  const Vector start = ToDoubles((Integers)((Unsigned)packed >> 32)) - kStartBias;
  segment->start = mask ? start : segment->start;
  segment->site = mask ? ToDoubles(packed & kSiteBits) : segment->site;
  segment->cost = mask ? Gather(cost, NodeIndex(segment->site, lane)) : segment->cost;
}

template <DistanceMetric metric>
KESTRUM_KERNEL_TARGET void Envelope(const LineBlock& block) {
  const double n = block.n;
  const double last = n - 1.0;
  const double weight = block.weight;
  const double halfInverse = 0.5 / weight;

  Integers lane[kGroups];
  Segment tops[kGroups];
  Vector ends[kGroups];  // value of the top's function at the last node
  for (int g = 0; g < kGroups; ++g) {
    for (int k = 0; k < kWidth; ++k) lane[g][k] = g * kWidth + k;
    const Vector cost = Load<Vector>(block.cost + g * kWidth);
    tops[g] = {Vector{}, Vector{}, cost};
    ends[g] = Along<metric>(last - Vector{}, weight) + cost;
    Store(block.link + g * kWidth, Integers{} + kNoSegment);
  }

  for (int node = 1; node < block.n; ++node) {
    const Vector u = Broadcast<Vector>(node);
    const Vector toEnd = Along<metric>(last - u, weight);
    for (int g = 0; g < kGroups; ++g) {
      const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(node) * kLanes + g * kWidth;
      const Vector cost = Load<Vector>(block.cost + row);
      const Vector end = toEnd + cost;
      const Integers wins = ~(ends[g] <= end);
      if (!Any(wins)) continue;

      Segment top = tops[g];
      Integers emptied{};
      for (Integers covered = wins;;) {
        covered &= Along<metric>(top.start - u, weight) + cost < Along<metric>(top.start - top.site, weight) + top.cost;
        if (!Any(covered)) break;
        const Integers packed = GatherLinks(block.link, NodeIndex(top.site, lane[g]));
        const Integers bottom = covered & (packed == kNoSegment);
        emptied |= bottom;
        covered &= ~bottom;
        Unpack(packed, covered, block.cost, lane[g], &top);
      }

      Vector crossing = (cost - top.cost) * halfInverse;
      if constexpr (metric == DistanceMetric::kEuclidean) crossing /= u - top.site;
      crossing += (top.site + u) * 0.5;
      // Beyond the range of int, or not a number: no start on the line, or one before every node.
      crossing = crossing < n ? crossing : n - Vector{};
      crossing = crossing > -kStartBias ? crossing : -kStartBias - Vector{};
      Vector start = Truncate(crossing) + 1.0;
      // Two segments deliberately never begin at one node.
      start = start == top.start ? start + 1.0 : start;
      const Integers begins = wins & ~emptied & (start < n);

      Store(block.link + row, Pack(top) | emptied);
      const Integers replaced = begins | emptied;
      ends[g] = replaced ? end : Along<metric>(last - top.site, weight) + top.cost;
      top.start = begins ? start : top.start;
      top.start = emptied ? Vector{} : top.start;
      top.site = replaced ? u : top.site;
      top.cost = replaced ? cost : top.cost;
      tops[g] = top;
    }
  }

  for (int node = block.n - 1; node >= 0; --node) {
    const Vector u = Broadcast<Vector>(node);
    for (int g = 0; g < kGroups; ++g) {
      Segment& top = tops[g];
      Store(block.distance + static_cast<std::ptrdiff_t>(node) * kLanes + g * kWidth,
            Along<metric>(u - top.site, weight) + top.cost);
      const Integers begins = top.start == u;
      if (node == 0 || !Any(begins)) continue;
      Unpack(GatherLinks(block.link, NodeIndex(top.site, lane[g])), begins, block.cost, lane[g], &top);
    }
  }
}

void EnvelopeOf(DistanceMetric metric, const LineBlock& block) noexcept {
  metric == DistanceMetric::kL1 ? Envelope<DistanceMetric::kL1>(block) : Envelope<DistanceMetric::kEuclidean>(block);
}
