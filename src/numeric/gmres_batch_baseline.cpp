#define KESTRUM_KERNEL_TARGET
#define KESTRUM_KERNEL_BYTES 16
#define KESTRUM_KERNEL_ROWS 3
#include "numeric/gmres_batch_kernel.hpp"

kestrum::BatchOutcome kestrum::SolveBatchBaseline(const BatchProblem& problem, bool shared) noexcept {
  return shared ? SolveBatch<true>(problem) : SolveBatch<false>(problem);
}
