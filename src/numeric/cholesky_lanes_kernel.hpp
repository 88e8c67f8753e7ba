// Factorisation and substitution for kLanes systems side by side: text for numeric/kernel_levels.hpp.
//
// The row of a matrix and a right side are treated alike: element j has products v(k) L(j, k) subtracted one by one, in
// the order of k, whatever the tiles; a row of the factor is then v D^-1. Loops over registers are unrolled by name, or
// -O2 would keep the sums in memory.

constexpr int kParts = kLanes / kWidth;
// Columns that are summed side by side, for up to four rows: as many as the registers hold.
constexpr int kTileColumns = kVectorBytes == 64 ? 4 : 2;

// Elements [column, column + kColumns) of kRows rows, of which those before are done.
template <int kRows, int kColumns>
KESTRUM_KERNEL_INLINE void SolveTile(const double* factor, int column, double* v, std::ptrdiff_t step) {
  const double* l[kColumns];
#pragma GCC unroll 4
  for (int c = 0; c < kColumns; ++c) l[c] = factor + RowStart(column + c);
#pragma GCC unroll 4
  for (int part = 0; part < kParts; ++part) {
    double* const row = v + part * kWidth;
    Vector sums[kRows][kColumns];
#pragma GCC unroll 4
    for (int r = 0; r < kRows; ++r) {
#pragma GCC unroll 4
      for (int c = 0; c < kColumns; ++c) sums[r][c] = Load<Vector>(row + r * step + (column + c) * kLanes);
    }
    for (std::ptrdiff_t k = 0; k < std::ptrdiff_t{column} * kLanes; k += kLanes) {
      Vector left[kRows];
#pragma GCC unroll 4
      for (int r = 0; r < kRows; ++r) left[r] = Load<Vector>(row + r * step + k);
#pragma GCC unroll 4
      for (int c = 0; c < kColumns; ++c) {
        const Vector right = Load<Vector>(l[c] + k + part * kWidth);
#pragma GCC unroll 4
        for (int r = 0; r < kRows; ++r) sums[r][c] = SubtractProduct(sums[r][c], left[r], right);
      }
    }
#pragma GCC unroll 4
    for (int k = 0; k + 1 < kColumns; ++k) {
#pragma GCC unroll 4
      for (int c = k + 1; c < kColumns; ++c) {
        const Vector right = Load<Vector>(l[c] + (column + k) * kLanes + part * kWidth);
#pragma GCC unroll 4
        for (int r = 0; r < kRows; ++r) sums[r][c] = SubtractProduct(sums[r][c], sums[r][k], right);
      }
    }
#pragma GCC unroll 4
    for (int r = 0; r < kRows; ++r) {
#pragma GCC unroll 4
      for (int c = 0; c < kColumns; ++c) Store(row + r * step + (column + c) * kLanes, sums[r][c]);
    }
  }
}

// Elements [0, columns) of kRows rows.
template <int kRows>
KESTRUM_KERNEL_INLINE void SolveRows(const double* factor, int columns, double* v, std::ptrdiff_t step) {
  int column = 0;
  for (; column + kTileColumns <= columns; column += kTileColumns) {
    SolveTile<kRows, kTileColumns>(factor, column, v, step);
  }
  for (; column < columns; ++column) SolveTile<kRows, 1>(factor, column, v, step);
}

// The tile of rows [first, first + kRows) on the diagonal, from v, those rows before their division by the pivots.
template <int kRows>
KESTRUM_KERNEL_INLINE void FactoriseDiagonal(int n, int first, const double* v, std::ptrdiff_t step,
                                             const double* diagonal, double* a, LanesOutcome* outcome) {
  double* rows[kRows];
#pragma GCC unroll 4
  for (int r = 0; r < kRows; ++r) rows[r] = a + RowStart(first + r);
  for (int part = 0; part < kParts; ++part) {
    const std::ptrdiff_t offset = part * kWidth;
    Vector sums[kRows][kRows];
    Vector whole[kRows];  // the pivots, before anything is subtracted; of a drift row, before other drift rows are
#pragma GCC unroll 4
    for (int r = 0; r < kRows; ++r) {
#pragma GCC unroll 4
      for (int c = 0; c <= r; ++c) {
        const bool given = first + c < n || diagonal != nullptr;
        sums[r][c] = given ? Load<Vector>(rows[r] + (first + c) * kLanes + offset) : Vector{};
      }
      const bool begun = first + r < n && diagonal != nullptr;
      whole[r] = begun ? Load<Vector>(diagonal + (first + r) * kLanes + offset) : sums[r][r];
    }
    const auto completeDriftRows = [&]() KESTRUM_KERNEL_TARGET __attribute__((always_inline)) {
#pragma GCC unroll 4
      for (int r = 0; r < kRows; ++r) whole[r] = first + r < n ? whole[r] : sums[r][r];
    };
    for (int k = 0; k < first; ++k) {
      if (k == n) completeDriftRows();
      const std::ptrdiff_t at = k * kLanes + offset;
      const Vector inverse = Load<Vector>(a + RowStart(k) + at);
      Vector right[kRows];
#pragma GCC unroll 4
      for (int c = 0; c < kRows; ++c) {
        right[c] = Load<Vector>(v + c * step + at) * inverse;
        Store(rows[c] + at, right[c]);
      }
#pragma GCC unroll 4
      for (int r = 0; r < kRows; ++r) {
        const Vector left = Load<Vector>(v + r * step + at);
#pragma GCC unroll 4
        for (int c = 0; c <= r; ++c) sums[r][c] = SubtractProduct(sums[r][c], left, right[c]);
      }
    }
#pragma GCC unroll 4
    for (int c = 0; c < kRows; ++c) {
      if (first + c == n) completeDriftRows();
      const bool drift = first + c >= n;
      const Vector pivot = sums[c][c];
      const Vector extent = drift ? -pivot : pivot;
      const Vector rounding = kLanesRounding * (drift ? -whole[c] : whole[c]);
      const Integers sound = extent > rounding;
      const Integers slight = extent >= kIndefinitePivot * whole[c];
      const Vector inverse = sound ? Broadcast<Vector>(1.0) / pivot : Vector{};
      Store(rows[c] + (first + c) * kLanes + offset, inverse);
      for (int lane = 0; lane < kWidth; ++lane) {
        if (sound[lane] != 0) continue;
        unsigned& lanes = drift ? outcome->dependent : slight[lane] != 0 ? outcome->redundant : outcome->indefinite;
        lanes |= 1U << (offset + lane);
      }
      Vector l[kRows];
#pragma GCC unroll 4
      for (int r = c + 1; r < kRows; ++r) {
        l[r] = sums[r][c] * inverse;
        Store(rows[r] + (first + c) * kLanes + offset, l[r]);
#pragma GCC unroll 4
        for (int d = c + 1; d <= r; ++d) sums[r][d] = SubtractProduct(sums[r][d], sums[r][c], l[d]);
      }
    }
  }
}

// Rows [first, first + kRows) of the factor.
template <int kRows>
KESTRUM_KERNEL_TARGET void FactoriseRows(int n, int size, int first, const double* diagonal, double* a, double* work,
                                         LanesOutcome* outcome) {
  const std::ptrdiff_t step = std::ptrdiff_t{size} * kLanes;
  for (int r = 0; r < kRows; ++r) {
    const double* const row = a + RowStart(first + r);
    for (int k = 0; k < first * kLanes; k += kWidth) {
      Store(work + r * step + k, first + r < n || k < n * kLanes ? Load<Vector>(row + k) : Vector{});
    }
  }
  SolveRows<kRows>(a, first, work, step);
  FactoriseDiagonal<kRows>(n, first, work, step, diagonal, a, outcome);
}

// Marks the lanes where a pivot of the drift may be nothing but rounding of the columns before it: w[j] times column j is what
// column j accounts for, so that errors of its elements count w[j]^2 times. Uses 3 * q * kLanes numbers of work.
KESTRUM_KERNEL_TARGET void FindDependent(int n, int q, const double* a, double* work, LanesOutcome* outcome) {
  double* const whole = work;  // the diagonal of the Schur complement
  double* const pivots = work + q * kLanes;
  double* const w = pivots + q * kLanes;
  for (int offset = 0; offset < kLanes; offset += kWidth) {
    for (int i = 0; i < q; ++i) {
      const double* const row = a + RowStart(n + i) + n * kLanes + offset;
      const Vector pivot = Broadcast<Vector>(-1.0) / Load<Vector>(row + i * kLanes);
      Vector own = pivot;
      Vector before = Vector{};
      for (int j = i - 1; j >= 0; --j) {
        const Vector l = Load<Vector>(row + j * kLanes);
        own = own + l * (l * Load<Vector>(pivots + j * kLanes));
        Vector part = l;
        for (int k = j + 1; k < i; ++k) {
          part = SubtractProduct(part, Load<Vector>(a + RowStart(n + k) + (n + j) * kLanes + offset),
                                 Load<Vector>(w + k * kLanes));
        }
        Store(w + j * kLanes, part);
        before = before + part * (part * Load<Vector>(whole + j * kLanes));
      }
      Store(pivots + i * kLanes, pivot);
      Store(whole + i * kLanes, own);
      const Integers sound = pivot > kLanesRounding * (own + before);
      for (int lane = 0; lane < kWidth; ++lane) {
        if (sound[lane] == 0) outcome->dependent |= 1U << (offset + lane);
      }
    }
  }
}

KESTRUM_KERNEL_TARGET LanesOutcome Factorise(int n, int q, const double* diagonal, double* a, double* work) noexcept {
  const int size = n + q;
  LanesOutcome outcome;
  int first = 0;
  for (; first + 4 <= size; first += 4) FactoriseRows<4>(n, size, first, diagonal, a, work, &outcome);
  if (size - first == 3) FactoriseRows<3>(n, size, first, diagonal, a, work, &outcome);
  if (size - first == 2) FactoriseRows<2>(n, size, first, diagonal, a, work, &outcome);
  if (size - first == 1) FactoriseRows<1>(n, size, first, diagonal, a, work, &outcome);
  if (q > 1) FindDependent(n, q, a, work, &outcome);
  return outcome;
}

// x = L^-1 x for some rounds.
KESTRUM_KERNEL_TARGET void SolveForward(int size, const double* factor, int nround, double* x) noexcept {
  const std::ptrdiff_t step = std::ptrdiff_t{size} * kLanes;
  int r = 0;
  for (; r + 4 <= nround; r += 4) SolveRows<4>(factor, size, x + r * step, step);
  if (nround - r == 3) SolveRows<3>(factor, size, x + r * step, step);
  if (nround - r == 2) SolveRows<2>(factor, size, x + r * step, step);
  if (nround - r == 1) SolveRows<1>(factor, size, x + r * step, step);
}

// Adds for each right side y the sum of y times values, if there are values, and of y squared times the inverse pivots.
KESTRUM_KERNEL_TARGET void SumProducts(int size, const double* factor, const double* values, int nround,
                                       const double* y, double* estimate, double* explained) noexcept {
  for (int round = 0; round < nround; ++round) {
    for (int offset = 0; offset < kLanes; offset += kWidth) {
      const std::ptrdiff_t at = round * kLanes + offset;
      Vector sum = values != nullptr ? Load<Vector>(estimate + at) : Vector{};
      Vector square = Load<Vector>(explained + at);
      for (int i = 0; i < size; ++i) {
        const Vector element = Load<Vector>(y + i * kLanes + offset);
        if (values != nullptr) sum = sum + element * Load<Vector>(values + i * kLanes + offset);
        square = square + element * Load<Vector>(factor + RowStart(i) + i * kLanes + offset) * element;
      }
      if (values != nullptr) Store(estimate + at, sum);
      Store(explained + at, square);
    }
    y += size * kLanes;
  }
}
