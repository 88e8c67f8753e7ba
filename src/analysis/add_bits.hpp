#ifndef KESTRUM_ANALYSIS_ADD_BITS_HPP
#define KESTRUM_ANALYSIS_ADD_BITS_HPP

#include <cstddef>
#include <cstdint>

#include "numeric/simd_level.hpp"

namespace kestrum {

// Adds the bits of n words to those of others.
void AddBits(const std::uint64_t* from, std::ptrdiff_t n, SimdLevel level, std::uint64_t* to) noexcept;

}  // namespace kestrum

#endif
