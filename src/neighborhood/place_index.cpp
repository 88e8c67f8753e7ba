#include "neighborhood/place_index.hpp"

#include <algorithm>
#include <bit>
#include <limits>
#include <utility>

#include "core/statuses.hpp"

namespace kestrum {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr std::int64_t kRun = 8;

// Puts the lesser places in front, up to `middle`. A long run is first cut down pass by pass, about the middle of a sample,
// so that a job which is to stop does so soon.
template <typename Less>
void Select(NumberedPlace* begin, NumberedPlace* middle, NumberedPlace* end, const Progress& progress,
            const Less& less) noexcept {
  constexpr std::ptrdiff_t kShort = 1 << 18;
  constexpr std::ptrdiff_t kSample = 255;
  constexpr int kMostPasses = 64;
  for (int pass = 0; end - begin > kShort && pass < kMostPasses; ++pass) {
    if (progress.Aborted()) return;
    const std::ptrdiff_t step = (end - begin) / kSample;
    NumberedPlace sample[kSample];
    for (std::ptrdiff_t i = 0; i < kSample; ++i) sample[i] = begin[i * step];
    // Neither the first nor the last of the sample: then each pass leaves some places out.
    const std::ptrdiff_t rank = std::clamp<std::ptrdiff_t>((middle - begin) / step, 1, kSample - 2);
    std::nth_element(sample, sample + rank, sample + kSample, less);
    NumberedPlace* const cut =
        std::partition(begin, end, [&, pivot = sample[rank]](const NumberedPlace& p) { return less(p, pivot); });
    (cut <= middle ? begin : end) = cut;
  }
  std::nth_element(begin, middle, end, less);
}

// Puts the lesser half of a run in front, or not if the job is to stop.
void Split(NumberedPlace* begin, NumberedPlace* middle, NumberedPlace* end, const double* scale,
           const Progress& progress) noexcept {
  if (progress.Aborted()) return;
  double extent[3];
  for (int a = 0; a < 3; ++a) {
    double low = begin->at[a];
    double high = low;
    for (const NumberedPlace* place = begin; place < end; ++place) {
      low = std::min(low, place->at[a]);
      high = std::max(high, place->at[a]);
    }
    extent[a] = (high - low) * scale[a];
  }
  const std::ptrdiff_t axis = std::max_element(extent, extent + 3) - extent;
  Select(begin, middle, end, progress, [axis](const NumberedPlace& p, const NumberedPlace& q) {
    return p.at[axis] != q.at[axis] ? p.at[axis] < q.at[axis] : p.number < q.number;
  });
}

void SplitToRuns(NumberedPlace* begin, NumberedPlace* end, std::int64_t size, const double* scale,
                 const Progress& progress) noexcept {
  for (; size > kRun; size /= 2) {
    NumberedPlace* const middle = begin + size / 2;
    if (middle >= end) continue;
    Split(begin, middle, end, scale, progress);
    SplitToRuns(middle, end, size / 2, scale, progress);
    end = middle;
  }
}

std::uint64_t Hash(double x, double y, double z) noexcept {
  std::uint64_t hash = 0;
  for (const double c : {x, y, z}) {
    hash = (hash ^ std::bit_cast<std::uint64_t>(c + 0.0)) * 0x9e3779b97f4a7c15;  // -0.0 becomes 0.0
    hash ^= hash >> 32;
  }
  return hash;
}

// The distance between two boxes is that of the origin from this box.
PlaceBox Differences(const PlaceBox& data, const PlaceBox& targets) noexcept {
  PlaceBox box;
  for (int a = 0; a < 3; ++a) {
    box.low[a] = targets.low[a] - data.high[a];
    box.high[a] = targets.high[a] - data.low[a];
  }
  return box;
}

double LowerBoundAtOrigin(const PlaceMetric& metric, const PlaceBox& box, const PlaceKernels& kernels) noexcept {
  alignas(64) static constexpr double kOrigin[kPlacePadding] = {};
  alignas(64) double lower[kPlacePadding];
  alignas(64) double upper[kPlacePadding];
  kernels.bounds(metric, box, 1, {kOrigin, kOrigin, kOrigin}, lower, upper);
  return lower[0];
}

// A heap of the least values met, at most `room`.
template <typename T>
class LeastValues {
 public:
  LeastValues(T* values, int room) noexcept : values_(values), room_(room) {}
  int count() const noexcept { return count_; }
  bool full() const noexcept { return count_ == room_; }
  const T& greatest() const noexcept { return values_[0]; }
  void Add(const T& value) noexcept {
    if (count_ == room_) {
      if (!(value < values_[0])) return;
      std::pop_heap(values_, values_ + count_--);
    }
    values_[count_++] = value;
    std::push_heap(values_, values_ + count_);
  }

 private:
  T* values_;
  int room_;
  int count_ = 0;
};

}  // namespace

double FindMiddle(const PlaceMetric& metric, const PlaceBox& box, double* middle) noexcept {
  double half[3];
  for (int a = 0; a < 3; ++a) {
    middle[a] = 0.5 * (box.low[a] + box.high[a]);
    half[a] = std::max(middle[a] - box.low[a], box.high[a] - middle[a]);
  }
  return metric.Reach(half);
}

int OrderPlaces(std::int64_t n, NumberedPlace* places, const double* scale, const Dealing& dealing,
                const Progress& progress) noexcept {
  std::int64_t size = kRun;
  while (size < n) size *= 2;
  // One run after the other is cut until there are enough for all threads.
  const auto count = [&]() noexcept { return (n + size - 1) / size; };
  for (; size > kRun && count() < std::int64_t{4} * dealing.nscratch(); size /= 2) {
    dealing.EachThread([&](int thread, int team) noexcept {
      for (std::int64_t run = thread; run < count(); run += team) {
        NumberedPlace* const begin = places + run * size;
        NumberedPlace* const middle = begin + size / 2;
        NumberedPlace* const end = places + std::min(n, (run + 1) * size);
        if (middle < end) Split(begin, middle, end, scale, progress);
      }
    });
    if (!dealing.threaded()) break;
  }
  dealing.EachThread([&](int thread, int team) noexcept {
    for (std::int64_t run = thread; run < count(); run += team) {
      SplitToRuns(places + run * size, places + std::min(n, (run + 1) * size), size, scale, progress);
    }
  });
  return progress.After(0);
}

int FindCoincidentData(int n, const PlaceVectors& data, const double* mayCoincide, CoincidentData* found,
                       const Progress& progress) noexcept {
  constexpr int kDataPerQuestion = 1 << 18;
  // Open addressing: the table holds the first datum at each place.
  Buffer<int> table;
  const std::size_t size = std::bit_ceil(2 * static_cast<std::size_t>(n));
  if (const int status = table.Allocate(size, -1); status != 0) return status;
  *found = {};
  const auto may = [&](int i) { return mayCoincide != nullptr && mayCoincide[i] > 0.0; };
  for (int i = 0; i < n; ++i) {
    if (i % kDataPerQuestion == 0 && progress.Aborted()) return kAborted;
    std::size_t slot = Hash(data.x[i], data.y[i], data.z[i]) & (size - 1);
    int other;
    for (; (other = table[slot]) >= 0; slot = (slot + 1) & (size - 1)) {
      if (data.x[other] == data.x[i] && data.y[other] == data.y[i] && data.z[other] == data.z[i]) break;
    }
    if (other < 0) {
      table[slot] = i;
    } else if (!may(i) || !may(other)) {
      *found = {other, i};
      return 0;
    }
  }
  return 0;
}

int PlaceIndex::Build(int n, const PlaceVectors& data, const double* scale, const Dealing& dealing,
                      const Progress& progress) noexcept {
  n_ = n;
  const auto count = static_cast<std::size_t>(n);
  Buffer<NumberedPlace> places;
  if (const int status = places.Allocate(count); status != 0) return status;
  for (Buffer<double>* vector : {&x_, &y_, &z_}) {
    if (const int status = vector->Allocate(count + kPlacePadding, 0.0); status != 0) return status;
  }
  if (const int status = datum_.Allocate(count); status != 0) return status;
  for (int i = 0; i < n; ++i) {
    places[static_cast<std::size_t>(i)] = {{data.x[i], data.y[i], data.z[i]}, i};
  }
  if (const int status = OrderPlaces(n, places.data(), scale, dealing, progress); status != 0) return status;
  for (std::size_t i = 0; i < count; ++i) {
    x_[i] = places[i].at[0];
    y_[i] = places[i].at[1];
    z_[i] = places[i].at[2];
    datum_[i] = static_cast<int>(places[i].number);
  }

  nlevel_ = 0;
  std::size_t total = 0;
  std::size_t runs = (count + kLeaf - 1) / kLeaf;
  for (;; runs = (runs + 1) / 2) {
    firstBox_[nlevel_++] = total;
    total += runs;
    if (runs == 1) break;
  }
  if (const int status = boxes_.Allocate(total); status != 0) return status;
  const double* const coordinates[3] = {x_.data(), y_.data(), z_.data()};
  const std::size_t leaves = (count + kLeaf - 1) / kLeaf;
  for (std::size_t leaf = 0; leaf < leaves; ++leaf) {
    for (int a = 0; a < 3; ++a) {
      const auto [low, high] =
          std::minmax_element(coordinates[a] + leaf * kLeaf, coordinates[a] + std::min(count, (leaf + 1) * kLeaf));
      boxes_[leaf].low[a] = *low;
      boxes_[leaf].high[a] = *high;
    }
  }
  for (int level = 1; level < nlevel_; ++level) {
    const std::size_t below = firstBox_[level] - firstBox_[level - 1];
    for (std::size_t i = 0; i < (below + 1) / 2; ++i) {
      PlaceBox box = boxes_[firstBox_[level - 1] + 2 * i];
      if (2 * i + 1 < below) {
        const PlaceBox& other = boxes_[firstBox_[level - 1] + 2 * i + 1];
        for (int a = 0; a < 3; ++a) {
          box.low[a] = std::min(box.low[a], other.low[a]);
          box.high[a] = std::max(box.high[a], other.high[a]);
        }
      }
      boxes_[firstBox_[level] + i] = box;
    }
  }
  return 0;
}

// Visits leaves whose lower bound is at most *bound, which a visit may lower, those near the box first. Ends with the
// first visit that does not return 0, and returns what it did.
template <typename Visit>
int PlaceIndex::ForEachLeaf(const PlaceNeighborhood& neighborhood, const PlaceBox& box, const PlaceKernels& kernels,
                            const double* bound, const Visit& visit) const noexcept {
  struct Run {
    int level;  // of kLeaf * 2^level data
    std::size_t number;
    double lower;
  };
  Run stack[kMaxLevels + 1];
  int depth = 0;
  const auto push = [&](int level, std::size_t number) {
    const PlaceBox differences = Differences(boxes_[firstBox_[level] + number], box);
    if (neighborhood.bounded &&
        LowerBoundAtOrigin(neighborhood.ellipsoid, differences, kernels) > neighborhood.squaredRadius) {
      return;
    }
    stack[depth++] = {level, number, LowerBoundAtOrigin(neighborhood.metric, differences, kernels)};
  };
  push(nlevel_ - 1, 0);
  while (depth > 0) {
    const Run run = stack[--depth];
    if (run.lower > *bound) continue;
    if (run.level == 0) {
      const std::size_t begin = run.number * kLeaf;
      const int status = visit(begin, static_cast<int>(std::min(kLeaf, static_cast<std::size_t>(n_) - begin)));
      if (status != 0) return status;
      continue;
    }
    const int level = run.level - 1;
    const std::size_t runs = firstBox_[run.level] - firstBox_[level];
    Run* const pushed = stack + depth;
    push(level, 2 * run.number);
    if (2 * run.number + 1 < runs) push(level, 2 * run.number + 1);
    if (stack + depth == pushed + 2 && pushed[0].lower < pushed[1].lower) std::swap(pushed[0], pushed[1]);
  }
  return 0;
}

int PlaceIndex::Collect(const PlaceNeighborhood& neighborhood, const PlaceBox& box, std::size_t most,
                        bool inOrderOfData, const PlaceKernels& kernels, Scratch* scratch) const noexcept {
  alignas(64) double lower[kLeaf + kPlacePadding];
  alignas(64) double upper[kLeaf + kPlacePadding];
  alignas(64) double inEllipsoid[kLeaf + kPlacePadding];
  double bound = kInfinity;
  std::size_t nleaf = 0;
  scratch->tooMany = false;
  const auto countLeaf = [&]() noexcept {
    ++nleaf;
    scratch->tooMany = nleaf * kLeaf > most;
    return scratch->tooMany ? 1 : 0;
  };
  const bool all = neighborhood.limit == 0 || neighborhood.limit >= n_;
  if (!all) {
    const auto limit = static_cast<std::size_t>(neighborhood.limit);
    if (scratch->nearest.size() < limit) {
      if (const int status = scratch->nearest.Allocate(limit); status != 0) return status;
    }
    // The bound is the greatest of the least upper bounds of as many data, which are surely inside. It is found for the
    // middle of the box, and holds for the box if it is longer by what reaches to the corners: the greatest distances of
    // a large box are as long as the box.
    PlaceBox from;
    const double reach = FindMiddle(neighborhood.metric, box, from.low);
    std::copy_n(from.low, 3, from.high);
    LeastValues<double> least(scratch->nearest.data(), neighborhood.limit);
    ForEachLeaf(neighborhood, from, kernels, &bound, [&](std::size_t begin, int count) noexcept {
      const PlaceVectors leaf{x_.data() + begin, y_.data() + begin, z_.data() + begin};
      if (neighborhood.bounded) kernels.bounds(neighborhood.ellipsoid, box, count, leaf, lower, inEllipsoid);
      kernels.bounds(neighborhood.metric, from, count, leaf, lower, upper);
      for (int i = 0; i < count; ++i) {
        if (!neighborhood.bounded || inEllipsoid[i] <= neighborhood.squaredRadius) least.Add(upper[i]);
      }
      if (least.full()) bound = least.greatest();
      return countLeaf();
    });
    if (scratch->tooMany) return 0;
    bound = WithinReach(bound, reach);
    // Squares along turned axes have the rounding errors of the whole lag, which no distance is below.
    if (neighborhood.metric.rotated) bound *= 1.0 + 0x1p-40 * neighborhood.metric.GreatestWeight();
  }

  nleaf = 0;
  const int status = ForEachLeaf(neighborhood, box, kernels, &bound, [&](std::size_t begin, int /*count*/) noexcept {
    if (scratch->leaves.size() == nleaf) {
      if (const int failure = scratch->leaves.Enlarge(2 * nleaf + 64); failure != 0) return failure;
    }
    scratch->leaves[nleaf] = begin;
    return countLeaf();
  });
  if (scratch->tooMany) return 0;
  if (status != 0) return status;
  if (scratch->found.size() < nleaf * kLeaf) {
    if (const int failure = scratch->found.Allocate(2 * nleaf * kLeaf); failure != 0) return failure;
  }
  std::sort(scratch->leaves.data(), scratch->leaves.data() + nleaf);
  scratch->count = 0;
  for (std::size_t l = 0; l < nleaf; ++l) {
    const std::size_t begin = scratch->leaves[l];
    const int count = static_cast<int>(std::min(kLeaf, static_cast<std::size_t>(n_) - begin));
    const PlaceVectors leaf{x_.data() + begin, y_.data() + begin, z_.data() + begin};
    if (neighborhood.bounded) kernels.bounds(neighborhood.ellipsoid, box, count, leaf, inEllipsoid, upper);
    kernels.bounds(neighborhood.metric, box, count, leaf, lower, upper);
    for (int i = 0; i < count; ++i) {
      if (lower[i] > bound || (neighborhood.bounded && inEllipsoid[i] > neighborhood.squaredRadius)) continue;
      const std::size_t position = begin + static_cast<std::size_t>(i);
      scratch->found[scratch->count++] = static_cast<std::uint64_t>(datum_[position]) << 32 | position;
    }
  }
  if (inOrderOfData) std::sort(scratch->found.data(), scratch->found.data() + scratch->count);
  return 0;
}

int PlaceIndex::FindNearest(const PlaceNeighborhood& neighborhood, const double* at, const PlaceKernels& kernels,
                            Near* nearest) const noexcept {
  const PlaceBox box{{at[0], at[1], at[2]}, {at[0], at[1], at[2]}};
  double bound = kInfinity;
  LeastValues<Near> least(nearest, neighborhood.limit);
  ForEachLeaf(neighborhood, box, kernels, &bound, [&](std::size_t begin, int count) noexcept {
    alignas(64) double lower[kLeaf + kPlacePadding];
    alignas(64) double upper[kLeaf + kPlacePadding];
    kernels.bounds(neighborhood.metric, box, count, {x_.data() + begin, y_.data() + begin, z_.data() + begin}, lower,
                   upper);
    for (int l = 0; l < count; ++l) {
      if (lower[l] > bound) continue;
      const std::size_t i = begin + static_cast<std::size_t>(l);
      const double lag[3] = {x_[i] - at[0], y_[i] - at[1], z_[i] - at[2]};
      if (neighborhood.bounded &&
          !(neighborhood.ellipsoid.Square(lag[0], lag[1], lag[2]) <= neighborhood.squaredRadius)) {
        continue;
      }
      least.Add({neighborhood.metric.Square(lag[0], lag[1], lag[2]), static_cast<std::uint64_t>(datum_[i]) << 32 | i});
      if (least.full()) bound = least.greatest().square;
    }
    return 0;
  });
  return least.count();
}

}  // namespace kestrum
