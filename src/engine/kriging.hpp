#ifndef KESTRUM_ENGINE_KRIGING_HPP
#define KESTRUM_ENGINE_KRIGING_HPP

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "core/buffer.hpp"
#include "covariance/cov_evaluation.hpp"
#include "neighborhood/neighbor_search.hpp"
#include "numeric/gmres_batch.hpp"
#include "numeric/random.h"

namespace kestrum {

// The covariance model of a run and how stationary it is. Read-only, shared by all threads.
struct KrigingModel {
  VORL_COVMODEL* covModel = nullptr;
  bool ordinaryKriging = false;
  bool rotationStationary = true;
  bool weightStationary = true;
  bool covModelStationary = true;
  real sill = 0.0;       // valid if weightStationary
  bool rotated = false;  // the fixed rotation, if there is one
  Rotation rotation{};

  // Size of a system of m neighbours.
  int SystemSize(int m) const noexcept { return ordinaryKriging ? m + 1 : m; }
};

// The model from the arguments of a worker; rotationMatrix: 3 by 3, null for none.
inline KrigingModel MakeKrigingModel(VORL_COVMODEL* covModel, BOOLEAN ordinaryKriging, BOOLEAN rotationStationary,
                                     BOOLEAN weightStationary, BOOLEAN covModelStationary, real sill,
                                     const real* const* rotationMatrix) noexcept {
  KrigingModel model{covModel,
                     ordinaryKriging != 0,
                     rotationStationary != 0,
                     weightStationary != 0,
                     covModelStationary != 0,
                     sill,
                     rotationMatrix != nullptr,
                     {}};
  if (model.rotated) model.rotation = Rotation::FromMatrix(rotationMatrix);
  return model;
}

// The model at one node: sill and rotation.
struct LocalModel {
  real sill;
  bool rotated;
  Rotation rotation;

  const Rotation* rotationOrNull() const noexcept { return rotated ? &rotation : nullptr; }
};

LocalModel ModelAtNode(const KrigingModel& model, int node) noexcept;

// Restart length and cycles for a system of a size.
GmresLimits SolverLimits(int size) noexcept;

// The first guesses of the solver: fixed random vectors that depend on the attempt only.
class FirstGuess {
 public:
  [[nodiscard]] int Allocate(int size) noexcept;
  // The first guess of the first attempt, as long as the largest system.
  const real* first() const noexcept { return first_.data(); }
  // Fills the guess of any attempt.
  static void Draw(int attempt, int size, real* guess, VORL_RANDCONTEXT& context) noexcept;

 private:
  Buffer<real> first_;
};

// The covariances between the neighbours of a node. For a stationary model they depend on the difference of two offsets
// alone: each is evaluated once per run and kept in a table over the box of differences, if that table fits the budget.
// A difference and its opposite have the same covariance, and opposite places in the box, so half the box is stored.
// Threads fill the table as they go: two that evaluate the same entry store the same bits.
class NeighborCovariances {
 public:
  // share: number of tables that the memory of a run must do for.
  [[nodiscard]] int Prepare(const KrigingModel& model, const NeighborList& list, int share) noexcept;

  // Whether FillSideBySide can be used.
  bool tabulated() const noexcept { return static_cast<bool>(table_); }

  // Writes the covariances of a system's neighbours, both triangles, without the diagonal: element (i, j) goes to
  // matrix[(i*size + j)*stride]. `lag` is scratch for 4*m values.
  void Fill(const LocalModel& local, int node, const int* entries, int m, int size, real* matrix, int stride,
            real* lag) const noexcept;

  // The same for kLanes systems of m neighbours at once, lane by lane in each element; from the table.
  // entries[lane]: the neighbours of a lane. `code` is scratch for kLanes*m values.
  void FillSideBySide(const int* const entries[kLanes], int m, int size, real* matrix, int* code) const noexcept;

  // The covariances of the target node with its neighbours, to rhs[i*stride].
  void FillRhs(const LocalModel& local, int node, const int* entries, int m, real* rhs, int stride) const noexcept;

 private:
  real Evaluate(std::int64_t difference) const noexcept;
  real Tabulated(int difference) const noexcept {
    std::atomic_ref<real> entry(table_[difference < 0 ? -difference : difference]);
    real value = entry.load(std::memory_order_relaxed);
    if (value == kNotEvaluated) [[unlikely]] {
      value = Evaluate(difference);
      entry.store(value, std::memory_order_relaxed);
    }
    return value;
  }

  // No covariance: weights would have to add up to it. A covariance that is met all the same is evaluated each time.
  static constexpr real kNotEvaluated = -1.7e308;

  const KrigingModel* model_ = nullptr;
  const NeighborList* list_ = nullptr;
  int reach_[3] = {0, 0, 0};           // largest difference along each axis
  std::int64_t width_[3] = {1, 1, 1};  // of the box of differences
  mutable Buffer<real> table_;         // empty: no table
  Buffer<int> code_;                   // place of each entry's offset in the box
};

// What all threads share of the systems of one model and its list. What the two point at must outlive it.
struct MovingSystems {
  KrigingModel model{};
  NeighborList list{};
  NeighborCovariances covariances;
  FirstGuess guess;
  int capacity = 0;  // largest number of neighbours

  // share: number of such systems that a run has.
  [[nodiscard]] int Prepare(const KrigingModel& krigingModel, const NeighborList& neighborList, int mostNeighbors,
                            int share = 1) noexcept {
    model = krigingModel;
    list = neighborList;
    // No system is larger than the list.
    capacity = std::clamp(mostNeighbors, 1, std::max(list.offsets->size, 1));
    const int status = covariances.Prepare(model, list, share);
    return status != 0 ? status : guess.Allocate(model.SystemSize(capacity));
  }
};

// A kriging system to solve: the node and the list entries of its neighbours, in the order of the list.
struct KrigingTask {
  int node;
  int m;
  const int* entries;
};

// Weights and right side of a solved system, element i at [i*stride]. m is what is left after drops; 0 if the solver
// gave up. The weight of the unbiasedness row, if there is one, stands at position m.
struct KrigingWeights {
  int m;
  const real* weight;
  const real* rhs;
  int stride;
  real sill;  // at the node
};

// Builds and solves the systems of one thread: those of one size side by side, one per SIMD lane, others alone.
class KrigingSolver {
 public:
  // The last attempt for a node, and the number of failed attempts after which the farthest neighbour is dropped.
  static constexpr int kMaxAttempt = 300;
  static constexpr int kAttemptsPerDrop = 5;
  // Systems up to this size are solved in batches: larger ones take several cycles, of which each has its own number.
  static constexpr int kMaxBatchSize = 100;
  // Fewer systems of one size than this are solved one by one.
  static constexpr int kMinBatch = 3;

  // capacity: largest number of neighbours.
  [[nodiscard]] int Allocate(bool ordinaryKriging, int capacity) noexcept;

  // Solves the tasks (each with at least one neighbour) in any order and calls done(index of the task, weights) for
  // each; the weights are valid during that call only. dropped(index) is called for each neighbour dropped.
  template <typename Dropped, typename Done>
  void Solve(const MovingSystems& systems, const KrigingTask* tasks, int ntask, const Dropped& dropped,
             const Done& done) noexcept {
    systems_ = &systems;
    // By size, so that systems of one size stand together.
    for (int i = 0; i < ntask; ++i) order_[i] = i;
    std::sort(order_, order_ + ntask,
              [tasks](int a, int b) { return tasks[a].m != tasks[b].m ? tasks[a].m > tasks[b].m : a < b; });
    for (int begin = 0; begin < ntask;) {
      const int m = tasks[order_[begin]].m;
      int end = begin + 1;
      while (end < ntask && end - begin < kLanes && tasks[order_[end]].m == m) ++end;
      if (end - begin >= kMinBatch && systems_->model.SystemSize(m) <= kMaxBatchSize) {
        SolveSideBySide(tasks, order_ + begin, end - begin, m, dropped, done);
      } else {
        for (int i = begin; i < end; ++i) SolveAlone(tasks[order_[i]], order_[i], 1, dropped, done);
      }
      begin = end;
    }
  }

  // Most tasks that Solve takes at a time.
  static constexpr int kMaxTask = 64;

 private:
  // Builds the system of a task, and returns the sill at its node.
  real Build(const KrigingTask& task) noexcept;
  // Builds the systems of up to kLanes tasks of one size, one per lane; lanes without a task repeat the first.
  void BuildSideBySide(const KrigingTask* tasks, const int* which, int count, real sill[kLanes]) noexcept;

  template <typename Dropped, typename Done>
  void SolveSideBySide(const KrigingTask* tasks, const int* which, int count, int m, const Dropped& dropped,
                       const Done& done) noexcept {
    const int size = systems_->model.SystemSize(m);
    real sill[kLanes];
    BuildSideBySide(tasks, which, count, sill);
    for (int i = 0; i < size; ++i) std::fill_n(&batchWeight_[i * kLanes], kLanes, systems_->guess.first()[i]);
    const unsigned converged = GmresBatch(SolverLimits(size), size, batchMatrix_.data(), batchRhs_.data(),
                                          batchWeight_.data(), batchWork_.data());
    for (int lane = 0; lane < count; ++lane) {
      if ((converged >> lane & 1u) != 0) {
        done(which[lane], KrigingWeights{m, batchWeight_.data() + lane, batchRhs_.data() + lane, kLanes, sill[lane]});
      }
    }
    // A system that the first attempt did not solve goes on alone.
    for (int lane = 0; lane < count; ++lane) {
      if ((converged >> lane & 1u) == 0) SolveAlone(tasks[which[lane]], which[lane], 2, dropped, done);
    }
  }

  template <typename Dropped, typename Done>
  void SolveAlone(const KrigingTask& task, int index, int firstAttempt, const Dropped& dropped,
                  const Done& done) noexcept {
    const real sill = Build(task);
    int m = task.m;
    const int stride = systems_->model.SystemSize(m);
    int size = stride;
    GmresLimits limits = SolverLimits(size);
    for (int attempt = firstAttempt;; ++attempt) {
      if (attempt == 1) {
        std::copy_n(systems_->guess.first(), size, weight_.data());
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
      if (systems_->model.ordinaryKriging) {
        AddUnbiasedness(m, stride, matrix_.data(), rhs_.data());
      }
      // The restart length stays, although it may exceed the size now.
      if (size <= limits.restart) limits.ncycle = 1;
      dropped(index);
    }
    done(index, KrigingWeights{m, weight_.data(), rhs_.data(), 1, sill});
  }

  // The row and column of ones at place m, in a matrix with rows of `size` elements.
  static void AddUnbiasedness(int m, int size, real* matrix, real* rhs) noexcept;

  const MovingSystems* systems_ = nullptr;
  VORL_RANDCONTEXT context_{};
  int order_[kMaxTask] = {};
  Buffer<real> batchMatrix_, batchRhs_, batchWeight_, batchWork_;
  Buffer<real> matrix_, rhs_, weight_, work_;
  Buffer<real> lag_;
  Buffer<int> code_;
};

}  // namespace kestrum

#endif
