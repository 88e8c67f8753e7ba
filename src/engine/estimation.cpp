#include "engine/estimation.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "core/buffer.hpp"
#include "core/object_array.hpp"
#include "core/parallel.hpp"
#include "engine/kriging.hpp"
#include "engine/neighbor_search.hpp"
#include "engine/run_files.hpp"
#include "engine/run_monitor.hpp"
#include "io/image_files.h"
#include "numeric/gmres.hpp"

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

// The estimate and standard deviation of a node from its weights. Every system works on the model as it is; the ratios
// of standard deviations of the input scale data, estimate and variance.
class EstimateWriter {
 public:
  explicit EstimateWriter(const EstimationRun& run, bool ordinaryKriging) noexcept
      : usage_(run.input->varianceUsage),
        ordinaryKriging_(ordinaryKriging),
        value_(run.input->varianceValue),
        factor_(usage_ == 2 ? run.input->varianceImage->var : nullptr),
        estimate_(run.image->var),
        deviation_(run.stdImage->var) {}

  // value(i) and factor(i): centred value of neighbour i, and its ratio of standard deviations (usage 2 only).
  template <typename Value, typename Factor>
  void Store(int node, const KrigingWeights& solved, const Value& value, const Factor& factor) const noexcept {
    real estimate = 0.0;
    real explained = 0.0;
    for (int i = 0; i < solved.m; ++i) {
      const real weight = solved.weight[i * solved.stride];
      if (usage_ == 2) {
        estimate += weight * value(i) * factor_[node] / factor(i);
      } else {
        estimate += weight * value(i);
      }
      explained += weight * solved.rhs[i * solved.stride];
    }
    // The multiplier of the unbiasedness row.
    if (usage_ == 0 && ordinaryKriging_) explained += solved.weight[solved.m * solved.stride];
    const real variance = solved.sill - explained;
    estimate_[node] = estimate;
    deviation_[node] = Deviation(node, variance > 0.0 ? variance : 0.0);
  }

  // A node without neighbours, or whose system could not be solved, takes the mean and the sill.
  void StoreWithoutNeighbors(int node, real sill) const noexcept {
    estimate_[node] = 0.0;
    deviation_[node] = usage_ == 0 ? Root(sill) : usage_ == 1 ? Root(sill) * value_ : Root(sill) * factor_[node];
  }

 private:
  // A sill below zero is possible where a weight image holds negative values.
  static real Root(real sill) noexcept { return sill > 0.0 ? std::sqrt(sill) : 0.0; }

  real Deviation(int node, real variance) const noexcept {
    if (usage_ == 1) variance = variance * value_ * value_;
    if (usage_ == 2) variance = variance * factor_[node] * factor_[node];
    return std::sqrt(variance);
  }

  int usage_;
  bool ordinaryKriging_;
  real value_;
  const real* factor_;
  real* estimate_;
  real* deviation_;
};

// Number of consecutive positions of the path that are dealt to a thread at a time.
constexpr int kChunk = KrigingSolver::kMaxTask;

// What happened to the nodes of a chunk: neighbours dropped, and systems given up.
struct ChunkWarnings {
  int dropped[kChunk];
  bool gaveUp[kChunk];
};

// Deals the positions of the nodes to estimate out in chunks: chunk t goes to thread t, then t plus the number of
// threads, and so on. work(thread, first, last, warnings) estimates the nodes at the positions first to last - 1. Then
// progress and warnings of the chunk are told node by node, in order. Progress is that
// of a node-by-node deal: thread 0 reports its n-th node as the position n times the number of threads. A failure ends
// the serial form at once; the threaded form does all nodes, and the last failure is the result.
template <typename Work>
int ForEachChunk(const EstimationRun& run, const Work& work) noexcept {
  const int first = run.pathFirstSimulated;
  const std::int64_t count = static_cast<std::int64_t>(run.nnode) - first;
  const std::int64_t nthreads = run.dealing.nthreads();
  const double unit = 1.0 / count;
  std::atomic<int> word{0};
  run.dealing.EachThread([&](int thread, int team) noexcept {
    std::int64_t reported = 0;  // by thread 0
    const auto report = [&]() noexcept {
      if (thread != 0 || reported >= count) return true;
      const int status = run.monitor.Publish(reported * unit);
      reported += nthreads;
      if (status != 0) word.store(status, std::memory_order_relaxed);
      return status == 0 || run.dealing.threaded();
    };
    for (std::int64_t begin = thread * std::int64_t{kChunk}; begin < count;
         begin += static_cast<std::int64_t>(team) * kChunk) {
      const std::int64_t end = std::min(begin + kChunk, count);
      ChunkWarnings warnings{};
      work(thread, static_cast<int>(first + begin), static_cast<int>(first + end), warnings);
      for (std::int64_t i = 0; i < end - begin; ++i) {
        if (!report()) return;
        for (int k = 0; k < warnings.dropped[i]; ++k) run.monitor.Warn(2001);
        if (warnings.gaveUp[i]) run.monitor.Warn(2015);
      }
    }
    while (thread == 0 && reported < count) {
      if (!report()) return;
    }
  });
  if (const int status = word.load(); status != 0) return status;
  // The serial form looks at the flag where it reports progress.
  return run.dealing.threaded() && run.monitor.AbortedRun() ? kAborted : 0;
}

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
  KrigingSolver solver;
  SparseNeighborSearch::Scratch search;
  Buffer<int> entries;  // of the tasks of a chunk
};

int EstimateMoving(const EstimationRun& run, const KrigingModel& model, const NeighborList& list, int nneighborLimit,
                   const int* nodeStatus) noexcept {
  if (nneighborLimit < 1) return -71260;
  const std::ptrdiff_t ndata = std::count(nodeStatus, nodeStatus + list.grid.nxyz, 0);
  // No system is larger than the list or the data allow.
  const int capacity = static_cast<int>(
      std::clamp<std::ptrdiff_t>(std::min(nneighborLimit, list.offsets->size), 1, std::max<std::ptrdiff_t>(ndata, 1)));
  SparseNeighborSearch sparse;
  if (SparseNeighborSearch::Pays(list, static_cast<int>(ndata), capacity)) {
    const int status = sparse.Prepare(list, nodeStatus, static_cast<int>(ndata), capacity);
    if (status != 0) return status;
  }
  NeighborCovariances covariances;
  if (const int status = covariances.Prepare(model, list); status != 0) return status;
  FirstGuess guess;
  if (const int status = guess.Allocate(model.SystemSize(capacity)); status != 0) return status;
  ObjectArray<MovingScratch> scratches;
  if (const int status = scratches.Allocate(run.dealing.nthreads()); status != 0) return status;
  for (MovingScratch& scratch : scratches) {
    int status = scratch.solver.Allocate(model, covariances, guess, capacity);
    if (status == 0) status = scratch.entries.Allocate(static_cast<std::size_t>(kChunk) * capacity);
    if (status == 0 && sparse.prepared()) status = sparse.AllocateScratch(scratch.search);
    if (status != 0) return status;
  }
  run.monitor.StartRealizations(1);

  const EstimateWriter writer(run, model.ordinaryKriging);
  const real* const value = run.image->var;
  const real* const factor = run.input->varianceUsage == 2 ? run.input->varianceImage->var : nullptr;
  const auto isDatum = [nodeStatus](int node) noexcept { return nodeStatus[node] == 0; };
  const auto work = [&](int thread, int first, int last, ChunkWarnings& warnings) noexcept {
    MovingScratch& scratch = scratches[thread];
    KrigingTask tasks[kChunk];
    int place[kChunk];  // in the chunk, of each task
    int ntask = 0;
    NodeCoordinates at{0, 0, 0};
    int runStart = 0;  // nodes from runStart up belong to the run of the sparse search; empty at first
    int runEnd = -1;
    for (int p = first; p < last; ++p) {
      const int node = run.simulationPath[p];
      at = CoordinatesOf(list.grid, node);
      int* entries = scratch.entries.data() + static_cast<std::ptrdiff_t>(ntask) * capacity;
      int m;
      if (sparse.prepared()) {
        if (node < runStart || node > runEnd) {
          // The nodes that follow in the path, in either direction, as far as they stand in one row.
          runStart = runEnd = node;
          for (int q = p + 1; q < last; ++q) {
            const int next = run.simulationPath[q];
            const int low = std::min(runStart, next);
            const int high = std::max(runEnd, next);
            if (next / list.grid.nx != node / list.grid.nx || high - low >= SparseNeighborSearch::kMaxRun) break;
            runStart = low;
            runEnd = high;
          }
          const NodeCoordinates start = CoordinatesOf(list.grid, runStart);
          sparse.StartRun(start, start.ix + runEnd - runStart, scratch.search);
        }
        m = sparse.Find(node, at, scratch.search, entries);
      } else {
        m = WalkNeighbors(list, node, at, capacity, isDatum, entries);
      }
      if (m == 0) {
        writer.StoreWithoutNeighbors(node, ModelAtNode(model, node).sill);
      } else {
        place[ntask] = p - first;
        tasks[ntask++] = {node, m, entries};
      }
    }
    scratch.solver.Solve(
        tasks, ntask, [&](int index) noexcept { ++warnings.dropped[place[index]]; },
        [&](int index, const KrigingWeights& solved) noexcept {
          const auto& [node, ignored, entries] = tasks[index];
          if (solved.m == 0) {
            warnings.gaveUp[place[index]] = true;
            writer.StoreWithoutNeighbors(node, solved.sill);
            return;
          }
          const auto neighbor = [&, base = node, list_entries = entries](int i) {
            return base + list.shift[list_entries[i]];
          };
          writer.Store(
              node, solved, [&](int i) { return value[neighbor(i)]; }, [&](int i) { return factor[neighbor(i)]; });
        });
  };
  if (const int status = ForEachChunk(run, work); status != 0) return status;
  return Finish(run);
}

// The data of a unique neighbourhood, and the one matrix of all its systems.
struct UniqueData {
  int n = 0;
  Buffer<real> x, y, z;  // in the model's axes
  Buffer<real> value;
  Buffer<real> factor;  // ratio of standard deviations, if there is a variance image
  Buffer<real> matrix;  // with rows of `size` elements
  int size = 0;
};

int GatherData(const EstimationRun& run, int ndata, UniqueData& data) noexcept {
  if (ndata < 1) return -71265;
  const bool hasFactor = run.input->varianceUsage == 2;
  for (Buffer<real>* buffer : {&data.x, &data.y, &data.z, &data.value}) {
    if (const int status = buffer->Allocate(ndata); status != 0) return status;
  }
  if (hasFactor) {
    if (const int status = data.factor.Allocate(ndata); status != 0) return status;
  }
  const VORL_GRID& grid = *run.image->grid;
  for (int node = 0; node < grid.nxyz; ++node) {
    const real value = run.image->var[node];
    if (value == VORL_MISSING_VALUE) continue;
    if (data.n == ndata) return -71266;
    const auto [ix, iy, iz] = CoordinatesOf(grid, node);
    data.x[data.n] = ix * grid.sx;
    data.y[data.n] = iy * grid.sy;
    data.z[data.n] = iz * grid.sz;
    data.value[data.n] = value;
    if (hasFactor) data.factor[data.n] = run.input->varianceImage->var[node];
    ++data.n;
  }
  return data.n == 0 ? -71267 : 0;
}

int BuildUniqueMatrix(const EstimationRun& run, const KrigingModel& model, UniqueData& data) noexcept {
  const int m = data.n;
  const std::ptrdiff_t size = model.SystemSize(m);
  data.size = static_cast<int>(size);
  if (const int status = data.matrix.Allocate(static_cast<std::size_t>(size) * size); status != 0) return status;
  ObjectArray<Buffer<real>> lags;  // per thread
  if (const int status = lags.Allocate(run.dealing.nthreads()); status != 0) return status;
  for (Buffer<real>& lag : lags) {
    if (const int status = lag.Allocate(3 * static_cast<std::size_t>(m)); status != 0) return status;
  }
  if (model.rotated) {
    run.dealing.Blocks(data.n, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t i = begin; i < end; ++i) {
        const Rotation::Lag at = model.rotation.ToModelAxes(data.x[i], data.y[i], data.z[i]);
        data.x[i] = at.x;
        data.y[i] = at.y;
        data.z[i] = at.z;
      }
    });
  }
  real* const matrix = data.matrix.data();
  run.dealing.EachThread([&](int thread, int team) noexcept {
    real* const lagX = lags[thread].data();
    real* const lagY = lagX + m;
    real* const lagZ = lagY + m;
    for (int i = thread; i < m; i += team) {
      const int count = m - 1 - i;
      for (int k = 0; k < count; ++k) {
        lagX[k] = data.x[i + 1 + k] - data.x[i];
        lagY[k] = data.y[i + 1 + k] - data.y[i];
        lagZ[k] = data.z[i + 1 + k] - data.z[i];
      }
      real* const row = matrix + i * size + i + 1;
      EvaluateFixed(*model.covModel, nullptr, count, lagX, lagY, lagZ, row);
      for (int k = 0; k < count; ++k) matrix[(i + 1 + k) * size + i] = row[k];
      matrix[i * size + i] = model.sill;
    }
  });
  if (model.ordinaryKriging) {
    for (std::ptrdiff_t i = 0; i < m; ++i) matrix[i * size + m] = matrix[m * size + i] = 1.0;
    matrix[m * size + m] = 0.0;
  }
  return 0;
}

// What one thread needs for a unique neighbourhood.
struct UniqueScratch {
  Buffer<real> lag;                            // and the covariances of one node
  Buffer<real> rhs, weight, work;              // of kLanes systems
  Buffer<real> loneRhs, loneWeight, loneWork;  // of one system
  VORL_RANDCONTEXT context;

  int Allocate(int m, int size, const GmresLimits& limits) noexcept {
    VORLInitRandContext(&context);
    const std::size_t n = size;
    const struct {
      Buffer<real>* buffer;
      std::size_t size;
    } wanted[] = {{&lag, 4 * static_cast<std::size_t>(m)},           {&rhs, n * kLanes}, {&weight, n * kLanes},
                  {&work, GmresBatchWorkSize(size, limits.restart)}, {&loneRhs, n},      {&loneWeight, n},
                  {&loneWork, GmresWorkSize(size, limits.restart)}};
    for (const auto& [buffer, count] : wanted) {
      if (const int status = buffer->Allocate(count); status != 0) return status;
    }
    return 0;
  }
};

// Attempts for a node: the matrix is shared, so that no neighbour can be dropped.
constexpr int kMaxUniqueAttempt = 5;

int EstimateUnique(const EstimationRun& run, const KrigingModel& model, int ndata) noexcept {
  UniqueData data;
  if (const int status = GatherData(run, ndata, data); status != 0) return status;
  if (const int status = BuildUniqueMatrix(run, model, data); status != 0) return status;
  const int m = data.n;
  const int size = data.size;
  const GmresLimits limits = SolverLimits(size);
  FirstGuess guess;
  if (const int status = guess.Allocate(size); status != 0) return status;
  ObjectArray<UniqueScratch> scratches;
  if (const int status = scratches.Allocate(run.dealing.nthreads()); status != 0) return status;
  for (UniqueScratch& scratch : scratches) {
    if (const int status = scratch.Allocate(m, size, limits); status != 0) return status;
  }
  run.monitor.StartRealizations(1);

  const EstimateWriter writer(run, model.ordinaryKriging);
  const VORL_GRID& grid = *run.image->grid;
  const auto store = [&](int node, const real* weight, const real* rhs, int stride) noexcept {
    writer.Store(
        node, KrigingWeights{m, weight, rhs, stride, model.sill}, [&](int i) { return data.value[i]; },
        [&](int i) { return data.factor[i]; });
  };
  // Goes on with the second attempt; returns whether one succeeded.
  const auto solveAlone = [&](int node, int lane, UniqueScratch& scratch) noexcept {
    for (int i = 0; i < size; ++i) scratch.loneRhs[i] = scratch.rhs[i * kLanes + lane];
    for (int attempt = 2; attempt <= kMaxUniqueAttempt; ++attempt) {
      FirstGuess::Draw(attempt, size, scratch.loneWeight.data(), scratch.context);
      if (Gmres(limits, size, data.matrix.data(), size, scratch.loneRhs.data(), scratch.loneWeight.data(),
                scratch.loneWork.data())) {
        store(node, scratch.loneWeight.data(), scratch.loneRhs.data(), 1);
        return true;
      }
    }
    writer.StoreWithoutNeighbors(node, model.sill);
    return false;
  };
  const auto work = [&](int thread, int first, int last, ChunkWarnings& warnings) noexcept {
    UniqueScratch& scratch = scratches[thread];
    real* const lagX = scratch.lag.data();
    real* const lagY = lagX + m;
    real* const lagZ = lagY + m;
    real* const covariance = lagZ + m;
    for (int begin = first; begin < last; begin += kLanes) {
      const int count = std::min(kLanes, last - begin);
      for (int lane = 0; lane < kLanes; ++lane) {
        // Lanes without a node repeat the last one.
        const auto [ix, iy, iz] = CoordinatesOf(grid, run.simulationPath[begin + std::min(lane, count - 1)]);
        Rotation::Lag at{ix * grid.sx, iy * grid.sy, iz * grid.sz};
        if (model.rotated) at = model.rotation.ToModelAxes(at.x, at.y, at.z);
        for (int i = 0; i < m; ++i) {
          lagX[i] = at.x - data.x[i];
          lagY[i] = at.y - data.y[i];
          lagZ[i] = at.z - data.z[i];
        }
        EvaluateFixed(*model.covModel, nullptr, m, lagX, lagY, lagZ, covariance);
        for (int i = 0; i < m; ++i) scratch.rhs[i * kLanes + lane] = covariance[i];
        if (model.ordinaryKriging) scratch.rhs[m * kLanes + lane] = 1.0;
      }
      for (int i = 0; i < size; ++i) std::fill_n(&scratch.weight[i * kLanes], kLanes, guess.first()[i]);
      const unsigned converged = GmresBatchShared(limits, size, data.matrix.data(), size, scratch.rhs.data(),
                                                  scratch.weight.data(), scratch.work.data());
      for (int lane = 0; lane < count; ++lane) {
        const int node = run.simulationPath[begin + lane];
        if ((converged >> lane & 1u) != 0) {
          store(node, scratch.weight.data() + lane, scratch.rhs.data() + lane, kLanes);
        } else {
          warnings.gaveUp[begin + lane - first] = !solveAlone(node, lane, scratch);
        }
      }
    }
  };
  if (const int status = ForEachChunk(run, work); status != 0) return status;
  return Finish(run);
}

int RunMoving(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* stdImage,
              VORL_IMAGE* outputImage, BOOLEAN rotationStationary, BOOLEAN weightStationary, BOOLEAN rangeStationary,
              BOOLEAN covModelStationary, real sill, real** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
              int* neighborShift, int nneighborLimit, int* nodeStatus, int nnode, int* simulationPath,
              int pathFirstSimulated, FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
              int (*progressCallback)(VORL_PROGRESSMONITOR*), Dealing dealing) noexcept {
  static_cast<void>(rangeStationary);
  static_cast<void>(reportFile);
  const EstimationRun run{input,  image,          stdImage,           outputImage,
                          nnode,  simulationPath, pathFirstSimulated, RunMonitor(progressMonitor, progressCallback),
                          dealing};
  KrigingModel model{input->covModel,           ordinaryKriging != 0,
                     rotationStationary != 0,   weightStationary != 0,
                     covModelStationary != 0,   sill,
                     rotationMatrix != nullptr, {}};
  if (model.rotated) model.rotation = RotationFromMatrix(rotationMatrix);
  const NeighborList list{searchNeighborhood, neighborShift, *image->grid};
  return EstimateMoving(run, model, list, nneighborLimit, nodeStatus);
}

int RunUnique(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* stdImage,
              VORL_IMAGE* outputImage, real sill, real** rotationMatrix, int ndata, int nnode, int* simulationPath,
              int pathFirstSimulated, FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
              int (*progressCallback)(VORL_PROGRESSMONITOR*), Dealing dealing) noexcept {
  static_cast<void>(reportFile);
  const EstimationRun run{input,  image,          stdImage,           outputImage,
                          nnode,  simulationPath, pathFirstSimulated, RunMonitor(progressMonitor, progressCallback),
                          dealing};
  KrigingModel model{input->covModel, ordinaryKriging != 0, true, true, true, sill, rotationMatrix != nullptr, {}};
  if (model.rotated) model.rotation = RotationFromMatrix(rotationMatrix);
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
