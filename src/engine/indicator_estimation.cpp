#include "engine/indicator_estimation.h"

#include <algorithm>

#include "core/object_array.hpp"
#include "engine/categories.hpp"
#include "engine/node_chunks.hpp"
#include "engine/run_files.hpp"
#include "engine/run_input_shared.hpp"
#include "engine/unique_neighborhood.hpp"
#include "io/image_files.h"

namespace kestrum {
namespace {

// What happened to one category at a node of a chunk.
struct CategoryEvents {
  int ndropped;
  bool gaveUp;
};

// The neighbours of one category.
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
  ObjectArray<DataNeighborSearch::Scratch> searches;  // per category
  ObjectArray<UniqueSystem::Scratch> uniques;         // per category
  Buffer<real> weight;                                // of one node with a unique neighbourhood
  Buffer<real> probability;                           // by node of the chunk and category
  Buffer<CategoryEvents> events;                      // likewise
  bool defaults[AheadSolver::kMaxNode];               // whether a node took the prior probabilities
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

  // Data and lists. model(c) and list(c): the model and the moving neighbourhood of a category.
  template <typename ModelOf, typename ListOf>
  [[nodiscard]] int Prepare(int nuniqueDataMax, const int* nneighborLimit, const ModelOf& model,
                            const ListOf& list) noexcept {
    const int ncategory = categories_.count();
    if (const int status = neighborhoods_.Allocate(ncategory); status != 0) return status;
    bool anyUnique = false;
    bool anyMoving = false;
    for (int c = 0; c < ncategory; ++c) {
      neighborhoods_[c].unique = input_.searchRadiusRelative[c] == kUniqueNeighborhood;
      neighborhoods_[c].model = model(c);
      (neighborhoods_[c].unique ? anyUnique : anyMoving) = true;
    }
    if (anyUnique) {
      if (const int status = data_.Gather(image_, nuniqueDataMax); status != 0) return status;
      for (CategoryNeighborhood& neighborhood : neighborhoods_) {
        if (!neighborhood.unique) continue;
        const int status = neighborhood.system.Build(neighborhood.model, data_, false, dealing_);
        if (status != 0) return status;
      }
    }
    for (int c = 0; c < ncategory; ++c) {
      if (!neighborhoods_[c].unique && nneighborLimit[c] < 1) return -71260;
    }
    if (!anyMoving) return 0;
    if (const int status = isDatum_.Allocate(image_.grid->nxyz); status != 0) return status;
    int ndata = 0;
    for (int i = 0; i < image_.grid->nxyz; ++i) {
      if (image_.var[i] == VORL_MISSING_VALUE) continue;
      isDatum_.Set(i);
      ++ndata;
    }
    for (int c = 0; c < ncategory; ++c) {
      auto& [unique, krigingModel, systems, search, system] = neighborhoods_[c];
      if (unique) continue;
      int status = search.Prepare(list(c), isDatum_, ndata, nneighborLimit[c]);
      if (status == 0) status = systems.Prepare(krigingModel, list(c), search.capacity());
      if (status != 0) return status;
      capacity_ = std::max(capacity_, systems.capacity);
    }
    return 0;
  }

  [[nodiscard]] int AllocateScratch() noexcept {
    if (const int status = scratches_.Allocate(dealing_.nthreads()); status != 0) return status;
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
      for (int c = 0; c < categories_.count(); ++c) {
        const CategoryEvents& events = scratch.events[Place(i, c)];
        for (int k = 0; k < events.ndropped; ++k) monitor.Warn(2001);
        if (events.gaveUp) monitor.Warn(2015);
      }
      if (scratch.defaults[i]) monitor.Warn(2020);
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
    if (status == 0) status = scratch.searches.Allocate(ncategory);
    if (status == 0) status = scratch.uniques.Allocate(ncategory);
    if (status == 0 && capacity_ > 0) {
      status = scratch.kriging.Allocate(neighborhoods_[0].model.ordinaryKriging, capacity_);
      if (status == 0) status = scratch.solver.Allocate(capacity_);
    }
    if (status == 0 && data_.n > 0) status = scratch.weight.Allocate(data_.n);
    for (int c = 0; c < ncategory && status == 0; ++c) {
      const CategoryNeighborhood& neighborhood = neighborhoods_[c];
      status = neighborhood.unique ? neighborhood.system.AllocateScratch(scratch.uniques[c])
                                   : neighborhood.search.AllocateScratch(scratch.searches[c]);
    }
    return status;
  }

  void EstimateChunk(ChunkScratch& scratch, const int* nodes, int count) noexcept {
    const int ncategory = categories_.count();
    for (int c = 0; c < ncategory; ++c) {
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

  void SolveMoving(ChunkScratch& scratch, const int* nodes, int count, int c) noexcept {
    const CategoryNeighborhood& neighborhood = neighborhoods_[c];
    const AheadSolver& solver = scratch.solver;
    scratch.solver.Solve(neighborhood.systems, scratch.kriging, nodes, count, [&](int i, int* entries) noexcept {
      return neighborhood.search.Find(nodes, i, count, scratch.searches[c], entries);
    });
    for (int i = 0; i < count; ++i) {
      scratch.events[Place(i, c)] = {solver.node(i).ndropped, solver.node(i).gaveUp};
      scratch.probability[Place(i, c)] = categories_.Probability(
          c, nodes[i], solver.node(i).m, solver.weight(i),
          [&](int k) { return image_.var[nodes[i] + neighborhood.systems.list.shift[solver.entries(i)[k]]]; });
    }
  }

  void SolveUnique(ChunkScratch& scratch, const int* nodes, int count, int c) noexcept {
    const CategoryNeighborhood& neighborhood = neighborhoods_[c];
    neighborhood.system.Solve(
        *image_.grid, nodes, count, scratch.uniques[c], [&](int i, const KrigingWeights& solved) noexcept {
          const AheadSolver::Node node = AheadSolver::Keep(neighborhood.model, solved, scratch.weight.data());
          scratch.events[Place(i, c)] = {0, node.gaveUp};
          scratch.probability[Place(i, c)] = categories_.Probability(c, nodes[i], node.m, scratch.weight.data(),
                                                                     [&](int k) { return data_.value[k]; });
        });
  }

  const VORL_KESTRUMINDICATORINPUT& input_;
  Categories categories_;
  const VORL_IMAGE& image_;
  VORL_IMAGE& outputImage_;
  Dealing dealing_;
  ObjectArray<CategoryNeighborhood> neighborhoods_;
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
  const RunMonitor monitor(progressMonitor, progressCallback);
  IndicatorEstimation estimation(*input, ordinaryKriging != 0, *image, *outputImage, dealing);
  int status = estimation.Prepare(
      nuniqueDataMax, nneighborLimit,
      [&](int c) {
        return MakeKrigingModel(&input->covModel[c], ordinaryKriging, rotationStationary[c], weightStationary[c],
                                covModelStationary[c], sill[c], rotationMatrix[c]);
      },
      [&](int c) {
        return NeighborList{&searchNeighborhood[c], neighborShift[c], *image->grid};
      });
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
