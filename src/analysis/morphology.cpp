#include "analysis/morphology.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "analysis/add_bits.hpp"
#include "analysis/mark_block.hpp"
#include "analysis/morphology.hpp"
#include "analysis/output_image.hpp"
#include "analysis/percent_printer.hpp"
#include "core/buffer.hpp"
#include "core/constants.h"
#include "core/node_coordinates.hpp"
#include "core/statuses.hpp"

namespace kestrum {
namespace {

struct Operation {
  bool growsSet;  // the set grows into the background, or the background into the set
  real result;    // value of a node that changes sides
  const char* suffix;
  const char* label;
};

constexpr Operation kDilation = {true, 1.0, VORL_SUFFIX_FOR_DILATING, "Dilating image"};
constexpr Operation kErosion = {false, 0.0, VORL_SUFFIX_FOR_ERODING, "Eroding image"};

// Offsets from low to high along x in the row that lies y and z rows away.
struct Run {
  int low;
  int high;
  int y;
  int z;
};

using Word = std::uint64_t;
constexpr int kWordBits = 64;
constexpr Word kMissingBits = std::bit_cast<Word>(static_cast<real>(VORL_MISSING_VALUE));

// Moves the bits of n words down by `shift`: to[i] becomes the 64 bits from bit 64 i + shift on, or is given them too.
// `to` is the place of `from`, or before it.
template <bool adding>
void MoveBits(const Word* from, std::ptrdiff_t shift, std::ptrdiff_t n, Word* to) noexcept {
  const Word* const low = from + shift / kWordBits;
  const int bits = static_cast<int>(shift % kWordBits);
  for (std::ptrdiff_t i = 0; i < n; ++i) {
    // In two steps, since no word can be moved by 64 bits at once.
    const Word moved = low[i] >> bits | low[i + 1] << 1 << (kWordBits - 1 - bits);
    to[i] = adding ? to[i] | moved : moved;
  }
}

// One variable as bits, a node each, with every row starting in a new word: a sweep then handles 64 nodes at once and
// reads an eighth of a byte per node. The nodes that grow are `source`; those they may grow into are `open`. The element
// is taken apart into runs along x. Rows are grown along x once for all runs of the same ends, in steps that double, and
// then added as they are to the rows that lie across.
class BitSweeps {
 public:
  // Axes of one node are put behind the others: no node changes its place, and rows are long.
  BitSweeps(const VORL_GRID& grid, const Dealing& dealing) noexcept : grid_(grid), dealing_(dealing) {
    for (; turns_ < 2 && grid_.nx == 1; ++turns_) {
      grid_.nx = std::exchange(grid_.ny, std::exchange(grid_.nz, grid_.nx));
    }
  }

  [[nodiscard]] int Allocate(bool anywhere) noexcept {
    const std::size_t size = static_cast<std::size_t>(Rows() * RowWords());
    if (const int status = source_.Allocate(size); status != 0) return status;
    if (const int status = next_.Allocate(size); status != 0) return status;
    if (const int status = grown_.Allocate(size); status != 0) return status;
    const std::size_t nthread = static_cast<std::size_t>(dealing_.nscratch());
    if (const int status = line_.Allocate(LineWords() * nthread); status != 0) return status;
    return anywhere ? 0 : open_.Allocate(size);
  }

  [[nodiscard]] int SetElement(const StructuringElement& element) noexcept {
    nrun_ = 0;
    if (element.size < 1) return 0;
    if (const int status = runs_.Allocate(static_cast<std::size_t>(element.size)); status != 0) return status;
    for (int k = 0; k < element.size; ++k) {
      int x = element.x[k];
      int y = element.y[k];
      int z = element.z[k];
      for (int turn = 0; turn < turns_; ++turn) x = std::exchange(y, std::exchange(z, x));
      if (StaysOnAxis(x, grid_.nx) && StaysOnAxis(y, grid_.ny) && StaysOnAxis(z, grid_.nz)) {
        runs_[static_cast<std::size_t>(nrun_++)] = {x, x, y, z};
      }
    }
    std::sort(runs_.begin(), runs_.begin() + nrun_, [](const Run& a, const Run& b) {
      return a.z != b.z ? a.z < b.z : a.y != b.y ? a.y < b.y : a.low < b.low;
    });
    std::ptrdiff_t last = -1;
    for (std::ptrdiff_t k = 0; k < nrun_; ++k) {
      const Run& next = runs_[static_cast<std::size_t>(k)];
      Run& joined = runs_[static_cast<std::size_t>(std::max(last, std::ptrdiff_t{0}))];
      if (last >= 0 && joined.z == next.z && joined.y == next.y && next.low <= joined.high + 1) {
        joined.high = next.high;
      } else {
        runs_[static_cast<std::size_t>(++last)] = next;
      }
    }
    nrun_ = last + 1;
    // Long runs first: what they fill need not be looked at again.
    std::sort(runs_.begin(), runs_.begin() + nrun_, [](const Run& a, const Run& b) {
      const std::int64_t lengthA = std::int64_t{a.high} - a.low;
      const std::int64_t lengthB = std::int64_t{b.high} - b.low;
      return lengthA != lengthB ? lengthA > lengthB
             : a.low != b.low   ? a.low < b.low
             : a.z != b.z       ? a.z < b.z
                                : a.y < b.y;
    });
    return 0;
  }

  void Load(const real* values, bool growsSet) noexcept {
    dealing_.Blocks(Rows(), [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t row = begin; row < end; ++row) {
        for (int w = 0; w < RowWords(); ++w) {
          const real* const at = values + row * grid_.nx + w * kWordBits;
          Word background = 0;
          Word missing = 0;
          for (int i = 0; i < Nodes(w); ++i) {
            // Whole numbers compare faster: zeros of either sign, and the one pattern of the missing value.
            const Word bits = std::bit_cast<Word>(at[i]);
            background |= static_cast<Word>(bits << 1 == 0) << i;
            missing |= static_cast<Word>(bits == kMissingBits) << i;
          }
          const Word all = ~Word{0} >> (kWordBits - Nodes(w));
          const Word set = all & ~(background | missing);
          Source(row)[w] = growsSet ? set : background;
          Open(row)[w] = growsSet ? background : set;
        }
      }
    });
  }

  // The same of a mask, which may grow anywhere.
  template <typename T>
  void LoadMask(const T* mask, bool dilating, const Progress& progress) noexcept {
    dealing_.Blocks(Rows(), [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t row = begin; row < end && progress.GoesOn(begin == 0, row, end); ++row) {
        const T* const values = mask + row * grid_.nx;
        MarkWords(values, grid_.nx, TrueValues{}, Source(row));
        if (dilating) continue;
        for (int w = 0; w < RowWords(); ++w) Source(row)[w] = ~Source(row)[w] & ~Word{0} >> (kWordBits - Nodes(w));
        if constexpr (std::is_floating_point_v<T>) {
          Word* const known = next_.data() + row * RowWords();
          MarkWords(values, grid_.nx, KnownValues{}, known);
          for (int w = 0; w < RowWords(); ++w) Source(row)[w] &= known[w];
        }
      }
    });
  }

  // One iteration, if there are open nodes. Returns whether any node has changed.
  bool Sweep() noexcept {
    Grow(Progress(nullptr, nullptr));
    std::atomic<bool> changed = false;
    dealing_.Blocks(Rows() * RowWords(), [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      Word all = 0;
      for (std::ptrdiff_t i = begin; i < end; ++i) {
        const Word hits = next_.data()[i] & open_.data()[i] & ~source_.data()[i];
        next_.data()[i] = source_.data()[i] | hits;
        all |= hits;
      }
      if (all != 0) changed.store(true, std::memory_order_relaxed);
    });
    std::swap(source_, next_);
    return changed.load(std::memory_order_relaxed);
  }

  // The same where the nodes may grow anywhere.
  void SweepAnywhere(const Progress& progress) noexcept {
    Grow(progress);
    std::swap(source_, next_);
  }

  // Writes the values `in`, with `result` where a node has changed sides.
  void Store(const real* in, real result, real* out) noexcept {
    dealing_.Blocks(Rows(), [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t row = begin; row < end; ++row) {
        for (int w = 0; w < RowWords(); ++w) {
          const std::ptrdiff_t first = row * grid_.nx + w * kWordBits;
          const Word changed = Source(row)[w] & Open(row)[w];
          if (out != in) std::copy_n(in + first, Nodes(w), out + first);
          for (Word rest = changed; rest != 0; rest &= rest - 1) out[first + std::countr_zero(rest)] = result;
        }
      }
    });
  }

  // Writes what has grown, or what is left, but for NaN.
  template <typename T>
  void StoreMask(const T* mask, bool dilating, const Progress& progress, unsigned char* out) noexcept {
    dealing_.Blocks(Rows(), [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t row = begin; row < end && progress.GoesOn(begin == 0, row, end); ++row) {
        const auto write = [&](std::ptrdiff_t first, int n, const unsigned char* known) {
          const Word grown = Source(row)[first / kWordBits];
          unsigned char bytes[kWordBits];
          SpreadBits(dilating ? grown : ~grown, bytes);
          if (known != nullptr) {
            for (int i = 0; i < kWordBits; ++i) bytes[i] &= known[i];
          }
          std::copy_n(bytes, n, out + row * grid_.nx + first);
        };
        if constexpr (std::is_floating_point_v<T>) {
          ForEachBlock(mask + row * grid_.nx, 0, grid_.nx, KnownValues{}, write);
        } else {
          for (int w = 0; w < RowWords(); ++w) write(std::ptrdiff_t{w} * kWordBits, Nodes(w), nullptr);
        }
      }
    });
  }

 private:
  // Bit i becomes byte i.
  static void SpreadBits(Word bits, unsigned char* bytes) noexcept {
    for (int byte = 0; byte < kWordBits; byte += 8) {
      // Eight copies, of which byte i keeps bit i; the sum moves it to the highest place.
      const Word kept = (bits >> byte & 0xff) * 0x0101010101010101u & 0x8040201008040201u;
      const Word spread = (kept + 0x7f7f7f7f7f7f7f7fu) >> 7 & 0x0101010101010101u;
      std::memcpy(bytes + byte, &spread, 8);
    }
  }
  std::ptrdiff_t Rows() const noexcept { return std::ptrdiff_t{grid_.ny} * grid_.nz; }
  int RowWords() const noexcept { return (grid_.nx - 1) / kWordBits + 1; }
  int Nodes(int w) const noexcept { return std::min(kWordBits, grid_.nx - w * kWordBits); }
  Word* Source(std::ptrdiff_t row) noexcept { return source_.data() + row * RowWords(); }
  Word* Open(std::ptrdiff_t row) noexcept { return open_.data() + row * RowWords(); }

  std::size_t LineWords() const noexcept { return 8 * static_cast<std::size_t>(RowWords()) + 16; }

  // Makes `next` the sources and all nodes that have one at an offset of the element.
  void Grow(const Progress& progress) noexcept {
    std::copy(source_.begin(), source_.end(), next_.begin());
    std::atomic<bool> room = true;
    for (std::ptrdiff_t first = 0, last = 0; first < nrun_ && room && !progress.Aborted(); first = last) {
      const Run* const runs = runs_.data();
      for (last = first; last < nrun_ && runs[last].low == runs[first].low && runs[last].high == runs[first].high;)
        ++last;
      const bool alongX = runs[first].low != 0 || runs[first].high != 0;
      if (alongX) GrowAlongX(runs[first]);
      room = false;
      const Progress step = progress.Step(static_cast<double>(first) / static_cast<double>(nrun_),
                                          static_cast<double>(last) / static_cast<double>(nrun_));
      const Word* const from = alongX ? grown_.data() : source_.data();
      dealing_.Blocks(Rows(), [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
        for (std::ptrdiff_t z = begin / grid_.ny; z * grid_.ny < end && step.GoesOn(begin == 0, z * grid_.ny, end);
             ++z) {
          const std::ptrdiff_t firstY = std::max(begin - z * grid_.ny, std::ptrdiff_t{0});
          const std::ptrdiff_t endY = std::min(end - z * grid_.ny, std::ptrdiff_t{grid_.ny});
          for (const Run* run = runs + first; run < runs + last; ++run) {
            const std::ptrdiff_t y = std::max(firstY, -std::ptrdiff_t{run->y});
            const std::ptrdiff_t ny = std::min(endY, std::ptrdiff_t{grid_.ny} - run->y) - y;
            if (ny <= 0 || z + run->z < 0 || z + run->z >= grid_.nz) continue;
            Word* const to = next_.data() + (z * grid_.ny + y) * RowWords();
            const Word* const source = from + ((z + run->z) * grid_.ny + y + run->y) * RowWords();
            AddBits(source, ny * RowWords(), BestSimdLevel(), to);
          }
        }
        if (HasRoom(begin, end)) room.store(true, std::memory_order_relaxed);
      });
    }
  }

  // Whether a node of some rows is not in `next`.
  bool HasRoom(std::ptrdiff_t begin, std::ptrdiff_t end) const noexcept {
    for (std::ptrdiff_t row = begin; row < end; ++row) {
      for (int w = 0; w < RowWords(); ++w) {
        if (next_.data()[row * RowWords() + w] != ~Word{0} >> (kWordBits - Nodes(w))) return true;
      }
    }
    return false;
  }

  // Makes `grown` the nodes that have a source at any of the offsets of a run.
  void GrowAlongX(const Run& run) noexcept {
    const std::ptrdiff_t length = std::ptrdiff_t{run.high} - run.low + 1;
    const std::ptrdiff_t beyond = length / kWordBits + 2;  // words after those in use that are read
    const std::ptrdiff_t nword = RowWords() + beyond;
    // The row, with empty words on both sides.
    const std::ptrdiff_t before = (std::max(-run.low, 0) + kWordBits - 1) / kWordBits;
    const std::ptrdiff_t after = nword + std::max(run.low, 0) / kWordBits + 1;
    dealing_.EachThread([&](int thread, int team) noexcept {
      const ItemBlock rows = BlockOf(Rows(), team, thread);
      if (length <= kWordBits) {
        GrowBits({source_.data(), Rows() * RowWords(), RowWords()}, rows.begin * RowWords(), rows.end * RowWords(),
                 run.low, static_cast<int>(length), BestSimdLevel(), grown_.data());
        return;
      }
      Word* const line = line_.data() + static_cast<std::size_t>(thread) * LineWords();
      for (std::ptrdiff_t row = rows.begin; row < rows.end; ++row) {
        std::fill_n(line, before, Word{0});
        std::copy_n(Source(row), RowWords(), line + before);
        std::fill_n(line + before + RowWords(), after, Word{0});
        MoveBits<false>(line, before * kWordBits + run.low, nword, line);
        std::fill_n(line + nword, beyond, Word{0});
        // Of each node, whether one of the `done` nodes from it on is a source.
        for (std::ptrdiff_t done = 1; done < length;) {
          const std::ptrdiff_t step = std::min(done, length - done);
          MoveBits<true>(line, step, nword, line);
          done += step;
        }
        std::copy_n(line, RowWords(), grown_.data() + row * RowWords());
      }
    });
  }

  VORL_GRID grid_;
  int turns_ = 0;
  const Dealing& dealing_;
  Buffer<Word> source_;
  Buffer<Word> next_;
  Buffer<Word> grown_;
  Buffer<Word> line_;  // a longer row for each thread
  Buffer<Word> open_;
  Buffer<Run> runs_;
  std::ptrdiff_t nrun_ = 0;
};

int Apply(const Operation& operation, const VORL_GRID& grid, int nvar, const real* in, real* out,
          const StructuringElement& element, int niter, const Dealing& dealing, PercentPrinter& progress) noexcept {
  BitSweeps sweeps(grid, dealing);
  if (const int status = sweeps.Allocate(false); status != 0) return status;
  if (const int status = sweeps.SetElement(element); status != 0) return status;
  const std::int64_t nxyz = grid.nxyz;
  const double step = 1.0 / (static_cast<double>(std::max(niter, 1)) * static_cast<double>(nvar * nxyz));
  for (int v = 0; v < nvar; ++v) {
    // The count of iterations restarts with each variable and rises by the variable's number. This is deliberate.
    const auto percentOf = [nxyz, step, v](std::int64_t visit) {
      const std::int64_t k = visit / nxyz * (v + 1);
      return static_cast<int>(static_cast<double>(k * nxyz + visit % nxyz) * (100.0 * step));
    };
    sweeps.Load(in + v * nxyz, operation.growsSet);
    bool changed = true;
    std::int64_t iteration = 0;
    while (changed && iteration < niter) {
      changed = sweeps.Sweep();
      progress.Report(iteration * nxyz, (iteration + 1) * nxyz, percentOf);
      ++iteration;
    }
    // Nothing changes any more, whatever the number of iterations left.
    progress.Report(iteration * nxyz, niter * nxyz, percentOf);
    sweeps.Store(in + v * nxyz, operation.result, out + v * nxyz);
  }
  return 0;
}

int ApplyToImage(const Operation& operation, const VORL_IMAGE& in, VORL_IMAGE* out, const StructuringElement& element,
                 int niter, bool verbose, const Dealing& dealing) noexcept {
  if (const int status = CheckImage(in); status != 0) return status;
  if (!element.IsComplete()) return kNotAllocated;
  if (const int status = MakeOutputImage(in, operation.suffix, out); status != 0) return status;
  PercentPrinter progress(verbose, operation.label);
  progress.Start();
  const int status = Apply(operation, *in.grid, in.nvar, in.var, out->var, element, niter, dealing, progress);
  if (status == 0) progress.Finish();
  return status;
}

}  // namespace

int ErodeValues(const VORL_GRID& grid, int nvar, const real* in, real* out, const StructuringElement& element,
                int niter, const Dealing& dealing) noexcept {
  PercentPrinter silent(false, kErosion.label);
  return Apply(kErosion, grid, nvar, in, out, element, niter, dealing, silent);
}

template <typename T>
int ChangeMask(const VORL_GRID& grid, const T* mask, bool dilating, std::span<const StructuringElement> elements,
               unsigned char* out, const Dealing& dealing, const Progress& progress) noexcept {
  BitSweeps sweeps(grid, dealing);
  if (const int status = sweeps.Allocate(true); status != 0) return status;
  sweeps.LoadMask(mask, dilating, progress.Step(0.0, 0.2));
  const double share = 0.6 / static_cast<double>(elements.size());
  double begin = 0.2;
  for (const StructuringElement& element : elements) {
    if (const int status = sweeps.SetElement(element); status != 0) return status;
    sweeps.SweepAnywhere(progress.Step(begin, begin + share));
    begin += share;
  }
  sweeps.StoreMask(mask, dilating, progress.Step(0.8, 1.0), out);
  return progress.After(0);
}

template int ChangeMask(const VORL_GRID&, const unsigned char*, bool, std::span<const StructuringElement>,
                        unsigned char*, const Dealing&, const Progress&) noexcept;
template int ChangeMask(const VORL_GRID&, const int*, bool, std::span<const StructuringElement>, unsigned char*,
                        const Dealing&, const Progress&) noexcept;
template int ChangeMask(const VORL_GRID&, const float*, bool, std::span<const StructuringElement>, unsigned char*,
                        const Dealing&, const Progress&) noexcept;
template int ChangeMask(const VORL_GRID&, const double*, bool, std::span<const StructuringElement>, unsigned char*,
                        const Dealing&, const Progress&) noexcept;

}  // namespace kestrum

using namespace kestrum;

int VORLImageDilate(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX, int* shiftY, int* shiftZ,
                    int niter, BOOLEAN verbose) noexcept {
  return ApplyToImage(kDilation, *imageIn, imageOut, {nshift, shiftX, shiftY, shiftZ}, niter, verbose != FALSE,
                      Dealing::Serial());
}

int VORLOMPImageDilate(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX, int* shiftY, int* shiftZ,
                       int niter, BOOLEAN verbose, int nthreads) noexcept {
  return ApplyToImage(kDilation, *imageIn, imageOut, {nshift, shiftX, shiftY, shiftZ}, niter, verbose != FALSE,
                      Dealing::Threads(nthreads));
}

int VORLImageErode(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX, int* shiftY, int* shiftZ,
                   int niter, BOOLEAN verbose) noexcept {
  return ApplyToImage(kErosion, *imageIn, imageOut, {nshift, shiftX, shiftY, shiftZ}, niter, verbose != FALSE,
                      Dealing::Serial());
}

int VORLOMPImageErode(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX, int* shiftY, int* shiftZ,
                      int niter, BOOLEAN verbose, int nthreads) noexcept {
  return ApplyToImage(kErosion, *imageIn, imageOut, {nshift, shiftX, shiftY, shiftZ}, niter, verbose != FALSE,
                      Dealing::Threads(nthreads));
}
