#include "analysis/thresholding.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>

#include "analysis/percent_printer.hpp"
#include "core/buffer.hpp"
#include "core/statuses.hpp"
#include "core/variables.hpp"
#include "numeric/special_functions.h"

namespace kestrum {
namespace {

constexpr char kOtsuLabel[] = "Computing Otsu thresholding";

// A copy of values in ascending order, NaN last.
class SortedValues {
 public:
  enum class Missing { kKept, kLeftOut };

  [[nodiscard]] int Take(int n, const real* values, Missing missing) noexcept {
    if (const int status = values_.Allocate(static_cast<std::size_t>(n)); status != 0) return status;
    size_ = 0;
    for (int i = 0; i < n; ++i) {
      if (missing == Missing::kKept || !IsMissing(values[i])) values_[size_++] = values[i];
    }
    real* const end = values_.data() + size_;
    std::sort(values_.data(), std::partition(values_.data(), end, [](real v) { return !std::isnan(v); }));
    return 0;
  }

  std::size_t size() const noexcept { return size_; }
  real operator[](std::size_t i) const noexcept { return values_[i]; }

  // The first position from `begin` to `end` whose value is not below the limit.
  std::size_t FirstAtOrAbove(real limit, std::size_t begin, std::size_t end) const noexcept {
    return static_cast<std::size_t>(std::lower_bound(values_.data() + begin, values_.data() + end, limit) -
                                    values_.data());
  }

 private:
  Buffer<real> values_;
  std::size_t size_ = 0;
};

// The distinct ones among at least one sorted value.
struct Distribution {
  Buffer<real> value;
  Buffer<real> frequency;
  std::size_t size = 0;

  [[nodiscard]] int Build(const SortedValues& sorted) noexcept {
    if (const int status = value.Allocate(sorted.size()); status != 0) return status;
    if (const int status = frequency.Allocate(sorted.size()); status != 0) return status;
    const double total = static_cast<double>(sorted.size());
    for (std::size_t i = 0, end = 0; i < sorted.size(); i = end) {
      for (end = i + 1; end < sorted.size() && sorted[end] == sorted[i];) ++end;
      value[size] = sorted[i];
      frequency[size++] = static_cast<double>(end - i) / total;
    }
    return 0;
  }
};

// The class of a value is the first whose threshold is above it; a missing value stays missing.
void ClassifyByThresholds(int n, const real* values, int nclass, const real* thresholds, real* classIndex) noexcept {
  for (int i = 0; i < n; ++i) {
    int c = 0;
    const bool missing = IsMissing(values[i]);
    while (!missing && c < nclass - 1 && !(values[i] < thresholds[c])) ++c;
    classIndex[i] = missing ? VORL_MISSING_VALUE : c;
  }
}

double CoolingDivisor(int coolingScheme, double t) noexcept {
  return coolingScheme == 0 ? std::log(t + 2.0) : coolingScheme == 1 ? std::sqrt(t + 1.0) : t + 1.0;
}

// Class limits on their way through the annealing. Class c holds the sorted values from position begin[c] up to
// begin[c + 1].
class Annealing {
 public:
  [[nodiscard]] int Start(const SortedValues& sorted, int nclass, const real* limits) noexcept {
    sorted_ = &sorted;
    nclass_ = static_cast<std::size_t>(nclass);
    if (const int status = limits_.Allocate(nclass_ + 1); status != 0) return status;
    if (const int status = begin_.Allocate(nclass_ + 1); status != 0) return status;
    if (const int status = scores_.Allocate(nclass_); status != 0) return status;
    std::copy_n(limits, nclass_ + 1, limits_.data());
    for (std::size_t c = 0; c < nclass_; ++c) begin_[c] = sorted.FirstAtOrAbove(limits[c], 0, sorted.size());
    begin_[nclass_] = sorted.size();
    total_ = 0.0;
    for (std::size_t c = 0; c < nclass_; ++c) total_ += scores_[c] = Score(begin_[c], begin_[c + 1]);
    // The last class deliberately starts with its plain sum: the first change of it subtracts that from the total.
    scores_[nclass_ - 1] = SumOfSquares(begin_[nclass_ - 1], begin_[nclass_]);
    best_ = total_;
    return 0;
  }

  // Copies the limits to bestLimits if no state before was tried with such a score.
  void Step(real temperature, VORL_RANDCONTEXT* randContext, real* bestLimits) noexcept {
    const std::size_t b = DrawInnerLimit(randContext);
    const real room = limits_[b + 1] - limits_[b - 1];
    const real position = limits_[b - 1] + VORLDoubleRand(0, randContext) * room;
    const std::size_t border = sorted_->FirstAtOrAbove(position, begin_[b - 1], std::max(begin_[b - 1], begin_[b + 1]));
    const double below = Score(begin_[b - 1], border);
    const double above = Score(border, begin_[b + 1]);
    const double candidate = total_ - scores_[b - 1] - scores_[b] + below + above;
    const double p = std::exp((candidate - total_) / temperature);
    if (VORLDoubleRand(0, randContext) < p) {
      limits_[b] = position;
      begin_[b] = border;
      scores_[b - 1] = below;
      scores_[b] = above;
      total_ = candidate;
    }
    if (candidate > best_) {
      best_ = candidate;
      std::copy_n(limits_.data(), nclass_ + 1, bestLimits);
    }
  }

 private:
  double SumOfSquares(std::size_t begin, std::size_t end) const noexcept {
    double sum = 0.0;
    for (std::size_t i = begin; i < end; ++i) sum += (*sorted_)[i] * (*sorted_)[i];
    return sum;
  }
  double Score(std::size_t begin, std::size_t end) const noexcept {
    return begin < end ? SumOfSquares(begin, end) / static_cast<double>(end - begin) : 0.0;
  }

  // With a probability proportional to the room between the neighbouring limits.
  std::size_t DrawInnerLimit(VORL_RANDCONTEXT* randContext) const noexcept {
    const real* const limit = limits_.data();
    const real allRoom = limit[nclass_] - limit[0] + limit[nclass_ - 1] - limit[1];
    const real draw = VORLDoubleRand(0, randContext) * allRoom;
    std::size_t b = 1;
    for (real sum = limit[2] - limit[0]; b < nclass_ - 1 && sum < draw; ++b) sum += limit[b + 2] - limit[b];
    return b;
  }

  const SortedValues* sorted_ = nullptr;
  std::size_t nclass_ = 0;
  Buffer<real> limits_;
  Buffer<std::size_t> begin_;
  Buffer<double> scores_;
  double total_ = 0.0;
  double best_ = 0.0;
};

int FindClassLimits(int n, const real* values, int nclass, real* classLimit, int nstep, real temperature,
                    int coolingScheme, VORL_RANDCONTEXT* randContext, PercentPrinter& progress) noexcept {
  SortedValues sorted;
  if (const int status = sorted.Take(n, values, SortedValues::Missing::kKept); status != 0) return status;
  if (nclass == 1) {
    classLimit[0] = sorted[0];
    classLimit[1] = sorted[sorted.size() - 1];
    return 0;
  }
  Distribution distribution;
  if (const int status = distribution.Build(sorted); status != 0) return status;
  const std::size_t nlimit = static_cast<std::size_t>(nclass) + 1;
  if (distribution.size < nlimit) {
    for (std::size_t j = 0; j < nlimit; ++j) classLimit[j] = distribution.value[std::min(j, distribution.size - 1)];
    return 0;
  }

  Buffer<real> cdf;
  Buffer<real> levels;
  if (const int status = cdf.Allocate(distribution.size); status != 0) return status;
  if (const int status = levels.Allocate(nlimit); status != 0) return status;
  for (int k = 0; k <= nclass; ++k) levels[static_cast<std::size_t>(k)] = static_cast<real>(k) / nclass;
  const int nvalue = static_cast<int>(distribution.size);
  VORLPdfToCdf(nvalue, distribution.frequency.data(), cdf.data());
  VORLQuantileFromCdf(nvalue, distribution.value.data(), cdf.data(), nclass + 1, levels.data(), classLimit);

  Annealing annealing;
  if (const int status = annealing.Start(sorted, nclass, classLimit); status != 0) return status;
  for (int t = 0; t < nstep; ++t) {
    progress.Report(static_cast<int>(static_cast<double>(t) / nstep * 100.0));
    annealing.Step(temperature / CoolingDivisor(coolingScheme, t), randContext, classLimit);
  }
  return 0;
}

// Pre-classes of equal width, joined to groups of consecutive ones in every possible way.
class PreClasses {
 public:
  // `limits` lie between the pre-classes.
  [[nodiscard]] int Count(const SortedValues& sorted, const Buffer<real>& limits) noexcept {
    size_ = limits.size() + 1;
    if (const int status = count_.Allocate(size_ + 1, 0.0); status != 0) return status;
    if (const int status = moment_.Allocate(size_ + 1, 0.0); status != 0) return status;
    for (std::size_t i = 0, k = 0; i < sorted.size(); ++i) {
      while (k < limits.size() && sorted[i] >= limits[k]) ++k;
      count_[k + 1] += 1.0;
    }
    for (std::size_t k = 0; k < size_; ++k) {
      moment_[k + 1] = moment_[k] + static_cast<double>(k) * count_[k + 1];
      count_[k + 1] += count_[k];
    }
    return 0;
  }

  // Finds the cuts of the best grouping, the first one of several: cut g comes after the last pre-class of group g.
  // Groupings that mirror each other have one score but for its rounding, which does not decide between them: those to
  // the rounding as good as the best one are looked through in their order.
  [[nodiscard]] int FindBestCuts(std::size_t ngroup, PercentPrinter& progress, Buffer<std::size_t>* best) noexcept {
    ReportMoves(ngroup - 1, progress);
    if (const int status = best->Allocate(ngroup - 1); status != 0) return status;
    Grouping grouping{ngroup, 4.0 * static_cast<double>(ngroup) * std::numeric_limits<double>::epsilon(), best->data()};
    if (const int status = grouping.rest.Allocate((ngroup + 1) * (size_ + 1), 0.0); status != 0) return status;
    if (const int status = grouping.cuts.Allocate(ngroup - 1); status != 0) return status;
    for (std::size_t g = ngroup; g-- > 0;) {
      for (std::size_t begin = g; begin + (ngroup - g) <= size_; ++begin) {
        const auto [first, last] = Ends(ngroup, g, begin);
        double most = 0.0;
        for (std::size_t end = first; end <= last; ++end) {
          most = std::max(most, Score(begin, end) + grouping.Rest(size_, g + 1, end));
        }
        grouping.Rest(size_, g, begin) = most;
      }
    }
    grouping.most = grouping.Rest(size_, 0, 0);
    Look(&grouping, 0, 0, 0.0);
    return 0;
  }

 private:
  struct Grouping {
    std::size_t ngroup;
    double rounding;  // relative
    std::size_t* best;
    double bestScore = -1.0;
    double most = 0.0;         // the best score, but for its rounding
    Buffer<double> rest = {};  // the best score of the groups from each on, from each pre-class on
    Buffer<std::size_t> cuts = {};

    double& Rest(std::size_t size, std::size_t g, std::size_t begin) noexcept { return rest[g * (size + 1) + begin]; }
  };

  // Where group g, from `begin` on, may end.
  std::pair<std::size_t, std::size_t> Ends(std::size_t ngroup, std::size_t g, std::size_t begin) const noexcept {
    return {g + 1 == ngroup ? size_ : begin + 1, size_ - (ngroup - 1 - g)};
  }

  // Looks through the groupings whose first g groups, which end before `begin`, have this score, and keeps what is
  // better than the best one. Returns whether none behind can be better.
  bool Look(Grouping* grouping, std::size_t g, std::size_t begin, double score) const noexcept {
    const double rounding = grouping->rounding;
    if (g == grouping->ngroup) {
      if (grouping->bestScore < 0.0 || score - grouping->bestScore > rounding * grouping->bestScore) {
        grouping->bestScore = score;
        std::copy(grouping->cuts.begin(), grouping->cuts.end(), grouping->best);
      }
      return grouping->most * (1.0 + 0.5 * rounding) - grouping->bestScore <= rounding * grouping->bestScore;
    }
    const auto [first, last] = Ends(grouping->ngroup, g, begin);
    for (std::size_t end = first; end <= last; ++end) {
      const double grown = score + Score(begin, end);
      if (grown + grouping->Rest(size_, g + 1, end) < grouping->most * (1.0 - 4.0 * rounding)) continue;
      if (g + 1 < grouping->ngroup) grouping->cuts[g] = end - 1;
      if (Look(grouping, g + 1, end, grown)) return true;
    }
    return false;
  }

  // Reports what would be done by one move after the other of the cuts.
  void ReportMoves(std::size_t ncut, PercentPrinter& progress) const noexcept {
    double moveCount = 1.0;
    double nmove = 1.0;
    for (std::size_t k = 1; k <= ncut; ++k) {
      moveCount = moveCount * static_cast<double>(size_ - ncut + k) / static_cast<double>(k);
      nmove = nmove * static_cast<double>(size_ - 1 - ncut + k) / static_cast<double>(k);
    }
    const double moveShare = 1.0 / moveCount;
    progress.Report(0, static_cast<std::int64_t>(std::min(nmove, 0x1p53)), [&](std::int64_t move) noexcept {
      return static_cast<int>(static_cast<double>(move) * moveShare * 100.0);
    });
  }

  // Sums of whole numbers are exact.
  double Score(std::size_t begin, std::size_t end) const noexcept {
    const double total = count_[size_];
    const double p = (count_[end] - count_[begin]) / total;
    const double m = (moment_[end] - moment_[begin]) / total;
    return p < VORL_EPSILON ? 0.0 : m * m / p;
  }

  std::size_t size_ = 0;
  Buffer<double> count_;   // of the values in the pre-classes before each, and in all
  Buffer<double> moment_;  // the same, each value counting as the number of its pre-class
};

int FindThresholds(const SortedValues& sorted, int npreclass, int nclass, real* thresholds,
                   PercentPrinter& progress) noexcept {
  std::fill_n(thresholds, nclass - 1, VORL_INFINITY);
  const real min = sorted[0];
  const real width = (sorted[sorted.size() - 1] - min) / npreclass;
  if (width < VORL_EPSILON) return 0;
  Buffer<real> limits;
  if (const int status = limits.Allocate(static_cast<std::size_t>(npreclass) - 1); status != 0) return status;
  real limit = min;
  for (real& between : limits) between = limit += width;
  if (npreclass <= nclass) {
    std::copy(limits.begin(), limits.end(), thresholds);
    return 0;
  }
  PreClasses preClasses;
  Buffer<std::size_t> cuts;
  if (const int status = preClasses.Count(sorted, limits); status != 0) return status;
  if (const int status = preClasses.FindBestCuts(static_cast<std::size_t>(nclass), progress, &cuts); status != 0) {
    return status;
  }
  for (const std::size_t cut : cuts) *thresholds++ = limits[cut];
  return 0;
}

// Ends each class where the sum of its frequencies is nearest to its proportion.
int CutByProportions(const SortedValues& sorted, int nclass, const real* pdf, real* thresholds) noexcept {
  if (sorted.size() == 0) {
    std::fill_n(thresholds, nclass - 1, VORL_MISSING_VALUE);
    return 0;
  }
  Distribution distribution;
  if (const int status = distribution.Build(sorted); status != 0) return status;
  std::size_t position = 0;  // the first distinct value above the classes so far
  for (int c = 0; c < nclass - 1; ++c) {
    double sum = 0.0;
    while (position < distribution.size && !(sum > pdf[c])) {
      const double last = distribution.frequency[position++];
      sum += last;
      if (sum > pdf[c] && sum - pdf[c] > pdf[c] - (sum - last)) --position;
    }
    thresholds[c] = distribution.value[std::min(position, distribution.size - 1)];
  }
  return 0;
}

}  // namespace
}  // namespace kestrum

using namespace kestrum;

int VORLOtsuThresholding(int n, real* values, int nclass, real* classLimit, real* classIndex, int nstep,
                         real temperature, int coolingScheme, VORL_RANDCONTEXT* randContext, BOOLEAN verbose) noexcept {
  if (coolingScheme < 0 || coolingScheme > 2) return kCoolingScheme;
  if (n < 1 || nclass < 1) {
    for (int j = 0; j <= nclass; ++j) classLimit[j] = VORL_MISSING_VALUE;
    for (int i = 0; i < n; ++i) classIndex[i] = VORL_MISSING_VALUE;
    return 0;
  }
  PercentPrinter progress(verbose != FALSE, kOtsuLabel);
  progress.Start();
  if (const int status =
          FindClassLimits(n, values, nclass, classLimit, nstep, temperature, coolingScheme, randContext, progress);
      status != 0) {
    return status;
  }
  for (int i = 0; i < n; ++i) {
    int c = nclass - 1;
    while (c > 0 && !(classLimit[c] <= values[i])) --c;
    classIndex[i] = c;
  }
  progress.Finish();
  return 0;
}

int VORLOtsuThresholdingPreCateg(int n, real* values, int npreclass, int nclass, real* thresholds, real* classIndex,
                                 BOOLEAN verbose) noexcept {
  if (n < 1) return 0;
  if (npreclass < 1 || nclass < 1) {
    std::fill_n(classIndex, n, VORL_MISSING_VALUE);
    return 0;
  }
  PercentPrinter progress(verbose != FALSE, kOtsuLabel);
  progress.Start();
  if (npreclass > 1 && nclass > 1) {
    SortedValues sorted;
    if (const int status = sorted.Take(n, values, SortedValues::Missing::kLeftOut); status != 0) return status;
    if (sorted.size() > 0) {
      const int status = FindThresholds(sorted, npreclass, nclass, thresholds, progress);
      if (status != 0) return status;
    }
  }
  ClassifyByThresholds(n, values, nclass, thresholds, classIndex);
  progress.Finish();
  return 0;
}

int VORLPdfThresholding(int n, real* values, int nclass, real* pdf, real* thresholds, real* classIndex) noexcept {
  if (n < 1) return 0;
  if (nclass < 1) {
    std::fill_n(classIndex, n, VORL_MISSING_VALUE);
    return 0;
  }
  if (nclass > 1) {
    SortedValues sorted;
    if (const int status = sorted.Take(n, values, SortedValues::Missing::kLeftOut); status != 0) return status;
    if (const int status = CutByProportions(sorted, nclass, pdf, thresholds); status != 0) return status;
  }
  ClassifyByThresholds(n, values, nclass, thresholds, classIndex);
  return 0;
}
