// What the kernels of one instruction set share. Included by kernel headers, whose source defines first
//   KESTRUM_KERNEL_TARGET  the attribute that selects the set,
//   KESTRUM_KERNEL_BYTES   the width of its vectors.
// All is local to that source, and no function of a standard header is called: no code of a higher instruction set can
// stand in for code that runs everywhere.
//
// Functions of V take a vector or, for the elements that are left, one number. The types of vectors in memory are never
// arguments of a template, where they would lose their alignment.

#define KESTRUM_KERNEL_INLINE KESTRUM_KERNEL_TARGET __attribute__((always_inline)) inline

namespace kestrum {
namespace {

constexpr int kWidth = KESTRUM_KERNEL_BYTES / static_cast<int>(sizeof(double));

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

}  // namespace
}  // namespace kestrum
