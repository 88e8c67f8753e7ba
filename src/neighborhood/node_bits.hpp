#ifndef KESTRUM_NEIGHBORHOOD_NODE_BITS_HPP
#define KESTRUM_NEIGHBORHOOD_NODE_BITS_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "core/buffer.hpp"

namespace kestrum {

// One bit per node of the grid: small enough to stay in the nearest cache while a list is walked.
class NodeBits {
 public:
  [[nodiscard]] int Allocate(int nnode) noexcept { return word_.Allocate(static_cast<std::size_t>(nnode) / 32 + 1, 0); }
  void Copy(const NodeBits& other) noexcept { std::copy(other.word_.begin(), other.word_.end(), word_.begin()); }
  void Set(int node) noexcept { word_[static_cast<unsigned>(node) / 32] |= 1u << node % 32; }
  void Clear(int node) noexcept { word_[static_cast<unsigned>(node) / 32] &= ~(1u << node % 32); }
  // Bit i % 32 of word i / 32 is that of node i.
  const std::uint32_t* words() const noexcept { return word_.data(); }
  unsigned operator[](int node) const noexcept { return word_[static_cast<unsigned>(node) / 32] >> node % 32 & 1u; }

 private:
  Buffer<std::uint32_t> word_;
};

}  // namespace kestrum

#endif
