#ifndef KESTRUM_COVARIANCE_ELEMENTARY_HPP
#define KESTRUM_COVARIANCE_ELEMENTARY_HPP

#include <cmath>

namespace kestrum {

// The C library's functions of n numbers at a time, each in place.
template <typename Function>
inline void Replace(int n, double* x, const Function& function) noexcept {
  for (int k = 0; k < n; ++k) x[k] = function(x[k]);
}
inline void Exponentials(int n, double* x) noexcept {
  Replace(n, x, [](double value) { return std::exp(value); });
}
inline void Sines(int n, double* x) noexcept {
  Replace(n, x, [](double value) { return std::sin(value); });
}
inline void Powers(int n, double* x, double exponent) noexcept {
  Replace(n, x, [exponent](double value) { return std::pow(value, exponent); });
}

}  // namespace kestrum

#endif
