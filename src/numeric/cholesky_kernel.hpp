// Factorisation and substitution against one factor, for right sides in blocks of kLanes: text for
// numeric/kernel_levels.hpp.
//
// Element i of a right side has products L(i, k) y(k) subtracted one by one, in the order of k, whatever the tiles. Each
// is rounded once, with its subtraction. At AVX2 and AVX-512 this is twice as fast as rounding both; at the baseline,
// where it is a call of the C library, 14 times slower (200 data).
//
// Loops over registers are unrolled by name, or -O2 would keep the sums in memory.

constexpr int kParts = kLanes / kWidth;
// Rows, and blocks of right sides, that are summed side by side: as many as the registers hold.
constexpr int kTileRows = kVectorBytes == 64 ? 8 : 4;
constexpr int kTileBlocks = kVectorBytes == 64 ? 2 : 1;
// The registers of AVX2 hold one block and a half: three blocks, six vectors, are taken in halves.
constexpr int kForwardBlocks = kVectorBytes == 32 ? 3 : kTileBlocks;
constexpr int kMostVectors = kVectorBytes == 32 ? 3 : kTileBlocks * kParts;

// Where vector `v` of a row begins, counted through all blocks, which lie `step` apart.
KESTRUM_KERNEL_INLINE std::ptrdiff_t VectorPlace(int v, std::ptrdiff_t step) {
  return v / kParts * step + v % kParts * kWidth;
}

// kVectors vectors, from kFirst on, of kRows rows of right sides.
template <int kFirst, int kRows, int kVectors>
KESTRUM_KERNEL_INLINE void LoadTile(const double* from, std::ptrdiff_t step, Vector (&tile)[kRows][kVectors]) {
#pragma GCC unroll 8
  for (int r = 0; r < kRows; ++r) {
#pragma GCC unroll 8
    for (int v = 0; v < kVectors; ++v) tile[r][v] = Load<Vector>(from + VectorPlace(kFirst + v, step) + r * kLanes);
  }
}

template <int kFirst, int kRows, int kVectors>
KESTRUM_KERNEL_INLINE void StoreTile(const Vector (&tile)[kRows][kVectors], double* to, std::ptrdiff_t step) {
#pragma GCC unroll 8
  for (int r = 0; r < kRows; ++r) {
#pragma GCC unroll 8
    for (int v = 0; v < kVectors; ++v) Store(to + VectorPlace(kFirst + v, step) + r * kLanes, tile[r][v]);
  }
}

// Subtracts the products of `count` columns, the first at `l` where the tile's rows begin, with rows from `y` on, from
// kRows rows at `out`, in kVectors vectors from kFirst on. With kSolve the rows are those that follow the columns, and
// are solved among themselves too.
template <int kRows, int kVectors, int kFirst, bool kSolve>
KESTRUM_KERNEL_INLINE void SubtractVectors(const double* l, int count, const double* y, std::ptrdiff_t yStep,
                                           double* out, std::ptrdiff_t outStep) {
  Vector sums[kRows][kVectors];
  LoadTile<kFirst>(out, outStep, sums);
  for (int k = 0; k < count; ++k) {
    Vector right[kVectors];
#pragma GCC unroll 8
    for (int v = 0; v < kVectors; ++v) right[v] = Load<Vector>(y + VectorPlace(kFirst + v, yStep));
#pragma GCC unroll 8
    for (int r = 0; r < kRows; ++r) {
      const Vector left = Broadcast<Vector>(l[r]);
#pragma GCC unroll 8
      for (int v = 0; v < kVectors; ++v) sums[r][v] = SubtractProduct(sums[r][v], left, right[v]);
    }
    l += kLanes;
    y += kLanes;
  }
  if constexpr (kSolve) {
#pragma GCC unroll 8
    for (int k = 0; k + 1 < kRows; ++k) {
#pragma GCC unroll 8
      for (int r = k + 1; r < kRows; ++r) {
        const Vector left = Broadcast<Vector>(l[k * kLanes + r]);
#pragma GCC unroll 8
        for (int v = 0; v < kVectors; ++v) sums[r][v] = SubtractProduct(sums[r][v], left, sums[k][v]);
      }
    }
  }
  StoreTile<kFirst>(sums, out, outStep);
}

// The same in kBlocks blocks.
template <int kRows, int kBlocks, bool kSolve, int kFirst = 0>
KESTRUM_KERNEL_INLINE void SubtractTile(const double* l, int count, const double* y, std::ptrdiff_t yStep, double* out,
                                        std::ptrdiff_t outStep) {
  constexpr int kLeft = kBlocks * kParts - kFirst;
  constexpr int kVectors = kLeft < kMostVectors ? kLeft : kMostVectors;
  SubtractVectors<kRows, kVectors, kFirst, kSolve>(l, count, y, yStep, out, outStep);
  if constexpr (kVectors < kLeft) {
    SubtractTile<kRows, kBlocks, kSolve, kFirst + kVectors>(l, count, y, yStep, out, outStep);
  }
}

// The same for up to kRows rows.
template <int kRows, int kBlocks, bool kSolve>
KESTRUM_KERNEL_INLINE void SubtractLastTile(int rows, const double* l, int count, const double* y, std::ptrdiff_t yStep,
                                            double* out, std::ptrdiff_t outStep) {
  if constexpr (kRows > 0) {
    if (rows == kRows) {
      SubtractTile<kRows, kBlocks, kSolve>(l, count, y, yStep, out, outStep);
    } else {
      SubtractLastTile<kRows - 1, kBlocks, kSolve>(rows, l, count, y, yStep, out, outStep);
    }
  }
}

// Rows [row, rowEnd) of kBlocks blocks: subtracts the products of columns [column, columnEnd), or of [column, row) and
// the rows' own if kSolve. `row` is a multiple of kLanes.
template <int kBlocks, bool kSolve>
KESTRUM_KERNEL_TARGET void SubtractRows(const double* panels, int row, int rowEnd, int column, int columnEnd,
                                        const double* y, std::ptrdiff_t yStep, double* out, std::ptrdiff_t outStep) {
  for (int i = row; i < rowEnd; i += kTileRows) {
    const double* const l = panels + PanelStart(i / kLanes) + std::ptrdiff_t{column} * kLanes + i % kLanes;
    const int count = (kSolve ? i : columnEnd) - column;
    if (rowEnd - i >= kTileRows) {
      SubtractTile<kTileRows, kBlocks, kSolve>(l, count, y, yStep, out + i * kLanes, outStep);
    } else {
      SubtractLastTile<kTileRows - 1, kBlocks, kSolve>(rowEnd - i, l, count, y, yStep, out + i * kLanes, outStep);
    }
  }
}

// Subtracts as SubtractRows does in all of nblock blocks.
template <bool kSolve>
KESTRUM_KERNEL_INLINE void SubtractRowsOfBlocks(const double* panels, int row, int rowEnd, int column, int columnEnd,
                                                std::ptrdiff_t nblock, const double* y, double* out,
                                                std::ptrdiff_t step) {
  std::ptrdiff_t block = 0;
  for (; block + kForwardBlocks <= nblock; block += kForwardBlocks) {
    SubtractRows<kForwardBlocks, kSolve>(panels, row, rowEnd, column, columnEnd, y + block * step, step,
                                         out + block * step, step);
  }
  for (; block < nblock; ++block) {
    SubtractRows<1, kSolve>(panels, row, rowEnd, column, columnEnd, y + block * step, step, out + block * step, step);
  }
}

// y = L^-1 y for nblock blocks.
KESTRUM_KERNEL_TARGET void SolveForward(int size, const double* panels, std::ptrdiff_t nblock, double* y) noexcept {
  const std::ptrdiff_t step = std::ptrdiff_t{size} * kLanes;
  for (int row = 0; row < size; row += kChunk) {
    const int end = row + kChunk < size ? row + kChunk : size;
    for (int column = 0; column < row; column += kChunk) {
      SubtractRowsOfBlocks<false>(panels, row, end, column, column + kChunk, nblock, y + column * kLanes, y, step);
    }
    SubtractRowsOfBlocks<true>(panels, row, end, row, end, nblock, y + row * kLanes, y, step);
  }
}

// For each right side y: the sum of y times values, if there are values, and of y squared times inverse pivots.
KESTRUM_KERNEL_TARGET void SumProducts(int size, const double* inversePivots, const double* values,
                                       std::ptrdiff_t nblock, const double* y, double* estimate,
                                       double* explained) noexcept {
  for (std::ptrdiff_t part = 0; part < nblock * kParts; ++part) {
    const double* const first = y + part / kParts * size * kLanes + part % kParts * kWidth;
    Vector sum = Vector{};
    Vector square = Vector{};
    for (int i = 0; i < size; ++i) {
      const Vector element = Load<Vector>(first + i * kLanes);
      if (values != nullptr) sum = sum + element * values[i];
      square = square + element * inversePivots[i] * element;
    }
    if (values != nullptr) Store(estimate + part * kWidth, sum);
    Store(explained + part * kWidth, square);
  }
}

// Subtracts from kColumns rows of kBlocks right sides, from `column` on and within a panel, their products with the rows
// below, from the last one up, and solves them.
template <int kColumns, int kBlocks>
KESTRUM_KERNEL_INLINE void SolveColumns(int size, const double* panels, int column, double* x, std::ptrdiff_t step) {
  constexpr int kVectors = kBlocks * kParts;
  Vector sums[kColumns][kVectors];
  LoadTile<0>(x + column * kLanes, step, sums);
  for (int i = size - 1; i >= column + kColumns; --i) {
    const double* const l = panels + PanelStart(i / kLanes) + column * kLanes + i % kLanes;
    Vector right[kVectors];
#pragma GCC unroll 8
    for (int v = 0; v < kVectors; ++v) right[v] = Load<Vector>(x + VectorPlace(v, step) + i * kLanes);
#pragma GCC unroll 8
    for (int c = 0; c < kColumns; ++c) {
      const Vector left = Broadcast<Vector>(l[c * kLanes]);
#pragma GCC unroll 8
      for (int v = 0; v < kVectors; ++v) sums[c][v] = SubtractProduct(sums[c][v], left, right[v]);
    }
  }
  const double* const l = panels + PanelStart(column / kLanes) + column * kLanes + column % kLanes;
#pragma GCC unroll 8
  for (int c = kColumns - 1; c > 0; --c) {
#pragma GCC unroll 8
    for (int above = 0; above < c; ++above) {
      const Vector left = Broadcast<Vector>(l[above * kLanes + c]);
#pragma GCC unroll 8
      for (int v = 0; v < kVectors; ++v) sums[above][v] = SubtractProduct(sums[above][v], left, sums[c][v]);
    }
  }
  StoreTile<0>(sums, x + column * kLanes, step);
}

template <int kBlocks>
KESTRUM_KERNEL_TARGET void SolveBackward(int size, const double* panels, double* x, std::ptrdiff_t step) {
  int column = size;
  while (column % kTileRows != 0) SolveColumns<1, kBlocks>(size, panels, --column, x, step);
  while (column > 0) {
    column -= kTileRows;
    SolveColumns<kTileRows, kBlocks>(size, panels, column, x, step);
  }
}

// x = L^-T D^-1 x for nblock blocks.
KESTRUM_KERNEL_TARGET void SolveTransposed(int size, const double* panels, const double* inversePivots,
                                           std::ptrdiff_t nblock, double* x) noexcept {
  const std::ptrdiff_t step = std::ptrdiff_t{size} * kLanes;
  for (std::ptrdiff_t i = 0; i < nblock * size; ++i) {
    for (int part = 0; part < kParts; ++part) {
      double* const at = x + i * kLanes + part * kWidth;
      Store(at, Load<Vector>(at) * inversePivots[i % size]);
    }
  }
  std::ptrdiff_t block = 0;
  for (; block + kTileBlocks <= nblock; block += kTileBlocks) {
    SolveBackward<kTileBlocks>(size, panels, x + block * step, step);
  }
  for (; block < nblock; ++block) SolveBackward<1>(size, panels, x + block * step, step);
}

// to = from times the inverse pivots, for `count` columns of a panel.
KESTRUM_KERNEL_INLINE void DivideByPivots(int count, const double* inversePivots, const double* from, double* to) {
  for (int k = 0; k < count; ++k) {
    for (int part = 0; part < kParts; ++part) {
      const int at = k * kLanes + part * kWidth;
      Store(to + at, Load<Vector>(from + at) * inversePivots[k]);
    }
  }
}

// Whether the factorisation may go on without the column of a pivot that is not sound, which is noted.
KESTRUM_KERNEL_INLINE bool MayLeaveOut(const DenseSystem& system, int column, double pivot, double diagonal) {
  if (system.flaws == nullptr) return false;
  const bool redundant = column < system.n && pivot >= kIndefinitePivot * diagonal;
  if (redundant) {
    ++system.flaws->redundant;
  } else {
    (column < system.n ? system.flaws->indefinite : system.flaws->dependent) = true;
  }
  return redundant;
}

// Factorises the tile of a panel on the diagonal, of `rows` rows from `row` on: true if the pivots are above rounding.
// The inverse pivots hold the diagonal elements at first.
KESTRUM_KERNEL_INLINE bool FactoriseDiagonal(const DenseSystem& system, int row, int rows, double* tile) {
  for (int j = 0; j < rows; ++j) {
    const double pivot = tile[j * kLanes + j];
    double& inverse = system.inversePivots[row + j];
    const bool sound = row + j < system.n ? pivot > system.rounding * inverse : pivot < 0.0;
    if (!sound && !MayLeaveOut(system, row + j, pivot, inverse)) return false;
    inverse = sound ? 1.0 / pivot : 0.0;
    alignas(64) double l[kLanes];
    DivideByPivots(1, &inverse, tile + j * kLanes, l);
    for (int below = j + 1; below < rows; ++below) {
      for (int part = 0; part < kParts; ++part) {
        double* const at = tile + below * kLanes + part * kWidth;
        const Vector column = Load<Vector>(tile + j * kLanes + part * kWidth);
        Store(at, SubtractProduct(Load<Vector>(at), Broadcast<Vector>(l[below]), column));
      }
    }
    for (int part = 0; part < kParts; ++part) {
      Store(tile + j * kLanes + part * kWidth, Load<Vector>(l + part * kWidth));
    }
  }
  return true;
}

// Factorises the panels of rows [begin, end), from column `begin` on: true if all pivots are above rounding.
KESTRUM_KERNEL_TARGET bool FactoriseChunk(const DenseSystem& system, int begin, int end) noexcept {
  alignas(64) double l[kChunk * kLanes];
  for (int row = begin; row < end; row += kLanes) {
    double* const panel = system.panels + PanelStart(row / kLanes);
    double* const first = panel + begin * kLanes;
    const int count = row - begin;
    SubtractRows<1, true>(system.panels, begin, row, begin, row, first, 0, panel, 0);
    DivideByPivots(count, system.inversePivots + begin, first, l);
    for (int r = 0; r < kLanes; r += kTileRows) {
      SubtractTile<kTileRows, 1, false>(l + r, count, first, 0, panel + (row + r) * kLanes, 0);
    }
    for (int k = 0; k < count * kLanes; k += kWidth) Store(first + k, Load<Vector>(l + k));
    const int rows = end - row < kLanes ? end - row : kLanes;
    if (!FactoriseDiagonal(system, row, rows, panel + row * kLanes)) return false;
  }
  return true;
}

// Solves for columns [begin, end), factorised, of a panel: they become L D.
KESTRUM_KERNEL_TARGET void SolvePanel(const DenseSystem& system, int panel, int begin, int end) noexcept {
  double* const first = system.panels + PanelStart(panel);
  SubtractRows<1, true>(system.panels, begin, end, begin, end, first + begin * kLanes, 0, first, 0);
}

// Subtracts from panels [panel, panelEnd) the products of columns [begin, end) with each other, for the columns from
// `end` on.
KESTRUM_KERNEL_TARGET void UpdatePanels(const DenseSystem& system, int panel, int panelEnd, int begin,
                                        int end) noexcept {
  constexpr std::ptrdiff_t kStep = kChunk * kLanes;
  alignas(64) double l[kGroup * kStep];
  for (int p = panel; p < panelEnd; ++p) {
    DivideByPivots(end - begin, system.inversePivots + begin, system.panels + PanelStart(p) + begin * kLanes,
                   l + (p - panel) * kStep);
  }
  for (int row = end; row < system.size && row < panelEnd * kLanes; row += kChunk) {
    const int chunkEnd = row + kChunk < system.size ? row + kChunk : system.size;
    for (int p = panel; p < panelEnd; p += kTileBlocks) {
      const int tileEnd = p + kTileBlocks < panelEnd ? p + kTileBlocks : panelEnd;
      int from = row;
      for (int first = p; first < tileEnd; ++first) {
        // Panel `first` ends here, and with it those columns that it shares with the panels after it.
        const int to = (first + 1) * kLanes < chunkEnd ? (first + 1) * kLanes : chunkEnd;
        if (from >= to) continue;
        const double* const y = l + (first - panel) * kStep;
        double* const out = system.panels + PanelStart(first);
        if (tileEnd - first == kTileBlocks) {
          const std::ptrdiff_t step = PanelStart(first + 1) - PanelStart(first);
          SubtractRows<kTileBlocks, false>(system.panels, from, to, begin, end, y, kStep, out, step);
        } else {
          SubtractRows<1, false>(system.panels, from, to, begin, end, y, 0, out, 0);
        }
        from = to;
      }
    }
  }
}

// Divides columns [0, end) of a panel by the pivots.
KESTRUM_KERNEL_TARGET void ScalePanel(const DenseSystem& system, int panel, int end) noexcept {
  double* const first = system.panels + PanelStart(panel);
  DivideByPivots(end, system.inversePivots, first, first);
}
