// Compiles the text of a kernel once for each level of SimdLevel, in the namespaces baseline, avx2 and avx512 in turn.
// A source defines first
//   KESTRUM_KERNEL         the file of the text, "<room>/<source>_kernel.hpp",
//   KESTRUM_KERNEL_WIDEST  the bytes of the widest vectors that pay, 32 or 64,
// and includes all headers that the text needs. A text may use what numeric/kernel_level.hpp provides. A level that
// the target or the kernel does without is another name for the one below it.

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "numeric/simd_level.hpp"

// Functions that belong to a kernel begin with one of these two; KESTRUM_KERNEL_TARGET selects the instruction set.
#define KESTRUM_KERNEL_INLINE KESTRUM_KERNEL_TARGET __attribute__((always_inline)) inline

// What the text calls `...`, a name with its template arguments, as compiled for `level`.
#define KESTRUM_KERNEL_AT(level, ...)                  \
  ((level) == SimdLevel::kAvx512 ? avx512::__VA_ARGS__ \
   : (level) == SimdLevel::kAvx2 ? avx2::__VA_ARGS__   \
                                 : baseline::__VA_ARGS__)

#define KESTRUM_KERNEL_LEVEL baseline
#define KESTRUM_KERNEL_TARGET
#define KESTRUM_KERNEL_BYTES 16
#include "numeric/kernel_level.hpp"

#if defined(__x86_64__)
#define KESTRUM_KERNEL_LEVEL avx2
#define KESTRUM_KERNEL_TARGET __attribute__((target("avx2,fma")))
#define KESTRUM_KERNEL_BYTES 32
#include "numeric/kernel_level.hpp"
#else
namespace kestrum {
namespace {
namespace avx2 = baseline;
}
}  // namespace kestrum
#endif

#if defined(__x86_64__) && KESTRUM_KERNEL_WIDEST == 64
#define KESTRUM_KERNEL_LEVEL avx512
#define KESTRUM_KERNEL_TARGET __attribute__((target("avx512f")))
#define KESTRUM_KERNEL_BYTES 64
#include "numeric/kernel_level.hpp"
#else
namespace kestrum {
namespace {
namespace avx512 = avx2;
}
}  // namespace kestrum
#endif
