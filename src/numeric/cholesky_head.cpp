#include "numeric/cholesky_head.hpp"

#include <cstddef>

#include "numeric/cholesky_layout.hpp"

#define KESTRUM_KERNEL "numeric/cholesky_head_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {

HeadOutcome EliminateHead(const HeadTable& table, double* factor, double* estimate, double* explained,
                          SimdLevel level) noexcept {
  return KESTRUM_KERNEL_AT(level, Eliminate)(table, factor, estimate, explained);
}

}  // namespace kestrum
