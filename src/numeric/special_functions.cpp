#include "numeric/special_functions.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numbers>
#include <utility>

#include "core/buffer.hpp"
#include "core/comparators.h"
#include "core/statuses.hpp"
#include "numeric/normal_table.hpp"
#include "numeric/special_functions.hpp"

namespace kestrum {
namespace {

constexpr double kAccuracy = 1e-16;
constexpr double kTiny = 1e-30;
constexpr int kMaxRounds = 10000;
constexpr double kSeriesLimit = 2.0;  // Temme's series below, Steed's continued fraction from here on

// K at one order and at that order plus one.
struct KPair {
  double k;
  double kNext;
};

KPair TemmeSeries(double x, const TemmeOrder& order) noexcept {
  const auto& [mu, fact, gam1, gam2, gampl, gammi] = order;
  const double halfX = 0.5 * x;
  double d = -std::log(halfX);
  double e = mu * d;
  const double fact2 = std::fabs(e) < kAccuracy ? 1.0 : std::sinh(e) / e;
  double ff = fact * (gam1 * std::cosh(e) + gam2 * fact2 * d);
  double sum = ff;
  e = std::exp(e);
  double p = 0.5 * e / gampl;
  double q = 0.5 / (e * gammi);
  double c = 1.0;
  d = halfX * halfX;
  double sum1 = p;
  for (int i = 1; i <= kMaxRounds; ++i) {
    ff = (i * ff + p + q) / (i * i - mu * mu);
    c *= d / i;
    p /= i - mu;
    q /= i + mu;
    const double del = c * ff;
    sum += del;
    sum1 += c * (p - i * ff);
    if (std::fabs(del) < std::fabs(sum) * kAccuracy) break;
  }
  return {sum, sum1 * (2.0 * (1.0 / x))};
}

KPair SteedPair(double x, double mu) noexcept {
  const SteedSums sums = SteedFraction(x, mu);
  const double k = std::sqrt(std::numbers::pi / (2.0 * x)) * std::exp(-x) / sums.s;
  return {k, k * sums.next * (1.0 / x)};
}

// Upward recurrence, stable for K.
KPair RaiseK(KPair pair, double x, SplitOrder order) noexcept {
  const double xi2 = 2.0 * (1.0 / x);
  for (int i = 1; i <= order.steps; ++i) {
    const double next = (order.mu + i) * xi2 * pair.kNext + pair.k;
    pair.k = pair.kNext;
    pair.kNext = next;
  }
  return pair;
}

// I'/I at order nu, by the modified Lentz method.
double LogDerivativeOfI(double x, double nu) noexcept {
  const double xi = 1.0 / x;
  const double xi2 = 2.0 * xi;
  double h = nu * xi;
  if (h < kTiny) h = kTiny;
  double b = xi2 * nu;
  double d = 0.0;
  double c = h;
  for (int i = 1; i <= kMaxRounds; ++i) {
    b += xi2;
    d = 1.0 / (b + d);
    c = b + 1.0 / c;
    const double del = c * d;
    h *= del;
    if (std::fabs(del - 1.0) < kAccuracy) break;
  }
  return h;
}

// Quantile of sorted values at position p*(n - 1).
double SortedQuantile(const Buffer<real>& sorted, double p) noexcept {
  const double position = p * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<std::size_t>(position);
  if (below + 1 >= sorted.size()) return sorted[below];
  return sorted[below] + (position - static_cast<double>(below)) * (sorted[below + 1] - sorted[below]);
}

// Normal score of a probability, by interpolation in the table. It starts from the first entry that reaches p, unlike
// UpperNormalQuantile, and mirrors the table below one half.
double NormalScore(double p) noexcept {
  const double* const end = kNormalTable + kNormalTableSize;
  if (p < 0.5) {
    const double* const past = std::partition_point(kNormalTable, end, [p](double entry) { return 1.0 - entry >= p; });
    if (past == end) return -kNormalTableEnd;
    const double a = 1.0 - past[0];
    const double b = 1.0 - past[-1];
    return -(static_cast<double>(past - kNormalTable) - (p - a) / (b - a)) * kNormalTableStep;
  }
  const double* const entry = std::partition_point(kNormalTable, end, [p](double t) { return !(t >= p); });
  if (entry == kNormalTable) return 0.0;
  if (entry == end) return kNormalTableEnd;
  return (static_cast<double>(entry - kNormalTable) - (1.0 - (p - entry[-1]) / (entry[0] - entry[-1]))) *
         kNormalTableStep;
}

}  // namespace

SteedSums SteedFraction(double x, double mu) noexcept {
  double b = 2.0 * (1.0 + x);
  double d = 1.0 / b;
  double h = d;
  double delh = d;
  double q1 = 0.0;
  double q2 = 1.0;
  const double a1 = 0.25 - mu * mu;
  double q = a1;
  double c = a1;
  double a = -a1;
  double s = 1.0 + q * delh;
  for (int i = 2; i <= kMaxRounds; ++i) {
    a -= 2 * (i - 1);
    c = -a * c / i;
    const double qnew = (q1 - b * q2) / a;
    q1 = q2;
    q2 = qnew;
    q += c * qnew;
    b += 2.0;
    d = 1.0 / (b + a * d);
    delh = (b * d - 1.0) * delh;
    h += delh;
    const double dels = q * delh;
    s += dels;
    if (std::fabs(dels / s) < kAccuracy) break;
  }
  return {s, mu + x + 0.5 - a1 * h};
}

SplitOrder::SplitOrder(double nu) noexcept {
  const double rounded = nu + 0.5;
  steps = rounded > 0.0 && rounded < 2147483648.0 ? static_cast<int>(rounded) : 0;
  mu = nu - steps;
}

TemmeOrder::TemmeOrder(double order) noexcept : mu(order) {
  const double piMu = std::numbers::pi * mu;
  fact = std::fabs(piMu) < kAccuracy ? 1.0 : piMu / std::sin(piMu);
  VORLbeschb(mu, &gam1, &gam2, &gampl, &gammi);
}

double BesselK::operator()(double x) const noexcept {
  return RaiseK(x < kSeriesLimit ? TemmeSeries(x, temme_) : SteedPair(x, order_.mu), x, order_).k;
}

}  // namespace kestrum

void VORLbessik(double x, double nu, double* ri, double* rk, double* rip, double* rkp) noexcept {
  using namespace kestrum;
  const SplitOrder order(nu);
  const double xi = 1.0 / x;

  // I at an arbitrary scale, from order nu down to mu.
  const double h = LogDerivativeOfI(x, nu);
  const double ril1 = kTiny;
  const double rip1 = h * ril1;
  double ril = ril1;
  double ripl = rip1;
  double fact = nu * xi;
  for (int l = order.steps; l >= 1; --l) {
    const double ritemp = fact * ril + ripl;
    fact -= xi;
    ripl = fact * ritemp + ril;
    ril = ritemp;
  }
  const double f = ripl / ril;

  const KPair atMu = x < kSeriesLimit ? TemmeSeries(x, TemmeOrder(order.mu)) : SteedPair(x, order.mu);
  const double rkmup = order.mu * xi * atMu.k - atMu.kNext;
  const double rimu = xi / (f * atMu.k - rkmup);  // the Wronskian gives the scale of I
  *ri = rimu * ril1 / ril;
  *rip = rimu * rip1 / ril;

  const KPair atNu = RaiseK(atMu, x, order);
  *rk = atNu.k;
  *rkp = nu * xi * atNu.k - atNu.kNext;
}

void VORLbeschb(double x, double* gam1, double* gam2, double* gampl, double* gammi) noexcept {
  float c1[] = {-1.142022728919983F,    0.006516511086374521F,   0.00030870901537127793F, -3.47062700711831e-06F,
                6.943766450717703e-09F, 3.6779499584804753e-11F, -1.3560000019542662e-13F};
  float c2[] = {1.8437405824661255F,     -0.07685284316539764F,   0.0012719271471723914F,  -4.971736871084431e-06F,
                -3.312612051331598e-08F, 2.4230958906024114e-10F, -1.701999950481578e-13F, -1.4899999874055155e-15F};
  const auto xx = static_cast<float>(8.0 * x * x - 1.0);
  *gam1 = VORLchebev(-1.0F, 1.0F, c1, 7, xx);
  *gam2 = VORLchebev(-1.0F, 1.0F, c2, 8, xx);
  *gampl = *gam2 - x * *gam1;
  *gammi = *gam2 + x * *gam1;
}

float VORLchebev(float a, float b, float* c, int m, float x) noexcept {
  const float y = (2.0F * x - a - b) / (b - a);
  const float y2 = 2.0F * y;
  float d = 0.0F;
  float dd = 0.0F;
  for (int j = m - 1; j >= 1; --j) {
    const float e = y2 * d - dd + c[j];
    dd = std::exchange(d, e);
  }
  return y * d - dd + 0.5F * c[0];
}

double VORLgammln(double x) noexcept {
  constexpr double kCoefficients[14] = {57.15623566586292,       -59.59796035547549,     14.136097974741746,
                                        -0.4919138160976202,     3.399464998481189e-05,  4.652362892704858e-05,
                                        -9.837447530487956e-05,  0.0001580887032249125,  -0.00021026444172410488,
                                        0.00021743961811521265,  -0.0001643181065367639, 8.441822398385275e-05,
                                        -2.6190838401581408e-05, 3.6899182659531625e-06};
  const double t = x + 5.2421875;
  double ser = 0.9999999999999971;
  for (int j = 0; j < 14; ++j) ser += kCoefficients[j] / (x + j + 1);
  return (x + 0.5) * std::log(t) - t + std::log(2.5066282746310007 * ser / x);
}

int VORLComputeIQRofReal(int n, real* value, real* iqr) noexcept {
  *iqr = 0.0;
  if (n < 1) return 0;
  kestrum::Buffer<real> sorted;
  if (const int status = sorted.Allocate(static_cast<std::size_t>(n)); status != 0) return status;
  std::copy_n(value, n, sorted.data());
  std::qsort(sorted.data(), sorted.size(), sizeof(real), VORLCmpReal);
  *iqr = kestrum::SortedQuantile(sorted, 0.75) - kestrum::SortedQuantile(sorted, 0.25);
  return 0;
}

int VORLComputeNewVarValueUniform(int n, real* /*value*/, real* pdf, real* newValue) noexcept {
  if (n < 1) return 0;
  newValue[0] = 0.0;
  if (n == 1) return 0;
  double sum = pdf[0];
  for (int i = 1; i < n - 1; ++i) {
    newValue[i] = static_cast<double>(i) / (n - 1) * pdf[i] + sum;
    sum += pdf[i];
  }
  newValue[n - 1] = 1.0;
  return 0;
}

int VORLComputeNewVarValueNormal(int n, real* /*value*/, real* pdf, real* newValue) noexcept {
  if (n < 1) return 0;
  double sum = 0.0;
  for (int i = 0; i < n; ++i) {
    newValue[i] = kestrum::NormalScore(sum + 0.5 * pdf[i]);
    sum += pdf[i];
  }
  const double first = newValue[0];
  const double range = newValue[n - 1] - first;
  if (range < VORL_EPSILON) return kestrum::kRangeOfVariable;
  const double scale = 1.0 / range;
  for (int i = 0; i < n; ++i) newValue[i] = (newValue[i] - first) * scale;
  return 0;
}

int VORLConfidenceNormal(int n, real* confidence, real* factor) noexcept {
  for (int i = 0; i < n; ++i) {
    const double p = confidence[i];
    const double c = (p + 1.0) / 2.0;
    if (!(p >= 0.0 && p <= 1.0)) {
      factor[i] = VORL_MISSING_VALUE;
    } else if (c > kestrum::kNormalTable[kestrum::kNormalTableSize - 1]) {
      factor[i] = VORL_INFINITY;
    } else {
      factor[i] = kestrum::UpperNormalQuantile(c);
    }
  }
  return 0;
}

int VORLPdfToCdf(int n, real* pdf, real* cdf) noexcept {
  double sum = 0.0;
  for (int i = 0; i < n; ++i) {
    cdf[i] = sum / (1.0 - pdf[i]);
    sum += pdf[i];
  }
  return 0;
}

int VORLQuantileFromCdf(int n, real* value, real* cdf, int nquantile, real* probability, real* quantile) noexcept {
  if (n < 1) return 0;
  int j = 0;
  for (int i = 0; i < nquantile; ++i) {
    const double p = probability[i];
    while (j < n && p >= cdf[j]) ++j;
    if (j == 0) {
      quantile[i] = value[0];
    } else if (j == n) {
      quantile[i] = value[n - 1];
    } else {
      quantile[i] = value[j - 1] + (p - cdf[j - 1]) / (cdf[j] - cdf[j - 1]) * (value[j] - value[j - 1]);
    }
  }
  return 0;
}
