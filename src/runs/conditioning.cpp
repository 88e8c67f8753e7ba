#include "runs/conditioning.h"

#include <utility>

#include "analysis/conversions.h"
#include "core/progress.hpp"
#include "core/statuses.hpp"
#include "runs/run_input_shared.hpp"

namespace kestrum {
namespace {

// How data enter the working image: variables that it does not have are counted, points out of the grid too, and a
// later value replaces an earlier one.
constexpr int kIgnoreUnmatchedVar = 1;
constexpr int kDropPointsOutside = 1;
constexpr int kReplaceValue = 2;

bool Informed(real value) noexcept { return value != VORL_MISSING_VALUE; }

// Sets a value to missing, if there is one; gives whether there was.
bool Remove(real* values, int node) noexcept {
  if (values == nullptr || !Informed(values[node])) return false;
  values[node] = VORL_MISSING_VALUE;
  return true;
}

// The working data of one integration: the image's one variable and its bounds, either of which may be null.
struct Nodes {
  int nnode;
  real* value;
  real* min;
  real* max;
  int* status;
};

template <typename Input>
class Integration {
 public:
  Integration(const Input& input, VORL_PROGRESSMONITOR* monitor, ProgressCallback callback) noexcept
      : input_(input), progress_(monitor, callback) {}

  int Run(VORL_IMAGE* image, real** min, real** max, int* nodeStatus, int* ndata) const noexcept {
    *ndata = 0;
    for (int i = 0; i < input_.ndataImage; ++i) {
      if (const int status = AddImage(&input_.dataImage[i], image, min, max, i > 0); status != 0) return status;
    }
    for (int i = 0; i < input_.ndataPointSet; ++i) {
      if (const int status = AddPointSet(&input_.dataPointSet[i], image, min, max); status != 0) return status;
    }
    const Nodes nodes{image->grid->nxyz, image->var, min == nullptr ? nullptr : *min, max == nullptr ? nullptr : *max,
                      nodeStatus};
    if (const int status = ApplyMask(nodes); status != 0) return status;
    int nunknown = 0;
    for (int i = 0; i < nodes.nnode; ++i) {
      nodes.status[i] = Informed(nodes.value[i]) ? 0 : 1;
      nunknown += nodes.status[i];
    }
    if (const int status = ReconcileBounds(nodes, nunknown); status != 0) return status;
    *ndata = nodes.nnode - nunknown;
    return 0;
  }

 private:
  int Warn(bool condition, int number) const noexcept {
    return condition ? progress_.After(progress_.Warn(number)) : 0;
  }

  int AddImage(VORL_IMAGE* data, VORL_IMAGE* image, real** min, real** max, bool merge) const noexcept {
    int nvarIgnored = 0;
    int nconflict = 0;
    if (const int status = VORLImageToImage(data, image, min, max, kIgnoreUnmatchedVar, kReplaceValue, &nvarIgnored,
                                            &nconflict, merge ? TRUE : FALSE);
        status != 0) {
      return status;
    }
    if (const int status = progress_.After(0); status != 0) return status;
    if (const int status = Warn(nvarIgnored != 0, kImageVarIgnored); status != 0) return status;
    return Warn(nconflict != 0, kImageConflict);
  }

  int AddPointSet(VORL_POINTSET* data, VORL_IMAGE* image, real** min, real** max) const noexcept {
    int nvarIgnored = 0;
    int npointDropped = 0;
    int nconflict = 0;
    if (const int status = VORLPointSetToImage(data, image, min, max, kIgnoreUnmatchedVar, kDropPointsOutside,
                                               kReplaceValue, &nvarIgnored, &npointDropped, &nconflict);
        status != 0) {
      return status;
    }
    if (const int status = progress_.After(0); status != 0) return status;
    if (const int status = Warn(nvarIgnored != 0, kPointVarIgnored); status != 0) return status;
    if (const int status = Warn(npointDropped != 0, kPointDropped); status != 0) return status;
    return Warn(nconflict != 0, kPointConflict);
  }

  int ApplyMask(const Nodes& nodes) const noexcept {
    const VORL_IMAGE* const mask = UsedMask(input_);
    if (mask == nullptr) return 0;
    bool removed = false;
    for (int i = 0; i < nodes.nnode; ++i) {
      if (mask->var[i] != 0.0) continue;
      for (real* values : {nodes.value, nodes.min, nodes.max}) removed |= Remove(values, i);
    }
    return Warn(removed, kMaskedDataRemoved);
  }

  // Sets the status of the nodes that have bounds. A node whose bounds are equal leaves the unknown ones.
  int ReconcileBounds(const Nodes& nodes, int& nunknown) const noexcept {
    bool noted[kEqualBounds - kBothBoundsRemoved + 1] = {};
    const auto note = [&noted](int warning) { noted[warning - kBothBoundsRemoved] = true; };
    for (int i = 0; i < nodes.nnode; ++i) {
      const bool hasMin = nodes.min != nullptr && Informed(nodes.min[i]);
      const bool hasMax = nodes.max != nullptr && Informed(nodes.max[i]);
      if (!hasMin && !hasMax) continue;
      const bool both = hasMin && hasMax;
      if (both && nodes.max[i] < nodes.min[i]) return kBoundsCrossed;
      if (nodes.status[i] == 0) {
        if (hasMin && nodes.min[i] > nodes.value[i]) return kDatumBelowBound;
        if (hasMax && nodes.max[i] < nodes.value[i]) return kDatumAboveBound;
        note(both ? kBothBoundsRemoved : hasMin ? kMinRemoved : kMaxRemoved);
      } else if (both && nodes.min[i] == nodes.max[i]) {
        nodes.value[i] = nodes.min[i];
        nodes.status[i] = 0;
        --nunknown;
        note(kEqualBounds);
      } else {
        nodes.status[i] = both ? -3 : hasMin ? -1 : -2;
        continue;
      }
      Remove(nodes.min, i);
      Remove(nodes.max, i);
    }
    for (int warning = kBothBoundsRemoved; warning <= kEqualBounds; ++warning) {
      if (const int status = Warn(noted[warning - kBothBoundsRemoved], warning); status != 0) return status;
    }
    return 0;
  }

  const Input& input_;
  Progress progress_;
};

}  // namespace
}  // namespace kestrum

int VORLKestrumIntegrateConditioningData(VORL_KESTRUMINPUT* input, VORL_IMAGE* image, real** inequalityMin,
                                         real** inequalityMax, int* nodeStatus, int* ndata,
                                         VORL_PROGRESSMONITOR* progressMonitor,
                                         int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  return kestrum::Integration(*input, progressMonitor, progressCallback)
      .Run(image, inequalityMin, inequalityMax, nodeStatus, ndata);
}

int VORLKestrumIndicatorIntegrateConditioningData(VORL_KESTRUMINDICATORINPUT* input, VORL_IMAGE* image, int* nodeStatus,
                                                  int* ndata, VORL_PROGRESSMONITOR* progressMonitor,
                                                  int (*progressCallback)(VORL_PROGRESSMONITOR*)) noexcept {
  return kestrum::Integration(*input, progressMonitor, progressCallback)
      .Run(image, nullptr, nullptr, nodeStatus, ndata);
}

int VORLSKestrumPrepareSimulationPath(VORL_IMAGE* maskImage, int* nodeStatus, int nnode, int* simulationPath,
                                      int* pathFirstInequality, int* pathFirstSimulated, int* nnodeSimulated,
                                      VORL_PROGRESSMONITOR*, int (*)(VORL_PROGRESSMONITOR*)) noexcept {
  int front = 0;
  int back = nnode;
  for (int i = 0; i < nnode; ++i) {
    const bool neverComputed = nodeStatus[i] == 0 || (maskImage != nullptr && maskImage->var[i] == 0.0);
    simulationPath[neverComputed ? front++ : --back] = i;
  }
  *pathFirstInequality = front;
  if (front == nnode) {
    *pathFirstSimulated = nnode;
    *nnodeSimulated = 0;
    return 0;
  }

  const auto isInequality = [&](int position) { return nodeStatus[simulationPath[position]] < 0; };
  back = nnode - 1;
  while (back > front) {
    if (isInequality(back)) {
      std::swap(simulationPath[back], simulationPath[front++]);
    } else {
      --back;
    }
  }
  *pathFirstSimulated = front + (isInequality(front) ? 1 : 0);
  *nnodeSimulated = nnode - *pathFirstSimulated;
  return 0;
}
