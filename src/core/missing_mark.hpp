#ifndef KESTRUM_CORE_MISSING_MARK_HPP
#define KESTRUM_CORE_MISSING_MARK_HPP

#include <limits>

#include "core/types.h"

namespace kestrum {

// What marks a value as missing: the number of the records, which is a value like any other in an array of NumPy's, or
// NaN, which is informed in a record.
enum class MissingMark { kNumber, kNaN };

constexpr double MissingOf(MissingMark mark) noexcept {
  return mark == MissingMark::kNaN ? std::numeric_limits<double>::quiet_NaN() : VORL_MISSING_VALUE;
}

constexpr bool IsMarkedMissing(double value, MissingMark mark) noexcept {
  return mark == MissingMark::kNaN ? value != value : value == VORL_MISSING_VALUE;
}

}  // namespace kestrum

#endif
