#include "engine/place_cells.hpp"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <numeric>

#include "numeric/cholesky_lanes.hpp"
#include "numeric/gather_lanes.hpp"

namespace kestrum {
namespace {

constexpr int kTargets = HeadTable::kTargets;
static_assert(kTargets == PlaceCell::kMaxTargets);

constexpr std::ptrdiff_t Row(std::ptrdiff_t i) noexcept { return i * (i + 1) / 2 * kLanes; }

}  // namespace

bool PlaceCells::Serve(const PlaceRun& run, const PlaceNeighborhood& neighborhood) noexcept {
  // With fewer data, many targets have the same ones: there are about twice as many sets of k data in the plane as k times
  // the data, and far more in space. For the fewest there is little to gain.
  constexpr int kLeastData = 1000;
  const std::int64_t nodesOfDatum = std::int64_t{neighborhood.limit} * (run.data.dimension > 2 ? 10 : 3);
  const VORL_GRID& grid = run.targets.places.grid;
  return run.targets.places.list == nullptr && run.fold == nullptr && !run.covariance.varies() &&
         run.data.terms.variables() == 0 && run.results.weights == nullptr && neighborhood.limit > 0 &&
         neighborhood.limit <= kMaxMembers && run.data.n >= kLeastData &&
         std::int64_t{grid.nx} * grid.ny * grid.nz <= nodesOfDatum * run.data.n;
}

int PlaceCells::Allocate(const PlaceRun& run) noexcept {
  run_ = &run;
  table_.q = run.data.terms.count();
  table_.start = start_;
  for (int j = 0; j < kMaxCandidates; ++j) rightStart_[j] = j * kTargets;
  constexpr std::size_t kColumns = kMaxCandidates + kLanes;
  constexpr std::size_t kMaxRows = kMaxCandidates + 1;
  constexpr std::size_t kLeft = (kMaxMembers + 1) * kLanes;
  int status = 0;
  const auto allocate = [&](Buffer<double>* buffer, std::size_t size) {
    if (status == 0) status = buffer->Allocate(size, 0.0);
  };
  allocate(&lags_, 3 * kMaxCandidates * kTargets);
  allocate(&covariances_, kMaxRows * kColumns);
  allocate(&right_, kMaxRows * kTargets);
  allocate(&factor_, kMaxMembers * kColumns);
  allocate(&a_, PackedLanesSize(kMaxMembers + 1));
  for (Buffer<double>* vector : {&b_, &values_, &diagonal_}) allocate(vector, kLeft);
  allocate(&work_, 4 * kLeft);
  return status;
}

double PlaceCells::DataVariance(const PlaceCell& cell, int candidate,
                                const TargetCovariance& covariance) const noexcept {
  const double variance = covariance.dataVariance();
  if (!run_->data.errorVariance) return variance;
  return variance + run_->data.errorVariance[static_cast<std::size_t>(cell.datum[candidate])];
}

// The covariances of the candidates with each other and with the targets, the drift and the values.
void PlaceCells::FillTable(const PlaceNodes& nodes, const PlaceCell& cell,
                           const TargetCovariance& covariance) noexcept {
  const int n = table_.n = cell.ncandidate;
  const int q = table_.q;
  const int columns = table_.columns = (n + q + 1 + kLanes - 1) / kLanes * kLanes;
  const double* const places[3] = {cell.candidates.x, cell.candidates.y, cell.candidates.z};
  int total = 0;
  for (int j = 0; j < n + q; ++j) {
    start_[j] = total - j / kLanes * kLanes;
    total += columns - j / kLanes * kLanes;
  }
  const int dimension = run_->data.dimension;
  table_.table = covariances_.data();
  covariance.BetweenData({dimension,
                          n,
                          {places[0], places[1], places[2]},
                          columns,
                          {places[0], places[1], places[2]},
                          start_,
                          true,
                          table_.table});

  double target[3][kTargets];
  for (int t = 0; t < kTargets; ++t) {
    const int node = cell.begin + std::min(t, cell.count - 1);
    target[0][t] = nodes.x[node];
    target[1][t] = nodes.y[node];
    target[2][t] = nodes.z[node];
  }
  table_.right = right_.data();
  covariance.WithTargets({dimension,
                          n,
                          {places[0], places[1], places[2]},
                          kTargets,
                          {target[0], target[1], target[2]},
                          rightStart_,
                          false,
                          table_.right},
                         lags_.data());

  for (int j = 0; j < n; ++j) {
    double* const row = table_.table + start_[j];
    const auto datum = static_cast<std::size_t>(cell.datum[j]);
    row[j] = DataVariance(cell, j, covariance);
    std::fill_n(row + n, q, 1.0);
    row[n + q] = run_->data.residual[datum];
    std::fill(row + n + q + 1, row + columns, 0.0);
  }
  for (int j = n; j < n + q; ++j) {
    double* const row = table_.table + start_[j];
    std::fill(row + j / kLanes * kLanes, row + columns, 0.0);
    std::fill_n(table_.right + j * kTargets, kTargets, 1.0);
  }
}

void PlaceCells::Krige(const PlaceNodes& nodes, const PlaceCell& cell, const TargetCovariance& covariance) noexcept {
  if (cell.ncandidate == 0) {
    for (int i = 0; i < cell.count; ++i) {
      run_->WriteWithoutData(nodes.target[cell.begin + i], covariance.targetVariance(), &report_);
    }
    return;
  }
  FillTable(nodes, cell, covariance);
  const std::uint64_t common = std::accumulate(cell.member, cell.member + cell.count, ~std::uint64_t{0},
                                               [](std::uint64_t all, std::uint64_t own) { return all & own; });
  table_.head = std::countr_one(common);
  const HeadOutcome head = EliminateHead(table_, factor_.data(), estimate_, explained_, run_->level);
  for (int first = 0; first < cell.count; first += kLanes) KrigeLeft(nodes, cell, first, head, covariance);
}

// Kriges up to kLanes targets from what the head has left of their systems.
void PlaceCells::KrigeLeft(const PlaceNodes& nodes, const PlaceCell& cell, int first, const HeadOutcome& head,
                           const TargetCovariance& covariance) noexcept {
  const int q = table_.q;
  const int taken = std::min(kLanes, cell.count - first);
  int position[kMaxMembers * kLanes];
  int start[kMaxMembers * kLanes] = {};
  int right[kMaxMembers * kLanes] = {};
  int left[kLanes] = {};
  for (int l = 0; l < taken; ++l) {
    int* at = position + l;
    for (std::uint64_t rest = cell.member[first + l] >> table_.head << table_.head; rest != 0; rest &= rest - 1) {
      *at = std::countr_zero(rest);
      at += kLanes;
    }
    left[l] = static_cast<int>(at - position - l) / kLanes;
  }
  const int m = *std::max_element(left, left + kLanes);
  const bool even = *std::min_element(left, left + kLanes) == m;
  for (int l = 0; l < kLanes && !even; ++l) {
    for (int i = left[l]; i < m; ++i) position[i * kLanes + l] = 0;
  }
  for (int i = 0; i < m * kLanes; ++i) {
    start[i] = start_[position[i]];
    right[i] = rightStart_[position[i]];
  }

  // Row i of the matrices, or of a vector, without what lanes with less than others lack.
  const SimdLevel level = run_->level;
  const auto gather = [&](int count, const double* table, const int* from, const int* at, double* to) {
    GatherLanes(count, table, from, at, to, level);
    for (int l = 0; l < kLanes && !even; ++l) {
      for (int i = left[l]; i < count; ++i) to[i * kLanes + l] = 0.0;
    }
  };
  const auto gatherColumn = [&](int column, double* to) {
    int from[kLanes];
    std::fill_n(from, kLanes, column);
    gather(m, table_.table, from, start, to);
  };
  for (int i = 0; i < m; ++i) {
    double* const row = a_.data() + Row(i);
    gather(i + 1, table_.table, position + i * kLanes, start, row);
    double* const diagonals = diagonal_.data() + i * kLanes;
    if (even && !run_->data.errorVariance) {
      std::fill_n(diagonals, kLanes, covariance.dataVariance());
      continue;
    }
    for (int l = 0; l < kLanes; ++l) {
      double& diagonal = diagonals[l];
      if (i < left[l]) {
        diagonal = DataVariance(cell, position[i * kLanes + l], covariance);
        continue;
      }
      for (int j = 0; j < i; ++j) row[j * kLanes + l] = 0.0;
      diagonal = row[i * kLanes + l] = 1.0;
    }
  }
  const int n = table_.n;
  gatherColumn(n + q, values_.data());
  int targets[kLanes];
  std::iota(targets, targets + kLanes, first);
  gather(m, table_.right, targets, right, b_.data());
  for (int k = 0; k < q; ++k) {
    double* const row = a_.data() + Row(m + k);
    gatherColumn(n + k, row);
    for (int c = 0; c <= k; ++c) std::fill_n(row + (m + c) * kLanes, kLanes, table_.table[start_[n + c] + n + k]);
    std::fill_n(values_.data() + (m + k) * kLanes, kLanes, table_.table[start_[n + k] + n + q]);
    std::copy_n(table_.right + (n + k) * kTargets + first, kLanes, b_.data() + (m + k) * kLanes);
  }

  const LanesOutcome outcome = FactoriseLanes(m, q, diagonal_.data(), a_.data(), work_.data(), level);
  PrepareLanes(m + q, a_.data(), values_.data(), level);
  KrigeLanes(m + q, a_.data(), values_.data(), 1, b_.data(), estimate_ + first, explained_ + first, level);
  for (int l = 0; l < taken; ++l) {
    const int ndata = std::popcount(cell.member[first + l]);
    const std::int64_t target = nodes.target[cell.begin + first + l];
    const bool indefinite = head.indefinite || (outcome.indefinite >> l & 1) != 0;
    const bool undetermined = (outcome.dependent >> l & 1) != 0;
    if (ndata == 0) {
      run_->WriteWithoutData(target, covariance.targetVariance(), &report_);
    } else if (indefinite || undetermined) {
      ++(indefinite ? report_.indefinite : report_.undetermined);
      run_->WriteNothing(target, ndata);
    } else {
      report_.redundant += head.redundant || (outcome.redundant >> l & 1) != 0;
      run_->Write(target, ndata, estimate_[first + l], explained_[first + l], covariance.targetVariance(), &report_);
    }
  }
}

}  // namespace kestrum
