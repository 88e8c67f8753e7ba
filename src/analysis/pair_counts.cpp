#include "analysis/pair_counts.hpp"

#include <algorithm>
#include <atomic>
#include <cstdlib>

#include "analysis/category_codes.hpp"
#include "core/buffer.hpp"

#define KESTRUM_KERNEL "analysis/pair_counts_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 32
#include "numeric/kernel_levels.hpp"

namespace kestrum {
namespace {

constexpr int kLagsAtOnce = 8;  // along x, to each pair of rows

class LagTable {
 public:
  LagTable(const VORL_GRID& grid, const int (&maxLag)[3]) noexcept : n_{grid.nx, grid.ny, grid.nz} {
    std::copy_n(maxLag, 3, max_);
  }

  std::ptrdiff_t size() const noexcept {
    return std::ptrdiff_t{2 * max_[0] + 1} * (2 * max_[1] + 1) * (2 * max_[2] + 1);
  }
  std::ptrdiff_t PlaceOf(int hx, int hy, int hz) const noexcept {
    return (std::ptrdiff_t{hz + max_[2]} * (2 * max_[1] + 1) + hy + max_[1]) * (2 * max_[0] + 1) + hx + max_[0];
  }

  // Fills tables with sums over pairs of rows. Only lags that are not negative along x are summed, from which
  // write(k, place, opposite) has the numbers of both.
  //   width  of the sums of a lag
  //   room   that add needs, in words
  //   add    (tail row, head row, lag along x, sums, room)
  template <typename Add, typename Write>
  [[nodiscard]] int Fill(std::size_t width, std::size_t room, const Dealing& dealing, const Progress& progress,
                         const Add& add, const Write& write) const noexcept {
    std::atomic<int> failed{0};
    const std::ptrdiff_t nrun = max_[0] / kLagsAtOnce + 1;
    const std::ptrdiff_t nitem = nrun * (2 * max_[1] + 1) * (2 * max_[2] + 1);
    std::atomic<std::ptrdiff_t> next{0};
    dealing.EachThread([&](int thread, int) noexcept {
      Buffer<std::int64_t> sums;
      Buffer<std::uint64_t> words;
      int status = sums.Allocate(width * kLagsAtOnce);
      if (status == 0) status = words.Allocate(room + 1);
      if (status != 0) {
        failed = status;
        return;
      }
      for (std::ptrdiff_t item; (item = next.fetch_add(1)) < nitem && progress.GoesOn(thread == 0, item, nitem);) {
        const int first = static_cast<int>(item % nrun) * kLagsAtOnce;
        const int hy = static_cast<int>(item / nrun % (2 * max_[1] + 1)) - max_[1];
        const int hz = static_cast<int>(item / nrun / (2 * max_[1] + 1)) - max_[2];
        // Of the lags along y and z alone, one of each couple is left out.
        const int from = first == 0 && (hz < 0 || (hz == 0 && hy < 0)) ? 1 : first;
        const int to = std::min(first + kLagsAtOnce, max_[0] + 1);
        if (from >= to) continue;
        std::fill(sums.begin(), sums.end(), 0);
        for (int z = std::max(0, -hz); z < n_[2] - std::max(0, hz); ++z) {
          for (int y = std::max(0, -hy); y < n_[1] - std::max(0, hy); ++y) {
            if (progress.Aborted()) return;
            const std::ptrdiff_t tails = std::ptrdiff_t{z} * n_[1] + y;
            const std::ptrdiff_t heads = std::ptrdiff_t{z + hz} * n_[1] + y + hy;
            for (int hx = from; hx < to; ++hx) {
              add(tails, heads, hx, sums.data() + static_cast<std::size_t>(hx - first) * width, words.data());
            }
          }
        }
        for (int hx = from; hx < to; ++hx) {
          write(sums.data() + static_cast<std::size_t>(hx - first) * width, PlaceOf(hx, hy, hz),
                PlaceOf(-hx, -hy, -hz));
        }
      }
    });
    return progress.After(failed);
  }

 private:
  int n_[3];
  int max_[3];
};

// For fewer, counting the pairs of two sets as bits takes less time than adding pairs one by one.
constexpr int kManyCategories = 12;

// Sets of nodes as bits. Each row begins a word, and ends with a word of zeros.
class SetRows {
 public:
  [[nodiscard]] int Allocate(const VORL_GRID& grid, int nset) noexcept {
    nx_ = grid.nx;
    words_ = (grid.nx + 63) / 64 + 1;
    nrow_ = std::ptrdiff_t{grid.ny} * grid.nz;
    return bits_.Allocate(static_cast<std::size_t>(nset * stride()), 0);
  }

  std::ptrdiff_t stride() const noexcept { return nrow_ * words_; }
  int WordsAfter(int shift) const noexcept { return (nx_ - shift + 63) / 64; }
  const std::uint64_t* Row(std::ptrdiff_t row) const noexcept { return bits_.data() + row * words_; }

  // mark(code, row, word, bit): sets what belongs to a node.
  template <typename Body>
  void Mark(const std::int16_t* codes, const Dealing& dealing, const Progress& progress, const Body& mark) noexcept {
    dealing.Blocks(nrow_, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t row = begin; row < end && !progress.Aborted(); ++row) {
        std::uint64_t* const to = bits_.data() + row * words_;
        for (int x = 0; x < nx_; ++x) {
          const int code = codes[row * nx_ + x];
          if (code != kNoCategory) mark(code, to + x / 64, std::uint64_t{1} << (x % 64));
        }
      }
    });
  }

 private:
  int nx_ = 0;
  int words_ = 0;
  std::ptrdiff_t nrow_ = 0;
  Buffer<std::uint64_t> bits_;
};

}  // namespace

int CountCategoryPairs(const VORL_GRID& grid, const std::int16_t* codes, int ncategory, const int (&maxLag)[3],
                       const Dealing& dealing, const Progress& progress, std::int64_t* pairs,
                       SimdLevel level) noexcept {
  const LagTable lags(grid, maxLag);
  // Each pair of categories has a place in the sums, whose rows are `width` long.
  const auto writePairs = [&](const std::int64_t* sums, std::ptrdiff_t width, std::ptrdiff_t place,
                              std::ptrdiff_t opposite) noexcept {
    for (std::ptrdiff_t a = 0; a < ncategory; ++a) {
      for (std::ptrdiff_t b = 0; b < ncategory; ++b) {
        pairs[(a * ncategory + b) * lags.size() + place] = sums[a * width + b];
        pairs[(b * ncategory + a) * lags.size() + opposite] = sums[a * width + b];
      }
    }
  };
  if (ncategory >= kManyCategories) {
    const std::ptrdiff_t width = std::ptrdiff_t{ncategory} + 1;
    static_assert(kNoCategory == -1);
    return lags.Fill(
        static_cast<std::size_t>(width * width), 0, dealing, progress,
        [&](std::ptrdiff_t tails, std::ptrdiff_t heads, int hx, std::int64_t* sums, std::uint64_t*) noexcept {
          std::int64_t* const known = sums + width + 1;
          const std::int16_t* const tail = codes + tails * grid.nx;
          const std::int16_t* const head = codes + heads * grid.nx + hx;
          for (std::ptrdiff_t i = 0; i < grid.nx - hx; ++i) ++known[tail[i] * width + head[i]];
        },
        [&](const std::int64_t* sums, std::ptrdiff_t place, std::ptrdiff_t opposite) noexcept {
          writePairs(sums + width + 1, width, place, opposite);
        });
  }
  SetRows sets;
  if (const int status = sets.Allocate(grid, ncategory); status != 0) return status;
  const std::ptrdiff_t stride = sets.stride();
  sets.Mark(codes, dealing, progress,
            [stride](int code, std::uint64_t* word, std::uint64_t bit) noexcept { word[code * stride] |= bit; });
  const auto addPairs = KESTRUM_KERNEL_AT(level, AddPairsOfSets);
  return lags.Fill(
      static_cast<std::size_t>(ncategory) * static_cast<std::size_t>(ncategory),
      static_cast<std::size_t>(sets.WordsAfter(0)), dealing, progress,
      [&](std::ptrdiff_t tails, std::ptrdiff_t heads, int hx, std::int64_t* sums, std::uint64_t* room) noexcept {
        addPairs(sets.Row(tails), sets.Row(heads), stride, ncategory, sets.WordsAfter(hx), hx, room, sums);
      },
      [&](const std::int64_t* sums, std::ptrdiff_t place, std::ptrdiff_t opposite) noexcept {
        writePairs(sums, ncategory, place, opposite);
      });
}

int CountCategoryChanges(const VORL_GRID& grid, const std::int16_t* codes, int ncategory, bool nested,
                         const int (&maxLag)[3], const Dealing& dealing, const Progress& progress,
                         std::int64_t* changes, std::int64_t* pairs, SimdLevel level) noexcept {
  const int nset = nested ? ncategory - 1 : ncategory;
  SetRows sets;
  if (const int status = sets.Allocate(grid, nset + 1); status != 0) return status;
  const std::ptrdiff_t stride = sets.stride();
  sets.Mark(codes, dealing, progress, [=](int code, std::uint64_t* word, std::uint64_t bit) noexcept {
    word[nset * stride] |= bit;
    for (int k = nested ? 0 : code; k < (nested ? code : code + 1); ++k) word[k * stride] |= bit;
  });
  const LagTable lags(grid, maxLag);
  const auto addChanges = KESTRUM_KERNEL_AT(level, AddChangesOfSets);
  return lags.Fill(
      static_cast<std::size_t>(nset) + 1, 2 * static_cast<std::size_t>(sets.WordsAfter(0)), dealing, progress,
      [&](std::ptrdiff_t tails, std::ptrdiff_t heads, int hx, std::int64_t* sums, std::uint64_t* room) noexcept {
        addChanges(sets.Row(tails), sets.Row(heads), stride, nset + 1, sets.WordsAfter(hx), hx, room, sums);
      },
      [&](const std::int64_t* sums, std::ptrdiff_t place, std::ptrdiff_t opposite) noexcept {
        for (std::ptrdiff_t a = 0; a < nset; ++a) {
          changes[a * lags.size() + place] = changes[a * lags.size() + opposite] = sums[a];
        }
        pairs[place] = pairs[opposite] = sums[nset];
      });
}

int CountAlikePairs(const VORL_GRID& grid, const int* labels, const int (&maxLag)[3], const Dealing& dealing,
                    const Progress& progress, std::int64_t* pairs, SimdLevel level) noexcept {
  const auto countAlike = KESTRUM_KERNEL_AT(level, CountAlike);
  return LagTable(grid, maxLag)
      .Fill(
          1, 0, dealing, progress,
          [&](std::ptrdiff_t tails, std::ptrdiff_t heads, int hx, std::int64_t* sum, std::uint64_t*) noexcept {
            *sum += countAlike(labels + tails * grid.nx, labels + heads * grid.nx + hx, grid.nx - hx);
          },
          [&](const std::int64_t* sum, std::ptrdiff_t place, std::ptrdiff_t opposite) noexcept {
            pairs[place] = pairs[opposite] = *sum;
          });
}

}  // namespace kestrum
