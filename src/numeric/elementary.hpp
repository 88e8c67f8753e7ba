#ifndef KESTRUM_NUMERIC_ELEMENTARY_HPP
#define KESTRUM_NUMERIC_ELEMENTARY_HPP

// Elementary functions whose results have the same bits on every machine, with every C library and compiler: for all
// that need not give the bits of the C library in use. Errors are below one unit in the last place (two for ExpMinusOne);
// numeric/elementary_kernel.hpp, which kernels include to have them in vectors, has the figures. Results that overflow
// are infinite, those that underflow subnormal or zero; not a number gives not a number.

#include "numeric/simd_level.hpp"

namespace kestrum {

double Exp(double x) noexcept;
// exp(x) - 1, x being below 700.
double ExpMinusOne(double x) noexcept;
// -infinity at 0, and not a number for negative x.
double Log(double x) noexcept;
// x^y, x being at least 0; 1 if y is 0.
double Pow(double x, double y) noexcept;
// The sine and the cosine of pi x.
double SinPi(double x) noexcept;
double CosPi(double x) noexcept;

enum class Elementary { kExp, kExpMinusOne, kLog, kPow, kSinPi, kCosPi, kSquareRoot };

// Replaces n numbers by their values; y is the exponent of kPow.
void Evaluate(Elementary function, int n, double* x, double y = 0.0, SimdLevel level = BestSimdLevel()) noexcept;

}  // namespace kestrum

#endif
