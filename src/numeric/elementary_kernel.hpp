// Elementary functions of a vector: text for kernels, by #include at their head. Made of additions, multiplications,
// divisions and operations on bits, each rounded on its own, so that a result depends on the argument alone. The
// polynomials are minimax fits (Remez); errors are given in units in the last place of the result.

typedef unsigned long long Bits __attribute__((vector_size(KESTRUM_KERNEL_BYTES)));

constexpr double kInfinity = __builtin_inf();
constexpr double kNotANumber = __builtin_nan("");
constexpr double kLn2[2] = {0x1.62e42fefa3000p-1,
                            0x1.3de6af278ece6p-42};  // times a small whole number the first is exact

// Added to x, it leaves the nearest whole number in the lowest bits; less itself again, that number.
constexpr double kRounder = 0x1.8p52;

// Even and odd powers apart, which halves the chain of operations that wait for one another.
template <int kCount>
KESTRUM_KERNEL_INLINE Vector Polynomial(const double (&coefficients)[kCount], Vector x) {
  const Vector square = x * x;
  Vector sums[2] = {Broadcast<Vector>(coefficients[kCount - 2]), Broadcast<Vector>(coefficients[kCount - 1])};
#pragma GCC unroll 16
  for (int k = kCount - 3; k >= 0; --k) {
    Vector& sum = sums[(kCount - 1 - k) % 2 == 0 ? 1 : 0];
    sum = sum * square + coefficients[k];
  }
  return kCount % 2 == 0 ? sums[0] + x * sums[1] : sums[1] + x * sums[0];
}

// An unevaluated sum, |low| being at most about the last place of high.
struct Pair {
  Vector high;
  Vector low;
};

// a + b, where |a| >= |b| or a = 0.
KESTRUM_KERNEL_INLINE Pair FastSum(Vector a, Vector b) {
  const Vector sum = a + b;
  return {sum, (a - sum) + b};
}

// The upper half of a number's digits.
KESTRUM_KERNEL_INLINE Vector UpperHalf(Vector x) { return (Vector)((Bits)x & ~((1ULL << 27) - 1)); }

// a b, right to 2^-105 (T. J. Dekker, A floating-point technique for extending the available precision, Numerische
// Mathematik 18, 1971).
KESTRUM_KERNEL_INLINE Pair Product(Vector a, Vector b) {
  const Vector product = a * b;
  const Vector a1 = UpperHalf(a);
  const Vector b1 = UpperHalf(b);
  const Vector a2 = a - a1;
  const Vector b2 = b - b1;
  return {product, (((a1 * b1 - product) + a1 * b2) + a2 * b1) + a2 * b2};
}

// 2^k, where shifted = k + kRounder and -1022 <= k <= 1023.
KESTRUM_KERNEL_INLINE Vector PowerOfTwo(Vector shifted) { return (Vector)(((Bits)shifted << 52) + (1023ULL << 52)); }

// x 2^k, rounded once, for x about 1 and a whole number k from -2044 to 2046.
KESTRUM_KERNEL_INLINE Vector TimesPowerOfTwo(Vector x, Vector k) {
#if KESTRUM_KERNEL_BYTES == 64
  return (Vector)_mm512_maskz_scalef_pd(0xff, (__m512d)x, (__m512d)k);
#else
  // In two steps, since 2^k itself may be out of range.
  const Vector half = 0.5 * k + kRounder;
  const Vector other = (k - (half - kRounder)) + kRounder;
  return x * PowerOfTwo(half) * PowerOfTwo(other);
#endif
}

// x = k ln 2 + r + tail, |r| up to half of ln 2 and tail beyond its last place.
struct ReducedExponent {
  Vector k;
  Vector r;
  Vector tail;
};
KESTRUM_KERNEL_INLINE ReducedExponent ReduceExponent(Vector x) {
  const Vector k = (x * 0x1.71547652b82fep+0 + kRounder) - kRounder;
  const Vector high = x - k * kLn2[0];
  const Vector low = k * kLn2[1];
  const Vector r = high - low;
  return {k, r, (high - r) - low};
}

// exp(r) - 1 - r.
KESTRUM_KERNEL_INLINE Vector ExponentialBeyondLinear(Vector r) {
  constexpr double kCoefficients[] = {0x1.000000000000bp-1,  0x1.5555555555561p-3,  0x1.5555555550040p-5,
                                      0x1.111111110d59ep-7,  0x1.6c16c185a510bp-10, 0x1.a01a01bb0c39bp-13,
                                      0x1.a0199697a2d30p-16, 0x1.71dddf8212412p-19, 0x1.28b046f117bffp-22,
                                      0x1.af85e3f3c355ap-26};
  return r * r * Polynomial(kCoefficients, r);
}

// exp(x), or exp(x + tail) for a tail beyond the last place of x. To 0.8 units.
template <bool kHasTail = false>
KESTRUM_KERNEL_INLINE Vector Exp(Vector x, Vector tail = Vector{}) {
#if KESTRUM_KERNEL_BYTES == 64
  // One instruction each, where GCC makes two of what follows. They give their second operand if one is no number.
  x = (Vector)_mm512_maskz_min_pd(0xff, _mm512_set1_pd(710.0), (__m512d)x);
  x = (Vector)_mm512_maskz_max_pd(0xff, _mm512_set1_pd(-746.0), (__m512d)x);
#else
  x = x > 710.0 ? Broadcast<Vector>(710.0) : x;
  x = x < -746.0 ? Broadcast<Vector>(-746.0) : x;
#endif
  const ReducedExponent reduced = ReduceExponent(x);
  const Pair linear = FastSum(Broadcast<Vector>(1.0), reduced.r);
  const Vector curved = ExponentialBeyondLinear(reduced.r);
  Vector rest = curved + reduced.tail;
  if (kHasTail) rest = rest + tail * (linear.high + curved);
  return TimesPowerOfTwo(linear.high + (linear.low + rest), reduced.k);
}

// exp(x) - 1, for x below 700. To 2 units.
KESTRUM_KERNEL_INLINE Vector ExpMinusOne(Vector x) {
  x = x < -60.0 ? Broadcast<Vector>(-60.0) : x;
  const ReducedExponent reduced = ReduceExponent(x);
  const Vector scale = PowerOfTwo(reduced.k + kRounder);
  const Vector rest = scale * (ExponentialBeyondLinear(reduced.r) + reduced.tail);
  const Vector base = scale - 1.0;
  const Vector linear = scale * reduced.r;
  // base is 0, or at least a third of |linear|.
  const Vector sum = base + linear;
  const Vector back = sum - base;
  return sum + (((base - (sum - back)) + (linear - back)) + rest);
}

// x = 2^k (1 + f) for x > 0, 1 + f being within a factor of sqrt(2) of 1.
struct ReducedLogarithm {
  Vector k;
  Vector f;
};
KESTRUM_KERNEL_INLINE ReducedLogarithm ReduceLogarithm(Vector x) {
  constexpr unsigned long long kRootHalf = 0x3FE6A09E667F3BCD;
  constexpr unsigned long long kBias = 1024;
  const auto subnormal = x < 0x1p-1022;
  const Bits bits = (Bits)(subnormal ? x * 0x1p54 : x);
  const Bits exponent = (bits - kRootHalf + (kBias << 52)) >> 52;
  const Vector mantissa = (Vector)(bits - ((exponent - kBias) << 52));
  const Vector k = (Vector)(exponent | 0x4330000000000000ULL) - (0x1p52 + static_cast<double>(kBias));
  return {subnormal ? k - 54.0 : k, mantissa - 1.0};
}

// log(x); -infinity at 0, not a number below. To 0.9 units.
KESTRUM_KERNEL_INLINE Vector Log(Vector x) {
  constexpr double kCoefficients[] = {0x1.5555555555593p-1, 0x1.999999997fb35p-2, 0x1.24924942177a6p-2,
                                      0x1.c71c51e80d016p-3, 0x1.74664629f553ep-3, 0x1.39a0f51985883p-3,
                                      0x1.2f0d8f3f87c0bp-3};
  const auto [k, f] = ReduceLogarithm(x);
  // With s = f / (2 + f), log(1 + f) = 2 s + s R(s^2) = f - f^2/2 + s (f^2/2 + R).
  const Vector s = f / (2.0 + f);
  const Vector z = s * s;
  const Vector square = 0.5 * f * f;
  const Vector rest = s * (square + z * Polynomial(kCoefficients, z)) + k * kLn2[1];
  const Pair linear = FastSum(k * kLn2[0], f);
  const Vector logarithm = linear.high + (linear.low - (square - rest));
  const Vector beyond = x == Vector{} ? Broadcast<Vector>(-kInfinity) : x > 0.0 ? x : Broadcast<Vector>(kNotANumber);
  return ((x > 0.0) & (x < kInfinity)) ? logarithm : beyond;
}

// log(x) for finite x > 0, right to 2^-64 of itself.
KESTRUM_KERNEL_INLINE Pair LongLog(Vector x) {
  // atanh(s) = s (1 + z/3 + z^2 W(z)), z = s^2.
  constexpr double kCoefficients[] = {0x1.9999999999b33p-3, 0x1.2492492457802p-3, 0x1.c71c722de39ebp-4,
                                      0x1.745ce9b6b4f82p-4, 0x1.3b1ef462e293bp-4, 0x1.0f7f209a37f65p-4,
                                      0x1.0e4a305927202p-4};
  constexpr double kThird[2] = {0x1.5555555555555p-2, 0x1.5555555555555p-56};
  const auto [k, f] = ReduceLogarithm(x);
  const Pair divisor = FastSum(Broadcast<Vector>(2.0), f);
  const Vector inverse = 1.0 / divisor.high;
  const Vector s = f * inverse;
  const Pair back = Product(s, divisor.high);
  const Vector sLow = (((f - back.high) - back.low) - s * divisor.low) * inverse;
  Pair z = Product(s, s);
  z.low = z.low + 2.0 * s * sLow;
  Pair factor = FastSum(Broadcast<Vector>(kThird[0]), z.high * Polynomial(kCoefficients, z.high));
  factor.low = factor.low + kThird[1];
  Pair v = Product(z.high, factor.high);
  v.low = v.low + (z.high * factor.low + z.low * factor.high);
  Pair w = Product(s, v.high);
  w.low = w.low + (s * v.low + sLow * v.high);
  const Pair atanh = FastSum(s, w.high);
  const Pair sum = FastSum(k * kLn2[0], 2.0 * atanh.high);
  return FastSum(sum.high, sum.low + (k * kLn2[1] + 2.0 * (atanh.low + (w.low + sLow))));
}

// x^y for x >= 0; 1 where y is 0, and not a number for x < 0 otherwise. To 0.85 units.
KESTRUM_KERNEL_INLINE Vector Pow(Vector x, double y) {
  if (y == 0.0) return Broadcast<Vector>(1.0);
  const Pair logarithm = LongLog(x);
  const Pair product = Product(logarithm.high, Broadcast<Vector>(y));
  const auto moderate = (product.high > -800.0) & (product.high < 800.0);
  const Vector power = Exp<true>(product.high, moderate ? product.low + logarithm.low * y : Vector{});
  const Vector atZero = Broadcast<Vector>(y > 0.0 ? 0.0 : kInfinity);
  const Vector atInfinity = Broadcast<Vector>(y > 0.0 ? kInfinity : 0.0);
  const Vector beyond = x == Vector{} ? atZero : x == kInfinity ? atInfinity : Broadcast<Vector>(kNotANumber);
  return ((x > 0.0) & (x < kInfinity)) ? power : beyond;
}

// sin(pi x + quarters pi / 2); the reduction is exact. To 0.85 units.
KESTRUM_KERNEL_INLINE Vector SinPi(Vector x, unsigned long long quarters = 0) {
  constexpr double kSine[] = {-0x1.5555555555549p-3, 0x1.111111110f87ep-7,   -0x1.a01a019c12028p-13,
                              0x1.71de357814538p-19, -0x1.ae5e66862934bp-26, 0x1.5d93178dc2034p-33};
  constexpr double kCosine[] = {0x1.555555555554cp-5,   -0x1.6c16c16c15186p-10, 0x1.a01a019cb275fp-16,
                                -0x1.27e4f80a6ecebp-22, 0x1.1ee9ec3bf0482p-29,  -0x1.8faec6446f1a3p-37};
  // Numbers beyond 2^52 are whole, and those beyond 2^53 even.
  const Vector size = (Vector)((Bits)x & ~(1ULL << 63));
  const Vector low = size < 0x1p52 ? x : size < 0x1p53 ? x - 0x1p52 : 0.0 * x;
  const Vector turned = low - 2.0 * ((0.5 * low + kRounder) - kRounder);
  const Vector shifted = 2.0 * turned + kRounder;
  const Vector r = turned - 0.5 * (shifted - kRounder);
  const Bits quarter = (Bits)shifted + quarters;
  Pair t = Product(r, Broadcast<Vector>(0x1.921fb54442d18p+1));
  t.low = t.low + r * 0x1.1a62633145c07p-53;
  const Vector z = t.high * t.high;
  const Vector half = 0.5 * z;
  const Vector base = 1.0 - half;
  const Vector sine = t.high + (t.low * base + t.high * z * Polynomial(kSine, z));
  const Vector cosine = base + (((1.0 - base) - half) + (z * z * Polynomial(kCosine, z) - t.high * t.low));
  const Vector value = (Integers)(quarter & 1) == 0 ? sine : cosine;
  return (Vector)((Bits)value ^ ((quarter & 2) << 62));
}
