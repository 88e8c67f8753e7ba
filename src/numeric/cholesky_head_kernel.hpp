// Elimination of the data that systems begin with: text for numeric/kernel_levels.hpp.
//
// Element i of row j has products v(k, i) l(k, j) subtracted one by one, in the order of k, where v is row k once those
// before it are eliminated, and l is v over its pivot.

// Subtracts the first `count` rows from vectors [begin, end) of kRows rows, the first of which is number `first`.
template <int kRows, typename Row>
KESTRUM_KERNEL_INLINE void SubtractRows(int count, int first, const double* factor, int columns, int begin, int end,
                                        const Row& row) {
  for (int i = begin; i < end; i += kWidth) {
    Vector sums[kRows];
#pragma GCC unroll 4
    for (int r = 0; r < kRows; ++r) sums[r] = Load<Vector>(row(first + r) + i);
    const double* l = factor + first;
    for (int k = 0; k < count; ++k, l += columns) {
      const Vector left = Load<Vector>(row(k) + i);
#pragma GCC unroll 4
      for (int r = 0; r < kRows; ++r) sums[r] = SubtractProduct(sums[r], left, Broadcast<Vector>(l[r]));
    }
#pragma GCC unroll 4
    for (int r = 0; r < kRows; ++r) Store(row(first + r) + i, sums[r]);
  }
}

KESTRUM_KERNEL_TARGET HeadOutcome Eliminate(const HeadTable& head, double* factor, double* estimate,
                                            double* explained) noexcept {
  const auto row = [&](int j) KESTRUM_KERNEL_TARGET __attribute__((always_inline)) {
    return head.table + head.start[j];
  };
  const auto right = [&](int j) KESTRUM_KERNEL_TARGET __attribute__((always_inline)) {
    return head.right + j * HeadTable::kTargets;
  };
  constexpr int kTargets = HeadTable::kTargets;
  HeadOutcome outcome;
  for (int t = 0; t < kTargets; ++t) estimate[t] = explained[t] = 0.0;
  for (int k = 0; k < head.head; ++k) {
    double* const v = row(k);
    const double whole = v[k];
    const int begin = k / kLanes * kLanes;
    SubtractRows<1>(k, k, factor, head.columns, begin, head.columns, row);
    const bool sound = v[k] > kLanesRounding * whole;
    if (!sound) {
      bool& fault = v[k] >= kIndefinitePivot * whole ? outcome.redundant : outcome.indefinite;
      fault = true;
    }
    const double inverse = sound ? 1.0 / v[k] : 0.0;
    double* const l = factor + k * head.columns;
    for (int i = begin; i < head.columns; i += kWidth) Store(l + i, Load<Vector>(v + i) * inverse);
    SubtractRows<1>(k, k, factor, head.columns, 0, kTargets, right);
    const Vector value = Broadcast<Vector>(l[head.n + head.q]);
    for (int t = 0; t < kTargets; t += kWidth) {
      const Vector element = Load<Vector>(right(k) + t);
      Store(estimate + t, Load<Vector>(estimate + t) + element * value);
      Store(explained + t, Load<Vector>(explained + t) + element * inverse * element);
    }
  }
  const int rows = head.n + head.q;
  int j = head.head;
  const auto eliminate = [&]<int kRows>() KESTRUM_KERNEL_TARGET __attribute__((always_inline)) {
    SubtractRows<kRows>(head.head, j, factor, head.columns, j / kLanes * kLanes, head.columns, row);
    SubtractRows<kRows>(head.head, j, factor, head.columns, 0, kTargets, right);
    j += kRows;
  };
  while (j < rows && j % 4 != 0) eliminate.template operator()<1>();
  while (j + 4 <= rows) eliminate.template operator()<4>();
  while (j < rows) eliminate.template operator()<1>();
  return outcome;
}
