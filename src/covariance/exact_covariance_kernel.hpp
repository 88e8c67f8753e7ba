// Covariances of a block of lags: text for numeric/kernel_levels.hpp. The array x of a block begins as its squared
// reduced distances, and each step puts its result in their place.

using Element = ExactCovariance::Element;

KESTRUM_KERNEL_INLINE void Scale(int n, double factor, double* x) {
  for (int k = 0; k < n; k += kWidth) Store(x + k, factor * Load<Vector>(x + k));
}

KESTRUM_KERNEL_INLINE void ScaledRoots(int n, double factor, double* x) {
  for (int k = 0; k < n; k += kWidth) Store(x + k, factor * SquareRoot(Load<Vector>(x + k)));
}

// cov = cov + constant + factor x.
KESTRUM_KERNEL_INLINE void AddLinear(int n, double constant, double factor, const double* x, double* cov) {
  for (int k = 0; k < n; k += kWidth) {
    Store(cov + k, Load<Vector>(cov + k) + (constant + factor * Load<Vector>(x + k)));
  }
}

// Sets x.
KESTRUM_KERNEL_INLINE void SquaredDistances(const Element& element, bool rotated, const LagBlock& lags, double* x) {
  const auto& a = element.axes;
  for (int k = 0; k < lags.n; k += kWidth) {
    const Vector dx = Load<Vector>(lags.x + k);
    const Vector dy = Load<Vector>(lags.y + k);
    const Vector dz = Load<Vector>(lags.z + k);
    Vector along[3] = {a[0][0] * dx, a[1][1] * dy, a[2][2] * dz};
    if (rotated) {
      along[0] = along[0] + a[0][1] * dy + a[0][2] * dz;
      along[1] = a[1][0] * dx + along[1] + a[1][2] * dz;
      along[2] = a[2][0] * dx + a[2][1] * dy + along[2];
    }
    Store(x + k, along[0] * along[0] + along[1] * along[1] + along[2] * along[2]);
  }
}

KESTRUM_KERNEL_INLINE void AddNugget(double w, const LagBlock& lags) {
  for (int k = 0; k < lags.n; k += kWidth) {
    const auto zero = (Load<Vector>(lags.x + k) == Vector{}) & (Load<Vector>(lags.y + k) == Vector{}) &
                      (Load<Vector>(lags.z + k) == Vector{});
    Store(lags.cov + k, Load<Vector>(lags.cov + k) + (zero ? Broadcast<Vector>(w) : Vector{}));
  }
}

// The types that end at distance 1.
KESTRUM_KERNEL_INLINE void AddBounded(const Element& element, int n, const double* d2, double* cov) {
  for (int k = 0; k < n; k += kWidth) {
    const Vector e = Load<Vector>(d2 + k);
    const Vector h = SquareRoot(e);
    Vector inside;
    if (element.type == COV_SPHERICAL) {
      inside = 1.0 - 0.5 * h * (3.0 - e);
    } else if (element.type == COV_LINEAR) {
      inside = 1.0 - h;
    } else {
      inside = 1.0 + e * (((0.75 * e - 3.5) * e + 8.75) * h - 7.0);
    }
    Store(cov + k, Load<Vector>(cov + k) + (e < 1.0 ? element.w * inside : Vector{}));
  }
}

KESTRUM_KERNEL_INLINE void AddSinusCardinal(double w, int n, double* x, double* cov) {
  double sine[kBlock];
  ScaledRoots(n, std::numbers::pi, x);
  for (int k = 0; k < n; k += kWidth) Store(sine + k, Load<Vector>(x + k));
  Sines(n, sine);
  for (int k = 0; k < n; k += kWidth) {
    const Vector angle = Load<Vector>(x + k);
    const Vector ratio = angle == Vector{} ? Broadcast<Vector>(1.0) : Load<Vector>(sine + k) / angle;
    Store(cov + k, Load<Vector>(cov + k) + w * ratio);
  }
}

// (1 + h / offset)^-s. The offset of a small s vanishes, and the power at the zero lag with it.
KESTRUM_KERNEL_INLINE void AddGamma(const Element& element, int n, double* x, double* cov) {
  ScaledRoots(n, 1.0, x);
  for (int k = 0; k < n; k += kWidth) Store(x + k, element.offset + Load<Vector>(x + k));
  Powers(n, x, -element.s);
  for (int k = 0; k < n; k += kWidth) {
    const Vector correlation = element.factor * Load<Vector>(x + k);
    Store(cov + k, Load<Vector>(cov + k) + element.w * (correlation < 1.0 ? correlation : Broadcast<Vector>(1.0)));
  }
}

template <int kCount>
KESTRUM_KERNEL_INLINE Vector Polynomial(const double (&coefficients)[kCount], Vector x) {
  Vector sum = Broadcast<Vector>(coefficients[kCount - 1]);
  for (int k = kCount - 2; k >= 0; --k) sum = sum * x + coefficients[k];
  return sum;
}

// Clenshaw's sum of a Chebyshev series on [0, 1].
template <int kCount>
KESTRUM_KERNEL_INLINE Vector ChebyshevSum(const double (&coefficients)[kCount], Vector t) {
  const Vector twice = 4.0 * t - 2.0;
  Vector sum = Vector{};
  Vector before = Vector{};
  for (int k = kCount - 1; k > 0; --k) {
    const Vector next = twice * sum - before + coefficients[k];
    before = sum;
    sum = next;
  }
  return 0.5 * twice * sum - before + coefficients[0];
}

KESTRUM_KERNEL_INLINE void AddMatern(double w, const Matern& matern, int n, double* x, double* cov) {
  double factor[kBlock];
  ScaledRoots(n, matern.scale, x);
  for (int k = 0; k < n; k += kWidth) {
    const Vector u = Load<Vector>(x + k);
    Store(x + k, u < Matern::kFarthest ? u : Broadcast<Vector>(Matern::kFarthest));
  }
  MaternFactors(n, matern, x, factor);
  for (int k = 0; k < n; k += kWidth) {
    const Vector u = Load<Vector>(x + k);
    const Vector e = Load<Vector>(factor + k);
    const Vector z = 0.25 * u * u;
    Vector first = Broadcast<Vector>(1.0);
    Vector second = 1.0 + u;
    if (!matern.halfOrder) {
      const Vector t = 2.0 / u;
      const auto near = u <= Matern::kSeriesEnd;
      const Vector k0 = near ? Polynomial(matern.series[0], z) + e * Polynomial(matern.series[1], z)
                             : e * ChebyshevSum(matern.chebyshev, t);
      const Vector k1 = near ? Polynomial(matern.nextSeries[0], z) + e * Polynomial(matern.nextSeries[1], z)
                             : 0.5 * u * e * ChebyshevSum(matern.nextChebyshev, t);
      first = matern.firstFactor * (matern.firstIsMu ? k0 : k1);
      second = first + matern.secondFactor * z * k0;
    }
    Vector correlation = matern.rounds == 0 ? first : second;
    double order = matern.secondOrder;
    for (int round = 1; round < matern.rounds; ++round) {
      correlation = second + z * (1.0 / (order * (order - 1.0))) * first;
      first = second;
      second = correlation;
      order += 1.0;
    }
    if (matern.halfOrder) correlation = correlation * e;
    Store(cov + k, Load<Vector>(cov + k) + w * (u == Vector{} ? Broadcast<Vector>(1.0) : correlation));
  }
}

KESTRUM_KERNEL_TARGET void EvaluateBlock(const Element* elements, int count, bool rotated,
                                         const LagBlock& lags) noexcept {
  const int n = lags.n;
  double* const cov = lags.cov;
  double x[kBlock];
  for (int k = 0; k < n; k += kWidth) Store(cov + k, Vector{});
  for (int i = 0; i < count; ++i) {
    const Element& element = elements[i];
    const double w = element.w;
    if (element.type == COV_NUGGET) {
      AddNugget(w, lags);
      continue;
    }
    SquaredDistances(element, rotated, lags, x);
    switch (element.type) {
      case COV_SPHERICAL:
      case COV_LINEAR:
      case COV_CUBIC:
        AddBounded(element, n, x, cov);
        break;
      case COV_EXPONENTIAL:
        ScaledRoots(n, -3.0, x);
        Exponentials(n, x);
        AddLinear(n, 0.0, w, x, cov);
        break;
      case COV_GAUSSIAN:
        Scale(n, -3.0, x);
        Exponentials(n, x);
        AddLinear(n, 0.0, w, x, cov);
        break;
      case COV_SINUS_CARDINAL:
        AddSinusCardinal(w, n, x, cov);
        break;
      case COV_GAMMA:
        AddGamma(element, n, x, cov);
        break;
      case COV_POWER:
        Powers(n, x, 0.5 * element.s);
        AddLinear(n, w, -w, x, cov);
        break;
      case COV_EXPONENTIAL_GENERALIZED:
        Powers(n, x, 0.5 * element.s);
        Scale(n, -3.0, x);
        Exponentials(n, x);
        AddLinear(n, 0.0, w, x, cov);
        break;
      case COV_MATERN:
        AddMatern(w, element.matern, n, x, cov);
        break;
      default:
        // No such type: validation rejects the model.
        break;
    }
  }
}
