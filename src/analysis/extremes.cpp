#include "analysis/extremes.hpp"

#include <algorithm>
#include <limits>
#include <type_traits>

#include "core/buffer.hpp"
#include "core/fetch_ahead.hpp"

#define KESTRUM_KERNEL "analysis/extremes_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 64
#include "numeric/kernel_levels.hpp"

namespace kestrum {

template <typename T>
int FindExtremes(std::ptrdiff_t n, const T* values, const Dealing& dealing, const Progress& progress,
                 Extremes* found) noexcept {
  // Values between two looks at whether to stop.
  constexpr std::ptrdiff_t kPiece = 1 << 20;
  Buffer<Extremes> ofThread;
  if (const int status = ofThread.Allocate(static_cast<std::size_t>(dealing.nscratch()), *found); status != 0) {
    return status;
  }
  const SimdLevel level = BestSimdLevel();
  dealing.EachThread([&](int thread, int team) noexcept {
    const ItemBlock block = BlockOf(n, team, thread);
    Extremes& own = ofThread[static_cast<std::size_t>(thread)];
    for (std::ptrdiff_t begin = block.begin; begin < block.end && progress.GoesOn(thread == 0, begin, block.end);
         begin += kPiece) {
      KESTRUM_KERNEL_AT(level, WidenExtremes<T>)(std::min(kPiece, block.end - begin), values + begin, &own);
    }
  });
  for (const Extremes& own : ofThread) {
    // The sum takes the sign of a zero away, which depends on the order.
    found->least = std::min(found->least, own.least + 0.0);
    found->greatest = std::max(found->greatest, own.greatest + 0.0);
  }
  return progress.After(0);
}

template int FindExtremes(std::ptrdiff_t, const unsigned char*, const Dealing&, const Progress&, Extremes*) noexcept;
template int FindExtremes(std::ptrdiff_t, const int*, const Dealing&, const Progress&, Extremes*) noexcept;
template int FindExtremes(std::ptrdiff_t, const float*, const Dealing&, const Progress&, Extremes*) noexcept;
template int FindExtremes(std::ptrdiff_t, const double*, const Dealing&, const Progress&, Extremes*) noexcept;

}  // namespace kestrum
