#include "analysis/euler_characteristic.hpp"

#include <atomic>
#include <bit>
#include <cstddef>

namespace kestrum {
namespace {

// The marks at x and on, which may be just after a row, or 0 for rows outside.
NodeBits::Bits BitsAround(const NodeBits& nodes, int iy, int iz, int x) noexcept {
  if (iy < 0 || iz < 0) return {0, 0};
  if (x < nodes.nx()) return nodes.RowBits(iy, iz, x);
  return {0, nodes.RowBits(iy, iz, x - kMarkBlock).here >> (kMarkBlock - 1)};
}

// What a row of places adds. The cells that have their lowest corner at a place are joined from the nodes there and
// before: a cell of the closed union belongs to it if one of these nodes is marked, one of the other kind if all are.
template <bool closed>
std::int64_t SumOfRow(const NodeBits& nodes, int iy, int iz) noexcept {
  using Bits = NodeBits::Bits;
  const auto join = [](const Bits& a, const Bits& b) -> Bits {
    return closed ? Bits{a.here | b.here, a.before | b.before} : Bits{a.here & b.here, a.before & b.before};
  };
  // Cells of one kind with those that extend along x as well. One kind holds the other.
  const auto count = [&](const Bits& bits) {
    const std::uint64_t along = closed ? bits.here | bits.before : bits.here & bits.before;
    return std::popcount(bits.here ^ along);
  };
  std::int64_t sum = 0;
  for (std::ptrdiff_t x = 0; x < std::ptrdiff_t{nodes.nx()} + closed; x += kMarkBlock) {
    const int at = static_cast<int>(x);
    const Bits here = BitsAround(nodes, iy, iz, at);
    const Bits back = BitsAround(nodes, iy - 1, iz, at);
    const Bits below = BitsAround(nodes, iy, iz - 1, at);
    const Bits alongY = join(here, back);
    const Bits all = join(alongY, join(below, BitsAround(nodes, iy - 1, iz - 1, at)));
    sum += count(here) - count(alongY) - count(join(here, below)) + count(all);
  }
  return sum;
}

}  // namespace

std::int64_t EulerCharacteristic(const NodeBits& nodes, bool closedCells, Dealing dealing) noexcept {
  const std::ptrdiff_t ny = std::ptrdiff_t{nodes.ny()} + closedCells;
  const std::ptrdiff_t nz = std::ptrdiff_t{nodes.nz()} + closedCells;
  std::atomic<std::int64_t> total{0};
  dealing.Blocks(ny * nz, [&](std::ptrdiff_t begin, std::ptrdiff_t end) {
    std::int64_t sum = 0;
    for (std::ptrdiff_t row = begin; row < end; ++row) {
      const int iy = static_cast<int>(row % ny);
      const int iz = static_cast<int>(row / ny);
      sum += closedCells ? SumOfRow<true>(nodes, iy, iz) : SumOfRow<false>(nodes, iy, iz);
    }
    total += sum;
  });
  return total;
}

}  // namespace kestrum
