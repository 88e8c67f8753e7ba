#include "analysis/morphology.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

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

struct Offset {
  int x;
  int y;
  int z;
};

using Word = std::uint64_t;
constexpr int kWordBits = 64;
constexpr Word kMissingBits = std::bit_cast<Word>(static_cast<real>(VORL_MISSING_VALUE));

// One variable as bits, a node each, with every row starting in a new word: a sweep then handles 64 nodes at once and
// reads an eighth of a byte per node. The nodes that grow are `source`; those they may grow into are `open`.
class BitSweeps {
 public:
  // Axes of one node are put behind the others: no node changes its place, and rows are long.
  BitSweeps(const VORL_GRID& grid, const Dealing& dealing) noexcept : grid_(grid), dealing_(dealing) {
    for (; turns_ < 2 && grid_.nx == 1; ++turns_) {
      grid_.nx = std::exchange(grid_.ny, std::exchange(grid_.nz, grid_.nx));
    }
  }

  [[nodiscard]] int Allocate() noexcept {
    const std::size_t size = static_cast<std::size_t>(Rows() * RowWords());
    if (const int status = source_.Allocate(size); status != 0) return status;
    if (const int status = next_.Allocate(size); status != 0) return status;
    return open_.Allocate(size);
  }

  [[nodiscard]] int SetElement(const StructuringElement& element) noexcept {
    noffset_ = 0;
    if (element.size < 1) return 0;
    if (const int status = offsets_.Allocate(static_cast<std::size_t>(element.size)); status != 0) return status;
    for (int k = 0; k < element.size; ++k) {
      Offset offset{element.x[k], element.y[k], element.z[k]};
      for (int turn = 0; turn < turns_; ++turn) offset = {offset.y, offset.z, offset.x};
      if (StaysOnAxis(offset.x, grid_.nx) && StaysOnAxis(offset.y, grid_.ny) && StaysOnAxis(offset.z, grid_.nz)) {
        offsets_[static_cast<std::size_t>(noffset_++)] = offset;
      }
    }
    // Offsets of the same x share their shift.
    std::sort(offsets_.begin(), offsets_.begin() + noffset_,
              [](const Offset& a, const Offset& b) { return a.x < b.x; });
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
  void LoadMask(const T* mask, bool dilating) noexcept {
    dealing_.Blocks(Rows(), [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t row = begin; row < end; ++row) {
        const T* const values = mask + row * grid_.nx;
        ForEachBlock(values, 0, grid_.nx, TrueValues{}, [&](std::ptrdiff_t first, int n, const unsigned char* marks) {
          const Word all = ~Word{0} >> (kWordBits - n);
          Open(row)[first / kWordBits] = all;
          Source(row)[first / kWordBits] = dilating ? PackMarks(marks) : ~PackMarks(marks) & all;
        });
        if constexpr (std::is_floating_point_v<T>) {
          if (dilating) continue;
          ForEachBlock(values, 0, grid_.nx, KnownValues{}, [&](std::ptrdiff_t first, int, const unsigned char* marks) {
            Source(row)[first / kWordBits] &= PackMarks(marks);
          });
        }
      }
    });
  }

  // One iteration. Returns whether any node has changed.
  bool Sweep() noexcept {
    std::atomic<bool> changed = false;
    dealing_.Blocks(Rows(), [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      Word grown = 0;
      for (std::ptrdiff_t row = begin; row < end; ++row) {
        for (int w = 0; w < RowWords(); ++w) {
          const Word before = Source(row)[w];
          const Word candidates = Open(row)[w] & ~before;
          const Word hits = candidates == 0 ? 0 : candidates & Neighbors(row, w, candidates);
          next_[static_cast<std::size_t>(row * RowWords() + w)] = before | hits;
          grown |= hits;
        }
      }
      if (grown != 0) changed.store(true, std::memory_order_relaxed);
    });
    std::swap(source_, next_);
    return changed.load(std::memory_order_relaxed);
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
  void StoreMask(const T* mask, bool dilating, unsigned char* out) noexcept {
    dealing_.Blocks(Rows(), [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t row = begin; row < end; ++row) {
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

  // Bit i: whether node i of the word has a source at any offset; only the bits of `wanted` need be complete.
  Word Neighbors(std::ptrdiff_t row, int w, Word wanted) noexcept {
    const int y = static_cast<int>(row % grid_.ny);
    const int z = static_cast<int>(row / grid_.ny);
    Word found = 0;
    for (int k = 0; k < noffset_ && (wanted & ~found) != 0;) {
      const int x = offsets_[static_cast<std::size_t>(k)].x;
      const int shift = x & (kWordBits - 1);
      const int low = w + (x - shift) / kWordBits;  // the word of the lowest node wanted, and its neighbour
      const bool lowInside = low >= 0 && low < RowWords();
      const bool highInside = low + 1 >= 0 && low + 1 < RowWords();
      Word lowBits = 0;
      Word highBits = 0;
      for (; k < noffset_ && offsets_[static_cast<std::size_t>(k)].x == x; ++k) {
        const int sourceY = Moved(y, offsets_[static_cast<std::size_t>(k)].y);
        const int sourceZ = Moved(z, offsets_[static_cast<std::size_t>(k)].z);
        if (!HasRow(grid_, sourceY, sourceZ)) continue;
        const Word* const from = Source(std::ptrdiff_t{sourceZ} * grid_.ny + sourceY);
        if (lowInside) lowBits |= from[low];
        if (highInside) highBits |= from[low + 1];
      }
      found |= lowBits >> shift;
      if (shift != 0) found |= highBits << (kWordBits - shift);
    }
    return found;
  }

  VORL_GRID grid_;
  int turns_ = 0;
  const Dealing& dealing_;
  Buffer<Word> source_;
  Buffer<Word> next_;
  Buffer<Word> open_;
  Buffer<Offset> offsets_;
  int noffset_ = 0;
};

int Apply(const Operation& operation, const VORL_GRID& grid, int nvar, const real* in, real* out,
          const StructuringElement& element, int niter, const Dealing& dealing, PercentPrinter& progress) noexcept {
  BitSweeps sweeps(grid, dealing);
  if (const int status = sweeps.Allocate(); status != 0) return status;
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
               unsigned char* out, const Dealing& dealing) noexcept {
  BitSweeps sweeps(grid, dealing);
  if (const int status = sweeps.Allocate(); status != 0) return status;
  sweeps.LoadMask(mask, dilating);
  for (const StructuringElement& element : elements) {
    if (const int status = sweeps.SetElement(element); status != 0) return status;
    sweeps.Sweep();
  }
  sweeps.StoreMask(mask, dilating, out);
  return 0;
}

template int ChangeMask(const VORL_GRID&, const unsigned char*, bool, std::span<const StructuringElement>,
                        unsigned char*, const Dealing&) noexcept;
template int ChangeMask(const VORL_GRID&, const int*, bool, std::span<const StructuringElement>, unsigned char*,
                        const Dealing&) noexcept;
template int ChangeMask(const VORL_GRID&, const float*, bool, std::span<const StructuringElement>, unsigned char*,
                        const Dealing&) noexcept;
template int ChangeMask(const VORL_GRID&, const double*, bool, std::span<const StructuringElement>, unsigned char*,
                        const Dealing&) noexcept;

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
