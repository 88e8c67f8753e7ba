// Arrays of elementary functions: text for numeric/kernel_levels.hpp.

#include "numeric/elementary_kernel.hpp"

template <Elementary kFunction>
KESTRUM_KERNEL_INLINE Vector ValueOf(Vector x, double y) {
  switch (kFunction) {
    case Elementary::kExp:
      return Exp(x);
    case Elementary::kExpMinusOne:
      return ExpMinusOne(x);
    case Elementary::kLog:
      return Log(x);
    case Elementary::kPow:
      return Pow(x, y);
    case Elementary::kSinPi:
      return SinPi(x);
    case Elementary::kCosPi:
      return SinPi(x, 1);
    case Elementary::kSquareRoot:
      return SquareRoot(x);
  }
}

template <Elementary kFunction>
KESTRUM_KERNEL_TARGET void Replace(int n, double* x, double y) noexcept {
  int k = 0;
  for (; k + kWidth <= n; k += kWidth) Store(x + k, ValueOf<kFunction>(Load<Vector>(x + k), y));
  if (k == n) return;
  double last[kWidth] = {};
  for (int i = 0; i < n - k; ++i) last[i] = x[k + i];
  Store(last, ValueOf<kFunction>(Load<Vector>(last), y));
  for (int i = 0; i < n - k; ++i) x[k + i] = last[i];
}

KESTRUM_KERNEL_TARGET void ReplaceAll(Elementary function, int n, double* x, double y) noexcept {
  switch (function) {
    case Elementary::kExp:
      return Replace<Elementary::kExp>(n, x, y);
    case Elementary::kExpMinusOne:
      return Replace<Elementary::kExpMinusOne>(n, x, y);
    case Elementary::kLog:
      return Replace<Elementary::kLog>(n, x, y);
    case Elementary::kPow:
      return Replace<Elementary::kPow>(n, x, y);
    case Elementary::kSinPi:
      return Replace<Elementary::kSinPi>(n, x, y);
    case Elementary::kCosPi:
      return Replace<Elementary::kCosPi>(n, x, y);
    case Elementary::kSquareRoot:
      return Replace<Elementary::kSquareRoot>(n, x, y);
  }
}
