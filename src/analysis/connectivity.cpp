#include "analysis/connectivity.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <numeric>
#include <utility>

#include "analysis/euler_number.hpp"
#include "analysis/gamma_curve.hpp"
#include "analysis/geobodies.hpp"
#include "analysis/output_image.hpp"
#include "core/buffer.hpp"
#include "core/constants.h"
#include "core/integers.hpp"
#include "core/memory.h"
#include "core/node_coordinates.hpp"
#include "core/parallel.hpp"
#include "core/statuses.hpp"
#include "core/variables.hpp"

namespace kestrum {
namespace {

int GlobalIndicator(const VORL_IMAGE* image, int varIndex, int* nodeCount, int* ngeobody, int** geobodySize,
                    double* gamma, Dealing dealing) noexcept {
  const int checked = CheckVariable(*image, varIndex, nodeCount, ngeobody, geobodySize, gamma);
  if (checked != 0) return checked;
  const real* const values = VariableOf(*image, varIndex);
  const int nxyz = image->grid->nxyz;

  std::atomic<int> count{0};
  std::atomic<int> largest{0};
  dealing.Blocks(nxyz, [&](std::ptrdiff_t begin, std::ptrdiff_t end) {
    int blockCount = 0;
    int blockLargest = 0;
    for (std::ptrdiff_t id = begin; id < end; ++id) {
      const int label = TruncateToInt(values[id]);
      // A missing node deliberately counts.
      blockCount += label != 0;
      blockLargest = std::max(blockLargest, label);
    }
    count += blockCount;
    for (int seen = largest; seen < blockLargest && !largest.compare_exchange_weak(seen, blockLargest);) {
    }
  });
  *nodeCount = count;
  *ngeobody = largest;
  *gamma = VORL_CONNECTIVITY_GAMMA_VALUE_IF_NO_GEOBODY;
  if (*ngeobody == 0) return 0;

  int status = 0;
  auto* const sizes = static_cast<int*>(VORLMalloc(static_cast<std::size_t>(*ngeobody), sizeof(int), &status));
  if (status != 0) return status;
  std::fill_n(sizes, *ngeobody, 0);
  dealing.Blocks(nxyz, [&](std::ptrdiff_t begin, std::ptrdiff_t end) {
    // The nodes of a line in one geobody are added at once.
    for (std::ptrdiff_t id = begin; id < end;) {
      const int label = TruncateToInt(values[id]);
      const std::ptrdiff_t first = id;
      do {
        ++id;
      } while (id < end && TruncateToInt(values[id]) == label);
      if (label <= 0) continue;
      const int length = static_cast<int>(id - first);
      if (dealing.threaded()) {
        std::atomic_ref(sizes[label - 1]) += length;
      } else {
        sizes[label - 1] += length;
      }
    }
  });
  *gamma = SumOfSquares(sizes, *ngeobody) / (static_cast<double>(*nodeCount) * *nodeCount);
  *geobodySize = sizes;
  return 0;
}

int EulerNumber(const VORL_IMAGE* image, int varIndex, int* eulerNumber, Dealing dealing) noexcept {
  if (const int status = CheckVariable(*image, varIndex, eulerNumber); status != 0) return status;
  Buffer<int> sums;
  if (const int status = sums.Allocate(static_cast<std::size_t>(dealing.nscratch()), 0); status != 0) {
    return status;
  }
  dealing.EachThread([&](int thread, int team) {
    sums[static_cast<std::size_t>(thread)] =
        EulerNumberOfRows(*image->grid, VariableOf(*image, varIndex), thread, team);
  });
  *eulerNumber = static_cast<int>(std::accumulate(
      sums.begin(), sums.end(), 0u, [](unsigned sum, int rows) { return sum + static_cast<unsigned>(rows); }));
  return 0;
}

// What the curves have in common.
struct Curve {
  const VORL_IMAGE* image;
  int n;
  real start;
  real step;
  real* thresholds;
  bool verbose;
  Dealing dealing;
  real next = start;  // of the serial way

  template <typename... T>
  int Check(const T*... outputs) const noexcept {
    if (image->nvar != 1) return kNotOneVariable;
    if (n > 0 && AnyNull(thresholds, outputs...)) return kNotAllocated;
    return CheckImage(*image);
  }
  // The two ways deliberately differ in the last bits.
  real ThresholdAt(int i) noexcept { return dealing.threaded() ? i * step + start : std::exchange(next, next + step); }
  // A bound below all values.
  real Lowest() const noexcept {
    real lowest = VORL_INFINITY;
    for (int i = 0; i < image->grid->nxyz; ++i) {
      if (!IsMissing(image->var[i]) && image->var[i] < lowest) lowest = image->var[i];
    }
    return lowest - 1.0;
  }
};

int ComputeGammaCurve(Curve curve, Connectivity connectivity, real* gamma, real* gammaComplement) noexcept {
  if (const int status = curve.Check(gamma, gammaComplement); status != 0) return status;
  return GammaCurve(
      *curve.image->grid, curve.image->var, connectivity, curve.n, curve.Lowest(),
      [&curve](int i) { return curve.ThresholdAt(i); }, curve.thresholds, gamma, gammaComplement, curve.verbose,
      curve.dealing);
}

struct EulerWork {
  GeobodyFinder finder;
  Buffer<int> labels;

  [[nodiscard]] int Allocate(const VORL_GRID& grid) noexcept {
    if (const int status = finder.Allocate(grid); status != 0) return status;
    return labels.Allocate(static_cast<std::size_t>(grid.nxyz));
  }
  int EulerNumber(const VORL_IMAGE& image, const IntervalSet& set) noexcept {
    if (finder.Label(image.var, set, Connectivity::k6, labels.data()) == 0) return 0;
    return EulerNumberOfRows(*image.grid, labels.data(), 0, 1);
  }
};

int ComputeEulerCurve(Curve curve, int* euler, int* eulerComplement) noexcept {
  if (const int status = curve.Check(euler, eulerComplement); status != 0) return status;
  const real lowest = curve.Lowest();
  return ComputeCurve<EulerWork>(*curve.image->grid, curve.n,
                                 PercentPrinter(curve.verbose, "Computing Euler-number curves"), curve.dealing,
                                 [&](EulerWork& work, int i) {
                                   curve.thresholds[i] = curve.ThresholdAt(i);
                                   IntervalSet set{1, &lowest, curve.thresholds + i, false, false, false};
                                   euler[i] = work.EulerNumber(*curve.image, set);
                                   set.complement = true;
                                   eulerComplement[i] = work.EulerNumber(*curve.image, set);
                                 });
}

struct MaxSizeWork {
  GeobodyFinder finder;
  Buffer<int> tables;
  GeobodyBoxes boxes;

  [[nodiscard]] int Allocate(const VORL_GRID& grid) noexcept {
    if (const int status = finder.Allocate(grid); status != 0) return status;
    const std::size_t n = MaxGeobodies(grid);
    if (const int status = tables.Allocate(7 * n); status != 0) return status;
    boxes = GeobodyBoxes::In(tables.data(), static_cast<std::ptrdiff_t>(n));
    return 0;
  }
};

// The largest size and, by axis, the largest extent.
struct MaxSizes {
  int* size;
  int* extent[3];
};

int ComputeMaxSizeCurve(Curve curve, Connectivity connectivity, const MaxSizes& out) noexcept {
  if (const int status = curve.Check(out.size, out.extent[0], out.extent[1], out.extent[2]); status != 0) return status;
  const VORL_GRID& grid = *curve.image->grid;
  const real lowest = curve.Lowest();
  return ComputeCurve<MaxSizeWork>(
      grid, curve.n, PercentPrinter(curve.verbose, "Computing max geobody size curves"), curve.dealing,
      [&](MaxSizeWork& work, int i) {
        curve.thresholds[i] = curve.ThresholdAt(i);
        work.finder.Mark(curve.image->var, IntervalSet{1, &lowest, curve.thresholds + i, false, false, false});
        const LargestBodies largest = FindLargest(work.finder, work.finder.Connect(connectivity), grid, work.boxes);
        out.size[i] = largest.size;
        for (int axis = 0; axis < 3; ++axis) out.extent[axis][i] = largest.extent[axis];
      });
}

}  // namespace
}  // namespace kestrum

using namespace kestrum;

int VORLImageConnectivityGlobalIndicator(VORL_IMAGE* image, int varIndex, int* nodeCount, int* ngeobody,
                                         int** geobodySize, double* gamma) noexcept {
  return GlobalIndicator(image, varIndex, nodeCount, ngeobody, geobodySize, gamma, Dealing::Serial());
}

int VORLOMPImageConnectivityGlobalIndicator(VORL_IMAGE* image, int varIndex, int* nodeCount, int* ngeobody,
                                            int** geobodySize, double* gamma, int nthreads) noexcept {
  return GlobalIndicator(image, varIndex, nodeCount, ngeobody, geobodySize, gamma, Dealing::Threads(nthreads));
}

int VORLImageConnectivity6GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                               real* gamma, real* gammaComplement, BOOLEAN verbose) noexcept {
  return ComputeGammaCurve({image, n, start, step, thresholds, verbose != FALSE, Dealing::Serial()}, Connectivity::k6,
                           gamma, gammaComplement);
}

int VORLImageConnectivity18GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                                real* gamma, real* gammaComplement, BOOLEAN verbose) noexcept {
  return ComputeGammaCurve({image, n, start, step, thresholds, verbose != FALSE, Dealing::Serial()}, Connectivity::k18,
                           gamma, gammaComplement);
}

int VORLImageConnectivity26GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                                real* gamma, real* gammaComplement, BOOLEAN verbose) noexcept {
  return ComputeGammaCurve({image, n, start, step, thresholds, verbose != FALSE, Dealing::Serial()}, Connectivity::k26,
                           gamma, gammaComplement);
}

int VORLOMPImageConnectivity6GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                                  real* gamma, real* gammaComplement, BOOLEAN verbose,
                                                  int nthreads) noexcept {
  return ComputeGammaCurve({image, n, start, step, thresholds, verbose != FALSE, Dealing::Threads(nthreads)},
                           Connectivity::k6, gamma, gammaComplement);
}

int VORLOMPImageConnectivity18GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                                   real* gamma, real* gammaComplement, BOOLEAN verbose,
                                                   int nthreads) noexcept {
  return ComputeGammaCurve({image, n, start, step, thresholds, verbose != FALSE, Dealing::Threads(nthreads)},
                           Connectivity::k18, gamma, gammaComplement);
}

int VORLOMPImageConnectivity26GlobalIndicatorCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                                   real* gamma, real* gammaComplement, BOOLEAN verbose,
                                                   int nthreads) noexcept {
  return ComputeGammaCurve({image, n, start, step, thresholds, verbose != FALSE, Dealing::Threads(nthreads)},
                           Connectivity::k26, gamma, gammaComplement);
}

int VORLImageConnectivityEulerNumber(VORL_IMAGE* image, int varIndex, int* eulerNumber) noexcept {
  return EulerNumber(image, varIndex, eulerNumber, Dealing::Serial());
}

int VORLOMPImageConnectivityEulerNumber(VORL_IMAGE* image, int varIndex, int* eulerNumber, int nthreads) noexcept {
  return EulerNumber(image, varIndex, eulerNumber, Dealing::Threads(nthreads));
}

int VORLImageConnectivity6EulerNumberCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                           int* euler, int* eulerComplement, BOOLEAN verbose) noexcept {
  return ComputeEulerCurve({image, n, start, step, thresholds, verbose != FALSE, Dealing::Serial()}, euler,
                           eulerComplement);
}

int VORLOMPImageConnectivity6EulerNumberCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds,
                                              int* euler, int* eulerComplement, BOOLEAN verbose,
                                              int nthreads) noexcept {
  return ComputeEulerCurve({image, n, start, step, thresholds, verbose != FALSE, Dealing::Threads(nthreads)}, euler,
                           eulerComplement);
}

int VORLImageMaxGeobody6SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds, int* maxSize,
                                  int* maxExtentX, int* maxExtentY, int* maxExtentZ, BOOLEAN verbose) noexcept {
  return ComputeMaxSizeCurve({image, n, start, step, thresholds, verbose != FALSE, Dealing::Serial()}, Connectivity::k6,
                             {maxSize, {maxExtentX, maxExtentY, maxExtentZ}});
}

int VORLImageMaxGeobody18SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds, int* maxSize,
                                   int* maxExtentX, int* maxExtentY, int* maxExtentZ, BOOLEAN verbose) noexcept {
  return ComputeMaxSizeCurve({image, n, start, step, thresholds, verbose != FALSE, Dealing::Serial()},
                             Connectivity::k18, {maxSize, {maxExtentX, maxExtentY, maxExtentZ}});
}

int VORLImageMaxGeobody26SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds, int* maxSize,
                                   int* maxExtentX, int* maxExtentY, int* maxExtentZ, BOOLEAN verbose) noexcept {
  return ComputeMaxSizeCurve({image, n, start, step, thresholds, verbose != FALSE, Dealing::Serial()},
                             Connectivity::k26, {maxSize, {maxExtentX, maxExtentY, maxExtentZ}});
}

int VORLOMPImageMaxGeobody6SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds, int* maxSize,
                                     int* maxExtentX, int* maxExtentY, int* maxExtentZ, BOOLEAN verbose,
                                     int nthreads) noexcept {
  return ComputeMaxSizeCurve({image, n, start, step, thresholds, verbose != FALSE, Dealing::Threads(nthreads)},
                             Connectivity::k6, {maxSize, {maxExtentX, maxExtentY, maxExtentZ}});
}

int VORLOMPImageMaxGeobody18SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds, int* maxSize,
                                      int* maxExtentX, int* maxExtentY, int* maxExtentZ, BOOLEAN verbose,
                                      int nthreads) noexcept {
  return ComputeMaxSizeCurve({image, n, start, step, thresholds, verbose != FALSE, Dealing::Threads(nthreads)},
                             Connectivity::k18, {maxSize, {maxExtentX, maxExtentY, maxExtentZ}});
}

int VORLOMPImageMaxGeobody26SizeCurve(VORL_IMAGE* image, int n, real start, real step, real* thresholds, int* maxSize,
                                      int* maxExtentX, int* maxExtentY, int* maxExtentZ, BOOLEAN verbose,
                                      int nthreads) noexcept {
  return ComputeMaxSizeCurve({image, n, start, step, thresholds, verbose != FALSE, Dealing::Threads(nthreads)},
                             Connectivity::k26, {maxSize, {maxExtentX, maxExtentY, maxExtentZ}});
}
