#include "engine/place_lanes.hpp"

#include <algorithm>

#include "numeric/cholesky_lanes.hpp"
#include "numeric/gather_lanes.hpp"

namespace kestrum {
namespace {

// The starts of row i of a packed triangle, with and without its diagonal.
constexpr std::ptrdiff_t Row(std::ptrdiff_t i) noexcept { return i * (i + 1) / 2; }
constexpr std::ptrdiff_t PairRow(std::ptrdiff_t i) noexcept { return i * (i - 1) / 2; }

// Where row i of a lane is among rows of kLanes.
constexpr std::size_t Entry(int i, int lane) noexcept {
  return static_cast<std::size_t>(i) * kLanes + static_cast<std::size_t>(lane);
}

}  // namespace

int PackCovariances(const TargetCovariance& covariance, int n, const PlaceVectors& places, Buffer<double>* lags,
                    Buffer<double>* packed) noexcept {
  const auto pairs = static_cast<std::size_t>(PairRow(n));
  if (pairs == 0) return 0;
  if (packed->size() < pairs) {
    if (const int status = packed->Allocate(pairs); status != 0) return status;
    if (const int status = lags->Allocate(3 * pairs); status != 0) return status;
  }
  double* const dx = lags->data();
  double* const dy = dx + pairs;
  double* const dz = dy + pairs;
  std::size_t pair = 0;
  for (int i = 1; i < n; ++i) {
    for (int j = 0; j < i; ++j, ++pair) {
      dx[pair] = places.x[i] - places.x[j];
      dy[pair] = places.y[i] - places.y[j];
      dz[pair] = places.z[i] - places.z[j];
    }
  }
  covariance.BetweenData(static_cast<int>(pairs), dx, dy, dz, packed->data());
  return 0;
}

int PlaceLanes::Allocate(const PlaceRun& run) noexcept {
  run_ = &run;
  q_ = run.data.terms.count();
  const std::size_t rows = static_cast<std::size_t>(kMaxData + q_) * kLanes;
  int status = 0;
  for (Buffer<double>* vector : {&x_, &y_, &z_, &values_}) {
    if (status == 0) status = vector->Allocate(rows);
  }
  if (status == 0) status = a_.Allocate(PackedLanesSize(kMaxData + q_));
  if (status == 0) status = position_.Allocate(rows);
  if (status == 0) status = b_.Allocate(kRounds * rows);
  if (status == 0) status = work_.Allocate(4 * rows);
  for (PlaceDrift& drift : drift_) {
    if (status == 0) status = drift.Allocate(run.data.terms);
  }
  return status;
}

void PlaceLanes::Add(const PlaceMembers& members, const double* packed, const TargetCovariance& covariance, int ntarget,
                     const PlaceTarget* targets) noexcept {
  const PlaceDataset& data = run_->data;
  Lane& lane = lanes_[taken_];
  lane.n = members.n;
  covariance_ = &covariance;
  lane.dataVariance = covariance.dataVariance();
  lane.targetVariance = covariance.targetVariance();
  lane.ntarget = ntarget;
  std::copy_n(targets, ntarget, lane.target);
  table_ = taken_ == 0 || packed == table_ ? packed : nullptr;
  for (int i = 0; i < members.n; ++i) {
    const int position = members.Position(i);
    const auto datum = static_cast<std::size_t>(members.Datum(i));
    const auto at = Entry(i, taken_);
    lane.datum[i] = static_cast<int>(datum);
    x_[at] = members.candidates.x[position];
    y_[at] = members.candidates.y[position];
    z_[at] = members.candidates.z[position];
    values_[at] = data.residual[datum];
    position_[at] = position;
  }
  if (run_->covariance.varies()) {
    for (int i = 0; i < members.n; ++i) {
      const double* const row = packed + PairRow(members.position[i]);
      double* const own = a_.data() + Row(i) * kLanes + taken_;
      for (int j = 0; j < i; ++j) own[j * kLanes] = row[members.position[j]];
    }
    double lags[3][kMaxData] = {};
    for (int i = 0; i < members.n; ++i) {
      const int position = members.Position(i);
      lags[0][i] = members.candidates.x[position] - targets[0].x;
      lags[1][i] = members.candidates.y[position] - targets[0].y;
      lags[2][i] = members.candidates.z[position] - targets[0].z;
    }
    covariance.WithTarget(members.n, lags[0], lags[1], lags[2], lane.covariance);
  }
  if (run_->data.terms.variables() > 0) {
    drift_[taken_].Fit(members.n, [&](int v, int i) {
      const std::size_t at = Entry(i, taken_);
      return run_->data.Variable(v, x_[at], y_[at], z_[at], lane.datum[i]);
    });
  }
  if (++taken_ == kLanes) Flush();
}

// The covariances of row i of all lanes: those of the table, or evaluated.
void PlaceLanes::FillRow(int i, double* row) noexcept {
  const std::ptrdiff_t own = i * kLanes;
  if (table_ != nullptr) {
    int start[kLanes];
    for (int l = 0; l < kLanes; ++l) start[l] = static_cast<int>(PairRow(position_[Entry(i, l)]));
    return GatherLanes(i, table_, start, position_.data(), row, run_->level);
  }
  const PlaceVectors places{x_.data(), y_.data(), z_.data()};
  CovariancesOfLanes(i, places, kLanes, {places.x + own, places.y + own, places.z + own}, run_->level, row,
                     [&](int count, const double* dx, const double* dy, const double* dz, double* cov) {
                       covariance_->BetweenData(count, dx, dy, dz, cov);
                     });
}

// Fills the matrices side by side, completes lanes that are not taken, or have fewer data than n, and adds the drift.
void PlaceLanes::FillMatrix(int n) noexcept {
  for (int l = 0; l < kLanes; ++l) {
    for (int i = lanes_[l].n; i < n + q_; ++i) {
      const auto at = Entry(i, l);
      x_[at] = y_[at] = z_[at] = values_[at] = 0.0;
      position_[at] = 0;
    }
  }
  const bool varies = run_->covariance.varies();
  for (int i = 0; i < n; ++i) {
    double* const row = a_.data() + Row(i) * kLanes;
    if (!varies) FillRow(i, row);
    double* const diagonal = row + i * kLanes;
    for (int l = 0; l < kLanes; ++l) {
      const Lane& lane = lanes_[l];
      if (i < lane.n) {
        diagonal[l] = lane.dataVariance;
        if (run_->data.errorVariance) diagonal[l] += run_->data.errorVariance[static_cast<std::size_t>(lane.datum[i])];
      } else {
        for (std::ptrdiff_t j = 0; j < i; ++j) row[j * kLanes + l] = 0.0;
        diagonal[l] = 1.0;
      }
    }
  }
  if (q_ == 0) return;
  for (int l = 0; l < kLanes; ++l) {
    const Lane& lane = lanes_[l];
    const auto row = [&](int k) { return a_.data() + Row(n + k) * kLanes + l; };
    for (int j = 0; j < n; ++j) row(0)[j * kLanes] = j < lane.n ? 1.0 : 0.0;
    for (int k = 1; k < q_; ++k) {
      for (int j = lane.n; j < n; ++j) row(k)[j * kLanes] = 0.0;
    }
    for (int j = 0; j < lane.n && q_ > 1; ++j) {
      const auto at = Entry(j, l);
      drift_[l].Terms([&](int v) { return run_->data.Variable(v, x_[at], y_[at], z_[at], lane.datum[j]); }, nullptr,
                      [&](int k, double term) { row(k)[j * kLanes] = term; });
    }
  }
}

// The right sides of one target of each lane; lanes with no more targets repeat their last.
void PlaceLanes::FillRightSide(int n, int round, double* b) noexcept {
  PlaceTarget targets[kLanes];
  for (int l = 0; l < kLanes; ++l) targets[l] = lanes_[l].target[std::min(round, std::max(0, lanes_[l].ntarget - 1))];
  const PlaceVectors places{x_.data(), y_.data(), z_.data()};
  if (!run_->covariance.varies()) {
    CovariancesWithTargets(*covariance_, n, places, kLanes, targets, run_->level, b);
  } else {
    for (int l = 0; l < taken_; ++l) {
      for (int i = 0; i < lanes_[l].n; ++i) b[i * kLanes + l] = lanes_[l].covariance[i];
    }
  }
  for (int l = 0; l < kLanes; ++l) {
    for (int i = lanes_[l].n; i < n + q_; ++i) b[i * kLanes + l] = 0.0;
    if (lanes_[l].n > 0) run_->WriteDrift(drift_[l], targets[l], b + n * kLanes + l);
  }
}

void PlaceLanes::Flush() noexcept {
  if (taken_ == 0) return;
  int n = 0;
  int rounds = 0;
  for (int l = 0; l < kLanes; ++l) {
    if (l >= taken_) lanes_[l].n = lanes_[l].ntarget = 0;
    n = std::max(n, lanes_[l].n);
    rounds = std::max(rounds, lanes_[l].ntarget);
  }
  const int size = n + q_;
  FillMatrix(n);
  const LanesOutcome outcome = FactoriseLanes(n, q_, nullptr, a_.data(), work_.data(), run_->level);
  PrepareLanes(size, a_.data(), values_.data(), run_->level);
  for (int begin = 0; begin < rounds; begin += kRounds) {
    const int count = std::min(kRounds, rounds - begin);
    const auto rightSide = [&](int round) { return b_.data() + round * size * kLanes; };
    for (int r = 0; r < count; ++r) FillRightSide(n, begin + r, rightSide(r));
    alignas(64) double sum[kRounds * kLanes] = {};
    alignas(64) double explained[kRounds * kLanes] = {};
    KrigeLanes(size, a_.data(), values_.data(), count, b_.data(), sum, explained, run_->level);
    for (int r = 0; r < count; ++r) {
      if (run_->results.weights != nullptr) WeightsOfLanes(size, a_.data(), rightSide(r));
      for (int l = 0; l < taken_; ++l) {
        const Lane& lane = lanes_[l];
        if (begin + r >= lane.ntarget) continue;
        const std::int64_t target = lane.target[begin + r].number;
        const bool indefinite = (outcome.indefinite >> l & 1) != 0;
        const bool undetermined = (outcome.dependent >> l & 1) != 0;
        if (indefinite || undetermined) {
          ++(indefinite ? report_.indefinite : report_.undetermined);
          run_->WriteNothing(target, lane.n);
          continue;
        }
        report_.redundant += outcome.redundant >> l & 1;
        const double* const x = rightSide(r) + l;
        run_->WriteWeights(target, {lane.n, nullptr, {}, lane.datum}, [&](int i) { return x[i * kLanes]; });
        run_->Write(target, lane.n, sum[r * kLanes + l], explained[r * kLanes + l], lane.targetVariance, &report_);
      }
    }
  }
  taken_ = 0;
}

}  // namespace kestrum
