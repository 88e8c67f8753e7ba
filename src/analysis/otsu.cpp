#include "analysis/otsu.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>

#include "analysis/extremes.hpp"
#include "core/buffer.hpp"
#include "core/statuses.hpp"

namespace kestrum {
namespace {

constexpr int kBins = 65536;
constexpr std::ptrdiff_t kFewValues = 4096;  // take less time than bins
constexpr double kTolerance = 1e-3;          // of the variance between classes

// Values, from `least` on, in bins of one width. The halves keep differences of any numbers finite.
class Bins {
 public:
  Bins(double least, double greatest, bool whole) noexcept
      : start_(0.5 * least),
        exact_(whole && greatest - least < kBins),
        size_(exact_ ? static_cast<int>(greatest - least) + 1 : kBins),
        perUnit_(exact_ ? 2.0 : kBins / (0.5 * greatest - start_)) {}

  bool exact() const noexcept { return exact_; }  // a bin is one whole number
  bool usable() const noexcept { return std::isfinite(perUnit_); }
  std::size_t size() const noexcept { return static_cast<std::size_t>(size_); }
  int operator()(double value) const noexcept {
    return static_cast<int>(std::min<double>((0.5 * value - start_) * perUnit_, size_ - 1));
  }

 private:
  double start_;
  bool exact_;
  int size_;
  double perUnit_;
};

// Positions with weights, in increasing order, cut into classes by dynamic programming. The best first position of the
// last class does not decrease with the end of the class, so that half of the ends of a range are looked for on each
// side of the one of its middle.
class WeightedPositions {
 public:
  [[nodiscard]] int Allocate(std::size_t size) noexcept {
    if (const int status = count_.Allocate(size + 1); status != 0) return status;
    return moment_.Allocate(size + 1);
  }
  void Add(double position, double weight) noexcept {
    ++size_;
    count_[size_] = weight;
    moment_[size_] = position;
  }
  std::size_t size() const noexcept { return size_; }

  // Finds the first positions of the classes but for the first one.
  [[nodiscard]] int Cut(int nclass, const Progress& progress, std::size_t* begin) noexcept {
    Accumulate();
    if (progress.Aborted()) return kAborted;
    const std::size_t nlayer = static_cast<std::size_t>(nclass) - 2;  // of which all ends are needed
    Buffer<double> best;
    Buffer<double> next;
    Buffer<int> from;
    if (const int status = best.Allocate(size_ + 1); status != 0) return status;
    if (const int status = next.Allocate(size_ + 1); status != 0) return status;
    if (const int status = from.Allocate(nlayer * (size_ + 1) + 1); status != 0) return status;
    for (std::size_t end = 1; end <= size_; ++end) best[end] = Score(0, end);
    const double share = 1.0 / static_cast<double>(nlayer);
    for (std::size_t layer = 0; layer < nlayer; ++layer) {
      Search search{best.data(), next.data(), from.data() + layer * (size_ + 1),
                    progress.Step(static_cast<double>(layer) * share, static_cast<double>(layer + 1) * share)};
      ExtendRange(search, layer + 2, size_, layer + 1, size_ - 1);
      if (progress.Aborted()) return kAborted;
      std::swap(best, next);
    }
    double value = 0.0;
    std::size_t end = BestBegin(best.data(), size_, nlayer + 1, size_ - 1, &value);
    between_ = value;
    for (std::size_t layer = nlayer;; --layer) {
      begin[layer] = end;
      if (layer == 0) return 0;
      end = static_cast<std::size_t>(from[(layer - 1) * (size_ + 1) + end]);
    }
  }

  // Sums of squares: between the classes of the last cuts, and about the mean.
  double between() const noexcept { return between_; }
  double total() const noexcept { return total_; }

 private:
  struct Search {
    const double* best;
    double* next;
    int* from;
    const Progress progress;
  };

  // Sums over what lies before each position, positions counted from their mean.
  void Accumulate() noexcept {
    count_[0] = moment_[0] = 0.0;
    double weight = 0.0;
    double sum = 0.0;
    for (std::size_t k = 1; k <= size_; ++k) {
      weight += count_[k];
      sum += count_[k] * moment_[k];
    }
    const double mean = sum / weight;
    for (std::size_t k = 1; k <= size_; ++k) {
      const double position = moment_[k] - mean;
      total_ += count_[k] * position * position;
      moment_[k] = moment_[k - 1] + count_[k] * position;
      count_[k] += count_[k - 1];
    }
  }

  double Score(std::size_t begin, std::size_t end) const noexcept {
    const double moment = moment_[end] - moment_[begin];
    return moment * moment / (count_[end] - count_[begin]);
  }

  // The best first position of a class that ends at `end`, from `low` to `high`.
  std::size_t BestBegin(const double* best, std::size_t end, std::size_t low, std::size_t high,
                        double* value) const noexcept {
    std::size_t found = low;
    *value = best[low] + Score(low, end);
    for (std::size_t begin = low + 1; begin <= high; ++begin) {
      const double candidate = best[begin] + Score(begin, end);
      if (candidate > *value) {
        *value = candidate;
        found = begin;
      }
    }
    return found;
  }

  void ExtendRange(const Search& search, std::size_t first, std::size_t last, std::size_t low,
                   std::size_t high) const noexcept {
    // Ends are done in order, but for those in the middle. Short ranges would report too often.
    while (first <= last && search.progress.GoesOn(last - first > 1000, static_cast<std::ptrdiff_t>(first),
                                                   static_cast<std::ptrdiff_t>(size_))) {
      const std::size_t middle = first + (last - first) / 2;
      const std::size_t found = BestBegin(search.best, middle, low, std::min(high, middle - 1), search.next + middle);
      search.from[middle] = static_cast<int>(found);
      ExtendRange(search, first, middle - 1, low, found);
      first = middle + 1;
      low = found;
    }
  }

  std::size_t size_ = 0;
  Buffer<double> count_;
  Buffer<double> moment_;
  double between_ = 0.0;
  double total_ = 0.0;
};

template <typename T>
class OtsuSearch {
 public:
  OtsuSearch(std::ptrdiff_t n, const T* values, int nclass, const Dealing& dealing, const Progress& progress,
             OtsuCuts* found) noexcept
      : n_(n), values_(values), nclass_(nclass), dealing_(dealing), progress_(progress), found_(found) {}

  int Run() noexcept {
    if (const int status = begin_.Allocate(static_cast<std::size_t>(nclass_)); status != 0) return status;
    if (const int status = FindExtremes(n_, values_, dealing_, progress_.Step(0.0, 0.2), &ends_); status != 0) {
      return status;
    }
    if (ends_.least > ends_.greatest) return 0;  // all are NaN
    found_->infinite = std::isinf(ends_.least) || std::isinf(ends_.greatest);
    found_->distinct = 1;
    if (found_->infinite || ends_.least == ends_.greatest) return 0;
    const Bins bins(ends_.least, ends_.greatest, std::is_integral_v<T>);
    bool enough = false;
    double begin = 0.2;
    if (bins.exact() || (bins.usable() && n_ > kFewValues)) {
      if (const int status = CutBins(bins, &enough); status != 0) return status;
      begin = 0.7;
    }
    return enough ? 0 : CutValues(progress_.Step(begin, 1.0));
  }

 private:
  // Pieces between two looks at whether to stop.
  static constexpr std::ptrdiff_t kPiece = 1 << 20;

  template <typename Body>
  static void ForPieces(const ItemBlock& block, const Progress& progress, const Body& body) noexcept {
    for (std::ptrdiff_t begin = block.begin; begin < block.end && progress.GoesOn(block.begin == 0, begin, block.end);
         begin += kPiece) {
      body(begin, std::min(block.end, begin + kPiece));
    }
  }

  // *enough: whether the cuts are known to be good.
  int CutBins(const Bins& bins, bool* enough) noexcept {
    const std::size_t nthread = static_cast<std::size_t>(dealing_.nscratch());
    Buffer<std::int32_t> counts;
    if (const int status = counts.Allocate(nthread * bins.size(), 0); status != 0) return status;
    const Progress ofCounts = progress_.Step(0.2, 0.5);
    dealing_.EachThread([&](int thread, int team) noexcept {
      const ItemBlock block = BlockOf(n_, team, thread);
      std::int32_t* const own = counts.data() + static_cast<std::size_t>(thread) * bins.size();
      ForPieces(block, ofCounts, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
        for (std::ptrdiff_t i = begin; i < end; ++i) {
          const double value = static_cast<double>(values_[i]);
          if (std::is_integral_v<T> || value == value) ++own[bins(value)];
        }
      });
    });
    if (progress_.Aborted()) return kAborted;

    WeightedPositions positions;
    Buffer<int> binOf;
    if (const int status = positions.Allocate(bins.size()); status != 0) return status;
    if (const int status = binOf.Allocate(bins.size()); status != 0) return status;
    double weight = 0.0;
    for (std::size_t bin = 0; bin < bins.size(); ++bin) {
      std::int64_t count = 0;
      for (std::size_t t = 0; t < nthread; ++t) count += counts[t * bins.size() + bin];
      if (count == 0) continue;
      binOf[positions.size()] = static_cast<int>(bin);
      positions.Add(static_cast<double>(bin), static_cast<double>(count));
      weight += static_cast<double>(count);
    }
    found_->distinct = static_cast<std::ptrdiff_t>(positions.size());
    if (found_->distinct < nclass_) {
      *enough = bins.exact();
      return 0;
    }
    if (const int status = positions.Cut(nclass_, progress_.Step(0.5, 0.7), begin_.data()); status != 0) return status;
    *enough = bins.exact() || LosesLittle(positions.between(), positions.total(), weight);
    if (!*enough) return 0;
    return TakeLeastOf(bins, binOf);
  }

  // Moving each value to the middle of its bin changes the root of a sum of squares within classes, or between them, by
  // that of the movements at most: those of the classes found, and of the best ones.
  static bool LosesLittle(double between, double total, double weight) noexcept {
    const double moved = 0.5 * std::sqrt(weight);
    const double within = std::sqrt(std::max(total - between, 0.0));
    const double greatest = within + moved;
    const double least = std::max(within - moved, 0.0);
    const double separated = std::max(std::sqrt(between) - moved, 0.0);
    return greatest * greatest - least * least <= kTolerance * separated * separated;
  }

  // Each cut is the least value of the bin that begins a class.
  int TakeLeastOf(const Bins& bins, const Buffer<int>& binOf) noexcept {
    const std::size_t ncut = static_cast<std::size_t>(nclass_) - 1;
    const std::size_t nthread = static_cast<std::size_t>(dealing_.nscratch());
    Buffer<int> cutOf;  // by bin: the number of the cut, or none
    Buffer<double> least;
    if (const int status = cutOf.Allocate(bins.size(), -1); status != 0) return status;
    if (const int status = least.Allocate(nthread * ncut, std::numeric_limits<double>::infinity()); status != 0) {
      return status;
    }
    const Progress last = progress_.Step(0.7, 1.0);
    for (std::size_t c = 0; c < ncut; ++c) cutOf[static_cast<std::size_t>(binOf[begin_[c]])] = static_cast<int>(c);
    dealing_.EachThread([&](int thread, int team) noexcept {
      const ItemBlock block = BlockOf(n_, team, thread);
      double* const own = least.data() + static_cast<std::size_t>(thread) * ncut;
      ForPieces(block, last, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
        for (std::ptrdiff_t i = begin; i < end; ++i) {
          const double value = static_cast<double>(values_[i]);
          if (!std::is_integral_v<T> && value != value) continue;
          const int cut = cutOf[static_cast<std::size_t>(bins(value))];
          if (cut >= 0) own[cut] = std::min(own[cut], value);
        }
      });
    });
    for (std::size_t c = 0; c < ncut; ++c) {
      found_->cuts[c] = least[c];
      for (std::size_t t = 1; t < nthread; ++t) found_->cuts[c] = std::min(found_->cuts[c], least[t * ncut + c]);
    }
    return progress_.After(0);
  }

  // Piece by piece, which are then merged.
  [[nodiscard]] static int Sort(std::ptrdiff_t size, const Progress& progress, Buffer<double>* values) noexcept {
    Buffer<double> merged;
    if (const int status = merged.Allocate(values->size()); status != 0) return status;
    ForPieces({0, size}, progress.Step(0.0, 0.6), [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      std::sort(values->data() + begin, values->data() + end);
    });
    const double share = 0.4 / std::bit_width(static_cast<std::size_t>(size / kPiece));
    double done = 0.6;
    for (std::ptrdiff_t length = kPiece; length < size; length *= 2) {
      const Progress merging = progress.Step(done, done + share);
      done += share;
      for (std::ptrdiff_t begin = 0; begin < size && merging.GoesOn(true, begin, size); begin += 2 * length) {
        double* const first = values->data() + begin;
        double* const middle = values->data() + std::min(size, begin + length);
        double* const last = values->data() + std::min(size, begin + 2 * length);
        std::merge(first, middle, middle, last, merged.data() + begin);
      }
      std::swap(*values, merged);
    }
    return progress.After(0);
  }

  // The exact way, on all distinct values.
  int CutValues(const Progress& progress) noexcept {
    Buffer<double> sorted;
    if (const int status = sorted.Allocate(static_cast<std::size_t>(n_)); status != 0) return status;
    double* end = sorted.data();
    ForPieces({0, n_}, progress.Step(0.0, 0.1), [&](std::ptrdiff_t begin, std::ptrdiff_t stop) noexcept {
      for (std::ptrdiff_t i = begin; i < stop; ++i) {
        const double value = static_cast<double>(values_[i]);
        if (value == value) *end++ = value;
      }
    });
    const std::ptrdiff_t known = end - sorted.data();
    if (const int status = Sort(known, progress.Step(0.1, 0.4), &sorted); status != 0) return status;
    end = sorted.data() + known;

    WeightedPositions positions;
    if (const int status = positions.Allocate(static_cast<std::size_t>(end - sorted.data())); status != 0)
      return status;
    const double range = 0.5 * ends_.greatest - 0.5 * ends_.least;
    double* distinct = sorted.data();
    for (const double* from = sorted.data(); from < end && !progress.Aborted(); ++distinct) {
      const double value = *from;
      const double* const first = from;
      while (from < end && *from == value) ++from;
      *distinct = value;
      positions.Add((0.5 * value - 0.5 * ends_.least) / range, static_cast<double>(from - first));
    }
    found_->distinct = static_cast<std::ptrdiff_t>(positions.size());
    if (found_->distinct < nclass_) return progress.After(0);
    if (const int status = positions.Cut(nclass_, progress.Step(0.4, 1.0), begin_.data()); status != 0) return status;
    for (int c = 0; c < nclass_ - 1; ++c) found_->cuts[c] = sorted[begin_[static_cast<std::size_t>(c)]];
    return 0;
  }

  const std::ptrdiff_t n_;
  const T* const values_;
  const int nclass_;
  const Dealing dealing_;
  const Progress progress_;
  OtsuCuts* const found_;
  Extremes ends_;
  Buffer<std::size_t> begin_;
};

}  // namespace

template <typename T>
int FindOtsuCuts(std::ptrdiff_t n, const T* values, int nclass, const Dealing& dealing, const Progress& progress,
                 OtsuCuts* found) noexcept {
  return OtsuSearch<T>(n, values, nclass, dealing, progress, found).Run();
}

template int FindOtsuCuts(std::ptrdiff_t, const unsigned char*, int, const Dealing&, const Progress&,
                          OtsuCuts*) noexcept;
template int FindOtsuCuts(std::ptrdiff_t, const int*, int, const Dealing&, const Progress&, OtsuCuts*) noexcept;
template int FindOtsuCuts(std::ptrdiff_t, const float*, int, const Dealing&, const Progress&, OtsuCuts*) noexcept;
template int FindOtsuCuts(std::ptrdiff_t, const double*, int, const Dealing&, const Progress&, OtsuCuts*) noexcept;

}  // namespace kestrum
