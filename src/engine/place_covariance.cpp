#include "engine/place_covariance.hpp"

#include <algorithm>
#include <cstddef>

#include "core/statuses.hpp"

namespace kestrum {
namespace {

// Lags are taken in blocks that fit on the stack.
constexpr int kLags = 128;
// After so many points of a cell work asks whether it is to stop.
constexpr int kPointsPerQuestion = 1024;

}  // namespace

int PlaceCovariance::Prepare(const VORL_COVMODEL& model, const int* block, const double* spacing,
                             const Progress& progress) noexcept {
  model_ = &model;
  progress_ = &progress;
  const auto count = static_cast<std::size_t>(model.nelem);
  if (const int status = elements_.Allocate(count); status != 0) return status;
  smooth_ = model;
  smooth_.covModelElem = elements_.data();
  smooth_.nelem = 0;
  varies_ = model.angle1Image != nullptr || model.angle2Image != nullptr || model.angle3Image != nullptr;
  for (int i = 0; i < model.nelem; ++i) {
    const VORL_COVMODELELEM& element = model.covModelElem[i];
    const bool ranged = ElementType(element) != COV_NUGGET;
    varies_ = varies_ || element.weightImage != nullptr ||
              (ranged && (element.rxImage != nullptr || element.ryImage != nullptr || element.rzImage != nullptr)) ||
              (HasExtraParameter(ElementType(element)) && element.sImage != nullptr);
    if (ranged) elements_[static_cast<std::size_t>(smooth_.nelem++)] = element;
  }

  points_ = block[0] * block[1] * block[2];
  if (points_ == 1) return 0;
  for (int a = 0; a < 3; ++a) {
    block_[a] = block[a];
    spacing_[a] = block[a] > 1 ? spacing[a] / block[a] : 0.0;
    if (const int status = offset_[a].Allocate(static_cast<std::size_t>(block[a])); status != 0) return status;
    for (int i = 0; i < block[a]; ++i) {
      offset_[a][static_cast<std::size_t>(i)] = (i - 0.5 * (block[a] - 1)) * spacing_[a];
    }
  }
  return ForEachPoint([&](double x, double y, double z) {
    spread_[0] += x * x / points_;
    spread_[1] += y * y / points_;
    spread_[2] += z * z / points_;
  });
}

// Calls visit(x, y, z) with the offset of each point of a cell from its centre, x fastest. Returns 0 or kAborted.
template <typename Visit>
int PlaceCovariance::ForEachPoint(const Visit& visit) const noexcept {
  std::size_t at[3] = {0, 0, 0};
  for (int p = 0; p < points_; ++p) {
    if (p % kPointsPerQuestion == 0 && progress_->Aborted()) return kAborted;
    visit(offset_[0][at[0]], offset_[1][at[1]], offset_[2][at[2]]);
    for (int a = 0; a < 3 && ++at[a] == offset_[a].size(); ++a) at[a] = 0;
  }
  return 0;
}

bool PlaceCovariance::RotationAt(int node, Rotation* rotation) const noexcept {
  real angles[3];
  const bool rotated = varies_ ? AnglesAtNode(*model_, node, angles) : StationaryAngles(*model_, angles);
  if (rotated) *rotation = Rotation::FromAnglesExactly(angles);
  return rotated;
}

PlaceMetric PlaceCovariance::MetricAt(int node, int dimension) const noexcept {
  const auto read = [&](const VORL_IMAGE* image, real value) {
    return varies_ ? ParametersAtNode{node}(image, value) : value;
  };
  double longest[3] = {0.0, 0.0, 0.0};
  for (int i = 0; i < smooth_.nelem; ++i) {
    const VORL_COVMODELELEM& element = smooth_.covModelElem[i];
    if (!(read(element.weightImage, element.weightValue) > 0.0)) continue;
    longest[0] = std::max(longest[0], read(element.rxImage, element.rxValue));
    longest[1] = std::max(longest[1], read(element.ryImage, element.ryValue));
    longest[2] = std::max(longest[2], read(element.rzImage, element.rzValue));
  }
  if (longest[0] == 0.0) return {};
  Rotation rotation;
  const bool rotated = RotationAt(node, &rotation);
  return PlaceMetric::FromRanges(longest, rotated ? &rotation : nullptr, dimension);
}

int TargetCovariance::Allocate(const PlaceCovariance& all, SimdLevel level) noexcept {
  all_ = &all;
  level_ = level;
  if (const int status = data_.Allocate(all.model_->nelem); status != 0) return status;
  return all.points_ > 1 ? smooth_.Allocate(all.model_->nelem) : 0;
}

int TargetCovariance::Prepare(int node) noexcept {
  const auto prepare = [&](ExactCovariance& covariance, const VORL_COVMODEL& model) {
    if (all_->varies_) {
      covariance.Prepare(model, ParametersAtNode{node});
    } else {
      covariance.Prepare(model, ConstantParameters{});
    }
  };
  prepare(data_, *all_->model_);
  targetVariance_ = dataVariance_ = data_.Sill();
  if (all_->points_ == 1) return 0;
  prepare(smooth_, all_->smooth_);
  return FindMeanWithinCell(&targetVariance_);
}

// Each lag between two points of a cell comes as often as points have a partner at it.
int TargetCovariance::FindMeanWithinCell(double* mean) const noexcept {
  const int* const block = all_->block_;
  const auto pairs = [&](int axis, int step) { return block[axis] - (step < 0 ? -step : step); };
  double x[kLags];
  double y[kLags];
  double z[kLags];
  double covariance[kLags];
  double sum = 0.0;
  for (int k = 1 - block[2]; k < block[2]; ++k) {
    for (int j = 1 - block[1]; j < block[1]; ++j) {
      for (int begin = 1 - block[0]; begin < block[0]; begin += std::min(kLags, block[0] - begin)) {
        if (all_->progress_->Aborted()) return kAborted;
        const int count = std::min(kLags, block[0] - begin);
        std::fill_n(y, count, j * all_->spacing_[1]);
        std::fill_n(z, count, k * all_->spacing_[2]);
        for (int i = 0; i < count; ++i) x[i] = (begin + i) * all_->spacing_[0];
        smooth_.Evaluate(count, x, y, z, covariance, level_);
        for (int i = 0; i < count; ++i) sum += pairs(0, begin + i) * pairs(1, j) * pairs(2, k) * covariance[i];
      }
    }
  }
  *mean = sum / all_->points_ / all_->points_;
  return 0;
}

void TargetCovariance::WithTarget(int n, const double* dx, const double* dy, const double* dz,
                                  double* cov) const noexcept {
  const int points = all_->points_;
  if (points == 1) return data_.Evaluate(n, dx, dy, dz, cov, level_);
  double x[kLags];
  double y[kLags];
  double z[kLags];
  double covariance[kLags];
  for (int begin = 0; begin < n; begin += kLags) {
    const int count = std::min(kLags, n - begin);
    std::fill_n(cov + begin, count, 0.0);
    all_->ForEachPoint([&](double atX, double atY, double atZ) {
      for (int i = 0; i < count; ++i) {
        x[i] = dx[begin + i] - atX;
        y[i] = dy[begin + i] - atY;
        z[i] = dz[begin + i] - atZ;
      }
      smooth_.Evaluate(count, x, y, z, covariance, level_);
      for (int i = 0; i < count; ++i) cov[begin + i] += covariance[i];
    });
    for (int i = 0; i < count; ++i) cov[begin + i] /= points;
  }
}

void TargetCovariance::WithTargets(const LagRows& lags, double* room) const noexcept {
  if (all_->points_ == 1) return data_.EvaluateRows(lags, level_);
  const std::ptrdiff_t count = std::ptrdiff_t{lags.n} * lags.columns;
  double* const lag[3] = {room, room + count, room + 2 * count};
  LagsOfRows(lags, lag, level_);
  WithTarget(static_cast<int>(count), lag[0], lag[1], lag[2], lags.cov);
}

}  // namespace kestrum
