#ifndef KESTRUM_ENGINE_PROBLEM_HPP
#define KESTRUM_ENGINE_PROBLEM_HPP

#include <atomic>
#include <cstdint>
#include <span>

#include "core/grid.h"
#include "core/parallel.hpp"
#include "core/progress.hpp"
#include "engine/kriging_model.hpp"
#include "neighborhood/neighbor_list.hpp"

namespace kestrum {

// A covariance model with the neighbours that its systems take.
struct ModelSetup {
  KrigingModel model;
  NeighborList neighbors;

  // Whether all data are neighbours of every node.
  bool unique() const noexcept { return neighbors.offsets == nullptr; }
};

// The order in which the nodes of a grid are visited: nodes that are never computed, then nodes with bounds, then the
// others.
struct GridPath {
  int* nodes;             // all nodes; a simulation changes the order within the last two segments
  int nnode;              // their number
  int firstInequality;    // position of the first node with bounds
  int firstSimulated;     // position of the first node to compute
  bool shuffled = false;  // whether the nodes from there on are in the order in which the first realization draws them
};

// The data of a problem on a grid.
struct GridData {
  const int* nodeStatus = nullptr;  // per node: 0 known, 1 to compute, -1 lower bound, -2 upper bound, -3 both bounds
  const real* known = nullptr;      // values of the known nodes in node order (simulation)
  int uniqueMax = 0;                // largest number of data that a unique neighbourhood takes
  const real* minimum = nullptr;    // bounds per node, read where nodeStatus reports one
  const real* maximum = nullptr;
  bool bounded = false;  // whether nodes with bounds are given values

  void SetBounds(const real* lower, const real* upper) noexcept {
    minimum = lower;
    maximum = upper;
    bounded = true;
  }
};

// How kriging systems are solved.
enum class Solver {
  kIterative,    // by GMRES from fixed first guesses, in several attempts that may drop neighbours
  kFactorising,  // by Cholesky's factorisation, whatever the unit of the variable; what it cannot solve goes to the other
};

struct SolverChoice {
  Solver solver = Solver::kIterative;
  std::atomic<std::int64_t>* nfallback = nullptr;  // receives the number of systems that went to the iterative solver

  bool factorising() const noexcept { return solver == Solver::kFactorising; }
  void CountFallbacks(std::int64_t n) const noexcept {
    if (nfallback != nullptr) nfallback->fetch_add(n, std::memory_order_relaxed);
  }
};

// How work is dealt out, and to whom it reports.
struct RunFront {
  Dealing dealing;
  Progress progress;

  RunFront(VORL_PROGRESSMONITOR* monitor, ProgressCallback callback, Dealing way, bool prompt = false) noexcept
      : dealing(way), progress(monitor, callback, way.threaded(), prompt) {}
};

class ModelSystems;

// What is to be estimated or simulated on a grid. Nothing is owned; whoever makes a problem keeps its parts until the
// work is done.
struct Problem {
  VORL_GRID grid;
  std::span<const ModelSetup> setups;  // one for a continuous variable, one for each category
  GridData data;
  GridPath path;
  RunFront front;
  SolverChoice solver = {};
  const ModelSystems* systems = nullptr;  // of these setups, if they are there; a simulation makes its own else

  const Progress& progress() const noexcept { return front.progress; }
  Dealing dealing() const noexcept { return front.dealing; }
  Dealing passes() const noexcept { return front.dealing.ForPass(grid.nxyz); }  // over the nodes
};

}  // namespace kestrum

#endif
