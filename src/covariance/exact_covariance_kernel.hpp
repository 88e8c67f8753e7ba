// Covariances of a block of lags: text for numeric/kernel_levels.hpp.

#include "numeric/elementary_kernel.hpp"

using Element = ExactCovariance::Element;

// Calls visit(dx, dy, dz, to) for kWidth lags at a time, whose covariances go to `to`.
template <bool kPlanar, typename Visit>
KESTRUM_KERNEL_INLINE void ForEachLag(const LagRows& lags, const Visit& visit) {
  for (int j = 0; j < lags.n; ++j) {
    const double x = lags.place[0][j];
    const double y = lags.place[1][j];
    const double z = kPlanar ? 0.0 : lags.place[2][j];
    double* const row = lags.cov + lags.start[j];
    for (int i = lags.triangular ? j / kLanes * kLanes : 0; i < lags.columns; i += kWidth) {
      visit(Load<Vector>(lags.from[0] + i) - x, Load<Vector>(lags.from[1] + i) - y,
            kPlanar ? Vector{} : Load<Vector>(lags.from[2] + i) - z, row + i);
    }
  }
}

// Adds what an element contributes at squared reduced distances, to nothing if it is the first.
template <typename Contribution>
KESTRUM_KERNEL_INLINE void Add(const Element& element, bool first, bool rotated, const LagRows& lags,
                               const Contribution& contribution) {
  const auto& a = element.axes;
  const auto add = [&]<bool kPlanar, bool kRotated>() KESTRUM_KERNEL_TARGET __attribute__((always_inline)) {
    ForEachLag<kPlanar>(
        lags, [&](Vector dx, Vector dy, Vector dz, double* to) KESTRUM_KERNEL_TARGET __attribute__((always_inline)) {
          Vector along[3] = {a[0][0] * dx, a[1][1] * dy, a[2][2] * dz};
          if constexpr (kRotated) {
            along[0] = along[0] + a[0][1] * dy + a[0][2] * dz;
            along[1] = a[1][0] * dx + along[1] + a[1][2] * dz;
            along[2] = a[2][0] * dx + a[2][1] * dy + along[2];
          }
          Vector d2 = along[0] * along[0] + along[1] * along[1];
          if constexpr (!kPlanar || kRotated) d2 = d2 + along[2] * along[2];
          Store(to, (first ? Vector{} : Load<Vector>(to)) + contribution(d2));
        });
  };
  if (rotated) {
    add.template operator()<false, true>();
  } else if (lags.axes < 3) {
    add.template operator()<true, false>();
  } else {
    add.template operator()<false, false>();
  }
}

KESTRUM_KERNEL_INLINE void AddNugget(double w, bool first, const LagRows& lags) {
  ForEachLag<false>(
      lags, [&](Vector dx, Vector dy, Vector dz, double* to) KESTRUM_KERNEL_TARGET __attribute__((always_inline)) {
        const auto zero = (dx == Vector{}) & (dy == Vector{}) & (dz == Vector{});
        Store(to, (first ? Vector{} : Load<Vector>(to)) + (zero ? Broadcast<Vector>(w) : Vector{}));
      });
}

// sin(pi h) / (pi h).
KESTRUM_KERNEL_INLINE Vector SinusCardinal(Vector d2) {
  const Vector h = SquareRoot(d2);
  const Vector ratio = SinPi(h) / (std::numbers::pi * h);
  return h == Vector{} ? Broadcast<Vector>(1.0) : ratio;
}

// (1 + h / offset)^-s. The offset of a small s vanishes, and the power at the zero lag with it.
KESTRUM_KERNEL_INLINE Vector Gamma(const Element& element, Vector d2) {
  const Vector correlation = element.factor * Pow(element.offset + SquareRoot(d2), -element.s);
  return correlation < 1.0 ? correlation : Broadcast<Vector>(1.0);
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

KESTRUM_KERNEL_INLINE Vector MaternCorrelation(const Matern& matern, Vector d2) {
  Vector u = matern.scale * SquareRoot(d2);
  u = u < Matern::kFarthest ? u : Broadcast<Vector>(Matern::kFarthest);
  const Vector z = 0.25 * u * u;
  Vector first = Broadcast<Vector>(1.0);
  Vector second = 1.0 + u;
  if (!matern.halfOrder) {
    const Vector logarithm = Log(0.5 * u);
    const Vector m = matern.mu == 0.0 ? -logarithm : -0.5 / matern.mu * ExpMinusOne(2.0 * matern.mu * logarithm);
    const Vector factor = Exp(matern.mu * logarithm - u) * SquareRoot(0.5 * std::numbers::pi / u);
    const Vector t = 2.0 / u;
    const auto near = u <= Matern::kSeriesEnd;
    const Vector k0 = near ? Polynomial(matern.series[0], z) + m * Polynomial(matern.series[1], z)
                           : factor * ChebyshevSum(matern.chebyshev, t);
    const Vector k1 = near ? Polynomial(matern.nextSeries[0], z) + m * Polynomial(matern.nextSeries[1], z)
                           : 0.5 * u * factor * ChebyshevSum(matern.nextChebyshev, t);
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
  if (matern.halfOrder) correlation = correlation * Exp(-u);
  return u == Vector{} ? Broadcast<Vector>(1.0) : correlation;
}

// A contribution, for Add.
#define KESTRUM_CONTRIBUTION [&](Vector d2) KESTRUM_KERNEL_TARGET __attribute__((always_inline))

KESTRUM_KERNEL_TARGET void EvaluateRows(const Element* elements, int count, bool rotated,
                                        const LagRows& lags) noexcept {
  if (count == 0) AddNugget(0.0, true, lags);
  for (int i = 0; i < count; ++i) {
    const Element& element = elements[i];
    const double w = element.w;
    const auto add = [&](const auto& contribution) KESTRUM_KERNEL_TARGET __attribute__((always_inline)) {
      Add(element, i == 0, rotated, lags, contribution);
    };
    switch (element.type) {
      case COV_NUGGET:
        AddNugget(w, i == 0, lags);
        break;
      case COV_SPHERICAL:
        add(KESTRUM_CONTRIBUTION { return d2 < 1.0 ? w * (1.0 - 0.5 * SquareRoot(d2) * (3.0 - d2)) : Vector{}; });
        break;
      case COV_EXPONENTIAL:
        add(KESTRUM_CONTRIBUTION { return w * Exp(-3.0 * SquareRoot(d2)); });
        break;
      case COV_GAUSSIAN:
        add(KESTRUM_CONTRIBUTION { return w * Exp(-3.0 * d2); });
        break;
      case COV_LINEAR:
        add(KESTRUM_CONTRIBUTION { return d2 < 1.0 ? w * (1.0 - SquareRoot(d2)) : Vector{}; });
        break;
      case COV_CUBIC:
        add(KESTRUM_CONTRIBUTION {
          const Vector inside = 1.0 + d2 * (((0.75 * d2 - 3.5) * d2 + 8.75) * SquareRoot(d2) - 7.0);
          return d2 < 1.0 ? w * inside : Vector{};
        });
        break;
      case COV_SINUS_CARDINAL:
        add(KESTRUM_CONTRIBUTION { return w * SinusCardinal(d2); });
        break;
      case COV_GAMMA:
        add(KESTRUM_CONTRIBUTION { return w * Gamma(element, d2); });
        break;
      case COV_POWER:
        add(KESTRUM_CONTRIBUTION { return w - w * Pow(d2, 0.5 * element.s); });
        break;
      case COV_EXPONENTIAL_GENERALIZED:
        add(KESTRUM_CONTRIBUTION { return w * Exp(-3.0 * Pow(d2, 0.5 * element.s)); });
        break;
      case COV_MATERN:
        add(KESTRUM_CONTRIBUTION { return w * MaternCorrelation(element.matern, d2); });
        break;
      default:
        // No such type: validation rejects the model.
        break;
    }
  }
}

#undef KESTRUM_CONTRIBUTION

KESTRUM_KERNEL_TARGET void SubtractPlaces(int n, const real* const* place, int step, const real* const* from,
                                          real* const* lag) noexcept {
  for (int axis = 0; axis < 3; ++axis) {
    const real* at = place[axis];
    real* to = lag[axis];
    for (int i = 0; i < n; ++i, at += step, to += kLanes) {
      for (int lane = 0; lane < kLanes; lane += kWidth) {
        const Vector own = step > 1 ? Load<Vector>(at + lane) : Broadcast<Vector>(*at);
        Store(to + lane, own - Load<Vector>(from[axis] + lane));
      }
    }
  }
}

KESTRUM_KERNEL_TARGET void WriteLags(const LagRows& lags, real* const* lag) noexcept {
  ForEachLag<false>(
      lags, [&](Vector dx, Vector dy, Vector dz, double* to) KESTRUM_KERNEL_TARGET __attribute__((always_inline)) {
        const std::ptrdiff_t at = to - lags.cov;
        Store(lag[0] + at, -dx);
        Store(lag[1] + at, -dy);
        Store(lag[2] + at, -dz);
      });
}
