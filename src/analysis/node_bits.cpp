#include "analysis/node_bits.hpp"

#include <algorithm>
#include <atomic>
#include <utility>

namespace kestrum {
namespace {

// Makes bit j of word i bit i of word j, by exchanging halves of halves (H. S. Warren, Hacker's Delight, 2002, 7-3).
void TransposeBits(std::uint64_t (&words)[kMarkBlock]) noexcept {
  std::uint64_t low = 0x00000000ffffffffu;
  for (int half = kMarkBlock / 2; half > 0; half /= 2, low ^= low << half) {
    for (int i = 0; i < kMarkBlock; i = ((i | half) + 1) & ~half) {
      const std::uint64_t differ = (words[i] >> half ^ words[i | half]) & low;
      words[i] ^= differ << half;
      words[i | half] ^= differ;
    }
  }
}

}  // namespace

int NodeBits::Allocate(const VORL_GRID& grid, int longestPacked) noexcept {
  // No neighbour is lost.
  const int sizes[] = {grid.nx, grid.ny, grid.nz, 1, 1};
  const int first = grid.nx > 1 ? 0 : grid.ny > 1 ? 1 : 2;
  nx_ = sizes[first];
  ny_ = sizes[first + 1];
  nz_ = sizes[first + 2];
  if (ny_ == 1) std::swap(ny_, nz_);
  nxyz_ = grid.nxyz;
  packed_ = {};
  if (nx_ <= longestPacked && ny_ > 1) {
    packed_ = {nx_, ny_, nz_};
    // The least number of rows that fill whole words, some times.
    constexpr int kWords = 16;
    nx_ *= kMarkBlock * ((kWords - 1) / nx_ + 1);
    ny_ = (nxyz_ - 1) / nx_ + 1;
    nz_ = 1;
  }
  wordsPerRow_ = (nx_ - 1) / kMarkBlock + 1;
  const std::size_t rowWords = static_cast<std::size_t>(wordsPerRow_);
  const int status = bits_.Allocate((nrow() + 1) * rowWords + 1);
  if (status == 0) std::fill(bits_.end() - (packed_.nx == 0 ? 1 : 2) * wordsPerRow_ - 1, bits_.end(), std::uint64_t{0});
  return status;
}

template <typename T, typename Set>
int NodeBits::Mark(const T* values, const Set& set, Dealing dealing) noexcept {
  std::atomic<int> total{0};
  dealing.Blocks((std::ptrdiff_t{nxyz_} + kMarkBlock - 1) / kMarkBlock, [&](std::ptrdiff_t begin, std::ptrdiff_t end) {
    const std::ptrdiff_t n = std::min(end * kMarkBlock, std::ptrdiff_t{nxyz_}) - begin * kMarkBlock;
    total += MarkWords(values + begin * kMarkBlock, n, set, bits_.data() + begin);
  });
  SpreadRows();
  return total;
}

int NodeBits::MarkFrom(const LevelBits& levels, int least) noexcept {
  const int count = MarkFromLevel(levels, least, (nxyz_ - 1) / kMarkBlock + 1, BestSimdLevel(), bits_.data());
  SpreadRows();
  return count;
}

// The rows are end to end. From the last to the first, each is moved up to words of its own.
void NodeBits::SpreadRows() noexcept {
  const int inLastWord = nx_ % kMarkBlock;
  if (inLastWord == 0) return;
  bits_[static_cast<std::size_t>((nxyz_ - 1) / kMarkBlock) + 1] = 0;
  for (std::ptrdiff_t row = static_cast<std::ptrdiff_t>(nrow()) - 1; row >= 0; --row) {
    std::uint64_t* const to = bits_.data() + row * wordsPerRow_;
    for (std::ptrdiff_t i = wordsPerRow_ - 1; i >= 0; --i) {
      const std::ptrdiff_t node = row * nx_ + i * kMarkBlock;
      const std::uint64_t* const from = bits_.data() + node / kMarkBlock;
      const int shift = static_cast<int>(node % kMarkBlock);
      to[i] = shift == 0 ? from[0] : from[0] >> shift | from[1] << (kMarkBlock - shift);
    }
    to[wordsPerRow_ - 1] &= (std::uint64_t{1} << inLastWord) - 1;
  }
}

template <typename T>
void NodeBits::MarkTransposed(const T* values, Dealing dealing) noexcept {
  const bool packs = packed_.nx != 0;
  const PackedRows sizes = packs ? packed_ : PackedRows{nx_, ny_, nz_};
  const bool flat = sizes.nz == 1;
  const int along = flat ? sizes.ny : sizes.nz;
  const int middle = flat ? 1 : sizes.ny;
  // Calls put(k, bits) with the bits of up to 64 nodes from x on, for rows from `first` on that are one row of values.
  const auto eachRow = [&](std::ptrdiff_t x, int m, int first, const auto& put) {
    const std::ptrdiff_t nx = std::min(sizes.nx - x, std::ptrdiff_t{kMarkBlock});
    const int n = std::min(along - first, kMarkBlock);
    std::uint64_t tile[kMarkBlock] = {};
    for (std::ptrdiff_t k = 0; k < nx; ++k) {
      MarkWords(values + ((x + k) * middle + m) * along + first, n, TrueValues{}, &tile[k]);
    }
    if (sizes.nx > 4) {
      TransposeBits(tile);
      for (int k = 0; k < n; ++k) put(first + k, tile[k]);
      return;
    }
    for (int k = 0; k < n; ++k) {
      std::uint64_t row = 0;
      for (int i = 0; i < sizes.nx; ++i) row |= (tile[i] >> k & 1) << i;
      put(first + k, row);
    }
  };
  if (packs) {
    const std::ptrdiff_t perLayer = std::ptrdiff_t{middle} * sizes.nx;
    dealing.Blocks((along - 1) / kMarkBlock + 1, [&](std::ptrdiff_t begin, std::ptrdiff_t end) {
      // 64 layers fill whole words.
      const std::ptrdiff_t endLayer = std::min(end * kMarkBlock, std::ptrdiff_t{along});
      std::fill(bits_.data() + begin * perLayer, bits_.data() + (endLayer * perLayer - 1) / kMarkBlock + 1,
                std::uint64_t{0});
      for (std::ptrdiff_t first = begin * kMarkBlock; first < endLayer; first += kMarkBlock) {
        for (int m = 0; m < middle; ++m) {
          for (int x = 0; x < sizes.nx; x += kMarkBlock) {
            const int n = std::min(sizes.nx - x, kMarkBlock);
            eachRow(x, m, static_cast<int>(first), [&](int k, std::uint64_t part) {
              const std::ptrdiff_t node = k * perLayer + std::ptrdiff_t{m} * sizes.nx + x;
              const int shift = static_cast<int>(node % kMarkBlock);
              std::uint64_t* const to = bits_.data() + node / kMarkBlock;
              to[0] |= part << shift;
              if (shift + n > kMarkBlock) to[1] |= part >> (kMarkBlock - shift);
            });
          }
        }
      }
    });
    return;
  }
  dealing.Blocks(std::ptrdiff_t{middle} * wordsPerRow_, [&](std::ptrdiff_t begin, std::ptrdiff_t end) {
    for (std::ptrdiff_t i = begin; i < end; ++i) {
      const int m = static_cast<int>(i / wordsPerRow_);
      const std::ptrdiff_t word = i % wordsPerRow_;
      for (int first = 0; first < along; first += kMarkBlock) {
        eachRow(word * kMarkBlock, m, first,
                [&](int k, std::uint64_t row) { (flat ? Row(k, 0) : Row(m, k))[word] = row; });
      }
    }
  });
}

template void NodeBits::MarkTransposed(const unsigned char*, Dealing) noexcept;
template void NodeBits::MarkTransposed(const int*, Dealing) noexcept;
template void NodeBits::MarkTransposed(const float*, Dealing) noexcept;
template void NodeBits::MarkTransposed(const double*, Dealing) noexcept;
template int NodeBits::Mark(const real*, const IntervalSet&, Dealing) noexcept;
template int NodeBits::Mark(const unsigned char*, const TrueValues&, Dealing) noexcept;
template int NodeBits::Mark(const int*, const TrueValues&, Dealing) noexcept;
template int NodeBits::Mark(const float*, const TrueValues&, Dealing) noexcept;
template int NodeBits::Mark(const double*, const TrueValues&, Dealing) noexcept;
template int NodeBits::Mark(const float*, const KnownValues&, Dealing) noexcept;
template int NodeBits::Mark(const double*, const KnownValues&, Dealing) noexcept;
template int NodeBits::Mark(const std::int16_t*, const CodeRange&, Dealing) noexcept;

}  // namespace kestrum
