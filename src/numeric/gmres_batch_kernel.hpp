// The batch form of GMRES: text for numeric/kernel_levels.hpp. Loops over registers are unrolled by name, or -O2 would
// keep the sums in memory.
//
// Every lane does the arithmetic of GmresSolver in its order (gmres_body.hpp); nothing is summed across lanes.

// Rows of a matrix that are summed side by side: as many as the registers hold.
constexpr int kRows = kVectorBytes == 64 ? 7 : kVectorBytes == 32 ? 5 : 3;
constexpr int kParts = kLanes / kWidth;
constexpr unsigned kAllLanes = (1U << kLanes) - 1;

// All memory of a batch is aligned: the baseline takes such vectors as operands without a load of their own.
typedef Vector AlignedVector __attribute__((may_alias));
typedef Integers AlignedIntegers __attribute__((may_alias));

// One number of each lane, in as many registers as it takes.
struct Lanes {
  Vector part[kParts];
};

KESTRUM_KERNEL_INLINE Lanes Load(const double* from) {
  Lanes x;
#pragma GCC unroll 8
  for (int k = 0; k < kParts; ++k) x.part[k] = *(const AlignedVector*)(from + k * kWidth);
  return x;
}

KESTRUM_KERNEL_INLINE void Store(double* to, const Lanes& x) {
#pragma GCC unroll 8
  for (int k = 0; k < kParts; ++k) *(AlignedVector*)(to + k * kWidth) = x.part[k];
}

KESTRUM_KERNEL_INLINE Lanes Broadcast(double value) {
  Lanes x;
#pragma GCC unroll 8
  for (int k = 0; k < kParts; ++k) x.part[k] = Broadcast<Vector>(value);
  return x;
}

KESTRUM_KERNEL_INLINE Lanes operator+(const Lanes& x, const Lanes& y) {
  Lanes z;
#pragma GCC unroll 8
  for (int k = 0; k < kParts; ++k) z.part[k] = x.part[k] + y.part[k];
  return z;
}

KESTRUM_KERNEL_INLINE Lanes operator-(const Lanes& x, const Lanes& y) {
  Lanes z;
#pragma GCC unroll 8
  for (int k = 0; k < kParts; ++k) z.part[k] = x.part[k] - y.part[k];
  return z;
}

KESTRUM_KERNEL_INLINE Lanes operator*(const Lanes& x, const Lanes& y) {
  Lanes z;
#pragma GCC unroll 8
  for (int k = 0; k < kParts; ++k) z.part[k] = x.part[k] * y.part[k];
  return z;
}

KESTRUM_KERNEL_INLINE Lanes operator/(const Lanes& x, const Lanes& y) {
  Lanes z;
#pragma GCC unroll 8
  for (int k = 0; k < kParts; ++k) z.part[k] = x.part[k] / y.part[k];
  return z;
}

KESTRUM_KERNEL_INLINE Lanes SquareRoot(const Lanes& x) {
  Lanes z;
#pragma GCC unroll 8
  for (int k = 0; k < kParts; ++k) z.part[k] = SquareRoot(x.part[k]);
  return z;
}

// The lanes of `x` where the mask is set, those of `y` elsewhere.
KESTRUM_KERNEL_INLINE Lanes Select(const long long* mask, const Lanes& x, const Lanes& y) {
  Lanes z;
#pragma GCC unroll 8
  for (int k = 0; k < kParts; ++k) z.part[k] = *(const AlignedIntegers*)(mask + k * kWidth) ? x.part[k] : y.part[k];
  return z;
}

// A matrix whose element (i, j) starts at start + i*rowStride + j*columnStride: one number per lane, or one for all.
template <bool kShared>
struct Matrix {
  const double* start;
  std::ptrdiff_t rowStride;
  std::ptrdiff_t columnStride;
};

template <bool kShared>
KESTRUM_KERNEL_INLINE Lanes Element(const double* at) {
  if constexpr (kShared) {
    return Broadcast(*at);
  } else {
    return Load(at);
  }
}

// Hands the sums of kCount rows of A x, over `columns` columns, to use(row, sum) in the order of the rows.
template <int kCount, bool kShared, typename Use>
KESTRUM_KERNEL_INLINE void SumRows(const Matrix<kShared>& a, int row, int columns, const double* x, Use& use) {
  const double* at = a.start + row * a.rowStride;
  Lanes sums[kCount];
#pragma GCC unroll 8
  for (int r = 0; r < kCount; ++r) sums[r] = Broadcast(0.0);
  for (int j = 0; j < columns; ++j) {
    const Lanes factor = Load(x + j * kLanes);
#pragma GCC unroll 8
    for (int r = 0; r < kCount; ++r) sums[r] = sums[r] + Element<kShared>(at + r * a.rowStride) * factor;
    at += a.columnStride;
  }
#pragma GCC unroll 8
  for (int r = 0; r < kCount; ++r) use(row + r, sums[r]);
}

template <int kCount, bool kShared, typename Use>
KESTRUM_KERNEL_INLINE void SumLastRows(const Matrix<kShared>& a, int row, int count, int columns, const double* x,
                                       Use& use) {
  if constexpr (kCount > 0) {
    if (count == kCount) {
      SumRows<kCount>(a, row, columns, x, use);
    } else {
      SumLastRows<kCount - 1>(a, row, count, columns, x, use);
    }
  }
}

template <bool kShared, typename Use>
KESTRUM_KERNEL_INLINE void Product(const Matrix<kShared>& a, int rows, int columns, const double* x, Use& use) {
  int row = 0;
  for (; row + kRows <= rows; row += kRows) SumRows<kRows>(a, row, columns, x, use);
  SumLastRows<kRows - 1>(a, row, rows - row, columns, x, use);
}

// w = A v, with w . first summed on the way.
struct StoreAndDot {
  double* w;
  const double* first;
  Lanes dot;
  KESTRUM_KERNEL_INLINE void operator()(int i, const Lanes& sum) {
    Store(w + i * kLanes, sum);
    dot = dot + sum * Load(first + i * kLanes);
  }
};

// r = b - A x, with its square summed on the way.
struct StoreResidual {
  double* r;
  const double* b;
  Lanes square;
  KESTRUM_KERNEL_INLINE void operator()(int i, const Lanes& sum) {
    const Lanes value = Load(b + i * kLanes) - sum;
    Store(r + i * kLanes, value);
    square = square + value * value;
  }
};

// x = x + sum, in the lanes that still iterate.
struct AddToSolution {
  double* x;
  const long long* mask;
  KESTRUM_KERNEL_INLINE void operator()(int i, const Lanes& sum) {
    const Lanes old = Load(x + i * kLanes);
    Store(x + i * kLanes, Select(mask, old + sum, old));
  }
};

// w = w - h v; gives the product of the new w with `next`, summed in the same pass.
KESTRUM_KERNEL_INLINE Lanes SubtractAndDot(int n, double* w, const Lanes& h, const double* v, const double* next) {
  Lanes dot = Broadcast(0.0);
  for (int i = 0; i < n * kLanes; i += kLanes) {
    const Lanes value = Load(w + i) - h * Load(v + i);
    Store(w + i, value);
    dot = dot + value * Load(next + i);
  }
  return dot;
}

// The same, for the square of the new w.
KESTRUM_KERNEL_INLINE Lanes SubtractAndSquare(int n, double* w, const Lanes& h, const double* v) {
  Lanes square = Broadcast(0.0);
  for (int i = 0; i < n * kLanes; i += kLanes) {
    const Lanes value = Load(w + i) - h * Load(v + i);
    Store(w + i, value);
    square = square + value * value;
  }
  return square;
}

KESTRUM_KERNEL_INLINE void Divide(int n, double* w, const Lanes& divisor) {
  for (int i = 0; i < n * kLanes; i += kLanes) Store(w + i, Load(w + i) / divisor);
}

KESTRUM_KERNEL_INLINE unsigned LanesBelow(const Lanes& x, double limit) {
  alignas(64) double value[kLanes];
  Store(value, x);
  unsigned below = 0;
  for (int lane = 0; lane < kLanes; ++lane) below |= static_cast<unsigned>(value[lane] < limit) << lane;
  return below;
}

template <bool kShared>
class BatchSolver {
 public:
  KESTRUM_KERNEL_INLINE explicit BatchSolver(const BatchProblem& problem)
      : limits_(problem.limits),
        n_(problem.n),
        a_{problem.a, problem.stride, kShared ? 1 : kLanes},
        b_(problem.b),
        x_(problem.x),
        v_(problem.work),
        h_(v_ + (static_cast<std::ptrdiff_t>(limits_.restart) + 1) * n_ * kLanes),
        g_(h_ + (static_cast<std::ptrdiff_t>(limits_.restart) + 1) * limits_.restart * kLanes) {}

  KESTRUM_KERNEL_INLINE BatchOutcome Solve() {
    Lanes square = Broadcast(0.0);
    for (int i = 0; i < n_; ++i) square = square + Load(b_ + i * kLanes) * Load(b_ + i * kLanes);
    const Lanes bNorm = SquareRoot(square);
    bNormInverse_ = Broadcast(1.0) / bNorm;
    Finish(LanesBelow(bNorm, VORL_EPSILON_HARD));
    for (int i = 0; i < n_; ++i) {
      Store(x_ + i * kLanes, Select(mask_, Load(x_ + i * kLanes), Broadcast(0.0)));
    }
    outcome_.converged = kAllLanes & ~active_;

    Lanes previous = Broadcast(0.0);
    for (int cycle = 0; cycle < limits_.ncycle && active_ != 0; ++cycle) {
      const Lanes beta = Residual();
      FinishConverged(beta);
      const Lanes change = beta - previous;
      Finish(LanesBelow(change, VORL_EPSILON_HARD) & LanesBelow(Broadcast(0.0) - change, VORL_EPSILON_HARD));
      if (active_ == 0) break;
      Divide(n_, v_, beta);
      BuildBasis();
      if (active_ == 0) break;
      Store(g_, beta);
      for (int i = 1; i <= limits_.restart; ++i) Store(g_ + i * kLanes, Broadcast(0.0));
      Rotate();
      BackSubstitute();
      UpdateSolution();
      previous = beta;
    }
    if (active_ != 0) FinishConverged(Residual());
    return outcome_;
  }

 private:
  KESTRUM_KERNEL_INLINE double* V(int j) { return v_ + static_cast<std::ptrdiff_t>(j) * n_ * kLanes; }
  KESTRUM_KERNEL_INLINE double* H(int i, int j) {
    return h_ + (static_cast<std::ptrdiff_t>(i) * limits_.restart + j) * kLanes;
  }

  // Takes lanes out of the iteration. They run on with whatever numbers they have, and keep their x.
  KESTRUM_KERNEL_INLINE void Finish(unsigned lanes) {
    active_ &= ~lanes;
    for (int lane = 0; lane < kLanes; ++lane) mask_[lane] = (active_ >> lane & 1) != 0 ? -1 : 0;
  }

  KESTRUM_KERNEL_INLINE void FinishConverged(const Lanes& beta) {
    const unsigned converged = active_ & LanesBelow(beta * bNormInverse_, limits_.tolerance);
    outcome_.converged |= converged;
    Finish(converged);
  }

  KESTRUM_KERNEL_INLINE Lanes Residual() {
    StoreResidual use{v_, b_, Broadcast(0.0)};
    Product(a_, n_, n_, x_, use);
    return SquareRoot(use.square);
  }

  KESTRUM_KERNEL_INLINE void BuildBasis() {
    for (int j = 0; j < limits_.restart; ++j) {
      double* const w = V(j + 1);
      StoreAndDot use{w, v_, Broadcast(0.0)};
      Product(a_, n_, n_, V(j), use);
      Lanes dot = use.dot;
      for (int i = 0; i < j; ++i) {
        Store(H(i, j), dot);
        dot = SubtractAndDot(n_, w, dot, V(i), V(i + 1));
      }
      Store(H(j, j), dot);
      const Lanes norm = SquareRoot(SubtractAndSquare(n_, w, dot, V(j)));
      Store(H(j + 1, j), norm);
      if (j + 1 == limits_.restart) break;  // nothing reads the last vector
      // A lane with an exhausted space has a basis of a length of its own from here on.
      const unsigned exhausted = active_ & LanesBelow(norm, VORL_EPSILON_HARD);
      if (exhausted != 0) {
        outcome_.alone |= exhausted;
        Finish(exhausted);
        if (active_ == 0) return;
      }
      Divide(n_, w, norm);
    }
  }

  KESTRUM_KERNEL_INLINE void Rotate() {
    for (int i = 0; i < limits_.restart; ++i) {
      double* const upper = H(i, 0);
      double* const lower = H(i + 1, 0);
      const Lanes p = Load(upper + i * kLanes);
      const Lanes q = Load(lower + i * kLanes);
      const Lanes f = Broadcast(1.0) / SquareRoot(p * p + q * q);
      const Lanes c = f * p;
      const Lanes s = f * q;
      Store(upper + i * kLanes, s * q + c * p);
      for (int col = (i + 1) * kLanes; col < limits_.restart * kLanes; col += kLanes) {
        const Lanes t = Load(lower + col);
        const Lanes u = Load(upper + col);
        Store(lower + col, c * t - s * u);
        Store(upper + col, s * t + c * u);
      }
      const Lanes t = Load(g_ + i * kLanes);
      const Lanes next = Load(g_ + (i + 1) * kLanes);
      Store(g_ + i * kLanes, s * next + c * t);
      Store(g_ + (i + 1) * kLanes, c * next - s * t);
    }
  }

  KESTRUM_KERNEL_INLINE void BackSubstitute() {
    for (int i = limits_.restart - 1; i >= 0; --i) {
      Lanes sum = Broadcast(0.0);
      for (int j = i + 1; j < limits_.restart; ++j) sum = sum + Load(H(i, j)) * Load(g_ + j * kLanes);
      Store(g_ + i * kLanes, (Load(g_ + i * kLanes) - sum) / Load(H(i, i)));
    }
  }

  KESTRUM_KERNEL_INLINE void UpdateSolution() {
    const Matrix<false> basis{v_, kLanes, static_cast<std::ptrdiff_t>(n_) * kLanes};
    AddToSolution use{x_, mask_};
    Product(basis, n_, limits_.restart, g_, use);
  }

  const GmresLimits limits_;
  const int n_;
  const Matrix<kShared> a_;
  const double* const b_;
  double* const x_;
  double* const v_;
  double* const h_;
  double* const g_;
  unsigned active_ = kAllLanes;
  alignas(64) long long mask_[kLanes];
  Lanes bNormInverse_;
  BatchOutcome outcome_ = {0, 0};
};

template <bool kShared>
KESTRUM_KERNEL_TARGET BatchOutcome SolveBatch(const BatchProblem& problem) noexcept {
  return BatchSolver<kShared>(problem).Solve();
}
