#include "analysis/point_variogram.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <limits>

#include "core/buffer.hpp"

namespace kestrum {
namespace {

constexpr std::size_t kSize = 1;  // to make a size of a signed number

// Tails that a chunk has at least, and chunks at most: enough for threads to end together. The sums of a chunk are added up
// in its own order, then those of all chunks in theirs.
constexpr std::ptrdiff_t kLeastChunk = 64;
constexpr std::ptrdiff_t kMostChunks = 256;
// Sums that all chunks together have at most, unless one chunk has more.
constexpr std::ptrdiff_t kMostSums = 1 << 20;
// Tails between two looks at the abort flag.
constexpr std::ptrdiff_t kBatch = 16;

// A power of two that brings a size near 1, so that squares neither overflow nor vanish. Scaling by it is exact.
double ScaleFor(double size) noexcept {
  int exponent = 0;
  std::frexp(size, &exponent);
  return std::ldexp(1.0, std::clamp(-exponent, -1000, 1000));
}

// The points by cell.
class SortedPoints {
 public:
  [[nodiscard]] int Prepare(const ScatteredValues& data, const PointVariogramOptions& options,
                            const Dealing& dealing) noexcept {
    n_ = data.n;
    scale_ = ScaleFor(options.lag * options.nlag);
    double largest = 0.0;
    for (std::ptrdiff_t i = 0; i < n_; ++i) {
      for (const double* values : {data.value, data.other}) {
        if (values != nullptr) largest = std::max(largest, std::fabs(values[i]));
      }
    }
    valueScale_ = ScaleFor(largest);
    scan_ = {};
    scan_.lag = options.lag * scale_;
    scan_.perLag = 1.0 / scan_.lag;
    scan_.nlag = options.nlag;
    scan_.estimator = options.estimator;
    LayCells(data);
    return Sort(data, dealing);
  }

  PairScan& scan() noexcept { return scan_; }
  double scale() const noexcept { return scale_; }
  double valueScale() const noexcept { return valueScale_; }

 private:
  // A row of cells holds the heads of a tail side by side. Low rows follow the disc or ball of the heads closely; high
  // rows have many heads. Cells along a row are a quarter as long, for their length costs candidates alone.
  void LayCells(const ScatteredValues& data) noexcept {
    constexpr double kHeadsOfRow = 48.0;
    constexpr double kMostRows = 12.0;
    const double largestLag = scan_.lag * scan_.nlag;
    double size[3] = {};
    double greatest = largestLag;
    double density = static_cast<double>(data.n);
    for (int a = 0; a < data.dimension; ++a) {
      double low = std::numeric_limits<double>::infinity();
      double high = -low;
      for (std::ptrdiff_t i = 0; i < n_; ++i) {
        const double c = data.coordinates[i * data.dimension + a] * scale_;
        low = std::min(low, c);
        high = std::max(high, c);
      }
      scan_.origin[a] = low;
      size[a] = high - low;
      greatest = std::max({greatest, std::fabs(low), std::fabs(high)});
      density *= largestLag / std::max(size[a], largestLag);
    }
    scan_.margin = 8.0 * std::numeric_limits<double>::epsilon() * greatest;
    scan_.reach = largestLag * (1.0 + 1e-12) + scan_.margin;
    // The points in a cube of the largest lag, over those wanted in a row.
    const double rows = 1.6 * density / kHeadsOfRow;
    const double height = largestLag / std::clamp(data.dimension == 2 ? rows : std::sqrt(rows), 1.0, kMostRows);
    double length = height / 4.0;
    const double mostCells = 4.0 * static_cast<double>(data.n) + 64.0;
    for (double grown = height;; grown *= 1.25, length *= 1.25) {
      double count = 1.0;
      for (int a = 0; a < 3; ++a) {
        scan_.size[a] = a == 0 ? length : grown;
        scan_.perUnit[a] = 1.0 / scan_.size[a];
        const double cells = std::floor(size[a] * scan_.perUnit[a]) + 1.0;
        count *= cells;
        scan_.ncell[a] = static_cast<int>(std::min(cells, mostCells));
      }
      if (!(count > mostCells)) return;
    }
  }

  std::size_t CellOf(const ScatteredValues& data, std::ptrdiff_t i) const noexcept {
    std::size_t cell = 0;
    for (int a = data.dimension - 1; a >= 0; --a) {
      const double c = data.coordinates[i * data.dimension + a] * scale_;
      const int along = static_cast<int>((c - scan_.origin[a]) * scan_.perUnit[a]);
      cell = cell * static_cast<std::size_t>(scan_.ncell[a]) +
             static_cast<std::size_t>(std::min(along, scan_.ncell[a] - 1));
    }
    return cell;
  }

  [[nodiscard]] int Sort(const ScatteredValues& data, const Dealing& dealing) noexcept {
    const std::size_t ncell = kSize * scan_.ncell[0] * scan_.ncell[1] * scan_.ncell[2];
    if (const int status = begin_.Allocate(ncell + 2, 0); status != 0) return status;
    const std::size_t room = static_cast<std::size_t>(n_) + kPairLanes;
    const int nvector = data.dimension + 1 + (data.other != nullptr);
    for (int v = 0; v < nvector; ++v) {
      if (const int status = vectors_[v].Allocate(room, 0.0); status != 0) return status;
    }
    Buffer<std::size_t> place;  // the cell of a point, and then where the point goes
    if (const int status = place.Allocate(static_cast<std::size_t>(n_)); status != 0) return status;
    dealing.Blocks(n_, [&](std::ptrdiff_t first, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t i = first; i < end; ++i) place[static_cast<std::size_t>(i)] = CellOf(data, i);
    });
    // First the counts of cells, two entries later; as points get their places, the entry before becomes the cell's begin.
    for (const std::size_t cell : place) ++begin_[cell + 2];
    for (std::size_t cell = 2; cell < ncell + 2; ++cell) begin_[cell] += begin_[cell - 1];
    for (std::size_t& cell : place) cell = static_cast<std::size_t>(begin_[cell + 1]++);
    dealing.Blocks(n_, [&](std::ptrdiff_t first, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t i = first; i < end; ++i) {
        const std::size_t to = place[static_cast<std::size_t>(i)];
        int v = 0;
        for (; v < data.dimension; ++v) vectors_[v][to] = data.coordinates[i * data.dimension + v] * scale_;
        vectors_[v++][to] = data.value[i] * valueScale_;
        if (data.other != nullptr) vectors_[v][to] = data.other[i] * valueScale_;
      }
    });
    for (int a = 0; a < data.dimension; ++a) scan_.at[a] = vectors_[a].data();
    scan_.value = vectors_[data.dimension].data();
    if (data.other != nullptr) scan_.other = vectors_[data.dimension + 1].data();
    scan_.begin = begin_.data();
    return 0;
  }

  std::ptrdiff_t n_ = 0;
  double scale_ = 1.0;
  double valueScale_ = 1.0;
  PairScan scan_{};
  Buffer<double> vectors_[5];
  Buffer<int> begin_;
};

PairCone Prepared(const DirectionCone& cone, double scale) noexcept {
  // More than rounding takes from an extent along an axis, over the distance.
  constexpr double kRounding = 1e-14;
  PairCone result{};
  std::copy(cone.axis, cone.axis + 3, result.axis);
  const double cosine = std::max(cone.cosine - kRounding, 0.0);
  result.leastAlong = cosine * cosine;
  result.leastInCylinder = 1.0 - kRounding;
  result.squaredBandwidth = cone.bandwidth * scale * cone.bandwidth * scale;
  return result;
}

void Add(const PairSum& term, PairSum* sum) noexcept {
  sum->distance += term.distance;
  sum->term += term.term;
  sum->pairs += term.pairs;
}

// Adds up the lanes and the sets of cones: rows of nlag sums, and one more with pairs at distance 0.
void Gather(const PairScan& scan, const PairSum* sums, PairSum* rows) noexcept {
  const std::ptrdiff_t nbin = PairBinCount(scan.nlag);
  const int nrow = std::max(scan.ncone, 1);
  const auto addLanes = [&](std::ptrdiff_t set, std::ptrdiff_t bin, PairSum* to) noexcept {
    for (int lane = 0; lane < kPairLanes; ++lane) Add(sums[(set * nbin + bin) * kPairLanes + lane], to);
  };
  std::fill(rows, rows + static_cast<std::ptrdiff_t>(nrow) * scan.nlag + 1, PairSum{});
  const int nset = scan.ncone > 0 ? kConeSets : 1;
  for (int row = 0; row < nrow; ++row) {
    const std::ptrdiff_t group = row / kConeGroup;
    for (int set = 0; set < nset; ++set) {
      if (scan.ncone > 0 && (set >> row % kConeGroup & 1) == 0) continue;
      for (int k = 0; k < scan.nlag; ++k) {
        addLanes(group * kConeSets + set, k + 1, rows + static_cast<std::ptrdiff_t>(row) * scan.nlag + k);
      }
    }
  }
  for (int set = 0; set < nset; ++set) addLanes(set, 0, rows + static_cast<std::ptrdiff_t>(nrow) * scan.nlag);
}

double GammaOf(const PairSum& sum, const PairScan& scan, double valueScale) noexcept {
  const double mean = sum.term / sum.pairs;
  if (scan.other != nullptr || scan.estimator == VariogramEstimator::kMatheron) {
    return 0.5 * mean / valueScale / valueScale;
  }
  if (scan.estimator == VariogramEstimator::kMadogram) return 0.5 * mean / valueScale;
  const double bias = 0.457 + (0.494 + 0.045 / sum.pairs) / sum.pairs;
  const double square = mean * mean / valueScale;
  return 0.5 * square * square / bias;
}

}  // namespace

int ComputePointVariogram(const ScatteredValues& data, const PointVariogramOptions& options, const Dealing& dealing,
                          const Progress& progress, const PointVariogram& result) noexcept {
  SortedPoints points;
  if (const int status = points.Prepare(data, options, dealing); status != 0) return status;
  PairScan& scan = points.scan();
  Buffer<PairCone> cones;
  if (options.ncone > 0) {
    if (const int status = cones.Allocate(kSize * options.ncone); status != 0) return status;
    std::transform(options.cones, options.cones + options.ncone, cones.begin(),
                   [&](const DirectionCone& cone) { return Prepared(cone, points.scale()); });
    scan.cones = cones.data();
    scan.ncone = options.ncone;
  }
  progress.StartRealizations(1);
  const PairKernel kernel = PairKernelOf(scan, BestSimdLevel());

  const int nrow = std::max(options.ncone, 1);
  const std::size_t nresult = kSize * nrow * options.nlag + 1;
  const std::ptrdiff_t most = std::min(kMostChunks, kMostSums / static_cast<std::ptrdiff_t>(nresult));
  const std::ptrdiff_t nchunk = std::max<std::ptrdiff_t>(1, std::min(data.n / kLeastChunk, most));
  Buffer<PairSum> chunks;
  if (const int status = chunks.Allocate(kSize * nchunk * nresult); status != 0) return status;
  const std::size_t nsum =
      kSize * ConeGroupCount(scan.ncone) * (scan.ncone > 0 ? kConeSets : 1) * PairBinCount(scan.nlag) * kPairLanes;
  std::atomic<int> word{0};
  std::atomic<std::ptrdiff_t> next{0};
  dealing.EachThread([&](int thread, int) noexcept {
    Buffer<PairSum> sums;
    if (const int status = sums.Allocate(nsum); status != 0) return word.store(status);
    for (std::ptrdiff_t chunk; (chunk = next.fetch_add(1)) < nchunk;) {
      std::fill(sums.begin(), sums.end(), PairSum{});
      const ItemBlock tails = BlockOf(data.n, nchunk, chunk);
      for (std::ptrdiff_t i = tails.begin; i < tails.end; i += kBatch) {
        if (word.load(std::memory_order_relaxed) != 0) return;
        if (const int status = progress.After(0); status != 0) return word.store(status);
        kernel(scan, i, std::min(i + kBatch, tails.end), sums.data());
      }
      Gather(scan, sums.data(), chunks.data() + static_cast<std::size_t>(chunk) * nresult);
      if (thread == 0) {
        const int status = progress.Publish(static_cast<double>(chunk + 1) / static_cast<double>(nchunk));
        if (status != 0) return word.store(status);
      }
    }
  });
  if (const int status = word.load(); status != 0) return status;
  // Another thread may have done the last chunk.
  if (const int status = progress.Publish(1.0); status != 0) return status;

  for (std::size_t k = 0; k < nresult; ++k) {
    PairSum sum{};
    for (std::ptrdiff_t chunk = 0; chunk < nchunk; ++chunk) Add(chunks[kSize * chunk * nresult + k], &sum);
    const auto pairs = static_cast<std::int64_t>(sum.pairs);
    if (k + 1 == nresult) {
      *result.coincident = pairs;
      break;
    }
    const bool none = pairs == 0;
    result.pairs[k] = pairs;
    result.distance[k] = none ? std::numeric_limits<double>::quiet_NaN() : sum.distance / sum.pairs / points.scale();
    result.gamma[k] = none ? std::numeric_limits<double>::quiet_NaN() : GammaOf(sum, scan, points.valueScale());
  }
  return 0;
}

}  // namespace kestrum
