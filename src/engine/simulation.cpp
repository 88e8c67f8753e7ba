#include "engine/simulation.h"

#include <algorithm>
#include <cmath>

#include "core/object_array.hpp"
#include "engine/local_law.hpp"
#include "engine/realizations.hpp"
#include "numeric/normal_table.hpp"

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

// The law of the nodes of a Gaussian simulation.
class GaussianLaw {
 public:
  GaussianLaw(const SimulationRun& run, const VORL_KESTRUMINPUT& input, const MovingSystems& systems) noexcept
      : run_(run), input_(input), systems_(systems), law_(input) {}

  [[nodiscard]] int Allocate() noexcept {
    if (const int status = scratches_.Allocate(run_.dealing.nthreads()); status != 0) return status;
    for (Scratch& scratch : scratches_) {
      int status = scratch.kriging.Allocate(systems_.model.ordinaryKriging, systems_.capacity);
      if (status == 0) status = scratch.solver.Allocate(systems_.capacity);
      if (status != 0) return status;
    }
    return 0;
  }

  // The nodes with bounds are to be given values. Null: no bounds on that side.
  void SetBounds(const real* minimum, const real* maximum) noexcept {
    hasBounds_ = true;
    minimum_ = minimum;
    maximum_ = maximum;
  }

  int BeforePath(int seed, PathRanks& ranks, const NodeBits& before, VORL_RANDCONTEXT& context) noexcept {
    return hasBounds_ ? Gibbs(seed, ranks, before, context) : 0;
  }

  void Solve(int thread, const int* nodes, int count, int position, const PathView& view) noexcept {
    auto& [kriging, solver] = scratches_[thread];
    solver.Solve(systems_, kriging, nodes, count, [&](int i, int* entries) noexcept {
      return view.Walk(systems_.list, nodes[i], position + i, systems_.capacity, entries);
    });
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
    const auto [mean, variance] = MeanAndVariance(solver, i, node);
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

  Moments MeanAndVariance(const AheadSolver& solver, int i, int node) const noexcept {
    const AheadSolver::Node& solved = solver.node(i);
    if (solved.m == 0) return {0.0, law_.Variance(node, solved.sill)};
    const real* const value = run_.image->var;
    const int* const entries = solver.entries(i);
    const auto neighbor = [&](int k) { return node + systems_.list.shift[entries[k]]; };
    const real mean = law_.Mean(
        node, solved.m, solver.weight(i), [&](int k) { return value[neighbor(k)]; }, neighbor);
    real variance = solved.sill - solved.explained;
    if (law_.countsMultiplier()) variance -= solved.multiplier;
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
    for (int begin = first; begin < last; begin += AheadSolver::kMaxNode) {
      const int count = std::min(AheadSolver::kMaxNode, last - begin);
      const int* const nodes = run_.simulationPath + begin;
      solver.Solve(systems_, kriging, nodes, count, [&](int i, int* entries) noexcept {
        // In the first pass only the nodes that have got a value in it are seen, later all the others.
        const int own = pass == 0 ? PathRanks::AtPosition(begin + i) : PathRanks::kNever;
        return WalkNeighbors(
            systems_.list, nodes[i], systems_.capacity, before,
            [&, own, node = nodes[i]](int b) noexcept { return ranks[b] < own && b != node; }, entries);
      });
      for (int i = 0; i < count; ++i) {
        flags.dropped |= solver.node(i).ndropped > 0;
        flags.gaveUp |= solver.node(i).gaveUp;
        auto [mean, variance] = MeanAndVariance(solver, i, nodes[i]);
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
  const SimulationRun run = MakeSimulationRun(*input, image, outputImage, nodeStatus, nnode, simulationPath,
                                              pathFirstInequality, pathFirstSimulated, dataValue, reportFile,
                                              RunMonitor(progressMonitor, progressCallback), dealing);
  MovingSystems systems;
  int status = systems.Prepare(MakeKrigingModel(input->covModel, ordinaryKriging, rotationStationary, weightStationary,
                                                covModelStationary, sill, rotationMatrix),
                               {searchNeighborhood, neighborShift, *image->grid}, nneighborLimit);
  if (status != 0) return status;
  GaussianLaw law(run, *input, systems);
  if (status = law.Allocate(); status != 0) return status;
  const bool gibbs = hasInequalityData != 0 && inequalityMin != nullptr && inequalityMax != nullptr;
  if (gibbs) law.SetBounds(inequalityMin[0], inequalityMax[0]);
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
