#if defined(__x86_64__)

#define KESTRUM_KERNEL_TARGET __attribute__((target("avx512f")))
#define KESTRUM_KERNEL_BYTES 64
#define KESTRUM_KERNEL_ROWS 7
#include "numeric/gmres_batch_kernel.hpp"

kestrum::BatchOutcome kestrum::SolveBatchAvx512(const BatchProblem& problem, bool shared) noexcept {
  return shared ? SolveBatch<true>(problem) : SolveBatch<false>(problem);
}

#endif
