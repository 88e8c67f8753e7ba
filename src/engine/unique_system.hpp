#ifndef KESTRUM_ENGINE_UNIQUE_SYSTEM_HPP
#define KESTRUM_ENGINE_UNIQUE_SYSTEM_HPP

#include "core/buffer.hpp"
#include "core/image.h"
#include "core/parallel.hpp"
#include "core/progress.hpp"
#include "engine/system_solver.hpp"
#include "numeric/gmres.hpp"
#include "numeric/gmres_batch.hpp"

namespace kestrum {

// The data of a unique neighbourhood: all informed nodes of a grid, in node order. Places are counted from the centre of
// the first cell.
struct UniqueData {
  int n = 0;
  Buffer<real> x, y, z;
  Buffer<real> value;
  Buffer<int> node;

  // values: one per node of the grid. At most `limit` data are accepted. Statuses: -71265 limit below 1, -71266 more
  // data, -71267 none.
  [[nodiscard]] int Gather(const VORL_GRID& grid, const real* values, int limit) noexcept;
  // Turns the places into the model's axes.
  void Rotate(const Rotation& rotation, Dealing dealing) noexcept;
};

// The covariances of a unique neighbourhood: of the data with one another, and of nodes with the data.
class UniqueCovariances {
 public:
  // How the covariances of a node with the data are evaluated.
  enum class RightSide {
    kFixed,   // with the constant parameters, between places in the model's axes
    kAtNode,  // with the parameters at the node, each lag rotated
  };

  // Model and data must outlive the covariances. For kFixed the data have been rotated.
  UniqueCovariances(const KrigingModel& model, const UniqueData& data, RightSide rightSide) noexcept
      : model_(&model), data_(&data), rightSide_(rightSide) {}
  UniqueCovariances() = default;

  const KrigingModel& model() const noexcept { return *model_; }
  int ndata() const noexcept { return data_->n; }
  // Rows of a system: the data, and the unbiasedness.
  int size() const noexcept { return model_->SystemSize(data_->n); }

  // Scratch of one thread, in numbers.
  std::size_t scratchSize() const noexcept { return 4 * static_cast<std::size_t>(data_->n); }
  // The covariances of datum i with data `begin` to `end` - 1.
  void FillRow(int i, int begin, int end, real* scratch, real* row) const noexcept;
  // The right sides of up to kLanes nodes, element i of a lane at rhs[i*kLanes + lane]; lanes without a node repeat the
  // last one.
  void FillRhs(const VORL_GRID& grid, const int* nodes, int count, real* scratch, real* rhs) const noexcept;

 private:
  const KrigingModel* model_ = nullptr;
  const UniqueData* data_ = nullptr;
  RightSide rightSide_ = RightSide::kFixed;
};

// The one matrix of all systems of a unique neighbourhood, and the iterative solution for any node.
class UniqueSystem {
 public:
  // Attempts for a node: the matrix is shared, so that no neighbour can be dropped.
  static constexpr int kMaxAttempt = 5;

  // What one thread needs, and the solutions for the nodes at hand.
  struct Scratch {
    Buffer<real> lag;
    Buffer<real> rhs, solution, work;              // of kLanes systems
    Buffer<real> loneRhs, loneSolution, loneWork;  // of one system
    VORL_RANDCONTEXT context;
    SolvedSystem system[kLanes];
    Buffer<real> weight;  // of kLanes systems, one after the other
  };

  [[nodiscard]] int Build(const UniqueCovariances& covariances, Dealing dealing) noexcept;
  [[nodiscard]] int AllocateScratch(Scratch& scratch) const noexcept;

  // Solves for up to kLanes nodes.
  void Solve(const VORL_GRID& grid, const int* nodes, int count, Scratch& scratch) const noexcept;
  // The weights of the i-th node solved last, in the order of the data.
  const real* weight(const Scratch& scratch, int i) const noexcept {
    return &scratch.weight[static_cast<std::size_t>(i) * covariances_.ndata()];
  }

 private:
  // The attempts after the first for one lane.
  bool SolveAlone(int lane, Scratch& scratch) const noexcept;

  UniqueCovariances covariances_;
  int size_ = 0;
  GmresLimits limits_{};
  Buffer<real> matrix_;  // with rows of `size_` elements
  FirstGuess guess_;
};

// The same matrix factorised, once for all nodes.
class UniqueFactor {
 public:
  // *sound: whether the matrix could be factorised; without that there is nothing to use. Returns 0, the status of a
  // failed allocation, or kAborted.
  [[nodiscard]] int Build(const UniqueCovariances& covariances, Dealing dealing, const Progress& progress,
                          bool* sound) noexcept;

  // Numbers of the system: the data, and the unbiasedness.
  int size() const noexcept { return covariances_.size(); }
  const UniqueCovariances& covariances() const noexcept { return covariances_; }

  // What SolveBlocks needs of the values of the data, and what a right side is multiplied with to estimate them.
  // values: size() numbers, the first of them one for each datum; out: size() numbers.
  void Prepare(const real* values, real* prepared) const noexcept;
  void PrepareDual(const real* values, real* dual) const noexcept;

  // Estimates and explained parts of `count` nodes, as Krige. rhs: room for size() numbers for each node, in blocks of
  // kLanes; scratch as of the covariances; estimate, explained: in blocks of kLanes.
  void Solve(const VORL_GRID& grid, const int* nodes, int count, const real* prepared, real* scratch, real* rhs,
             real* estimate, real* explained) const noexcept;

 private:
  UniqueCovariances covariances_;
  Buffer<real> factor_;
};

}  // namespace kestrum

#endif
