#include "analysis/clustering.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "analysis/nearest_center.hpp"
#include "core/array_2d.hpp"
#include "core/buffer.hpp"
#include "core/parallel.hpp"
#include "core/statuses.hpp"

namespace kestrum {
namespace {

struct Points {
  int n;
  int nfeature;
  const double* const* data;
  const char* mask;      // null: all count
  const double* weight;  // null: all weigh the same

  bool Counts(std::ptrdiff_t i) const noexcept { return mask == nullptr || mask[i] != 0; }
  double Weight(std::ptrdiff_t i) const noexcept { return weight == nullptr ? 1.0 : weight[i]; }
};

// The outcome of a run, in arrays of the caller's or of a trial.
struct Clusters {
  double** center;
  double* weight;
  int* assignment;
  int* size;
};

// Threads share the points, or, where points are summed, the features: no sum depends on the number of threads.
class KMeans {
 public:
  KMeans(const Points& points, int ncluster, int nfixed, const Dealing& dealing) noexcept
      : points_(points),
        ncluster_(ncluster),
        nfixed_(nfixed),
        sumStride_((static_cast<std::ptrdiff_t>(ncluster) + kLine - 1) / kLine * kLine),
        dealing_(dealing),
        findNearest_(NearestCenterKernelOf(BestSimdLevel())) {}

  [[nodiscard]] int Allocate() noexcept {
    const std::size_t nfeature = static_cast<std::size_t>(points_.nfeature);
    if (const int status = packed_.Allocate(nfeature * static_cast<std::size_t>(ncluster_)); status != 0) return status;
    if (const int status = sums_.Allocate(nfeature * static_cast<std::size_t>(sumStride_)); status != 0) return status;
    if (const int status = left_.Allocate(static_cast<std::size_t>(points_.n)); status != 0) return status;
    return distance_.Allocate(static_cast<std::size_t>(points_.n));
  }

  // Takes points drawn without replacement as centres.
  [[nodiscard]] int DrawCenters(double** center, VORL_RANDCONTEXT* randContext) noexcept {
    Buffer<int> list;
    if (const int status = list.Allocate(static_cast<std::size_t>(points_.n)); status != 0) return status;
    for (int i = 0; i < points_.n; ++i) list[static_cast<std::size_t>(i)] = i;
    int nleft = points_.n;
    for (int c = nfixed_; c < ncluster_; ++c) {
      int& drawn = list[static_cast<std::size_t>(VORLIntRand(0, nleft, randContext))];
      SetCenter(center, c, drawn);
      std::swap(drawn, list[static_cast<std::size_t>(--nleft)]);
    }
    return 0;
  }

  // Chooses centres far from each other (k-means++). *spread: whether there were points away from all centres.
  [[nodiscard]] int SpreadCenters(double** center, VORL_RANDCONTEXT* randContext, bool* spread) noexcept {
    Buffer<double> cumulative;
    if (const int status = cumulative.Allocate(distance_.size()); status != 0) return status;
    if (nfixed_ == 0) SetCenter(center, 0, VORLIntRand(0, points_.n, randContext));
    std::fill(distance_.begin(), distance_.end(), std::numeric_limits<double>::infinity());
    *spread = true;
    for (int chosen = 0, c = std::max(nfixed_, 1); c < ncluster_; chosen = c++) {
      Pack(center, chosen, c);
      ForNearest(c - chosen, [this](std::ptrdiff_t i, int, double distance) noexcept {
        if (distance < distance_[static_cast<std::size_t>(i)]) distance_[static_cast<std::size_t>(i)] = distance;
      });
      double total = 0.0;
      for (std::size_t i = 0; i < cumulative.size(); ++i) cumulative[i] = total += distance_[i];
      if (total == 0.0) {
        *spread = false;
        for (; c < ncluster_; ++c) SetCenter(center, c, 0);
        return 0;
      }
      const double draw = VORLDoubleRand(0, randContext) * total;
      const auto position = std::upper_bound(cumulative.begin(), cumulative.end() - 1, draw) - cumulative.begin();
      SetCenter(center, c, static_cast<int>(position));
    }
    return 0;
  }

  // The inertia after the iterations. The pass over the points that measures how far the centres moved to are finds the
  // next assignment as well; if the iterations stop there, it is taken back.
  double Iterate(const Clusters& clusters, int itMax, double tolerance) noexcept {
    Pack(clusters.center, 0, ncluster_);
    ForNearest(ncluster_, [&](std::ptrdiff_t i, int nearest, double) noexcept {
      if (!points_.Counts(i)) return;
      clusters.assignment[i] = nearest;
    });
    SumMembers(clusters);
    for (int it = 0; it < itMax - 1; ++it) {
      MoveCenters(clusters);
      const double before = inertia_;
      ForNearest(ncluster_, [&](std::ptrdiff_t i, int nearest, double distance) noexcept {
        if (!points_.Counts(i)) return;
        const int own = clusters.assignment[i];
        const bool known = nearest == own && distance < std::numeric_limits<double>::infinity();
        SetDistance(i, known ? distance : Distance(i, own));
        left_[static_cast<std::size_t>(i)] = own;
        clusters.assignment[i] = nearest;
      });
      SumDistances();
      if (it > 0 && std::fabs(before - inertia_) / before < tolerance) {
        for (std::ptrdiff_t i = 0; i < points_.n; ++i) {
          if (points_.Counts(i)) clusters.assignment[i] = left_[static_cast<std::size_t>(i)];
        }
        return inertia_;
      }
      SumMembers(clusters);
    }
    MoveCenters(clusters);
    dealing_.Blocks(points_.n, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t i = begin; i < end; ++i) {
        if (points_.Counts(i)) SetDistance(i, Distance(i, clusters.assignment[i]));
      }
    });
    SumDistances();
    return inertia_;
  }

 private:
  static constexpr int kLine = 64 / sizeof(double);
  static constexpr int kChunk = 256;  // points between two calls of the kernel
  static constexpr int kGroup = 4;

  void SetCenter(double** center, int c, int point) const noexcept {
    for (int f = 0; f < points_.nfeature; ++f) center[f][c] = points_.data[f][point];
  }

  // Lays these centres out for the kernel.
  void Pack(double** center, int begin, int end) noexcept {
    double* to = packed_.data();
    for (int c = begin; c < end; ++c) {
      for (int f = 0; f < points_.nfeature; ++f) *to++ = center[f][c];
    }
  }

  // Calls use(i, nearest, distance) for each point, with the nearest of the packed centres.
  template <typename Use>
  void ForNearest(int ncenter, const Use& use) noexcept {
    dealing_.Blocks(points_.n, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      int nearest[kChunk];
      double distance[kChunk];
      for (std::ptrdiff_t start = begin; start < end; start += kChunk) {
        const int count = static_cast<int>(std::min<std::ptrdiff_t>(kChunk, end - start));
        findNearest_(points_.data, points_.nfeature, start, count, packed_.data(), ncenter, nearest, distance);
        for (int k = 0; k < count; ++k) use(start + k, nearest[k], distance[k]);
      }
    });
  }

  void SetDistance(std::ptrdiff_t i, double distance) noexcept {
    distance_[static_cast<std::size_t>(i)] = points_.Weight(i) * distance;
  }

  // The square of a point's distance from a centre.
  double Distance(std::ptrdiff_t i, int c) const noexcept {
    const double* const center = packed_.data() + static_cast<std::ptrdiff_t>(c) * points_.nfeature;
    double sum = 0.0;
    for (int f = 0; f < points_.nfeature; ++f) {
      const double difference = points_.data[f][i] - center[f];
      sum += difference * difference;
    }
    return sum;
  }

  // All sums over the points: the threads share the groups of features and the counts.
  void SumMembers(const Clusters& clusters) noexcept {
    const int ngroup = (points_.nfeature + kGroup - 1) / kGroup;
    dealing_.Blocks(ngroup + 1, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (int item = static_cast<int>(begin); item < end; ++item) {
        if (item == 0) {
          CountMembers(clusters);
        } else {
          SumGroup(clusters.assignment, (item - 1) * kGroup);
        }
      }
    });
  }

  void MoveCenters(const Clusters& clusters) noexcept {
    for (int c = nfixed_; c < ncluster_; ++c) {
      const double divisor = clusters.size[c] == 0       ? 1.0
                             : points_.weight == nullptr ? clusters.size[c]
                                                         : clusters.weight[c];
      for (int f = 0; f < points_.nfeature; ++f) clusters.center[f][c] = *Sum(f, c) / divisor;
    }
    Pack(clusters.center, 0, ncluster_);
  }

  void CountMembers(const Clusters& clusters) const noexcept {
    std::fill_n(clusters.size, ncluster_, 0);
    if (points_.weight != nullptr) std::fill_n(clusters.weight, ncluster_, 0.0);
    for (int i = 0; i < points_.n; ++i) {
      if (!points_.Counts(i)) continue;
      ++clusters.size[clusters.assignment[i]];
      if (points_.weight != nullptr) clusters.weight[clusters.assignment[i]] += points_.weight[i];
    }
  }

  // A group of features is summed at a time, its sums of a cluster side by side, each group on cache lines of its own.
  int GroupSize(int first) const noexcept { return std::min(kGroup, points_.nfeature - first); }
  double* Sum(int f, int c) noexcept {
    const int first = f / kGroup * kGroup;
    return sums_.data() + first * sumStride_ + std::ptrdiff_t{c} * GroupSize(first) + (f - first);
  }

  // The group of features `first` on.
  void SumGroup(const int* assignment, int first) noexcept {
    switch (GroupSize(first)) {
      case 1:
        return SumFeatures<1>(assignment, first);
      case 2:
        return SumFeatures<2>(assignment, first);
      case 3:
        return SumFeatures<3>(assignment, first);
      default:
        return SumFeatures<kGroup>(assignment, first);
    }
  }

  template <int kSize>
  void SumFeatures(const int* assignment, int first) noexcept {
    double* const sums = Sum(first, 0);
    std::fill_n(sums, std::ptrdiff_t{ncluster_} * kSize, 0.0);
    const double* data[kSize];
    std::copy_n(points_.data + first, kSize, data);
    for (std::ptrdiff_t i = 0; i < points_.n; ++i) {
      if (!points_.Counts(i)) continue;
      const double weight = points_.Weight(i);
      double term[kSize];
      for (int f = 0; f < kSize; ++f) term[f] = weight * data[f][i];
      double* const sum = sums + std::ptrdiff_t{assignment[i]} * kSize;
      for (int f = 0; f < kSize; ++f) sum[f] += term[f];
    }
  }

  void SumDistances() noexcept {
    double sum = 0.0;
    for (std::ptrdiff_t i = 0; i < points_.n; ++i) {
      if (points_.Counts(i)) sum += distance_[static_cast<std::size_t>(i)];
    }
    inertia_ = sum;
  }

  const Points points_;
  const int ncluster_;
  const int nfixed_;
  const std::ptrdiff_t sumStride_;
  const Dealing dealing_;
  const NearestCenterKernel findNearest_;
  Buffer<double> packed_;
  Buffer<double> sums_;
  double inertia_ = 0.0;
  // One entry per point: its weighted squared distance from its centre, and the cluster that it was in before.
  Buffer<double> distance_;
  Buffer<int> left_;
};

// Arrays for runs that may not be kept.
class TrialClusters {
 public:
  [[nodiscard]] int Allocate(const Points& points, int ncluster, int nfixed, const Clusters& kept) noexcept {
    ncluster_ = static_cast<std::size_t>(ncluster);
    const std::size_t n = static_cast<std::size_t>(points.n);
    const std::size_t nfeature = static_cast<std::size_t>(points.nfeature);
    if (const int status = center_.Allocate(nfeature, ncluster_); status != 0) return status;
    if (const int status = assignment_.Allocate(n); status != 0) return status;
    if (const int status = size_.Allocate(ncluster_); status != 0) return status;
    if (points.weight != nullptr) {
      if (const int status = weight_.Allocate(ncluster_); status != 0) return status;
    }
    for (std::size_t f = 0; f < nfeature; ++f) std::copy_n(kept.center[f], nfixed, center_.rows()[f]);
    if (points.mask != nullptr) std::copy_n(kept.assignment, n, assignment_.data());
    return 0;
  }

  Clusters view() noexcept { return {center_.rows(), weight_.data(), assignment_.data(), size_.data()}; }

  void CopyTo(const Points& points, const Clusters& kept) noexcept {
    for (int f = 0; f < points.nfeature; ++f) std::copy_n(center_.rows()[f], ncluster_, kept.center[f]);
    std::copy_n(assignment_.data(), points.n, kept.assignment);
    std::copy_n(size_.data(), ncluster_, kept.size);
    if (points.weight != nullptr) std::copy_n(weight_.data(), ncluster_, kept.weight);
  }

 private:
  std::size_t ncluster_ = 0;
  Array2D<double> center_;
  Buffer<int> assignment_;
  Buffer<int> size_;
  Buffer<double> weight_;
};

int RunKMeans(const Points& points, int ncluster, int nfixed, double tolerance, const Clusters& kept, double* inertia,
              int itMax, int nstart, int initMode, VORL_RANDCONTEXT* randContext, const Dealing& dealing) noexcept {
  if (points.nfeature < 1) return kFeatureCount;
  if (ncluster < 1 || ncluster > points.n) return kClusterCount;
  if (nfixed < 0 || nfixed > ncluster) return kFixedClusterCount;
  if (itMax < 1) return kIterationCount;

  KMeans kMeans(points, ncluster, nfixed, dealing);
  if (const int status = kMeans.Allocate(); status != 0) return status;
  const bool restarts = nstart > 1;
  TrialClusters trial;
  if (restarts) {
    if (const int status = trial.Allocate(points, ncluster, nfixed, kept); status != 0) return status;
  }
  const Clusters clusters = restarts ? trial.view() : kept;
  double best = VORL_INFINITY;
  bool spread = true;
  for (int run = 0; run < std::max(nstart, 1) && spread; ++run) {
    if (nstart > 0) {
      const int status = initMode == 1 ? kMeans.SpreadCenters(clusters.center, randContext, &spread)
                                       : kMeans.DrawCenters(clusters.center, randContext);
      if (status != 0) return status;
    }
    const double reached = kMeans.Iterate(clusters, itMax, tolerance);
    if (!restarts) {
      best = reached;
    } else if (reached < best) {
      best = reached;
      trial.CopyTo(points, kept);
    }
  }
  *inertia = best;
  return 0;
}

}  // namespace
}  // namespace kestrum

using namespace kestrum;

int VORLKMeans(int n, int nfeature, int ncluster, int nfixedCluster, double** data, char* mask, real tolerance,
               double* weight, double** center, double* clusterWeight, int* assignment, int* clusterSize,
               double* inertia, int itMax, int nstart, int initMode, VORL_RANDCONTEXT* randContext) noexcept {
  return RunKMeans({n, nfeature, data, mask, weight}, ncluster, nfixedCluster, tolerance,
                   {center, clusterWeight, assignment, clusterSize}, inertia, itMax, nstart, initMode, randContext,
                   Dealing::Serial());
}

int VORLOMPKMeans(int n, int nfeature, int ncluster, int nfixedCluster, double** data, char* mask, real tolerance,
                  double* weight, double** center, double* clusterWeight, int* assignment, int* clusterSize,
                  double* inertia, int itMax, int nstart, int initMode, VORL_RANDCONTEXT* randContext,
                  int nthreads) noexcept {
  return RunKMeans({n, nfeature, data, mask, weight}, ncluster, nfixedCluster, tolerance,
                   {center, clusterWeight, assignment, clusterSize}, inertia, itMax, nstart, initMode, randContext,
                   Dealing::Threads(nthreads));
}
