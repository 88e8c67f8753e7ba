#ifndef KESTRUM_ENGINE_AHEAD_SOLVER_HPP
#define KESTRUM_ENGINE_AHEAD_SOLVER_HPP

#include <cstddef>

#include "core/buffer.hpp"
#include "engine/kriging.hpp"
#include "engine/run_monitor.hpp"

namespace kestrum {

// Solves the systems of the next nodes of a path together and keeps their weights: neighbours, systems and weights
// depend on places alone, so that they can be had ahead of the neighbours' values.
class AheadSolver {
 public:
  static constexpr int kMaxNode = KrigingSolver::kMaxTask;

  // What is known of a node besides neighbours and weights.
  struct Node {
    int m;            // neighbours left; 0 if there were none, or if the solver gave up
    int ndropped;     // neighbours dropped
    bool gaveUp;      // whether the solver gave up
    real sill;        // at the node
    real explained;   // sum of weight times covariance with the node
    real multiplier;  // weight of the unbiasedness row, 0.0 without one
  };

  // A node with the list entries of its neighbours and their weights, node.m of each.
  struct Solved {
    const Node& node;
    const int* entries;
    const real* weight;
  };

  // capacity: largest number of neighbours.
  [[nodiscard]] int Allocate(int capacity) noexcept {
    capacity_ = capacity;
    const std::size_t size = kMaxNode * capacity_;
    const int status = entries_.Allocate(size);
    return status != 0 ? status : weight_.Allocate(size);
  }

  // Keeps what a solved system says: its weights go to `weight`, m values.
  static Node Keep(const KrigingModel& model, const KrigingWeights& solved, real* weight) noexcept {
    Node node{solved.m, 0, solved.m == 0, solved.sill, 0.0, 0.0};
    if (node.gaveUp) return node;
    for (int i = 0; i < solved.m; ++i) {
      weight[i] = solved.weight[i * solved.stride];
      node.explained += weight[i] * solved.rhs[i * solved.stride];
    }
    if (model.ordinaryKriging) node.multiplier = solved.weight[solved.m * solved.stride];
    return node;
  }

  // Solves for up to kMaxNode nodes, with the solver of this thread. gather(i, entries) writes the list entries of the
  // neighbours of nodes[i] and returns their number; it is called once for each i, in increasing order.
  template <typename Gather>
  void Solve(const MovingSystems& systems, KrigingSolver& solver, const int* nodes, int count,
             const Gather& gather) noexcept {
    KrigingTask tasks[kMaxNode];
    int place[kMaxNode];  // of each task's node
    int ntask = 0;
    for (int i = 0; i < count; ++i) {
      int* const entries = &entries_[Start(i)];
      const int m = gather(i, entries);
      node_[i] = {m, 0, false, 0.0, 0.0, 0.0};
      if (m == 0) {
        node_[i].sill = ModelAtNode(systems.model, nodes[i]).sill;
      } else {
        place[ntask] = i;
        tasks[ntask++] = {nodes[i], m, entries};
      }
    }
    solver.Solve(
        systems, tasks, ntask, [&](int task) noexcept { ++node_[place[task]].ndropped; },
        [&](int task, const KrigingWeights& solved) noexcept {
          const int i = place[task];
          const int ndropped = node_[i].ndropped;
          node_[i] = Keep(systems.model, solved, &weight_[Start(i)]);
          node_[i].ndropped = ndropped;
        });
  }

  // Results of the i-th node of the last call.
  const Node& node(int i) const noexcept { return node_[i]; }
  const int* entries(int i) const noexcept { return &entries_[Start(i)]; }
  const real* weight(int i) const noexcept { return &weight_[Start(i)]; }
  Solved solved(int i) const noexcept { return {node_[i], entries(i), weight(i)}; }

  // Raises the warnings of the i-th node, and gives the last failure of the callback.
  int Warn(int i, const RunMonitor& monitor) const noexcept {
    return WarnOfSystem(monitor, node_[i].ndropped, node_[i].gaveUp);
  }

 private:
  std::size_t Start(int i) const noexcept { return static_cast<std::size_t>(i) * capacity_; }

  std::size_t capacity_ = 0;
  Buffer<int> entries_;
  Buffer<real> weight_;
  Node node_[kMaxNode] = {};
};

}  // namespace kestrum

#endif
