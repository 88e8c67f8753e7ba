#ifndef KESTRUM_ANALYSIS_OTSU_HPP
#define KESTRUM_ANALYSIS_OTSU_HPP

#include <cstddef>

#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

struct OtsuCuts {
  double* cuts;  // nclass - 1, increasing: each is the least value of the classes above it
  // There are cuts if no value is infinite, and as many are distinct as there are classes.
  std::ptrdiff_t distinct = 0;  // their number, or at least nclass
  bool infinite = false;
};

// Cuts values into classes of the greatest variance between them (Otsu, A threshold selection method from gray-level
// histograms, 1979), to within 0.1 % of it. NaN is left out. The work is done on a histogram of up to 65,536 bins, where a
// bound on what that costs is small enough, and on all distinct values elsewhere and of 4,096 numbers or fewer.
template <typename T>
[[nodiscard]] int FindOtsuCuts(std::ptrdiff_t n, const T* values, int nclass, const Dealing& dealing,
                               const Progress& progress, OtsuCuts* found) noexcept;

}  // namespace kestrum

#endif
