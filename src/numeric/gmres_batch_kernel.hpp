// The batch form of GMRES: text for numeric/kernel_levels.hpp. Loops over registers are unrolled by name, or -O2 would
// keep the sums in memory.
//
// Every lane does the arithmetic of GmresSolver in its order (gmres_body.hpp); nothing is summed across lanes. A batch
// has kLanes lanes, or twice as many: they fill two registers of AVX-512, and the sum of one goes on while that of the
// other waits for its last addition.

template <int kBatch>
constexpr int kParts = kBatch / kWidth;

// Rows of a matrix that are summed side by side: as many as the registers hold.
template <int kBatch>
constexpr int kRows = kVectorBytes == 64 ? (kBatch == kLanes ? 7 : 5) : (kVectorBytes == 32 ? 10 : 12) / kParts<kBatch>;

// Rows of the vector at hand that stay in registers while it is made orthogonal.
constexpr int kKept = kVectorBytes == 64 ? 12 : (kVectorBytes == 32 ? 4 : 0);

// All memory of a batch is aligned: the baseline takes such vectors as operands without a load of their own.
typedef Vector AlignedVector __attribute__((may_alias));
typedef Integers AlignedIntegers __attribute__((may_alias));

// Bit `lane` for each element that is not zero.
KESTRUM_KERNEL_INLINE unsigned SetLanes(Integers x) {
#if KESTRUM_KERNEL_BYTES == 64
  return _mm512_test_epi64_mask((__m512i)x, (__m512i)x);
#elif KESTRUM_KERNEL_BYTES == 32
  return static_cast<unsigned>(_mm256_movemask_pd((__m256d)x));
#else
  unsigned set = 0;
  for (int lane = 0; lane < kWidth; ++lane) set |= static_cast<unsigned>(x[lane] != 0) << lane;
  return set;
#endif
}

// One number of each lane, in as many registers as it takes.
template <int kBatch>
struct Lanes {
  Vector part[kParts<kBatch>];
};

template <int kBatch>
KESTRUM_KERNEL_INLINE Lanes<kBatch> Load(const double* from) {
  Lanes<kBatch> x;
#pragma GCC unroll 16
  for (int k = 0; k < kParts<kBatch>; ++k) x.part[k] = *(const AlignedVector*)(from + k * kWidth);
  return x;
}

template <int kBatch>
KESTRUM_KERNEL_INLINE void Store(double* to, const Lanes<kBatch>& x) {
#pragma GCC unroll 16
  for (int k = 0; k < kParts<kBatch>; ++k) *(AlignedVector*)(to + k * kWidth) = x.part[k];
}

template <int kBatch>
KESTRUM_KERNEL_INLINE Lanes<kBatch> Broadcast(double value) {
  Lanes<kBatch> x;
#pragma GCC unroll 16
  for (int k = 0; k < kParts<kBatch>; ++k) x.part[k] = Broadcast<Vector>(value);
  return x;
}

template <int kBatch>
KESTRUM_KERNEL_INLINE Lanes<kBatch> operator+(const Lanes<kBatch>& x, const Lanes<kBatch>& y) {
  Lanes<kBatch> z;
#pragma GCC unroll 16
  for (int k = 0; k < kParts<kBatch>; ++k) z.part[k] = x.part[k] + y.part[k];
  return z;
}

template <int kBatch>
KESTRUM_KERNEL_INLINE Lanes<kBatch> operator-(const Lanes<kBatch>& x, const Lanes<kBatch>& y) {
  Lanes<kBatch> z;
#pragma GCC unroll 16
  for (int k = 0; k < kParts<kBatch>; ++k) z.part[k] = x.part[k] - y.part[k];
  return z;
}

template <int kBatch>
KESTRUM_KERNEL_INLINE Lanes<kBatch> operator*(const Lanes<kBatch>& x, const Lanes<kBatch>& y) {
  Lanes<kBatch> z;
#pragma GCC unroll 16
  for (int k = 0; k < kParts<kBatch>; ++k) z.part[k] = x.part[k] * y.part[k];
  return z;
}

template <int kBatch>
KESTRUM_KERNEL_INLINE Lanes<kBatch> operator/(const Lanes<kBatch>& x, const Lanes<kBatch>& y) {
  Lanes<kBatch> z;
#pragma GCC unroll 16
  for (int k = 0; k < kParts<kBatch>; ++k) z.part[k] = x.part[k] / y.part[k];
  return z;
}

template <int kBatch>
KESTRUM_KERNEL_INLINE Lanes<kBatch> SquareRoot(const Lanes<kBatch>& x) {
  Lanes<kBatch> z;
#pragma GCC unroll 16
  for (int k = 0; k < kParts<kBatch>; ++k) z.part[k] = SquareRoot(x.part[k]);
  return z;
}

// The lanes of `x` where the mask is set, those of `y` elsewhere.
template <int kBatch>
KESTRUM_KERNEL_INLINE Lanes<kBatch> Select(const long long* mask, const Lanes<kBatch>& x, const Lanes<kBatch>& y) {
  Lanes<kBatch> z;
#pragma GCC unroll 16
  for (int k = 0; k < kParts<kBatch>; ++k)
    z.part[k] = *(const AlignedIntegers*)(mask + k * kWidth) ? x.part[k] : y.part[k];
  return z;
}

// A matrix with kBatch numbers for each element, whose columns are `stride` numbers apart.
struct Columns {
  static constexpr bool kSymmetric = false;
  const double* start;
  std::ptrdiff_t stride;
};

// A symmetric one: elements left of the rows that are summed are read above the diagonal, so that about half of the
// matrix comes and goes in the nearest cache.
struct SymmetricColumns : Columns {
  static constexpr bool kSymmetric = true;
  SymmetricColumns(const double* at, std::ptrdiff_t apart) : Columns{at, apart} {}
};

// A matrix that all lanes share, whose rows are `stride` numbers apart.
struct SharedRows {
  static constexpr bool kSymmetric = false;
  const double* start;
  std::ptrdiff_t stride;
};

// Element (row, j), and r rows below it.
template <int kBatch>
KESTRUM_KERNEL_INLINE Lanes<kBatch> Element(const Columns& a, int row, int j, int r) {
  return Load<kBatch>(a.start + j * a.stride + row * kBatch + r * kBatch);
}
template <int kBatch>
KESTRUM_KERNEL_INLINE Lanes<kBatch> Element(const SharedRows& a, int row, int j, int r) {
  return Broadcast<kBatch>(a.start[(row + r) * a.stride + j]);
}

// Hands the sums of kCount rows of A x, over `columns` columns, to use(row, sum) in the order of the rows.
template <int kBatch, int kCount, typename Matrix, typename Use>
KESTRUM_KERNEL_INLINE void SumRows(const Matrix& a, int row, int columns, const double* x, Use& use) {
  Lanes<kBatch> sums[kCount];
#pragma GCC unroll 16
  for (int r = 0; r < kCount; ++r) sums[r] = Broadcast<kBatch>(0.0);
  int j = 0;
  if constexpr (Matrix::kSymmetric) {
    for (; j < row; ++j) {
      const Lanes<kBatch> factor = Load<kBatch>(x + j * kBatch);
#pragma GCC unroll 16
      for (int r = 0; r < kCount; ++r)
        sums[r] = sums[r] + Load<kBatch>(a.start + (row + r) * a.stride + j * kBatch) * factor;
    }
  }
  for (; j < columns; ++j) {
    const Lanes<kBatch> factor = Load<kBatch>(x + j * kBatch);
#pragma GCC unroll 16
    for (int r = 0; r < kCount; ++r) sums[r] = sums[r] + Element<kBatch>(a, row, j, r) * factor;
  }
#pragma GCC unroll 16
  for (int r = 0; r < kCount; ++r) use(row + r, sums[r]);
}

// The same for `count` rows, at most kMost.
template <int kBatch, int kMost, typename Matrix, typename Use>
KESTRUM_KERNEL_INLINE void SumSomeRows(const Matrix& a, int row, int count, int columns, const double* x, Use& use) {
  if constexpr (kMost > 0) {
    if (count == kMost) {
      SumRows<kBatch, kMost>(a, row, columns, x, use);
    } else {
      SumSomeRows<kBatch, kMost - 1>(a, row, count, columns, x, use);
    }
  }
}

// All rows, in blocks of about equal size: few rows would wait for their additions.
template <int kBatch, typename Matrix, typename Use>
KESTRUM_KERNEL_INLINE void Product(const Matrix& a, int rows, int columns, const double* x, Use& use) {
  int row = 0;
  for (int nblock = (rows + kRows<kBatch> - 1) / kRows<kBatch>; nblock > 0; --nblock) {
    const int count = (rows - row + nblock - 1) / nblock;
    SumSomeRows<kBatch, kRows<kBatch>>(a, row, count, columns, x, use);
    row += count;
  }
}

// w = A v, with w . first summed on the way.
template <int kBatch>
struct StoreAndDot {
  double* w;
  const double* first;
  Lanes<kBatch> dot;
  KESTRUM_KERNEL_INLINE void operator()(int i, const Lanes<kBatch>& sum) {
    Store(w + i * kBatch, sum);
    dot = dot + sum * Load<kBatch>(first + i * kBatch);
  }
};

// r = b - A x, with its square summed on the way.
template <int kBatch>
struct StoreResidual {
  double* r;
  const double* b;
  Lanes<kBatch> square;
  KESTRUM_KERNEL_INLINE void operator()(int i, const Lanes<kBatch>& sum) {
    const Lanes<kBatch> value = Load<kBatch>(b + i * kBatch) - sum;
    Store(r + i * kBatch, value);
    square = square + value * value;
  }
};

// x = x + sum, in the lanes that still iterate.
template <int kBatch>
struct AddToSolution {
  double* x;
  const long long* mask;
  KESTRUM_KERNEL_INLINE void operator()(int i, const Lanes<kBatch>& sum) {
    const Lanes<kBatch> old = Load<kBatch>(x + i * kBatch);
    Store(x + i * kBatch, Select(mask, old + sum, old));
  }
};

// Makes w orthogonal to the vectors of the basis `v` one after the other, `count` of them and n numbers long; `dot` is
// the product with the first, and the factors of what was subtracted go to `h`. Gives the square of the rest. The first
// kRowsKept rows of w stay in registers.
template <int kBatch, int kRowsKept>
KESTRUM_KERNEL_INLINE Lanes<kBatch> Orthogonalize(int n, int count, double* w, const double* v, Lanes<kBatch> dot,
                                                  double* h) {
  Lanes<kBatch> kept[kRowsKept + 1];
#pragma GCC unroll 16
  for (int i = 0; i < kRowsKept; ++i) kept[i] = Load<kBatch>(w + i * kBatch);
  for (int k = 0; k < count - 1; ++k, h += kBatch, v += n * kBatch) {
    const Lanes<kBatch> factor = dot;
    Store(h, factor);
    const double* const next = v + n * kBatch;
    dot = Broadcast<kBatch>(0.0);
#pragma GCC unroll 16
    for (int i = 0; i < kRowsKept; ++i) {
      kept[i] = kept[i] - factor * Load<kBatch>(v + i * kBatch);
      dot = dot + kept[i] * Load<kBatch>(next + i * kBatch);
    }
    for (int i = kRowsKept * kBatch; i < n * kBatch; i += kBatch) {
      const Lanes<kBatch> value = Load<kBatch>(w + i) - factor * Load<kBatch>(v + i);
      Store(w + i, value);
      dot = dot + value * Load<kBatch>(next + i);
    }
  }
  Store(h, dot);
  Lanes<kBatch> square = Broadcast<kBatch>(0.0);
#pragma GCC unroll 16
  for (int i = 0; i < kRowsKept; ++i) {
    kept[i] = kept[i] - dot * Load<kBatch>(v + i * kBatch);
    Store(w + i * kBatch, kept[i]);
    square = square + kept[i] * kept[i];
  }
  for (int i = kRowsKept * kBatch; i < n * kBatch; i += kBatch) {
    const Lanes<kBatch> value = Load<kBatch>(w + i) - dot * Load<kBatch>(v + i);
    Store(w + i, value);
    square = square + value * value;
  }
  return square;
}

// A divisor of vectors. v = w / d has the bits of the division: the quotient q = fma(w, h, w l), where h + l is the
// reciprocal of d to twice the precision, is off by half a unit in its last place and a little more, so that w - q d is
// exact, and q + fma(w - q d, h, 0), rounded once, is w / d (Markstein 1990). For this no product may leave the range of
// normal numbers, and d must not lie just below a power of two; else the numbers are divided.
template <int kBatch>
class Divisor {
 public:
  KESTRUM_KERNEL_INLINE explicit Divisor(const Lanes<kBatch>& divisor) : divisor_(divisor) {
#if KESTRUM_KERNEL_BYTES > 16
    constexpr long long kMantissaTop = 0xFFFFFLL << 32;
#pragma GCC unroll 16
    for (int k = 0; k < kParts<kBatch>; ++k) {
      const Vector one = Broadcast<Vector>(1.0), d = divisor.part[k];
      const Vector high = one / d;
      minusHigh_.part[k] = -high;
      low_.part[k] = SubtractProduct(one, high, d) * high;
      fit_[k] = (d > Broadcast<Vector>(0x1p-200)) & (d < Broadcast<Vector>(0x1p200)) &
                (((Integers)d & kMantissaTop) != (Integers{} + kMantissaTop)) & kFromHalfRange;
    }
#endif
  }

  KESTRUM_KERNEL_INLINE void Divide(int n, double* v, const double* w) const {
#if KESTRUM_KERNEL_BYTES > 16
    Integers fit[kParts<kBatch>];
#pragma GCC unroll 16
    for (int k = 0; k < kParts<kBatch>; ++k) fit[k] = fit_[k];
    for (int i = 0; i < n * kBatch; i += kBatch) {
#pragma GCC unroll 16
      for (int k = 0; k < kParts<kBatch>; ++k) {
        const Vector x = *(const AlignedVector*)(w + i + k * kWidth);
        const Vector q = SubtractProduct(x * low_.part[k], x, minusHigh_.part[k]);
        fit[k] &= (Integers)q;
        const Vector rest = SubtractProduct(x, q, divisor_.part[k]);
        *(AlignedVector*)(v + i + k * kWidth) = SubtractProduct(q, rest, minusHigh_.part[k]);
      }
    }
    unsigned all = (1U << kWidth) - 1;
#pragma GCC unroll 16
    for (int k = 0; k < kParts<kBatch>; ++k) all &= SetLanes(fit[k] != Integers{});
    if (all == (1U << kWidth) - 1) return;
#endif
    for (int i = 0; i < n * kBatch; i += kBatch) Store(v + i, Load<kBatch>(w + i) / divisor_);
  }

 private:
  static constexpr long long kFromHalfRange = 1LL << 61;  // set in all magnitudes from 2^-511 to 2
  Lanes<kBatch> divisor_;
  Lanes<kBatch> minusHigh_, low_;
  Integers fit_[kParts<kBatch>];
};

template <int kBatch>
KESTRUM_KERNEL_INLINE unsigned LanesBelow(const Lanes<kBatch>& x, double limit) {
  unsigned below = 0;
#pragma GCC unroll 16
  for (int k = 0; k < kParts<kBatch>; ++k) below |= SetLanes(x.part[k] < Broadcast<Vector>(limit)) << k * kWidth;
  return below;
}

template <int kBatch, typename Matrix>
class BatchSolver {
 public:
  KESTRUM_KERNEL_INLINE explicit BatchSolver(const BatchProblem& problem)
      : limits_(problem.limits),
        n_(problem.n),
        a_{problem.a, problem.stride},
        b_(problem.b),
        x_(problem.x),
        v_(problem.work),
        h_(v_ + (static_cast<std::ptrdiff_t>(limits_.restart) + 1) * n_ * kBatch),
        g_(h_ + (static_cast<std::ptrdiff_t>(limits_.restart) + 1) * limits_.restart * kBatch) {}

  KESTRUM_KERNEL_INLINE BatchOutcome Solve() {
    Lanes<kBatch> square = Broadcast<kBatch>(0.0);
    for (int i = 0; i < n_; ++i) square = square + Load<kBatch>(b_ + i * kBatch) * Load<kBatch>(b_ + i * kBatch);
    const Lanes<kBatch> bNorm = SquareRoot(square);
    bNormInverse_ = Broadcast<kBatch>(1.0) / bNorm;
    Finish(LanesBelow(bNorm, VORL_EPSILON_HARD));
    for (int i = 0; i < n_; ++i) {
      Store(x_ + i * kBatch, Select(mask_, Load<kBatch>(x_ + i * kBatch), Broadcast<kBatch>(0.0)));
    }
    outcome_.converged = kAll & ~active_;

    Lanes<kBatch> previous = Broadcast<kBatch>(0.0);
    for (int cycle = 0; cycle < limits_.ncycle && active_ != 0; ++cycle) {
      const Lanes<kBatch> beta = Residual();
      FinishConverged(beta);
      const Lanes<kBatch> change = beta - previous;
      Finish(LanesBelow(change, VORL_EPSILON_HARD) & LanesBelow(Broadcast<kBatch>(0.0) - change, VORL_EPSILON_HARD));
      if (active_ == 0) break;
      Divisor<kBatch>(beta).Divide(n_, v_, V(limits_.restart));
      Store(g_, beta);
      BuildBasis();
      if (active_ == 0) break;
      BackSubstitute();
      UpdateSolution();
      previous = beta;
    }
    if (active_ != 0) FinishConverged(Residual());
    return outcome_;
  }

 private:
  static constexpr unsigned kAll = (1U << kBatch) - 1;

  // The basis; in the place of the last vector, which nothing reads, the one at hand until it has its length.
  KESTRUM_KERNEL_INLINE double* V(int j) { return v_ + static_cast<std::ptrdiff_t>(j) * n_ * kBatch; }
  KESTRUM_KERNEL_INLINE double* H(int i, int j) {
    return h_ + (static_cast<std::ptrdiff_t>(j) * (limits_.restart + 1) + i) * kBatch;
  }

  // Takes lanes out of the iteration. They run on with whatever numbers they have, and keep their x.
  KESTRUM_KERNEL_INLINE void Finish(unsigned lanes) {
    active_ &= ~lanes;
    for (int lane = 0; lane < kBatch; ++lane) mask_[lane] = (active_ >> lane & 1) != 0 ? -1 : 0;
  }

  KESTRUM_KERNEL_INLINE void FinishConverged(const Lanes<kBatch>& beta) {
    const unsigned converged = active_ & LanesBelow(beta * bNormInverse_, limits_.tolerance);
    outcome_.converged |= converged;
    Finish(converged);
  }

  KESTRUM_KERNEL_INLINE Lanes<kBatch> Residual() {
    StoreResidual<kBatch> use{V(limits_.restart), b_, Broadcast<kBatch>(0.0)};
    Product<kBatch>(a_, n_, n_, x_, use);
    return SquareRoot(use.square);
  }

  KESTRUM_KERNEL_INLINE void BuildBasis() {
    double* const w = V(limits_.restart);
    for (int j = 0; j < limits_.restart; ++j) {
      StoreAndDot<kBatch> use{w, v_, Broadcast<kBatch>(0.0)};
      Product<kBatch>(a_, n_, n_, V(j), use);
      const Lanes<kBatch> square = n_ >= kKept ? Orthogonalize<kBatch, kKept>(n_, j + 1, w, v_, use.dot, H(0, j))
                                               : Orthogonalize<kBatch, 0>(n_, j + 1, w, v_, use.dot, H(0, j));
      const Lanes<kBatch> norm = SquareRoot(square);
      Store(H(j + 1, j), norm);
      const bool last = j + 1 == limits_.restart;  // nothing reads the last vector
      // A lane with an exhausted space has a basis of a length of its own from here on.
      const unsigned exhausted = last ? 0 : active_ & LanesBelow(norm, VORL_EPSILON_HARD);
      if (exhausted != 0) {
        outcome_.alone |= exhausted;
        Finish(exhausted);
        if (active_ == 0) return;
      }
      const Divisor<kBatch> divisor(norm);
      RotateColumn(j);
      if (!last) divisor.Divide(n_, V(j + 1), w);
    }
  }

  // Applies the rotations of the columns before to column j of H, and one that turns its last element to 0; its sine
  // takes the place of that element, its cosine the next. It waits for no vector of the basis, so that it fills the
  // time in which the next vector waits for its length.
  KESTRUM_KERNEL_INLINE void RotateColumn(int j) {
    double* const column = H(0, j);
    Lanes<kBatch> u = Load<kBatch>(column);
    for (int i = 0; i < j; ++i) {
      const Lanes<kBatch> c = Load<kBatch>(H(i + 2, i));
      const Lanes<kBatch> s = Load<kBatch>(H(i + 1, i));
      const Lanes<kBatch> t = Load<kBatch>(column + (i + 1) * kBatch);
      Store(column + i * kBatch, s * t + c * u);
      u = c * t - s * u;
    }
    const Lanes<kBatch> q = Load<kBatch>(column + (j + 1) * kBatch);
    const Lanes<kBatch> f = Broadcast<kBatch>(1.0) / SquareRoot(u * u + q * q);
    const Lanes<kBatch> c = f * u;
    const Lanes<kBatch> s = f * q;
    Store(column + j * kBatch, s * q + c * u);
    if (j + 1 < limits_.restart) {
      Store(H(j + 1, j), s);
      Store(H(j + 2, j), c);
    }
    const Lanes<kBatch> t = Load<kBatch>(g_ + j * kBatch);
    const Lanes<kBatch> next = Broadcast<kBatch>(0.0);  // of the right side, below its only element
    Store(g_ + j * kBatch, s * next + c * t);
    Store(g_ + (j + 1) * kBatch, c * next - s * t);
  }

  KESTRUM_KERNEL_INLINE void BackSubstitute() {
    for (int i = limits_.restart - 1; i >= 0; --i) {
      Lanes<kBatch> sum = Broadcast<kBatch>(0.0);
      for (int j = i + 1; j < limits_.restart; ++j) sum = sum + Load<kBatch>(H(i, j)) * Load<kBatch>(g_ + j * kBatch);
      Store(g_ + i * kBatch, (Load<kBatch>(g_ + i * kBatch) - sum) / Load<kBatch>(H(i, i)));
    }
  }

  KESTRUM_KERNEL_INLINE void UpdateSolution() {
    const Columns basis{v_, static_cast<std::ptrdiff_t>(n_) * kBatch};
    AddToSolution<kBatch> use{x_, mask_};
    Product<kBatch>(basis, n_, limits_.restart, g_, use);
  }

  const GmresLimits limits_;
  const int n_;
  const Matrix a_;
  const double* const b_;
  double* const x_;
  double* const v_;
  double* const h_;
  double* const g_;
  unsigned active_ = kAll;
  alignas(64) long long mask_[kBatch];
  Lanes<kBatch> bNormInverse_;
  BatchOutcome outcome_ = {0, 0};
};

KESTRUM_KERNEL_TARGET BatchOutcome SolveBatch(const BatchProblem& problem) noexcept {
  return BatchSolver<kLanes, SymmetricColumns>(problem).Solve();
}

KESTRUM_KERNEL_TARGET BatchOutcome SolveWideBatch(const BatchProblem& problem) noexcept {
  return BatchSolver<kWideBatch, SymmetricColumns>(problem).Solve();
}

KESTRUM_KERNEL_TARGET BatchOutcome SolveSharedBatch(const BatchProblem& problem) noexcept {
  return BatchSolver<kLanes, SharedRows>(problem).Solve();
}
