#ifndef KESTRUM_NUMERIC_PHILOX_HPP
#define KESTRUM_NUMERIC_PHILOX_HPP

#include <array>
#include <cstdint>

namespace kestrum {

using PhiloxBlock = std::array<std::uint32_t, 4>;

// The generator Philox4x32-10: four random words as a function of a counter and a key, without any state (Salmon,
// Moraes, Dror and Shaw, Parallel random numbers: as easy as 1, 2, 3, SC'11).
inline PhiloxBlock Philox(PhiloxBlock counter, std::uint64_t key) noexcept {
  auto k0 = static_cast<std::uint32_t>(key);
  auto k1 = static_cast<std::uint32_t>(key >> 32);
  for (int round = 0; round < 10; ++round) {
    const std::uint64_t p0 = std::uint64_t{0xD2511F53} * counter[0];
    const std::uint64_t p1 = std::uint64_t{0xCD9E8D57} * counter[2];
    counter = {static_cast<std::uint32_t>(p1 >> 32) ^ counter[1] ^ k0, static_cast<std::uint32_t>(p1),
               static_cast<std::uint32_t>(p0 >> 32) ^ counter[3] ^ k1, static_cast<std::uint32_t>(p0)};
    k0 += 0x9E3779B9;
    k1 += 0xBB67AE85;
  }
  return counter;
}

// The i-th half of a block, 0 or 1, as one number.
inline std::uint64_t PhiloxWord(const PhiloxBlock& block, int i) noexcept {
  return std::uint64_t{block[2 * i + 1]} << 32 | block[2 * i];
}

// A number between 0 and 1, neither of which it is, from 52 of the bits of a word: with 53 the addition would round.
inline double OpenUniform(std::uint64_t word) noexcept { return (static_cast<double>(word >> 12) + 0.5) * 0x1p-52; }

}  // namespace kestrum

#endif
