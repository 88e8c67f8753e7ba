#ifndef KESTRUM_ENGINE_SYSTEM_SOLVER_HPP
#define KESTRUM_ENGINE_SYSTEM_SOLVER_HPP

#include <algorithm>
#include <cstddef>

#include "core/buffer.hpp"
#include "core/progress.hpp"
#include "engine/neighbor_covariances.hpp"
#include "engine/problem.hpp"
#include "neighborhood/neighbor_search.hpp"
#include "numeric/gmres_batch.hpp"
#include "numeric/random.h"

namespace kestrum {

// Nodes whose systems are solved together, at most.
inline constexpr int kMaxChunk = 64;

// What a solved kriging system says of its node, besides the weights.
struct SolvedSystem {
  int m = 0;              // neighbours left; 0 if there were none, or if the solver gave up
  int ndropped = 0;       // neighbours dropped
  bool gaveUp = false;    // whether the solver gave up
  real sill = 0.0;        // at the node
  real explained = 0.0;   // sum of weight times covariance with the node
  real multiplier = 0.0;  // weight of the unbiasedness row, 0.0 without one

  // Takes over a solution of `left` neighbours, element i of solution and right side at [i*stride], and writes its
  // weights. The weight of the unbiasedness row, if there is one, follows those of the neighbours.
  void Keep(const KrigingModel& model, int left, const real* solution, const real* rhs, int stride,
            real* weight) noexcept;
  // Gives up where the solution leaves a variance below 0: the model is not positive definite with the node there.
  void GiveUpIfIndefinite() noexcept;
  // Raises the warnings of the system, and gives the last failure of the callback.
  int Warn(const Progress& progress) const noexcept;
};

// A solved system with the list entries of its neighbours and their weights, m of each.
struct SolvedNode {
  const SolvedSystem& system;
  const int* entries;
  const real* weight;
};

// Room for systems with their neighbours and weights.
class SystemStore {
 public:
  // capacity: largest number of neighbours.
  [[nodiscard]] int Allocate(std::size_t count, int capacity) noexcept;
  std::size_t size() const noexcept { return system_.size(); }

  SolvedSystem& system(std::size_t i) noexcept { return system_[i]; }
  const SolvedSystem& system(std::size_t i) const noexcept { return system_[i]; }
  int* entries(std::size_t i) noexcept { return &entries_[i * capacity_]; }
  const int* entries(std::size_t i) const noexcept { return &entries_[i * capacity_]; }
  real* weight(std::size_t i) noexcept { return &weight_[i * capacity_]; }
  SolvedNode operator[](std::size_t i) const noexcept {
    return {system_[i], &entries_[i * capacity_], &weight_[i * capacity_]};
  }

 private:
  std::size_t capacity_ = 0;
  Buffer<SolvedSystem> system_;
  Buffer<int> entries_;
  Buffer<real> weight_;
};

// The systems of up to kMaxChunk nodes: their neighbours first, then their solutions. Neighbours and weights depend on
// places alone, so that they can be had ahead of the neighbours' values.
class ChunkSystems : public SystemStore {
 public:
  [[nodiscard]] int Allocate(int capacity) noexcept { return SystemStore::Allocate(kMaxChunk, capacity); }

  // Begins with these nodes, whose neighbours are to be set next. They must stay until the next start.
  void Start(const int* nodes, int count) noexcept {
    nodes_ = nodes;
    count_ = count;
    nfallback_ = 0;
  }
  // The number of neighbours of the i-th node, whose list entries have been written.
  void SetNeighbors(int i, int m) noexcept {
    system(i) = {};
    system(i).m = m;
  }

  // Begins with these nodes and finds their neighbours among data that stay.
  void Find(const DataNeighborSearch& search, const int* nodes, int count,
            DataNeighborSearch::Scratch& scratch) noexcept {
    Start(nodes, count);
    for (int i = 0; i < count; ++i) SetNeighbors(i, search.Find(nodes, i, count, scratch, entries(i)));
  }

  // Counts a system that went to the iterative solver, until the chunk is discarded.
  void CountFallback(const SolverChoice& choice) noexcept {
    ++nfallback_;
    choice.CountFallbacks(1);
  }
  void Discard(const SolverChoice& choice) noexcept {
    if (nfallback_ > 0) choice.CountFallbacks(-nfallback_);
    nfallback_ = 0;
  }

  void GiveUpIndefinite() noexcept {
    for (int i = 0; i < count_; ++i) system(i).GiveUpIfIndefinite();
  }

  int count() const noexcept { return count_; }
  int node(int i) const noexcept { return nodes_[i]; }

 private:
  const int* nodes_ = nullptr;
  int count_ = 0;
  int nfallback_ = 0;
};

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

// What all threads share of the systems of one model and its list.
class MovingSystems {
 public:
  MovingSystems() = default;
  MovingSystems(const MovingSystems&) = delete;  // the covariances refer to model and list
  MovingSystems& operator=(const MovingSystems&) = delete;

  // share: number of such systems that a run has.
  [[nodiscard]] int Prepare(const KrigingModel& model, const NeighborList& list, int share = 1) noexcept;

  const KrigingModel& model() const noexcept { return model_; }
  // Its limit is the largest number of neighbours that a system can have, at least 1.
  const NeighborList& list() const noexcept { return list_; }
  int capacity() const noexcept { return list_.limit; }
  const NeighborCovariances& covariances() const noexcept { return covariances_; }
  const FirstGuess& guess() const noexcept { return guess_; }

 private:
  KrigingModel model_;
  NeighborList list_;
  NeighborCovariances covariances_;
  FirstGuess guess_;
};

// Builds and solves the systems of one thread: those of one size side by side, one per SIMD lane, others alone.
class SystemSolver {
 public:
  // The last attempt for a node, and the number of failed attempts after which the farthest neighbour is dropped.
  static constexpr int kMaxAttempt = 300;
  static constexpr int kAttemptsPerDrop = 5;

  // capacity: largest number of neighbours.
  [[nodiscard]] int Allocate(const Problem& problem, int capacity) noexcept;

  // Solves the systems of all nodes of a chunk, whose neighbours are set.
  void Solve(const MovingSystems& systems, ChunkSystems& chunk) noexcept;

 private:
  // Whether systems of m neighbours are solved side by side, `count` of them.
  bool GoSideBySide(int m, int count) const noexcept;
  void SolveSideBySide(ChunkSystems& chunk, const int* which, int count, int lanes) noexcept;
  // One system by a factor of its own; false if it cannot be solved so.
  bool SolveByFactor(ChunkSystems& chunk, int i) noexcept;
  // The attempts for one system, from the given one on.
  void SolveAlone(ChunkSystems& chunk, int i, int firstAttempt) noexcept;
  // Builds the system of a node.
  void Build(const ChunkSystems& chunk, int i, const LocalModel& local) noexcept;
  // Builds up to `lanes` systems of one size, one per lane; lanes without a system repeat the first.
  void BuildSideBySide(ChunkSystems& chunk, const int* which, int count, int lanes) noexcept;

  const MovingSystems* systems_ = nullptr;
  SolverChoice choice_;
  int wideSize_ = 0;  // size of the largest system that a wide batch takes
  VORL_RANDCONTEXT context_{};
  ExactCovariance atNode_;  // a model that is not stationary, at the node at hand
  Buffer<real> batchMatrix_, batchRhs_, batchWeight_, batchWork_;
  Buffer<real> matrix_, rhs_, weight_, work_;
  Buffer<real> factor_, factorRhs_;
  Buffer<real> lag_;
  Buffer<int> code_;
};

// Solver and systems of one thread.
struct ChunkSolver {
  SystemSolver solver;
  ChunkSystems chunk;

  [[nodiscard]] int Allocate(const Problem& problem, const MovingSystems& systems) noexcept {
    const int status = solver.Allocate(problem, systems.capacity());
    return status != 0 ? status : chunk.Allocate(systems.capacity());
  }
};

}  // namespace kestrum

#endif
