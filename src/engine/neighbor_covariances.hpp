#ifndef KESTRUM_ENGINE_NEIGHBOR_COVARIANCES_HPP
#define KESTRUM_ENGINE_NEIGHBOR_COVARIANCES_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "core/buffer.hpp"
#include "engine/kriging_model.hpp"
#include "neighborhood/neighbor_list.hpp"
#include "numeric/gmres_batch.hpp"

namespace kestrum {

// The covariances between the neighbours of a node. For a stationary model they depend on the difference of two offsets
// alone: each is evaluated once per run and kept in a table over the box of differences, if that table fits the budget.
// A difference and its opposite have the same covariance, and opposite places in the box, so half the box is stored.
// Threads fill the table as they go: two that evaluate the same entry store the same bits.
class NeighborCovariances {
 public:
  // Model and list must outlive the covariances. share: number of tables that share the memory of a run.
  [[nodiscard]] int Prepare(const KrigingModel& model, const NeighborList& list, int share) noexcept;

  // So many lags are evaluated at once, and those of one more row.
  static constexpr int kLagsTogether = 256;
  static constexpr std::size_t LagSize(int m) noexcept { return 4 * (static_cast<std::size_t>(m) + kLagsTogether); }

  // Whether FillSideBySide can be used.
  bool tabulated() const noexcept { return static_cast<bool>(table_); }

  // Writes the covariances of a system's neighbours, both triangles, without the diagonal: element (i, j) goes to
  // matrix[(i*size + j)*stride]. `lag` is scratch for LagSize(m) values.
  void Fill(const LocalModel& local, const int* entries, int m, int size, real* matrix, int stride,
            real* lag) const noexcept;

  // The same for kLanes systems of m neighbours at once, lane by lane in each element, whose next one is `stride` numbers
  // on; from the table. entries[lane]: the neighbours of a lane. `code` is scratch for kLanes*m values.
  void FillSideBySide(const int* const* entries, int m, int size, real* matrix, int stride, int* code) const noexcept;

  // The covariances of the target node with its neighbours, to rhs[i*stride]. `lag` as above.
  void FillRhs(const LocalModel& local, const int* entries, int m, real* rhs, int stride, real* lag) const noexcept;

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

}  // namespace kestrum

#endif
