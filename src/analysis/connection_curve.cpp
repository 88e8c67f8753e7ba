#include "analysis/connection_curve.hpp"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

#include "analysis/threshold_levels.hpp"
#include "core/buffer.hpp"
#include "core/fetch_ahead.hpp"
#include "core/memory.h"
#include "core/object_array.hpp"
#include "core/statuses.hpp"

namespace kestrum {
namespace {

// For up to so many, joining the nodes of each set takes less time than the tree: the one is proportional to their number.
constexpr int kFewThresholds = 64;

// The number of thresholds below a value, by a table of equal parts of their range.
class Ranks {
 public:
  Ranks(int n, const double* thresholds) noexcept
      : n_(n), thresholds_(thresholds), start_(0.5 * thresholds[0]), perUnit_(1.0) {
    const double range = 0.5 * thresholds[n - 1] - start_;
    if (range > 0.0 && kParts / range < std::numeric_limits<double>::infinity()) perUnit_ = kParts / range;
  }

  [[nodiscard]] int Allocate() noexcept {
    if (const int status = first_.Allocate(kParts + 2, n_); status != 0) return status;
    for (int i = n_ - 1; i >= 0; --i) first_[PartOf(thresholds_[i])] = i;
    for (std::size_t part = kParts + 1; part > 0; --part) first_[part - 1] = std::min(first_[part - 1], first_[part]);
    return 0;
  }

  // The thresholds of the parts before that of the value lie below it, and those of the parts after it above.
  int operator()(double value) const noexcept {
    const std::size_t part = PartOf(value);
    const int first = first_[part];
    const int end = first_[part + 1];
    if (first == end) return first;  // so it is in most parts
    return static_cast<int>(std::lower_bound(thresholds_ + first, thresholds_ + end, value) - thresholds_);
  }

 private:
  static constexpr int kParts = 1024;

  std::size_t PartOf(double value) const noexcept {
    return static_cast<std::size_t>(std::clamp<double>((0.5 * value - start_) * perUnit_, 0.0, kParts));
  }

  int n_;
  const double* thresholds_;
  double start_;
  double perUnit_;
  Buffer<int> first_;  // the first threshold of each part or after it
};

// The levels of nodes: how many of the sets, of which each holds the next, have them. Rows lie between zeros.
template <typename Level>
class LevelRows {
 public:
  template <typename T>
  [[nodiscard]] int Make(const int (&n)[3], const T* values, const Ranks& ranks, int nthreshold, bool above,
                         const Progress& progress) noexcept {
    std::copy_n(n, 3, n_);
    pitch_ = (n[0] + 2 + kLane - 1) / kLane * kLane;
    const std::size_t nrow = static_cast<std::size_t>(n[1]) * static_cast<std::size_t>(n[2]);
    if (const int status = levels_.Allocate((nrow + 1) * static_cast<std::size_t>(pitch_)); status != 0) return status;
    std::fill_n(levels_.data(), pitch_, Level{0});
    const Progress ofRows = progress.Step(0.0, 0.3);
    for (std::size_t row = 0; row < nrow; ++row) {
      if (!ofRows.GoesOn(true, static_cast<std::ptrdiff_t>(row), static_cast<std::ptrdiff_t>(nrow))) return kAborted;
      Level* const to = levels_.data() + static_cast<std::ptrdiff_t>(row + 1) * pitch_;
      const T* const from = values + static_cast<std::ptrdiff_t>(row) * n[0];
      to[0] = 0;
      for (int x = 0; x < n[0]; ++x) {
        const double value = static_cast<double>(from[x]);
        const int rank = ranks(value);
        to[x + 1] = value == value ? static_cast<Level>(above ? rank : nthreshold - rank) : Level{0};
      }
      std::fill(to + n[0] + 1, to + pitch_, Level{0});
    }
    return 0;
  }

  int n(int axis) const noexcept { return n_[axis]; }
  int pitch() const noexcept { return pitch_; }
  // From the zero before the row. Rows outside the image are zeros.
  const Level* Row(int y, int z) const noexcept {
    const bool inside = y >= 0 && y < n_[1] && z >= 0;
    return levels_.data() + (inside ? (std::ptrdiff_t{z} * n_[1] + y + 1) * pitch_ : 0);
  }

 private:
  static constexpr int kLane = 64;

  int n_[3] = {};
  int pitch_ = 0;
  Buffer<Level> levels_;
};

// A peak is connected to an earlier one in the sets below `level`; without a link it is 0.
struct Link {
  int to;
  int level;
};

class ConnectionTree {
 public:
  [[nodiscard]] int Allocate(std::size_t most) noexcept { return links_.Allocate(most); }

  int size() const noexcept { return size_; }
  Link& operator[](int peak) noexcept { return links_[static_cast<std::size_t>(peak)]; }

  int AddPeak(const Link& link) noexcept {
    links_[static_cast<std::size_t>(size_)] = link;
    return size_++;
  }

  // The earliest peak that links of a level or above lead to. The way is shortened.
  int TopOf(int peak, int level) noexcept {
    Link* const links = links_.data();
    while (links[peak].level >= level) {
      Link& own = links[peak];
      const Link& next = links[own.to];
      if (next.level >= own.level) own.to = next.to;
      peak = own.to;
    }
    return peak;
  }

  void Connect(int a, int b, int level) noexcept {
    for (;;) {
      a = TopOf(a, level);
      b = TopOf(b, level);
      if (a == b) return;
      if (a < b) std::swap(a, b);
      const Link replaced = std::exchange(links_[static_cast<std::size_t>(a)], Link{b, level});
      if (replaced.level == 0) return;
      a = replaced.to;
      level = replaced.level;
    }
  }

 private:
  Buffer<Link> links_;
  int size_ = 0;
};

// Runs of nodes of one level, by level: the peak that a run belongs to, and its length.
template <int kCapacity>
class RunLists {
 public:
  static constexpr int kLongest = 65535;

  RunLists() = default;
  RunLists(const RunLists&) = delete;
  RunLists& operator=(const RunLists&) = delete;
  ~RunLists() {
    for (Piece* piece : last_) {
      while (piece != nullptr) VORLFree(std::exchange(piece, piece->before));
    }
  }

  [[nodiscard]] int Allocate(int nlevel) noexcept { return last_.Allocate(static_cast<std::size_t>(nlevel), nullptr); }

  [[nodiscard]] int Add(int level, int peak, int length) noexcept {
    Piece*& last = last_[static_cast<std::size_t>(level)];
    if (last == nullptr || last->size == kCapacity) {
      int status = 0;
      auto* const piece = static_cast<Piece*>(VORLMalloc(1, sizeof(Piece), &status));
      if (status != 0) return status;
      piece->before = last;
      piece->size = 0;
      last = piece;
    }
    last->peak[last->size] = peak;
    last->length[last->size++] = static_cast<std::uint16_t>(length);
    return 0;
  }

  template <typename Body>
  void ForEach(int level, const Body& body) const noexcept {
    for (const Piece* piece = last_[static_cast<std::size_t>(level)]; piece != nullptr; piece = piece->before) {
      for (int k = 0; k < piece->size; ++k) body(piece->peak[k], piece->length[k]);
    }
  }

 private:
  struct Piece {
    Piece* before;
    int size;
    int peak[kCapacity];
    std::uint16_t length[kCapacity];
  };
  Buffer<Piece*> last_;
};

template <typename Level>
class Builder {
 public:
  Builder(const LevelRows<Level>& rows, Connectivity connectivity, int n) noexcept
      : rows_(rows), connectivity_(connectivity), n_(n) {}

  [[nodiscard]] int Run(const Progress& progress) noexcept {
    const std::size_t nrow = static_cast<std::size_t>(rows_.n(1)) * static_cast<std::size_t>(rows_.n(2));
    const std::size_t pitch = static_cast<std::size_t>(rows_.pitch());
    const std::size_t most = nrow * (static_cast<std::size_t>(rows_.n(0)) / 2 + 1);
    if (const int status = tree_.Allocate(most); status != 0) return status;
    if (const int status = runs_.Allocate(n_ + 1); status != 0) return status;
    if (const int status = flags_.Allocate(pitch); status != 0) return status;
    if (const int status = least_.Allocate(pitch, Level{0}); status != 0) return status;
    if (const int status = peaks_.Allocate(2 * static_cast<std::size_t>(rows_.n(1)) * pitch); status != 0)
      return status;
    const Progress ofRows = progress.Step(0.3, 0.9);
    for (int z = 0; z < rows_.n(2); ++z) {
      for (int y = 0; y < rows_.n(1); ++y) {
        if (!ofRows.GoesOn(true, std::ptrdiff_t{z} * rows_.n(1) + y, std::ptrdiff_t{rows_.n(1)} * rows_.n(2)))
          return kAborted;
        if (const int status = FindPeaks(y, z); status != 0) return status;
        ConnectRow(y, z);
      }
    }
    return 0;
  }

  // From the largest level to the first.
  [[nodiscard]] int Sum(const Progress& progress, double* probability) noexcept {
    const std::size_t npeak = static_cast<std::size_t>(tree_.size());
    Buffer<int> sizes;
    Buffer<int> order;  // of the links by level, the largest first
    Buffer<int> begin;
    const std::size_t nlevel = static_cast<std::size_t>(n_) + 2;
    if (const int status = sizes.Allocate(npeak + 1, 0); status != 0) return status;
    if (const int status = order.Allocate(npeak + 1); status != 0) return status;
    if (const int status = begin.Allocate(nlevel, 0); status != 0) return status;
    for (int peak = 0; peak < tree_.size(); ++peak) ++begin[nlevel - 1 - static_cast<std::size_t>(tree_[peak].level)];
    for (std::size_t k = 0, sum = 0; k < nlevel; ++k)
      sum += static_cast<std::size_t>(std::exchange(begin[k], static_cast<int>(sum)));
    for (int peak = 0; peak < tree_.size(); ++peak) {
      order[static_cast<std::size_t>(begin[nlevel - 1 - static_cast<std::size_t>(tree_[peak].level)]++)] = peak;
    }
    // Now each begin is the end.
    std::size_t next = 0;
    std::int64_t total = 0;
    std::int64_t squares = 0;
    for (int level = n_; level > 0; --level) {
      if (progress.Aborted()) return kAborted;
      for (const std::size_t end = static_cast<std::size_t>(begin[nlevel - 1 - static_cast<std::size_t>(level)]);
           next < end; ++next) {
        const int peak = order[next];
        const std::int64_t own = sizes[static_cast<std::size_t>(peak)];
        if (own == 0) continue;
        int& joined = sizes[static_cast<std::size_t>(tree_.TopOf(peak, level))];
        squares += 2 * own * joined;
        joined += static_cast<int>(own);
      }
      runs_.ForEach(level, [&](int peak, std::int64_t length) noexcept {
        int& size = sizes[static_cast<std::size_t>(tree_.TopOf(peak, level))];
        squares += length * (2 * std::int64_t{size} + length);
        size += static_cast<int>(length);
        total += length;
      });
      const double all = static_cast<double>(total);
      probability[level - 1] = total == 0 ? 1.0 : static_cast<double>(squares) / (all * all);
    }
    return 0;
  }

 private:
  using Runs = RunLists<sizeof(Level) == 1 ? 1024 : 64>;

  int* PeaksOf(int y, int z) noexcept {
    return peaks_.data() + (std::ptrdiff_t{z % 2} * rows_.n(1) + y) * rows_.pitch();
  }

  // Calls body(x) where flags are set, from 0 or 1 on, in turn.
  template <typename Body>
  void ForFlags(const Body& body) const noexcept {
    for (int x = 0; x < rows_.pitch(); x += 8) {
      std::uint64_t eight;
      std::memcpy(&eight, flags_.data() + x, 8);
      for (; eight != 0; eight &= eight - 1) body(x + std::countr_zero(eight) / 8);
    }
  }

  [[nodiscard]] int FindPeaks(int y, int z) noexcept {
    const Level* const level = rows_.Row(y, z);
    int* const peaks = PeaksOf(y, z);
    const int end = rows_.n(0) + 1;
    unsigned char* const flags = flags_.data();
    flags[0] = 0;
    for (int x = 1; x <= end; ++x) flags[x] = level[x] != level[x - 1];
    std::fill(flags + end + 1, flags + rows_.pitch(), static_cast<unsigned char>(0));
    for (int x = 1 + Runs::kLongest; x < end; x += Runs::kLongest) flags[x] = 1;
    int status = 0;
    int start = 0;   // of the run
    int before = 0;  // the level before it
    int foot = 0;    // the first node of the peak
    int peak = -1;
    bool falls = false;
    // Runs end where levels change; the first one, of zeros, is empty or outside the sets.
    ForFlags([&](int x) noexcept {
      const int own = level[start];
      const bool begins = own > 0 && (before == 0 || (falls && own > before));
      if (peak >= 0 && (begins || own == 0)) std::fill(peaks + foot, peaks + start, peak);
      if (begins) {
        peak = tree_.AddPeak(before == 0 ? Link{0, 0} : Link{peak, before});
        foot = start;
        falls = false;
      } else if (own == 0) {
        peak = -1;
      } else {
        falls = falls || own < before;
      }
      if (own > 0) KeepFailure(runs_.Add(own, peak, x - start), &status);
      before = own;
      start = x;
    });
    if (peak >= 0) std::fill(peaks + foot, peaks + start, peak);
    return status;
  }

  void ConnectRow(int y, int z) noexcept {
    if (y > 0) ConnectFaces(y, z, 1, 0);
    if (z > 0) ConnectFaces(y, z, 0, 1);
    if (connectivity_ == Connectivity::k6) return;
    if (y > 0) ConnectDiagonals(y, z, 1, 0);
    if (z > 0) ConnectDiagonals(y, z, 0, 1);
    if (z == 0) return;
    for (const int dy : {1, -1}) {
      if (y - dy < 0 || y - dy >= rows_.n(1)) continue;
      ConnectAcross(y, z, dy);
      if (connectivity_ == Connectivity::k26) ConnectCorners(y, z, dy);
    }
  }

  // Connects (x, y, z) to (x - dx, y - dy, z - dz) where flags are set.
  void ConnectFlagged(int y, int z, int dx, int dy, int dz) noexcept {
    const Level* const own = rows_.Row(y, z);
    const Level* const other = rows_.Row(y - dy, z - dz) - dx;
    const int* const ownPeaks = PeaksOf(y, z);
    const int* const otherPeaks = PeaksOf(y - dy, z - dz) - dx;
    flags_[0] = 0;
    std::fill(flags_.begin() + rows_.n(0) + 1, flags_.end(), static_cast<unsigned char>(0));
    ForFlags([&](int x) noexcept { tree_.Connect(ownPeaks[x], otherPeaks[x], std::min(own[x], other[x])); });
  }

  // Of neighbouring edges between two rows, the one of the highest level connects the nodes of the others, too. So does
  // a way about the row before, where its nodes are as high.
  void ConnectFaces(int y, int z, int dy, int dz) noexcept {
    const Level* const a = rows_.Row(y, z);
    const Level* const b = rows_.Row(y - dy, z - dz);
    const Level* const c = dz > 0 ? rows_.Row(y - 1, z) : rows_.Row(-1, 0);
    const Level* const d = dz > 0 ? rows_.Row(y - 1, z - 1) : rows_.Row(-1, 0);
    const int n = rows_.n(0);
    Level* const least = least_.data();
    unsigned char* const flags = flags_.data();
    for (int x = 1; x <= n; ++x) least[x] = std::min(a[x], b[x]);
    for (int x = 1; x <= n; ++x) {
      flags[x] = (least[x] > least[x - 1]) & (least[x] >= least[x + 1]) & (least[x] > std::min(c[x], d[x]));
    }
    ConnectFlagged(y, z, 0, dy, dz);
  }

  // A diagonal connects what no node beside it does.
  void ConnectDiagonals(int y, int z, int dy, int dz) noexcept {
    const Level* const a = rows_.Row(y, z);
    const Level* const b = rows_.Row(y - dy, z - dz);
    const int n = rows_.n(0);
    unsigned char* const flags = flags_.data();
    for (const int dx : {1, -1}) {
      for (int x = 1; x <= n; ++x) flags[x] = std::min(a[x], b[x - dx]) > std::max(a[x - dx], b[x]);
      ConnectFlagged(y, z, dx, dy, dz);
    }
  }

  void ConnectAcross(int y, int z, int dy) noexcept {
    const Level* const a = rows_.Row(y, z);
    const Level* const b = rows_.Row(y - dy, z - 1);
    const Level* const c = rows_.Row(y - dy, z);
    const Level* const d = rows_.Row(y, z - 1);
    const int n = rows_.n(0);
    unsigned char* const flags = flags_.data();
    for (int x = 1; x <= n; ++x) flags[x] = std::min(a[x], b[x]) > std::max(c[x], d[x]);
    ConnectFlagged(y, z, 0, dy, 1);
  }

  void ConnectCorners(int y, int z, int dy) noexcept {
    const Level* const a = rows_.Row(y, z);
    const Level* const b = rows_.Row(y - dy, z - 1);
    const Level* const c = rows_.Row(y - dy, z);
    const Level* const d = rows_.Row(y, z - 1);
    const int n = rows_.n(0);
    unsigned char* const flags = flags_.data();
    for (const int dx : {1, -1}) {
      for (int x = 1; x <= n; ++x) {
        const Level beside =
            std::max(std::max(a[x - dx], b[x]), std::max(std::max(c[x], c[x - dx]), std::max(d[x], d[x - dx])));
        flags[x] = std::min(a[x], b[x - dx]) > beside;
      }
      ConnectFlagged(y, z, dx, dy, 1);
    }
  }

  const LevelRows<Level>& rows_;
  const Connectivity connectivity_;
  const int n_;
  ConnectionTree tree_;
  Runs runs_;
  Buffer<int> peaks_;            // of the nodes of two layers
  Buffer<unsigned char> flags_;  // of a row
  Buffer<Level> least_;
};

template <typename Level, typename T>
int CurveOf(const int (&n)[3], const T* values, Connectivity connectivity, int nthreshold, const double* thresholds,
            bool above, const Progress& progress, double* probability) noexcept {
  Ranks ranks(nthreshold, thresholds);
  if (const int status = ranks.Allocate(); status != 0) return status;
  LevelRows<Level> rows;
  if (const int status = rows.Make(n, values, ranks, nthreshold, above, progress); status != 0) return status;
  Builder<Level> builder(rows, connectivity, nthreshold);
  if (const int status = builder.Run(progress); status != 0) return status;
  if (const int status = builder.Sum(progress, probability); status != 0) return status;
  // Sets at or below thresholds grow with them.
  if (!above) std::reverse(probability, probability + nthreshold);
  return 0;
}

// The levels of the nodes of an image, as bits.
class NodeLevels {
 public:
  NodeLevels(int n, const double* thresholds, bool above) noexcept : above_(above) {
    std::fill(thresholds_, thresholds_ + kFewThresholds, std::numeric_limits<double>::quiet_NaN());
    std::copy_n(thresholds, n, thresholds_);
    if (!above) std::reverse(thresholds_, thresholds_ + n);
    n_ = (n + 7) / 8 * 8;
    bits_.nbit = std::bit_width(static_cast<unsigned>(n));
  }

  [[nodiscard]] int Allocate(std::ptrdiff_t nnode) noexcept {
    // An odd number of cache lines, so that the caches hold those of all bits at once.
    bits_.stride = ((nnode / kLevelBlock + 8) / 8 | 1) * 8;
    if (const int status = words_.Allocate(static_cast<std::size_t>(bits_.stride * bits_.nbit)); status != 0)
      return status;
    bits_.words = words_.data();
    const std::ptrdiff_t nblock = nnode / kLevelBlock + 1;
    if (const int status = extremes_.Allocate(static_cast<std::size_t>(2 * nblock)); status != 0) return status;
    bits_.smallest = extremes_.data();
    bits_.largest = extremes_.data() + nblock;
    return 0;
  }

  template <typename T>
  void Write(std::ptrdiff_t nnode, const T* values, const Dealing& dealing, const Progress& progress) noexcept {
    dealing.Blocks((nnode - 1) / kLevelBlock + 1, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      const SimdLevel simd = BestSimdLevel();
      alignas(64) double block[kLevelBlock];
      for (std::ptrdiff_t i = begin; i < end && !progress.Aborted(); ++i) {
        const T* const from = values + i * kLevelBlock;
        const std::ptrdiff_t length = std::min(nnode - i * kLevelBlock, std::ptrdiff_t{kLevelBlock});
        FetchAhead<kLevelBlock>(from);
        const double* doubles = block;
        if constexpr (std::is_same_v<T, double>) {
          if (length == kLevelBlock) doubles = from;
        }
        if (doubles == block) {
          std::fill(std::copy_n(from, length, block), block + kLevelBlock, std::numeric_limits<double>::quiet_NaN());
        }
        WriteLevels(doubles, n_, thresholds_, above_, simd,
                    {bits_.words + i, bits_.stride, bits_.nbit, bits_.smallest + i, bits_.largest + i});
      }
    });
  }

  const LevelBits& bits() const noexcept { return bits_; }

 private:
  const bool above_;
  int n_;
  double thresholds_[kFewThresholds];
  LevelBits bits_ = {};
  Buffer<std::uint64_t> words_;
  Buffer<unsigned char> extremes_;
};

// The same by joining the nodes of each set anew, as bits. Threads share the sets.
template <typename T>
int CurveOfSets(const VORL_GRID& grid, const T* values, Connectivity connectivity, int nthreshold, bool above,
                ObjectArray<GeobodyFinder>& finders, NodeLevels& levels, const Dealing& dealing,
                const Progress& progress, double* probability) noexcept {
  levels.Write(grid.nxyz, values, dealing, progress);
  std::atomic<int> next{0};
  dealing.EachThread([&](int thread, int) noexcept {
    GeobodyFinder& finder = finders[static_cast<std::size_t>(thread)];
    for (int i = next++; i < nthreshold && progress.GoesOn(thread == 0, i, nthreshold); i = next++) {
      const int count = finder.MarkFrom(levels.bits(), i + 1);
      double& to = probability[above ? i : nthreshold - 1 - i];
      to = 1.0;
      if (count <= 1 || count == grid.nxyz) continue;
      const double all = count;
      to = static_cast<double>(finder.SumOfSquares(connectivity, progress.Silent())) / (all * all);
    }
  });
  return progress.After(0);
}

}  // namespace

template <typename T>
int ConnectionCurves(const VORL_GRID& grid, int nimage, const T* values, Connectivity connectivity, int n,
                     const double* thresholds, bool above, const Dealing& dealing, const Progress& progress,
                     double* probability) noexcept {
  const double share = 1.0 / nimage;
  if (n <= kFewThresholds) {
    ObjectArray<GeobodyFinder> finders;
    NodeLevels levels(n, thresholds, above);
    if (const int status = finders.Allocate(dealing.nscratch()); status != 0) return status;
    for (GeobodyFinder& finder : finders) {
      if (const int status = finder.Allocate(grid, LongestPacked(connectivity)); status != 0) return status;
    }
    if (const int status = levels.Allocate(grid.nxyz); status != 0) return status;
    for (int i = 0; i < nimage; ++i) {
      if (const int status =
              CurveOfSets(grid, values + std::ptrdiff_t{i} * grid.nxyz, connectivity, n, above, finders, levels,
                          dealing, progress.Step(i * share, (i + 1) * share), probability + std::ptrdiff_t{i} * n);
          status != 0) {
        return status;
      }
    }
    return 0;
  }
  // Rows should be long: axes of one node before others are left out.
  int sizes[] = {grid.nx, grid.ny, grid.nz};
  for (int k = 0; k < 2 && sizes[0] == 1; ++k) std::rotate(sizes, sizes + 1, sizes + 3);
  const auto curve = n < 256 ? CurveOf<std::uint8_t, T> : CurveOf<std::uint16_t, T>;
  Buffer<int> statuses;
  if (const int status = statuses.Allocate(static_cast<std::size_t>(nimage), 0); status != 0) return status;
  dealing.EachThread([&](int thread, int team) noexcept {
    for (std::ptrdiff_t i = thread; i < nimage; i += team) {
      const double part = static_cast<double>(i);
      const Progress own = thread == 0 ? progress.Step(part * share, (part + 1.0) * share) : progress.Silent();
      statuses[static_cast<std::size_t>(i)] =
          curve(sizes, values + i * grid.nxyz, connectivity, n, thresholds, above, own, probability + i * n);
    }
  });
  int status = 0;
  for (const int own : statuses) KeepFailure(own, &status);
  return status;
}

template int ConnectionCurves(const VORL_GRID&, int, const unsigned char*, Connectivity, int, const double*, bool,
                              const Dealing&, const Progress&, double*) noexcept;
template int ConnectionCurves(const VORL_GRID&, int, const int*, Connectivity, int, const double*, bool, const Dealing&,
                              const Progress&, double*) noexcept;
template int ConnectionCurves(const VORL_GRID&, int, const float*, Connectivity, int, const double*, bool,
                              const Dealing&, const Progress&, double*) noexcept;
template int ConnectionCurves(const VORL_GRID&, int, const double*, Connectivity, int, const double*, bool,
                              const Dealing&, const Progress&, double*) noexcept;

}  // namespace kestrum
