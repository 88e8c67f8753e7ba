#include "engine/unique_system.hpp"

#include <algorithm>
#include <cstddef>

#include "core/node_coordinates.hpp"
#include "core/object_array.hpp"
#include "core/statuses.hpp"
#include "numeric/cholesky.hpp"

namespace kestrum {
namespace {

// A vector for each thread.
int AllocateRows(std::size_t size, Dealing dealing, ObjectArray<Buffer<real>>& rows) noexcept {
  int status = rows.Allocate(dealing.nscratch());
  for (Buffer<real>& row : rows) {
    if (status == 0) status = row.Allocate(size);
  }
  return status;
}

}  // namespace

int UniqueData::Gather(const VORL_GRID& grid, const real* values, int limit) noexcept {
  if (limit < 1) return kUniqueDataMax;
  const std::ptrdiff_t informed = grid.nxyz - std::count(values, values + grid.nxyz, real{VORL_MISSING_VALUE});
  if (informed > limit) return kUniqueTooManyData;
  if (informed == 0) return kUniqueNoData;
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
  dealing.ForPass(n).Blocks(n, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
    for (std::ptrdiff_t i = begin; i < end; ++i) {
      const Rotation::Lag at = rotation.ToModelAxes(x[i], y[i], z[i]);
      x[i] = at.x;
      y[i] = at.y;
      z[i] = at.z;
    }
  });
}

void UniqueCovariances::FillRow(int i, int begin, int end, real* scratch, real* row) const noexcept {
  const int count = end - begin;
  real* const lagX = scratch;
  real* const lagY = lagX + count;
  real* const lagZ = lagY + count;
  for (int k = 0; k < count; ++k) {
    lagX[k] = data_->x[begin + k] - data_->x[i];
    lagY[k] = data_->y[begin + k] - data_->y[i];
    lagZ[k] = data_->z[begin + k] - data_->z[i];
  }
  const bool turn = model_->rotated && rightSide_ == RightSide::kAtNode;
  EvaluateFixed(*model_->covModel, turn ? &model_->rotation : nullptr, count, lagX, lagY, lagZ, row);
}

void UniqueCovariances::FillRhs(const VORL_GRID& grid, const int* nodes, int count, real* scratch,
                                real* rhs) const noexcept {
  const int m = data_->n;
  real* const lagX = scratch;
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
    for (int i = 0; i < m; ++i) rhs[i * kLanes + lane] = covariance[i];
    if (model_->ordinaryKriging) rhs[m * kLanes + lane] = 1.0;
  }
}

int UniqueSystem::Build(const UniqueCovariances& covariances, Dealing dealing) noexcept {
  covariances_ = covariances;
  size_ = covariances.size();
  limits_ = SolverLimits(size_);
  if (const int status = guess_.Allocate(size_); status != 0) return status;
  const int m = covariances.ndata();
  const std::ptrdiff_t size = size_;
  if (const int status = matrix_.Allocate(static_cast<std::size_t>(size) * size); status != 0) return status;
  ObjectArray<Buffer<real>> scratches;
  if (const int status = AllocateRows(covariances.scratchSize(), dealing, scratches); status != 0) return status;
  real* const matrix = matrix_.data();
  dealing.EachThread([&](int thread, int team) noexcept {
    for (int i = thread; i < m; i += team) {
      real* const row = matrix + i * size;
      covariances.FillRow(i, i + 1, m, scratches[thread].data(), row + i + 1);
      row[i] = covariances.model().sill;
      for (int j = i + 1; j < m; ++j) matrix[j * size + i] = row[j];
      if (size > m) row[m] = matrix[m * size + i] = 1.0;
    }
  });
  if (size > m) matrix[size * size - 1] = 0.0;
  return 0;
}

int UniqueSystem::AllocateScratch(Scratch& scratch) const noexcept {
  VORLInitRandContext(&scratch.context);
  const std::size_t n = size_;
  const std::size_t m = covariances_.ndata();
  const struct {
    Buffer<real>* buffer;
    std::size_t size;
  } wanted[] = {{&scratch.lag, covariances_.scratchSize()},
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
  const KrigingModel& model = covariances_.model();
  const int m = covariances_.ndata();
  covariances_.FillRhs(grid, nodes, count, scratch.lag.data(), scratch.rhs.data());
  for (int i = 0; i < size_; ++i) std::fill_n(&scratch.solution[i * kLanes], kLanes, guess_.first()[i]);
  const unsigned converged = GmresBatchShared(limits_, size_, matrix_.data(), size_, scratch.rhs.data(),
                                              scratch.solution.data(), scratch.work.data());
  for (int lane = 0; lane < count; ++lane) {
    SolvedSystem& system = scratch.system[lane] = {};
    real* const weight = &scratch.weight[static_cast<std::size_t>(lane) * m];
    system.sill = model.sill;
    if ((converged >> lane & 1u) != 0) {
      system.Keep(model, m, &scratch.solution[lane], &scratch.rhs[lane], kLanes, weight);
    } else {
      const int left = SolveAlone(lane, scratch) ? m : 0;
      system.Keep(model, left, scratch.loneSolution.data(), scratch.loneRhs.data(), 1, weight);
    }
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

int UniqueFactor::Build(const UniqueCovariances& covariances, Dealing dealing, const Progress& progress,
                        bool* sound) noexcept {
  covariances_ = covariances;
  const int m = covariances.ndata();
  const int q = covariances.size() - m;
  if (const int status = factor_.Allocate(FactorSize(m, q)); status != 0) return status;
  ObjectArray<Buffer<real>> scratches;
  const std::size_t rowSize = covariances.scratchSize() + m;
  if (const int status = AllocateRows(rowSize, dealing, scratches); status != 0) return status;
  dealing.EachThread([&](int thread, int team) noexcept {
    real* const row = scratches[thread].data();
    for (int i = thread; i < m && !progress.Aborted(); i += team) {
      covariances.FillRow(i, 0, i, row + m, row);
      row[i] = covariances.model().sill;
      SetFactorRow(m, i, row, factor_.data());
    }
  });
  real* const row = scratches[0].data();
  std::fill_n(row, m, 1.0);
  if (q > 0) SetFactorRow(m, m, row, factor_.data());
  *sound = Factorise(dealing, m, q, factor_.data(), BestSimdLevel(), nullptr, progress);
  return progress.After(0);
}

void UniqueFactor::Prepare(const real* values, real* prepared) const noexcept {
  const int m = covariances_.ndata();
  PrepareValues(m, size() - m, factor_.data(), values, prepared);
}

void UniqueFactor::PrepareDual(const real* values, real* dual) const noexcept {
  const int m = covariances_.ndata();
  Prepare(values, dual);
  DualWeights(m, size() - m, factor_.data(), dual);
}

void UniqueFactor::Solve(const VORL_GRID& grid, const int* nodes, int count, const real* prepared, real* scratch,
                         real* rhs, real* estimate, real* explained) const noexcept {
  const int m = covariances_.ndata();
  int nblock = 0;
  for (int begin = 0; begin < count; begin += kLanes, ++nblock) {
    real* const block = rhs + static_cast<std::size_t>(nblock) * size() * kLanes;
    covariances_.FillRhs(grid, nodes + begin, std::min(kLanes, count - begin), scratch, block);
  }
  Krige(m, size() - m, factor_.data(), prepared, nblock, rhs, estimate, explained);
}

}  // namespace kestrum
