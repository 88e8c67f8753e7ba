#ifndef KESTRUM_CORE_CHARACTERS_HPP
#define KESTRUM_CORE_CHARACTERS_HPP

namespace kestrum {

// Of a character or EOF, in whatever locale.
constexpr bool IsDigit(int c) noexcept { return c >= '0' && c <= '9'; }

}  // namespace kestrum

#endif
