#include "analysis/geobodies.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdlib>
#include <utility>

#include "analysis/geobodies.hpp"
#include "analysis/mark_block.hpp"
#include "analysis/output_image.hpp"
#include "core/constants.h"
#include "core/integers.hpp"
#include "core/parallel.hpp"
#include "core/statuses.hpp"
#include "core/variables.hpp"

namespace kestrum {
namespace {

// Indicator of a variable, as int or real; returns the number of marked nodes.
template <typename T>
int WriteIndicator(const real* values, int nxyz, const IntervalSet& set, T* out, Dealing dealing) noexcept {
  std::atomic<int> total{0};
  dealing.Blocks(nxyz, [&](std::ptrdiff_t begin, std::ptrdiff_t end) {
    int count = 0;
    ForEachBlock(values, begin, end, set, [&](std::ptrdiff_t first, int n, const unsigned char* marks) {
      for (int i = 0; i < n; ++i) {
        count += marks[i];
        out[first + i] = IsMissing(values[first + i]) ? static_cast<T>(VORL_MISSING_VALUE) : static_cast<T>(marks[i]);
      }
    });
    total += count;
  });
  return total;
}

// Rows of a bundle along y and z.
constexpr int BundleY(Connectivity connectivity) noexcept { return connectivity == Connectivity::k6 ? 1 : 2; }
constexpr int BundleZ(Connectivity connectivity) noexcept { return connectivity == Connectivity::k26 ? 2 : 1; }

// Fills labels from `begin` to `end`, in steps that may go past the end, but not past `limit`: what is there is
// written later. Most pieces are short.
template <typename T>
void FillRoughly(T* begin, T* end, const T* limit, T label) noexcept {
  constexpr int kStep = 4;
  for (; begin < end && limit - begin >= kStep; begin += kStep) {
    for (int i = 0; i < kStep; ++i) begin[i] = label;
  }
  while (begin < end) *begin++ = label;
}

// The first one of the places in each part of a word, where a part goes from one start to the next.
std::uint64_t FirstPlaces(std::uint64_t places, std::uint64_t starts) noexcept {
  // In a sum of both terms, each place sends a carry on to the next start.
  const std::uint64_t through = places | ~starts;
  const std::uint64_t carries = (places + through) ^ places ^ through;
  return places & (starts | ~carries);
}

}  // namespace

int GeobodyFinder::AllocateBits(const VORL_GRID& grid) noexcept {
  if (const int status = NodeBits::Allocate(grid); status != 0) return status;
  runsPerBundle_ = nx_ / 2 + nx_ % 2;
  return starts_.Allocate(nrow() * static_cast<std::size_t>(wordsPerRow_));
}

int GeobodyFinder::Allocate(const VORL_GRID& grid) noexcept {
  int status = AllocateBits(grid);
  if (status == 0) status = links_.Allocate(nrow() * static_cast<std::size_t>(runsPerBundle_));
  link_ = links_.data();
  return status;
}

// Makes each run of a bundle a geobody of its own.
void GeobodyFinder::FindRuns(int bundleY, int bundleZ) noexcept {
  const int firstRun = FirstRun(bundleY, bundleZ);
  std::uint64_t* starts = starts_.data() + (std::ptrdiff_t{bundleZ} * bundlesPerLayer_ + bundleY) * wordsPerRow_;
  for (int word = 0; word < wordsPerRow_; ++word) {
    const int x = word * kMarkBlock;
    Bits all = {0, 0};
    for (int z = 0; z < bundleZ_; ++z) {
      for (int y = 0; y < bundleY_; ++y) {
        const Bits row = RowBits(bundleY * bundleY_ + y, bundleZ * bundleZ_ + z, x);
        all = {all.here | row.here, all.before | row.before};
      }
    }
    *starts = all.here & ~all.before;
    for (std::uint64_t rest = *starts++; rest != 0; rest &= rest - 1) {
      const int run = firstRun + ((x + std::countr_zero(rest)) >> runShift_);
      link_[run] = run;
    }
  }
}

// Joins the geobodies of two runs. The paths to both roots are shortened on the way.
[[gnu::always_inline]] inline void GeobodyFinder::Join(int a, int b) noexcept {
  int* const link = link_;
  while (link[a] != link[b]) {
    if (link[a] < link[b]) std::swap(a, b);
    const int next = link[a];
    link[a] = link[b];
    if (next == a) break;
    a = next;
  }
}

// Joins the runs of a bundle to those of the one that lies dy and dz bundles from it.
template <Connectivity connectivity, int dy, int dz>
void GeobodyFinder::JoinBundles(int bundleY, int bundleZ) noexcept {
  constexpr int kY = BundleY(connectivity);
  constexpr int kZ = BundleZ(connectivity);
  RunCursor a = CursorOf(bundleY, bundleZ);
  RunCursor b = CursorOf(bundleY + dy, bundleZ + dz);
  for (int word = 0; word < wordsPerRow_; ++word) {
    const int x = word * kMarkBlock;
    // The runs at or before a contact touch.
    std::uint64_t contacts = 0;
    for (int i = 0; i < kY * kZ; ++i) {
      for (int j = 0; j < kY * kZ; ++j) {
        const int stepY = kY * dy + j % kY - i % kY;
        const int stepZ = kZ * dz + j / kY - i / kY;
        if (std::abs(stepY) > 1 || std::abs(stepZ) > 1) continue;
        const int iy = kY * bundleY + i % kY;
        const int iz = kZ * bundleZ + i / kY;
        const Bits rowA = RowBits(iy, iz, x);
        const Bits rowB = RowBits(iy + stepY, iz + stepZ, x);
        contacts |= rowA.here & rowB.here;
        if (connectivity == Connectivity::k26 || (connectivity == Connectivity::k18 && (stepY == 0 || stepZ == 0))) {
          contacts |= (rowA.here & rowB.before) | (rowA.before & rowB.here);
        }
      }
    }
    a.Advance();
    b.Advance();
    std::uint64_t rest = FirstPlaces(contacts, a.starts | b.starts);
    // In a square of four marked nodes, the other three sides join these two.
    if (connectivity == Connectivity::k6 && dz != 0 && bundleY > 0) {
      rest &= ~(RowBits(bundleY - 1, bundleZ, x).here & RowBits(bundleY - 1, bundleZ - 1, x).here);
    }
    for (; rest != 0; rest &= rest - 1) {
      const int place = std::countr_zero(rest);
      Join(a.RunAt(place), b.RunAt(place));
    }
  }
}

void GeobodyFinder::SetConnectivity(Connectivity connectivity) noexcept {
  bundleY_ = BundleY(connectivity);
  bundleZ_ = BundleZ(connectivity);
  bundlesPerLayer_ = (ny_ - 1) / bundleY_ + 1;
}

template <Connectivity connectivity>
void GeobodyFinder::JoinToBundlesBefore(int y, int z, int border, bool across) noexcept {
  const auto wanted = [&](int dy, int dz) { return ((z + dz) * bundlesPerLayer_ + y + dy < border) == across; };
  if (y > 0 && wanted(-1, 0)) JoinBundles<connectivity, -1, 0>(y, z);
  if (z == 0) return;
  if (wanted(0, -1)) JoinBundles<connectivity, 0, -1>(y, z);
  if (connectivity == Connectivity::k6) return;
  if (y > 0 && wanted(-1, -1)) JoinBundles<connectivity, -1, -1>(y, z);
  if (y + 1 < bundlesPerLayer_ && wanted(1, -1)) JoinBundles<connectivity, 1, -1>(y, z);
}

// Joins the bundles of a slab to each other, or to the slab before.
template <Connectivity connectivity>
void GeobodyFinder::JoinSlab(const Slab& slab, bool across) noexcept {
  const int border = slab.beginZ * bundlesPerLayer_ + slab.beginY;
  const int endZ = across ? std::min(slab.beginZ + 1, slab.endZ) : slab.endZ;
  for (int z = slab.beginZ; z < endZ; ++z) {
    for (int y = slab.beginY; y < slab.endY; ++y) {
      if (Stopped()) return;
      if (!across) FindRuns(y, z);
      JoinToBundlesBefore<connectivity>(y, z, border, across);
    }
  }
}

void GeobodyFinder::Join(Connectivity connectivity, const Slab& slab, bool across) noexcept {
  switch (connectivity) {
    case Connectivity::k6:
      return JoinSlab<Connectivity::k6>(slab, across);
    case Connectivity::k18:
      return JoinSlab<Connectivity::k18>(slab, across);
    case Connectivity::k26:
      return JoinSlab<Connectivity::k26>(slab, across);
  }
}

GeobodyFinder::Slab GeobodyFinder::SlabOf(std::ptrdiff_t nslab, std::ptrdiff_t i) const noexcept {
  const int nlayer = (nz_ - 1) / bundleZ_ + 1;
  const ItemBlock block = BlockOf(nz_ == 1 ? bundlesPerLayer_ : nlayer, nslab, i);
  const int begin = static_cast<int>(block.begin);
  const int end = static_cast<int>(block.end);
  Slab slab = nz_ == 1 ? Slab{begin, end, 0, 1, 0, 0, 0} : Slab{0, bundlesPerLayer_, begin, end, 0, 0, 0};
  slab.firstRun = begin < end ? FirstRun(slab.beginY, slab.beginZ) : 0;
  return slab;
}

// Called for the pieces in node order: the first one of a geobody numbers it, wherever its root is.
[[gnu::always_inline]] inline int GeobodyFinder::LabelOf(int run, int* ngeobody) noexcept {
  int* const link = link_;
  if (link[run] < 0) return -link[run];
  if (link[link[run]] < 0) return -(link[run] = link[link[run]]);  // so it is for most
  int root = run;
  while (link[root] >= 0 && link[root] != root) root = link[root];
  const int label = link[root] < 0 ? -link[root] : ++*ngeobody;
  while (link[run] >= 0) run = std::exchange(link[run], -label);
  return label;
}

int GeobodyFinder::Connect(Connectivity connectivity) noexcept {
  SetConnectivity(connectivity);
  Join(connectivity, SlabOf(1, 0), false);
  int ngeobody = 0;
  ForEachPiece({0, nz_}, {0, ny_}, [&](int run, int, int) { LabelOf(run, &ngeobody); });
  return ngeobody;
}

template <typename T>
int GeobodyFinder::Label(const real* values, const IntervalSet& set, Connectivity connectivity, T* labels) noexcept {
  // Missing nodes deliberately stay missing here alone.
  if (Mark(values, set) < 2) return WriteIndicator(values, nxyz_, set, labels, Dealing::Serial());
  return LabelMarked(connectivity, labels);
}

template <typename T>
int GeobodyFinder::LabelMarked(Connectivity connectivity, T* labels) noexcept {
  SetConnectivity(connectivity);
  Join(connectivity, SlabOf(1, 0), false);
  int ngeobody = 0;
  T* next = labels;
  T* const end = labels + nxyz_;
  ForEachPiece({0, nz_}, {0, ny_}, [&](int run, int node, int length) {
    FillRoughly(next, labels + node, end, T{0});
    next = labels + node + length;
    FillRoughly(labels + node, next, end, static_cast<T>(LabelOf(run, &ngeobody)));
  });
  std::fill(next, end, T{0});
  return ngeobody;
}

// Calls body(run) in the order of the runs.
template <typename Body>
void GeobodyFinder::ForEachRunOf(const Slab& slab, const Body& body) const noexcept {
  for (int z = slab.beginZ; z < slab.endZ; ++z) {
    for (int y = slab.beginY; y < slab.endY; ++y) {
      if (Stopped()) return;
      const int firstRun = FirstRun(y, z);
      const std::uint64_t* const starts = starts_.data() + (std::ptrdiff_t{z} * bundlesPerLayer_ + y) * wordsPerRow_;
      for (int word = 0; word < wordsPerRow_; ++word) {
        for (std::uint64_t rest = starts[word]; rest != 0; rest &= rest - 1) {
          body(firstRun + ((word * kMarkBlock + std::countr_zero(rest)) >> runShift_));
        }
      }
    }
  }
}

// Gives each run of a slab the number of its geobody among those that begin there, in the order of their first nodes,
// as LabelOf does; or a link to an earlier slab. A geobody that comes from there has its root, and its first node, there.
void GeobodyFinder::NumberSlab(Slab& slab) noexcept {
  int* const link = link_;
  const int first = slab.firstRun;
  int ngeobody = 0;
  const auto number = [&](int run) {
    if (link[run] < first && link[run] >= 0) return;
    int root = run;
    while (link[root] >= first && link[root] != root) root = link[root];
    const int value = link[root] == root ? -++ngeobody : link[root];
    while (link[run] >= first) run = std::exchange(link[run], value);
  };
  if (runShift_ == 0) {
    ForEachRunOf(slab, number);
  } else {
    ForEachPiece({slab.beginZ * bundleZ_, std::min(slab.endZ * bundleZ_, nz_)},
                 {slab.beginY * bundleY_, std::min(slab.endY * bundleY_, ny_)},
                 [&](int run, int, int) { number(run); });
  }
  slab.ngeobody = ngeobody;
}

// Writes the labels where bundles are single rows: those of the runs of some words first, by labelOf(run), since the
// filling of one may go past the first node of the next.
template <typename NumberOf>
void GeobodyFinder::WriteRows(const Slab& slab, const NumberOf& labelOf, int* labels) const noexcept {
  constexpr int kWords = 16;
  int ofRuns[kWords * kMarkBlock / 2 + 1] = {};
  for (int z = slab.beginZ; z < slab.endZ; ++z) {
    for (int y = slab.beginY; y < slab.endY; ++y) {
      if (Stopped()) return;
      const int row = (z * ny_ + y) * nx_;
      const std::uint64_t* const starts = starts_.data() + (std::ptrdiff_t{z} * ny_ + y) * wordsPerRow_;
      const std::uint64_t* const bits = Row(y, z);
      int label = 0;
      for (int first = 0; first < wordsPerRow_; first += kWords) {
        const int endWord = std::min(first + kWords, wordsPerRow_);
        int* known = ofRuns;
        for (int word = first; word < endWord; ++word) {
          for (std::uint64_t rest = starts[word]; rest != 0; rest &= rest - 1) {
            *known++ = labelOf(row + word * kMarkBlock + std::countr_zero(rest));
          }
        }
        known = ofRuns;
        int* next = labels + row + first * kMarkBlock;
        int* const end = labels + row + std::min(nx_, endWord * kMarkBlock);
        for (int word = first; word < endWord; ++word) {
          for (std::uint64_t nodes = bits[word]; nodes != 0;) {
            const int begin = std::countr_zero(nodes);
            const std::uint64_t after = nodes + (nodes & -nodes);  // the carry comes out after the piece
            const int length = (after == 0 ? kMarkBlock : std::countr_zero(after)) - begin;
            if ((starts[word] >> begin & 1) != 0) label = *known++;
            int* const piece = labels + row + word * kMarkBlock + begin;
            FillRoughly(next, piece, end, 0);
            next = piece + length;
            FillRoughly(piece, next, end, label);
            nodes &= after;
          }
        }
        FillRoughly(next, end, end, 0);
      }
    }
  }
}

void GeobodyFinder::WriteSlab(const Slab& slab, int* labels) const noexcept {
  if (runShift_ == 0)
    return WriteRows(
        slab, [&](int run) { return -link_[run]; }, labels);
  const int beginZ = std::min(slab.beginZ * bundleZ_, nz_);
  const int endZ = std::min(slab.endZ * bundleZ_, nz_);
  const int beginY = std::min(slab.beginY * bundleY_, ny_);
  const int endY = std::min(slab.endY * bundleY_, ny_);
  int* next = labels + (beginZ * ny_ + beginY) * nx_;
  int* const end = labels + ((endZ - 1) * ny_ + endY) * nx_;
  int rowEnd = 0;
  int lastRun = -1;
  int label = 0;
  ForEachPiece({beginZ, endZ}, {beginY, endY}, [&](int run, int node, int length) {
    // Near the end of a row, the links of the runs that are left lie close by.
    constexpr int kClose = 8;
    // A link is there until the first piece of its run in the last row of a bundle is written.
    if (run != lastRun || node >= rowEnd) label = -link_[run];
    lastRun = run;
    if (node >= rowEnd) rowEnd = (node / nx_ + 1) * nx_;
    const int* const limit = labels + rowEnd - kClose;
    FillRoughly(next, labels + node, limit, 0);
    next = labels + node + length;
    FillRoughly(labels + node, next, limit, label);
  });
  std::fill(next, end, 0);
}

int GeobodyFinder::LabelInPlace(Connectivity connectivity, int* labels, const Dealing& dealing,
                                const Progress& progress) noexcept {
  progress_ = &progress;
  inPlace_ = true;
  link_ = labels;
  runShift_ = connectivity == Connectivity::k6 ? 0 : 1;
  SetConnectivity(connectivity);
  Slab slabs[Dealing::kMaxTeam];
  int nslab = 0;
  dealing.EachThread([&](int thread, int team) {
    if (thread == 0) nslab = team;
    slabs[thread] = SlabOf(team, thread);
    Join(connectivity, slabs[thread], false);
  });
  for (int i = 1; i < nslab; ++i) Join(connectivity, slabs[i], true);
  if (progress.Aborted()) return 0;
  int ngeobody = 0;
  if (nslab == 1 && runShift_ == 0) {
    // A link leads to a run that has its label.
    WriteRows(
        slabs[0], [&](int run) { return labels[run] = labels[run] == run ? ++ngeobody : labels[labels[run]]; }, labels);
    return ngeobody;
  }
  // The runtime may give another number of threads than before.
  const auto eachSlab = [&](const auto& body) {
    dealing.EachThread([&](int thread, int team) {
      for (int i = thread; i < nslab; i += team) body(slabs[i]);
    });
  };
  eachSlab([&](Slab& slab) { NumberSlab(slab); });
  if (progress.Aborted()) return 0;  // or some runs may not have their numbers
  for (int i = 0; i < nslab; ++i) {
    slabs[i].before = ngeobody;
    ngeobody += slabs[i].ngeobody;
  }
  if (nslab > 1) {
    eachSlab([&](Slab& slab) {
      ForEachRunOf(slab, [&](int run) {
        if (link_[run] < 0) link_[run] -= slab.before;
      });
    });
    eachSlab([&](Slab& slab) {
      ForEachRunOf(slab, [&](int run) {
        int value = link_[run];
        if (value < 0) return;
        // Other threads put labels in place of links that are read here.
        while (value >= 0) value = std::atomic_ref<int>(link_[value]).load(std::memory_order_relaxed);
        std::atomic_ref<int>(link_[run]).store(value, std::memory_order_relaxed);
      });
    });
  }
  if (progress.Aborted()) return 0;
  eachSlab([&](Slab& slab) { WriteSlab(slab, labels); });
  return ngeobody;
}

template int GeobodyFinder::LabelMarked(Connectivity, int*) noexcept;
template int GeobodyFinder::Label(const real*, const IntervalSet&, Connectivity, int*) noexcept;
template int GeobodyFinder::Label(const real*, const IntervalSet&, Connectivity, real*) noexcept;

void GeobodyBoxes::Clear(int ngeobody, const VORL_GRID& grid) noexcept {
  std::fill_n(size, ngeobody, 0);
  const int beyond[3] = {grid.nx, grid.ny, grid.nz};
  for (int axis = 0; axis < 3; ++axis) {
    std::fill_n(min[axis], ngeobody, beyond[axis]);
    std::fill_n(max[axis], ngeobody, -1);
  }
}

void GeobodyBoxes::AddAll(const VORL_GRID& grid, const int* labels) noexcept {
  for (int iz = 0; iz < grid.nz; ++iz) {
    for (int iy = 0; iy < grid.ny; ++iy, labels += grid.nx) {
      for (int ix = 0; ix < grid.nx;) {
        const int label = labels[ix];
        const int first = ix++;
        while (ix < grid.nx && labels[ix] == label) ++ix;
        if (label > 0) Add(label, ix - first, {first, iy, iz}, {ix - 1, iy, iz});
      }
    }
  }
}

}  // namespace kestrum

using kestrum::Buffer;
using kestrum::Connectivity;
using kestrum::Dealing;
using kestrum::IntervalSet;

namespace {

IntervalSet MakeSet(BOOLEAN complement, int nintervals, const real* lower, const real* upper, BOOLEAN excludeLower,
                    BOOLEAN excludeUpper) noexcept {
  return {nintervals, lower, upper, excludeLower != FALSE, excludeUpper != FALSE, complement != FALSE};
}

// Calls compute(values, out) with the values of the variable, after the tests of what every function here is given.
template <typename T, typename Compute>
int WithVariable(const VORL_IMAGE* image, int varIndex, const IntervalSet& set, T* out, const int* number,
                 const Compute& compute) noexcept {
  if (const int status = kestrum::CheckVariable(*image, varIndex, out, number); status != 0) return status;
  if (set.n > 0 && (set.lower == nullptr || set.upper == nullptr)) return kestrum::kNotAllocated;
  return compute(kestrum::VariableOf(*image, varIndex), out);
}

// The same for the forms with an image, which is made here.
template <typename Compute>
int IntoImage(const VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, const IntervalSet& set, const char* suffix,
              const int* number, const Compute& compute) noexcept {
  return WithVariable(imageIn, varIndex, set, imageOut, number, [&](const real* values, VORL_IMAGE* image) {
    const int status = kestrum::MakeOutputImage(*imageIn, varIndex, 1, *imageIn->grid, suffix, image);
    return status != 0 ? status : compute(values, image->var);
  });
}

int IndicatorImage(const VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, const IntervalSet& set,
                   int* nodeCount, Dealing dealing) noexcept {
  return IntoImage(imageIn, imageOut, varIndex, set, VORL_SUFFIX_FOR_INDICATOR, nodeCount,
                   [&](const real* values, real* out) {
                     *nodeCount = kestrum::WriteIndicator(values, imageIn->grid->nxyz, set, out, dealing);
                     return 0;
                   });
}

template <typename T>
int LabelVariable(const VORL_GRID& grid, const real* values, const IntervalSet& set, Connectivity connectivity,
                  T* labels, int* ngeobody) noexcept {
  kestrum::GeobodyFinder finder;
  if (const int status = finder.Allocate(grid); status != 0) {
    // No node, one or all of them: the indicator is the labels, and no work memory is needed.
    const int count = kestrum::WriteIndicator(values, grid.nxyz, set, labels, Dealing::Serial());
    if (count >= 2 && count != grid.nxyz) return status;
    *ngeobody = std::min(count, 1);
    return 0;
  }
  *ngeobody = finder.Label(values, set, connectivity, labels);
  return 0;
}

int GeobodyImage(const VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, const IntervalSet& set,
                 Connectivity connectivity, int* ngeobody) noexcept {
  return IntoImage(imageIn, imageOut, varIndex, set, VORL_SUFFIX_FOR_GEOBODY, ngeobody,
                   [&](const real* values, real* out) {
                     return LabelVariable(*imageIn->grid, values, set, connectivity, out, ngeobody);
                   });
}

int GeobodyVector(const VORL_IMAGE* imageIn, int* labels, int varIndex, const IntervalSet& set,
                  Connectivity connectivity, int* ngeobody) noexcept {
  return WithVariable(imageIn, varIndex, set, labels, ngeobody, [&](const real* values, int* out) {
    return LabelVariable(*imageIn->grid, values, set, connectivity, out, ngeobody);
  });
}

}  // namespace

int VORLImageIndicator(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement, int nintervals,
                       real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound, BOOLEAN excludeUpperBound,
                       int* nodeCount) noexcept {
  return IndicatorImage(imageIn, imageOut, varIndex,
                        MakeSet(complement, nintervals, lowerBound, upperBound, excludeLowerBound, excludeUpperBound),
                        nodeCount, Dealing::Serial());
}

int VORLOMPImageIndicator(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement, int nintervals,
                          real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound, BOOLEAN excludeUpperBound,
                          int* nodeCount, int nthreads) noexcept {
  return IndicatorImage(imageIn, imageOut, varIndex,
                        MakeSet(complement, nintervals, lowerBound, upperBound, excludeLowerBound, excludeUpperBound),
                        nodeCount, Dealing::Threads(nthreads));
}

int VORLImageIndicatorVector(VORL_IMAGE* imageIn, int* indicator, int varIndex, BOOLEAN complement, int nintervals,
                             real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound, BOOLEAN excludeUpperBound,
                             int* nodeCount) noexcept {
  const IntervalSet set = MakeSet(complement, nintervals, lowerBound, upperBound, excludeLowerBound, excludeUpperBound);
  return WithVariable(imageIn, varIndex, set, indicator, nodeCount, [&](const real* values, int* out) {
    *nodeCount = kestrum::WriteIndicator(values, imageIn->grid->nxyz, set, out, Dealing::Serial());
    return 0;
  });
}

int VORLImageGeobody6(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement, int nintervals,
                      real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound, BOOLEAN excludeUpperBound,
                      int* ngeobody) noexcept {
  return GeobodyImage(imageIn, imageOut, varIndex,
                      MakeSet(complement, nintervals, lowerBound, upperBound, excludeLowerBound, excludeUpperBound),
                      Connectivity::k6, ngeobody);
}

int VORLImageGeobody18(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement, int nintervals,
                       real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound, BOOLEAN excludeUpperBound,
                       int* ngeobody) noexcept {
  return GeobodyImage(imageIn, imageOut, varIndex,
                      MakeSet(complement, nintervals, lowerBound, upperBound, excludeLowerBound, excludeUpperBound),
                      Connectivity::k18, ngeobody);
}

int VORLImageGeobody26(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, BOOLEAN complement, int nintervals,
                       real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound, BOOLEAN excludeUpperBound,
                       int* ngeobody) noexcept {
  return GeobodyImage(imageIn, imageOut, varIndex,
                      MakeSet(complement, nintervals, lowerBound, upperBound, excludeLowerBound, excludeUpperBound),
                      Connectivity::k26, ngeobody);
}

int VORLImageGeobody6Vector(VORL_IMAGE* imageIn, int* indicator, int varIndex, BOOLEAN complement, int nintervals,
                            real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound, BOOLEAN excludeUpperBound,
                            int* ngeobody) noexcept {
  return GeobodyVector(imageIn, indicator, varIndex,
                       MakeSet(complement, nintervals, lowerBound, upperBound, excludeLowerBound, excludeUpperBound),
                       Connectivity::k6, ngeobody);
}

int VORLImageGeobody18Vector(VORL_IMAGE* imageIn, int* indicator, int varIndex, BOOLEAN complement, int nintervals,
                             real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound, BOOLEAN excludeUpperBound,
                             int* ngeobody) noexcept {
  return GeobodyVector(imageIn, indicator, varIndex,
                       MakeSet(complement, nintervals, lowerBound, upperBound, excludeLowerBound, excludeUpperBound),
                       Connectivity::k18, ngeobody);
}

int VORLImageGeobody26Vector(VORL_IMAGE* imageIn, int* indicator, int varIndex, BOOLEAN complement, int nintervals,
                             real* lowerBound, real* upperBound, BOOLEAN excludeLowerBound, BOOLEAN excludeUpperBound,
                             int* ngeobody) noexcept {
  return GeobodyVector(imageIn, indicator, varIndex,
                       MakeSet(complement, nintervals, lowerBound, upperBound, excludeLowerBound, excludeUpperBound),
                       Connectivity::k26, ngeobody);
}

int VORLImageGeobodySize(VORL_IMAGE* image, int* ngeobody, int** geobodySize, int** extentX, int** extentY,
                         int** extentZ) noexcept {
  if (image->nvar != 1) return kestrum::kNotOneVariable;
  int** const out[4] = {extentX, extentY, extentZ, geobodySize};
  if (ngeobody == nullptr || std::find(out, out + 4, nullptr) != out + 4) return kestrum::kNotAllocated;
  if (const int status = kestrum::CheckImage(*image); status != 0) return status;
  const VORL_GRID& grid = *image->grid;

  *ngeobody = 0;
  for (int id = 0; id < grid.nxyz; ++id) *ngeobody = std::max(*ngeobody, kestrum::TruncateToInt(image->var[id]));
  const std::size_t n = static_cast<std::size_t>(*ngeobody);
  Buffer<int> minima;
  if (const int status = minima.Allocate(3 * n); status != 0) return status;
  int* table[4] = {};
  for (int*& vector : table) {
    int status = 0;
    vector = static_cast<int*>(VORLMalloc(n, sizeof(int), &status));
    if (status == 0) continue;
    for (int* allocated : table) VORLFree(allocated);
    return status;
  }

  kestrum::GeobodyBoxes boxes{
      table[3], {minima.data(), minima.data() + n, minima.data() + 2 * n}, {table[0], table[1], table[2]}};
  boxes.Clear(*ngeobody, grid);
  const real* value = image->var;
  for (int iz = 0; iz < grid.nz; ++iz) {
    for (int iy = 0; iy < grid.ny; ++iy) {
      for (int ix = 0; ix < grid.nx; ++ix) {
        const int label = kestrum::TruncateToInt(*value++);
        if (label > 0) boxes.Add(label, 1, {ix, iy, iz}, {ix, iy, iz});
      }
    }
  }
  for (int axis = 0; axis < 3; ++axis) {
    for (int g = 0; g < *ngeobody; ++g) table[axis][g] = boxes.Extent(g + 1, axis);
  }
  for (int k = 0; k < 4; ++k) *out[k] = table[k];
  return 0;
}

int VORLFindLink(int label, int* link) noexcept {
  while (link[label] != label) label = link[label];
  return label;
}
