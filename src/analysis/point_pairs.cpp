#include "analysis/point_pairs.hpp"

#define KESTRUM_KERNEL "analysis/point_pairs_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

kestrum::PairKernel kestrum::PairKernelOf(const PairScan& scan, SimdLevel level) noexcept {
  return KESTRUM_KERNEL_AT(level, ChoosePairKernel)(scan);
}
