#ifndef KESTRUM_ENGINE_UNIQUE_SYSTEM_HPP
#define KESTRUM_ENGINE_UNIQUE_SYSTEM_HPP

#include "core/buffer.hpp"
#include "core/image.h"
#include "core/parallel.hpp"
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

// The one matrix of all systems of a unique neighbourhood, and the solution for any node.
class UniqueSystem {
 public:
  // Attempts for a node: the matrix is shared, so that no neighbour can be dropped.
  static constexpr int kMaxAttempt = 5;

  // How the covariances of a node with the data are evaluated.
  enum class RightSide {
    kFixed,   // with the constant parameters, between places in the model's axes
    kAtNode,  // with the parameters at the node, each lag rotated
  };

  // What one thread needs, and the solutions for the nodes at hand.
  struct Scratch {
    Buffer<real> lag;                              // and the covariances of one node
    Buffer<real> rhs, solution, work;              // of kLanes systems
    Buffer<real> loneRhs, loneSolution, loneWork;  // of one system
    VORL_RANDCONTEXT context;
    SolvedSystem system[kLanes];
    Buffer<real> weight;  // of kLanes systems, one after the other
  };

  // Model and data must outlive the system. For a right side of kFixed the data have been rotated.
  [[nodiscard]] int Build(const KrigingModel& model, const UniqueData& data, RightSide rightSide,
                          Dealing dealing) noexcept;
  [[nodiscard]] int AllocateScratch(Scratch& scratch) const noexcept;

  // Solves for up to kLanes nodes.
  void Solve(const VORL_GRID& grid, const int* nodes, int count, Scratch& scratch) const noexcept;
  // The weights of the i-th node solved last, in the order of the data.
  const real* weight(const Scratch& scratch, int i) const noexcept {
    return &scratch.weight[static_cast<std::size_t>(i) * data_->n];
  }

 private:
  // The right sides of up to kLanes nodes; lanes without a node repeat the last one.
  void FillRhs(const VORL_GRID& grid, const int* nodes, int count, Scratch& scratch) const noexcept;
  // The attempts after the first for one lane.
  bool SolveAlone(int lane, Scratch& scratch) const noexcept;

  const KrigingModel* model_ = nullptr;
  const UniqueData* data_ = nullptr;
  RightSide rightSide_ = RightSide::kFixed;
  int size_ = 0;
  GmresLimits limits_{};
  Buffer<real> matrix_;  // with rows of `size_` elements
  FirstGuess guess_;
};

}  // namespace kestrum

#endif
