// The text of a kernel for one instruction set, after the vectors that kernels share. Included by
// numeric/kernel_levels.hpp, which defines (and this file undefines)
//   KESTRUM_KERNEL_LEVEL   the namespace,
//   KESTRUM_KERNEL_TARGET  the attribute that selects the set,
//   KESTRUM_KERNEL_BYTES   the width of its vectors.
//
// Functions of V take a vector or, for the elements that are left, one number. The types of vectors in memory are never
// arguments of a template, where they would lose their alignment.

namespace kestrum {
namespace {
namespace KESTRUM_KERNEL_LEVEL {

constexpr int kVectorBytes = KESTRUM_KERNEL_BYTES;
constexpr int kWidth = kVectorBytes / static_cast<int>(sizeof(double));

typedef double Vector __attribute__((vector_size(KESTRUM_KERNEL_BYTES)));
typedef long long Integers __attribute__((vector_size(KESTRUM_KERNEL_BYTES)));
// The same in memory, aligned as their elements are.
typedef double VectorInMemory __attribute__((vector_size(KESTRUM_KERNEL_BYTES), aligned(8), may_alias));
typedef long long IntegersInMemory __attribute__((vector_size(KESTRUM_KERNEL_BYTES), aligned(8), may_alias));

template <typename V>
using Mask = decltype(V{} == V{});

template <typename V>
KESTRUM_KERNEL_INLINE V Load(const double* from);
template <>
KESTRUM_KERNEL_INLINE Vector Load<Vector>(const double* from) {
  return *(const VectorInMemory*)from;
}
template <>
KESTRUM_KERNEL_INLINE double Load<double>(const double* from) {
  return *from;
}

KESTRUM_KERNEL_INLINE void Store(double* to, Vector x) { *(VectorInMemory*)to = x; }
KESTRUM_KERNEL_INLINE void Store(double* to, double x) { *to = x; }
KESTRUM_KERNEL_INLINE void Store(long long* to, Integers x) { *(IntegersInMemory*)to = x; }

template <typename V>
KESTRUM_KERNEL_INLINE V Broadcast(double value) {
  return value - V{};
}

// Elements of a and b, by their places among those of a and then of b.
template <int... places, typename V>
KESTRUM_KERNEL_INLINE V Shuffle(V a, V b) {
#if defined(__clang__)
  return __builtin_shufflevector(a, b, places...);
#else
  return __builtin_shuffle(a, b, Mask<V>{places...});
#endif
}

// The square root, rounded once. With AVX-512 an estimate to 14 bits is made better twice, which takes a third of the
// time of the instruction, and corrected by its residual, which is exact (P. Markstein, Computation of elementary functions on
// the IBM RISC System/6000 processor, IBM J. Res. Dev. 34, 1990). The correction errs by 2^-51 of a last place at most; a
// root is that near to a midpoint of two numbers only if the midpoint's square differs from x by fewer than 64 units of
// its last place, and the test covers all such x.
KESTRUM_KERNEL_INLINE Vector SquareRoot(Vector x) {
#if KESTRUM_KERNEL_BYTES == 64
  constexpr double kLeast = 0x1p-900;
  constexpr double kMost = 0x1p1000;
  const __mmask8 other = _mm512_cmp_pd_mask((__m512d)x, _mm512_setzero_pd(), _CMP_NEQ_UQ);
  const unsigned outside = (other & _mm512_cmp_pd_mask((__m512d)x, _mm512_set1_pd(kLeast), _CMP_NGE_UQ)) |
                           _mm512_cmp_pd_mask((__m512d)x, _mm512_set1_pd(kMost), _CMP_NLE_UQ);
  // Unmasked, these intrinsics read a variable that is not set.
  if (__builtin_expect(outside != 0, 0)) return (Vector)_mm512_maskz_sqrt_pd(0xff, (__m512d)x);
  const __m512d half = _mm512_set1_pd(0.5);
  const __m512d inverse = _mm512_maskz_rsqrt14_pd(other, (__m512d)x);
  __m512d root = _mm512_mul_pd((__m512d)x, inverse);
  __m512d halfInverse = _mm512_mul_pd(half, inverse);
  for (int step = 0; step < 2; ++step) {
    const __m512d error = _mm512_fnmadd_pd(root, halfInverse, half);
    root = _mm512_fmadd_pd(root, error, root);
    halfInverse = _mm512_fmadd_pd(halfInverse, error, halfInverse);
  }
  const __m512d residual = _mm512_fnmadd_pd(root, root, (__m512d)x);
  return (Vector)_mm512_fmadd_pd(residual, halfInverse, root);
#elif KESTRUM_KERNEL_BYTES == 32
  return (Vector)_mm256_sqrt_pd((__m256d)x);
#elif KESTRUM_KERNEL_BYTES == 16 && defined(__x86_64__)
  return (Vector)_mm_sqrt_pd((__m128d)x);
#else
  for (int k = 0; k < kWidth; ++k) x[k] = __builtin_sqrt(x[k]);
  return x;
#endif
}

// z - x y, rounded once. Where the set lacks the instruction, each number is a call of the C library's fma.
KESTRUM_KERNEL_INLINE Vector SubtractProduct(Vector z, Vector x, Vector y) {
#if KESTRUM_KERNEL_BYTES == 64
  return (Vector)_mm512_fnmadd_pd((__m512d)x, (__m512d)y, (__m512d)z);
#elif KESTRUM_KERNEL_BYTES == 32
  return (Vector)_mm256_fnmadd_pd((__m256d)x, (__m256d)y, (__m256d)z);
#else
  for (int k = 0; k < kWidth; ++k) z[k] = __builtin_fma(-x[k], y[k], z[k]);
  return z;
#endif
}

#include KESTRUM_KERNEL

}  // namespace KESTRUM_KERNEL_LEVEL
}  // namespace
}  // namespace kestrum

#undef KESTRUM_KERNEL_LEVEL
#undef KESTRUM_KERNEL_TARGET
#undef KESTRUM_KERNEL_BYTES
