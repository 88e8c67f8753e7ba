#include "analysis/geobodies.h"

#include <algorithm>
#include <atomic>

#include "analysis/geobodies.hpp"
#include "analysis/geobody_runs.hpp"
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

}  // namespace

int GeobodyFinder::AllocateBits(const VORL_GRID& grid, int longestPacked) noexcept {
  if (const int status = NodeBits::Allocate(grid, longestPacked); status != 0) return status;
  const int rowLength = packed_.nx != 0 ? packed_.nx : nx_;
  runsPerBundle_ = nx_ / rowLength * (rowLength / 2 + rowLength % 2);
  for (int word = 0; word < packed_.nx; ++word) rowStarts_[word] = 0;
  for (int node = 0; node < packed_.nx * kMarkBlock; node += rowLength) {
    rowStarts_[node / kMarkBlock] |= std::uint64_t{1} << (node % kMarkBlock);
  }
  if (const int status = first_.Allocate(nrow()); status != 0) return status;
  return starts_.Allocate(nrow() * static_cast<std::size_t>(wordsPerRow_));
}

int GeobodyFinder::Allocate(const VORL_GRID& grid, int longestPacked) noexcept {
  if (const int status = AllocateBits(grid, longestPacked); status != 0) return status;
  return links_.Allocate(nrow() * static_cast<std::size_t>(runsPerBundle_));
}

void GeobodyFinder::Prepare(Connectivity connectivity, int* link, const Progress& progress) noexcept {
  const Connectivity bundled = packed_.nx != 0 ? Connectivity::k6 : connectivity;
  const int bundlesPerLayer = (ny_ - 1) / RowsY(bundled) + 1;
  runs_ = {this,
           progress,
           bundled,
           connectivity,
           bundlesPerLayer,
           starts_.data(),
           first_.data(),
           link,
           packed_.nx != 0 ? rowStarts_ : nullptr};
}

BundleSlab GeobodyFinder::SlabOf(std::ptrdiff_t nslab, std::ptrdiff_t i) const noexcept {
  const int nlayer = (nz_ - 1) / runs_.RowsZ() + 1;
  const ItemBlock block = BlockOf(nz_ == 1 ? runs_.bundlesPerLayer : nlayer, nslab, i);
  const int begin = static_cast<int>(block.begin);
  const int end = static_cast<int>(block.end);
  if (nz_ == 1) return {begin, end, 0, 1, 0, 0, 0, 0};
  return {0, runs_.bundlesPerLayer, begin, end, 0, 0, 0, 0};
}

// The largest number of slabs. Where rows are packed, all neighbours before a slab must lie in the slab before it.
int GeobodyFinder::MostSlabs() const noexcept {
  if (packed_.nx == 0) return Dealing::kMaxTeam;
  const std::int64_t rows = packed_.nz > 1 ? packed_.ny + 1 : 1;
  const std::int64_t farthest = packed_.nx * rows + 1;
  return static_cast<int>(std::max(nxyz_ / (farthest + nx_), std::int64_t{1}));
}

// That after the last one.
int GeobodyFinder::LastNode(const BundleSlab& slab) const noexcept {
  const int endZ = std::min(slab.endZ * runs_.RowsZ(), nz_);
  const int endY = std::min(slab.endY * runs_.RowsY(), ny_);
  return static_cast<int>(std::min(((endZ - 1) * std::int64_t{ny_} + endY) * nx_, std::int64_t{nxyz_}));
}

BundleSlab GeobodyFinder::JoinAll(Connectivity connectivity, const Progress& progress) noexcept {
  Prepare(connectivity, links_.data(), progress);
  BundleSlab slab = SlabOf(1, 0);
  FindRuns(runs_, slab);
  SetFirstRun(runs_, 0, slab);
  JoinRuns(runs_, slab, false);
  return slab;
}

int GeobodyFinder::Connect(Connectivity connectivity, const Progress& progress) noexcept {
  BundleSlab slab = JoinAll(connectivity, progress);
  if (progress.Aborted()) return 0;  // or some runs may not have their numbers
  NumberRuns(runs_, slab);
  return slab.ngeobody;
}

std::int64_t GeobodyFinder::SumOfSquares(Connectivity connectivity, const Progress& progress) noexcept {
  return SumOfSquaredSizes(runs_, JoinAll(connectivity, progress));
}

template <typename T>
int GeobodyFinder::Label(const real* values, const IntervalSet& set, Connectivity connectivity, T* labels) noexcept {
  // Missing nodes deliberately stay missing here alone.
  if (Mark(values, set) < 2) return WriteIndicator(values, nxyz_, set, labels, Dealing::Serial());
  return LabelMarked(connectivity, labels);
}

template <typename T>
int GeobodyFinder::LabelMarked(Connectivity connectivity, T* labels) noexcept {
  BundleSlab slab = JoinAll(connectivity, Progress(nullptr, nullptr));
  NumberRuns(runs_, slab);
  WriteLabels(runs_, slab, labels);
  return slab.ngeobody;
}

int GeobodyFinder::LabelInPlace(Connectivity connectivity, int* labels, const Dealing& dealing,
                                const Progress& progress) noexcept {
  Prepare(connectivity, labels, progress);
  // A pass each for the runs, their links and the labels; numbers take little.
  const BundledRuns found = runs_.Step(0.0, 0.3);
  const BundledRuns joined = runs_.Step(0.3, 0.7);
  const BundledRuns written = runs_.Step(0.7, 1.0);
  BundleSlab slabs[Dealing::kMaxTeam];
  int nslab = 0;
  dealing.EachThread([&](int thread, int team) {
    const int n = std::min(team, MostSlabs());
    if (thread == 0) nslab = n;
    if (thread >= n) return;
    BundleSlab& slab = slabs[thread];
    slab = SlabOf(n, thread);
    FindRuns(found, slab);
    SetFirstRun(found, LastNode(slab) - slab.nrun, slab);
    JoinRuns(joined, slab, false);
  });
  for (int i = 1; i < nslab; ++i) JoinRuns(joined, slabs[i], true);
  if (progress.Aborted()) return 0;
  // The runtime may give another number of threads than before.
  const auto eachSlab = [&](const auto& body) {
    dealing.EachThread([&](int thread, int team) {
      for (int i = thread; i < nslab; i += team) body(slabs[i]);
    });
  };
  if (nslab > 1) {
    eachSlab([&](BundleSlab& slab) { slab.ngeobody = CountGeobodies(runs_, slab); });
    for (int i = 1; i < nslab; ++i) slabs[i].before = slabs[i - 1].before + slabs[i - 1].ngeobody;
  }
  eachSlab([&](BundleSlab& slab) { NumberRuns(runs_, slab); });
  if (progress.Aborted()) return 0;  // or some runs may not have their numbers
  // Links to slabs before, most of them to the same few geobodies of the first one: threads share those of each slab.
  dealing.EachThread([&](int thread, int team) {
    for (int i = 1; i < nslab; ++i) {
      const ItemBlock block = BlockOf(slabs[i].nrun, team, thread);
      int* const link = labels + slabs[i].firstRun;
      for (std::ptrdiff_t run = block.begin; run < block.end; ++run) {
        int value = link[run];
        if (value < 0) continue;
        // Other threads put labels in place of links that are read here.
        while (value >= 0) value = std::atomic_ref<int>(labels[value]).load(std::memory_order_relaxed);
        std::atomic_ref<int>(link[run]).store(value, std::memory_order_relaxed);
      }
    }
  });
  eachSlab([&](const BundleSlab& slab) { WriteLabels(written, slab, labels); });
  return slabs[nslab - 1].before + slabs[nslab - 1].ngeobody;
}

template int GeobodyFinder::LabelMarked(Connectivity, int*) noexcept;
template int GeobodyFinder::LabelMarked(Connectivity, real*) noexcept;
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

void GeobodyBoxes::AddRows(const VORL_GRID& grid, const int* labels, ItemBlock rows,
                           const Progress& progress) noexcept {
  for (std::ptrdiff_t row = rows.begin; row < rows.end && progress.GoesOn(rows.begin == 0, row, rows.end); ++row) {
    const int iy = static_cast<int>(row % grid.ny);
    const int iz = static_cast<int>(row / grid.ny);
    const int* const label = labels + row * grid.nx;
    for (int ix = 0; ix < grid.nx;) {
      const int first = ix++;
      while (ix < grid.nx && label[ix] == label[first]) ++ix;
      if (label[first] > 0) Add(label[first], ix - first, {first, iy, iz}, {ix - 1, iy, iz});
    }
  }
}

int GeobodyBoxes::SetAll(const VORL_GRID& grid, const int* labels, int ngeobody, const Dealing& dealing,
                         const Progress& progress) noexcept {
  const std::size_t tableSize = 7 * static_cast<std::size_t>(ngeobody);
  const std::size_t most = static_cast<std::size_t>(grid.nxyz) / (sizeof(int) * tableSize) + 1;
  const int nblock = static_cast<int>(std::min(most, static_cast<std::size_t>(dealing.nscratch())));
  Buffer<int> tables;
  if (nblock > 1) {
    if (const int status = tables.Allocate(tableSize * static_cast<std::size_t>(nblock - 1)); status != 0)
      return status;
  }
  const auto boxesOf = [&](int block) noexcept {
    return block == 0 ? *this : In(tables.data() + static_cast<std::size_t>(block - 1) * tableSize, ngeobody);
  };
  dealing.EachThread([&](int thread, int team) noexcept {
    for (int block = thread; block < nblock; block += team) {
      GeobodyBoxes boxes = boxesOf(block);
      boxes.Clear(ngeobody, grid);
      boxes.AddRows(grid, labels, BlockOf(std::ptrdiff_t{grid.ny} * grid.nz, nblock, block), progress);
    }
  });
  dealing.ForPass(ngeobody).Blocks(ngeobody, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
    for (int block = 1; block < nblock; ++block) {
      const GeobodyBoxes boxes = boxesOf(block);
      for (std::ptrdiff_t i = begin; i < end; ++i) {
        size[i] += boxes.size[i];
        for (int axis = 0; axis < 3; ++axis) {
          min[axis][i] = std::min(min[axis][i], boxes.min[axis][i]);
          max[axis][i] = std::max(max[axis][i], boxes.max[axis][i]);
        }
      }
    }
  });
  return progress.After(0);
}

LargestBodies FindLargest(const GeobodyFinder& finder, int ngeobody, const VORL_GRID& grid,
                          GeobodyBoxes& boxes) noexcept {
  boxes.Clear(ngeobody, grid);
  NodeCoordinates row = {0, 0, 0};  // of its first node
  int begin = 0;
  finder.ForEachRun([&](int label, int node, int length) noexcept {
    for (; node - begin >= grid.nx; begin += grid.nx) {
      if (++row.iy == grid.ny) row = {0, 0, row.iz + 1};
    }
    const int ix = node - begin;
    const NodeCoordinates last = ix + length <= grid.nx ? NodeCoordinates{ix + length - 1, row.iy, row.iz}
                                                        : CoordinatesOf(grid, node + length - 1);
    boxes.Add(label, length, {ix, row.iy, row.iz}, last);
  });
  LargestBodies largest;
  for (int label = 1; label <= ngeobody; ++label) {
    largest.size = std::max(largest.size, boxes.size[label - 1]);
    for (int axis = 0; axis < 3; ++axis) {
      largest.extent[axis] = std::max(largest.extent[axis], boxes.Extent(label, axis));
    }
  }
  return largest;
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
  if (const int status = finder.Allocate(grid, kestrum::LongestPacked(connectivity)); status != 0) {
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
