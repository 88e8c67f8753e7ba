#include "covariance/matern.hpp"

#include <cmath>
#include <iterator>

#include "numeric/elementary.hpp"
#include "numeric/special_functions.hpp"

namespace kestrum {
namespace {

// 1 / Gamma(1 + x) in powers of x (J. W. Wrench, Concerning two series for the gamma function, Mathematics of Computation
// 22, 1968), as many as count in double precision for |x| up to 1/2.
constexpr double kInverseGamma[] = {
    1.0,
    0.57721566490153286061,
    -0.65587807152025388108,
    -0.042002635034095235529,
    0.1665386113822914895,
    -0.042197734555544336748,
    -0.0096219715278769735621,
    0.0072189432466630995424,
    -0.0011651675918590651121,
    -0.00021524167411495097282,
    0.00012805028238811618615,
    -0.000020134854780788238656,
    -1.2504934821426706573e-6,
    1.1330272319816958824e-6,
    -2.0563384169776071035e-7,
    6.1160951044814158179e-9,
    5.0020076444692229301e-9,
    -1.1812745704870201446e-9,
    1.0434267116911005105e-10,
    7.782263439905071254e-12,
    -3.6968056186422057082e-12,
    5.100370287454475979e-13,
};
constexpr int kTerms = static_cast<int>(std::size(kInverseGamma));

// Sums the even or the odd powers of the series, the lowest one as a constant.
double EverySecond(double x, int first) noexcept {
  double sum = 0.0;
  for (int k = kTerms - 2 + first; k >= 0; k -= 2) sum = sum * x * x + kInverseGamma[k];
  return sum;
}

// The factors, and Temme's series, sum of c_k f_k and of c_k (p_k - k f_k) with c_k = (u/2)^2k / k!. Its start is linear in
// m = (1 - (u/2)^2mu) / 2 mu, and so are all terms.
void SetSeries(Matern& matern) noexcept {
  const double mu = matern.mu;
  const double even = EverySecond(mu, 0);
  const double odd = EverySecond(mu, 1);
  const double inversePlus = even + mu * odd;  // 1 / Gamma(1 + mu)
  matern.firstFactor = 2.0 * (matern.firstIsMu ? mu * inversePlus : inversePlus);
  matern.secondFactor = 2.0 * inversePlus / (mu + 1.0);
  const double inverseMinus = even - mu * odd;     // 1 / Gamma(1 - mu)
  const double sine = inversePlus * inverseMinus;  // sin(pi mu) / pi mu
  // The constants and the factors of m, in turn.
  double f[2] = {-odd / sine, inversePlus / sine};
  double p[2] = {0.5 / inversePlus, 0.0};
  double q[2] = {0.5 / inverseMinus, -mu / inverseMinus};
  double c = 1.0;
  for (int k = 0; k < Matern::kPowers; ++k) {
    for (int part = 0; part < 2; ++part) {
      if (k > 0) {
        f[part] = (k * f[part] + p[part] + q[part]) / (k * k - mu * mu);
        p[part] /= k - mu;
        q[part] /= k + mu;
      }
      matern.series[part][k] = c * f[part];
      matern.nextSeries[part][k] = c * (p[part] - k * f[part]);
    }
    c /= k + 1;
  }
}

// Chebyshev coefficients on [0, 1] of the scaled functions of t = 2/u, from their values at the nodes.
void SetChebyshev(Matern& matern) noexcept {
  constexpr int n = Matern::kChebyshev;
  double cosines[4 * n];  // of j pi / 2n
  for (int j = 0; j < 4 * n; ++j) cosines[j] = CosPi(j / (2.0 * n));
  for (int k = 0; k < n; ++k) matern.chebyshev[k] = matern.nextChebyshev[k] = 0.0;
  for (int j = 0; j < n; ++j) {
    const double u = 4.0 / (1.0 + cosines[2 * j + 1]);
    const SteedSums sums = SteedFraction(u, matern.mu);
    for (int k = 0; k < n; ++k) {
      const double weight = (k == 0 ? 1.0 : 2.0) / n * cosines[(2 * j + 1) * k % (4 * n)];
      matern.chebyshev[k] += weight / sums.s;
      matern.nextChebyshev[k] += weight * sums.next / (sums.s * u);
    }
  }
}

}  // namespace

Matern Matern::OfSmoothness(double nu) noexcept {
  Matern matern{};
  matern.scale = std::sqrt(2.0 * nu);
  matern.halfOrder = nu - 0.5 == std::floor(nu - 0.5);
  if (matern.halfOrder) {
    matern.rounds = static_cast<int>(nu);
    matern.secondOrder = 1.5;
    return matern;
  }
  const int steps = static_cast<int>(std::floor(nu + 0.5));
  matern.mu = nu - steps;
  matern.firstIsMu = steps == 0;
  matern.rounds = steps < 2 ? 0 : steps - 1;
  matern.secondOrder = matern.mu + 2.0;
  SetSeries(matern);
  SetChebyshev(matern);
  return matern;
}

}  // namespace kestrum
