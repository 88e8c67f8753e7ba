#include "runs/estimation.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "core/object_array.hpp"
#include "core/parallel.hpp"
#include "engine/ahead_solver.hpp"
#include "engine/node_chunks.hpp"
#include "engine/run_monitor.hpp"
#include "engine/unique_neighborhood.hpp"
#include "io/image_files.h"
#include "neighborhood/neighbor_search.hpp"
#include "runs/local_law.hpp"
#include "runs/run_files.hpp"

namespace kestrum {
namespace {

// What both kinds of estimation are given.
struct EstimationRun {
  const VORL_KESTRUMINPUT* input;
  VORL_IMAGE* image;
  VORL_IMAGE* stdImage;
  VORL_IMAGE* outputImage;
  int nnode;
  const int* simulationPath;
  int pathFirstSimulated;
  RunMonitor monitor;
  Dealing dealing;
};

// The estimate and standard deviation of a node.
class EstimateWriter {
 public:
  explicit EstimateWriter(const EstimationRun& run) noexcept
      : law_(*run.input), estimate_(run.image->var), deviation_(run.stdImage->var) {}

  // value(i) and neighbor(i): centred value and grid node of neighbour i.
  template <typename Value, typename NodeOf>
  void Store(int node, const AheadSolver::Node& solved, const real* weight, const Value& value,
             const NodeOf& neighbor) const noexcept {
    if (solved.m == 0) {
      StoreWithoutNeighbors(node, solved.sill);
      return;
    }
    estimate_[node] = law_.Mean(node, solved.m, weight, value, neighbor);
    const real explained = law_.countsMultiplier() ? solved.explained + solved.multiplier : solved.explained;
    deviation_[node] = std::sqrt(law_.Variance(node, solved.sill - explained));
  }

  // A node without neighbours, or whose system could not be solved, takes the mean and the sill. A sill below zero is
  // possible where a weight image holds negative values.
  void StoreWithoutNeighbors(int node, real sill) const noexcept {
    estimate_[node] = 0.0;
    deviation_[node] = (sill > 0.0 ? std::sqrt(sill) : 0.0) * law_.Ratio(node);
  }

 private:
  LocalLaw law_;
  real* estimate_;
  real* deviation_;
};

// Adds the mean back, fills the output image, writes the separate files and reports the end.
int Finish(const EstimationRun& run) noexcept {
  const VORL_KESTRUMINPUT& input = *run.input;
  real* const estimate = run.image->var;
  const std::ptrdiff_t n = run.image->grid->nxyz;
  run.dealing.Blocks(n, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
    for (std::ptrdiff_t i = begin; i < end; ++i) {
      if (estimate[i] != VORL_MISSING_VALUE) {
        estimate[i] += input.meanUsage == 2 ? input.meanImage->var[i] : input.meanValue;
      }
    }
  });
  VORL_IMAGE* const results[2] = {run.image, run.stdImage};
  if (run.outputImage != nullptr) {
    for (int iv = 0; iv < 2; ++iv) {
      std::copy_n(results[iv]->varName[0], VORL_VARNAME_LENGTH, run.outputImage->varName[iv]);
      std::copy_n(results[iv]->var, n, run.outputImage->var + iv * n);
    }
  }
  if (input.outputMode == KESTRUM_OUTPUT_SEPARATE_FILE) {
    constexpr const char* kSuffix[2] = {VORL_KESTRUM_SUFFIX_FOR_ESTIMATE VORL_EXTENSION_FOR_IMAGE_FILE,
                                        VORL_KESTRUM_SUFFIX_FOR_ST_DEV VORL_EXTENSION_FOR_IMAGE_FILE};
    for (int iv = 0; iv < 2; ++iv) {
      const int status = WriteImageToFile(results[iv], input.formatString, input.outputImageFileName, kSuffix[iv]);
      if (status != 0) return status;
    }
  }
  run.monitor.FinishRealization();
  return run.monitor.Publish(0.0);
}

// What one thread needs for a moving neighbourhood.
struct MovingScratch {
  KrigingSolver kriging;
  AheadSolver solver;
  DataNeighborSearch::Scratch search;
};

int EstimateMoving(const EstimationRun& run, const KrigingModel& model, const NeighborList& list, int nneighborLimit,
                   const int* nodeStatus) noexcept {
  if (nneighborLimit < 1) return -71260;
  NodeBits data;
  if (const int status = data.Allocate(list.grid.nxyz); status != 0) return status;
  int ndata = 0;
  for (int i = 0; i < list.grid.nxyz; ++i) {
    if (nodeStatus[i] != 0) continue;
    data.Set(i);
    ++ndata;
  }
  DataNeighborSearch search;
  if (const int status = search.Prepare(list, data, ndata, nneighborLimit); status != 0) return status;
  MovingSystems systems;
  if (const int status = systems.Prepare(model, list, search.capacity()); status != 0) return status;
  ObjectArray<MovingScratch> scratches;
  if (const int status = scratches.Allocate(run.dealing.nscratch()); status != 0) return status;
  for (MovingScratch& scratch : scratches) {
    int status = scratch.kriging.Allocate(model.ordinaryKriging, systems.capacity);
    if (status == 0) status = scratch.solver.Allocate(systems.capacity);
    if (status == 0) status = search.AllocateScratch(scratch.search);
    if (status != 0) return status;
  }
  run.monitor.StartRealizations(1);

  const EstimateWriter writer(run);
  const real* const value = run.image->var;
  const auto work = [&](int thread, int begin, int end) noexcept {
    auto& [kriging, solver, scratch] = scratches[thread];
    const int* const nodes = run.simulationPath + begin;
    const int count = end - begin;
    solver.Solve(systems, kriging, nodes, count, [&, &searching = scratch](int i, int* entries) noexcept {
      return search.Find(nodes, i, count, searching, entries);
    });
    for (int i = 0; i < count; ++i) {
      const auto neighbor = [node = nodes[i], entries = solver.entries(i), &list](int k) {
        return node + list.shift[entries[k]];
      };
      writer.Store(
          nodes[i], solver.node(i), solver.weight(i), [&](int k) { return value[neighbor(k)]; }, neighbor);
    }
  };
  const auto warn = [&](int thread, int i) noexcept { return scratches[thread].solver.Warn(i, run.monitor); };
  const int status = ForEachChunk(run.nnode, run.pathFirstSimulated, run.monitor, run.dealing, work, warn);
  return status != 0 ? status : Finish(run);
}

// What one thread needs for a unique neighbourhood.
struct UniqueScratch {
  UniqueSystem::Scratch system;
  Buffer<real> weight;  // of one node
  bool gaveUp[AheadSolver::kMaxNode];
};

int EstimateUnique(const EstimationRun& run, const KrigingModel& model, int ndata) noexcept {
  UniqueData data;
  if (const int status = data.Gather(*run.image, ndata); status != 0) return status;
  // All lags are differences of rotated places.
  if (model.rotated) data.Rotate(model.rotation, run.dealing);
  UniqueSystem system;
  if (const int status = system.Build(model, data, true, run.dealing); status != 0) return status;
  ObjectArray<UniqueScratch> scratches;
  if (const int status = scratches.Allocate(run.dealing.nscratch()); status != 0) return status;
  for (UniqueScratch& scratch : scratches) {
    int status = system.AllocateScratch(scratch.system);
    if (status == 0) status = scratch.weight.Allocate(data.n);
    if (status != 0) return status;
  }
  run.monitor.StartRealizations(1);

  const EstimateWriter writer(run);
  const auto work = [&](int thread, int begin, int end) noexcept {
    UniqueScratch& scratch = scratches[thread];
    const int* const nodes = run.simulationPath + begin;
    system.Solve(*run.image->grid, nodes, end - begin, scratch.system, [&](int i, const KrigingWeights& solved) {
      scratch.gaveUp[i] = solved.m == 0;
      const AheadSolver::Node node = AheadSolver::Keep(model, solved, scratch.weight.data());
      writer.Store(
          nodes[i], node, scratch.weight.data(), [&](int k) { return data.value[k]; },
          [&](int k) { return data.node[k]; });
    });
  };
  const auto warn = [&](int thread, int i) noexcept {
    return WarnOfSystem(run.monitor, 0, scratches[thread].gaveUp[i]);
  };
  const int status = ForEachChunk(run.nnode, run.pathFirstSimulated, run.monitor, run.dealing, work, warn);
  return status != 0 ? status : Finish(run);
}

int RunMoving(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* stdImage,
              VORL_IMAGE* outputImage, BOOLEAN rotationStationary, BOOLEAN weightStationary, BOOLEAN rangeStationary,
              BOOLEAN covModelStationary, real sill, real** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
              int* neighborShift, int nneighborLimit, int* nodeStatus, int nnode, int* simulationPath,
              int pathFirstSimulated, FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
              int (*progressCallback)(VORL_PROGRESSMONITOR*), Dealing dealing) noexcept {
  static_cast<void>(rangeStationary);
  static_cast<void>(reportFile);
  const EstimationRun run{
      input,  image,          stdImage,           outputImage,
      nnode,  simulationPath, pathFirstSimulated, RunMonitor(progressMonitor, progressCallback, dealing.threaded()),
      dealing};
  const KrigingModel model = MakeKrigingModel(input->covModel, ordinaryKriging, rotationStationary, weightStationary,
                                              covModelStationary, sill, rotationMatrix);
  const NeighborList list{searchNeighborhood, neighborShift, *image->grid};
  return EstimateMoving(run, model, list, nneighborLimit, nodeStatus);
}

int RunUnique(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* stdImage,
              VORL_IMAGE* outputImage, real sill, real** rotationMatrix, int ndata, int nnode, int* simulationPath,
              int pathFirstSimulated, FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
              int (*progressCallback)(VORL_PROGRESSMONITOR*), Dealing dealing) noexcept {
  static_cast<void>(reportFile);
  const EstimationRun run{
      input,  image,          stdImage,           outputImage,
      nnode,  simulationPath, pathFirstSimulated, RunMonitor(progressMonitor, progressCallback, dealing.threaded()),
      dealing};
  const KrigingModel model = MakeKrigingModel(input->covModel, ordinaryKriging, TRUE, TRUE, TRUE, sill, rotationMatrix);
  return EstimateUnique(run, model, ndata);
}

}  // namespace
}  // namespace kestrum

using kestrum::Dealing;

int VORLKestrumSimEstimation(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* stdImage,
                             VORL_IMAGE* outputImage, BOOLEAN rotationStationary, BOOLEAN weightStationary,
                             BOOLEAN rangeStationary, BOOLEAN covModelStationary, real sill, real** rotationMatrix,
                             VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int* neighborShift, int nneighborLimit,
                             int* nodeStatus, int nnode, int* simulationPath, int pathFirstSimulated, FILE* reportFile,
                             VORL_PROGRESSMONITOR* progressMonitor,
                             int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  return kestrum::RunMoving(input, ordinaryKriging, image, stdImage, outputImage, rotationStationary, weightStationary,
                            rangeStationary, covModelStationary, sill, rotationMatrix, searchNeighborhood,
                            neighborShift, nneighborLimit, nodeStatus, nnode, simulationPath, pathFirstSimulated,
                            reportFile, progressMonitor, progressCallback, Dealing::Serial());
}

int VORLOMPKestrumSimEstimation(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                VORL_IMAGE* stdImage, VORL_IMAGE* outputImage, BOOLEAN rotationStationary,
                                BOOLEAN weightStationary, BOOLEAN rangeStationary, BOOLEAN covModelStationary,
                                real sill, real** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                int* neighborShift, int nneighborLimit, int* nodeStatus, int nnode, int* simulationPath,
                                int pathFirstSimulated, FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
                                int (*progressCallback)(VORL_PROGRESSMONITOR*), int nthreads) noexcept {
  return kestrum::RunMoving(input, ordinaryKriging, image, stdImage, outputImage, rotationStationary, weightStationary,
                            rangeStationary, covModelStationary, sill, rotationMatrix, searchNeighborhood,
                            neighborShift, nneighborLimit, nodeStatus, nnode, simulationPath, pathFirstSimulated,
                            reportFile, progressMonitor, progressCallback, Dealing::Threads(nthreads));
}

int VORLKestrumSimEstimationUniqueSN(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                     VORL_IMAGE* stdImage, VORL_IMAGE* outputImage, real sill, real** rotationMatrix,
                                     int ndata, int nnode, int* simulationPath, int pathFirstSimulated,
                                     FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
                                     int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  return kestrum::RunUnique(input, ordinaryKriging, image, stdImage, outputImage, sill, rotationMatrix, ndata, nnode,
                            simulationPath, pathFirstSimulated, reportFile, progressMonitor, progressCallback,
                            Dealing::Serial());
}

int VORLOMPKestrumSimEstimationUniqueSN(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                        VORL_IMAGE* stdImage, VORL_IMAGE* outputImage, real sill, real** rotationMatrix,
                                        int ndata, int nnode, int* simulationPath, int pathFirstSimulated,
                                        FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
                                        int (*progressCallback)(VORL_PROGRESSMONITOR*), int nthreads) noexcept {
  return kestrum::RunUnique(input, ordinaryKriging, image, stdImage, outputImage, sill, rotationMatrix, ndata, nnode,
                            simulationPath, pathFirstSimulated, reportFile, progressMonitor, progressCallback,
                            Dealing::Threads(nthreads));
}
