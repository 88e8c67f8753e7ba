#ifndef KESTRUM_CORE_INTEGERS_HPP
#define KESTRUM_CORE_INTEGERS_HPP

#include <cstdint>
#include <cstring>
#include <limits>

namespace kestrum {

constexpr bool FitsInt(std::int64_t number) noexcept {
  return number >= std::numeric_limits<int>::min() && number <= std::numeric_limits<int>::max();
}

// The product of sizes, as of an index space; 0 if one of them is below 1 or an int cannot count it.
template <typename... Sizes>
constexpr int CountOf(Sizes... sizes) noexcept {
  int count = 1;
  const bool fits = (... && (sizes > 0 && !__builtin_mul_overflow(count, sizes, &count)));
  return fits ? count : 0;
}

// Toward zero; the lowest int for what no int holds.
constexpr int TruncateToInt(double value) noexcept {
  return value > -2147483649.0 && value < 2147483648.0 ? static_cast<int>(value) : std::numeric_limits<int>::min();
}

// The number in an enumeration field. Callers can store any int in it, which the enumeration itself must not hold.
template <typename Enum>
int EnumNumber(const Enum& field) noexcept {
  static_assert(sizeof(Enum) == sizeof(int));
  int number;
  std::memcpy(&number, &field, sizeof number);
  return number;
}

}  // namespace kestrum

#endif
