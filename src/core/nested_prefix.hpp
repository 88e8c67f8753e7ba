#ifndef KESTRUM_CORE_NESTED_PREFIX_HPP
#define KESTRUM_CORE_NESTED_PREFIX_HPP

#include <cstddef>
#include <cstring>

#include "core/buffer.hpp"

namespace kestrum {

// The line prefix of a nested record: the prefix of its owner and three blanks.
class NestedPrefix {
 public:
  [[nodiscard]] int Extend(const char* prefix) noexcept {
    constexpr char kIndent[] = "   ";
    const std::size_t length = std::strlen(prefix);
    if (const int status = text_.Allocate(length + sizeof(kIndent)); status != 0) return status;
    std::memcpy(text_.data(), prefix, length);
    std::memcpy(text_.data() + length, kIndent, sizeof(kIndent));
    return 0;
  }
  char* text() noexcept { return text_.data(); }

 private:
  Buffer<char> text_;
};

}  // namespace kestrum

#endif
