#include "engine/indicator_simulation.h"

#include <algorithm>
#include <cstring>

#include "core/object_array.hpp"
#include "engine/categories.hpp"
#include "engine/realizations.hpp"

namespace kestrum {
namespace {

bool SameModel(const VORL_COVMODEL& a, const VORL_COVMODEL& b) noexcept {
  return a.nelem == b.nelem && std::equal(a.covModelElem, a.covModelElem + a.nelem, b.covModelElem,
                                          [](const VORL_COVMODELELEM& p, const VORL_COVMODELELEM& q) {
                                            return EnumNumber(p.covModelType) == EnumNumber(q.covModelType) &&
                                                   p.weightValue == q.weightValue && p.rxValue == q.rxValue &&
                                                   p.ryValue == q.ryValue && p.rzValue == q.rzValue &&
                                                   p.sValue == q.sValue;
                                          });
}

bool SameRotation(const KrigingModel& a, const KrigingModel& b) noexcept {
  return a.rotated == b.rotated && (!a.rotated || std::memcmp(&a.rotation, &b.rotation, sizeof a.rotation) == 0);
}

bool SameList(const VORL_SEARCHNEIGHBORHOOD& a, const VORL_SEARCHNEIGHBORHOOD& b) noexcept {
  return a.size == b.size && std::equal(a.ix, a.ix + a.size, b.ix) && std::equal(a.iy, a.iy + a.size, b.iy) &&
         std::equal(a.iz, a.iz + a.size, b.iz) && std::equal(a.weight, a.weight + a.size, b.weight);
}

// Whether two categories have the same systems at every node, as they have if one model serves for all categories.
bool SameSystems(const MovingSystems& a, const MovingSystems& b) noexcept {
  return a.model.covModelStationary && b.model.covModelStationary && a.model.sill == b.model.sill &&
         a.capacity == b.capacity && SameRotation(a.model, b.model) &&
         SameModel(*a.model.covModel, *b.model.covModel) && SameList(*a.list.offsets, *b.list.offsets);
}

// The law of the nodes of an indicator simulation.
class IndicatorLaw {
 public:
  IndicatorLaw(const SimulationRun& run, const Categories& categories, ObjectArray<MovingSystems>& systems) noexcept
      : run_(run), categories_(categories), systems_(systems) {}

  [[nodiscard]] int Allocate() noexcept {
    const int ncategory = categories_.count();
    if (const int status = source_.Allocate(ncategory); status != 0) return status;
    int capacity = 1;
    for (int c = 0; c < ncategory; ++c) {
      source_[c] = 0;
      while (source_[c] < c && !SameSystems(systems_[source_[c]], systems_[c])) ++source_[c];
      capacity = std::max(capacity, systems_[c].capacity);
    }
    if (const int status = scratches_.Allocate(run_.dealing.nthreads()); status != 0) return status;
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
      const int* const entries = solver.entries(i);
      scratch.probability[c] = categories_.Probability(c, node, solver.node(i).m, solver.weight(i), [&](int k) {
        return run_.image->var[node + systems_[source_[c]].list.shift[entries[k]]];
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
  ObjectArray<MovingSystems>& systems_;
  Buffer<int> source_;  // per category: the first one with the same systems
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
  ObjectArray<MovingSystems> systems;
  if (const int status = systems.Allocate(ncategory); status != 0) return status;
  for (int c = 0; c < ncategory; ++c) {
    const int status =
        systems[c].Prepare(MakeKrigingModel(&input->covModel[c], ordinaryKriging, rotationStationary[c],
                                            weightStationary[c], covModelStationary[c], sill[c], rotationMatrix[c]),
                           {&searchNeighborhood[c], neighborShift[c], *image->grid}, nneighborLimit[c]);
    if (status != 0) return status;
  }
  // No node has bounds: the path has one segment to simulate.
  const SimulationRun run = MakeSimulationRun(*input, image, outputImage, nodeStatus, nnode, simulationPath,
                                              pathFirstSimulated, pathFirstSimulated, dataValue, reportFile,
                                              RunMonitor(progressMonitor, progressCallback), dealing);
  const Categories categories(*input, ordinaryKriging != 0);
  IndicatorLaw law(run, categories, systems);
  if (const int status = law.Allocate(); status != 0) return status;
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
