#include "engine/system_solver.hpp"

#include <cmath>

#include "numeric/cholesky.hpp"
#include "numeric/cholesky_batch.hpp"
#include "numeric/gmres.hpp"

namespace kestrum {
namespace {

constexpr int kMaxRestart = 100;
constexpr int kMaxCycle = 10000;
// Systems up to this size are solved in batches: a batch of larger ones would leave the caches.
constexpr int kMaxBatchSize = 200;
constexpr int kMaxFactorBatchSize = 160;
// Systems up to this size are iterated in wide batches where vectors have 8 numbers.
constexpr int kMaxWideSize = 64;
// Fewer systems of one size than this are iterated one by one.
constexpr int kMinBatch = 3;
// A solution by a factor must satisfy its system to this part of the largest covariance.
constexpr real kFactorTolerance = 1e-10;
// Rounding may take a variance below 0 by less than this part of the sill.
constexpr real kRoundingOfVariance = 1e-6;

// The row and column of ones at place m, in a matrix with rows of `size` elements.
void AddUnbiasedness(int m, int size, real* matrix, real* rhs) noexcept {
  for (int i = 0; i < m; ++i) {
    matrix[static_cast<std::ptrdiff_t>(i) * size + m] = 1.0;
    matrix[static_cast<std::ptrdiff_t>(m) * size + i] = 1.0;
  }
  matrix[static_cast<std::ptrdiff_t>(m) * size + m] = 0.0;
  rhs[m] = 1.0;
}

}  // namespace

void SolvedSystem::Keep(const KrigingModel& model, int left, const real* solution, const real* rhs, int stride,
                        real* weight) noexcept {
  m = left;
  gaveUp = left == 0;
  for (int i = 0; i < left; ++i) {
    weight[i] = solution[i * stride];
    explained += weight[i] * rhs[i * stride];
  }
  if (model.ordinaryKriging && !gaveUp) multiplier = solution[left * stride];
}

void SolvedSystem::GiveUpIfIndefinite() noexcept {
  if (sill - explained - multiplier >= -kRoundingOfVariance * sill) return;
  m = 0;
  gaveUp = true;
  explained = multiplier = 0.0;
}

int SolvedSystem::Warn(const Progress& progress) const noexcept {
  int status = 0;
  for (int k = 0; k < ndropped; ++k) KeepFailure(progress.Warn(kNeighborDropped), &status);
  if (gaveUp) KeepFailure(progress.Warn(kSystemFailed), &status);
  return status;
}

int SystemStore::Allocate(std::size_t count, int capacity) noexcept {
  capacity_ = capacity;
  int status = system_.Allocate(count);
  if (status == 0) status = entries_.Allocate(count * capacity);
  return status != 0 ? status : weight_.Allocate(count * capacity);
}

GmresLimits SolverLimits(int size) noexcept {
  return {VORL_EPSILON, std::min(size, kMaxRestart), size <= kMaxRestart ? 1 : kMaxCycle};
}

int FirstGuess::Allocate(int size) noexcept {
  if (const int status = first_.Allocate(size); status != 0) return status;
  VORL_RANDCONTEXT context;
  VORLInitRandContext(&context);
  Draw(1, size, first_.data(), context);
  return 0;
}

void FirstGuess::Draw(int attempt, int size, real* guess, VORL_RANDCONTEXT& context) noexcept {
  VORLDoubleRand(attempt, &context);
  for (int i = 0; i < size; ++i) guess[i] = VORLDoubleRand(0, &context);
}

int MovingSystems::Prepare(const KrigingModel& model, const NeighborList& list, int share) noexcept {
  model_ = model;
  list_ = list;
  list_.limit = std::clamp(list.limit, 1, std::max(list.offsets->size, 1));
  const int status = covariances_.Prepare(model_, list_, share);
  return status != 0 ? status : guess_.Allocate(model_.SystemSize(capacity()));
}

int SystemSolver::Allocate(const Problem& problem, int capacity) noexcept {
  const SolverChoice& choice = choice_ = problem.solver;
  VORLInitRandContext(&context_);
  int elements = 0;  // of exact models at a node
  for (const auto& [model, neighbors] : problem.setups) {
    if (model.exact != nullptr && !model.covModelStationary) elements = std::max(elements, model.covModel->nelem);
  }
  if (elements > 0) {
    if (const int status = atNode_.Allocate(elements); status != 0) return status;
  }
  const int q = problem.setups[0].model.ordinaryKriging ? 1 : 0;
  const std::size_t size = static_cast<std::size_t>(capacity) + q;
  const int batchSize =
      static_cast<int>(std::min<std::size_t>(size, choice.factorising() ? kMaxFactorBatchSize : kMaxBatchSize));
  wideSize_ = choice.factorising() || BestSimdLevel() != SimdLevel::kAvx512 ? 0 : std::min(batchSize, kMaxWideSize);
  const std::size_t batchLength = static_cast<std::size_t>(std::max(batchSize * kLanes, wideSize_ * kWideBatch));
  const std::size_t batchArea = std::max(static_cast<std::size_t>(batchSize) * batchSize * kLanes,
                                         static_cast<std::size_t>(wideSize_) * wideSize_ * kWideBatch);
  const std::size_t batchWork =
      choice.factorising() ? KrigingBatchWorkSize(batchSize - q, q) + kLanes
                           : std::max(GmresBatchWorkSize(batchSize, SolverLimits(batchSize).restart),
                                      GmresBatchWorkSize(wideSize_, SolverLimits(wideSize_).restart, kWideBatch));
  const struct {
    Buffer<real>* buffer;
    std::size_t size;
  } wanted[] = {
      {&batchMatrix_, batchArea},
      {&batchRhs_, batchLength},
      {&batchWeight_, batchLength},
      {&batchWork_, batchWork},
      {&matrix_, size * size},
      {&rhs_, size},
      {&weight_, size},
      {&work_, GmresWorkSize(static_cast<int>(size), std::min(static_cast<int>(size), kMaxRestart))},
      {&lag_, NeighborCovariances::LagSize(capacity)},
  };
  for (const auto& [buffer, count] : wanted) {
    if (const int status = buffer->Allocate(count); status != 0) return status;
  }
  if (choice.factorising() && size > kMaxFactorBatchSize) {
    int status = factor_.Allocate(FactorSize(capacity, q));
    if (status == 0) status = factorRhs_.Allocate((size + 1) * kLanes);
    if (status != 0) return status;
  }
  return code_.Allocate(static_cast<std::size_t>(capacity) * kLanes);
}

bool SystemSolver::GoSideBySide(int m, int count) const noexcept {
  const int size = systems_->model().SystemSize(m);
  return choice_.factorising() ? size <= kMaxFactorBatchSize : size <= kMaxBatchSize && count >= kMinBatch;
}

void SystemSolver::Solve(const MovingSystems& systems, ChunkSystems& chunk) noexcept {
  systems_ = &systems;
  const auto size = [&](int i) { return chunk.system(i).m; };
  // By size, so that systems of one size are next to one another.
  int order[kMaxChunk] = {};
  int count = 0;
  for (int i = 0; i < chunk.count(); ++i) {
    if (size(i) > 0) {
      order[count++] = i;
    } else {
      chunk.system(i).sill = systems.model().SillAt(chunk.node(i));
    }
  }
  std::sort(order, order + count, [&](int a, int b) { return size(a) != size(b) ? size(a) > size(b) : a < b; });
  for (int begin = 0; begin < count;) {
    const int m = size(order[begin]);
    const int lanes = systems.model().SystemSize(m) <= wideSize_ ? kWideBatch : kLanes;
    int end = begin + 1;
    while (end < count && end - begin < lanes && size(order[end]) == m) ++end;
    if (GoSideBySide(m, end - begin)) {
      SolveSideBySide(chunk, order + begin, end - begin, end - begin <= kLanes ? kLanes : lanes);
    } else {
      for (int i = begin; i < end; ++i) {
        if (!choice_.factorising() || !SolveByFactor(chunk, order[i])) SolveAlone(chunk, order[i], 1);
      }
    }
    begin = end;
  }
}

void SystemSolver::SolveSideBySide(ChunkSystems& chunk, const int* which, int count, int lanes) noexcept {
  const KrigingModel& model = systems_->model();
  const int m = chunk.system(which[0]).m;
  const int size = model.SystemSize(m);
  BuildSideBySide(chunk, which, count, lanes);
  unsigned solved;
  if (choice_.factorising()) {
    real* const explained = batchWork_.data();
    solved = SolveKrigingBatch(m, size - m, batchMatrix_.data(), batchRhs_.data(), batchWeight_.data(), explained,
                               explained + kLanes);
  } else {
    for (int i = 0; i < size; ++i) std::fill_n(&batchWeight_[i * lanes], lanes, systems_->guess().first()[i]);
    solved = GmresBatch(SolverLimits(size), size, lanes, batchMatrix_.data(), batchRhs_.data(), batchWeight_.data(),
                        batchWork_.data());
  }
  for (int lane = 0; lane < count; ++lane) {
    const int i = which[lane];
    if ((solved >> lane & 1u) != 0) {
      chunk.system(i).Keep(model, m, &batchWeight_[lane], &batchRhs_[lane], lanes, chunk.weight(i));
    } else if (choice_.factorising()) {
      chunk.CountFallback(choice_);
      SolveAlone(chunk, i, 1);
    } else {
      SolveAlone(chunk, i, 2);
    }
  }
}

bool SystemSolver::SolveByFactor(ChunkSystems& chunk, int i) noexcept {
  const KrigingModel& model = systems_->model();
  SolvedSystem& system = chunk.system(i);
  const int m = system.m;
  const int size = model.SystemSize(m);
  const LocalModel local = model.At(chunk.node(i), atNode_);
  system.sill = local.sill;
  Build(chunk, i, local);
  for (int row = 0; row < size; ++row) {
    SetFactorRow(m, row, &matrix_[static_cast<std::size_t>(row) * size], factor_.data());
  }
  bool solved = Factorise(Dealing::Serial(), m, size - m, factor_.data());
  if (solved) {
    real* const solution = factorRhs_.data();
    for (int k = 0; k < size; ++k) std::fill_n(&solution[k * kLanes], kLanes, rhs_[k]);
    real* const explained = solution + static_cast<std::size_t>(size) * kLanes;
    Krige(m, size - m, factor_.data(), nullptr, 1, solution, nullptr, explained);
    KrigingWeights(m, size - m, factor_.data(), 1, solution);
    for (int k = 0; k < size; ++k) weight_[k] = solution[k * kLanes];
    for (int row = 0; row < size && solved; ++row) {
      const real* const a = &matrix_[static_cast<std::size_t>(row) * size];
      real residual = -rhs_[row];
      for (int k = 0; k < size; ++k) residual += a[k] * weight_[k];
      solved = std::abs(residual) <= kFactorTolerance * (row < m ? local.sill : 1.0);
    }
  }
  if (solved) {
    system.Keep(model, m, weight_.data(), rhs_.data(), 1, chunk.weight(i));
  } else {
    chunk.CountFallback(choice_);
  }
  return solved;
}

void SystemSolver::SolveAlone(ChunkSystems& chunk, int i, int firstAttempt) noexcept {
  const KrigingModel& model = systems_->model();
  SolvedSystem& system = chunk.system(i);
  const LocalModel local = model.At(chunk.node(i), atNode_);
  system.sill = local.sill;
  Build(chunk, i, local);
  int m = system.m;
  const int stride = model.SystemSize(m);
  int size = stride;
  GmresLimits limits = SolverLimits(size);
  for (int attempt = firstAttempt;; ++attempt) {
    if (attempt == 1) {
      std::copy_n(systems_->guess().first(), size, weight_.data());
    } else {
      FirstGuess::Draw(attempt, size, weight_.data(), context_);
    }
    if (Gmres(limits, size, matrix_.data(), stride, rhs_.data(), weight_.data(), work_.data())) break;
    if (attempt == kMaxAttempt) {
      m = 0;
      break;
    }
    if (attempt % kAttemptsPerDrop != 0) continue;
    if (--m == 0) break;
    --size;
    if (model.ordinaryKriging) AddUnbiasedness(m, stride, matrix_.data(), rhs_.data());
    // The restart length stays, although it may exceed the size now.
    if (size <= limits.restart) limits.ncycle = 1;
    ++system.ndropped;
  }
  system.Keep(model, m, weight_.data(), rhs_.data(), 1, chunk.weight(i));
}

void SystemSolver::Build(const ChunkSystems& chunk, int i, const LocalModel& local) noexcept {
  const int m = chunk.system(i).m;
  const int size = systems_->model().SystemSize(m);
  const NeighborCovariances& covariances = systems_->covariances();
  covariances.FillRhs(local, chunk.entries(i), m, rhs_.data(), 1, lag_.data());
  covariances.Fill(local, chunk.entries(i), m, size, matrix_.data(), 1, lag_.data());
  for (int k = 0; k < m; ++k) matrix_[static_cast<std::ptrdiff_t>(k) * size + k] = local.sill;
  if (systems_->model().ordinaryKriging) AddUnbiasedness(m, size, matrix_.data(), rhs_.data());
}

void SystemSolver::BuildSideBySide(ChunkSystems& chunk, const int* which, int count, int lanes) noexcept {
  const NeighborCovariances& covariances = systems_->covariances();
  const int m = chunk.system(which[0]).m;
  const int size = systems_->model().SystemSize(m);
  const int* entries[kWideBatch];
  real sill[kWideBatch];
  for (int lane = 0; lane < lanes; ++lane) {
    const int i = which[lane < count ? lane : 0];
    const LocalModel local = systems_->model().At(chunk.node(i), atNode_);
    entries[lane] = chunk.entries(i);
    chunk.system(i).sill = sill[lane] = local.sill;
    covariances.FillRhs(local, entries[lane], m, &batchRhs_[lane], lanes, lag_.data());
    if (!covariances.tabulated()) {
      covariances.Fill(local, entries[lane], m, size, &batchMatrix_[lane], lanes, lag_.data());
    }
  }
  for (int lane = 0; lane < lanes && covariances.tabulated(); lane += kLanes) {
    covariances.FillSideBySide(entries + lane, m, size, &batchMatrix_[lane], lanes, code_.data());
  }
  const auto element = [&](int i, int j) { return &batchMatrix_[static_cast<std::size_t>(i * size + j) * lanes]; };
  for (int i = 0; i < m; ++i) std::copy_n(sill, lanes, element(i, i));
  if (!systems_->model().ordinaryKriging) return;
  for (int i = 0; i < m; ++i) {
    std::fill_n(element(i, m), lanes, 1.0);
    std::fill_n(element(m, i), lanes, 1.0);
  }
  std::fill_n(element(m, m), lanes, 0.0);
  std::fill_n(&batchRhs_[static_cast<std::size_t>(m) * lanes], lanes, 1.0);
}

}  // namespace kestrum
