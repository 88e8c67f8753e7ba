#include "analysis/box_mean.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "analysis/line_pass.hpp"
#include "analysis/window_sums.hpp"
#include "core/buffer.hpp"
#include "core/statuses.hpp"

namespace kestrum {
namespace {

// Lines that are done side by side; fewer if they are long, which keeps the memory small.
constexpr int kLanes = 16;
constexpr std::ptrdiff_t LanesFor(std::ptrdiff_t n) noexcept { return n <= 4096 ? kLanes : n <= 65536 ? 4 : 1; }

// Replaces the values of a grid by the sums of the boxes about them. Where a box leaves the grid is T's `outside`.
template <typename T>
class BoxSums {
 public:
  BoxSums(const VORL_GRID& grid, const BoxSides& sides, const Dealing& dealing) noexcept
      : grid_(grid), sides_(sides), dealing_(dealing) {}

  [[nodiscard]] int Allocate() noexcept {
    const std::ptrdiff_t nx = grid_.nx;
    const std::ptrdiff_t ny = grid_.ny;
    const std::ptrdiff_t nz = grid_.nz;
    const std::ptrdiff_t longest = std::max({nx, ny * LanesFor(ny), nz * LanesFor(nz)});
    size_ = (longest + 15) / 16 * 16;
    return scratch_.Allocate(3 * static_cast<std::size_t>(size_) * static_cast<std::size_t>(dealing_.nscratch()));
  }

  // read(first, n, to): the values of nodes in a row.
  template <typename Read>
  void Sum(const Read& read, const Progress& progress, T* sums) noexcept {
    const auto& [nx, ny, nz, sx, sy, sz, ox, oy, oz, nxy, nxyz] = grid_;
    const std::ptrdiff_t nrow = std::ptrdiff_t{ny} * nz;
    const Progress ofRows = progress.Step(0.0, 1.0 / 3);
    dealing_.EachThread([&, nx = nx](int thread, int team) {
      const ItemBlock rows = BlockOf(nrow, team, thread);
      const WindowBlock<T> block = Block(thread, nx, 1, sides_.x);
      for (std::ptrdiff_t row = rows.begin; row < rows.end && ofRows.GoesOn(thread == 0, row, rows.end); ++row) {
        T* const to = sums + row * nx;
        read(row * nx, nx, sides_.x == 1 ? to : block.values);
        if (sides_.x == 1) continue;
        SumWindows(block, BestSimdLevel());
        std::fill_n(to, sides_.x / 2, kOutside);
        std::copy_n(block.sums, nx - sides_.x + 1, to + sides_.x / 2);
        std::fill_n(to + nx - sides_.x / 2, sides_.x / 2, kOutside);
      }
    });
    Pass({ny, nx, std::ptrdiff_t{nx} * nz, nx, nxy, 0.0}, sides_.y, progress.Step(1.0 / 3, 2.0 / 3), sums);
    Pass({nz, nxy, nxy, nxy, nxyz, 0.0}, sides_.z, progress.Step(2.0 / 3, 1.0), sums);
  }

 private:
  static constexpr T kOutside = std::numeric_limits<T>::quiet_NaN();  // 0 of whole numbers

  WindowBlock<T> Block(int thread, std::ptrdiff_t n, std::ptrdiff_t lanes, std::ptrdiff_t width) noexcept {
    T* const scratch = scratch_.data() + 3 * thread * size_;
    return {n, lanes, width, scratch, scratch + size_, scratch + 2 * size_};
  }

  void Pass(const LinePass& pass, std::ptrdiff_t width, const Progress& progress, T* values) noexcept {
    if (width == 1) return;
    const std::ptrdiff_t lanes = LanesFor(pass.n);
    const auto sumLines = [&](int thread, std::ptrdiff_t, std::ptrdiff_t, const auto& forEachRun) {
      const WindowBlock<T> block = Block(thread, pass.n, lanes, width);
      forEachRun([&](std::ptrdiff_t index, std::ptrdiff_t place, std::ptrdiff_t length) {
        std::copy_n(values + index, length, block.values + place);
      });
      SumWindows(block, BestSimdLevel());
      const std::ptrdiff_t begin = width / 2 * lanes;
      const std::ptrdiff_t end = (pass.n - width / 2) * lanes;
      forEachRun([&](std::ptrdiff_t index, std::ptrdiff_t place, std::ptrdiff_t length) {
        if (place >= begin && place < end) {
          std::copy_n(block.sums + (place - begin), length, values + index);
        } else {
          std::fill_n(values + index, length, kOutside);
        }
      });
    };
    DealLines<kLanes>(pass, lanes, dealing_, sumLines, progress);
  }

  const VORL_GRID& grid_;
  const BoxSides& sides_;
  const Dealing& dealing_;
  std::ptrdiff_t size_ = 0;
  Buffer<T> scratch_;
};

}  // namespace

template <typename T>
int BoxMean(const VORL_GRID& grid, const T* values, const BoxSides& sides, const Dealing& dealing, double* means,
            const Progress& progress) noexcept {
  const std::ptrdiff_t nxyz = grid.nxyz;
  if (sides.x > grid.nx || sides.y > grid.ny || sides.z > grid.nz) {
    std::fill_n(means, nxyz, std::numeric_limits<double>::quiet_NaN());
    return 0;
  }
  // No sum of a box leaves the range of numbers.
  const std::int64_t size = std::int64_t{sides.x} * sides.y * sides.z;
  const int exponent = std::ilogb(static_cast<double>(size)) + 1;
  const double unit = std::ldexp(1.0, exponent);
  const double inverse = 1.0 / unit;

  BoxSums<double> sums(grid, sides, dealing);
  if (const int status = sums.Allocate(); status != 0) return status;
  std::atomic<bool> complete = true;
  sums.Sum(
      [&](std::ptrdiff_t first, std::ptrdiff_t n, double* to) {
        bool known = true;
        for (std::ptrdiff_t i = 0; i < n; ++i) {
          const double value = static_cast<double>(values[first + i]);
          known &= !std::isnan(value);
          to[i] = std::isnan(value) ? 0.0 : value * inverse;
        }
        if (!known) complete.store(false, std::memory_order_relaxed);
      },
      progress.Step(0.0, 0.5), means);
  const Progress last = progress.Step(complete ? 0.5 : 0.9, 1.0);
  // body(begin, end): of a row.
  const auto forEachRow = [&, nx = std::ptrdiff_t{grid.nx}](const auto& body) {
    dealing.Blocks(nxyz / nx, [&, nx](std::ptrdiff_t begin, std::ptrdiff_t end) {
      for (std::ptrdiff_t row = begin; row < end && last.GoesOn(begin == 0, row, end); ++row) {
        body(row * nx, (row + 1) * nx);
      }
    });
  };
  if (complete) {
    forEachRow([&](std::ptrdiff_t begin, std::ptrdiff_t end) {
      for (std::ptrdiff_t i = begin; i < end; ++i) means[i] = means[i] / static_cast<double>(size) * unit;
    });
    return progress.After(0);
  }

  Buffer<unsigned> counts;
  if (const int status = counts.Allocate(static_cast<std::size_t>(nxyz)); status != 0) return status;
  // Unsigned, for lanes that no line fills hold anything.
  BoxSums<unsigned> numbers(grid, sides, dealing);
  if (const int status = numbers.Allocate(); status != 0) return status;
  numbers.Sum(
      [&](std::ptrdiff_t first, std::ptrdiff_t n, unsigned* to) {
        for (std::ptrdiff_t i = 0; i < n; ++i) to[i] = std::isnan(static_cast<double>(values[first + i])) ? 0 : 1;
      },
      progress.Step(0.5, 0.9), counts.data());
  const std::int64_t enough = (4 * size + 4) / 5;
  forEachRow([&, known = counts.data()](std::ptrdiff_t begin, std::ptrdiff_t end) {
    for (std::ptrdiff_t i = begin; i < end; ++i) {
      const unsigned count = known[i];
      means[i] = count >= enough ? means[i] / count * unit : std::numeric_limits<double>::quiet_NaN();
    }
  });
  return progress.After(0);
}

template int BoxMean(const VORL_GRID&, const unsigned char*, const BoxSides&, const Dealing&, double*,
                     const Progress&) noexcept;
template int BoxMean(const VORL_GRID&, const int*, const BoxSides&, const Dealing&, double*, const Progress&) noexcept;
template int BoxMean(const VORL_GRID&, const float*, const BoxSides&, const Dealing&, double*,
                     const Progress&) noexcept;
template int BoxMean(const VORL_GRID&, const double*, const BoxSides&, const Dealing&, double*,
                     const Progress&) noexcept;

}  // namespace kestrum
