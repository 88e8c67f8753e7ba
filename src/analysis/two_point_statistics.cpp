#include "analysis/two_point_statistics.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "analysis/output_image.hpp"
#include "analysis/percent_printer.hpp"
#include "analysis/two_point_statistics.hpp"
#include "core/buffer.hpp"
#include "core/constants.h"
#include "core/integers.hpp"
#include "core/missing_mark.hpp"
#include "core/statuses.hpp"
#include "core/variables.hpp"

namespace kestrum {
namespace {

using enum TwoPointStatistic;

// In the order of TwoPointStatistic.
constexpr const char* kSuffixes[] = {
    VORL_SUFFIX_FOR_VARIOGRAM,
    VORL_SUFFIX_FOR_COVARIANCE,
    VORL_SUFFIX_FOR_COVARIANCE_NOT_CENTRED,
    VORL_SUFFIX_FOR_CORRELOGRAM,
    VORL_SUFFIX_FOR_TRANSIOGRAM,
    VORL_SUFFIX_FOR_CONNECTIVITY_FUNCTION,
    VORL_SUFFIX_FOR_CONNECTIVITY_FUNCTION,
    VORL_SUFFIX_FOR_CONNECTIVITY_FUNCTION,
};

int CheckLags(const VORL_GRID& grid, LagBox& box) noexcept {
  const int n[] = {grid.nx, grid.ny, grid.nz};
  for (int a = 0; a < 3; ++a) {
    const auto isTooLong = [size = std::int64_t{n[a]}](std::int64_t lag) { return std::abs(lag) >= size; };
    if (isTooLong(box.axis[a].min)) return kLagMinimum - a;
    if (isTooLong(box.axis[a].max)) return kLagMaximum - a;
  }
  for (int a = 0; a < 3; ++a) {
    if (box.axis[a].min > box.axis[a].max) return kLagOrder - a;
  }
  for (int a = 0; a < 3; ++a) {
    LagAxis& axis = box.axis[a];
    if (axis.min == axis.max) axis.step = 1;
    if (axis.step < 1) return kLagStep - a;
  }
  return 0;
}

std::int64_t CountLags(const LagAxis& axis) noexcept { return (std::int64_t{axis.max} - axis.min) / axis.step + 1; }

int LagOf(const LagAxis& axis, int index) noexcept {
  return static_cast<int>(axis.min + std::int64_t{index} * axis.step);
}

// The frame of the map of lags. Returns 0, or -620 if there are more lags than an int can count.
int MakeLagGrid(const VORL_GRID& in, const LagBox& box, VORL_GRID* out) noexcept {
  const auto& [x, y, z] = box.axis;
  out->sx = in.sx * x.step;
  out->sy = in.sy * y.step;
  out->sz = in.sz * z.step;
  out->ox = in.sx * x.min - 0.5 * out->sx;
  out->oy = in.sy * y.min - 0.5 * out->sy;
  out->oz = in.sz * z.min - 0.5 * out->sz;
  return SetSizes(out, CountLags(x), CountLags(y), CountLags(z)) ? 0 : kImageTooLarge;
}

// The axis along which runs of lags are taken: x, along which memory runs, if it gives them half their length,
// otherwise the one with the most lags.
int ChooseLaneAxis(const VORL_GRID& lags) noexcept {
  const int count[] = {lags.nx, lags.ny, lags.nz};
  return lags.nx >= kLagRun / 2 ? 0 : static_cast<int>(std::max_element(count, count + 3) - count);
}

// The axes other than the lane axis, the one along which memory runs faster first.
constexpr int InnerAxis(int lane) noexcept { return lane == 0 ? 1 : 0; }
constexpr int OuterAxis(int lane) noexcept { return lane == 2 ? 1 : 2; }

// The sums of one lag, in the order of SumCount, and the number of counted pairs.
struct PairSums {
  double pairs;
  double sum[kMaxSums];
};

double ComputeValue(TwoPointStatistic statistic, const PairSums& sums, MissingMark mark) noexcept {
  const double n = sums.pairs;
  if (n == 0.0) return MissingOf(mark);
  const auto& [s, tails, heads, tailSquares, headSquares] = sums.sum;
  switch (statistic) {
    case kVariogram:
      return 0.5 / n * s;
    case kCovariance:
      return (s - tails / n * heads) / n;
    case kCorrelogram:
      // No guard: a variable constant over the pairs deliberately gives a not-a-number.
      return (s - tails / n * heads) / std::sqrt((headSquares - heads * heads / n) * (tailSquares - tails / n * tails));
    case kCovarianceNotCentred:
    case kConnectivityFunction0:
      return s / n;
    default:
      return tails == 0.0 ? 0.0 : s / tails;
  }
}

// Fills the rearranged copy of the variable, and describes its layout in `field`. Runs of up to `nlags` lags, a step
// apart, will be taken along the lane axis.
int ArrangeHeads(int nlags, const Dealing& dealing, PairField& field, Buffer<double>& heads) noexcept {
  const int lane = field.laneAxis;
  const int inner = InnerAxis(lane);
  const int outer = OuterAxis(lane);
  const std::ptrdiff_t lines = std::ptrdiff_t{field.n[inner]} * field.n[outer];
  // Heads leave the grid by less than a run. A line is followed by the margin of the next one.
  const std::ptrdiff_t padding = std::min(kLagRun, nlags) - 1;
  std::ptrdiff_t length = padding + (field.n[lane] + field.step - 1) / field.step;
  if (length % 64 == 0) length += 8;  // lines whose addresses are alike would share few places in the cache
  field.margin = padding * field.step;
  field.phaseStride = lines * length;
  field.headStride[lane] = 0;
  field.headStride[inner] = length;
  field.headStride[outer] = field.n[inner] * length;

  const std::ptrdiff_t end = field.step * field.phaseStride;
  // The lanes of a run that are no lags are read as well.
  const std::ptrdiff_t size = end + padding + kLagRun;
  if (const int status = heads.Allocate(static_cast<std::size_t>(size)); status != 0) return status;
  const double missing = MissingOf(field.mark);
  std::fill(heads.data() + end, heads.data() + size, missing);
  field.heads = heads.data();
  const std::ptrdiff_t tailStride[] = {1, field.n[0], std::ptrdiff_t{field.n[0]} * field.n[1]};
  dealing.Blocks(lines, [&](std::ptrdiff_t first, std::ptrdiff_t last) noexcept {
    for (std::ptrdiff_t line = first; line < last; ++line) {
      const double* const from =
          field.tails + line % field.n[inner] * tailStride[inner] + line / field.n[inner] * tailStride[outer];
      for (std::ptrdiff_t phase = 0; phase < field.step; ++phase) {
        double* const to = heads.data() + phase * field.phaseStride + line * length;
        std::fill(to, to + length, missing);
        double* at = to + padding;
        for (std::ptrdiff_t position = phase; position < field.n[lane]; position += field.step) {
          const double value = from[position * tailStride[lane]];
          *at++ = !field.hasMissing && IsMarkedMissing(value, field.mark) ? 0.0 : value;  // background, and in the grid
        }
      }
    }
  });
  return 0;
}

// Where the results of all lags go: either their values, or their sums, table by table, and numbers of pairs.
struct LagTables {
  double* values;
  double* sums;
  std::int64_t* pairs;
};

// The map of lags. The tails of the opposite of lag h are the heads of h, in the same order, since all are moved by h.
// So both lags have the same pairs in the same order, tails and heads exchanged, and if both are in the box one is
// summed and gives both values: the sums of (a-b)^2 and of ab and the counts of both ends are the same to the bit, and
// what is summed over the tails of one is summed over the heads of the other.
class LagMap {
 public:
  LagMap(TwoPointStatistic statistic, const LagBox& box, const VORL_GRID& grid, const PairField& field,
         LagSumsKernel kernel, const LagTables& to) noexcept
      : statistic_(statistic),
        box_(box),
        count_{grid.nx, grid.ny, grid.nz},
        nodeStride_{1, grid.nx, grid.nxy},
        field_(field),
        kernel_(kernel),
        to_(to),
        nlag_(grid.nxyz) {
    const bool opposite = std::all_of(box.axis, box.axis + 3,
                                      [](const LagAxis& axis) { return std::int64_t{2} * axis.min % axis.step == 0; });
    for (int a = 0; a < 3; ++a) indexSum_[a] = opposite ? std::int64_t{-2} * box.axis[a].min / box.axis[a].step : -1;
  }

  // Calls body(index, count) for each run of at most `longest` lags along the lane axis, `index` being the indices of
  // its first lag. The runs and their opposites make up the box.
  template <typename Body>
  void ForEachRun(int longest, const Body& body) const noexcept {
    const int lane = field_.laneAxis;
    const int inner = InnerAxis(lane);
    const int outer = OuterAxis(lane);
    int index[3];
    for (index[outer] = 0; index[outer] < count_[outer]; ++index[outer]) {
      for (index[inner] = 0; index[inner] < count_[inner]; ++index[inner]) {
        const auto [first, last] = ShareOfLine(index);
        for (std::ptrdiff_t at = first; at <= last; at += longest) {
          index[lane] = static_cast<int>(at);
          body(index, std::min(longest, last - index[lane] + 1));
        }
      }
    }
  }

  // Computes a run, and the opposite lags. Returns the number of values.
  int ComputeRun(const int* first, int count) const noexcept {
    int index[] = {first[0], first[1], first[2]};
    int lag[3];
    for (int a = 0; a < 3; ++a) lag[a] = LagOf(box_.axis[a], index[a]);
    LagSums run;
    kernel_(statistic_, field_, lag, count, &run);
    int nvalues = 0;
    for (int k = 0; k < count; ++k) {
      PairSums sums{field_.hasMissing ? run.pairs[k] : CountPairs(index), {}};
      for (int s = 0; s < SumCount(statistic_); ++s) sums.sum[s] = run.sum[s][k];
      std::ptrdiff_t node = 0;
      std::ptrdiff_t opposite = 0;
      bool hasOpposite = true;
      for (int a = 0; a < 3; ++a) {
        node += index[a] * nodeStride_[a];
        opposite += (indexSum_[a] - index[a]) * nodeStride_[a];
        hasOpposite = hasOpposite && IsIndex(a, indexSum_[a] - index[a]);
      }
      Set(node, sums);
      ++nvalues;
      if (hasOpposite && opposite != node) {
        for (int s = 1; s + 1 < SumCount(statistic_); s += 2) std::swap(sums.sum[s], sums.sum[s + 1]);
        Set(opposite, sums);
        ++nvalues;
      }
      ++index[field_.laneAxis];
    }
    return nvalues;
  }

 private:
  struct Interval {
    int first;
    int last;
  };

  bool IsIndex(int axis, std::int64_t index) const noexcept { return index >= 0 && index < count_[axis]; }

  // The lags of a line along the lane axis that are computed: those without an opposite, and one of each couple. They
  // follow each other. The line is given by the other two entries of `index`.
  Interval ShareOfLine(const int* index) const noexcept {
    const int inner = InnerAxis(field_.laneAxis);
    const int outer = OuterAxis(field_.laneAxis);
    const int last = count_[field_.laneAxis] - 1;
    const std::pair<std::int64_t, std::int64_t> line(index[outer], index[inner]);
    const std::pair<std::int64_t, std::int64_t> opposite(indexSum_[outer] - line.first, indexSum_[inner] - line.second);
    if (!IsIndex(outer, opposite.first) || !IsIndex(inner, opposite.second) || line < opposite) return {0, last};
    // Lag k of this line has the opposite sum - k on the other line, which may be this line too.
    const bool same = line == opposite;
    const std::int64_t sum = indexSum_[field_.laneAxis];
    if (sum >= last) return {0, static_cast<int>(std::min<std::int64_t>(last, same ? sum / 2 : sum - last - 1))};
    return {static_cast<int>(std::max<std::int64_t>(0, same ? (sum + 1) / 2 : sum + 1)), last};
  }

  void Set(std::ptrdiff_t node, const PairSums& sums) const noexcept {
    if (to_.values != nullptr) {
      to_.values[node] = ComputeValue(statistic_, sums, field_.mark);
      return;
    }
    to_.pairs[node] = static_cast<std::int64_t>(sums.pairs);
    for (int s = 0; s < SumCount(statistic_); ++s) to_.sums[s * nlag_ + node] = sums.sum[s];
  }

  double CountPairs(const int* index) const noexcept {
    double n = 1.0;
    for (int a = 0; a < 3; ++a) n *= field_.n[a] - std::abs(LagOf(box_.axis[a], index[a]));
    return n;
  }

  TwoPointStatistic statistic_;
  const LagBox& box_;
  const int count_[3];
  const std::ptrdiff_t nodeStride_[3];
  std::int64_t indexSum_[3];  // of a lag and its opposite; -1 if no lag has one
  const PairField& field_;
  const LagSumsKernel kernel_;
  const LagTables& to_;
  const std::ptrdiff_t nlag_;
};

// The progress lines, which follow the nodes of the output in their order: all of them, or in the threaded form, where
// the first thread prints, every team-th. The values come in another order; what counts is how many there are.
class LagProgress {
 public:
  LagProgress(bool verbose, int nlags, const Dealing& dealing, int team) noexcept
      : printer_(verbose, "Progress"),
        step_(100.0 / nlags),
        nlags_(verbose ? nlags : 0),
        team_(team),
        threaded_(dealing.threaded()) {}

  void Advance(int nvalues) noexcept {
    for (; nvalues > 0 && node_ < nlags_; --nvalues, node_ += team_) {
      // The serial form counts the nodes that are done, the threaded form gives the index of the last of them.
      printer_.Report(static_cast<int>(static_cast<double>(threaded_ ? node_ : node_ + 1) * step_));
    }
  }

  void Finish() noexcept {
    Advance(nlags_);
    if (threaded_) printer_.Finish();
  }

 private:
  PercentPrinter printer_;
  double step_;
  int nlags_;
  int team_;
  bool threaded_;
  std::int64_t node_ = 0;
};

// A variable on a grid.
struct Variable {
  const VORL_GRID& grid;
  const double* values;
  MissingMark mark;
};

// The map of a box of lags that are the nodes of `lags`.
int ComputeLagMap(TwoPointStatistic statistic, const Variable& in, const LagBox& box, const VORL_GRID& lags,
                  const LagTables& to, bool verbose, const Dealing& dealing, SimdLevel level,
                  const Progress& job) noexcept {
  PairField field{};
  field.tails = in.values;
  field.n[0] = in.grid.nx;
  field.n[1] = in.grid.ny;
  field.n[2] = in.grid.nz;
  field.laneAxis = ChooseLaneAxis(lags);
  field.mark = in.mark;
  field.hasMissing = LeavesMissingOut(statistic) && std::any_of(in.values, in.values + in.grid.nxyz, [&](double value) {
                       return IsMarkedMissing(value, in.mark);
                     });
  field.progress = job;
  Buffer<double> heads;
  const int nlags = static_cast<int>(CountLags(box.axis[field.laneAxis]));
  // A step beyond the lags is never taken; the copy would have a line for each of its phases.
  field.step = nlags > 1 ? box.axis[field.laneAxis].step : 1;
  if (const int status = ArrangeHeads(nlags, dealing, field, heads); status != 0) return status;

  const LagMap map(statistic, box, lags, field, LagSumsKernelOf(level), to);
  std::atomic<int> done{0};
  dealing.EachThread([&](int thread, int team) noexcept {
    // Short runs where long ones would leave a thread without work.
    const int longest = team > 1 && lags.nxyz / team < 4 * kLagRun ? kLagRun / 2 : kLagRun;
    LagProgress progress(verbose, lags.nxyz, dealing, team);
    int run = 0;
    map.ForEachRun(longest, [&](const int* index, int length) {
      if (run++ % team != thread || job.Aborted()) return;
      const int nvalues = map.ComputeRun(index, length);
      const int all = done += nvalues;
      if (thread != 0) return;
      progress.Advance(nvalues);
      // What a callback answers is found by Aborted.
      static_cast<void>(job.Report(static_cast<double>(all) / lags.nxyz));
    });
    if (thread == 0) progress.Finish();
  });
  return job.After(0);
}

}  // namespace

int ComputeTwoPointStatistic(TwoPointStatistic statistic, const VORL_IMAGE& in, VORL_IMAGE* out, int varIndex,
                             LagBox box, bool verbose, const Dealing& dealing, SimdLevel level) noexcept {
  if (varIndex < 0 || varIndex >= in.nvar) return kVariableIndex;
  if (in.grid == nullptr) return kNotAllocated;
  if (const int status = CheckLags(*in.grid, box); status != 0) return status;
  if (const int status = CheckImage(in); status != 0) return status;
  VORL_GRID grid;
  if (const int status = MakeLagGrid(*in.grid, box, &grid); status != 0) return status;
  if (const int status = MakeOutputImage(in, varIndex, 1, grid, kSuffixes[static_cast<int>(statistic)], out);
      status != 0) {
    return status;
  }

  return ComputeLagMap(statistic, {*in.grid, VariableOf(in, varIndex), MissingMark::kNumber}, box, grid,
                       {out->var, nullptr, nullptr}, verbose, dealing, level, Progress(nullptr, nullptr));
}

int ComputeTwoPointSums(TwoPointStatistic statistic, const VORL_GRID& grid, const double* values,
                        const int (&maxLag)[3], const Dealing& dealing, const Progress& progress, double* sums,
                        std::int64_t* pairs) noexcept {
  LagBox box;
  for (int a = 0; a < 3; ++a) box.axis[a] = {-maxLag[a], maxLag[a], 1};
  VORL_GRID lags;
  if (const int status = MakeLagGrid(grid, box, &lags); status != 0) return status;
  return ComputeLagMap(statistic, {grid, values, MissingMark::kNaN}, box, lags, {nullptr, sums, pairs}, false, dealing,
                       BestSimdLevel(), progress);
}

}  // namespace kestrum

using namespace kestrum;

int VORLImageVariogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax, int hxStep,
                       int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep, BOOLEAN verbose) noexcept {
  return ComputeTwoPointStatistic(kVariogram, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Serial());
}

int VORLOMPImageVariogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax, int hxStep,
                          int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep, BOOLEAN verbose,
                          int nthreads) noexcept {
  return ComputeTwoPointStatistic(kVariogram, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Threads(nthreads));
}

int VORLImageCovariance(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax, int hxStep,
                        int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep, BOOLEAN verbose) noexcept {
  return ComputeTwoPointStatistic(kCovariance, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Serial());
}

int VORLOMPImageCovariance(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax, int hxStep,
                           int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep, BOOLEAN verbose,
                           int nthreads) noexcept {
  return ComputeTwoPointStatistic(kCovariance, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Threads(nthreads));
}

int VORLImageCovarianceNotCentred(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                  int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                  BOOLEAN verbose) noexcept {
  return ComputeTwoPointStatistic(kCovarianceNotCentred, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Serial());
}

int VORLOMPImageCovarianceNotCentred(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                     int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                     BOOLEAN verbose, int nthreads) noexcept {
  return ComputeTwoPointStatistic(kCovarianceNotCentred, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Threads(nthreads));
}

int VORLImageCorrelogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax, int hxStep,
                         int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep, BOOLEAN verbose) noexcept {
  return ComputeTwoPointStatistic(kCorrelogram, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Serial());
}

int VORLOMPImageCorrelogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax, int hxStep,
                            int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep, BOOLEAN verbose,
                            int nthreads) noexcept {
  return ComputeTwoPointStatistic(kCorrelogram, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Threads(nthreads));
}

int VORLImageTransiogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax, int hxStep,
                         int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep, BOOLEAN verbose) noexcept {
  return ComputeTwoPointStatistic(kTransiogram, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Serial());
}

int VORLOMPImageTransiogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax, int hxStep,
                            int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep, BOOLEAN verbose,
                            int nthreads) noexcept {
  return ComputeTwoPointStatistic(kTransiogram, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Threads(nthreads));
}

int VORLImageConnectivityFunction0(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                   int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                   BOOLEAN verbose) noexcept {
  return ComputeTwoPointStatistic(kConnectivityFunction0, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Serial());
}

int VORLOMPImageConnectivityFunction0(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                      int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                      BOOLEAN verbose, int nthreads) noexcept {
  return ComputeTwoPointStatistic(kConnectivityFunction0, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Threads(nthreads));
}

int VORLImageConnectivityFunction1(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                   int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                   BOOLEAN verbose) noexcept {
  return ComputeTwoPointStatistic(kConnectivityFunction1, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Serial());
}

int VORLOMPImageConnectivityFunction1(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                      int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                      BOOLEAN verbose, int nthreads) noexcept {
  return ComputeTwoPointStatistic(kConnectivityFunction1, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Threads(nthreads));
}

int VORLImageConnectivityFunction2(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                   int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                   BOOLEAN verbose) noexcept {
  return ComputeTwoPointStatistic(kConnectivityFunction2, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Serial());
}

int VORLOMPImageConnectivityFunction2(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                      int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                      BOOLEAN verbose, int nthreads) noexcept {
  return ComputeTwoPointStatistic(kConnectivityFunction2, *imageIn, imageOut, varIndex,
                                  {{{hxMin, hxMax, hxStep}, {hyMin, hyMax, hyStep}, {hzMin, hzMax, hzStep}}},
                                  verbose != FALSE, Dealing::Threads(nthreads));
}
