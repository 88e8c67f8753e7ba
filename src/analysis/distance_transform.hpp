#ifndef KESTRUM_ANALYSIS_DISTANCE_TRANSFORM_HPP
#define KESTRUM_ANALYSIS_DISTANCE_TRANSFORM_HPP

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "analysis/distance_lines.hpp"
#include "analysis/line_pass.hpp"
#include "core/buffer.hpp"
#include "core/grid.h"
#include "core/parallel.hpp"
#include "core/types.h"

namespace kestrum {

// A number greater than any distance on the grid: what a node without any feature holds. Squared for the Euclidean
// metric.
inline real FarDistance(DistanceMetric metric, const VORL_GRID& grid) noexcept {
  const real nx = grid.nx;
  const real ny = grid.ny;
  const real nz = grid.nz;
  if (metric == DistanceMetric::kL1) return nx * grid.sx + ny * grid.sy + nz * grid.sz;
  return nx * nx * grid.sx * grid.sx + ny * ny * grid.sy * grid.sy + nz * nz * grid.sz * grid.sz;
}

// Work memory of the threads for passes along lines.
class LineScratch {
 public:
  // For lines of up to two lengths.
  [[nodiscard]] int Allocate(int n1, int n2, int nscratch) noexcept {
    const std::size_t size = std::max(SizeOf(n1), SizeOf(n2));
    stride_ = (size + 7) / 8 * 8;
    const std::size_t total = stride_ * static_cast<std::size_t>(nscratch);
    if (const int status = cost_.Allocate(total, 0.0); status != 0) return status;
    if (const int status = distance_.Allocate(total); status != 0) return status;
    return link_.Allocate(total);
  }

  // Long lines are done one at a time, which keeps the memory small.
  static int Lanes(int n) noexcept { return n > kLongLine ? 1 : kLineLanes; }

  double* cost(int thread) noexcept { return cost_.data() + stride_ * static_cast<std::size_t>(thread); }
  double* distance(int thread) noexcept { return distance_.data() + stride_ * static_cast<std::size_t>(thread); }
  long long* link(int thread) noexcept { return link_.data() + stride_ * static_cast<std::size_t>(thread); }

 private:
  static constexpr int kLongLine = 1 << 16;
  static std::size_t SizeOf(int n) noexcept { return static_cast<std::size_t>(n) * static_cast<std::size_t>(Lanes(n)); }

  std::size_t stride_ = 0;  // from thread to thread; keeps the alignment
  Buffer<double> cost_;
  Buffer<double> distance_;
  Buffer<long long> link_;
};

// Replaces the values of each line by their lower envelope (LineBlock), changed by finishRow(index, row, length) first:
// `row` holds the values from `index` on.
template <DistanceMetric metric, typename FinishRow>
void TransformLines(const LinePass& pass, LineScratch& scratch, const Dealing& dealing, const FinishRow& finishRow,
                    real* values) noexcept {
  const std::ptrdiff_t lanes = LineScratch::Lanes(pass.n);
  const LineKernel kernel = lanes == 1 ? EnvelopeOfOneLine : LineKernelOf(BestSimdLevel());
  DealLines<kLineLanes>(pass, lanes, dealing, [&](int thread, std::ptrdiff_t, std::ptrdiff_t, const auto& forEachRun) {
    double* const cost = scratch.cost(thread);
    const LineBlock block{pass.n, pass.weight, cost, scratch.distance(thread), scratch.link(thread)};
    forEachRun([&](std::ptrdiff_t index, std::ptrdiff_t place, std::ptrdiff_t length) {
      double* __restrict const to = cost + place;
      for (std::ptrdiff_t k = 0; k < length; ++k) to[k] = values[index + k];
    });
    kernel(metric, block);
    forEachRun([&](std::ptrdiff_t index, std::ptrdiff_t place, std::ptrdiff_t length) {
      double* __restrict const from = block.distance + place;
      finishRow(index, from, length);
      for (std::ptrdiff_t k = 0; k < length; ++k) values[index + k] = from[k];
    });
  });
}

constexpr real kNoFeature = VORL_INFINITY;
// Rows whose steps are counted side by side, since each count waits for the one before.
constexpr int kRowsAtOnce = 4;

// Counts along rows that follow each other the steps to the nearest feature; features are marked by 0.0, other nodes by
// kNoFeature. More than nx if there is none.
template <int kRows>
void CountSteps(int nx, real* steps) noexcept {
  real count[kRows];
  std::fill(count, count + kRows, static_cast<real>(nx));
  const auto go = [&](std::ptrdiff_t i) {
    for (int r = 0; r < kRows; ++r, i += nx) steps[i] = count[r] = std::min(count[r] + 1.0, steps[i]);
  };
  for (int i = 0; i < nx; ++i) go(i);
  for (int i = nx - 1; i >= 0; --i) go(i);
}

// The distance from each node of `nvar` variables to the nearest feature of the variable, in time linear in the nodes
// (the method is cited in distance_lines.hpp). Threads do not change the result.
//   isFeature(index, atRowStart)  whether a value is a feature; atRowStart: its node has ix = 0. Asked once
//                                 for each index, before anything is written at it.
//   finish(index, value)          the result from the distance; may change nothing
//   distance                      out; nvar * grid.nxyz values
// The grid must be one that CheckImage accepts. Returns 0 or the status of a failing allocation, -3 with fewer than one
// thread.
template <DistanceMetric metric, typename IsFeature, typename Finish>
[[nodiscard]] int ComputeDistances(const VORL_GRID& grid, int nvar, const IsFeature& isFeature, const Finish& finish,
                                   real* distance, const Dealing& dealing) noexcept {
  constexpr bool kSquared = metric == DistanceMetric::kEuclidean;
  const auto& [nx, ny, nz, sx, sy, sz, ox, oy, oz, nxy, nxyz] = grid;
  const std::ptrdiff_t nvalue = static_cast<std::ptrdiff_t>(nvar) * nxyz;
  LineScratch scratch;
  if (const int status = scratch.Allocate(ny, nz, dealing.nscratch()); status != 0) return status;

  const real far = FarDistance(metric, grid);
  dealing.Blocks(nvalue / nx, [&, nx = nx, sx = sx](std::ptrdiff_t begin, std::ptrdiff_t end) {
    for (std::ptrdiff_t row = begin, rows = 0; row < end; row += rows) {
      rows = end - row >= kRowsAtOnce ? kRowsAtOnce : 1;
      const std::ptrdiff_t start = row * nx;
      real* const steps = distance + start;
      for (std::ptrdiff_t first = 0; first < rows * nx; first += nx) {
        steps[first] = isFeature(start + first, true) ? 0.0 : kNoFeature;
#pragma omp simd
        for (std::ptrdiff_t i = first + 1; i < first + nx; ++i) {
          steps[i] = isFeature(start + i, false) ? 0.0 : kNoFeature;
        }
      }
      rows == 1 ? CountSteps<1>(nx, steps) : CountSteps<kRowsAtOnce>(nx, steps);
#pragma omp simd
      for (std::ptrdiff_t i = 0; i < rows * nx; ++i) {
        const real g = steps[i];
        steps[i] = g > nx ? far : kSquared ? g * g * sx * sx : sx * g;
      }
    }
  });
  if (ny > 1) {
    const LinePass alongY{ny, nx, nvalue / ny, nx, nxy, kSquared ? sy * sy : sy};
    TransformLines<metric>(
        alongY, scratch, dealing, [](std::ptrdiff_t, real*, std::ptrdiff_t) {}, distance);
  }
  const auto finishRow = [&finish](std::ptrdiff_t index, real* row, std::ptrdiff_t length) {
    if constexpr (kSquared) {
      for (std::ptrdiff_t k = 0; k < length; ++k) row[k] = std::sqrt(row[k]);
    }
    for (std::ptrdiff_t k = 0; k < length; ++k) row[k] = finish(index + k, row[k]);
  };
  if (nz > 1) {
    const LinePass alongZ{nz, nxy, nvalue / nz, nxy, nxyz, kSquared ? sz * sz : sz};
    TransformLines<metric>(alongZ, scratch, dealing, finishRow, distance);
  } else {
    dealing.Blocks(nvalue,
                   [&](std::ptrdiff_t begin, std::ptrdiff_t end) { finishRow(begin, distance + begin, end - begin); });
  }
  return 0;
}

}  // namespace kestrum

#endif
