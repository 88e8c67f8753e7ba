#include "runs/simulation.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "core/object_array.hpp"
#include "numeric/normal_table.hpp"
#include "runs/local_law.hpp"
#include "runs/realizations.hpp"

namespace kestrum {
namespace {

// The standard normal deviate of a uniform number.
real NormalDeviate(real p) noexcept { return p < 0.5 ? -UpperNormalQuantile(1.0 - p) : UpperNormalQuantile(p); }

// The part of [0, 1] that the uniform number of a node with bounds is drawn from.
struct UniformRange {
  real low;
  real width;
  bool relaxed;  // the bounds leave too little, and have been given up in part
};

// nodeStatus: -1 lower bound, -2 upper bound, -3 both; (bound - mean) / deviation as `lower` and `upper`.
UniformRange TruncatedRange(int nodeStatus, real lower, real upper) noexcept {
  constexpr real kLeast = VORL_EPSILON;
  if (nodeStatus == -2) {
    const real width = NormalCdf(upper);
    if (width >= kLeast) return {0.0, width, false};
    return {0.0, kLeast, true};
  }
  if (nodeStatus == -1) {
    const real low = NormalCdf(lower);
    if (1.0 - low >= kLeast) return {low, 1.0 - low, false};
    return {0.9999999999, 1.000000082740371e-10, true};
  }
  if (nodeStatus != -3) return {0.0, 1.0, false};
  const real low = NormalCdf(lower);
  const real high = NormalCdf(upper);
  if (high - low >= kLeast) return {low, high - low, false};
  // Crossed, which is meant: each end is moved across the other.
  const real a = std::min(1.0, low + 0.5 * kLeast);
  const real b = std::max(0.0, high - 0.5 * kLeast);
  if (a - b >= kLeast) return {b, a - b, true};
  const real c = std::max(0.0, a - 0.5 * kLeast);
  const real e = std::min(1.0, b + 0.5 * kLeast);
  return {c, e - c, true};
}

// Systems of the inequality nodes that have been solved once for all: from its second pass on the Gibbs sampler lets
// each of them see all the others, so that its neighbours and weights stay the same in every pass of every realization.
class SolvedInequalityNodes {
 public:
  // Where the memory would be too much for the grid, nothing is kept.
  [[nodiscard]] int Prepare(const SimulationRun& run, int capacity) noexcept {
    constexpr std::int64_t kBytesBasic = 1 << 20;
    constexpr std::int64_t kBytesPerGridNode = 8;
    const std::int64_t n = run.pathFirstSimulated - run.pathFirstInequality;
    const std::int64_t bytes = n * (static_cast<std::int64_t>(sizeof(AheadSolver::Node) + sizeof(int)) +
                                    capacity * static_cast<std::int64_t>(sizeof(int) + sizeof(real)));
    if (n < 1 || bytes > kBytesBasic + kBytesPerGridNode * run.image->grid->nxyz) return 0;
    capacity_ = capacity;
    int status = gridNode_.Allocate(n);
    if (status == 0) status = node_.Allocate(n);
    if (status == 0) status = entries_.Allocate(n * capacity);
    if (status == 0) status = weight_.Allocate(n * capacity);
    if (status != 0) return status;
    std::copy_n(run.simulationPath + run.pathFirstInequality, n, gridNode_.data());
    std::sort(gridNode_.begin(), gridNode_.end());
    return 0;
  }

  bool wanted() const noexcept { return static_cast<bool>(node_); }
  bool complete() const noexcept { return nkept_ == node_.size() && wanted(); }

  // To be called once for each inequality node.
  void Keep(int gridNode, const AheadSolver::Solved& solved) noexcept {
    const std::size_t place = PlaceOf(gridNode);
    node_[place] = solved.node;
    std::copy_n(solved.entries, solved.node.m, &entries_[place * capacity_]);
    std::copy_n(solved.weight, solved.node.m, &weight_[place * capacity_]);
    ++nkept_;
  }

  AheadSolver::Solved Find(int gridNode) const noexcept {
    const std::size_t place = PlaceOf(gridNode);
    return {node_[place], &entries_[place * capacity_], &weight_[place * capacity_]};
  }

 private:
  std::size_t PlaceOf(int gridNode) const noexcept {
    return static_cast<std::size_t>(std::lower_bound(gridNode_.begin(), gridNode_.end(), gridNode) - gridNode_.begin());
  }

  std::size_t capacity_ = 0;
  std::size_t nkept_ = 0;
  Buffer<int> gridNode_;  // ascending
  Buffer<AheadSolver::Node> node_;
  Buffer<int> entries_;
  Buffer<real> weight_;
};

// The law of the nodes of a Gaussian simulation.
class GaussianLaw {
 public:
  GaussianLaw(const SimulationRun& run, const VORL_KESTRUMINPUT& input, const MovingSystems& systems) noexcept
      : run_(run), input_(input), systems_(systems), law_(input) {}

  [[nodiscard]] int Allocate() noexcept {
    if (const int status = scratches_.Allocate(run_.dealing.nscratch()); status != 0) return status;
    for (Scratch& scratch : scratches_) {
      int status = scratch.kriging.Allocate(systems_.model.ordinaryKriging, systems_.capacity);
      if (status == 0) status = scratch.solver.Allocate(systems_.capacity);
      if (status != 0) return status;
    }
    return 0;
  }

  // The nodes with bounds are to be given values. Null: no bounds on that side.
  [[nodiscard]] int SetBounds(const real* minimum, const real* maximum) noexcept {
    hasBounds_ = true;
    minimum_ = minimum;
    maximum_ = maximum;
    // The first pass has systems of its own.
    return input_.nGibbsSamplerPathMax > 1 ? solvedNodes_.Prepare(run_, systems_.capacity) : 0;
  }

  int BeforePath(int seed, PathRanks& ranks, const NodeBits& before, VORL_RANDCONTEXT& context) noexcept {
    return hasBounds_ ? Gibbs(seed, ranks, before, context) : 0;
  }

  void Solve(int thread, const int* nodes, int count, PathView& view) noexcept {
    auto& [kriging, solver] = scratches_[thread];
    view.Solve(systems_, kriging, nodes, count, solver);
  }

  template <typename Visit>
  void ForEachNeighbor(int thread, int i, int node, const Visit& visit) noexcept {
    const AheadSolver& solver = scratches_[thread].solver;
    const int* const entries = solver.entries(i);
    for (int k = 0; k < solver.node(i).m; ++k) visit(node + systems_.list.shift[entries[k]]);
  }

  int Value(int thread, int i, int node, double number, real* value) noexcept {
    const AheadSolver& solver = scratches_[thread].solver;
    solver.Warn(i, run_.monitor);
    const auto [mean, variance] = MeanAndVariance(solver.solved(i), node);
    *value = mean + std::sqrt(variance) * NormalDeviate(number);
    return 0;
  }

  void AfterPath() noexcept {
    real* const value = run_.image->var;
    run_.dealing.Blocks(run_.image->grid->nxyz, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t i = begin; i < end; ++i) {
        if (value[i] != VORL_MISSING_VALUE) {
          value[i] += input_.meanUsage == 2 ? input_.meanImage->var[i] : input_.meanValue;
        }
      }
    });
  }

 private:
  struct Scratch {
    KrigingSolver kriging;
    AheadSolver solver;
  };
  struct Moments {
    real mean, variance;
  };

  Moments MeanAndVariance(const AheadSolver::Solved& solved, int node) const noexcept {
    const AheadSolver::Node& system = solved.node;
    if (system.m == 0) return {0.0, law_.Variance(node, system.sill)};
    const real* const value = run_.image->var;
    const auto neighbor = [&](int k) { return node + systems_.list.shift[solved.entries[k]]; };
    const real mean = law_.Mean(
        node, system.m, solved.weight, [&](int k) { return value[neighbor(k)]; }, neighbor);
    real variance = system.sill - system.explained;
    if (law_.countsMultiplier()) variance -= system.multiplier;
    return {mean, law_.Variance(node, variance)};
  }

  // What a pass had to do to go on.
  struct PassFlags {
    bool dropped = false, gaveUp = false, varianceRaised = false, relaxed = false;
    bool clean() const noexcept { return !dropped && !gaveUp && !varianceRaised && !relaxed; }
  };

  // Gives values to the nodes with bounds, pass after pass, until a pass was clean.
  int Gibbs(int seed, PathRanks& ranks, const NodeBits& before, VORL_RANDCONTEXT& context) noexcept {
    const int first = run_.pathFirstInequality;
    const int last = run_.pathFirstSimulated;
    const int n = last - first;
    const double unit = 1.0 / (run_.nnode - first);
    const int npass = input_.nGibbsSamplerPathMax;
    PassFlags flags;
    bool clean = false;
    ranks.Sort(run_, first, last);
    for (int pass = 0; pass < npass; ++pass) {
      if (clean && pass >= input_.nGibbsSamplerPathMin) break;
      if (const int status = run_.monitor.Publish(pass * unit / npass * n); status != 0) return status;
      if (const int status = VORLPathRandom(n, run_.simulationPath + first, &context); status != 0) return status;
      if (pass == 0) ranks.Number(run_, first, last);
      const int passSeed = static_cast<int>(static_cast<unsigned>(seed) + static_cast<unsigned>(first) +
                                            static_cast<unsigned>(pass) * static_cast<unsigned>(n));
      const NodeDraws draws(passSeed, context);
      flags = Pass(pass, draws, ranks, before);
      clean = flags.clean();
      if (n > 0) context = draws.After(n);
    }
    const struct {
      bool raised;
      int number;
    } warnings[] = {{flags.dropped, 2002}, {flags.gaveUp, 2016}, {flags.varianceRaised, 2012}, {flags.relaxed, 2005}};
    for (const auto& [raised, number] : warnings) {
      if (raised) run_.monitor.Warn(number);
    }
    return run_.monitor.Publish(n * unit);
  }

  PassFlags Pass(int pass, const NodeDraws& draws, const PathRanks& ranks, const NodeBits& before) noexcept {
    const int first = run_.pathFirstInequality;
    const int last = run_.pathFirstSimulated;
    auto& [kriging, solver] = scratches_[0];
    PassFlags flags;
    for (int begin = first, count = 0; begin < last; begin += count) {
      count = std::min(AheadSolver::kMaxNode, last - begin);
      const int* const nodes = run_.simulationPath + begin;
      const bool found = pass > 0 && solvedNodes_.complete();
      if (!found) {
        solver.Solve(systems_, kriging, nodes, count, [&](int i, int* entries) noexcept {
          // In the first pass only the nodes that have got a value in it are seen, later all the others.
          const int own = pass == 0 ? PathRanks::AtPosition(begin + i) : PathRanks::kNever;
          return WalkNeighbors(
              systems_.list, nodes[i], systems_.capacity, before,
              [&, own, node = nodes[i]](int b) noexcept { return ranks[b] < own && b != node; }, entries);
        });
      }
      for (int i = 0; i < count; ++i) {
        if (!found && pass > 0 && solvedNodes_.wanted()) solvedNodes_.Keep(nodes[i], solver.solved(i));
        const AheadSolver::Solved solved = found ? solvedNodes_.Find(nodes[i]) : solver.solved(i);
        flags.dropped |= solved.node.ndropped > 0;
        flags.gaveUp |= solved.node.gaveUp;
        auto [mean, variance] = MeanAndVariance(solved, nodes[i]);
        real deviation = std::sqrt(variance);
        if (variance < VORL_EPSILON) {
          deviation = 1e-5;
          flags.varianceRaised = true;
        }
        const int node = nodes[i];
        const int status = run_.nodeStatus[node];
        const real lower = status == -1 || status == -3 ? (minimum_[node] - mean) / deviation : 0.0;
        const real upper = status == -2 || status == -3 ? (maximum_[node] - mean) / deviation : 0.0;
        const UniformRange range = TruncatedRange(status, lower, upper);
        flags.relaxed |= range.relaxed;
        const real number = range.width * draws.Draw(begin - first + i) + range.low;
        run_.image->var[node] = mean + deviation * NormalDeviate(number);
      }
    }
    return flags;
  }

  const SimulationRun& run_;
  const VORL_KESTRUMINPUT& input_;
  const MovingSystems& systems_;
  LocalLaw law_;
  ObjectArray<Scratch> scratches_;  // per thread
  SolvedInequalityNodes solvedNodes_;
  bool hasBounds_ = false;
  const real* minimum_ = nullptr;
  const real* maximum_ = nullptr;
};

int Simulate(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* outputImage,
             BOOLEAN rotationStationary, BOOLEAN weightStationary, BOOLEAN rangeStationary, BOOLEAN covModelStationary,
             real sill, real** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int* neighborShift,
             int nneighborLimit, int* nodeStatus, BOOLEAN hasInequalityData, real** inequalityMin, real** inequalityMax,
             int nnode, int* simulationPath, int pathFirstInequality, int pathFirstSimulated, real* dataValue,
             int ndataValue, FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
             int (*progressCallback)(VORL_PROGRESSMONITOR*), Dealing dealing) noexcept {
  static_cast<void>(rangeStationary);
  static_cast<void>(ndataValue);
  if (nneighborLimit < 1) return -71260;
  const SimulationRun run = MakeSimulationRun(
      *input, image, outputImage, nodeStatus, nnode, simulationPath, pathFirstInequality, pathFirstSimulated, dataValue,
      reportFile, RunMonitor(progressMonitor, progressCallback, dealing.threaded()), dealing);
  MovingSystems systems;
  int status = systems.Prepare(MakeKrigingModel(input->covModel, ordinaryKriging, rotationStationary, weightStationary,
                                                covModelStationary, sill, rotationMatrix),
                               {searchNeighborhood, neighborShift, *image->grid}, nneighborLimit);
  if (status != 0) return status;
  GaussianLaw law(run, *input, systems);
  if (status = law.Allocate(); status != 0) return status;
  const bool gibbs = hasInequalityData != 0 && inequalityMin != nullptr && inequalityMax != nullptr;
  if (gibbs) {
    if (status = law.SetBounds(inequalityMin[0], inequalityMax[0]); status != 0) return status;
  }
  return SimulateRealizations(run, law, gibbs && input->nGibbsSamplerPathMax > 0);
}

}  // namespace
}  // namespace kestrum

using kestrum::Dealing;

int VORLKestrumSimSimulation(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                             VORL_IMAGE* outputImage, BOOLEAN rotationStationary, BOOLEAN weightStationary,
                             BOOLEAN rangeStationary, BOOLEAN covModelStationary, real sill, real** rotationMatrix,
                             VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int* neighborShift, int nneighborLimit,
                             int* nodeStatus, BOOLEAN hasInequalityData, real** inequalityMin, real** inequalityMax,
                             int nnode, int* simulationPath, int pathFirstInequality, int pathFirstSimulated,
                             real* dataValue, int ndataValue, FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
                             int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  return kestrum::Simulate(input, ordinaryKriging, image, outputImage, rotationStationary, weightStationary,
                           rangeStationary, covModelStationary, sill, rotationMatrix, searchNeighborhood, neighborShift,
                           nneighborLimit, nodeStatus, hasInequalityData, inequalityMin, inequalityMax, nnode,
                           simulationPath, pathFirstInequality, pathFirstSimulated, dataValue, ndataValue, reportFile,
                           progressMonitor, progressCallback, Dealing::Serial());
}

int VORLOMPKestrumSimSimulation(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                VORL_IMAGE* outputImage, BOOLEAN rotationStationary, BOOLEAN weightStationary,
                                BOOLEAN rangeStationary, BOOLEAN covModelStationary, real sill, real** rotationMatrix,
                                VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int* neighborShift, int nneighborLimit,
                                int* nodeStatus, BOOLEAN hasInequalityData, real** inequalityMin, real** inequalityMax,
                                int nnode, int* simulationPath, int pathFirstInequality, int pathFirstSimulated,
                                real* dataValue, int ndataValue, FILE* reportFile,
                                VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                int nthreads) noexcept {
  return kestrum::Simulate(input, ordinaryKriging, image, outputImage, rotationStationary, weightStationary,
                           rangeStationary, covModelStationary, sill, rotationMatrix, searchNeighborhood, neighborShift,
                           nneighborLimit, nodeStatus, hasInequalityData, inequalityMin, inequalityMax, nnode,
                           simulationPath, pathFirstInequality, pathFirstSimulated, dataValue, ndataValue, reportFile,
                           progressMonitor, progressCallback, Dealing::Threads(nthreads));
}
