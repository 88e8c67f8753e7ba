// Factorisation of kLanes systems side by side: text for numeric/kernel_levels.hpp. Loops over registers are unrolled by
// name, or -O2 would keep the sums in memory.
//
// A part is the lanes of one vector: what follows is done for one part after the other. Elements are kLanes numbers
// apart, in the order of a factor. Products are subtracted one by one, in the order of columns.

constexpr int kTileColumns = 4;
constexpr int kTileRows = kVectorBytes == 64 ? 4 : 2;

// All that a part works on, from its first lane on.
struct Part {
  int n;
  int size;
  const double* a;
  const double* extra;  // one more row under the matrix, on which the elimination works as on the others, or null
  int extraSize;        // its elements, up to `size`; those that follow are zero
  double* l;            // in the order of a factor; the rows that are not yet L are L D, the extra row always
  double* pivots;
  double* inversePivots;
};

KESTRUM_KERNEL_INLINE Vector Larger(Vector x, Vector y) { return x > y ? x : y; }
KESTRUM_KERNEL_INLINE Vector Magnitude(Vector x) { return Larger(x, -x); }

// Element (i, j) of the matrix, or of the extra row if i is `size`.
KESTRUM_KERNEL_INLINE Vector Element(const Part& part, int i, int j) {
  const int count = i < part.n ? part.size : i < part.size ? part.n : part.extraSize;
  if (j >= count) return Vector{};
  return Load<Vector>(i < part.size ? part.a + (std::ptrdiff_t{i} * part.size + j) * kLanes : part.extra + j * kLanes);
}

// Eliminates kColumns columns from `column` on in as many rows, from there on, after the columns before them; with
// those, the rows become L.
template <int kColumns>
KESTRUM_KERNEL_INLINE void FactoriseTile(const Part& part, int column) {
  double* at = part.l + Place(column, 0) * kLanes;
  Vector sums[kColumns][kColumns];
#pragma GCC unroll 8
  for (int r = 0; r < kColumns; ++r) {
#pragma GCC unroll 8
    for (int c = 0; c <= r; ++c) sums[r][c] = Element(part, column + r, column + c);
  }
  for (int k = 0; k < column; ++k) {
    const Vector inverse = Load<Vector>(part.inversePivots + k * kLanes);
    Vector product[kColumns];
    Vector l[kColumns];
#pragma GCC unroll 8
    for (int r = 0; r < kColumns; ++r) {
      product[r] = Load<Vector>(at + r * kLanes);
      l[r] = product[r] * inverse;
      Store(at + r * kLanes, l[r]);
    }
#pragma GCC unroll 8
    for (int r = 0; r < kColumns; ++r) {
#pragma GCC unroll 8
      for (int c = 0; c <= r; ++c) sums[r][c] = SubtractProduct(sums[r][c], product[r], l[c]);
    }
    at += kLanes * kLanes;
  }
#pragma GCC unroll 8
  for (int c = 0; c < kColumns; ++c) {
    const Vector inverse = Broadcast<Vector>(1.0) / sums[c][c];
    Store(part.pivots + (column + c) * kLanes, sums[c][c]);
    Store(part.inversePivots + (column + c) * kLanes, inverse);
    Vector l[kColumns];
#pragma GCC unroll 8
    for (int r = c + 1; r < kColumns; ++r) {
      l[r] = sums[r][c] * inverse;
      Store(at + r * kLanes, l[r]);
    }
#pragma GCC unroll 8
    for (int r = c + 1; r < kColumns; ++r) {
#pragma GCC unroll 8
      for (int j = c + 1; j <= r; ++j) sums[r][j] = SubtractProduct(sums[r][j], sums[r][c], l[j]);
    }
    at += kLanes * kLanes;
  }
}

// Eliminates the columns of FactoriseTile, which are L already, in kRows rows below.
template <int kRows, int kColumns>
KESTRUM_KERNEL_INLINE void EliminateTile(const Part& part, int row, int column) {
  const double* l = part.l + Place(column, 0) * kLanes;
  double* at = part.l + Place(row, 0) * kLanes;
  Vector sums[kRows][kColumns];
#pragma GCC unroll 8
  for (int r = 0; r < kRows; ++r) {
#pragma GCC unroll 8
    for (int c = 0; c < kColumns; ++c) sums[r][c] = Element(part, row + r, column + c);
  }
  for (int k = 0; k < column; ++k) {
    Vector right[kColumns];
#pragma GCC unroll 8
    for (int c = 0; c < kColumns; ++c) right[c] = Load<Vector>(l + c * kLanes);
#pragma GCC unroll 8
    for (int r = 0; r < kRows; ++r) {
      const Vector left = Load<Vector>(at + r * kLanes);
#pragma GCC unroll 8
      for (int c = 0; c < kColumns; ++c) sums[r][c] = SubtractProduct(sums[r][c], left, right[c]);
    }
    l += kLanes * kLanes;
    at += kLanes * kLanes;
  }
#pragma GCC unroll 8
  for (int c = 0; c < kColumns; ++c) {
#pragma GCC unroll 8
    for (int r = 0; r < kRows; ++r) {
#pragma GCC unroll 8
      for (int j = c + 1; j < kColumns; ++j) {
        sums[r][j] = SubtractProduct(sums[r][j], sums[r][c], Load<Vector>(l + j * kLanes));
      }
      Store(at + r * kLanes, sums[r][c]);
    }
    l += kLanes * kLanes;
    at += kLanes * kLanes;
  }
}

// The same for up to kRows rows.
template <int kRows, int kColumns>
KESTRUM_KERNEL_INLINE void EliminateLastTile(int rows, const Part& part, int row, int column) {
  if constexpr (kRows > 0) {
    if (rows == kRows) {
      EliminateTile<kRows, kColumns>(part, row, column);
    } else {
      EliminateLastTile<kRows - 1, kColumns>(rows, part, row, column);
    }
  }
}

// One step of the factorisation: kColumns columns from `column` on.
template <int kColumns>
KESTRUM_KERNEL_TARGET void Eliminate(const Part& part, int column) {
  FactoriseTile<kColumns>(part, column);
  const int rows = part.size + (part.extra != nullptr ? 1 : 0);
  int row = column + kColumns;
  for (; row + kTileRows <= rows; row += kTileRows) EliminateTile<kTileRows, kColumns>(part, row, column);
  EliminateLastTile<kTileRows - 1, kColumns>(rows - row, part, row, column);
}

// Factorises; gives the lanes whose pivots are above rounding.
KESTRUM_KERNEL_INLINE Integers Factorise(const Part& part) {
  int column = 0;
  for (; column + kTileColumns <= part.size; column += kTileColumns) Eliminate<kTileColumns>(part, column);
  switch (part.size - column) {
    case 1:
      Eliminate<1>(part, column);
      break;
    case 2:
      Eliminate<2>(part, column);
      break;
    case 3:
      Eliminate<3>(part, column);
      break;
    default:
      break;
  }
  const double rounding = PivotRounding(part.size);
  Integers sound = ~Integers{};
  for (int i = 0; i < part.n; ++i) {
    sound &= Load<Vector>(part.pivots + i * kLanes) > rounding * Element(part, i, i);
  }
  for (int i = part.n; i < part.size; ++i) {
    // The diagonal element of the Schur complement.
    Vector complement = Vector{};
    for (int k = 0; k < part.n; ++k) {
      const Vector l = Load<Vector>(part.l + Place(i, k) * kLanes);
      complement = complement + l * (l * Load<Vector>(part.pivots + k * kLanes));
    }
    sound &= -Load<Vector>(part.pivots + i * kLanes) > rounding * complement;
  }
  return sound;
}

// Subtracts from kColumns elements of x, from `column` on, their products with the elements below, from the last one up,
// and solves them.
template <int kColumns>
KESTRUM_KERNEL_INLINE void SolveColumns(const Part& part, int column, double* x) {
  Vector sums[kColumns];
#pragma GCC unroll 8
  for (int c = 0; c < kColumns; ++c) sums[c] = Load<Vector>(x + (column + c) * kLanes);
  for (int i = part.size - 1; i >= column + kColumns; --i) {
    const double* const l = part.l + Place(i, column) * kLanes;
    const Vector right = Load<Vector>(x + i * kLanes);
#pragma GCC unroll 8
    for (int c = 0; c < kColumns; ++c) {
      sums[c] = SubtractProduct(sums[c], Load<Vector>(l + c * kLanes * kLanes), right);
    }
  }
#pragma GCC unroll 8
  for (int c = kColumns - 1; c > 0; --c) {
#pragma GCC unroll 8
    for (int above = 0; above < c; ++above) {
      const Vector l = Load<Vector>(part.l + Place(column + c, column + above) * kLanes);
      sums[above] = SubtractProduct(sums[above], l, sums[c]);
    }
  }
#pragma GCC unroll 8
  for (int c = 0; c < kColumns; ++c) Store(x + (column + c) * kLanes, sums[c]);
}

// x = L^-T x.
KESTRUM_KERNEL_INLINE void SolveTransposed(const Part& part, double* x) {
  constexpr int kColumns = 8;
  int column = part.size;
  while (column % kColumns != 0) SolveColumns<1>(part, --column, x);
  while (column > 0) SolveColumns<kColumns>(part, column -= kColumns, x);
}

// Gives the lanes whose solution leaves a small residual. Uses `rest`, as much as x.
KESTRUM_KERNEL_INLINE Integers ResidualIsSmall(const Part& part, const double* x, double* rest) {
  const double kTolerance = 1e-10;
  const int size = part.size;
  for (int i = 0; i < size; ++i) Store(rest + i * kLanes, Element(part, size, i));
  Vector largest = Vector{};  // of the covariances
  for (int i = 0; i < size; ++i) {
    const double* const row = part.a + std::ptrdiff_t{i} * size * kLanes;
    const Vector own = Load<Vector>(x + i * kLanes);
    Vector sum = Load<Vector>(rest + i * kLanes);
    const int count = i < part.n ? i : part.n;
    for (int j = 0; j < count; ++j) {
      const Vector element = Load<Vector>(row + j * kLanes);
      sum = SubtractProduct(sum, element, Load<Vector>(x + j * kLanes));
      Store(rest + j * kLanes, SubtractProduct(Load<Vector>(rest + j * kLanes), element, own));
    }
    const Vector diagonal = Element(part, i, i);
    Store(rest + i * kLanes, SubtractProduct(sum, diagonal, own));
    if (i < part.n) largest = Larger(Larger(largest, diagonal), Magnitude(Element(part, size, i)));
  }
  Integers small = ~Integers{};
  for (int i = 0; i < size; ++i) {
    if (i >= part.n) {
      largest = Magnitude(Element(part, size, i));
      for (int j = 0; j < part.n; ++j) largest = Larger(largest, Magnitude(Element(part, i, j)));
    }
    small &= Magnitude(Load<Vector>(rest + i * kLanes)) <= kTolerance * largest;
  }
  return small;
}

KESTRUM_KERNEL_INLINE Part PartOf(const BatchSystems& systems, int part) {
  const int lane = part * kWidth;
  return {systems.n,
          systems.size,
          systems.a + lane,
          systems.extra == nullptr ? nullptr : systems.extra + lane,
          systems.extraSize,
          systems.l + lane,
          systems.pivots + lane,
          systems.inversePivots + lane};
}

// The lanes of which all bits are set.
KESTRUM_KERNEL_INLINE unsigned LanesOf(Integers mask, int part) {
  unsigned lanes = 0;
  for (int k = 0; k < kWidth; ++k) lanes |= (mask[k] != 0 ? 1U : 0U) << (part * kWidth + k);
  return lanes;
}

// Factorises, and divides the extra row by the pivots into `x`, if there is one.
KESTRUM_KERNEL_TARGET unsigned FactoriseSystems(const BatchSystems& systems, double* x) noexcept {
  unsigned lanes = 0;
  for (int index = 0; index < kLanes / kWidth; ++index) {
    const Part part = PartOf(systems, index);
    lanes |= LanesOf(Factorise(part), index);
    if (part.extra == nullptr) continue;
    for (int i = 0; i < part.size; ++i) {
      const Vector product = Load<Vector>(part.l + Place(part.size, i) * kLanes);
      Store(x + i * kLanes + index * kWidth, product * Load<Vector>(part.inversePivots + i * kLanes));
    }
  }
  return lanes;
}

// Goes on from FactoriseSystems: x becomes the solution.
KESTRUM_KERNEL_TARGET unsigned SolveSystems(const BatchSystems& systems, double* x, double* explained,
                                            double* rest) noexcept {
  unsigned lanes = 0;
  for (int index = 0; index < kLanes / kWidth; ++index) {
    const Part part = PartOf(systems, index);
    double* const own = x + index * kWidth;
    Vector sum = Vector{};
    for (int i = 0; i < part.size; ++i) {
      sum = sum + Load<Vector>(part.l + Place(part.size, i) * kLanes) * Load<Vector>(own + i * kLanes);
    }
    Store(explained + index * kWidth, sum);
    SolveTransposed(part, own);
    lanes |= LanesOf(ResidualIsSmall(part, own, rest + index * kWidth), index);
  }
  return lanes;
}

// Transposes kWidth rows of kWidth numbers, in steps that swap what lies across the diagonal of ever larger squares.
KESTRUM_KERNEL_INLINE void Transpose(Vector* rows) {
  Vector next[kWidth];
#if KESTRUM_KERNEL_BYTES == 64
#pragma GCC unroll 8
  for (int i = 0; i < kWidth; i += 2) {
    next[i] = Shuffle<0, 8, 2, 10, 4, 12, 6, 14>(rows[i], rows[i + 1]);
    next[i + 1] = Shuffle<1, 9, 3, 11, 5, 13, 7, 15>(rows[i], rows[i + 1]);
  }
#pragma GCC unroll 8
  for (int i = 0; i < kWidth; ++i) {
    if ((i & 2) != 0) continue;
    rows[i] = Shuffle<0, 1, 8, 9, 4, 5, 12, 13>(next[i], next[i + 2]);
    rows[i + 2] = Shuffle<2, 3, 10, 11, 6, 7, 14, 15>(next[i], next[i + 2]);
  }
#pragma GCC unroll 8
  for (int i = 0; i < kWidth / 2; ++i) {
    next[i] = Shuffle<0, 1, 2, 3, 8, 9, 10, 11>(rows[i], rows[i + 4]);
    next[i + 4] = Shuffle<4, 5, 6, 7, 12, 13, 14, 15>(rows[i], rows[i + 4]);
  }
#elif KESTRUM_KERNEL_BYTES == 32
#pragma GCC unroll 8
  for (int i = 0; i < kWidth; i += 2) {
    next[i] = Shuffle<0, 4, 2, 6>(rows[i], rows[i + 1]);
    next[i + 1] = Shuffle<1, 5, 3, 7>(rows[i], rows[i + 1]);
  }
  for (int i = 0; i < kWidth; ++i) rows[i] = next[i];
#pragma GCC unroll 8
  for (int i = 0; i < kWidth / 2; ++i) {
    next[i] = Shuffle<0, 1, 4, 5>(rows[i], rows[i + 2]);
    next[i + 2] = Shuffle<2, 3, 6, 7>(rows[i], rows[i + 2]);
  }
#else
  next[0] = Shuffle<0, 2>(rows[0], rows[1]);
  next[1] = Shuffle<1, 3>(rows[0], rows[1]);
#endif
#pragma GCC unroll 8
  for (int i = 0; i < kWidth; ++i) rows[i] = next[i];
}

// Packs the numbers of each lane: kLanes numbers at a time, `count` times; lanes lie `step` apart at `to`.
KESTRUM_KERNEL_TARGET void SeparateLanes(std::ptrdiff_t count, const double* from, double* to,
                                         std::ptrdiff_t step) noexcept {
  for (std::ptrdiff_t k = 0; k < count; ++k) {
    for (int first = 0; first < kLanes; first += kWidth) {
      for (int lane = 0; lane < kLanes; lane += kWidth) {
        Vector square[kWidth];
#pragma GCC unroll 8
        for (int i = 0; i < kWidth; ++i) square[i] = Load<Vector>(from + (k * kLanes + first + i) * kLanes + lane);
        Transpose(square);
#pragma GCC unroll 8
        for (int i = 0; i < kWidth; ++i) Store(to + (lane + i) * step + k * kLanes + first, square[i]);
      }
    }
  }
}
