#include "engine/grid_run.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "neighborhood/search_neighborhood.hpp"
#include "numeric/random.h"

namespace kestrum {
namespace {

constexpr real kNaN = std::numeric_limits<real>::quiet_NaN();
constexpr int kByEllipsoidalDistance = 1;

// A model with what varies of it.
KrigingModel ModelOf(VORL_COVMODEL& covModel, bool ordinaryKriging, const ExactCovariance* exact) noexcept {
  KrigingModel model;
  model.exact = exact;
  model.covModel = &covModel;
  model.ordinaryKriging = ordinaryKriging;
  model.rotationStationary =
      covModel.angle1Image == nullptr && covModel.angle2Image == nullptr && covModel.angle3Image == nullptr;
  bool otherStationary = true;
  for (int e = 0; e < covModel.nelem; ++e) {
    const VORL_COVMODELELEM& element = covModel.covModelElem[e];
    if (element.weightImage != nullptr) model.weightStationary = false;
    if (element.rxImage != nullptr || element.ryImage != nullptr || element.rzImage != nullptr) {
      model.rangeStationary = false;
    }
    if (element.sImage != nullptr) otherStationary = false;
  }
  model.covModelStationary =
      model.rotationStationary && model.weightStationary && model.rangeStationary && otherStationary;
  if (model.weightStationary) model.sill = StationarySill(covModel);
  if (model.rotationStationary) model.SetRotationFromAngles();
  return model;
}

}  // namespace

int GridModels::Prepare(const GridRunInput& input, bool simulation, const RunFront& front) noexcept {
  simulation_ = simulation;
  int status = setups_.Allocate(input.models.size(), {});
  if (status == 0) status = neighbors_.Allocate(static_cast<int>(input.models.size()));
  if (status == 0) status = exact_.Allocate(static_cast<int>(input.models.size()));
  if (status != 0) return status;
  VORL_RANDCONTEXT context;
  VORLInitRandContext(&context);
  for (std::size_t c = 0; c < input.models.size(); ++c) {
    ModelSetup& setup = setups_[c];
    const bool isExact = input.solver.factorising() && input.neighbors > 0;
    setup.model = ModelOf(input.models[c], input.ordinaryKriging, isExact ? &exact_[c] : nullptr);
    if (isExact && setup.model.covModelStationary) {
      if (status = exact_[c].Allocate(setup.model.covModel->nelem); status != 0) return status;
      exact_[c].Prepare(*setup.model.covModel, ConstantParameters{});
    }
    if (input.neighbors < 1) continue;
    status = BuildSearchNeighborhood(input.grid, setup.model, nullptr, {1.0, input.radius}, kByEllipsoidalDistance,
                                     neighbors_[c].offsets(), &context, front.progress);
    if (status == 0) status = neighbors_[c].Finish(input.grid, input.neighbors, front.dealing, setup.neighbors);
    if (status != 0) return status;
  }
  return simulation ? systems_.Prepare(setups()) : 0;
}

int GridRun::Allocate(const GridRunInput& input) noexcept {
  const int nnode = input.grid.nxyz;
  int status = nodeStatus_.Allocate(nnode);
  if (status == 0) status = path_.Allocate(nnode);
  if (status == 0) status = known_.Allocate(std::max<std::size_t>(input.dataNodes.size(), 1));
  if (status == 0 && !input.boundNodes.empty()) {
    status = lower_.Allocate(nnode);
    if (status == 0) status = upper_.Allocate(nnode);
  }
  return status;
}

void GridRun::Prepare(const GridRunInput& input, const RunFront& front) noexcept {
  grid_ = input.grid;
  front_ = front;
  mask_ = input.mask;
  means_ = input.means;
  mean_ = input.mean;
  solver_ = input.solver;
  nknown_ = static_cast<int>(input.dataNodes.size());
  const int nnode = grid_.nxyz;
  std::fill(nodeStatus_.begin(), nodeStatus_.end(), 1);

  const auto mean = [&](int node) { return means_ != nullptr ? means_[node] : mean_; };
  for (int i = 0; i < nknown_; ++i) {
    const int node = input.dataNodes[i];
    nodeStatus_[node] = 0;
    known_[i] = input.dataValues[i] - mean(node);
  }
  for (std::size_t i = 0; i < input.boundNodes.size(); ++i) {
    const int node = input.boundNodes[i];
    const bool hasLower = !std::isnan(input.lower[i]), hasUpper = !std::isnan(input.upper[i]);
    lower_[node] = input.lower[i] - mean(node);
    upper_[node] = input.upper[i] - mean(node);
    nodeStatus_[node] = hasLower && hasUpper ? -3 : hasLower ? -1 : hasUpper ? -2 : 1;
  }
  // Left out or known; with bounds; the others.
  const auto computed = [&](int node) { return input.mask == nullptr || input.mask[node] != 0; };
  int nbounded = 0, nsimulated = 0;
  for (int node = 0; node < nnode; ++node) {
    nbounded += computed(node) && nodeStatus_[node] < 0;
    nsimulated += computed(node) && nodeStatus_[node] > 0;
  }
  firstSimulated_ = nnode - nsimulated;
  firstInequality_ = firstSimulated_ - nbounded;
  int* left = path_.data();
  int* bounded = left + firstInequality_;
  int* simulated = left + firstSimulated_;
  for (int node = 0; node < nnode; ++node) {
    const bool path = computed(node);
    if (path && nodeStatus_[node] > 0) {
      *simulated++ = node;
    } else if (path && nodeStatus_[node] < 0) {
      *bounded++ = node;
    } else {
      *left++ = node;
    }
  }
}

void GridRun::Shuffle(RandomSource& random) noexcept {
  shuffled_ = firstInequality_ == firstSimulated_ &&
              random.ShuffleAhead(0, path_.data() + firstSimulated_, grid_.nxyz - firstSimulated_);
}

Problem GridRun::MakeProblem() noexcept {
  Problem problem{grid_,
                  models_->setups(),
                  {.nodeStatus = nodeStatus_.data(), .known = known_.data(), .uniqueMax = nknown_},
                  {path_.data(), grid_.nxyz, firstInequality_, firstSimulated_, std::exchange(shuffled_, false)},
                  front_,
                  solver_,
                  models_->systems()};
  if (lower_) problem.data.SetBounds(lower_.data(), upper_.data());
  return problem;
}

void GridRun::FillData(real* value) const noexcept {
  const real* datum = known_.data();
  for (int i = 0; i < grid_.nxyz; ++i) value[i] = nodeStatus_[i] == 0 ? *datum++ : real{VORL_MISSING_VALUE};
}

void GridRun::MarkLeftOut(real* value) const noexcept {
  if (mask_ == nullptr) return;
  for (int i = 0; i < grid_.nxyz; ++i) {
    if (mask_[i] == 0) value[i] = kNaN;
  }
}

int GridRun::Krige(real* estimate, real* deviation) noexcept {
  FillData(estimate);
  std::fill_n(deviation, grid_.nxyz, 0.0);
  const LocalLaw law(means_, mean_, LocalLaw::Variance::kOfModel, 1.0, nullptr);
  const int status = Estimate(MakeProblem(), law, estimate, deviation);
  MarkLeftOut(estimate);
  MarkLeftOut(deviation);
  return status;
}

int GridRun::SimulateValues(const GibbsPlan& gibbs, int count, RandomSource& random, real* value,
                            RealizationSink& sink) noexcept {
  const LocalLaw law(means_, mean_, LocalLaw::Variance::kOfModel, 1.0, nullptr);
  return Simulate(MakeProblem(), law, gibbs, count, random, value, sink);
}

int GridRun::KrigeCategories(const Categories& categories, real* probability) noexcept {
  Buffer<real> value;
  if (const int status = value.Allocate(grid_.nxyz); status != 0) return status;
  FillData(value.data());
  for (int c = 0; c < categories.count(); ++c) {
    real* const variable = probability + static_cast<std::ptrdiff_t>(c) * grid_.nxyz;
    for (int i = 0; i < grid_.nxyz; ++i) variable[i] = value[i] == categories.Value(c) ? 1.0 : 0.0;
  }
  const int status = EstimateCategories(MakeProblem(), categories, value.data(), probability);
  for (int c = 0; c < categories.count(); ++c) MarkLeftOut(probability + static_cast<std::ptrdiff_t>(c) * grid_.nxyz);
  return status;
}

int GridRun::SimulateCategoryValues(const Categories& categories, int count, RandomSource& random, real* value,
                                    RealizationSink& sink) noexcept {
  return SimulateCategories(MakeProblem(), categories, count, random, value, sink);
}

}  // namespace kestrum
