#ifndef KESTRUM_CORE_INTEGERS_HPP
#define KESTRUM_CORE_INTEGERS_HPP

#include <cstdint>
#include <limits>

namespace kestrum {

constexpr bool FitsInt(std::int64_t number) noexcept {
  return number >= std::numeric_limits<int>::min() && number <= std::numeric_limits<int>::max();
}

// Toward zero; the lowest int for what no int holds.
constexpr int TruncateToInt(double value) noexcept {
  return value > -2147483649.0 && value < 2147483648.0 ? static_cast<int>(value) : std::numeric_limits<int>::min();
}

}  // namespace kestrum

#endif
