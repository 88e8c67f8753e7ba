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

int GeobodyFinder::Allocate(const VORL_GRID& grid) noexcept {
  int status = NodeBits::Allocate(grid);
  if (status != 0) return status;
  runsPerBundle_ = nx_ / 2 + nx_ % 2;
  status = starts_.Allocate(nrow() * static_cast<std::size_t>(wordsPerRow_));
  if (status == 0) status = link_.Allocate(nrow() * static_cast<std::size_t>(runsPerBundle_));
  return status;
}

// Makes each run of a bundle a geobody of its own.
void GeobodyFinder::FindRuns(int bundleY, int bundleZ) noexcept {
  const int bundle = bundleZ * bundlesPerLayer_ + bundleY;
  std::uint64_t* starts = starts_.data() + std::ptrdiff_t{bundle} * wordsPerRow_;
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
      const int run = bundle * runsPerBundle_ + (x + std::countr_zero(rest)) / 2;
      link_[run] = run;
    }
  }
}

// Joins the geobodies of two runs. The paths to both roots are shortened on the way.
[[gnu::always_inline]] inline void GeobodyFinder::Join(int a, int b) noexcept {
  int* const link = link_.data();
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

template <Connectivity connectivity>
void GeobodyFinder::JoinBundlesOf() noexcept {
  bundleY_ = BundleY(connectivity);
  bundleZ_ = BundleZ(connectivity);
  bundlesPerLayer_ = (ny_ - 1) / bundleY_ + 1;
  for (int z = 0; z * bundleZ_ < nz_; ++z) {
    for (int y = 0; y < bundlesPerLayer_; ++y) {
      FindRuns(y, z);
      if (y > 0) JoinBundles<connectivity, -1, 0>(y, z);
      if (z == 0) continue;
      JoinBundles<connectivity, 0, -1>(y, z);
      if (connectivity == Connectivity::k6) continue;
      if (y > 0) JoinBundles<connectivity, -1, -1>(y, z);
      if (y + 1 < bundlesPerLayer_) JoinBundles<connectivity, 1, -1>(y, z);
    }
  }
}

void GeobodyFinder::JoinAll(Connectivity connectivity) noexcept {
  switch (connectivity) {
    case Connectivity::k6:
      return JoinBundlesOf<Connectivity::k6>();
    case Connectivity::k18:
      return JoinBundlesOf<Connectivity::k18>();
    case Connectivity::k26:
      return JoinBundlesOf<Connectivity::k26>();
  }
}

// Called for the pieces in node order: the first one of a geobody numbers it, wherever its root is.
[[gnu::always_inline]] inline int GeobodyFinder::LabelOf(int run, int* ngeobody) noexcept {
  int* const link = link_.data();
  if (link[run] < 0) return -link[run];
  if (link[link[run]] < 0) return -(link[run] = link[link[run]]);  // so it is for most
  int root = run;
  while (link[root] >= 0 && link[root] != root) root = link[root];
  const int label = link[root] < 0 ? -link[root] : ++*ngeobody;
  while (link[run] >= 0) run = std::exchange(link[run], -label);
  return label;
}

int GeobodyFinder::Connect(Connectivity connectivity) noexcept {
  JoinAll(connectivity);
  int ngeobody = 0;
  ForEachPiece([&](int run, int, int) { LabelOf(run, &ngeobody); });
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
  JoinAll(connectivity);
  int ngeobody = 0;
  T* next = labels;
  T* const end = labels + nxyz_;
  ForEachPiece([&](int run, int node, int length) {
    FillRoughly(next, labels + node, end, T{0});
    next = labels + node + length;
    FillRoughly(labels + node, next, end, static_cast<T>(LabelOf(run, &ngeobody)));
  });
  std::fill(next, end, T{0});
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
