#include "engine/place_kriging.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>

#include "core/object_array.hpp"
#include "core/statuses.hpp"
#include "engine/place_cells.hpp"
#include "engine/place_dense.hpp"
#include "engine/place_lanes.hpp"
#include "engine/place_run.hpp"

namespace kestrum {
namespace {

// Fills *problem, and says so.
bool Refuse(PlaceProblem* problem, PlaceRefusal refusal, std::int64_t first = -1, std::int64_t second = -1) noexcept {
  *problem = {refusal, first, second};
  return true;
}

bool IsRefused(const PlaceData& data, PlaceProblem* problem) noexcept {
  if (data.count < 1) return Refuse(problem, PlaceRefusal::kNumberOfData);
  if (data.dimension != 2 && data.dimension != 3) return Refuse(problem, PlaceRefusal::kDimension);
  for (int i = 0; i < data.count; ++i) {
    const double* const at = data.coordinates + std::ptrdiff_t{i} * data.dimension;
    for (int a = 0; a < data.dimension; ++a) {
      if (!std::isfinite(at[a])) return Refuse(problem, PlaceRefusal::kCoordinate, i);
    }
    if (!std::isfinite(data.values[i])) return Refuse(problem, PlaceRefusal::kValue, i);
    if (data.errorVariances != nullptr && !(data.errorVariances[i] >= 0.0 && std::isfinite(data.errorVariances[i]))) {
      return Refuse(problem, PlaceRefusal::kErrorVariance, i);
    }
  }
  return false;
}

bool IsRefused(const PlaceKrigingOptions& options, int dimension, PlaceProblem* problem) noexcept {
  if (options.neighbors < 0) return Refuse(problem, PlaceRefusal::kNeighbors);
  const bool bounded = std::any_of(options.radius, options.radius + 3, [](double r) { return r != 0.0; });
  for (const double r : options.radius) {
    if (bounded && !(r > 0.0 && std::isfinite(r))) return Refuse(problem, PlaceRefusal::kRadius);
  }
  if (options.degree < -1 || options.degree > 2) return Refuse(problem, PlaceRefusal::kDegree);
  if (options.ncovariate < 0 || (options.degree < 0 && (options.ncovariate > 0 || !std::isfinite(options.mean)))) {
    return Refuse(problem, PlaceRefusal::kMean);
  }
  std::int64_t ofCell = 1;
  for (const int points : options.block) {
    if (points < 1 || points > std::numeric_limits<int>::max() / ofCell) return Refuse(problem, PlaceRefusal::kBlock);
    ofCell *= points;
  }
  return dimension < 3 && options.block[2] > 1 && Refuse(problem, PlaceRefusal::kBlock);
}

// Reads the parameters that can be checked: constants that no image replaces, or all at a node.
struct ParametersToCheck {
  int node;  // below 0 for the constants
  bool operator()(const VORL_IMAGE* image, real value, real* parameter) const noexcept {
    if (node < 0 && image != nullptr) return false;
    *parameter = image != nullptr ? image->var[node] : value;
    return true;
  }
};

bool IsRefused(const VORL_COVMODEL& model, int dimension, int node, PlaceProblem* problem) noexcept {
  const ParametersToCheck read{node};
  if (model.nelem < 1 || model.covModelElem == nullptr) return Refuse(problem, PlaceRefusal::kModelType);
  const struct {
    const VORL_IMAGE* image;
    real value;
  } angles[] = {{model.angle1Image, model.angle1Value},
                {model.angle2Image, model.angle2Value},
                {model.angle3Image, model.angle3Value}};
  bool level = true;
  for (const auto& angle : angles) {
    real value;
    if (!read(angle.image, angle.value, &value)) continue;
    if (!std::isfinite(value)) return Refuse(problem, PlaceRefusal::kModelAngle, -1, node);
    level = level && (&angle == angles || value == 0.0);
  }
  real total = 0.0;
  bool complete = true;
  for (int e = 0; e < model.nelem; ++e) {
    const VORL_COVMODELELEM& element = model.covModelElem[e];
    const int type = ElementType(element);
    if (type < COV_NUGGET || type > COV_MATERN) return Refuse(problem, PlaceRefusal::kModelType, e);
    real value;
    if (read(element.weightImage, element.weightValue, &value)) {
      if (!(value >= 0.0 && std::isfinite(value))) return Refuse(problem, PlaceRefusal::kModelSill, e, node);
      total += value;
    } else {
      complete = false;
    }
    if (type == COV_NUGGET) continue;
    const struct {
      const VORL_IMAGE* image;
      real value;
      bool used;
    } ranges[] = {{element.rxImage, element.rxValue, true},
                  {element.ryImage, element.ryValue, true},
                  {element.rzImage, element.rzValue, dimension > 2 || !level}};
    for (const auto& range : ranges) {
      if (!range.used || !read(range.image, range.value, &value)) continue;
      if (!(value > 0.0 && std::isfinite(value))) return Refuse(problem, PlaceRefusal::kModelRange, e, node);
    }
    if (HasExtraParameter(type) && read(element.sImage, element.sValue, &value)) {
      if (!ExtraParameterRange(type).Holds(value)) return Refuse(problem, PlaceRefusal::kModelShape, e, node);
    }
  }
  if (complete && !(total > 0.0 && std::isfinite(total))) {
    return Refuse(problem, PlaceRefusal::kModelSill, -1, node);
  }
  return false;
}

// The node of a target on the whole grid.
int NodeOf(const PlaceTargets& targets, std::int64_t target) noexcept {
  const int* const extent = targets.extent;
  const std::int64_t ix = targets.first[0] + target % extent[0];
  const std::int64_t iy = targets.first[1] + target / extent[0] % extent[1];
  const std::int64_t iz = targets.first[2] + target / extent[0] / extent[1];
  return static_cast<int>(ix + targets.grid.nx * (iy + targets.grid.ny * iz));
}

bool IsLeftOut(const PlaceTargets& targets, std::int64_t target) noexcept {
  return targets.mask != nullptr && targets.mask[target] == 0;
}

bool IsRefused(const PlaceKrigingTargets& targets, int dimension, const PlaceKrigingOptions& options,
               PlaceProblem* problem) noexcept {
  const PlaceTargets& places = targets.places;
  if (places.dimension != dimension) return Refuse(problem, PlaceRefusal::kDimension);
  if (places.list == nullptr) {
    const VORL_GRID& grid = places.grid;
    const int nodes[3] = {grid.nx, grid.ny, grid.nz};
    const real numbers[] = {grid.sx, grid.sy, grid.sz, grid.ox, grid.oy, grid.oz};
    for (int a = 0; a < 3; ++a) {
      const bool inside = places.first[a] >= 0 && places.extent[a] >= 1 && places.first[a] < nodes[a] &&
                          places.extent[a] <= nodes[a] - places.first[a];
      if (!inside || !(numbers[a] > 0.0) || !std::isfinite(numbers[a]) || !std::isfinite(numbers[3 + a])) {
        return Refuse(problem, PlaceRefusal::kGrid);
      }
    }
  } else if (options.block[0] * options.block[1] * options.block[2] > 1) {
    return Refuse(problem, PlaceRefusal::kBlock);
  } else if (places.nlist < 0) {
    return Refuse(problem, PlaceRefusal::kTarget);
  }
  const std::int64_t count = places.count();
  const bool means = options.degree < 0 && targets.means != nullptr;
  if (places.list == nullptr && !means && options.ncovariate == 0) return false;
  for (std::int64_t t = 0; t < count; ++t) {
    if (IsLeftOut(places, t)) continue;
    for (int a = 0; a < dimension && places.list != nullptr; ++a) {
      if (!std::isfinite(places.list[t * dimension + a])) return Refuse(problem, PlaceRefusal::kTarget, t);
    }
    if (means && !std::isfinite(targets.means[t])) return Refuse(problem, PlaceRefusal::kMeanAtTarget, t);
    for (int k = 0; k < options.ncovariate; ++k) {
      if (!std::isfinite(targets.covariates[k * count + t])) {
        return Refuse(problem, PlaceRefusal::kCovariateAtTarget, t, k);
      }
    }
  }
  return false;
}

// Whether images of parameters do not fit the grid, or hold what is no parameter at a target.
bool AreImagesRefused(const VORL_COVMODEL& model, const PlaceTargets& targets, PlaceProblem* problem) noexcept {
  if (targets.list != nullptr) return Refuse(problem, PlaceRefusal::kModelImage);
  const VORL_GRID& grid = targets.grid;
  const auto fits = [&](const VORL_IMAGE* image) {
    return image == nullptr || (image->var != nullptr && image->grid != nullptr && image->grid->nx == grid.nx &&
                                image->grid->ny == grid.ny && image->grid->nz == grid.nz && image->nvar >= 1);
  };
  bool sound = fits(model.angle1Image) && fits(model.angle2Image) && fits(model.angle3Image);
  for (int e = 0; e < model.nelem; ++e) {
    const VORL_COVMODELELEM& element = model.covModelElem[e];
    sound = sound && fits(element.weightImage) && fits(element.rxImage) && fits(element.ryImage) &&
            fits(element.rzImage) && fits(element.sImage);
  }
  if (!sound) return Refuse(problem, PlaceRefusal::kModelImage);
  const std::int64_t count = targets.count();
  for (std::int64_t t = 0; t < count; ++t) {
    if (!IsLeftOut(targets, t) && IsRefused(model, targets.dimension, NodeOf(targets, t), problem)) return true;
  }
  return false;
}

// The work of one thread.
class Worker {
 public:
  [[nodiscard]] int Allocate(const PlaceRun& run, const PlaceIndex& index) noexcept {
    run_ = &run;
    index_ = &index;
    if (const int status = covariance_.Allocate(run.covariance, run.level); status != 0) return status;
    if (const int status = cells_.Allocate(run); status != 0) return status;
    return lanes_.Allocate(run);
  }

  PlaceNodes& nodes() noexcept { return nodes_; }
  PlaceKrigingReport& report() noexcept { return lanes_.report(); }
  const PlaceKrigingReport& reportOfCells() noexcept { return cells_.report(); }

  // Kriges the targets of a tile of cells.
  [[nodiscard]] int KrigeCells(const PlaceTiles& tiles, std::int64_t tile, const PlaceNeighborhood& neighborhood,
                               const TargetCovariance& covariance) noexcept {
    search_.Begin(*index_, neighborhood, nodes_, run_->level);
    for (;;) {
      PlaceCell cell;
      if (const int status = search_.NextCell(tiles, tile, &cell); status != 0) return status;
      if (cell.count == 0) return 0;
      cells_.Krige(nodes_, cell, covariance);
    }
  }

  // Kriges the targets of a tile, with the data of a neighbourhood. Systems may wait in their lanes.
  [[nodiscard]] int KrigeTile(const PlaceNeighborhood& neighborhood, const TargetCovariance& covariance) noexcept {
    return KrigeNodes(nodes_, neighborhood, covariance);
  }

  // Kriges a target of a tile alone, with the parameters at a node of the grid.
  [[nodiscard]] int KrigeAlone(int node, const PlaceNeighborhood& neighborhood, int gridNode) noexcept {
    if (const int status = covariance_.Prepare(gridNode); status != 0) return status;
    alone_.count = 1;
    alone_.x[0] = nodes_.x[node];
    alone_.y[0] = nodes_.y[node];
    alone_.z[0] = nodes_.z[node];
    alone_.target[0] = nodes_.target[node];
    return KrigeNodes(alone_, neighborhood, covariance_);
  }

  // Kriges the targets of a tile with a system of all data.
  [[nodiscard]] int KrigeTile(const PlaceDense& system, const TargetCovariance& covariance) noexcept {
    for (int i = 0; i < nodes_.count; ++i) targets_[i] = TargetOf(nodes_, i);
    return system.Krige(*run_, covariance, nodes_.count, targets_, &scratch_, &report());
  }

  // Kriges what waits in the lanes.
  void Finish() noexcept { lanes_.Flush(); }

 private:
  static PlaceTarget TargetOf(const PlaceNodes& nodes, int i) noexcept {
    return {nodes.x[i], nodes.y[i], nodes.z[i], nodes.target[i]};
  }

  [[nodiscard]] int KrigeNodes(const PlaceNodes& nodes, const PlaceNeighborhood& neighborhood,
                               const TargetCovariance& covariance) noexcept {
    search_.Begin(*index_, neighborhood, nodes, run_->level);
    for (;;) {
      PlaceSets sets;
      if (const int status = search_.Next(&sets); status != 0) return status;
      if (sets.nset == 0) return 0;
      if (const int status = KrigeSets(nodes, neighborhood, sets, covariance); status != 0) return status;
    }
  }

  [[nodiscard]] int KrigeSets(const PlaceNodes& nodes, const PlaceNeighborhood& neighborhood, const PlaceSets& sets,
                              const TargetCovariance& covariance) noexcept {
    const bool apart = run_->fold != nullptr;
    // The covariances of all candidates may serve all sets; or each system has its own evaluated, without copies. Where
    // parameters vary, they are those of the only target.
    std::int64_t pairs = 0;
    for (int s = 0; s < sets.nset; ++s) {
      const std::int64_t n = sets.CountMembers(s);
      if (n <= PlaceLanes::kMaxData) pairs += n * (n - 1) * (apart ? sets.start[s + 1] - sets.start[s] : 1);
    }
    const double ofCandidates = static_cast<double>(sets.ncandidate) * (sets.ncandidate - 1);
    const double ofSets = static_cast<double>(pairs);
    const double cost = covariance.cost();
    // They are gone with their sets, so that the last lanes stay empty.
    constexpr int kManySets = 20;
    const bool shared =
        !run_->covariance.varies() && sets.nset >= kManySets && ofCandidates * (cost + 1.0) + ofSets < ofSets * cost;
    if (shared) {
      const int status = PackCovariances(covariance, sets.ncandidate, sets.candidates, &lags_, &packed_);
      if (status != 0) return status;
    }
    if (positions_.size() < static_cast<std::size_t>(sets.ncandidate) + 1) {
      const int status = positions_.Allocate(2 * static_cast<std::size_t>(sets.ncandidate) + 1);
      if (status != 0) return status;
    }
    if (apart) {
      const int status = KrigeApart(nodes, neighborhood.metric, sets, shared, covariance);
      // The lanes that are left refer to the covariances.
      if (shared) lanes_.Flush();
      return status;
    }

    // Lanes are solved together, so those of as many targets come together: parts of sets with many targets first.
    constexpr int kPart = PlaceLanes::kMaxTargets;
    int ending[kPart + 1] = {};
    for (int s = 0; s < sets.nset; ++s) {
      const int n = sets.CountMembers(s);
      const int ntarget = sets.start[s + 1] - sets.start[s];
      if (n == 0 || n > PlaceLanes::kMaxData) {
        const int status = KrigeOddSet(nodes, sets, s, sets.Members(s, positions_.data()), 0, ntarget, covariance);
        if (status != 0) return status;
        continue;
      }
      for (int part = 0; part < ntarget / kPart; ++part) {
        const int status =
            AddPart(nodes, sets, s, sets.Members(s, positions_.data()), part * kPart, kPart, shared, covariance);
        if (status != 0) return status;
      }
      ++ending[ntarget % kPart];
    }
    // The rest of each set, the largest rest first.
    for (int count = kPart - 1; count > 0; --count) ending[count - 1] += ending[count];
    const int total = ending[1];
    for (int s = sets.nset - 1; s >= 0; --s) {
      const int n = sets.CountMembers(s);
      if (n > 0 && n <= PlaceLanes::kMaxData) order_[--ending[(sets.start[s + 1] - sets.start[s]) % kPart]] = s;
    }
    for (int i = 0; i < total; ++i) {
      const int s = order_[i];
      const int ntarget = sets.start[s + 1] - sets.start[s];
      const int status = AddPart(nodes, sets, s, sets.Members(s, positions_.data()), ntarget / kPart * kPart,
                                 ntarget % kPart, shared, covariance);
      if (status != 0) return status;
    }
    // The lanes that are left refer to the covariances.
    if (shared) lanes_.Flush();
    return 0;
  }

  // Kriges each target of some sets from the data of other folds.
  [[nodiscard]] int KrigeApart(const PlaceNodes& nodes, const PlaceMetric& metric, const PlaceSets& sets, bool shared,
                               const TargetCovariance& covariance) noexcept {
    for (int s = 0; s < sets.nset; ++s) {
      for (int i = 0; i < sets.start[s + 1] - sets.start[s]; ++i) {
        const int n = FindMembersOfOtherFolds(nodes, metric, sets, s, sets.member[sets.start[s] + i]);
        const int status = n == 0 || n > PlaceLanes::kMaxData ? KrigeOddSet(nodes, sets, s, n, i, 1, covariance)
                                                              : AddPart(nodes, sets, s, n, i, 1, shared, covariance);
        if (status != 0) return status;
      }
    }
    return 0;
  }

  // Finds the data of a set that serve a node which is a datum itself, and returns how many there are.
  int FindMembersOfOtherFolds(const PlaceNodes& nodes, const PlaceMetric& metric, const PlaceSets& sets, int set,
                              int node) noexcept {
    const int* const fold = run_->fold;
    const int own = fold[nodes.target[node]];
    int* const positions = positions_.data();
    int* const end = std::remove_if(positions, positions + sets.Members(set, positions),
                                    [&](int position) { return fold[sets.datum[position]] == own; });
    const int n = static_cast<int>(end - positions);
    const int most = run_->neighbors;
    if (most == 0 || n <= most) return n;
    const auto square = [&](int position) {
      return metric.Square(sets.candidates.x[position] - nodes.x[node], sets.candidates.y[position] - nodes.y[node],
                           sets.candidates.z[position] - nodes.z[node]);
    };
    std::nth_element(positions, positions + most, end, [&](int a, int b) {
      const double first = square(a);
      const double second = square(b);
      return first != second ? first < second : a < b;
    });
    std::sort(positions, positions + most);
    return most;
  }

  // Takes `count` targets of a set, from number `first` on, with the n data whose positions have been found, into a lane.
  [[nodiscard]] int AddPart(const PlaceNodes& nodes, const PlaceSets& sets, int set, int n, int first, int count,
                            bool shared, const TargetCovariance& covariance) noexcept {
    const bool own = run_->covariance.varies();
    PlaceMembers members{n, positions_.data(), sets.candidates, sets.datum};
    if (own) {
      for (int i = 0; i < n; ++i) {
        const int position = positions_[static_cast<std::size_t>(i)];
        own_[0][i] = sets.candidates.x[position];
        own_[1][i] = sets.candidates.y[position];
        own_[2][i] = sets.candidates.z[position];
        ownDatum_[i] = sets.datum[position];
        positions_[static_cast<std::size_t>(i)] = i;
      }
      members.candidates = {own_[0], own_[1], own_[2]};
      members.datum = ownDatum_;
      const int status = PackCovariances(covariance, n, members.candidates, &lags_, &packed_);
      if (status != 0) return status;
    }
    for (int i = 0; i < count; ++i) targets_[i] = TargetOf(nodes, sets.member[sets.start[set] + first + i]);
    lanes_.Add(members, shared || own ? packed_.data() : nullptr, covariance, count, targets_);
    return 0;
  }

  // The same of no data, or of more than a lane takes.
  [[nodiscard]] int KrigeOddSet(const PlaceNodes& nodes, const PlaceSets& sets, int set, int n, int first, int ntarget,
                                const TargetCovariance& covariance) noexcept {
    for (int i = 0; i < ntarget; ++i) targets_[i] = TargetOf(nodes, sets.member[sets.start[set] + first + i]);
    if (n == 0) {
      for (int i = 0; i < ntarget; ++i) {
        run_->WriteWithoutData(targets_[i].number, covariance.targetVariance(), &report());
      }
      return 0;
    }
    const PlaceMembers members{n, positions_.data(), sets.candidates, sets.datum};
    const int status = dense_.Build(run_->data, members, covariance, Dealing::Serial(), run_->progress, run_->level);
    if (status != 0) return status;
    return dense_.Krige(*run_, covariance, ntarget, targets_, &scratch_, &report());
  }

  const PlaceRun* run_ = nullptr;
  const PlaceIndex* index_ = nullptr;
  PlaceNodes nodes_, alone_;
  PlaceSearch search_;
  TargetCovariance covariance_;  // of a target alone
  PlaceLanes lanes_;
  PlaceCells cells_;
  PlaceDense dense_;
  PlaceDense::Scratch scratch_;
  PlaceTarget targets_[PlaceNodes::kMax];
  int order_[PlaceNodes::kMax];
  double own_[3][PlaceLanes::kMaxData];
  int ownDatum_[PlaceLanes::kMaxData];
  Buffer<int> positions_;
  Buffer<double> lags_, packed_;
};

// Targets come in tiles small enough for every thread to have some, and for few data to lie in each: fewer if tiles are
// made of cells, whose data are sought among all those near the tile, which are many in space.
int TargetsOfTile(const PlaceTargets& targets, int ndata, bool inCells, int nthreads) noexcept {
  constexpr int kLeast = 16;
  constexpr int kTilesOfThread = 16;
  const int dataOfTile = inCells ? 128 : 512;
  const std::int64_t ntarget = targets.count();
  // The data are about a window, too.
  const VORL_GRID& grid = targets.grid;
  const std::int64_t nplace = targets.list != nullptr ? ntarget : std::int64_t{grid.nx} * grid.ny * grid.nz;
  int most = PlaceNodes::kMax;
  while (most > kLeast && (ntarget / most < std::int64_t{kTilesOfThread} * nthreads ||
                           std::int64_t{most} * ndata / nplace > dataOfTile)) {
    most /= 2;
  }
  return most;
}

// Deals items out to threads as they come for them, and reports progress: item by item, some of `total` are done.
//   begin(thread)              returns a status
//   work(thread, item, held)   returns a status; *held is how many are done with the item
//   end(thread)                called if all went well
// Returns the status of one that failed, or of the report.
template <typename Begin, typename Work, typename End>
[[nodiscard]] int DealOut(const Dealing& dealing, std::int64_t nitem, std::int64_t total, const Progress& progress,
                          const Begin& begin, const Work& work, const End& end) noexcept {
  std::atomic<int> failure{0};
  std::atomic<std::int64_t> next{0};
  std::atomic<std::int64_t> done{0};
  progress.StartRealizations(1);
  dealing.EachThread([&](int thread, int /*team*/) noexcept {
    int own = begin(thread);
    while (own == 0 && failure.load(std::memory_order_relaxed) == 0) {
      const std::int64_t item = next.fetch_add(1, std::memory_order_relaxed);
      if (item >= nitem) break;
      std::int64_t held = 0;
      own = work(thread, item, &held);
      const std::int64_t sum = done.fetch_add(held, std::memory_order_relaxed) + held;
      if (own == 0 && thread == 0) own = progress.Publish(static_cast<double>(sum) / static_cast<double>(total));
      own = progress.After(own);
    }
    if (own == 0) end(thread);
    if (own != 0) failure.store(own, std::memory_order_relaxed);
  });
  return failure.load();
}

void Add(const PlaceKrigingReport& part, PlaceKrigingReport* sum) noexcept {
  sum->withoutData += part.withoutData;
  sum->undetermined += part.undetermined;
  sum->indefinite += part.indefinite;
  sum->redundant += part.redundant;
}

}  // namespace

int PlaceKriging::Prepare(const PlaceData& data, const VORL_COVMODEL& model, const PlaceKrigingOptions& options,
                          const Dealing& dealing, const Progress& progress, PlaceProblem* problem,
                          SimdLevel level) noexcept {
  *problem = {};
  if (IsRefused(data, problem) || IsRefused(options, data.dimension, problem) ||
      IsRefused(model, data.dimension, -1, problem))
    return 0;
  const int n = data.count;
  const auto count = static_cast<std::size_t>(n);
  model_ = &model;
  options_ = options;
  data_.n = n;
  data_.dimension = data.dimension;
  data_.terms = {options.degree, data.dimension, options.ncovariate};
  int status = 0;
  for (Buffer<double>* vector : {&data_.x, &data_.y, &data_.z, &data_.residual}) {
    if (status == 0) status = vector->Allocate(count, 0.0);
  }
  if (status == 0 && data.errorVariances != nullptr) status = data_.errorVariance.Allocate(count);
  const std::size_t covariates = count * static_cast<std::size_t>(options.ncovariate);
  if (status == 0 && covariates > 0) status = data_.covariate.Allocate(covariates);
  if (status != 0) return status;
  for (std::size_t i = 0; i < covariates; ++i) {
    if (!std::isfinite(data.covariates[i])) {
      Refuse(problem, PlaceRefusal::kCovariateAtDatum, static_cast<std::int64_t>(i % count),
             static_cast<std::int64_t>(i / count));
      return 0;
    }
    data_.covariate[i] = data.covariates[i];
  }
  if (data.errorVariances != nullptr) std::copy_n(data.errorVariances, count, data_.errorVariance.data());

  // An unbiased estimate moves with the values: it is that of what is left of them.
  data_.center = options.degree < 0 ? options.mean : std::accumulate(data.values, data.values + n, 0.0) / n;
  for (int i = 0; i < n; ++i) {
    const double* const at = data.coordinates + std::ptrdiff_t{i} * data.dimension;
    const auto entry = static_cast<std::size_t>(i);
    data_.x[entry] = at[0];
    data_.y[entry] = at[1];
    if (data.dimension > 2) data_.z[entry] = at[2];
    const double mean = options.degree < 0 && data.means != nullptr ? data.means[i] : data_.center;
    if (!std::isfinite(mean)) {
      Refuse(problem, PlaceRefusal::kMeanAtDatum, i);
      return 0;
    }
    data_.residual[entry] = data.values[i] - mean;
  }

  const PlaceVectors places{data_.x.data(), data_.y.data(), data_.z.data()};
  CoincidentData coincident;
  status = FindCoincidentData(n, places, data.errorVariances, &coincident, progress);
  if (status != 0) return status;
  if (coincident.first >= 0) {
    Refuse(problem, PlaceRefusal::kSamePlace, coincident.first, coincident.second);
    return 0;
  }
  PlaceCovariance covariance;
  constexpr int kPoint[3] = {1, 1, 1};
  constexpr double kUnit[3] = {1.0, 1.0, 1.0};
  if (status = covariance.Prepare(model, kPoint, kUnit, progress); status != 0) return status;
  all_ = !covariance.varies() && options.radius[0] == 0.0 && (options.neighbors == 0 || options.neighbors >= n);
  if (all_) {
    TargetCovariance everywhere;
    status = everywhere.Allocate(covariance, level);
    if (status == 0) status = everywhere.Prepare(-1);
    if (status != 0) return status;
    return system_.Build(data_, {n, nullptr, places, nullptr}, everywhere, dealing, progress, level);
  }
  return index_.Build(n, places, kUnit, dealing, progress);
}

PlaceNeighborhood PlaceKriging::NeighborhoodAt(const PlaceCovariance& covariance, int node) const noexcept {
  PlaceNeighborhood neighborhood;
  neighborhood.metric.planar = data_.dimension < 3;
  if (!options_.euclidean) neighborhood.metric = covariance.MetricAt(node, data_.dimension);
  neighborhood.limit = options_.neighbors;
  neighborhood.bounded = options_.radius[0] > 0.0;
  if (neighborhood.bounded) {
    Rotation rotation;
    const bool rotated = covariance.RotationAt(node, &rotation);
    double longest;
    neighborhood.ellipsoid =
        PlaceMetric::FromRanges(options_.radius, rotated ? &rotation : nullptr, data_.dimension, &longest);
    neighborhood.squaredRadius = longest * longest;
  }
  return neighborhood;
}

int PlaceKriging::Krige(const PlaceKrigingTargets& targets, const PlaceKrigingResults& results, const Dealing& dealing,
                        const Progress& progress, PlaceKrigingReport* report, PlaceProblem* problem,
                        SimdLevel level) const noexcept {
  return Run(targets, results, nullptr, 0, dealing, progress, report, problem, level);
}

int PlaceKriging::Run(const PlaceKrigingTargets& targets, const PlaceKrigingResults& results, const int* fold,
                      int largestFold, const Dealing& dealing, const Progress& progress, PlaceKrigingReport* report,
                      PlaceProblem* problem, SimdLevel level) const noexcept {
  *report = {};
  *problem = {};
  if (IsRefused(targets, data_.dimension, options_, problem)) return 0;
  const std::int64_t count = targets.places.count();
  const int most = options_.neighbors > 0 ? std::min(options_.neighbors, data_.n) : data_.n;
  if (results.weights != nullptr && results.nweight < most) {
    Refuse(problem, PlaceRefusal::kWeights);
    return 0;
  }
  PlaceCovariance covariance;
  const double spacing[3] = {targets.places.grid.sx, targets.places.grid.sy, targets.places.grid.sz};
  if (const int status = covariance.Prepare(*model_, options_.block, spacing, progress); status != 0) return status;
  const bool varies = covariance.varies();
  if (varies && AreImagesRefused(*model_, targets.places, problem)) return 0;
  const PlaceRun run{data_, covariance, targets, results, progress, level, fold, options_.neighbors};

  PlaceNeighborhood neighborhood;
  TargetCovariance everywhere;
  if (!varies) {
    neighborhood = NeighborhoodAt(covariance, -1);
    int status = everywhere.Allocate(covariance, level);
    if (status == 0) status = everywhere.Prepare(-1);
    if (status != 0) return status;
    if (neighborhood.limit > 0) neighborhood.limit += std::min(largestFold, data_.n);
  }
  PlaceTiles tiles;
  const double scale[3] = {neighborhood.metric.Scale(0), neighborhood.metric.Scale(1), neighborhood.metric.Scale(2)};
  const bool inCells = !all_ && PlaceCells::Serve(run, neighborhood);
  const int ofTile = TargetsOfTile(targets.places, all_ ? 1 : data_.n, inCells, dealing.nscratch());
  if (const int status = tiles.Prepare(targets.places, scale, ofTile, inCells, dealing, progress); status != 0) {
    return status;
  }
  ObjectArray<Worker> workers;
  if (const int status = workers.Allocate(dealing.nscratch()); status != 0) return status;

  if (targets.places.mask != nullptr) {
    dealing.Blocks(count, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t t = begin; t < end; ++t) {
        if (IsLeftOut(targets.places, t)) run.WriteNothing(t, 0);
      }
    });
  }
  const int status = DealOut(
      dealing, tiles.count(), count, progress,
      [&](int thread) noexcept { return workers[static_cast<std::size_t>(thread)].Allocate(run, index_); },
      [&](int thread, std::int64_t tile, std::int64_t* held) noexcept {
        Worker& worker = workers[static_cast<std::size_t>(thread)];
        *held = tiles.Fill(tile, &worker.nodes());
        if (all_) return worker.KrigeTile(system_, everywhere);
        if (worker.nodes().count == 0) return 0;
        if (inCells) return worker.KrigeCells(tiles, tile, neighborhood, everywhere);
        if (!varies) return worker.KrigeTile(neighborhood, everywhere);
        for (int i = 0; i < worker.nodes().count; ++i) {
          const int node = NodeOf(targets.places, worker.nodes().target[i]);
          if (const int own = worker.KrigeAlone(i, NeighborhoodAt(covariance, node), node); own != 0) return own;
        }
        return 0;
      },
      [&](int thread) noexcept { workers[static_cast<std::size_t>(thread)].Finish(); });
  for (Worker& worker : workers) {
    Add(worker.report(), report);
    Add(worker.reportOfCells(), report);
  }
  return status;
}

int PlaceKriging::LeaveOut(const PlaceFolds* folds, const PlaceKrigingResults& results, const Dealing& dealing,
                           const Progress& progress, PlaceKrigingReport* report, PlaceProblem* problem,
                           SimdLevel level) const noexcept {
  *report = {};
  *problem = {};
  const auto n = static_cast<std::size_t>(data_.n);
  Buffer<int> alone;
  PlaceFolds each{data_.n, nullptr, nullptr};
  if (folds == nullptr) {
    if (const int status = alone.Allocate(n + 1); status != 0) return status;
    std::iota(alone.data(), alone.data() + n + 1, 0);
    each.start = each.member = alone.data();
    folds = &each;
  }
  if (!all_) {
    Buffer<double> places;
    Buffer<int> fold;
    const auto dimension = static_cast<std::size_t>(data_.dimension);
    if (const int status = places.Allocate(n * dimension); status != 0) return status;
    if (const int status = fold.Allocate(n); status != 0) return status;
    int largest = 0;
    for (int f = 0; f < folds->count; ++f) {
      largest = std::max(largest, folds->start[f + 1] - folds->start[f]);
      for (int i = folds->start[f]; i < folds->start[f + 1]; ++i) fold[static_cast<std::size_t>(folds->member[i])] = f;
    }
    for (std::size_t i = 0; i < n; ++i) {
      places[i * dimension] = data_.x[i];
      places[i * dimension + 1] = data_.y[i];
      if (dimension > 2) places[i * dimension + 2] = data_.z[i];
    }
    PlaceKrigingTargets targets;
    targets.places.grid = {};
    targets.places.list = places.data();
    targets.places.nlist = data_.n;
    targets.places.dimension = data_.dimension;
    targets.covariates = data_.covariate.data();
    return Run(targets, results, fold.data(), largest, dealing, progress, report, problem, level);
  }

  // Folds are dealt out so many at a time that their data are solved for together.
  Buffer<int> first;
  if (const int status = first.Allocate(static_cast<std::size_t>(folds->count) + 1); status != 0) return status;
  std::int64_t nitem = 0;
  for (int fold = 0; fold < folds->count; ++nitem) {
    const int begin = first[static_cast<std::size_t>(nitem)] = fold++;
    while (fold < folds->count && folds->start[fold + 1] - folds->start[begin] <= PlaceDense::targetsTogether()) {
      ++fold;
    }
  }
  first[static_cast<std::size_t>(nitem)] = folds->count;

  struct Work {
    PlaceDense::Scratch scratch;
    PlaceKrigingReport report;
  };
  ObjectArray<Work> work;
  if (const int status = work.Allocate(dealing.nscratch()); status != 0) return status;
  const int status = DealOut(
      dealing, nitem, data_.n, progress, [](int /*thread*/) noexcept { return 0; },
      [&](int thread, std::int64_t item, std::int64_t* held) noexcept {
        Work& own = work[static_cast<std::size_t>(thread)];
        const int* const folded = first.data() + item;
        *held = folds->start[folded[1]] - folds->start[folded[0]];
        return system_.LeaveOut(data_, *folds, folded[0], folded[1], results, &own.scratch, &own.report, progress,
                                level);
      },
      [](int /*thread*/) noexcept {});
  for (const Work& own : work) Add(own.report, report);
  return status;
}

}  // namespace kestrum
