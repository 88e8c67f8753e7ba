#include "analysis/pyramid.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "analysis/output_image.hpp"
#include "analysis/pyramid.hpp"
#include "analysis/pyramid_rows.hpp"
#include "core/buffer.hpp"
#include "core/constants.h"
#include "core/integers.hpp"
#include "core/object_array.hpp"
#include "core/parallel.hpp"
#include "core/statuses.hpp"
#include "core/variables.hpp"

namespace kestrum {
namespace {

using Row = PyramidRow;
using RowStorage = PyramidRowStorage;
using Tap = PyramidTap;
using Blend = PyramidBlend;

// Rows at consecutive positions of an axis, as many as one output position needs.
struct RowRing {
  const Row* rows;
  int span;
  std::size_t pitch;

  const Row& operator[](int position) const noexcept { return rows[static_cast<std::size_t>(position % span) * pitch]; }
};

// An axis as the caller gives it; an expansion has no offset.
struct Axis {
  int n;
  int step;
  const double* weight;
  int offset;
  int nOut;
};

// The reduction of one axis.
class Reduction {
 public:
  static constexpr int kInvalidStep = kReductionStep;
  static constexpr int kTooSmall = kReductionSize;
  static constexpr int kMinWeightTooSmall = kReductionWeight;
  static constexpr const char* kSuffix = VORL_SUFFIX_FOR_GAUSSIAN_PYRAMID_RED;
  static constexpr double kMinWeightDefault = VORL_GAUSSIAN_PYRAMID_RED_TOTAL_WEIGHT_MIN;
  // The ends are replicated, so without missing values all rows collect the same weights.
  static constexpr bool kRowsHaveSameWeights = true;

  static int SetDimension(Axis* axis) noexcept {
    const int n = axis->n;
    const int step = axis->step;
    if (step < 0) return kInvalidStep;
    if (step == 0) {
      axis->nOut = n;
      axis->offset = 0;
      return 0;
    }
    if (step >= n) return kTooSmall;
    axis->nOut = (n - 1) / step + 1;
    axis->offset = (n - 1) % step / 2;
    return 0;
  }

  static bool HasFittingSize(const Axis& axis) noexcept { return axis.step > 0 || axis.nOut == axis.n; }

  int Prepare(const Axis& axis, const PyramidKernels& kernels) noexcept {
    kernels_ = &kernels;
    n_ = axis.n;
    step_ = axis.step;
    weight_ = axis.weight;
    offset_ = axis.offset;
    nOut_ = axis.nOut;
    return 0;
  }

  bool skips() const noexcept { return step_ == 0; }
  int nOut() const noexcept { return nOut_; }
  // Input positions, first to last, that an output position needs, and their greatest number.
  int First(int o) const noexcept { return At(o, -step_); }
  int Last(int o) const noexcept { return At(o, step_); }
  int Span() const noexcept { return static_cast<int>(std::min<std::int64_t>(Ntap(), n_)); }
  std::size_t Ntap() const noexcept { return 2 * static_cast<std::size_t>(step_) + 1; }
  std::size_t RowScratch() const noexcept { return static_cast<std::size_t>(step_) * PhaseLength(); }

  // Weights of a complete row made from complete rows with these weights, which are all equal.
  void CompleteRow(const double* weights, std::size_t n, double* to) const noexcept {
    double total = 0.0;
    ForTaps([&](int j, int) noexcept { total += weight_[j] * weights[0]; });
    std::fill_n(to, n, total);
  }

  // The row at output position `o`, of `n` nodes.
  Row Combine(const RowRing& ring, int o, std::size_t n, const double* completeWeights, const RowStorage& to,
              Tap* taps) const noexcept {
    std::size_t ntap = 0;
    bool complete = true;
    ForTaps([&](int j, int distance) noexcept {
      const Row& row = ring[At(o, distance)];
      taps[ntap++] = {row.values, row.weights, weight_[j]};
      complete = complete && row.complete;
    });
    return Sum(taps, n, complete, completeWeights, to);
  }

  // The filter along x. The row, with its ends continued, is split into `step` phases: phase r has every step-th node
  // from node r. So all sums go through contiguous nodes.
  Row FilterRow(const Row& row, const double* completeWeights, const RowStorage& to, double* phases,
                Tap* taps) const noexcept {
    const std::int64_t length = static_cast<std::int64_t>(PhaseLength());
    const std::int64_t start = std::int64_t{offset_} - step_;
    const std::int64_t begin = std::clamp<std::int64_t>((step_ - 1 - start) / step_, 0, length);
    const std::int64_t end = std::clamp<std::int64_t>((n_ - start) / step_, begin, length);
    const auto continueEnds = [&](std::int64_t from, std::int64_t until) noexcept {
      for (std::int64_t i = from; i < until; ++i) {
        for (int r = 0; r < step_; ++r) {
          phases[r * length + i] = row.values[std::clamp<std::int64_t>(start + i * step_ + r, 0, n_ - 1)];
        }
      }
    };
    continueEnds(0, begin);
    const double* const inside = row.values + (begin < end ? start + begin * step_ : 0);
    const std::int64_t count = end - begin;
    if (step_ == 1) {
      std::copy(inside, inside + count, phases + begin);
    } else if (step_ == 2) {
      kernels_->takeApart(inside, static_cast<std::size_t>(count), phases + begin, phases + length + begin);
    } else {
      for (int r = 0; r < step_; ++r) {
        double* const phase = phases + r * length + begin;
        for (std::int64_t i = 0; i < count; ++i) phase[i] = inside[i * step_ + r];
      }
    }
    continueEnds(end, length);
    std::size_t ntap = 0;
    ForTaps([&](int j, int distance) noexcept {
      const std::int64_t fromStart = std::int64_t{distance} + step_;
      taps[ntap++] = {phases + fromStart % step_ * length + fromStart / step_, row.weights, weight_[j]};
    });
    return Sum(taps, static_cast<std::size_t>(nOut_), row.complete, completeWeights, to);
  }

 private:
  // From one step before the first output node to one step behind the last.
  std::size_t PhaseLength() const noexcept { return static_cast<std::size_t>(nOut_) + 2; }

  int At(int o, int distance) const noexcept {
    const std::int64_t center = skips() ? o : offset_ + std::int64_t{o} * step_;
    return static_cast<int>(std::clamp<std::int64_t>(center + distance, 0, n_ - 1));
  }

  // The order of every sum: the centre, then outwards, the upper side first.
  template <typename Body>
  void ForTaps(const Body& body) const noexcept {
    body(0, 0);
    for (int j = 1; j <= step_; ++j) {
      body(j, j);
      body(j, -j);
    }
  }

  Row Sum(const Tap* taps, std::size_t n, bool complete, const double* completeWeights,
          const RowStorage& to) const noexcept {
    if (complete && completeWeights[0] != 0.0) {
      return {to.values, completeWeights, !kernels_->addTaps(taps, Ntap(), n, to.values)};
    }
    kernels_->addInformedTaps(taps, Ntap(), n, to);
    return {to.values, to.weights, false};
  }

  const PyramidKernels* kernels_ = nullptr;
  int n_ = 0;
  int step_ = 0;
  const double* weight_ = nullptr;
  int offset_ = 0;
  int nOut_ = 0;
};

// The expansion of one axis.
class Expansion {
 public:
  static constexpr int kInvalidStep = kExpansionStep;
  static constexpr int kTooSmall = kExpansionSize;
  static constexpr int kMinWeightTooSmall = kExpansionWeight;
  static constexpr const char* kSuffix = VORL_SUFFIX_FOR_GAUSSIAN_PYRAMID_EXP;
  static constexpr double kMinWeightDefault = VORL_GAUSSIAN_PYRAMID_EXP_TOTAL_WEIGHT_MIN;
  // Rows between those of the input collect others.
  static constexpr bool kRowsHaveSameWeights = false;

  static int SetDimension(Axis* axis) noexcept {
    const int n = axis->n;
    const int step = axis->step;
    if (step < 0) return kInvalidStep;
    if (step > 0 && n < 2) return kTooSmall;
    const std::int64_t nOut = step == 0 ? n : (std::int64_t{n} - 1) * step + 1;
    if (!FitsInt(nOut)) return kInvalidStep;
    axis->nOut = static_cast<int>(nOut);
    return 0;
  }

  static bool HasFittingSize(const Axis& axis) noexcept {
    Axis computed = axis;
    return SetDimension(&computed) == 0 && axis.nOut == computed.nOut;
  }

  // Multiplies the weights by the step, here and nowhere else.
  int Prepare(const Axis& axis, const PyramidKernels& kernels) noexcept {
    kernels_ = &kernels;
    n_ = axis.n;
    step_ = axis.step;
    nOut_ = axis.nOut;
    if (skips()) return 0;
    if (const int status = weight_.Allocate(static_cast<std::size_t>(step_) + 1); status != 0) return status;
    for (std::size_t j = 0; j < weight_.size(); ++j) weight_[j] = step_ * axis.weight[j];
    return 0;
  }

  bool skips() const noexcept { return step_ == 0; }
  int nOut() const noexcept { return nOut_; }
  int First(int o) const noexcept { return skips() ? o : std::max((o - 1) / step_, 0); }
  int Last(int o) const noexcept { return skips() ? o : std::min(o / step_ + 1, n_ - 1); }
  int Span() const noexcept { return skips() ? 1 : std::min(3, n_); }
  std::size_t Ntap() const noexcept { return 0; }
  std::size_t RowScratch() const noexcept { return 2 * Step() * static_cast<std::size_t>(n_); }

  // Weights of a complete row made from weights of 1.
  void CompleteRow(const double*, std::size_t n, double* to) const noexcept {
    for (std::size_t o = 0; o < n; ++o) {
      const int k = static_cast<int>(o) / step_;
      const int r = static_cast<int>(o) % step_;
      const Blend blend = BlendAt(k, r);
      to[o] = blend.near + blend.far * (HasBothSides(k, r) ? 2.0 : 1.0);
    }
  }

  Row Combine(const RowRing& ring, int o, std::size_t n, const double*, const RowStorage& to, Tap*) const noexcept {
    const int k = o / step_;
    const int r = o % step_;
    const Row& b = ring[k < n_ - 1 ? k + 1 : k - 1];
    const Row* const c = HasBothSides(k, r) ? &ring[k - 1] : nullptr;
    return BlendRows(BlendAt(k, r), ring[k], b, c, n, true, to);
  }

  // The filter along x makes phases of contiguous nodes, phase r of the nodes r behind those of the input, and joins
  // them.
  Row FilterRow(const Row& row, const double* completeWeights, const RowStorage& to, double* phases,
                Tap*) const noexcept {
    const std::size_t n = static_cast<std::size_t>(n_);
    double* const phasesOfWeights = phases + Step() * n;
    Row result{to.values, row.complete ? completeWeights : to.weights, true};
    const auto fill = [&](int r, std::size_t k, std::size_t count) noexcept {
      const auto from = [&](std::size_t node) noexcept {
        return Row{row.values + node, row.weights + node, row.complete};
      };
      const std::size_t at = static_cast<std::size_t>(r) * n + k;
      const int node = static_cast<int>(k);
      const Row c = from(k > 0 ? k - 1 : k);
      const bool complete =
          BlendRows(BlendAt(node, r), from(k), from(k + 1 < n ? k + 1 : k - 1), HasBothSides(node, r) ? &c : nullptr,
                    count, false, {phases + at, phasesOfWeights + at})
              .complete;
      result.complete = result.complete && complete;
    };
    fill(0, 0, 1);
    fill(0, 1, n - 2);
    fill(0, n - 1, 1);
    for (int r = 1; r < step_; ++r) fill(r, 0, n - 1);
    JoinPhases(phases, to.values);
    if (!row.complete) JoinPhases(phasesOfWeights, to.weights);
    return result;
  }

 private:
  bool HasBothSides(int k, int r) const noexcept { return r == 0 && k > 0 && k < n_ - 1; }

  // Of output node k * step + r. The ends replicate themselves.
  Blend BlendAt(int k, int r) const noexcept {
    const double end = weight_[Step()];
    if (r > 0) return {weight_[static_cast<std::size_t>(r)], weight_[Step() - static_cast<std::size_t>(r)]};
    return {HasBothSides(k, r) ? weight_[0] : weight_[0] + end, end};
  }

  // `c` may be null. Weights of complete rows are left alone where they are known.
  Row BlendRows(const Blend& blend, const Row& a, const Row& b, const Row* c, std::size_t n, bool needsWeights,
                const RowStorage& to) const noexcept {
    const bool hasC = c != nullptr;
    if (!a.complete || !b.complete || (hasC && !c->complete)) {
      kernels_->blendInformed(blend, a, b, c, n, to);
      return {to.values, to.weights, false};
    }
    if (needsWeights) kernels_->blend(blend, a.weights, b.weights, hasC ? c->weights : nullptr, n, to.weights);
    const bool foundMissing = kernels_->blend(blend, a.values, b.values, hasC ? c->values : nullptr, n, to.values);
    return {to.values, to.weights, !foundMissing};
  }

  void JoinPhases(const double* phases, double* to) const noexcept {
    const std::size_t n = static_cast<std::size_t>(n_);
    const std::size_t f = Step();
    if (f == 1) {
      std::copy(phases, phases + n, to);
    } else if (f == 2) {
      kernels_->join(phases, phases + n, n - 1, to);
    } else {
      for (std::size_t r = 0; r < f; ++r) {
        for (std::size_t k = 0; k + 1 < n; ++k) to[k * f + r] = phases[r * n + k];
      }
    }
    to[(n - 1) * f] = phases[n - 1];
  }

  std::size_t Step() const noexcept { return static_cast<std::size_t>(step_); }

  const PyramidKernels* kernels_ = nullptr;
  int n_ = 0;
  int step_ = 0;
  int nOut_ = 0;
  Buffer<double> weight_;
};

// Results are made in tiles of whole rows, so that what passes between the filters stays in the cache. The more rows
// and sections a tile has, the less of its surroundings is filtered twice; threads share the tiles.
constexpr int kTileRows = 16;
constexpr int kTileSections = 32;

// The three filters on one variable.
template <typename Filter, typename T>
class Resampling {
 public:
  Resampling(const T* input, double minWeight, double* output, double* totalWeight, MissingMark mark) noexcept
      : kernels_(PyramidKernelsOf(BestSimdLevel(), mark)),
        input_(input),
        minWeight_(minWeight),
        output_(output),
        totalWeight_(totalWeight) {}

  int Run(const Axis (&axes)[3], const Dealing& dealing, const Progress& progress) noexcept {
    if (const int status = Prepare(axes); status != 0) return status;
    ObjectArray<Scratch> scratch;
    if (const int status = scratch.Allocate(dealing.nscratch()); status != 0) return status;
    for (Scratch& own : scratch) {
      if (const int status = AllocateScratch(&own); status != 0) return status;
    }
    const int nacross = (y_.nOut() - 1) / kTileRows + 1;
    const std::int64_t ntile = std::int64_t{nacross} * ((z_.nOut() - 1) / kTileSections + 1);
    dealing.EachThread([&](int thread, int team) noexcept {
      for (std::int64_t tile = thread; tile < ntile && progress.GoesOn(thread == 0, tile, ntile); tile += team) {
        const int oy = static_cast<int>(tile % nacross) * kTileRows;
        const int oz = static_cast<int>(tile / nacross) * kTileSections;
        MakeTile(oy, std::min(kTileRows, y_.nOut() - oy), oz, std::min(kTileSections, z_.nOut() - oz),
                 scratch[static_cast<std::size_t>(thread)]);
      }
    });
    return progress.After(0);
  }

 private:
  struct Scratch {
    Buffer<double> numbers;
    Buffer<Row> rows;
    Buffer<Tap> taps;
  };

  int Prepare(const Axis (&axes)[3]) noexcept {
    nx_ = static_cast<std::size_t>(axes[0].n);
    ny_ = static_cast<std::size_t>(axes[1].n);
    nxOut_ = static_cast<std::size_t>(axes[0].nOut);
    nyOut_ = static_cast<std::size_t>(axes[1].nOut);
    pitch_ = (nxOut_ + 7) / 8 * 8;
    if (const int status = ones_.Allocate(std::max(nx_, nxOut_), 1.0); status != 0) return status;
    Filter* const filters[] = {&x_, &y_, &z_};
    const double* weights = ones_.data();
    for (int axis = 0; axis < 3; ++axis) {
      Filter& filter = *filters[axis];
      if (const int status = filter.Prepare(axes[axis], kernels_); status != 0) return status;
      if (filter.skips() || (axis > 0 && !Filter::kRowsHaveSameWeights)) continue;
      if (const int status = completeWeights_[axis].Allocate(nxOut_); status != 0) return status;
      filter.CompleteRow(weights, nxOut_, completeWeights_[axis].data());
      weights = completeWeights_[axis].data();
    }
    return 0;
  }

  // Rows filtered along x, rows of sections filtered along y too, and one row filtered along z too.
  std::size_t Nline() const noexcept { return static_cast<std::size_t>(y_.Span()); }
  std::size_t Nrow() const noexcept { return Nline() + static_cast<std::size_t>(z_.Span()) * kTileRows; }

  int AllocateScratch(Scratch* scratch) const noexcept {
    std::size_t size = 0;  // of rows and columns of any length
    if (__builtin_mul_overflow((Nrow() + 1) * 2, pitch_, &size) ||
        __builtin_add_overflow(size, x_.RowScratch(), &size) ||
        __builtin_add_overflow(size, kConverts ? nx_ : 0, &size)) {
      return kNoMemory;
    }
    if (const int status = scratch->numbers.Allocate(size); status != 0) return status;
    if (const int status = scratch->rows.Allocate(Nrow()); status != 0) return status;
    const std::size_t ntap = std::max({x_.Ntap(), y_.Ntap(), z_.Ntap()});
    return ntap > 0 ? scratch->taps.Allocate(ntap) : 0;
  }

  // A row of the input, made in `place` unless it is one of doubles.
  const double* Numbers(const T* from, double* place) const noexcept {
    if constexpr (kConverts) {
      std::copy_n(from, nx_, place);
      return place;
    } else {
      return from;
    }
  }

  RowStorage StorageOf(std::size_t row, Scratch& scratch) const noexcept {
    double* const values = scratch.numbers.data() + row * 2 * pitch_;
    return {values, values + pitch_};
  }

  Row MakeLine(int y, int z, const RowStorage& to, Scratch& scratch) const noexcept {
    double* const phases = scratch.numbers.data() + (Nrow() + 1) * 2 * pitch_;
    const T* const from = input_ + (static_cast<std::size_t>(z) * ny_ + static_cast<std::size_t>(y)) * nx_;
    const double* const values = Numbers(from, x_.skips() ? to.values : phases + x_.RowScratch());
    const Row row{values, ones_.data(), !kernels_.hasMissing(values, nx_)};
    if (x_.skips()) return row;
    return x_.FilterRow(row, completeWeights_[0].data(), to, phases, scratch.taps.data());
  }

  // Rows oy to oy + nrow of section z, filtered along x and y, into rows `first` on of the scratch.
  void MakeSection(int oy, int nrow, int z, std::size_t first, Scratch& scratch) const noexcept {
    Row* const lines = scratch.rows.data();
    Row* const rows = lines + first;
    int next = y_.First(oy);
    for (int row = 0; row < nrow; ++row) {
      const RowStorage to = StorageOf(first + static_cast<std::size_t>(row), scratch);
      if (y_.skips()) {
        rows[row] = MakeLine(oy + row, z, to, scratch);
        continue;
      }
      for (; next <= y_.Last(oy + row); ++next) {
        const std::size_t slot = static_cast<std::size_t>(next % y_.Span());
        lines[slot] = MakeLine(next, z, StorageOf(slot, scratch), scratch);
      }
      rows[row] =
          y_.Combine({lines, y_.Span(), 1}, oy + row, nxOut_, completeWeights_[1].data(), to, scratch.taps.data());
    }
  }

  // The tile of nrow rows by nsection sections whose first row is oy in section oz of the output.
  void MakeTile(int oy, int nrow, int oz, int nsection, Scratch& scratch) const noexcept {
    int next = z_.First(oz);
    for (int section = oz; section < oz + nsection; ++section) {
      for (; next <= z_.Last(section); ++next) {
        MakeSection(oy, nrow, next, Nline() + static_cast<std::size_t>(next % z_.Span()) * kTileRows, scratch);
      }
      for (int row = 0; row < nrow; ++row) {
        const RowRing ring{scratch.rows.data() + Nline() + row, z_.Span(), kTileRows};
        const Row sums = z_.skips() ? ring[section]
                                    : z_.Combine(ring, section, nxOut_, completeWeights_[2].data(),
                                                 StorageOf(Nrow(), scratch), scratch.taps.data());
        Finish(sums, (static_cast<std::size_t>(section) * nyOut_ + static_cast<std::size_t>(oy + row)) * nxOut_);
      }
    }
  }

  // Divides the sums by their weights into the output from node `first` on.
  void Finish(const Row& sums, std::size_t first) const noexcept {
    kernels_.divide(sums.values, sums.weights, minWeight_, nxOut_, output_ + first);
    if (totalWeight_ != nullptr) std::copy_n(sums.weights, nxOut_, totalWeight_ + first);
  }

  static constexpr bool kConverts = !std::is_same_v<T, double>;
  const PyramidKernels& kernels_;
  const T* input_;
  double minWeight_;
  double* output_;
  double* totalWeight_;  // may be null
  std::size_t nx_ = 0;
  std::size_t ny_ = 0;
  std::size_t nxOut_ = 0;
  std::size_t nyOut_ = 0;
  std::size_t pitch_ = 0;  // between rows in the scratch, a multiple of what an alignment of 64 bytes needs
  Filter x_, y_, z_;
  Buffer<double> ones_;
  Buffer<double> completeWeights_[3];  // of rows behind each filter
};

// Filters one variable; totalWeight may be null.
template <typename Filter, typename T>
int Resample(const T* input, const Axis (&gridAxes)[3], double* output, double* totalWeight, double minWeight,
             const Dealing& dealing, MissingMark mark = MissingMark::kNumber,
             const Progress& progress = Progress(nullptr, nullptr)) noexcept {
  Axis axes[] = {gridAxes[0], gridAxes[1], gridAxes[2]};
  for (const Axis& axis : axes) {
    if (axis.n < 1 || axis.nOut < 1) return Filter::kTooSmall;
  }
  if (input == nullptr || output == nullptr) return kNotAllocated;
  if (axes[0].step == 0 && axes[1].step == 0 && axes[2].step == 0) {
    const std::ptrdiff_t nnode = std::ptrdiff_t{axes[0].n} * axes[1].n * axes[2].n;
    dealing.Blocks(nnode, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      std::copy(input + begin, input + end, output + begin);
      if (totalWeight == nullptr) return;
      for (std::ptrdiff_t i = begin; i < end; ++i) totalWeight[i] = IsMissing(input[i]) ? 0.0 : 1.0;
    });
    return 0;
  }
  if (!(minWeight >= VORL_EPSILON)) return Filter::kMinWeightTooSmall;
  for (const Axis& axis : axes) {
    if (axis.step < 0) return Filter::kInvalidStep;
  }
  for (const Axis& axis : axes) {
    if (!Filter::HasFittingSize(axis)) return Filter::kTooSmall;
    if (axis.step > 0 && axis.weight == nullptr) return kNotAllocated;
  }
  // Rows should be long: an axis of one node may change places without a change of the node order.
  while (axes[0].n == 1 && axes[0].step == 0) std::rotate(axes, axes + 1, axes + 3);
  return Resampling<Filter, T>(input, minWeight, output, totalWeight, mark).Run(axes, dealing, progress);
}

// Filters all variables of an image; `out` is made.
template <typename Filter>
int ResampleImage(const VORL_IMAGE& in, VORL_IMAGE* out, const int (&steps)[3], const real (&centralWeights)[3],
                  real minWeight, const Dealing& dealing) noexcept {
  if (in.grid == nullptr) return kNotAllocated;
  VORL_GRID grid = *in.grid;
  Axis axes[] = {
      {grid.nx, steps[0], nullptr, 0, 0}, {grid.ny, steps[1], nullptr, 0, 0}, {grid.nz, steps[2], nullptr, 0, 0}};
  for (int axis = 0; axis < 3; ++axis) {
    // The rows of the axes follow that of the failure.
    if (const int status = Filter::SetDimension(&axes[axis]); status != 0) return status - 1 - axis;
  }
  if (minWeight < 0.0) minWeight = Filter::kMinWeightDefault;
  const bool copies = steps[0] == 0 && steps[1] == 0 && steps[2] == 0;
  if (!copies && !(minWeight >= VORL_EPSILON)) return Filter::kMinWeightTooSmall;
  if (const int status = CheckImage(in); status != 0) return status;

  grid.sx = grid.nx * grid.sx / axes[0].nOut;
  grid.sy = grid.ny * grid.sy / axes[1].nOut;
  grid.sz = grid.nz * grid.sz / axes[2].nOut;
  if (!SetSizes(&grid, axes[0].nOut, axes[1].nOut, axes[2].nOut)) return kImageTooLarge;
  if (const int status = MakeOutputImage(in, 0, in.nvar, grid, Filter::kSuffix, out); status != 0) return status;

  Buffer<double> weights[3];
  for (int axis = 0; axis < 3; ++axis) {
    const int step = steps[axis];
    if (step == 0) continue;
    if (const int status = weights[axis].Allocate(static_cast<std::size_t>(step) + 1); status != 0) return status;
    VORLPyramidWeight(step, weights[axis].data(), centralWeights[axis]);
    axes[axis].weight = weights[axis].data();
  }
  for (int v = 0; v < in.nvar; ++v) {
    const int status = Resample<Filter>(VariableOf(in, v), axes, out->var + std::ptrdiff_t{v} * grid.nxyz, nullptr,
                                        minWeight, dealing);
    if (status != 0) return status;
  }
  return 0;
}

template <typename Filter, typename T>
int ResampleArray(const int (&n)[3], const bool (&changes)[3], const T* values, double* output, const Dealing& dealing,
                  const Progress& progress) noexcept {
  constexpr int kStep = 2;
  double weight[kStep + 1];
  VORLPyramidWeight(kStep, weight, -1.0);
  Axis axes[3];
  for (int a = 0; a < 3; ++a) {
    axes[a] = {n[a], changes[a] ? kStep : 0, weight, 0, 0};
    if (const int status = Filter::SetDimension(&axes[a]); status != 0) return status;
  }
  return Resample<Filter>(values, axes, output, nullptr, Filter::kMinWeightDefault, dealing, MissingMark::kNaN,
                          progress);
}

}  // namespace

template <typename T>
int ReduceArray(const int (&n)[3], const T* values, double* reduced, const Dealing& dealing,
                const Progress& progress) noexcept {
  return ResampleArray<Reduction>(n, {n[0] > 2, n[1] > 2, n[2] > 2}, values, reduced, dealing, progress);
}

template <typename T>
int ExpandArray(const int (&n)[3], const bool (&changes)[3], const T* values, double* expanded, const Dealing& dealing,
                const Progress& progress) noexcept {
  return ResampleArray<Expansion>(n, changes, values, expanded, dealing, progress);
}

#define KESTRUM_PYRAMID_OF(T)                                                                             \
  template int ReduceArray(const int(&)[3], const T*, double*, const Dealing&, const Progress&) noexcept; \
  template int ExpandArray(const int(&)[3], const bool(&)[3], const T*, double*, const Dealing&,          \
                           const Progress&) noexcept;
KESTRUM_PYRAMID_OF(unsigned char)
KESTRUM_PYRAMID_OF(int)
KESTRUM_PYRAMID_OF(float)
KESTRUM_PYRAMID_OF(double)
#undef KESTRUM_PYRAMID_OF

}  // namespace kestrum

using namespace kestrum;

int VORLPyramidWeight(int step, double* weight, double centralWeight) noexcept {
  if (step < 1) return 0;
  double coefficient = 1.0;
  weight[step] = coefficient;
  for (int k = 1; k <= step; ++k) {
    coefficient = coefficient * (2.0 * step - k + 1.0) / k;
    weight[step - k] = coefficient;
  }
  const double share = 1.0 / step;
  for (int k = 1; k <= step / 2; ++k) {
    double& w = weight[k];
    double& opposite = weight[step - k];
    if (2 * k == step) {
      w = 0.5 * share;
    } else {
      const double scale = share / (w + opposite);
      w *= scale;
      opposite *= scale;
    }
  }
  if (centralWeight < 0.0) {
    const double scale = share / (weight[0] + 2.0 * weight[step]);
    weight[0] *= scale;
    weight[step] *= scale;
  } else {
    weight[0] = centralWeight;
    weight[step] = (share - centralWeight) * 0.5;
  }
  return 0;
}

int VORLPyramidReduceDimension(int n, int step, int* nOut, int* offset) noexcept {
  Axis axis{n, step, nullptr, 0, 0};
  if (const int status = Reduction::SetDimension(&axis); status != 0) return status;
  *nOut = axis.nOut;
  *offset = axis.offset;
  return 0;
}

int VORLPyramidExpandDimension(int n, int step, int* nOut) noexcept {
  Axis axis{n, step, nullptr, 0, 0};
  if (const int status = Expansion::SetDimension(&axis); status != 0) return status;
  *nOut = axis.nOut;
  return 0;
}

int VORLPyramidReduce(double* input, int nx, int ny, int nz, int stepX, int stepY, int stepZ, double* weightX,
                      double* weightY, double* weightZ, int offsetX, int offsetY, int offsetZ, int nxOut, int nyOut,
                      int nzOut, double* output, double* totalWeight, double minWeight) noexcept {
  return Resample<Reduction>(input,
                             {{nx, stepX, weightX, offsetX, nxOut},
                              {ny, stepY, weightY, offsetY, nyOut},
                              {nz, stepZ, weightZ, offsetZ, nzOut}},
                             output, totalWeight, minWeight, Dealing::Serial());
}

int VORLOMPPyramidReduce(double* input, int nx, int ny, int nz, int stepX, int stepY, int stepZ, double* weightX,
                         double* weightY, double* weightZ, int offsetX, int offsetY, int offsetZ, int nxOut, int nyOut,
                         int nzOut, double* output, double* totalWeight, double minWeight, int nthreads) noexcept {
  return Resample<Reduction>(input,
                             {{nx, stepX, weightX, offsetX, nxOut},
                              {ny, stepY, weightY, offsetY, nyOut},
                              {nz, stepZ, weightZ, offsetZ, nzOut}},
                             output, totalWeight, minWeight, Dealing::Threads(nthreads));
}

int VORLPyramidExpand(double* input, int nx, int ny, int nz, int stepX, int stepY, int stepZ, double* weightX,
                      double* weightY, double* weightZ, int nxOut, int nyOut, int nzOut, double* output,
                      double* totalWeight, double minWeight) noexcept {
  return Resample<Expansion>(
      input, {{nx, stepX, weightX, 0, nxOut}, {ny, stepY, weightY, 0, nyOut}, {nz, stepZ, weightZ, 0, nzOut}}, output,
      totalWeight, minWeight, Dealing::Serial());
}

int VORLOMPPyramidExpand(double* input, int nx, int ny, int nz, int stepX, int stepY, int stepZ, double* weightX,
                         double* weightY, double* weightZ, int nxOut, int nyOut, int nzOut, double* output,
                         double* totalWeight, double minWeight, int nthreads) noexcept {
  return Resample<Expansion>(
      input, {{nx, stepX, weightX, 0, nxOut}, {ny, stepY, weightY, 0, nyOut}, {nz, stepZ, weightZ, 0, nzOut}}, output,
      totalWeight, minWeight, Dealing::Threads(nthreads));
}

int VORLImagePyramidReduce(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int stepX, int stepY, int stepZ,
                           real centralWeightX, real centralWeightY, real centralWeightZ, real minWeight) noexcept {
  return ResampleImage<Reduction>(*imageIn, imageOut, {stepX, stepY, stepZ},
                                  {centralWeightX, centralWeightY, centralWeightZ}, minWeight, Dealing::Serial());
}

int VORLOMPImagePyramidReduce(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int stepX, int stepY, int stepZ,
                              real centralWeightX, real centralWeightY, real centralWeightZ, real minWeight,
                              int nthreads) noexcept {
  return ResampleImage<Reduction>(*imageIn, imageOut, {stepX, stepY, stepZ},
                                  {centralWeightX, centralWeightY, centralWeightZ}, minWeight,
                                  Dealing::Threads(nthreads));
}

int VORLImagePyramidExpand(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int stepX, int stepY, int stepZ,
                           real centralWeightX, real centralWeightY, real centralWeightZ, real minWeight) noexcept {
  return ResampleImage<Expansion>(*imageIn, imageOut, {stepX, stepY, stepZ},
                                  {centralWeightX, centralWeightY, centralWeightZ}, minWeight, Dealing::Serial());
}

int VORLOMPImagePyramidExpand(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int stepX, int stepY, int stepZ,
                              real centralWeightX, real centralWeightY, real centralWeightZ, real minWeight,
                              int nthreads) noexcept {
  return ResampleImage<Expansion>(*imageIn, imageOut, {stepX, stepY, stepZ},
                                  {centralWeightX, centralWeightY, centralWeightZ}, minWeight,
                                  Dealing::Threads(nthreads));
}
