#include "numeric/elementary.hpp"

#define KESTRUM_KERNEL "numeric/elementary_arrays_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {
namespace {

baseline::Vector Of(double x) noexcept { return baseline::Broadcast<baseline::Vector>(x); }

}  // namespace

double Exp(double x) noexcept { return baseline::Exp(Of(x))[0]; }
double ExpMinusOne(double x) noexcept { return baseline::ExpMinusOne(Of(x))[0]; }
double Log(double x) noexcept { return baseline::Log(Of(x))[0]; }
double Pow(double x, double y) noexcept { return baseline::Pow(Of(x), y)[0]; }
double SinPi(double x) noexcept { return baseline::SinPi(Of(x))[0]; }
double CosPi(double x) noexcept { return baseline::SinPi(Of(x), 1)[0]; }

void Evaluate(Elementary function, int n, double* x, double y, SimdLevel level) noexcept {
  KESTRUM_KERNEL_AT(level, ReplaceAll)(function, n, x, y);
}

}  // namespace kestrum
