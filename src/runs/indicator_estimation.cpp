#include "runs/indicator_estimation.h"

#include <algorithm>

#include "core/object_array.hpp"
#include "engine/node_chunks.hpp"
#include "engine/same_systems.hpp"
#include "engine/unique_neighborhood.hpp"
#include "io/image_files.h"
#include "runs/categories.hpp"
#include "runs/run_files.hpp"
#include "runs/run_input_shared.hpp"

namespace kestrum {
namespace {

// What happened to one category at a node of a chunk.
struct CategoryEvents {
  int ndropped;
  bool gaveUp;
};

// The neighbours of one category. A category whose systems are those of an earlier one has but the first two.
struct CategoryNeighborhood {
  bool unique = false;
  KrigingModel model;
  MovingSystems systems;      // moving
  DataNeighborSearch search;  // moving
  UniqueSystem system;        // unique
};

// What one thread needs.
struct ChunkScratch {
  KrigingSolver kriging;
  AheadSolver solver;
  DataNeighborSearch::Scratch search;
  UniqueSystem::Scratch unique;
  Buffer<real> weight;                   // of one node with a unique neighbourhood
  Buffer<real> probability;              // by node of the chunk and category
  Buffer<CategoryEvents> events;         // likewise
  bool defaults[AheadSolver::kMaxNode];  // whether a node took the prior probabilities
};

// Indicator kriging of one run.
class IndicatorEstimation {
 public:
  IndicatorEstimation(const VORL_KESTRUMINDICATORINPUT& input, bool ordinaryKriging, const VORL_IMAGE& image,
                      VORL_IMAGE& outputImage, Dealing dealing) noexcept
      : input_(input),
        categories_(input, ordinaryKriging),
        image_(image),
        outputImage_(outputImage),
        dealing_(dealing) {}

  // Data and lists.
  [[nodiscard]] int Prepare(int nuniqueDataMax, const CategorySystems& given) noexcept {
    const int ncategory = categories_.count();
    if (const int status = neighborhoods_.Allocate(ncategory); status != 0) return status;
    if (const int status = source_.Allocate(ncategory); status != 0) return status;
    bool anyUnique = false;
    for (int c = 0; c < ncategory; ++c) {
      neighborhoods_[c].unique = input_.searchRadiusRelative[c] == kUniqueNeighborhood;
      neighborhoods_[c].model = given.Model(c);
      anyUnique |= neighborhoods_[c].unique;
    }
    const auto same = [&](int a, int b) {
      if (neighborhoods_[a].unique != neighborhoods_[b].unique) return false;
      return neighborhoods_[a].unique ? SameModel(neighborhoods_[a].model, neighborhoods_[b].model)
                                      : given.SameMoving(a, b);
    };
    const int nsystem = FindFirstAlike(ncategory, same, source_.data());
    if (anyUnique) {
      if (const int status = data_.Gather(image_, nuniqueDataMax); status != 0) return status;
      for (int c = 0; c < ncategory; ++c) {
        CategoryNeighborhood& neighborhood = neighborhoods_[c];
        if (!neighborhood.unique || source_[c] != c) continue;
        const int status = neighborhood.system.Build(neighborhood.model, data_, false, dealing_);
        if (status != 0) return status;
      }
    }
    for (int c = 0; c < ncategory; ++c) {
      if (!neighborhoods_[c].unique && given.limit[c] < 1) return -71260;
    }
    if (const int status = isDatum_.Allocate(image_.grid->nxyz); status != 0) return status;
    int ndata = 0;
    for (int i = 0; i < image_.grid->nxyz; ++i) {
      if (image_.var[i] == VORL_MISSING_VALUE) continue;
      isDatum_.Set(i);
      ++ndata;
    }
    for (int c = 0; c < ncategory; ++c) {
      auto& [unique, krigingModel, systems, search, system] = neighborhoods_[c];
      if (unique || source_[c] != c) continue;
      int status = search.Prepare(given.List(c), isDatum_, ndata, given.limit[c], nsystem);
      if (status == 0) status = systems.Prepare(krigingModel, given.List(c), search.capacity(), nsystem);
      if (status != 0) return status;
      capacity_ = std::max(capacity_, systems.capacity);
    }
    return 0;
  }

  [[nodiscard]] int AllocateScratch() noexcept {
    if (const int status = scratches_.Allocate(dealing_.nscratch()); status != 0) return status;
    for (ChunkScratch& scratch : scratches_) {
      if (const int status = Allocate(scratch); status != 0) return status;
    }
    return 0;
  }

  [[nodiscard]] int Run(int nnode, const int* simulationPath, int pathFirstSimulated,
                        const RunMonitor& monitor) noexcept {
    const auto work = [&](int thread, int begin, int end) noexcept {
      EstimateChunk(scratches_[thread], simulationPath + begin, end - begin);
    };
    const auto warn = [&](int thread, int i) noexcept {
      const ChunkScratch& scratch = scratches_[thread];
      int status = 0;
      for (int c = 0; c < categories_.count(); ++c) {
        const CategoryEvents& events = scratch.events[Place(i, c)];
        KeepFailure(WarnOfSystem(monitor, events.ndropped, events.gaveUp), &status);
      }
      if (scratch.defaults[i]) KeepFailure(monitor.Warn(2020), &status);
      return status;
    };
    return ForEachChunk(nnode, pathFirstSimulated, monitor, dealing_, work, warn);
  }

 private:
  std::size_t Place(int i, int c) const noexcept { return static_cast<std::size_t>(i) * categories_.count() + c; }

  [[nodiscard]] int Allocate(ChunkScratch& scratch) const noexcept {
    const int ncategory = categories_.count();
    const std::size_t size = Place(AheadSolver::kMaxNode, 0);
    int status = scratch.probability.Allocate(size);
    if (status == 0) status = scratch.events.Allocate(size);
    if (status == 0 && capacity_ > 0) {
      status = scratch.kriging.Allocate(neighborhoods_[0].model.ordinaryKriging, capacity_);
      if (status == 0) status = scratch.solver.Allocate(capacity_);
    }
    if (status == 0 && data_.n > 0) status = scratch.weight.Allocate(data_.n);
    // All searches have the same data and all unique systems the same size: one scratch does for each kind.
    for (int c = 0; c < ncategory && status == 0; ++c) {
      const CategoryNeighborhood& neighborhood = neighborhoods_[c];
      if (source_[c] != c) continue;
      status = neighborhood.unique ? neighborhood.system.AllocateScratch(scratch.unique)
                                   : neighborhood.search.AllocateScratch(scratch.search);
    }
    return status;
  }

  void EstimateChunk(ChunkScratch& scratch, const int* nodes, int count) noexcept {
    const int ncategory = categories_.count();
    for (int c = 0; c < ncategory; ++c) {
      if (source_[c] != c) continue;
      if (neighborhoods_[c].unique) {
        SolveUnique(scratch, nodes, count, c);
      } else {
        SolveMoving(scratch, nodes, count, c);
      }
    }
    const std::ptrdiff_t nxyz = outputImage_.grid->nxyz;
    for (int i = 0; i < count; ++i) {
      real* const probability = &scratch.probability[Place(i, 0)];
      scratch.defaults[i] = ncategory > 1 && !categories_.Normalize(nodes[i], probability);
      for (int c = 0; c < ncategory; ++c) outputImage_.var[c * nxyz + nodes[i]] = probability[c];
    }
  }

  // Keeps what the solved system of the chunk's i-th node says of all categories that have it.
  template <typename NeighborValue>
  void Keep(ChunkScratch& scratch, int i, int node, int source, const AheadSolver::Node& solved, const real* weight,
            const NeighborValue& value) const noexcept {
    for (int c = source; c < categories_.count(); ++c) {
      if (source_[c] != source) continue;
      scratch.events[Place(i, c)] = {solved.ndropped, solved.gaveUp};
      scratch.probability[Place(i, c)] = categories_.Probability(c, node, solved.m, weight, value);
    }
  }

  void SolveMoving(ChunkScratch& scratch, const int* nodes, int count, int source) noexcept {
    const CategoryNeighborhood& neighborhood = neighborhoods_[source];
    const AheadSolver& solver = scratch.solver;
    scratch.search.Forget();
    scratch.solver.Solve(neighborhood.systems, scratch.kriging, nodes, count, [&](int i, int* entries) noexcept {
      return neighborhood.search.Find(nodes, i, count, scratch.search, entries);
    });
    for (int i = 0; i < count; ++i) {
      Keep(scratch, i, nodes[i], source, solver.node(i), solver.weight(i),
           [&](int k) { return image_.var[nodes[i] + neighborhood.systems.list.shift[solver.entries(i)[k]]]; });
    }
  }

  void SolveUnique(ChunkScratch& scratch, const int* nodes, int count, int source) noexcept {
    const CategoryNeighborhood& neighborhood = neighborhoods_[source];
    neighborhood.system.Solve(
        *image_.grid, nodes, count, scratch.unique, [&](int i, const KrigingWeights& solved) noexcept {
          const AheadSolver::Node node = AheadSolver::Keep(neighborhood.model, solved, scratch.weight.data());
          Keep(scratch, i, nodes[i], source, node, scratch.weight.data(), [&](int k) { return data_.value[k]; });
        });
  }

  const VORL_KESTRUMINDICATORINPUT& input_;
  Categories categories_;
  const VORL_IMAGE& image_;
  VORL_IMAGE& outputImage_;
  Dealing dealing_;
  ObjectArray<CategoryNeighborhood> neighborhoods_;
  Buffer<int> source_;  // per category: the first one with the same systems
  UniqueData data_;
  NodeBits isDatum_;
  int capacity_ = 0;  // of the moving neighbourhoods
  ObjectArray<ChunkScratch> scratches_;
};

int Estimate(VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* outputImage,
             BOOLEAN* rotationStationary, BOOLEAN* weightStationary, BOOLEAN* rangeStationary,
             BOOLEAN* covModelStationary, real* sill, real*** rotationMatrix, int nuniqueDataMax,
             VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int** neighborShift, int* nneighborLimit, int* nodeStatus,
             int nnode, int* simulationPath, int pathFirstSimulated, FILE* reportFile,
             VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*),
             Dealing dealing) noexcept {
  static_cast<void>(rangeStationary);
  static_cast<void>(nodeStatus);
  static_cast<void>(reportFile);
  const RunMonitor monitor(progressMonitor, progressCallback, dealing.threaded());
  IndicatorEstimation estimation(*input, ordinaryKriging != 0, *image, *outputImage, dealing);
  int status = estimation.Prepare(
      nuniqueDataMax, {input->covModel, ordinaryKriging, rotationStationary, weightStationary, covModelStationary, sill,
                       rotationMatrix, searchNeighborhood, neighborShift, nneighborLimit, *image->grid});
  if (status != 0) return status;
  if (status = estimation.AllocateScratch(); status != 0) return status;
  if (monitor.AbortedRun()) return kAborted;
  monitor.StartRealizations(1);
  if (status = estimation.Run(nnode, simulationPath, pathFirstSimulated, monitor); status != 0) return status;
  if (EnumNumber(input->outputMode) == KESTRUM_OUTPUT_SEPARATE_FILE) {
    status =
        WriteImageToFile(outputImage, input->formatString, input->outputImageFileName, VORL_EXTENSION_FOR_IMAGE_FILE);
    if (status != 0) return status;
  }
  monitor.FinishRealization();
  return monitor.Publish(0.0);
}

}  // namespace
}  // namespace kestrum

using kestrum::Dealing;

int VORLKestrumIndicatorSimEstimation(VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                      VORL_IMAGE* outputImage, BOOLEAN* rotationStationary, BOOLEAN* weightStationary,
                                      BOOLEAN* rangeStationary, BOOLEAN* covModelStationary, real* sill,
                                      real*** rotationMatrix, int nuniqueDataMax,
                                      VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int** neighborShift,
                                      int* nneighborLimit, int* nodeStatus, int nnode, int* simulationPath,
                                      int pathFirstSimulated, FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
                                      int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  return kestrum::Estimate(input, ordinaryKriging, image, outputImage, rotationStationary, weightStationary,
                           rangeStationary, covModelStationary, sill, rotationMatrix, nuniqueDataMax,
                           searchNeighborhood, neighborShift, nneighborLimit, nodeStatus, nnode, simulationPath,
                           pathFirstSimulated, reportFile, progressMonitor, progressCallback, Dealing::Serial());
}

int VORLOMPKestrumIndicatorSimEstimation(VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                         VORL_IMAGE* outputImage, BOOLEAN* rotationStationary,
                                         BOOLEAN* weightStationary, BOOLEAN* rangeStationary,
                                         BOOLEAN* covModelStationary, real* sill, real*** rotationMatrix,
                                         int nuniqueDataMax, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                         int** neighborShift, int* nneighborLimit, int* nodeStatus, int nnode,
                                         int* simulationPath, int pathFirstSimulated, FILE* reportFile,
                                         VORL_PROGRESSMONITOR* progressMonitor,
                                         int (*progressCallback)(VORL_PROGRESSMONITOR*), int nthreads) noexcept {
  return kestrum::Estimate(input, ordinaryKriging, image, outputImage, rotationStationary, weightStationary,
                           rangeStationary, covModelStationary, sill, rotationMatrix, nuniqueDataMax,
                           searchNeighborhood, neighborShift, nneighborLimit, nodeStatus, nnode, simulationPath,
                           pathFirstSimulated, reportFile, progressMonitor, progressCallback,
                           Dealing::Threads(nthreads));
}
