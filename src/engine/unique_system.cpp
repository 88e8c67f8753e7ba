#include "engine/unique_system.hpp"

#include <algorithm>
#include <cstddef>

#include "core/node_coordinates.hpp"
#include "core/object_array.hpp"

namespace kestrum {

int UniqueData::Gather(const VORL_GRID& grid, const real* values, int limit) noexcept {
  if (limit < 1) return -71265;
  const std::ptrdiff_t informed = grid.nxyz - std::count(values, values + grid.nxyz, real{VORL_MISSING_VALUE});
  if (informed > limit) return -71266;
  if (informed == 0) return -71267;
  for (Buffer<real>* buffer : {&x, &y, &z, &value}) {
    if (const int status = buffer->Allocate(informed); status != 0) return status;
  }
  if (const int status = node.Allocate(informed); status != 0) return status;
  for (int i = 0; i < grid.nxyz; ++i) {
    if (values[i] == VORL_MISSING_VALUE) continue;
    const auto [ix, iy, iz] = CoordinatesOf(grid, i);
    x[n] = ix * grid.sx;
    y[n] = iy * grid.sy;
    z[n] = iz * grid.sz;
    value[n] = values[i];
    node[n] = i;
    ++n;
  }
  return 0;
}

void UniqueData::Rotate(const Rotation& rotation, Dealing dealing) noexcept {
  dealing.Blocks(n, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
    for (std::ptrdiff_t i = begin; i < end; ++i) {
      const Rotation::Lag at = rotation.ToModelAxes(x[i], y[i], z[i]);
      x[i] = at.x;
      y[i] = at.y;
      z[i] = at.z;
    }
  });
}

int UniqueSystem::Build(const KrigingModel& model, const UniqueData& data, RightSide rightSide,
                        Dealing dealing) noexcept {
  model_ = &model;
  data_ = &data;
  rightSide_ = rightSide;
  size_ = model.SystemSize(data.n);
  limits_ = SolverLimits(size_);
  if (const int status = guess_.Allocate(size_); status != 0) return status;
  const int m = data.n;
  const std::ptrdiff_t size = size_;
  if (const int status = matrix_.Allocate(static_cast<std::size_t>(size) * size); status != 0) return status;
  ObjectArray<Buffer<real>> lags;  // per thread
  if (const int status = lags.Allocate(dealing.nscratch()); status != 0) return status;
  for (Buffer<real>& lag : lags) {
    if (const int status = lag.Allocate(3 * static_cast<std::size_t>(m)); status != 0) return status;
  }
  const Rotation* const rotation = model.rotated && rightSide == RightSide::kAtNode ? &model.rotation : nullptr;
  real* const matrix = matrix_.data();
  dealing.EachThread([&](int thread, int team) noexcept {
    real* const lagX = lags[thread].data();
    real* const lagY = lagX + m;
    real* const lagZ = lagY + m;
    for (int i = thread; i < m; i += team) {
      const int count = m - 1 - i;
      for (int k = 0; k < count; ++k) {
        lagX[k] = data.x[i + 1 + k] - data.x[i];
        lagY[k] = data.y[i + 1 + k] - data.y[i];
        lagZ[k] = data.z[i + 1 + k] - data.z[i];
      }
      real* const row = matrix + i * size;
      EvaluateFixed(*model.covModel, rotation, count, lagX, lagY, lagZ, row + i + 1);
      row[i] = model.sill;
      for (int j = i + 1; j < m; ++j) matrix[j * size + i] = row[j];
      if (model.ordinaryKriging) {
        row[m] = 1.0;
        matrix[m * size + i] = 1.0;
      }
    }
  });
  if (model.ordinaryKriging) matrix[size * size - 1] = 0.0;
  return 0;
}

int UniqueSystem::AllocateScratch(Scratch& scratch) const noexcept {
  VORLInitRandContext(&scratch.context);
  const std::size_t n = size_;
  const std::size_t m = data_->n;
  const struct {
    Buffer<real>* buffer;
    std::size_t size;
  } wanted[] = {{&scratch.lag, 4 * m},
                {&scratch.rhs, n * kLanes},
                {&scratch.solution, n * kLanes},
                {&scratch.work, GmresBatchWorkSize(size_, limits_.restart)},
                {&scratch.loneRhs, n},
                {&scratch.loneSolution, n},
                {&scratch.loneWork, GmresWorkSize(size_, limits_.restart)},
                {&scratch.weight, m * kLanes}};
  for (const auto& [buffer, count] : wanted) {
    if (const int status = buffer->Allocate(count); status != 0) return status;
  }
  return 0;
}

void UniqueSystem::Solve(const VORL_GRID& grid, const int* nodes, int count, Scratch& scratch) const noexcept {
  const int m = data_->n;
  FillRhs(grid, nodes, count, scratch);
  for (int i = 0; i < size_; ++i) std::fill_n(&scratch.solution[i * kLanes], kLanes, guess_.first()[i]);
  const unsigned converged = GmresBatchShared(limits_, size_, matrix_.data(), size_, scratch.rhs.data(),
                                              scratch.solution.data(), scratch.work.data());
  for (int lane = 0; lane < count; ++lane) {
    SolvedSystem& system = scratch.system[lane] = {};
    real* const weight = &scratch.weight[static_cast<std::size_t>(lane) * m];
    system.sill = model_->sill;
    if ((converged >> lane & 1u) != 0) {
      system.Keep(*model_, m, &scratch.solution[lane], &scratch.rhs[lane], kLanes, weight);
    } else {
      const int left = SolveAlone(lane, scratch) ? m : 0;
      system.Keep(*model_, left, scratch.loneSolution.data(), scratch.loneRhs.data(), 1, weight);
    }
  }
}

void UniqueSystem::FillRhs(const VORL_GRID& grid, const int* nodes, int count, Scratch& scratch) const noexcept {
  const int m = data_->n;
  real* const lagX = scratch.lag.data();
  real* const lagY = lagX + m;
  real* const lagZ = lagY + m;
  real* const covariance = lagZ + m;
  const bool fixed = rightSide_ == RightSide::kFixed;
  for (int lane = 0; lane < kLanes; ++lane) {
    const int node = nodes[std::min(lane, count - 1)];
    const auto [ix, iy, iz] = CoordinatesOf(grid, node);
    Rotation::Lag at{ix * grid.sx, iy * grid.sy, iz * grid.sz};
    if (model_->rotated && fixed) at = model_->rotation.ToModelAxes(at.x, at.y, at.z);
    for (int i = 0; i < m; ++i) {
      lagX[i] = at.x - data_->x[i];
      lagY[i] = at.y - data_->y[i];
      lagZ[i] = at.z - data_->z[i];
    }
    if (fixed) {
      EvaluateFixed(*model_->covModel, nullptr, m, lagX, lagY, lagZ, covariance);
    } else {
      const Rotation* const rotation = model_->rotated ? &model_->rotation : nullptr;
      EvaluateAtNode(*model_->covModel, node, rotation, m, lagX, lagY, lagZ, covariance);
    }
    for (int i = 0; i < m; ++i) scratch.rhs[i * kLanes + lane] = covariance[i];
    if (model_->ordinaryKriging) scratch.rhs[m * kLanes + lane] = 1.0;
  }
}

bool UniqueSystem::SolveAlone(int lane, Scratch& scratch) const noexcept {
  for (int i = 0; i < size_; ++i) scratch.loneRhs[i] = scratch.rhs[i * kLanes + lane];
  for (int attempt = 2; attempt <= kMaxAttempt; ++attempt) {
    FirstGuess::Draw(attempt, size_, scratch.loneSolution.data(), scratch.context);
    if (Gmres(limits_, size_, matrix_.data(), size_, scratch.loneRhs.data(), scratch.loneSolution.data(),
              scratch.loneWork.data())) {
      return true;
    }
  }
  return false;
}

}  // namespace kestrum
