#include "neighborhood/place_kernels.hpp"

#define KESTRUM_KERNEL "neighborhood/place_search_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {

const PlaceKernels& PlaceKernelsOf(SimdLevel level) noexcept {
#define KESTRUM_PLACE_KERNELS(set)                                                                            \
  {                                                                                                           \
    set::Bounds, set::FindBox, set::LimitOfNoFewer, set::LimitOfNoMore, set::Select, set::Pick, set::Nearest, \
        set::KeepNear, set::Rank, set::Reorder                                                                \
  }
  static constexpr PlaceKernels kBaseline = KESTRUM_PLACE_KERNELS(baseline);
  static constexpr PlaceKernels kAvx2 = KESTRUM_PLACE_KERNELS(avx2);
  static constexpr PlaceKernels kAvx512 = KESTRUM_PLACE_KERNELS(avx512);
  return level == SimdLevel::kAvx512 ? kAvx512 : level == SimdLevel::kAvx2 ? kAvx2 : kBaseline;
}

}  // namespace kestrum
