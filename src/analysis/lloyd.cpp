#include "analysis/lloyd.hpp"

#include <algorithm>
#include <limits>

#include "analysis/nearest_center.hpp"
#include "core/buffer.hpp"
#include "core/statuses.hpp"
#include "numeric/philox.hpp"

namespace kestrum {
namespace {

constexpr std::ptrdiff_t kChunk = 256;      // samples between two calls of the kernel
constexpr std::ptrdiff_t kBlock = 4096;     // the fewest samples of a block
constexpr std::ptrdiff_t kMostBlocks = 64;  // each has sums of its own

class Lloyd {
 public:
  Lloyd(const LloydSamples& samples, const LloydOptions& options, const Dealing& dealing, const Progress& progress,
        double* centers, int* labels) noexcept
      : samples_(samples),
        options_(options),
        progress_(progress),
        nblock_(std::clamp<std::ptrdiff_t>(samples.n / kBlock, 1, kMostBlocks)),
        dealing_(nblock_ > 1 ? dealing : Dealing::Serial()),
        findNearest_(NearestCenterKernelOf(BestSimdLevel())),
        centers_(centers),
        labels_(labels) {}

  [[nodiscard]] int Allocate() noexcept {
    const auto nfeature = static_cast<std::size_t>(samples_.nfeature);
    const auto nblock = static_cast<std::size_t>(nblock_);
    const auto ncluster = static_cast<std::size_t>(options_.ncluster);
    if (const int status = features_.Allocate(nfeature); status != 0) return status;
    for (std::size_t f = 0; f < nfeature; ++f) {
      features_[f] = samples_.features + static_cast<std::ptrdiff_t>(f) * samples_.n;
    }
    if (const int status = blockSums_.Allocate(nblock * nfeature * ncluster); status != 0) return status;
    if (const int status = blockCounts_.Allocate(nblock * ncluster); status != 0) return status;
    if (const int status = blockChanges_.Allocate(nblock); status != 0) return status;
    if (const int status = blockTotals_.Allocate(nblock); status != 0) return status;
    if (const int status = sums_.Allocate(nfeature * ncluster); status != 0) return status;
    return counts_.Allocate(ncluster);
  }

  // The squared move of the centres that ends the iterations.
  double Tolerance() noexcept {
    double variances = 0.0;
    const double n = static_cast<double>(samples_.n);
    for (int f = 0; f < samples_.nfeature; ++f) {
      const double* const x = features_[static_cast<std::size_t>(f)];
      const double mean = Sum([&](std::ptrdiff_t i) { return x[i]; }) / n;
      variances += Sum([&](std::ptrdiff_t i) { return (x[i] - mean) * (x[i] - mean); }) / n;
    }
    return options_.tolerance * (variances / samples_.nfeature);
  }

  // Takes samples as centres.
  [[nodiscard]] int DrawCenters(int restart) noexcept {
    if (const int status = distance_.Allocate(static_cast<std::size_t>(samples_.n)); status != 0) return status;
    std::fill(distance_.begin(), distance_.end(), std::numeric_limits<double>::infinity());
    double total = static_cast<double>(samples_.n);
    for (int c = 0; c < options_.ncluster && !progress_.Aborted(); ++c) {
      const PhiloxBlock words =
          Philox({static_cast<std::uint32_t>(c), static_cast<std::uint32_t>(restart), 0, 0}, options_.seed);
      const double draw = OpenUniform(PhiloxWord(words, 0)) * total;
      const std::ptrdiff_t drawn =
          c == 0 ? std::min(static_cast<std::ptrdiff_t>(draw), samples_.n - 1) : AtCumulative(draw);
      double* const center = centers_ + std::ptrdiff_t{c} * samples_.nfeature;
      for (int f = 0; f < samples_.nfeature; ++f) center[f] = features_[static_cast<std::size_t>(f)][drawn];
      ForNearest(center, 1, [this](std::ptrdiff_t, std::ptrdiff_t i, int, double distance) noexcept {
        double& least = distance_[static_cast<std::size_t>(i)];
        least = std::min(least, distance);
      });
      total = Sum([this](std::ptrdiff_t i) { return distance_[static_cast<std::size_t>(i)]; });
    }
    return progress_.After(0);
  }

  // The inertia of the centres and labels after the iterations. Calls report(part) with the part done of the most
  // iterations there can be.
  template <typename Report>
  double Iterate(double tolerance, const Report& report) noexcept {
    std::fill_n(labels_, samples_.n, -1);
    double inertia = 0.0;
    bool settled = false;
    for (int it = 0; it < options_.maxIterations && !settled && !progress_.Aborted(); ++it) {
      report(static_cast<double>(it) / options_.maxIterations);
      inertia = Assign(true, &settled);
      if (!settled && Move() <= tolerance) break;
    }
    return settled ? inertia : Assign(false, &settled);
  }

 private:
  // Calls use(block, i, nearest, distance) for each sample, with the nearest of the centres.
  template <typename Use>
  void ForNearest(const double* centers, int ncenter, const Use& use) noexcept {
    dealing_.EachThread([&](int thread, int team) noexcept {
      int nearest[kChunk];
      double distance[kChunk];
      const ItemBlock own = BlockOf(nblock_, team, thread);
      for (std::ptrdiff_t b = own.begin; b < own.end; ++b) {
        const ItemBlock block = BlockOf(samples_.n, nblock_, b);
        for (std::ptrdiff_t begin = block.begin; begin < block.end && !progress_.Aborted(); begin += kChunk) {
          const int count = static_cast<int>(std::min(kChunk, block.end - begin));
          findNearest_(features_.data(), samples_.nfeature, begin, count, centers, ncenter, nearest, distance);
          for (int k = 0; k < count; ++k) use(b, begin + k, nearest[k], distance[k]);
        }
      }
    });
  }

  // The sum of term(i) over the samples, block by block.
  template <typename Term>
  double Sum(const Term& term) noexcept {
    dealing_.Blocks(nblock_, [&](std::ptrdiff_t first, std::ptrdiff_t last) noexcept {
      for (std::ptrdiff_t b = first; b < last; ++b) {
        const ItemBlock block = BlockOf(samples_.n, nblock_, b);
        double sum = 0.0;
        for (std::ptrdiff_t i = block.begin; i < block.end; ++i) sum += term(i);
        blockTotals_[static_cast<std::size_t>(b)] = sum;
      }
    });
    return TotalOfBlocks();
  }

  double TotalOfBlocks() const noexcept {
    double total = 0.0;
    for (const double sum : blockTotals_) total += sum;
    return total;
  }

  // The first sample at which the sum of the distances, of which blockTotals_ has those of the blocks, passes `draw`.
  std::ptrdiff_t AtCumulative(double draw) const noexcept {
    double sum = 0.0;
    std::ptrdiff_t last = 0;  // the last one away from all centres; the first sample, where all lie on centres
    for (std::ptrdiff_t b = 0; b < nblock_; ++b) {
      const double total = blockTotals_[static_cast<std::size_t>(b)];
      if (sum + total <= draw && b + 1 < nblock_) {
        sum += total;
        continue;
      }
      const ItemBlock block = BlockOf(samples_.n, nblock_, b);
      for (std::ptrdiff_t i = block.begin; i < block.end; ++i) {
        const double distance = distance_[static_cast<std::size_t>(i)];
        if (distance == 0.0) continue;
        last = i;
        sum += distance;
        if (sum > draw) return i;
      }
    }
    return last;
  }

  // Labels all samples, and returns the sum of the squared distances.
  double Assign(bool sums, bool* unchanged) noexcept {
    const std::ptrdiff_t nsum = std::ptrdiff_t{options_.ncluster} * samples_.nfeature;
    if (sums) {
      std::fill(blockSums_.begin(), blockSums_.end(), 0.0);
      std::fill(blockCounts_.begin(), blockCounts_.end(), 0);
    }
    std::fill(blockTotals_.begin(), blockTotals_.end(), 0.0);
    std::fill(blockChanges_.begin(), blockChanges_.end(), 0);
    ForNearest(
        centers_, options_.ncluster, [&](std::ptrdiff_t b, std::ptrdiff_t i, int nearest, double distance) noexcept {
          const auto block = static_cast<std::size_t>(b);
          blockChanges_[block] += labels_[i] != nearest;
          blockTotals_[block] += distance;
          labels_[i] = nearest;
          if (!sums) return;
          ++blockCounts_[block * static_cast<std::size_t>(options_.ncluster) + static_cast<std::size_t>(nearest)];
          double* const sum = blockSums_.data() + b * nsum + std::ptrdiff_t{nearest} * samples_.nfeature;
          for (int f = 0; f < samples_.nfeature; ++f) sum[f] += features_[static_cast<std::size_t>(f)][i];
        });
    *unchanged = std::all_of(blockChanges_.begin(), blockChanges_.end(), [](std::int64_t n) { return n == 0; });
    return TotalOfBlocks();
  }

  // Moves the centres to the means of their samples; returns the sum of the squared moves.
  double Move() noexcept {
    const std::size_t nfeature = static_cast<std::size_t>(samples_.nfeature);
    std::fill(sums_.begin(), sums_.end(), 0.0);
    std::fill(counts_.begin(), counts_.end(), 0);
    for (std::size_t k = 0; k < blockSums_.size(); ++k) sums_[k % sums_.size()] += blockSums_[k];
    for (std::size_t k = 0; k < blockCounts_.size(); ++k) counts_[k % counts_.size()] += blockCounts_[k];
    for (std::size_t c = 0; c < counts_.size(); ++c) {
      if (counts_[c] == 0) TakeFarthest(static_cast<int>(c));
    }
    double moved = 0.0;
    for (std::size_t c = 0; c < counts_.size(); ++c) {
      if (counts_[c] == 0) continue;  // all samples lie on centres: it stays
      for (std::size_t f = 0; f < nfeature; ++f) {
        double& center = centers_[c * nfeature + f];
        const double mean = sums_[c * nfeature + f] / static_cast<double>(counts_[c]);
        moved += (mean - center) * (mean - center);
        center = mean;
      }
    }
    return moved;
  }

  // Gives cluster c the sample farthest from its centre, of those that are not alone in their cluster.
  void TakeFarthest(int c) noexcept {
    double farthest = 0.0;
    std::ptrdiff_t taken = -1;
    for (std::ptrdiff_t i = 0; i < samples_.n; ++i) {
      if (counts_[static_cast<std::size_t>(labels_[i])] < 2) continue;
      const double* const center = centers_ + std::ptrdiff_t{labels_[i]} * samples_.nfeature;
      double distance = 0.0;
      for (int f = 0; f < samples_.nfeature; ++f) {
        const double difference = features_[static_cast<std::size_t>(f)][i] - center[f];
        distance += difference * difference;
      }
      if (distance > farthest) {
        farthest = distance;
        taken = i;
      }
    }
    if (taken < 0) return;
    double* const from = sums_.data() + std::ptrdiff_t{labels_[taken]} * samples_.nfeature;
    double* const to = sums_.data() + std::ptrdiff_t{c} * samples_.nfeature;
    for (int f = 0; f < samples_.nfeature; ++f) {
      to[f] = features_[static_cast<std::size_t>(f)][taken];
      from[f] -= to[f];
    }
    --counts_[static_cast<std::size_t>(labels_[taken])];
    ++counts_[static_cast<std::size_t>(c)];
    labels_[taken] = c;
  }

  const LloydSamples samples_;
  const LloydOptions options_;
  const Progress progress_;
  const std::ptrdiff_t nblock_;
  const Dealing dealing_;  // threads would take longer than the work of one block
  const NearestCenterKernel findNearest_;
  double* const centers_;
  int* const labels_;
  Buffer<const double*> features_;
  Buffer<double> blockSums_;  // of the samples of each cluster, by block
  Buffer<std::int64_t> blockCounts_;
  Buffer<std::int64_t> blockChanges_;  // of labels
  Buffer<double> blockTotals_;
  Buffer<double> sums_;
  Buffer<std::int64_t> counts_;
  Buffer<double> distance_;  // from the nearest of the centres drawn
};

}  // namespace

int RunLloyd(const LloydSamples& samples, const LloydOptions& options, const Dealing& dealing, const Progress& progress,
             double* centers, int* labels, double* inertia) noexcept {
  const std::size_t ncenter = static_cast<std::size_t>(options.ncluster) * static_cast<std::size_t>(samples.nfeature);
  Buffer<double> trialCenters;
  Buffer<int> trialLabels;
  if (options.restarts > 1) {
    if (const int status = trialCenters.Allocate(ncenter); status != 0) return status;
    if (const int status = trialLabels.Allocate(static_cast<std::size_t>(samples.n)); status != 0) return status;
  }
  double tolerance = 0.0;
  const int nbeginning = std::max(options.restarts, 1);
  for (int restart = 0; restart < nbeginning; ++restart) {
    const bool isTrial = restart > 0;
    Lloyd lloyd(samples, options, dealing, progress, isTrial ? trialCenters.data() : centers,
                isTrial ? trialLabels.data() : labels);
    if (const int status = lloyd.Allocate(); status != 0) return status;
    if (!isTrial) tolerance = lloyd.Tolerance();
    if (options.restarts > 0) {
      if (const int status = lloyd.DrawCenters(restart); status != 0) return status;
    }
    const double reached = lloyd.Iterate(tolerance, [&](double part) noexcept {
      // What a callback answers is found by Aborted.
      static_cast<void>(progress.Report((restart + part) / nbeginning));
    });
    if (progress.Aborted()) return kAborted;
    if (isTrial && !(reached < *inertia)) continue;
    *inertia = reached;
    if (!isTrial) continue;
    std::copy(trialCenters.begin(), trialCenters.end(), centers);
    std::copy(trialLabels.begin(), trialLabels.end(), labels);
  }
  return 0;
}

}  // namespace kestrum
