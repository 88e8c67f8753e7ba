// The sums of two-point statistics: text for numeric/kernel_levels.hpp.
//
// A lane is a lag. All lanes have the same tail, and each adds its own pair to its own sums, in the order of the
// tails; nothing is summed across lanes. Several vectors of lanes hide the latency of the additions. A lane whose head
// is out of the grid or missing adds 0.0, which changes nothing: a sum that began at 0.0 is never -0.0.

constexpr int kRegisters = kVectorBytes == 64 ? 32 : 16;

KESTRUM_KERNEL_INLINE std::ptrdiff_t Least(std::ptrdiff_t a, std::ptrdiff_t b) { return a < b ? a : b; }
KESTRUM_KERNEL_INLINE int Greatest(int a, int b) { return a > b ? a : b; }

// The terms of the pairs of tail a and heads b, in the order that SumCount gives.
template <TwoPointStatistic kStatistic>
KESTRUM_KERNEL_INLINE void ComputeTerms(const Vector& a, const Vector& b, Vector* term) {
  using enum TwoPointStatistic;
  const Vector zero = Broadcast<Vector>(0.0);
  const Vector one = Broadcast<Vector>(1.0);
  if constexpr (kStatistic == kVariogram) {
    term[0] = (a - b) * (a - b);
  } else if constexpr (kStatistic == kCovariance || kStatistic == kCovarianceNotCentred || kStatistic == kCorrelogram) {
    term[0] = a * b;
    if constexpr (SumCount(kStatistic) >= 3) {
      term[1] = a;
      term[2] = b;
    }
    if constexpr (SumCount(kStatistic) >= 5) {
      term[3] = a * a;
      term[4] = b * b;
    }
  } else {
    const Mask<Vector> both = (a > zero) & (b > zero);
    term[0] = (kStatistic == kTransiogram ? both : (a > zero) & (a == b)) ? one : zero;
    if constexpr (kStatistic == kConnectivityFunction2) {
      term[1] = both ? one : zero;
    } else if constexpr (SumCount(kStatistic) >= 3) {
      term[1] = a > zero ? one : zero;
      term[2] = b > zero ? one : zero;
    }
  }
}

// The sums of the lags of kVectors vectors, from `lag` on.
template <TwoPointStatistic kStatistic, MissingMark kMark, bool kHasMissing, int kVectors>
class LagPiece {
 public:
  static constexpr int kLags = kVectors * kWidth;

  KESTRUM_KERNEL_INLINE LagPiece(const PairField& field, const int* lag) : field_(field), lag_(lag) {
#pragma GCC unroll 8
    for (int k = 0; k < kVectors; ++k) {
#pragma GCC unroll 8
      for (int s = 0; s < kTerms; ++s) sum_[k][s] = Vector{};
    }
  }

  // Walks the tails of all pairs. Lanes from `count` on are no lags, and hold anything.
  KESTRUM_KERNEL_INLINE void Walk(int count) {
    const int lane = field_.laneAxis;
    const int firstLag = lag_[lane];
    const int lastLag = static_cast<int>(firstLag + static_cast<std::ptrdiff_t>(count - 1) * field_.step);
    int begin[3];
    int end[3];
    for (int axis = 0; axis < 3; ++axis) {
      begin[axis] = Greatest(0, axis == lane ? -lastLag : -lag_[axis]);
      end[axis] = field_.n[axis] - Greatest(0, lag_[axis]);
    }
    // Tails between these have a head in the grid at every lag.
    const int coreBegin = Greatest(0, -firstLag);
    const int coreEnd = field_.n[lane] - Greatest(0, lastLag);
    const bool hasCore = !kHasMissing && coreBegin < coreEnd;

    const int length = end[0] - begin[0];
    const bool wraps = lane == 0 && field_.step > 1;
    stride_ = lane != 0 ? field_.headStride[0] : wraps ? field_.phaseStride : 1;
    for (int z = begin[2]; z < end[2]; ++z) {
      for (int y = begin[1]; y < end[1]; ++y) {
        if (field_.progress.Aborted()) return;
        const int at = lane == 0 ? begin[0] : lane == 1 ? y : z;
        tail_ = field_.tails + (static_cast<std::ptrdiff_t>(z) * field_.n[1] + y) * field_.n[0] + begin[0];
        const std::ptrdiff_t position = firstLag + field_.margin + at;
        const std::ptrdiff_t phase = field_.step == 1 ? 0 : position % field_.step;
        head_ = field_.heads + phase * field_.phaseStride + (position - phase) / field_.step +
                (begin[0] + lag_[0]) * field_.headStride[0] + (y + lag_[1]) * field_.headStride[1] +
                (z + lag_[2]) * field_.headStride[2];
        untilWrap_ = wraps ? field_.step - phase : std::ptrdiff_t{length} + 1;
        if (!hasCore || (lane != 0 && (at < coreBegin || at >= coreEnd))) {
          AddRow<true>(length);
        } else if (lane == 0) {
          AddRow<true>(coreBegin - begin[0]);
          AddRow<false>(coreEnd - coreBegin);
          AddRow<true>(end[0] - coreEnd);
        } else {
          AddRow<false>(length);
        }
      }
    }
  }

  // Writes the sums of all lanes, from place `first` on.
  KESTRUM_KERNEL_INLINE void Give(int first, LagSums* sums) const {
#pragma GCC unroll 8
    for (int k = 0; k < kVectors; ++k) {
#pragma GCC unroll 8
      for (int s = 0; s < kTerms; ++s) {
        double* const row = s == kSums ? sums->pairs : sums->sum[s];
        Store(row + first + k * kWidth, sum_[k][s]);
      }
    }
  }

 private:
  static constexpr int kSums = SumCount(kStatistic);
  static constexpr int kTerms = kSums + (kHasMissing ? 1 : 0);

  // Adds the next `count` tails of the row.
  template <bool kMasked>
  KESTRUM_KERNEL_INLINE void AddRow(std::ptrdiff_t count) {
    while (count > 0) {
      const std::ptrdiff_t stretch = Least(count, untilWrap_);
      for (std::ptrdiff_t i = 0; i < stretch; ++i) {
        if (!kHasMissing || !IsMarkedMissing(*tail_, kMark)) AddPairs<kMasked>();
        ++tail_;
        head_ += stride_;
      }
      count -= stretch;
      untilWrap_ -= stretch;
      if (untilWrap_ == 0) {
        untilWrap_ = field_.step;
        head_ += 1 - field_.step * field_.phaseStride;
      }
    }
  }

  template <bool kMasked>
  KESTRUM_KERNEL_INLINE void AddPairs() {
    const Vector a = Broadcast<Vector>(*tail_);
#pragma GCC unroll 8
    for (int k = 0; k < kVectors; ++k) {
      const Vector b = Load<Vector>(head_ + k * kWidth);
      Vector term[kSums + 1];
      ComputeTerms<kStatistic>(a, b, term);
      term[kSums] = Broadcast<Vector>(1.0);
      // A comparison with NaN is false.
      const Mask<Vector> counted = kMark == MissingMark::kNaN
                                       ? b <= Broadcast<Vector>(std::numeric_limits<double>::infinity())
                                       : b != Broadcast<Vector>(MissingOf(kMark));
#pragma GCC unroll 8
      for (int s = 0; s < kTerms; ++s) sum_[k][s] += !kMasked ? term[s] : counted ? term[s] : Vector{};
    }
  }

  const PairField& field_;
  const int* const lag_;
  const double* tail_ = nullptr;
  const double* head_ = nullptr;
  std::ptrdiff_t stride_ = 0;
  std::ptrdiff_t untilWrap_ = 0;  // tails before the heads go back to the first phase
  Vector sum_[kVectors][kTerms];
};

template <TwoPointStatistic kStatistic, MissingMark kMark, bool kHasMissing, int kVectors>
KESTRUM_KERNEL_TARGET int SumPiece(const PairField& field, const int* lag, int count, int first, LagSums* sums) {
  using Piece = LagPiece<kStatistic, kMark, kHasMissing, kVectors>;
  int pieceLag[3] = {lag[0], lag[1], lag[2]};
  pieceLag[field.laneAxis] = static_cast<int>(lag[field.laneAxis] + first * field.step);
  Piece piece(field, pieceLag);
  piece.Walk(count - first < Piece::kLags ? count - first : Piece::kLags);
  piece.Give(first, sums);
  return first + Piece::kLags;
}

template <TwoPointStatistic kStatistic, MissingMark kMark, bool kHasMissing>
KESTRUM_KERNEL_TARGET void SumRun(const PairField& field, const int* lag, int count, LagSums* sums) {
  // As many vectors as leave a quarter of the registers free.
  constexpr int kRoom = kRegisters * 3 / 4 / (SumCount(kStatistic) + (kHasMissing ? 1 : 0));
  constexpr int kMost = kRoom >= 4 ? 4 : kRoom >= 2 ? 2 : 1;
  static_assert(kLagRun % (kMost * kWidth) == 0);
  for (int first = 0; first < count;) {
    const int vectors = (count - first + kWidth - 1) / kWidth;
    if (vectors * 2 > kMost) {
      first = SumPiece<kStatistic, kMark, kHasMissing, kMost>(field, lag, count, first, sums);
    } else if (vectors == 2) {
      first = SumPiece<kStatistic, kMark, kHasMissing, 2>(field, lag, count, first, sums);
    } else {
      first = SumPiece<kStatistic, kMark, kHasMissing, 1>(field, lag, count, first, sums);
    }
  }
}

template <TwoPointStatistic kStatistic>
KESTRUM_KERNEL_TARGET void SumRunOf(const PairField& field, const int* lag, int count, LagSums* sums) {
  // Of arrays, categories and bodies are counted otherwise (pair_counts.hpp).
  if constexpr (kStatistic < TwoPointStatistic::kTransiogram) {
    if (field.mark == MissingMark::kNaN) {
      if (field.hasMissing) return SumRun<kStatistic, MissingMark::kNaN, true>(field, lag, count, sums);
      return SumRun<kStatistic, MissingMark::kNaN, false>(field, lag, count, sums);
    }
  }
  if constexpr (LeavesMissingOut(kStatistic)) {
    if (field.hasMissing) return SumRun<kStatistic, MissingMark::kNumber, true>(field, lag, count, sums);
  }
  SumRun<kStatistic, MissingMark::kNumber, false>(field, lag, count, sums);
}

KESTRUM_KERNEL_TARGET void SumLags(TwoPointStatistic statistic, const PairField& field, const int* lag, int count,
                                   LagSums* sums) noexcept {
  using enum TwoPointStatistic;
  switch (statistic) {
    case kVariogram:
      return SumRunOf<kVariogram>(field, lag, count, sums);
    case kCovariance:
      return SumRunOf<kCovariance>(field, lag, count, sums);
    case kCovarianceNotCentred:
      return SumRunOf<kCovarianceNotCentred>(field, lag, count, sums);
    case kCorrelogram:
      return SumRunOf<kCorrelogram>(field, lag, count, sums);
    case kTransiogram:
      return SumRunOf<kTransiogram>(field, lag, count, sums);
    case kConnectivityFunction0:
      return SumRunOf<kConnectivityFunction0>(field, lag, count, sums);
    case kConnectivityFunction1:
      return SumRunOf<kConnectivityFunction1>(field, lag, count, sums);
    case kConnectivityFunction2:
      return SumRunOf<kConnectivityFunction2>(field, lag, count, sums);
  }
}
