#ifndef KESTRUM_RUNS_LOCAL_LAW_HPP
#define KESTRUM_RUNS_LOCAL_LAW_HPP

#include "runs/run_input.h"

namespace kestrum {

// How the variance usage of an input enters at a node. Every system works on the model as it is; the ratios of standard
// deviations of the input, one for all nodes (usage 1) or one per node (usage 2), scale data, mean and variance.
class LocalLaw {
 public:
  explicit LocalLaw(const VORL_KESTRUMINPUT& input) noexcept
      : usage_(input.varianceUsage),
        value_(input.varianceValue),
        ratio_(input.varianceUsage == 2 ? input.varianceImage->var : nullptr) {}

  // Whether the multiplier of the unbiasedness row counts: only a variance that is not scaled has it.
  bool countsMultiplier() const noexcept { return usage_ == 0; }

  // The ratio of standard deviations at a node.
  real Ratio(int node) const noexcept { return usage_ == 0 ? 1.0 : usage_ == 1 ? value_ : ratio_[node]; }

  // The local mean. value(i) and node(i): centred value and grid node of neighbour i.
  template <typename Value, typename NodeOf>
  real Mean(int target, int m, const real* weight, const Value& value, const NodeOf& node) const noexcept {
    real mean = 0.0;
    if (usage_ == 2) {
      for (int i = 0; i < m; ++i) mean += weight[i] * value(i) * ratio_[target] / ratio_[node(i)];
    } else {
      for (int i = 0; i < m; ++i) mean += weight[i] * value(i);
    }
    return mean;
  }

  // The local variance from the variance of the model's own system, clipped at 0.
  real Variance(int target, real variance) const noexcept {
    if (!(variance > 0.0)) variance = 0.0;
    if (usage_ == 0) return variance;
    const real ratio = Ratio(target);
    return variance * ratio * ratio;
  }

 private:
  int usage_;
  real value_;
  const real* ratio_;
};

}  // namespace kestrum

#endif
