#include "analysis/moving_average.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "analysis/moving_average.hpp"
#include "analysis/moving_average_sums.hpp"
#include "analysis/output_image.hpp"
#include "analysis/percent_printer.hpp"
#include "core/buffer.hpp"
#include "core/constants.h"
#include "core/node_coordinates.hpp"
#include "core/statuses.hpp"
#include "core/variables.hpp"

namespace kestrum {
namespace {

// An axis of the output: the nodes at which the kernel lies in the grid.
struct Window {
  int first;
  int count;

  // A kernel without entries fits everywhere.
  Window(int length, int n) noexcept
      : first(length < 1 ? 0 : (length - 1) / 2), count(length < 1 ? n : n - length + 1) {}
};

bool AnyMissing(const double* values, std::ptrdiff_t n) noexcept { return std::any_of(values, values + n, IsMissing); }

class BoxSum {
 public:
  BoxSum(int nx, int ny, int nz, double minWeightProportion, const Dealing& dealing) noexcept
      : nx_(nx),
        nxy_(std::ptrdiff_t{nx} * ny),
        nxyz_(nxy_ * nz),
        minWeightProportion_(minWeightProportion),
        dealing_(dealing),
        kernels_(SumKernelsOf(BestSimdLevel())) {}

  // Lists the entries of a box that is not longer than the grid.
  [[nodiscard]] int MakeTerms(const AxisKernel& x, const AxisKernel& y, const AxisKernel& z) noexcept {
    if (x.length < 1 || y.length < 1 || z.length < 1) return 0;
    const std::size_t size = static_cast<std::size_t>(x.length) * y.length * z.length;
    if (const int status = offsets_.Allocate(size); status != 0) return status;
    if (const int status = weights_.Allocate(size); status != 0) return status;
    std::size_t n = 0;
    for (int k = 0; k < z.length; ++k) {
      for (int j = 0; j < y.length; ++j) {
        for (int i = 0; i < x.length; ++i, ++n) {
          offsets_[n] = i + j * std::ptrdiff_t{nx_} + k * nxy_;
          weights_[n] = x.weight[i] * y.weight[j] * z.weight[k];
          totalWeight_ += weights_[n];
        }
      }
    }
    const bool equal = std::all_of(weights_.begin(), weights_.end(), [this](double w) { return w == weights_[0]; });
    box_ = {x.length, y.length, z.length, nx_, nxy_, weights_.data(), equal};
    list_ = {offsets_.data(), weights_.data(), static_cast<std::ptrdiff_t>(size)};
    return 0;
  }

  [[nodiscard]] int Run(const Window& x, const Window& y, const Window& z, const double* values,
                        double* output) noexcept {
    if (const int status = CountMissing(values); status != 0) return status;
    const std::ptrdiff_t nrow = std::ptrdiff_t{y.count} * z.count;
    dealing_.Blocks(nrow, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t row = begin; row < end;) {
        const int j = static_cast<int>(row % y.count);
        const std::ptrdiff_t corner = j * std::ptrdiff_t{nx_} + row / y.count * nxy_;
        const std::ptrdiff_t center = corner + x.first + y.first * std::ptrdiff_t{nx_} + z.first * nxy_;
        const int rows = static_cast<int>(std::min({std::ptrdiff_t{kBoxRows}, std::ptrdiff_t{y.count - j}, end - row}));
        for (int i = 0, lanes = 0; i < x.count; i += lanes) {
          lanes = std::min(kSumLanes, x.count - i);
          SumBlock(values, corner + i, rows, lanes, output + center + i);
        }
        row += rows;
      }
    });
    return 0;
  }

 private:
  std::ptrdiff_t CountStride() const noexcept { return std::ptrdiff_t{nx_} + 1; }

  // Counts the missing values of each row up to each node, if the variable has any.
  [[nodiscard]] int CountMissing(const double* values) noexcept {
    hasMissing_ = AnyMissing(values, nxyz_);
    if (!hasMissing_) return 0;
    const std::ptrdiff_t nrow = nxyz_ / nx_;
    if (!counts_) {
      const int status = counts_.Allocate(static_cast<std::size_t>(nxyz_ + nrow));
      if (status != 0) return status;
    }
    dealing_.Blocks(nrow, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t row = begin; row < end; ++row) {
        int* const count = counts_.data() + row * CountStride();
        count[0] = 0;
        for (int i = 0; i < nx_; ++i) count[i + 1] = count[i] + (IsMissing(values[row * nx_ + i]) ? 1 : 0);
      }
    });
    return 0;
  }

  // Whether a value is missing in the boxes of `rows` rows of `lanes` nodes, of which the first starts at `corner`.
  bool MissingInBoxes(std::ptrdiff_t corner, int rows, int lanes) const noexcept {
    if (!hasMissing_ || list_.size == 0) return false;
    const int* const first = counts_.data() + corner + corner / nx_;
    const int length = lanes - 1 + box_.lengthX;
    for (int k = 0; k < box_.lengthZ; ++k) {
      for (int j = 0; j < rows - 1 + box_.lengthY; ++j) {
        const int* const count = first + (j + k * (nxy_ / nx_)) * CountStride();
        if (count[length] != count[0]) return true;
      }
    }
    return false;
  }

  // The kernels read all lanes. Those past the end of the row are harmless, but must be in the input.
  bool Holds(std::ptrdiff_t corner, int rows) const noexcept {
    const std::ptrdiff_t last = list_.size == 0 ? 0 : list_.offset[list_.size - 1];
    return corner + (rows - 1) * std::ptrdiff_t{nx_} + last + kSumLanes <= nxyz_;
  }

  void SumBlock(const double* values, std::ptrdiff_t corner, int rows, int lanes, double* out) const noexcept {
    const bool complete = !MissingInBoxes(corner, rows, lanes);
    if (complete && box_.lengthY >= kBoxRows && Holds(corner, kBoxRows)) {
      if (rows == kBoxRows && lanes == kSumLanes) {
        kernels_.sumBoxRows(values + corner, box_, out, nx_);
        return;
      }
      double sums[kBoxRows * kSumLanes];
      kernels_.sumBoxRows(values + corner, box_, sums, kSumLanes);
      for (int j = 0; j < rows; ++j) std::copy_n(sums + j * kSumLanes, lanes, out + j * std::ptrdiff_t{nx_});
      return;
    }
    for (int j = 0; j < rows; ++j, corner += nx_, out += nx_) {
      if (!Holds(corner, 1)) {
        for (int i = 0; i < lanes; ++i) out[i] = SumOne(values + corner + i);
      } else if (complete) {
        double sums[kSumLanes];
        kernels_.sumList(values + corner, list_, lanes == kSumLanes ? out : sums);
        if (lanes < kSumLanes) std::copy_n(sums, lanes, out);
      } else {
        InformedSums sums;
        kernels_.sumInformed(values + corner, list_, &sums);
        for (int i = 0; i < lanes; ++i) out[i] = Rescale(sums.sum[i], sums.weight[i], sums.missing[i]);
      }
    }
  }

  double SumOne(const double* at) const noexcept {
    double sum = 0.0;
    double weight = 0.0;
    std::ptrdiff_t missing = 0;
    for (std::ptrdiff_t k = 0; k < list_.size; ++k) {
      const double value = at[list_.offset[k]];
      if (IsMissing(value)) {
        ++missing;
      } else {
        weight += list_.weight[k];
        sum += value * list_.weight[k];
      }
    }
    return Rescale(sum, weight, missing);
  }

  double Rescale(double sum, double weight, std::ptrdiff_t missing) const noexcept {
    if (missing == 0) return sum;
    if (missing == list_.size || !(weight >= minWeightProportion_ * totalWeight_)) return VORL_MISSING_VALUE;
    return sum * totalWeight_ / weight;
  }

  const int nx_;
  const std::ptrdiff_t nxy_;
  const std::ptrdiff_t nxyz_;
  const double minWeightProportion_;
  const Dealing& dealing_;
  const SumKernels& kernels_;
  Buffer<std::ptrdiff_t> offsets_;
  Buffer<double> weights_;
  double totalWeight_ = 0.0;
  BoxTerms box_ = {};
  TermList list_ = {};
  bool hasMissing_ = false;
  Buffer<int> counts_;
};

// The kernel of the box average along one axis.
struct BoxAxis {
  int length = 1;
  Buffer<double> weights;

  AxisKernel Kernel() const noexcept { return {length, weights.data()}; }

  // tooLarge: status if the kernel is longer than the n nodes of the axis.
  [[nodiscard]] int Make(double boxSize, double cellSize, int n, int tooLarge, char axis, bool verbose) noexcept {
    const double r = boxSize / cellSize;
    const double h = (r - 1.0) * 0.5;
    // Half lengths outside these bounds need not fit an int.
    const bool noCell = h <= -0.5;
    if (n < 1 || (!noCell && !(h < n))) return tooLarge;
    const int i = noCell ? 0 : static_cast<int>(h);
    const double f = h - i;
    const int j = f > 0.5 ? i + 1 : i;
    double inner = 1.0;
    double outer = 1.0;
    if (!noCell && std::abs(h - j) < VORL_EPSILON_SOFT) {
      if (2 * std::int64_t{j} + 1 > n) return tooLarge;
      length = 2 * j + 1;
      inner = outer = 1.0 / length;
    } else if (h < 0.0) {
      if (verbose) std::printf("Warning: box size in %c direction less than image grid node size!\n", axis);
    } else {
      if (2 * std::int64_t{i} + 3 > n) return tooLarge;
      length = 2 * i + 3;
      inner = 1.0 / r;
      outer = f * (1.0 / r);
    }
    if (const int status = weights.Allocate(static_cast<std::size_t>(length), inner); status != 0) return status;
    weights[0] = outer;
    weights[weights.size() - 1] = outer;
    return 0;
  }
};

int MovingBoxAverage(const double* boxSizes, const VORL_IMAGE& in, VORL_IMAGE* out, bool proportion, double value,
                     bool verbose, const Dealing& dealing) noexcept {
  if (in.grid == nullptr) return kNotAllocated;
  const VORL_GRID& grid = *in.grid;
  BoxAxis x, y, z;
  if (const int status = x.Make(boxSizes[0], grid.sx, grid.nx, kBoxSizeX, 'x', verbose); status != 0) return status;
  if (const int status = y.Make(boxSizes[1], grid.sy, grid.ny, kBoxSizeY, 'y', verbose); status != 0) return status;
  if (const int status = z.Make(boxSizes[2], grid.sz, grid.nz, kBoxSizeZ, 'z', verbose); status != 0) return status;
  if (const int status = CheckImage(in); status != 0) return status;
  if (const int status = MakeOutputImage(in, VORL_SUFFIX_FOR_MOVING_BOX_AVERAGE, out); status != 0) return status;
  const double* values = in.var;
  Buffer<double> indicator;
  if (proportion) {
    if (const int status = indicator.Allocate(static_cast<std::size_t>(out->nxyzv)); status != 0) return status;
    dealing.Blocks(out->nxyzv, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t i = begin; i < end; ++i) indicator.data()[i] = in.var[i] == value ? 1.0 : 0.0;
    });
    values = indicator.data();
  }
  return MovingBoxSum(grid.nx, grid.ny, grid.nz, in.nvar, x.Kernel(), y.Kernel(), z.Kernel(), values, out->var,
                      VORL_MIN_WEIGHT_PROPORTION_MOVING_BOX_SUM, dealing);
}

// An entry of a search neighbourhood that can land in the grid.
struct Neighbor {
  int x;
  int y;
  int z;
  double weight;
};

class NeighborhoodAverage {
 public:
  NeighborhoodAverage(const VORL_GRID& grid, const Dealing& dealing) noexcept
      : grid_(grid), dealing_(dealing), kernels_(SumKernelsOf(BestSimdLevel())) {}

  [[nodiscard]] int Allocate(const VORL_SEARCHNEIGHBORHOOD& neighborhood) noexcept {
    const std::size_t size = static_cast<std::size_t>(std::max(neighborhood.size, 1));
    if (const int status = neighbors_.Allocate(size); status != 0) return status;
    for (int k = 0; k < neighborhood.size; ++k) {
      const Neighbor neighbor{neighborhood.ix[k], neighborhood.iy[k], neighborhood.iz[k], neighborhood.weight[k]};
      if (!StaysOnAxis(neighbor.x, grid_.nx) || !StaysOnAxis(neighbor.y, grid_.ny) ||
          !StaysOnAxis(neighbor.z, grid_.nz)) {
        continue;
      }
      before_ = std::max(before_, -neighbor.x);
      after_ = std::max(after_, neighbor.x);
      neighbors_[static_cast<std::size_t>(nneighbor_++)] = neighbor;
    }
    const std::size_t threads = static_cast<std::size_t>(dealing_.nscratch());
    if (const int status = offsets_.Allocate(threads * size); status != 0) return status;
    if (const int status = weights_.Allocate(threads * size); status != 0) return status;
    return padded_.Allocate(static_cast<std::size_t>(Rows() * Stride() + kSumLanes), VORL_MISSING_VALUE);
  }

  // valueOf(value): what is averaged in place of an informed value.
  template <typename ValueOf, typename Report>
  void Run(const double* values, const ValueOf& valueOf, const Report& report, double* out) noexcept {
    dealing_.Blocks(Rows(), [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t row = begin; row < end; ++row) {
        double* const to = padded_.data() + row * Stride() + before_;
        for (int i = 0; i < grid_.nx; ++i) {
          const double value = values[row * grid_.nx + i];
          to[i] = IsMissing(value) ? VORL_MISSING_VALUE : valueOf(value);
        }
      }
    });
    const bool hasMissing = AnyMissing(values, grid_.nxyz);
    dealing_.EachThread([&](int thread, int team) noexcept {
      for (std::ptrdiff_t row = thread; row < Rows(); row += team) {
        if (thread == 0) report((row + 1) * grid_.nx);
        AverageRow(values, row, thread, hasMissing, out);
      }
    });
    report(grid_.nxyz);
  }

 private:
  std::ptrdiff_t Rows() const noexcept { return std::ptrdiff_t{grid_.ny} * grid_.nz; }
  // Rows are padded with missing values, so that every neighbour of every node of a row can be read.
  std::ptrdiff_t Stride() const noexcept { return std::ptrdiff_t{before_} + grid_.nx + after_; }

  void AverageRow(const double* values, std::ptrdiff_t row, int thread, bool hasMissing, double* out) noexcept {
    const std::ptrdiff_t scratch = thread * static_cast<std::ptrdiff_t>(neighbors_.size());
    std::ptrdiff_t* const offset = offsets_.data() + scratch;
    double* const weight = weights_.data() + scratch;
    double totalWeight = 0.0;
    std::ptrdiff_t n = 0;
    const int y = static_cast<int>(row % grid_.ny);
    const int z = static_cast<int>(row / grid_.ny);
    for (std::ptrdiff_t k = 0; k < nneighbor_; ++k) {
      const Neighbor& neighbor = neighbors_.data()[k];
      const int neighborY = Moved(y, neighbor.y);
      const int neighborZ = Moved(z, neighbor.z);
      if (!HasRow(grid_, neighborY, neighborZ)) continue;
      offset[n] = neighbor.x + (neighbor.y + neighbor.z * std::ptrdiff_t{grid_.ny}) * Stride();
      weight[n++] = neighbor.weight;
      totalWeight += neighbor.weight;
    }
    const TermList terms{offset, weight, n};
    for (int i = 0, lanes = 0; i < grid_.nx; i += lanes) {
      InformedSums sums;
      const double* const at = padded_.data() + row * Stride() + before_ + i;
      lanes = std::min(kSumLanes, grid_.nx - i);
      if (hasMissing || i < before_ || i + lanes > grid_.nx - after_) {
        kernels_.sumInformed(at, terms, &sums);
      } else {
        kernels_.sumList(at, terms, sums.sum);
        std::fill_n(sums.weight, lanes, totalWeight);
      }
      const std::ptrdiff_t first = row * grid_.nx + i;
      for (int lane = 0; lane < lanes; ++lane) {
        // Without neighbours this is 0/0, deliberately.
        out[first + lane] = IsMissing(values[first + lane]) ? VORL_MISSING_VALUE : sums.sum[lane] / sums.weight[lane];
      }
    }
  }

  const VORL_GRID& grid_;
  const Dealing& dealing_;
  const SumKernels& kernels_;
  Buffer<Neighbor> neighbors_;
  std::ptrdiff_t nneighbor_ = 0;
  int before_ = 0;
  int after_ = 0;
  Buffer<double> padded_;
  // Of each thread, the neighbours of a row that lie in the grid along y and z.
  Buffer<std::ptrdiff_t> offsets_;
  Buffer<double> weights_;
};

int MovingNeighborhoodAverage(const VORL_SEARCHNEIGHBORHOOD& neighborhood, const VORL_IMAGE& in, VORL_IMAGE* out,
                              bool proportion, double value, bool verbose, const Dealing& dealing) noexcept {
  if (const int status = CheckImage(in); status != 0) return status;
  if (neighborhood.size > 0 && (neighborhood.ix == nullptr || neighborhood.iy == nullptr ||
                                neighborhood.iz == nullptr || neighborhood.weight == nullptr)) {
    return kNotAllocated;
  }
  if (const int status = MakeOutputImage(in, VORL_SUFFIX_FOR_MOVING_SN_AVERAGE, out); status != 0) return status;
  NeighborhoodAverage average(*in.grid, dealing);
  if (const int status = average.Allocate(neighborhood); status != 0) return status;
  PercentPrinter progress(verbose, "Computing moving average");
  progress.Start();
  const double percentPerValue = 100.0 / out->nxyzv;
  std::int64_t reported = 0;
  for (int v = 0; v < in.nvar; ++v) {
    const std::ptrdiff_t first = std::ptrdiff_t{v} * in.grid->nxyz;
    const auto report = [&](std::int64_t end) noexcept {
      progress.Report(reported, first + end, [percentPerValue](std::int64_t visit) {
        return static_cast<int>(static_cast<double>(visit) * percentPerValue);
      });
      reported = first + end;
    };
    const auto valueOf = [proportion, value](double x) noexcept { return !proportion ? x : x == value ? 1.0 : 0.0; };
    average.Run(in.var + first, valueOf, report, out->var + first);
  }
  progress.Finish();
  return 0;
}

}  // namespace

int MovingBoxSum(int nx, int ny, int nz, int nvar, const AxisKernel& x, const AxisKernel& y, const AxisKernel& z,
                 const double* input, double* output, double minWeightProportion, const Dealing& dealing) noexcept {
  if (nx < 1 || ny < 1 || nz < 1 || nvar < 1) return 0;
  if (input == nullptr || output == nullptr || (x.length > 0 && x.weight == nullptr) ||
      (y.length > 0 && y.weight == nullptr) || (z.length > 0 && z.weight == nullptr)) {
    return kNotAllocated;
  }
  const std::ptrdiff_t nxyz = std::ptrdiff_t{nx} * ny * nz;
  dealing.Blocks(nvar * nxyz, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
    std::fill(output + begin, output + end, VORL_MISSING_VALUE);
  });
  const Window windowX(x.length, nx);
  const Window windowY(y.length, ny);
  const Window windowZ(z.length, nz);
  if (windowX.count < 1 || windowY.count < 1 || windowZ.count < 1) return 0;
  BoxSum boxSum(nx, ny, nz, minWeightProportion, dealing);
  if (const int status = boxSum.MakeTerms(x, y, z); status != 0) return status;
  for (int v = 0; v < nvar; ++v) {
    const int status = boxSum.Run(windowX, windowY, windowZ, input + v * nxyz, output + v * nxyz);
    if (status != 0) return status;
  }
  return 0;
}

}  // namespace kestrum

using namespace kestrum;

int VORLMovingBoxSum(int nx, int ny, int nz, int nvar, int kernelLengthX, int kernelLengthY, int kernelLengthZ,
                     double* kernelX, double* kernelY, double* kernelZ, double* input, double* output,
                     double minWeightProportion) noexcept {
  return MovingBoxSum(nx, ny, nz, nvar, {kernelLengthX, kernelX}, {kernelLengthY, kernelY}, {kernelLengthZ, kernelZ},
                      input, output, minWeightProportion, Dealing::Serial());
}

int VORLOMPMovingBoxSum(int nx, int ny, int nz, int nvar, int kernelLengthX, int kernelLengthY, int kernelLengthZ,
                        double* kernelX, double* kernelY, double* kernelZ, double* input, double* output,
                        double minWeightProportion, int nthreads) noexcept {
  return MovingBoxSum(nx, ny, nz, nvar, {kernelLengthX, kernelX}, {kernelLengthY, kernelY}, {kernelLengthZ, kernelZ},
                      input, output, minWeightProportion, Dealing::Threads(nthreads));
}

int VORLMovingBoxAverageImage(real boxSizeX, real boxSizeY, real boxSizeZ, VORL_IMAGE* imageIn, VORL_IMAGE* imageOut,
                              BOOLEAN proportionOfValue, real value, BOOLEAN verbose) noexcept {
  const double boxSizes[3] = {boxSizeX, boxSizeY, boxSizeZ};
  return MovingBoxAverage(boxSizes, *imageIn, imageOut, proportionOfValue != FALSE, value, verbose != FALSE,
                          Dealing::Serial());
}

int VORLOMPMovingBoxAverageImage(real boxSizeX, real boxSizeY, real boxSizeZ, VORL_IMAGE* imageIn, VORL_IMAGE* imageOut,
                                 BOOLEAN proportionOfValue, real value, BOOLEAN verbose, int nthreads) noexcept {
  const double boxSizes[3] = {boxSizeX, boxSizeY, boxSizeZ};
  return MovingBoxAverage(boxSizes, *imageIn, imageOut, proportionOfValue != FALSE, value, verbose != FALSE,
                          Dealing::Threads(nthreads));
}

int VORLMovingSearchNeighborhoodAverageImage(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, VORL_IMAGE* imageIn,
                                             VORL_IMAGE* imageOut, BOOLEAN proportionOfValue, real value,
                                             BOOLEAN verbose) noexcept {
  return MovingNeighborhoodAverage(*searchNeighborhood, *imageIn, imageOut, proportionOfValue != FALSE, value,
                                   verbose != FALSE, Dealing::Serial());
}

int VORLOMPMovingSearchNeighborhoodAverageImage(VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, VORL_IMAGE* imageIn,
                                                VORL_IMAGE* imageOut, BOOLEAN proportionOfValue, real value,
                                                BOOLEAN verbose, int nthreads) noexcept {
  return MovingNeighborhoodAverage(*searchNeighborhood, *imageIn, imageOut, proportionOfValue != FALSE, value,
                                   verbose != FALSE, Dealing::Threads(nthreads));
}
