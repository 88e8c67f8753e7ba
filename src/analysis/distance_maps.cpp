#include "analysis/distance_maps.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "analysis/distance_transform.hpp"
#include "analysis/gamma_curve.hpp"
#include "analysis/morphology.hpp"
#include "analysis/output_image.hpp"
#include "analysis/percent_printer.hpp"
#include "core/buffer.hpp"
#include "core/constants.h"
#include "core/memory.h"
#include "core/node_coordinates.hpp"
#include "core/statuses.hpp"
#include "core/variables.hpp"

namespace kestrum {
namespace {

using enum DistanceMetric;

constexpr real kMissing = VORL_MISSING_VALUE;

template <DistanceMetric metric>
constexpr const char* kMapSuffix = metric == kL1 ? VORL_SUFFIX_FOR_DISTANCE_L1 : VORL_SUFFIX_FOR_DISTANCE_L2;

bool IsFeature(real value) noexcept { return value != 0.0 && !IsMissing(value); }

// As in the exact maps. For L1 a missing value at the start of a row deliberately is a feature.
template <DistanceMetric metric>
bool IsFeature(real value, bool atRowStart) noexcept {
  return metric == kL1 && atRowStart ? value != 0.0 : IsFeature(value);
}

// The distance from what is compared, its square for the Euclidean metric.
template <DistanceMetric metric>
real Length(real value) noexcept {
  return metric == kEuclidean ? std::sqrt(value) : value;
}

// The exact maps of the variables with the values valueAt(i), missing where `in` is. valueAt may read `map`.
template <DistanceMetric metric, typename ValueAt>
int ExactMaps(const VORL_GRID& grid, int nvar, const real* in, const ValueAt& valueAt, real* map,
              Dealing dealing) noexcept {
  return ComputeDistances<metric>(
      grid, nvar, [&valueAt](std::ptrdiff_t i, bool atRowStart) { return IsFeature<metric>(valueAt(i), atRowStart); },
      [in](std::ptrdiff_t i, real value) { return IsMissing(in[i]) ? kMissing : value; }, map, dealing);
}

template <DistanceMetric metric>
int ExactMaps(const VORL_GRID& grid, int nvar, const real* in, real* map, Dealing dealing) noexcept {
  return ExactMaps<metric>(
      grid, nvar, in, [in](std::ptrdiff_t i) { return in[i]; }, map, dealing);
}

template <DistanceMetric metric>
int SignedMaps(const VORL_GRID& grid, int nvar, const real* in, real* map, Dealing dealing) noexcept {
  if (const int status = ExactMaps<metric>(grid, nvar, in, map, dealing); status != 0) return status;

  constexpr int kFaceX[] = {-1, 1, 0, 0, 0, 0};
  constexpr int kFaceY[] = {0, 0, -1, 1, 0, 0};
  constexpr int kFaceZ[] = {0, 0, 0, 0, -1, 1};
  const std::ptrdiff_t nvalue = static_cast<std::ptrdiff_t>(nvar) * grid.nxyz;
  Buffer<real> inner;
  if (const int status = inner.Allocate(static_cast<std::size_t>(nvalue)); status != 0) return status;
  real* const eroded = inner.data();
  if (const int status = ErodeValues(grid, nvar, in, eroded, {6, kFaceX, kFaceY, kFaceZ}, 1, dealing); status != 0) {
    return status;
  }
  // The map of the complement takes the place of the eroded values.
  const auto complement = [eroded](std::ptrdiff_t i) {
    return IsMissing(eroded[i]) ? kMissing : (eroded[i] == 0.0 ? 1.0 : 0.0);
  };
  if (const int status = ExactMaps<metric>(grid, nvar, in, complement, eroded, dealing); status != 0) return status;
  dealing.Blocks(nvalue, [=](std::ptrdiff_t begin, std::ptrdiff_t end) {
    for (std::ptrdiff_t i = begin; i < end; ++i) map[i] = IsMissing(in[i]) ? kMissing : map[i] - eroded[i];
  });
  return 0;
}

// Makes the output and fills it by compute(grid, nvar, in, out).
template <typename Compute>
int MakeMaps(const VORL_IMAGE& in, const char* suffix, VORL_IMAGE* out, const Compute& compute) noexcept {
  if (const int status = CheckImage(in); status != 0) return status;
  if (const int status = MakeOutputImage(in, suffix, out); status != 0) return status;
  return compute(*in.grid, in.nvar, in.var, out->var);
}

template <DistanceMetric metric>
int MakeExactMaps(const VORL_IMAGE& in, VORL_IMAGE* out, Dealing dealing) noexcept {
  return MakeMaps(in, kMapSuffix<metric>, out, [dealing](const VORL_GRID& grid, int nvar, const real* from, real* map) {
    return ExactMaps<metric>(grid, nvar, from, map, dealing);
  });
}

template <DistanceMetric metric>
int MakeSignedMaps(const VORL_IMAGE& in, VORL_IMAGE* out, Dealing dealing) noexcept {
  constexpr const char* kSuffix = metric == kL1 ? VORL_SUFFIX_FOR_DISTANCE_L1_SIGN : VORL_SUFFIX_FOR_DISTANCE_L2_SIGN;
  return MakeMaps(in, kSuffix, out, [dealing](const VORL_GRID& grid, int nvar, const real* from, real* map) {
    return SignedMaps<metric>(grid, nvar, from, map, dealing);
  });
}

// The smallest distance from a node to a feature of one variable by trying all, squared for the Euclidean metric.
template <DistanceMetric metric>
real DistanceByTrial(const VORL_GRID& grid, const real* values, int ix, int iy, int iz) noexcept {
  const auto along = [](real steps, real spacing) {
    return metric == kL1 ? std::abs(steps) * spacing : steps * steps * spacing * spacing;
  };
  real least = FarDistance(metric, grid);
  for (int jz = 0; jz < grid.nz; ++jz) {
    const real alongZ = along(jz - iz, grid.sz);
    for (int jy = 0; jy < grid.ny; ++jy) {
      const real alongY = along(jy - iy, grid.sy);
      for (int jx = 0; jx < grid.nx; ++jx, ++values) {
        if (IsFeature(*values)) least = std::min(least, along(jx - ix, grid.sx) + alongY + alongZ);
      }
    }
  }
  return least;
}

template <DistanceMetric metric>
void MapsByTrial(const VORL_GRID& grid, int nvar, const real* values, real* map, bool verbose) noexcept {
  PercentPrinter percent(verbose, metric == kL1 ? "Computing L1 distance map (brute force)"
                                                : "Computing Euclidean distance map (brute force)");
  percent.Start();
  const int nvalue = nvar * grid.nxyz;
  for (int i = 0; i < nvalue; ++i) {
    percent.Report(static_cast<int>(i * 100.0 / nvalue));
    const int node = i % grid.nxyz;
    const auto [ix, iy, iz] = CoordinatesOf(grid, node);
    map[i] = IsMissing(values[i]) ? kMissing
                                  : Length<metric>(DistanceByTrial<metric>(grid, values + (i - node), ix, iy, iz));
  }
  percent.Finish();
}

template <DistanceMetric metric>
int MakeMapsByTrial(const VORL_IMAGE& in, VORL_IMAGE* out, bool verbose) noexcept {
  return MakeMaps(in, kMapSuffix<metric>, out,
                  [verbose](const VORL_GRID& grid, int nvar, const real* values, real* map) {
                    MapsByTrial<metric>(grid, nvar, values, map, verbose);
                    return 0;
                  });
}

// Dilates a set of nodes step by step. Each node enters the queue once, so that the time does not grow with the number
// of steps.
class Dilation {
 public:
  Dilation(const VORL_GRID& grid, const StructuringElement& element) noexcept : grid_(grid), element_(element) {}

  [[nodiscard]] int Allocate() noexcept { return queue_.Allocate(static_cast<std::size_t>(grid_.nxyz)); }

  // Sets nodes of value 0.0 to first, first + increment, and so on: in each step those with a node at one of the
  // offsets that was neither 0.0 nor missing before the step.
  void Spread(real first, real increment, real* values) noexcept {
    int size = 0;
    for (int node = 0; node < grid_.nxyz; ++node) {
      if (IsFeature(values[node])) queue_[static_cast<std::size_t>(size++)] = node;
    }
    real value = first;
    // A step that gives the missing value is the last.
    for (int begin = 0, end = size; begin < end && !IsMissing(value - increment); value += increment) {
      for (int i = begin; i < end; ++i) {
        const int node = queue_[static_cast<std::size_t>(i)];
        const auto [ix, iy, iz] = CoordinatesOf(grid_, node);
        for (int k = 0; k < element_.size; ++k) {
          // The node whose offset k lands on this one.
          const std::int64_t x = std::int64_t{ix} - element_.x[k];
          const std::int64_t y = std::int64_t{iy} - element_.y[k];
          const std::int64_t z = std::int64_t{iz} - element_.z[k];
          if (x < 0 || x >= grid_.nx || y < 0 || y >= grid_.ny || z < 0 || z >= grid_.nz) continue;
          const int reached = static_cast<int>(x + grid_.nx * (y + grid_.ny * z));
          if (values[reached] != 0.0) continue;
          values[reached] = value;
          queue_[static_cast<std::size_t>(size++)] = reached;
        }
      }
      begin = end;
      end = size;
    }
  }

 private:
  const VORL_GRID& grid_;
  const StructuringElement& element_;
  Buffer<int> queue_;
};

int MapsByDilation(const VORL_GRID& grid, int nvar, const real* in, const StructuringElement& element,
                   real* map) noexcept {
  Dilation dilation(grid, element);
  if (const int status = dilation.Allocate(); status != 0) return status;
  for (int v = 0; v < nvar; ++v, in += grid.nxyz, map += grid.nxyz) {
    std::copy(in, in + grid.nxyz, map);
    dilation.Spread(2.0, 1.0, map);
    for (int i = 0; i < grid.nxyz; ++i) {
      if (!IsMissing(map[i])) map[i] -= 1.0;
    }
    dilation.Spread(-1.0, -1.0, map);
    for (int i = 0; i < grid.nxyz; ++i) {
      if (!IsMissing(map[i]) && map[i] < 0.0) map[i] += 1.0;
    }
  }
  return 0;
}

// A vector that becomes the caller's by Give, and is released otherwise.
class GivenVector {
 public:
  GivenVector() = default;
  GivenVector(const GivenVector&) = delete;
  GivenVector& operator=(const GivenVector&) = delete;
  ~GivenVector() { VORLFree(data_); }

  [[nodiscard]] int Allocate(int n) noexcept {
    int status = 0;
    data_ = static_cast<real*>(VORLMalloc(static_cast<std::size_t>(n), sizeof(real), &status));
    return status;
  }
  real* data() noexcept { return data_; }
  void Give(real** to) noexcept {
    *to = data_;
    data_ = nullptr;
  }

 private:
  real* data_ = nullptr;
};

template <DistanceMetric metric>
int DistanceCurve(const VORL_IMAGE& image, real step, int* n, real** thresholds, real** gamma, real** gammaComplement,
                  bool verbose, Connectivity connectivity, Dealing dealing) noexcept {
  if (image.nvar != 1) return kNotOneVariable;
  if (const int status = CheckImage(image); status != 0) return status;
  if (n == nullptr || thresholds == nullptr || gamma == nullptr || gammaComplement == nullptr) return kNotAllocated;
  if (!(step > 0.0)) return kNoElement;
  const VORL_GRID& grid = *image.grid;
  Buffer<real> map;
  if (const int status = map.Allocate(static_cast<std::size_t>(grid.nxyz)); status != 0) return status;
  if (const int status = SignedMaps<metric>(grid, 1, image.var, map.data(), dealing); status != 0) return status;

  const real far = Length<metric>(FarDistance(metric, grid));
  real lowest = far;
  real highest = -far;
  for (const real distance : map) {
    if (IsMissing(distance)) continue;
    lowest = std::min(lowest, distance);
    highest = std::max(highest, distance);
  }
  // Steps from 0 down to the lowest distance, and up to the highest; also those beyond the range of int.
  const real down = std::trunc(-lowest / step);
  const real whole = std::trunc(highest / step);
  const real up = highest > whole * step ? whole + 1.0 : whole;
  const real count = down + up + 2.0;
  if (!(std::abs(down) + std::abs(up) + 2.0 <= std::numeric_limits<int>::max())) return kNoMemory;
  // As an allocation of so many thresholds would fail.
  if (count < 1.0) return count < 0.0 ? kNoMemory : kNoElement;
  const int ncurve = static_cast<int>(count);

  GivenVector vectors[3];
  for (GivenVector& vector : vectors) {
    if (const int status = vector.Allocate(ncurve); status != 0) return status;
  }
  const int status = GammaCurve(
      grid, map.data(), connectivity, ncurve, -(down + 2.0) * step, [=](int i) { return (i - down - 1.0) * step; },
      vectors[0].data(), vectors[1].data(), vectors[2].data(), verbose, dealing);
  if (status != 0) return status;
  *n = ncurve;
  vectors[0].Give(thresholds);
  vectors[1].Give(gamma);
  vectors[2].Give(gammaComplement);
  return 0;
}

}  // namespace
}  // namespace kestrum

using namespace kestrum;

int VORLImageDistanceL1(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut) noexcept {
  return MakeExactMaps<kL1>(*imageIn, imageOut, Dealing::Serial());
}

int VORLOMPImageDistanceL1(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nthreads) noexcept {
  return MakeExactMaps<kL1>(*imageIn, imageOut, Dealing::Threads(nthreads));
}

int VORLImageDistanceL1Sign(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut) noexcept {
  return MakeSignedMaps<kL1>(*imageIn, imageOut, Dealing::Serial());
}

int VORLOMPImageDistanceL1Sign(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nthreads) noexcept {
  return MakeSignedMaps<kL1>(*imageIn, imageOut, Dealing::Threads(nthreads));
}

int VORLImageDistanceL1BruteForce(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, BOOLEAN verbose) noexcept {
  return MakeMapsByTrial<kL1>(*imageIn, imageOut, verbose != FALSE);
}

int VORLImageDistanceEuclidean(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut) noexcept {
  return MakeExactMaps<kEuclidean>(*imageIn, imageOut, Dealing::Serial());
}

int VORLOMPImageDistanceEuclidean(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nthreads) noexcept {
  return MakeExactMaps<kEuclidean>(*imageIn, imageOut, Dealing::Threads(nthreads));
}

int VORLImageDistanceEuclideanSign(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut) noexcept {
  return MakeSignedMaps<kEuclidean>(*imageIn, imageOut, Dealing::Serial());
}

int VORLOMPImageDistanceEuclideanSign(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nthreads) noexcept {
  return MakeSignedMaps<kEuclidean>(*imageIn, imageOut, Dealing::Threads(nthreads));
}

int VORLImageDistanceEuclideanBruteForce(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, BOOLEAN verbose) noexcept {
  return MakeMapsByTrial<kEuclidean>(*imageIn, imageOut, verbose != FALSE);
}

int VORLImageDistanceByDilation(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int nshift, int* shiftX, int* shiftY,
                                int* shiftZ) noexcept {
  const StructuringElement element{nshift, shiftX, shiftY, shiftZ};
  if (!element.IsComplete()) return kNotAllocated;
  return MakeMaps(*imageIn, VORL_SUFFIX_FOR_DISTANCE_DILATING, imageOut,
                  [&element](const VORL_GRID& grid, int nvar, const real* in, real* map) {
                    return MapsByDilation(grid, nvar, in, element, map);
                  });
}

int VORLImageDistanceL1Connectivity6GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n, real** thresholds,
                                                         real** gamma, real** gammaComplement,
                                                         BOOLEAN verbose) noexcept {
  return DistanceCurve<kL1>(*image, step, n, thresholds, gamma, gammaComplement, verbose != FALSE, Connectivity::k6,
                            Dealing::Serial());
}

int VORLImageDistanceL1Connectivity18GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n, real** thresholds,
                                                          real** gamma, real** gammaComplement,
                                                          BOOLEAN verbose) noexcept {
  return DistanceCurve<kL1>(*image, step, n, thresholds, gamma, gammaComplement, verbose != FALSE, Connectivity::k18,
                            Dealing::Serial());
}

int VORLImageDistanceL1Connectivity26GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n, real** thresholds,
                                                          real** gamma, real** gammaComplement,
                                                          BOOLEAN verbose) noexcept {
  return DistanceCurve<kL1>(*image, step, n, thresholds, gamma, gammaComplement, verbose != FALSE, Connectivity::k26,
                            Dealing::Serial());
}

int VORLImageDistanceEuclideanConnectivity6GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n, real** thresholds,
                                                                real** gamma, real** gammaComplement,
                                                                BOOLEAN verbose) noexcept {
  return DistanceCurve<kEuclidean>(*image, step, n, thresholds, gamma, gammaComplement, verbose != FALSE,
                                   Connectivity::k6, Dealing::Serial());
}

int VORLImageDistanceEuclideanConnectivity18GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                 real** thresholds, real** gamma,
                                                                 real** gammaComplement, BOOLEAN verbose) noexcept {
  return DistanceCurve<kEuclidean>(*image, step, n, thresholds, gamma, gammaComplement, verbose != FALSE,
                                   Connectivity::k18, Dealing::Serial());
}

int VORLImageDistanceEuclideanConnectivity26GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                 real** thresholds, real** gamma,
                                                                 real** gammaComplement, BOOLEAN verbose) noexcept {
  return DistanceCurve<kEuclidean>(*image, step, n, thresholds, gamma, gammaComplement, verbose != FALSE,
                                   Connectivity::k26, Dealing::Serial());
}

int VORLOMPImageDistanceL1Connectivity6GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n, real** thresholds,
                                                            real** gamma, real** gammaComplement, BOOLEAN verbose,
                                                            int nthreads) noexcept {
  return DistanceCurve<kL1>(*image, step, n, thresholds, gamma, gammaComplement, verbose != FALSE, Connectivity::k6,
                            Dealing::Threads(nthreads));
}

int VORLOMPImageDistanceL1Connectivity18GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n, real** thresholds,
                                                             real** gamma, real** gammaComplement, BOOLEAN verbose,
                                                             int nthreads) noexcept {
  return DistanceCurve<kL1>(*image, step, n, thresholds, gamma, gammaComplement, verbose != FALSE, Connectivity::k18,
                            Dealing::Threads(nthreads));
}

int VORLOMPImageDistanceL1Connectivity26GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n, real** thresholds,
                                                             real** gamma, real** gammaComplement, BOOLEAN verbose,
                                                             int nthreads) noexcept {
  return DistanceCurve<kL1>(*image, step, n, thresholds, gamma, gammaComplement, verbose != FALSE, Connectivity::k26,
                            Dealing::Threads(nthreads));
}

int VORLOMPImageDistanceEuclideanConnectivity6GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                   real** thresholds, real** gamma,
                                                                   real** gammaComplement, BOOLEAN verbose,
                                                                   int nthreads) noexcept {
  return DistanceCurve<kEuclidean>(*image, step, n, thresholds, gamma, gammaComplement, verbose != FALSE,
                                   Connectivity::k6, Dealing::Threads(nthreads));
}

int VORLOMPImageDistanceEuclideanConnectivity18GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                    real** thresholds, real** gamma,
                                                                    real** gammaComplement, BOOLEAN verbose,
                                                                    int nthreads) noexcept {
  return DistanceCurve<kEuclidean>(*image, step, n, thresholds, gamma, gammaComplement, verbose != FALSE,
                                   Connectivity::k18, Dealing::Threads(nthreads));
}

int VORLOMPImageDistanceEuclideanConnectivity26GlobalIndicatorCurve(VORL_IMAGE* image, real step, int* n,
                                                                    real** thresholds, real** gamma,
                                                                    real** gammaComplement, BOOLEAN verbose,
                                                                    int nthreads) noexcept {
  return DistanceCurve<kEuclidean>(*image, step, n, thresholds, gamma, gammaComplement, verbose != FALSE,
                                   Connectivity::k26, Dealing::Threads(nthreads));
}
