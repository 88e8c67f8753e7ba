#include "analysis/mask_distance.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>

#include "analysis/distance_transform.hpp"
#include "analysis/nearest_in_columns.hpp"
#include "analysis/node_bits.hpp"
#include "core/buffer.hpp"
#include "core/statuses.hpp"

namespace kestrum {
namespace {

// Columns of up to so many nodes are done in wide blocks, and those up to the next number in narrow ones; longer lines
// are done one at a time, which keeps the memory small.
constexpr std::ptrdiff_t kShortColumn = 4096;
constexpr std::ptrdiff_t kLongColumn = 65536;
constexpr int kWideBlock = 4 * kColumnLanes;
static_assert(64 % kWideBlock == 0);  // parts of images begin at the first line of a block (BeyondRows)

constexpr std::ptrdiff_t LanesFor(std::ptrdiff_t n) noexcept {
  return n <= kShortColumn ? kWideBlock : n <= kLongColumn ? kColumnLanes : 1;
}

// Axes of one node are put behind the others.
VORL_GRID WithLongAxesFirst(VORL_GRID grid) noexcept {
  for (int turn = 0; turn < 2; ++turn) {
    if (grid.nx == 1) {
      std::swap(grid.nx, grid.ny);
      std::swap(grid.sx, grid.sy);
    }
    if (grid.ny == 1) {
      std::swap(grid.ny, grid.nz);
      std::swap(grid.sy, grid.sz);
    }
  }
  grid.nxy = grid.nx * grid.ny;
  return grid;
}

// Distances to the sets of nodes of one grid, in work memory that is allocated once.
template <typename T>
class Transform {
 public:
  Transform(const VORL_GRID& grid, const MaskDistanceOptions& options) noexcept
      : grid_(WithLongAxesFirst(grid)), options_(options) {
    // Squares stay within the range of T: spacings are in units of a power of two.
    const double longest = std::max({grid_.sx, grid_.ny > 1 ? grid_.sy : 0.0, grid_.nz > 1 ? grid_.sz : 0.0});
    exponent_ = std::ilogb(longest) - (std::is_same_v<T, float> ? 28 : 400);
    for (double* const spacing : {&grid_.sx, &grid_.sy, &grid_.sz}) *spacing = std::scalbn(*spacing, -exponent_);
    // Its halves are numbers of type T. What lies beyond that is 0 or infinite in the unit of the spacing anyway.
    constexpr int kLimit = 2 * (std::numeric_limits<T>::max_exponent - 3);
    exponent_ = std::clamp(exponent_, -kLimit, kLimit);
    VORL_GRID whole = grid_;
    if (options.beyond != nullptr) whole.nx = options.beyond->nx;
    far_ = FarDistance(options.metric, whole);
    // Longer rows are cut into blocks apart, so that parts of them have the same blocks.
    rowsApart_ = whole.nx >= kWideBlock;
  }

  [[nodiscard]] int Allocate() noexcept {
    std::ptrdiff_t size = 0;
    std::ptrdiff_t envelope = 0;
    for (const std::ptrdiff_t n : {grid_.ny, grid_.nz}) {
      size = std::max(size, n * LanesFor(n));
      envelope = std::max(envelope, n * (n > kLongColumn ? 1 : kLineLanes));
    }
    size_ = (size + 15) / 16 * 16;
    envelopeSize_ = (envelope + 15) / 16 * 16;
    const std::size_t nthread = static_cast<std::size_t>(options_.dealing.nscratch());
    int status = columns_.Allocate(2 * nthread * static_cast<std::size_t>(size_));
    if (status == 0) status = envelopes_.Allocate(2 * nthread * static_cast<std::size_t>(envelopeSize_));
    if (status == 0) status = links_.Allocate(nthread * static_cast<std::size_t>(envelopeSize_));
    return status;
  }

  // finish(first, n, distances): makes what is written in the end of those of n nodes that follow each other.
  template <typename Finish>
  void Run(const NodeBits& set, const Finish& finish, const Progress& progress, T* distance) noexcept {
    const auto& [nx, ny, nz, sx, sy, sz, ox, oy, oz, nxy, nxyz] = grid_;
    const auto weight = [this](double spacing) {
      return options_.metric == DistanceMetric::kL1 ? spacing : spacing * spacing;
    };
    const Progress ofRows = progress.Step(0.0, 0.4);
    options_.dealing.Blocks(
        std::ptrdiff_t{ny} * nz, [&, nx = nx, ny = ny, sx = sx](std::ptrdiff_t begin, std::ptrdiff_t end) {
          for (std::ptrdiff_t row = begin; row < end && ofRows.GoesOn(begin == 0, row, end); ++row) {
            T* const to = distance + row * nx;
            NearestInRow(set.Row(static_cast<int>(row % ny), static_cast<int>(row / ny)), nx, options_.metric,
                         weight(sx), BestSimdLevel(), to);
            if (options_.beyond != nullptr) LookBeyond(row, weight(sx), to);
            if (ny > 1) continue;
            MakeLengths(to, nx);
            finish(row * nx, nx, to);
          }
        });
    if (ny > 1)
      Pass({ny, nx, std::ptrdiff_t{nx} * nz, nx, nxy, weight(sy), rowsApart_}, nz == 1, finish,
           progress.Step(0.4, nz > 1 ? 0.7 : 1.0), distance);
    if (nz > 1) Pass({nz, nxy, nxy, nx, nx, weight(sz), rowsApart_}, true, finish, progress.Step(0.7, 1.0), distance);
  }

 private:
  // The nearest true nodes outside the row.
  void LookBeyond(std::ptrdiff_t row, double weight, T* distance) const noexcept {
    const int nx = grid_.nx;
    const auto look = [&](int steps, int first, int direction) {
      if (steps == 0) return;
      for (int i = 0; i < nx; ++i) {
        T& value = distance[first + direction * i];
        const T count = static_cast<T>(steps + i);
        value =
            std::min(value, (options_.metric == DistanceMetric::kL1 ? count : count * count) * static_cast<T>(weight));
      }
    };
    look(options_.beyond->steps[2 * row], 0, 1);
    look(options_.beyond->steps[2 * row + 1], nx - 1, -1);
  }

  void MakeLengths(T* values, std::ptrdiff_t n) const noexcept {
    Lengths(values, n, options_.metric, static_cast<T>(std::scalbn(1.0, exponent_ / 2)),
            static_cast<T>(std::scalbn(1.0, exponent_ - exponent_ / 2)), BestSimdLevel());
  }

  // The lines of a pass; in the last one, squares and units become distances.
  template <typename Finish>
  void Pass(const LinePass& pass, bool isLast, const Finish& finish, const Progress& progress, T* values) noexcept {
    const std::ptrdiff_t n = pass.n;
    const auto& dealing = options_.dealing;
    DealLines<kWideBlock, kColumnLanes>(
        pass, LanesFor(n), dealing,
        [&](int thread, std::ptrdiff_t count, std::ptrdiff_t lanes, const auto& forEachRun) {
          T* const cost = columns_.data() + 2 * thread * size_;
          T* const nearest = cost + size_;
          // What lies in lanes without a line must not decide how the others are done.
          if (count < lanes) std::fill(cost, cost + n * lanes, T{0});
          forEachRun([&](std::ptrdiff_t index, std::ptrdiff_t place, std::ptrdiff_t length) {
            std::copy_n(values + index, length, cost + place);
          });
          const auto isFar = [](T value) { return value == kFar; };
          if (isFar(cost[0]) && std::all_of(cost, cost + n * lanes, isFar)) {
            std::fill(nearest, nearest + n * lanes, kFar);
          } else if (lanes == 1) {
            Envelopes(pass, thread, 0, cost, nearest);
          } else if (const ColumnBlock<T> block{n, lanes, pass.weight, cost, nearest};
                     options_.metric == DistanceMetric::kL1) {
            SweepColumns(block, BestSimdLevel());
          } else if (!TryColumns(block, BestSimdLevel())) {
            for (std::ptrdiff_t part = 0; part < lanes; part += kLineLanes) {
              Envelopes(pass, thread, lanes - kLineLanes, cost + part, nearest + part);
            }
          }
          if (isLast) MakeLengths(nearest, n * lanes);
          forEachRun([&](std::ptrdiff_t index, std::ptrdiff_t place, std::ptrdiff_t length) {
            if (isLast) finish(index, length, nearest + place);
            std::copy_n(nearest + place, length, values + index);
          });
        },
        progress);
  }

  // One line, or kLineLanes of a block; `gap`: columns between the last of a row and the first of the next.
  void Envelopes(const LinePass& pass, int thread, std::ptrdiff_t gap, const T* cost, T* nearest) noexcept {
    const std::ptrdiff_t lanes = pass.n > kLongColumn ? 1 : kLineLanes;
    double* const from = envelopes_.data() + 2 * thread * envelopeSize_;
    double* const to = from + envelopeSize_;
    for (std::ptrdiff_t u = 0; u < pass.n; ++u) {
      for (std::ptrdiff_t k = 0; k < lanes; ++k) {
        const T value = cost[u * (lanes + gap) + k];
        from[u * lanes + k] = value == kFar ? far_ : value;
      }
    }
    const LineBlock block{pass.n, pass.weight, from, to, links_.data() + thread * envelopeSize_};
    lanes == 1 ? EnvelopeOfOneLine(options_.metric, block) : LineKernelOf(BestSimdLevel())(options_.metric, block);
    for (std::ptrdiff_t u = 0; u < pass.n; ++u) {
      for (std::ptrdiff_t k = 0; k < lanes; ++k) {
        const double value = to[u * lanes + k];
        nearest[u * (lanes + gap) + k] = value >= far_ ? kFar : static_cast<T>(value);
      }
    }
  }

  static constexpr T kFar = std::numeric_limits<T>::infinity();

  VORL_GRID grid_;
  MaskDistanceOptions options_;
  int exponent_;  // of the unit of length
  double far_;    // above any distance
  bool rowsApart_;
  std::ptrdiff_t size_ = 0;
  std::ptrdiff_t envelopeSize_ = 0;
  Buffer<T> columns_;
  Buffer<double> envelopes_;
  Buffer<long long> links_;
};

// The nodes of a set with a face neighbour that is outside it, and known if `known` is given.
void FindLayer(const NodeBits& set, const NodeBits* known, const Dealing& dealing, NodeBits* layer) noexcept {
  const int ny = set.ny();
  const int nz = set.nz();
  const int nword = set.wordsPerRow();
  const std::uint64_t lastWord = ~std::uint64_t{0} >> (kMarkBlock - 1 - (set.nx() - 1) % kMarkBlock);
  dealing.Blocks(std::ptrdiff_t{ny} * nz, [&](std::ptrdiff_t begin, std::ptrdiff_t end) {
    for (std::ptrdiff_t row = begin; row < end; ++row) {
      const int y = static_cast<int>(row % ny);
      const int z = static_cast<int>(row / ny);
      const std::uint64_t* const own = set.Row(y, z);
      std::uint64_t* const to = layer->Row(y, z);
      const auto outside = [&](int word) -> std::uint64_t {
        const std::uint64_t nodes = known != nullptr   ? known->Row(y, z)[word]
                                    : word + 1 < nword ? ~std::uint64_t{0}
                                                       : lastWord;
        return ~own[word] & nodes;
      };
      std::uint64_t before = 0;
      std::uint64_t here = outside(0);
      for (int word = 0; word < nword; ++word) {
        const std::uint64_t after = word + 1 < nword ? outside(word + 1) : 0;
        to[word] = here << 1 | here >> 1 | before >> (kMarkBlock - 1) | after << (kMarkBlock - 1);
        before = std::exchange(here, after);
      }
      const auto addRow = [&](int iy, int iz) {
        if (iy < 0 || iy >= ny || iz < 0 || iz >= nz) return;
        const std::uint64_t* const from = set.Row(iy, iz);
        const std::uint64_t* const knownThere = known == nullptr ? nullptr : known->Row(iy, iz);
        for (int word = 0; word < nword; ++word) {
          to[word] |= ~from[word] & (knownThere == nullptr ? ~std::uint64_t{0} : knownThere[word]);
        }
      };
      addRow(y - 1, z);
      addRow(y + 1, z);
      addRow(y, z - 1);
      addRow(y, z + 1);
      for (int word = 0; word < nword; ++word) to[word] &= own[word];
    }
  });
}

template <typename M>
bool IsTrue(M value) noexcept {
  return value < 0 || value > 0;
}

}  // namespace

template <typename M, typename T>
int MaskDistance(const VORL_GRID& grid, const M* mask, const MaskDistanceOptions& options, T* distance,
                 const Progress& progress) noexcept {
  const Dealing& dealing = options.dealing;
  Transform<T> transform(grid, options);
  if (const int status = transform.Allocate(); status != 0) return status;
  NodeBits set;
  if (const int status = set.Allocate(grid); status != 0) return status;
  set.Mark(mask, TrueValues{}, dealing);
  NodeBits layer;
  if (options.isSigned) {
    if (const int status = layer.Allocate(grid); status != 0) return status;
  }
  const auto markNaN = [=](std::ptrdiff_t first, std::ptrdiff_t n, T* row) {
    if constexpr (std::is_floating_point_v<M>) {
      for (std::ptrdiff_t i = 0; i < n; ++i) {
        if (std::isnan(mask[first + i])) row[i] = std::numeric_limits<T>::quiet_NaN();
      }
    }
  };
  if constexpr (std::is_floating_point_v<M>) {
    NodeBits known;
    if (options.isSigned) {
      if (const int status = known.Allocate(grid); status != 0) return status;
    }
    if (options.isSigned && known.Mark(mask, KnownValues{}, dealing) < grid.nxyz) {
      Buffer<T> inner;
      if (const int status = inner.Allocate(static_cast<std::size_t>(grid.nxyz)); status != 0) return status;
      FindLayer(set, &known, dealing, &layer);
      transform.Run(
          layer, [](std::ptrdiff_t, std::ptrdiff_t, T*) {}, progress.Step(0.0, 0.5), inner.data());
      const T* const depth = inner.data();
      transform.Run(
          set,
          [=](std::ptrdiff_t first, std::ptrdiff_t n, T* row) {
            for (std::ptrdiff_t i = 0; i < n; ++i) {
              if (IsTrue(mask[first + i])) row[i] = T{0} - depth[first + i];
            }
            markNaN(first, n, row);
          },
          progress.Step(0.5, 1.0), distance);
      return progress.After(0);
    }
  }
  if (options.isSigned) {
    FindLayer(set, nullptr, dealing, &layer);
    // The bits lie in the caches, which the mask does not where lines are planes apart.
    const auto negate = [&set, nx = std::ptrdiff_t{set.nx()}](std::ptrdiff_t first, std::ptrdiff_t n, T* row) {
      const SimdLevel simd = BestSimdLevel();
      for (std::ptrdiff_t done = 0; done < n;) {
        const std::ptrdiff_t x = (first + done) % nx;
        const std::ptrdiff_t length = std::min({n - done, nx - x, kMarkBlock - x % kMarkBlock});
        const std::uint64_t word = set.Row(static_cast<int>((first + done) / nx), 0)[x / kMarkBlock];
        Negate(row + done, static_cast<int>(length), word >> x % kMarkBlock, simd);
        done += length;
      }
    };
    transform.Run(layer, negate, progress, distance);
  } else {
    transform.Run(set, markNaN, progress, distance);
  }
  return progress.After(0);
}

template int MaskDistance(const VORL_GRID&, const unsigned char*, const MaskDistanceOptions&, float*,
                          const Progress&) noexcept;
template int MaskDistance(const VORL_GRID&, const unsigned char*, const MaskDistanceOptions&, double*,
                          const Progress&) noexcept;
template int MaskDistance(const VORL_GRID&, const int*, const MaskDistanceOptions&, float*, const Progress&) noexcept;
template int MaskDistance(const VORL_GRID&, const int*, const MaskDistanceOptions&, double*, const Progress&) noexcept;
template int MaskDistance(const VORL_GRID&, const float*, const MaskDistanceOptions&, float*, const Progress&) noexcept;
template int MaskDistance(const VORL_GRID&, const float*, const MaskDistanceOptions&, double*,
                          const Progress&) noexcept;
template int MaskDistance(const VORL_GRID&, const double*, const MaskDistanceOptions&, float*,
                          const Progress&) noexcept;
template int MaskDistance(const VORL_GRID&, const double*, const MaskDistanceOptions&, double*,
                          const Progress&) noexcept;

}  // namespace kestrum
