// Sets as bits: text for numeric/kernel_levels.hpp.

KESTRUM_KERNEL_TARGET void AddAll(const std::uint64_t* from, std::ptrdiff_t n, std::uint64_t* __restrict to) noexcept {
  for (std::ptrdiff_t i = 0; i < n; ++i) to[i] |= from[i];
}
