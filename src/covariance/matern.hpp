#ifndef KESTRUM_COVARIANCE_MATERN_HPP
#define KESTRUM_COVARIANCE_MATERN_HPP

namespace kestrum {

// The Matern correlation of smoothness nu above 0,
//   C_nu(u) = 2 (u/2)^nu K_nu(u) / Gamma(nu),
// with all that depends on nu alone. The recurrence of K is, for correlations,
//   C_nu+1(u) = C_nu(u) + (u/2)^2 C_nu-1(u) / (nu (nu - 1)),
// a sum of positive numbers at most 1: nothing overflows, and no digits are lost.
//
// If nu is half of an odd number it starts from C_1/2 = exp(-u) and C_3/2 = (1 + u) exp(-u). Else it starts from
// K_mu and K_mu+1, mu being nu less a whole number of steps and within one half of zero. Up to u = 2 these come from the
// series of N. M. Temme (On the numerical evaluation of the modified Bessel function of the third kind, Journal of
// Computational Physics 19, 1975): two power series in (u/2)^2 for each, one of which is multiplied by
// m = (1 - (u/2)^2mu) / 2 mu. Beyond 2, sqrt(2u/pi) exp(u) K(u) is a Chebyshev series in 1/u, fitted to Steed's continued
// fraction (same place).
struct Matern {
  // Highest powers, and terms, that count in double precision.
  static constexpr int kPowers = 13;
  static constexpr int kChebyshev = 23;
  static constexpr double kSeriesEnd = 2.0;
  // The correlation of any order has long vanished there, and exp(-u) has not.
  static constexpr double kFarthest = 700.0;

  static Matern OfSmoothness(double nu) noexcept;

  double scale;        // sqrt(2 nu): u at distance 1
  bool halfOrder;      // nu is half of an odd number
  int rounds;          // of the recurrence: with none the first order is nu, with one the second
  double secondOrder;  // for half orders 3/2

  // The rest is for other than half orders. The first order is mu if that is nu, else mu + 1.
  double mu;
  bool firstIsMu;
  double firstFactor;   // 2 / Gamma(first order)
  double secondFactor;  // 2 / Gamma(mu + 2)
  // The coefficients for (u/2)^mu K_mu and for (u/2)^(mu + 1) K_mu+1: of the two power series each, and of the Chebyshev
  // series in 2/u.
  double series[2][kPowers];
  double nextSeries[2][kPowers];
  double chebyshev[kChebyshev];
  double nextChebyshev[kChebyshev];
};

}  // namespace kestrum

#endif
