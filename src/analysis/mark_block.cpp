#include "analysis/mark_block.hpp"

#include <cstring>

#include "core/variables.hpp"

#define KESTRUM_KERNEL "analysis/mark_block_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 32
#include "numeric/kernel_levels.hpp"

namespace kestrum {

template <typename T, typename Set>
void MarkBlock(const T* values, const Set& set, SimdLevel level, unsigned char* marks) noexcept {
  KESTRUM_KERNEL_AT(level, MarkBlockOf<T, Set>)(values, set, marks);
}

template <typename T, typename Set>
int MarkWords(const T* values, std::ptrdiff_t n, const Set& set, std::uint64_t* words, SimdLevel level) noexcept {
  return KESTRUM_KERNEL_AT(level, MarkWordsOf<T, Set>)(values, n, set, words);
}

template void MarkBlock(const std::int16_t*, const CodeRange&, SimdLevel, unsigned char*) noexcept;
template void MarkBlock(const real*, const IntervalSet&, SimdLevel, unsigned char*) noexcept;
template void MarkBlock(const unsigned char*, const TrueValues&, SimdLevel, unsigned char*) noexcept;
template void MarkBlock(const int*, const TrueValues&, SimdLevel, unsigned char*) noexcept;
template void MarkBlock(const float*, const TrueValues&, SimdLevel, unsigned char*) noexcept;
template void MarkBlock(const double*, const TrueValues&, SimdLevel, unsigned char*) noexcept;
template void MarkBlock(const float*, const KnownValues&, SimdLevel, unsigned char*) noexcept;
template void MarkBlock(const double*, const KnownValues&, SimdLevel, unsigned char*) noexcept;
template int MarkWords(const std::int16_t*, std::ptrdiff_t, const CodeRange&, std::uint64_t*, SimdLevel) noexcept;
template int MarkWords(const real*, std::ptrdiff_t, const IntervalSet&, std::uint64_t*, SimdLevel) noexcept;
template int MarkWords(const unsigned char*, std::ptrdiff_t, const TrueValues&, std::uint64_t*, SimdLevel) noexcept;
template int MarkWords(const int*, std::ptrdiff_t, const TrueValues&, std::uint64_t*, SimdLevel) noexcept;
template int MarkWords(const float*, std::ptrdiff_t, const TrueValues&, std::uint64_t*, SimdLevel) noexcept;
template int MarkWords(const double*, std::ptrdiff_t, const TrueValues&, std::uint64_t*, SimdLevel) noexcept;
template int MarkWords(const float*, std::ptrdiff_t, const KnownValues&, std::uint64_t*, SimdLevel) noexcept;
template int MarkWords(const double*, std::ptrdiff_t, const KnownValues&, std::uint64_t*, SimdLevel) noexcept;

}  // namespace kestrum
