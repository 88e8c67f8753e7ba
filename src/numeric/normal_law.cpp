#include "numeric/normal_law.hpp"

#include <cmath>

#include "numeric/elementary.hpp"
#include "numeric/normal_table.hpp"

namespace kestrum {
namespace {

double TabulatedQuantile(double p) noexcept { return p < 0.5 ? -UpperNormalQuantile(1.0 - p) : UpperNormalQuantile(p); }

// The density times the power series of t + t^3/3 + t^5/15 + ... near 0 (G. Marsaglia, Evaluating the normal distribution,
// Journal of Statistical Software 11(4), 2004), and times Laplace's continued fraction 1/(t + 1/(t + 2/(t + 3/...)))
// beyond.
double ExactCdf(double t) noexcept {
  constexpr double kSeriesEnd = 2.5;
  constexpr int kFractions = 80;
  constexpr double kInverseRoot = 0.3989422804014327;  // of 2 pi
  const double size = std::fabs(t);
  const double density = kInverseRoot * Exp(-0.5 * t * t);
  if (size < kSeriesEnd) {
    double sum = t;
    double term = t;
    for (int k = 3; std::fabs(term) > 1e-17 * std::fabs(sum); k += 2) {
      term *= t * t / k;
      sum += term;
    }
    return 0.5 + density * sum;
  }
  double fraction = size;
  for (int k = kFractions; k > 0; --k) fraction = size + k / fraction;
  const double tail = density > 0.0 ? density / fraction : 0.0;
  return t < 0.0 ? tail : 1.0 - tail;
}

double Ratio(const double (&above)[8], const double (&below)[8], double x) noexcept {
  double numerator = above[7];
  double denominator = below[7];
  for (int k = 6; k >= 0; --k) {
    numerator = numerator * x + above[k];
    denominator = denominator * x + below[k];
  }
  return numerator / denominator;
}

// M. J. Wichura, Algorithm AS 241: The percentage points of the normal distribution, Applied Statistics 37, 1988.
double ExactQuantile(double p) noexcept {
  constexpr double kLeast = 0x1p-1022;
  constexpr double kMost = 1.0 - 0x1p-53;
  p = p < kLeast ? kLeast : p > kMost ? kMost : p;
  static constexpr double kMiddle[2][8] = {
      {3.3871328727963666080, 133.14166789178437745, 1971.5909503065514427, 13731.693765509461125,
       45921.953931549871457, 67265.770927008700853, 33430.575583588128105, 2509.0809287301226727},
      {1.0, 42.313330701600911252, 687.18700749205790830, 5394.1960214247511077, 21213.794301586595867,
       39307.895800092710610, 28729.085735721942674, 5226.4952788528545610}};
  static constexpr double kTail[2][8] = {
      {1.42343711074968357734, 4.63033784615654529590, 5.76949722146069140550, 3.64784832476320460504,
       1.27045825245236838258, 0.241780725177450611770, 0.0227238449892691845833, 7.74545014278341407640e-4},
      {1.0, 2.05319162663775882187, 1.67638483018380384940, 0.689767334985100004550, 0.148103976427480074590,
       0.0151986665636164571966, 5.47593808499534494600e-4, 1.05075007164441684324e-9}};
  static constexpr double kFarTail[2][8] = {
      {6.65790464350110377720, 5.46378491116411436990, 1.78482653991729133580, 0.296560571828504891230,
       0.0265321895265761230930, 0.00124266094738807843860, 2.71155556874348757815e-5, 2.01033439929228813265e-7},
      {1.0, 0.599832206555887937690, 0.136929880922735805310, 0.0148753612908506148525, 7.86869131145613259100e-4,
       1.84631831751005468180e-5, 1.42151175831644588870e-7, 2.04426310338993978564e-15}};
  constexpr double kMiddleEnd = 0.425;
  constexpr double kTailEnd = 5.0;
  const double q = p - 0.5;
  if (std::fabs(q) <= kMiddleEnd) return q * Ratio(kMiddle[0], kMiddle[1], kMiddleEnd * kMiddleEnd - q * q);
  const double r = std::sqrt(-Log(q < 0.0 ? p : 1.0 - p));
  const double size = r <= kTailEnd ? Ratio(kTail[0], kTail[1], r - 1.6) : Ratio(kFarTail[0], kFarTail[1], r - 5.0);
  return q < 0.0 ? -size : size;
}

}  // namespace

const NormalLaw kTabulatedNormal = {NormalCdf, TabulatedQuantile};
const NormalLaw kExactNormal = {ExactCdf, ExactQuantile};

}  // namespace kestrum
