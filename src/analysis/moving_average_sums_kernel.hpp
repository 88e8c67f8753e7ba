// The sums of moving averages: text for numeric/kernel_levels.hpp. Loops over registers are unrolled by name, or the sums would stay in memory.

// Vectors of a row that a pass sums.
constexpr int kParts = 2;

KESTRUM_KERNEL_TARGET void SumList(const double* at, const TermList& terms, double* sums) {
  constexpr int kListParts = kSumLanes < 4 * kWidth ? kSumLanes / kWidth : 4;
  for (int lane = 0; lane < kSumLanes; lane += kListParts * kWidth) {
    Vector sum[kListParts] = {};
    for (std::ptrdiff_t k = 0; k < terms.size; ++k) {
      const double* const from = at + lane + terms.offset[k];
      const Vector weight = Broadcast<Vector>(terms.weight[k]);
#pragma GCC unroll 4
      for (int p = 0; p < kListParts; ++p) sum[p] = sum[p] + Load<Vector>(from + p * kWidth) * weight;
    }
#pragma GCC unroll 4
    for (int p = 0; p < kListParts; ++p) Store(sums + lane + p * kWidth, sum[p]);
  }
}

// A term of 0.0 in place of a missing one changes no bit: a sum that starts at 0.0 is never -0.0.
KESTRUM_KERNEL_TARGET void SumInformed(const double* at, const TermList& terms, InformedSums* sums) {
  const Vector missingValue = Broadcast<Vector>(VORL_MISSING_VALUE);
  for (int lane = 0; lane < kSumLanes; lane += kParts * kWidth) {
    Vector sum[kParts] = {};
    Vector sumWeight[kParts] = {};
    Integers missing[kParts] = {};
    for (std::ptrdiff_t k = 0; k < terms.size; ++k) {
      const double* const from = at + lane + terms.offset[k];
      const Vector weight = Broadcast<Vector>(terms.weight[k]);
#pragma GCC unroll 2
      for (int p = 0; p < kParts; ++p) {
        const Vector value = Load<Vector>(from + p * kWidth);
        const Integers isMissing = value == missingValue;
        sum[p] = sum[p] + (Vector)((Integers)(value * weight) & ~isMissing);
        sumWeight[p] = sumWeight[p] + (Vector)((Integers)weight & ~isMissing);
        missing[p] = missing[p] - isMissing;
      }
    }
#pragma GCC unroll 2
    for (int p = 0; p < kParts; ++p) {
      Store(sums->sum + lane + p * kWidth, sum[p]);
      Store(sums->weight + lane + p * kWidth, sumWeight[p]);
      Store(sums->missing + lane + p * kWidth, missing[p]);
    }
  }
}

struct RowSums {
  Vector row[kBoxRows][kParts];
};

// Adds one row of values to the sums of the rows kFirst to kLast of boxes. `weight` is where the weights of this row
// are in the box of row 0; in the box of the next row it is one row further back.
template <bool kEqualWeights, int kFirst, int kLast>
KESTRUM_KERNEL_INLINE void AddRow(const double* from, const BoxTerms& terms, const double* weight, RowSums& sums) {
  const Vector equalWeight = Broadcast<Vector>(terms.weight[0]);
  for (int x = 0; x < terms.lengthX; ++x) {
    Vector value[kParts];
#pragma GCC unroll 2
    for (int p = 0; p < kParts; ++p) {
      value[p] = Load<Vector>(from + x + p * kWidth);
      if constexpr (kEqualWeights) value[p] = value[p] * equalWeight;
    }
#pragma GCC unroll 4
    for (int j = kFirst; j <= kLast; ++j) {
#pragma GCC unroll 2
      for (int p = 0; p < kParts; ++p) {
        const Vector term = kEqualWeights ? value[p] : value[p] * Broadcast<Vector>(weight[x - j * terms.lengthX]);
        sums.row[j][p] = sums.row[j][p] + term;
      }
    }
  }
}

// Each row of values goes to the boxes that hold it, so that every box gets its rows in their order.
template <bool kEqualWeights>
KESTRUM_KERNEL_TARGET void SumBoxRowsWith(const double* corner, const BoxTerms& terms, double* sums,
                                          std::ptrdiff_t stride) {
  static_assert(kBoxRows == 4);
  for (int lane = 0; lane < kSumLanes; lane += kParts * kWidth) {
    RowSums rowSums = {};
    const double* weight = terms.weight;
    for (int z = 0; z < terms.lengthZ; ++z) {
      const double* from = corner + lane + z * terms.sectionStride;
      AddRow<kEqualWeights, 0, 0>(from, terms, weight, rowSums);
      AddRow<kEqualWeights, 0, 1>(from += terms.rowStride, terms, weight += terms.lengthX, rowSums);
      AddRow<kEqualWeights, 0, 2>(from += terms.rowStride, terms, weight += terms.lengthX, rowSums);
      for (int y = kBoxRows - 1; y < terms.lengthY; ++y) {
        AddRow<kEqualWeights, 0, 3>(from += terms.rowStride, terms, weight += terms.lengthX, rowSums);
      }
      const double* end = weight += terms.lengthX;
      AddRow<kEqualWeights, 1, 3>(from += terms.rowStride, terms, end, rowSums);
      AddRow<kEqualWeights, 2, 3>(from += terms.rowStride, terms, end += terms.lengthX, rowSums);
      AddRow<kEqualWeights, 3, 3>(from += terms.rowStride, terms, end += terms.lengthX, rowSums);
    }
#pragma GCC unroll 4
    for (int j = 0; j < kBoxRows; ++j) {
#pragma GCC unroll 2
      for (int p = 0; p < kParts; ++p) Store(sums + j * stride + lane + p * kWidth, rowSums.row[j][p]);
    }
  }
}

KESTRUM_KERNEL_TARGET void SumBoxRows(const double* corner, const BoxTerms& terms, double* sums,
                                      std::ptrdiff_t stride) {
  if (terms.equalWeights) {
    SumBoxRowsWith<true>(corner, terms, sums, stride);
  } else {
    SumBoxRowsWith<false>(corner, terms, sums, stride);
  }
}

constexpr SumKernels kSumKernels = {SumList, SumInformed, SumBoxRows};
