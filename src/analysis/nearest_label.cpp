#include "analysis/nearest_label.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "analysis/line_pass.hpp"
#include "core/buffer.hpp"

namespace kestrum {
namespace {

constexpr double kFar = std::numeric_limits<double>::infinity();
constexpr int kLanes = 16;
constexpr std::ptrdiff_t kLongLine = 1 << 16;  // longer ones are done one at a time, which keeps the memory small

constexpr std::ptrdiff_t LanesFor(std::ptrdiff_t n) noexcept { return n > kLongLine ? 1 : kLanes; }

// Lines side by side: what node u of a line has is `lanes` behind what the node before it has.
struct Lines {
  std::ptrdiff_t n;
  std::ptrdiff_t lanes;
  double weight;  // of a step, or of a squared one
  double* cost;
  int* label;
  int* winner;  // the node of the line that is nearest
};

// Distances along the axes of a line: the node nearest to each by one before it, then by one behind.
void SweepLine(const Lines& lines, std::ptrdiff_t lane) noexcept {
  const auto take = [&](std::ptrdiff_t to, std::ptrdiff_t from) noexcept {
    if (lines.cost[from] + lines.weight < lines.cost[to]) {
      lines.cost[to] = lines.cost[from] + lines.weight;
      lines.label[to] = lines.label[from];
    }
  };
  const std::ptrdiff_t step = lines.lanes;
  for (std::ptrdiff_t u = 1; u < lines.n; ++u) take(lane + u * step, lane + (u - 1) * step);
  for (std::ptrdiff_t u = lines.n - 1; u > 0; --u) take(lane + (u - 1) * step, lane + u * step);
}

// Squared distances: finds the winners of the nodes from `begin` to `end`, by the costs costOf(u). Node `top[k]` wins from
// place `from[k]` on, up to the next.
template <typename Cost>
void FindWinners(const Lines& lines, std::ptrdiff_t lane, int begin, int end, const Cost& costOf, int* top,
                 double* from) noexcept {
  int size = 0;
  for (int u = begin; u < end; ++u) {
    const double cost = costOf(u);
    if (cost == kFar) continue;
    double start = -kFar;
    while (size > 0) {
      const int before = top[size - 1];
      start = 0.5 * (u + before + (cost - costOf(before)) / (lines.weight * (u - before)));
      if (start > from[size - 1]) break;
      --size;
      start = -kFar;
    }
    top[size] = u;
    from[size++] = start;
  }
  for (int u = begin, k = 0; u < end; ++u) {
    while (k + 1 < size && from[k + 1] <= u) ++k;
    lines.winner[lane + u * lines.lanes] = size == 0 ? u : top[k];
  }
}

// Calls body(begin, end) for the longest runs of one label other than 0.
template <typename LabelOf, typename Body>
void ForRuns(std::ptrdiff_t n, const LabelOf& labelOf, const Body& body) noexcept {
  for (std::ptrdiff_t begin = 0, end = 0; begin < n; begin = end) {
    for (end = begin + 1; end < n && labelOf(end) == labelOf(begin);) ++end;
    if (labelOf(begin) != 0) body(begin, end);
  }
}

// Depths in each label from those along other axes: nodes beside a run have others.
void FindDepths(const Lines& lines, std::ptrdiff_t lane, bool euclidean, int* top, double* from) noexcept {
  const auto placeOf = [&](std::ptrdiff_t u) noexcept { return lane + u * lines.lanes; };
  const auto labelOf = [&](std::ptrdiff_t u) noexcept { return lines.label[placeOf(u)]; };
  ForRuns(lines.n, labelOf, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
    const auto costOf = [&](std::ptrdiff_t u) noexcept { return u >= begin && u < end ? lines.cost[placeOf(u)] : 0.0; };
    if (euclidean) {
      const std::ptrdiff_t first = std::max<std::ptrdiff_t>(begin - 1, 0);
      const std::ptrdiff_t last = std::min(end + 1, lines.n);
      FindWinners(lines, lane, static_cast<int>(first), static_cast<int>(last), costOf, top, from);
      // The places where winners begin are not needed any more.
      for (std::ptrdiff_t u = begin; u < end; ++u) {
        const std::ptrdiff_t winner = lines.winner[placeOf(u)];
        from[u] = costOf(winner) + static_cast<double>((u - winner) * (u - winner)) * lines.weight;
      }
      for (std::ptrdiff_t u = begin; u < end; ++u) lines.cost[placeOf(u)] = from[u];
      return;
    }
    double before = begin > 0 ? 0.0 : kFar;
    for (std::ptrdiff_t u = begin; u < end; ++u) {
      before = lines.cost[placeOf(u)] = std::min(before + lines.weight, lines.cost[placeOf(u)]);
    }
    before = end < lines.n ? 0.0 : kFar;
    for (std::ptrdiff_t u = end - 1; u >= begin; --u) {
      before = lines.cost[placeOf(u)] = std::min(before + lines.weight, lines.cost[placeOf(u)]);
    }
  });
}

// Depths along a row, in steps.
void DepthsInRow(const int* labels, std::ptrdiff_t n, double* steps) noexcept {
  std::fill_n(steps, n, 0.0);
  const auto labelOf = [labels](std::ptrdiff_t x) noexcept { return labels[x]; };
  ForRuns(n, labelOf, [=](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
    for (std::ptrdiff_t x = begin; x < end; ++x) {
      const double before = begin > 0 ? static_cast<double>(x - begin + 1) : kFar;
      steps[x] = std::min(before, end < n ? static_cast<double>(end - x) : kFar);
    }
  });
}

// Along a row, in steps.
void NearestInRow(const int* labels, std::ptrdiff_t n, double* steps, int* nearest) noexcept {
  double apart = kFar;
  int label = 0;
  for (std::ptrdiff_t x = 0; x < n; ++x) {
    apart = labels[x] != 0 ? 0.0 : apart + 1.0;
    label = labels[x] != 0 ? labels[x] : label;
    steps[x] = apart;
    nearest[x] = label;
  }
  for (std::ptrdiff_t x = n - 1; x >= 0; --x) {
    apart = steps[x] == 0.0 ? 0.0 : apart + 1.0;
    label = steps[x] == 0.0 ? nearest[x] : label;
    if (apart < steps[x]) {
      steps[x] = apart;
      nearest[x] = label;
    }
  }
}

// Distances to labels or, without a map of the nearest ones, depths in them.
class Transform {
 public:
  Transform(const int* labels, DistanceMetric metric, const Dealing& dealing, double* distance, int* nearest) noexcept
      : labels_(labels),
        euclidean_(metric == DistanceMetric::kEuclidean),
        dealing_(dealing),
        distance_(distance),
        nearest_(nearest) {}

  [[nodiscard]] int Allocate(std::ptrdiff_t ny, std::ptrdiff_t nz) noexcept {
    longest_ = std::max(ny, nz);
    size_ = std::max(ny * LanesFor(ny), nz * LanesFor(nz));
    const std::size_t nthread = static_cast<std::size_t>(dealing_.nscratch());
    int status = costs_.Allocate(nthread * static_cast<std::size_t>(size_));
    if (status == 0) status = lineLabels_.Allocate(2 * nthread * static_cast<std::size_t>(size_));
    if (status == 0) status = tops_.Allocate(nthread * static_cast<std::size_t>(longest_));
    if (status == 0) status = starts_.Allocate(nthread * static_cast<std::size_t>(longest_));
    return status;
  }

  void Rows(std::ptrdiff_t nx, std::ptrdiff_t nrow, double spacing, const Progress& progress) noexcept {
    dealing_.Blocks(nrow, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t row = begin; row < end && progress.GoesOn(begin == 0, row, end); ++row) {
        double* const to = distance_ + row * nx;
        if (nearest_ != nullptr) {
          NearestInRow(labels_ + row * nx, nx, to, nearest_ + row * nx);
        } else {
          DepthsInRow(labels_ + row * nx, nx, to);
        }
        for (std::ptrdiff_t x = 0; x < nx; ++x) {
          to[x] *= spacing;
          if (euclidean_) to[x] *= to[x];
        }
      }
    });
  }

  void Pass(const LinePass& pass, const Progress& progress) noexcept {
    const auto doBlock = [&](int thread, std::ptrdiff_t count, std::ptrdiff_t lanes, const auto& forEachRun) {
      DoBlock(pass, thread, count, lanes, forEachRun);
    };
    DealLines<kLanes>(pass, LanesFor(pass.n), dealing_, doBlock, progress);
  }

  void Finish(std::ptrdiff_t n) noexcept {
    if (!euclidean_) return;
    dealing_.Blocks(n, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t i = begin; i < end; ++i) distance_[i] = std::sqrt(distance_[i]);
    });
  }

 private:
  template <typename ForEachRun>
  void DoBlock(const LinePass& pass, int thread, std::ptrdiff_t count, std::ptrdiff_t lanes,
               const ForEachRun& forEachRun) noexcept {
    int* const label = lineLabels_.data() + 2 * thread * size_;
    const Lines lines{
        pass.n, lanes,        euclidean_ ? pass.weight * pass.weight : pass.weight, costs_.data() + thread * size_,
        label,  label + size_};
    int* const top = tops_.data() + thread * longest_;
    double* const start = starts_.data() + thread * longest_;
    forEachRun([&](std::ptrdiff_t index, std::ptrdiff_t place, std::ptrdiff_t length) {
      std::copy_n(distance_ + index, length, lines.cost + place);
      std::copy_n((nearest_ != nullptr ? nearest_ : labels_) + index, length, lines.label + place);
    });
    for (std::ptrdiff_t lane = 0; lane < count; ++lane) {
      if (nearest_ == nullptr) {
        FindDepths(lines, lane, euclidean_, top, start);
      } else if (euclidean_) {
        FindWinners(
            lines, lane, 0, pass.n, [&](std::ptrdiff_t u) noexcept { return lines.cost[lane + u * lanes]; }, top,
            start);
      } else {
        SweepLine(lines, lane);
      }
    }
    forEachRun([&](std::ptrdiff_t index, std::ptrdiff_t place, std::ptrdiff_t length) {
      if (nearest_ == nullptr) {
        std::copy_n(lines.cost + place, length, distance_ + index);
        return;
      }
      for (std::ptrdiff_t k = 0; k < length; ++k) {
        std::ptrdiff_t from = place + k;
        double away = 0.0;
        if (euclidean_) {
          const std::ptrdiff_t u = from / lanes;
          const std::ptrdiff_t winner = lines.winner[from];
          away = static_cast<double>((u - winner) * (u - winner)) * lines.weight;
          from += (winner - u) * lanes;
        }
        distance_[index + k] = lines.cost[from] + away;
        nearest_[index + k] = lines.label[from];
      }
    });
  }

  const int* labels_;
  bool euclidean_;
  const Dealing& dealing_;
  double* distance_;
  int* nearest_;
  std::ptrdiff_t longest_ = 0;
  std::ptrdiff_t size_ = 0;
  Buffer<double> costs_;
  Buffer<int> lineLabels_;  // and winners
  Buffer<int> tops_;
  Buffer<double> starts_;
};

int Run(const VORL_GRID& grid, const int* labels, DistanceMetric metric, const Dealing& dealing,
        const Progress& progress, double* distance, int* nearest) noexcept {
  Transform transform(labels, metric, dealing, distance, nearest);
  if (const int status = transform.Allocate(grid.ny, grid.nz); status != 0) return status;
  const auto& [nx, ny, nz, sx, sy, sz, ox, oy, oz, nxy, nxyz] = grid;
  transform.Rows(nx, std::ptrdiff_t{ny} * nz, sx, progress.Step(0.0, 0.2));
  if (ny > 1) transform.Pass({ny, nx, std::ptrdiff_t{nx} * nz, nx, nxy, sy}, progress.Step(0.2, 0.6));
  if (nz > 1) transform.Pass({nz, nxy, nxy, nxy, nxyz, sz}, progress.Step(0.6, 1.0));
  if (const int status = progress.After(0); status != 0) return status;
  transform.Finish(nxyz);
  return 0;
}

}  // namespace

int NearestLabels(const VORL_GRID& grid, const int* labels, DistanceMetric metric, const Dealing& dealing,
                  const Progress& progress, double* distance, int* nearest) noexcept {
  return Run(grid, labels, metric, dealing, progress, distance, nearest);
}

int LabelDepths(const VORL_GRID& grid, const int* labels, DistanceMetric metric, const Dealing& dealing,
                const Progress& progress, double* depth) noexcept {
  return Run(grid, labels, metric, dealing, progress, depth, nullptr);
}

}  // namespace kestrum
