#if defined(__x86_64__)

#define KESTRUM_KERNEL_TARGET __attribute__((target("avx2")))
#define KESTRUM_KERNEL_BYTES 32
#define KESTRUM_KERNEL_ROWS 5
#include "numeric/gmres_batch_kernel.hpp"

kestrum::BatchOutcome kestrum::SolveBatchAvx2(const BatchProblem& problem, bool shared) noexcept {
  return shared ? SolveBatch<true>(problem) : SolveBatch<false>(problem);
}

#endif
