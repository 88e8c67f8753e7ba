#include "runs/indicator_simulation.h"

#include <algorithm>

#include "core/object_array.hpp"
#include "engine/same_systems.hpp"
#include "runs/categories.hpp"
#include "runs/realizations.hpp"

namespace kestrum {
namespace {

// The law of the nodes of an indicator simulation.
class IndicatorLaw {
 public:
  IndicatorLaw(const SimulationRun& run, const Categories& categories) noexcept : run_(run), categories_(categories) {}

  [[nodiscard]] int Prepare(const CategorySystems& given) noexcept {
    const int ncategory = categories_.count();
    if (const int status = source_.Allocate(ncategory); status != 0) return status;
    if (const int status = systems_.Allocate(ncategory); status != 0) return status;
    const auto same = [&](int a, int b) { return given.SameMoving(a, b); };
    const int nsystem = FindFirstAlike(ncategory, same, source_.data());
    int capacity = 1;
    for (int c = 0; c < ncategory; ++c) {
      if (source_[c] != c) continue;
      if (const int status = systems_[c].Prepare(given.Model(c), given.List(c), given.limit[c], nsystem); status != 0)
        return status;
      capacity = std::max(capacity, systems_[c].capacity);
    }
    if (const int status = scratches_.Allocate(run_.dealing.nscratch()); status != 0) return status;
    for (Scratch& scratch : scratches_) {
      int status = scratch.kriging.Allocate(systems_[0].model.ordinaryKriging, capacity);
      if (status == 0) status = scratch.probability.Allocate(ncategory);
      if (status == 0) status = scratch.solvers.Allocate(ncategory);
      for (int c = 0; c < ncategory && status == 0; ++c) {
        if (source_[c] == c) status = scratch.solvers[c].Allocate(systems_[c].capacity);
      }
      if (status != 0) return status;
    }
    return 0;
  }

  int BeforePath(int, PathRanks&, const NodeBits&, VORL_RANDCONTEXT&) noexcept { return 0; }

  void Solve(int thread, const int* nodes, int count, PathView& view) noexcept {
    auto& [kriging, solvers, probability] = scratches_[thread];
    for (int c = 0; c < categories_.count(); ++c) {
      if (source_[c] == c) view.Solve(systems_[c], kriging, nodes, count, solvers[c]);
    }
  }

  template <typename Visit>
  void ForEachNeighbor(int thread, int i, int node, const Visit& visit) noexcept {
    for (int c = 0; c < categories_.count(); ++c) {
      if (source_[c] != c) continue;
      const AheadSolver& solver = scratches_[thread].solvers[c];
      const int* const entries = solver.entries(i);
      for (int k = 0; k < solver.node(i).m; ++k) visit(node + systems_[c].list.shift[entries[k]]);
    }
  }

  int Value(int thread, int i, int node, double number, real* value) noexcept {
    Scratch& scratch = scratches_[thread];
    const int ncategory = categories_.count();
    for (int c = 0; c < ncategory; ++c) {
      const AheadSolver& solver = scratch.solvers[source_[c]];
      solver.Warn(i, run_.monitor);
      const int* const shift = systems_[source_[c]].list.shift;
      const int* const entries = solver.entries(i);
      scratch.probability[c] = categories_.Probability(c, node, solver.node(i).m, solver.weight(i), [&](int k) {
        return run_.image->var[node + shift[entries[k]]];
      });
    }
    int status = 0;
    if (ncategory > 1 && !categories_.Normalize(node, scratch.probability.data())) status = run_.monitor.Warn(2020);
    *value = categories_.Draw(scratch.probability.data(), number);
    return status;
  }

  void AfterPath() noexcept {}

 private:
  struct Scratch {
    KrigingSolver kriging;
    ObjectArray<AheadSolver> solvers;  // per category
    Buffer<real> probability;
  };

  const SimulationRun& run_;
  const Categories& categories_;
  Buffer<int> source_;                  // per category: the first one with the same systems
  ObjectArray<MovingSystems> systems_;  // of these
  ObjectArray<Scratch> scratches_;
};

int Simulate(VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* outputImage,
             BOOLEAN* rotationStationary, BOOLEAN* weightStationary, BOOLEAN* rangeStationary,
             BOOLEAN* covModelStationary, real* sill, real*** rotationMatrix,
             VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int** neighborShift, int* nneighborLimit, int* nodeStatus,
             int nnode, int* simulationPath, int pathFirstSimulated, real* dataValue, int ndataValue, FILE* reportFile,
             VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*),
             Dealing dealing) noexcept {
  static_cast<void>(rangeStationary);
  static_cast<void>(ndataValue);
  const int ncategory = input->ncategory;
  for (int c = 0; c < ncategory; ++c) {
    if (nneighborLimit[c] < 1) return -71260;
  }
  // No node has bounds: the path has one segment to simulate.
  const SimulationRun run = MakeSimulationRun(
      *input, image, outputImage, nodeStatus, nnode, simulationPath, pathFirstSimulated, pathFirstSimulated, dataValue,
      reportFile, RunMonitor(progressMonitor, progressCallback, dealing.threaded()), dealing);
  const Categories categories(*input, ordinaryKriging != 0);
  IndicatorLaw law(run, categories);
  const int status =
      law.Prepare({input->covModel, ordinaryKriging, rotationStationary, weightStationary, covModelStationary, sill,
                   rotationMatrix, searchNeighborhood, neighborShift, nneighborLimit, *image->grid});
  if (status != 0) return status;
  return SimulateRealizations(run, law, false);
}

}  // namespace
}  // namespace kestrum

using kestrum::Dealing;

int VORLKestrumIndicatorSimSimulation(VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                      VORL_IMAGE* outputImage, BOOLEAN* rotationStationary, BOOLEAN* weightStationary,
                                      BOOLEAN* rangeStationary, BOOLEAN* covModelStationary, real* sill,
                                      real*** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                      int** neighborShift, int* nneighborLimit, int* nodeStatus, int nnode,
                                      int* simulationPath, int pathFirstSimulated, real* dataValue, int ndataValue,
                                      FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
                                      int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  return kestrum::Simulate(input, ordinaryKriging, image, outputImage, rotationStationary, weightStationary,
                           rangeStationary, covModelStationary, sill, rotationMatrix, searchNeighborhood, neighborShift,
                           nneighborLimit, nodeStatus, nnode, simulationPath, pathFirstSimulated, dataValue, ndataValue,
                           reportFile, progressMonitor, progressCallback, Dealing::Serial());
}

int VORLOMPKestrumIndicatorSimSimulation(VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                         VORL_IMAGE* outputImage, BOOLEAN* rotationStationary,
                                         BOOLEAN* weightStationary, BOOLEAN* rangeStationary,
                                         BOOLEAN* covModelStationary, real* sill, real*** rotationMatrix,
                                         VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int** neighborShift,
                                         int* nneighborLimit, int* nodeStatus, int nnode, int* simulationPath,
                                         int pathFirstSimulated, real* dataValue, int ndataValue, FILE* reportFile,
                                         VORL_PROGRESSMONITOR* progressMonitor,
                                         int (*progressCallback)(VORL_PROGRESSMONITOR*), int nthreads) noexcept {
  return kestrum::Simulate(input, ordinaryKriging, image, outputImage, rotationStationary, weightStationary,
                           rangeStationary, covModelStationary, sill, rotationMatrix, searchNeighborhood, neighborShift,
                           nneighborLimit, nodeStatus, nnode, simulationPath, pathFirstSimulated, dataValue, ndataValue,
                           reportFile, progressMonitor, progressCallback, Dealing::Threads(nthreads));
}
