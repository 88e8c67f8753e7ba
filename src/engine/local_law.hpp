#ifndef KESTRUM_ENGINE_LOCAL_LAW_HPP
#define KESTRUM_ENGINE_LOCAL_LAW_HPP

#include <cstddef>

#include "core/constants.h"
#include "core/parallel.hpp"

namespace kestrum {

// The mean of a continuous variable and how its variance enters at a node. Every system works on the model as it is, and
// on residuals; ratios of standard deviations, one for all nodes or one per node, scale data, mean and variance.
class LocalLaw {
 public:
  enum class Variance { kOfModel, kConstant, kPerNode };

  // mean, ratios: one per node, or null for the constants.
  LocalLaw(const real* means, real mean, Variance usage, real ratio, const real* ratios) noexcept
      : means_(means), mean_(mean), usage_(usage), ratio_(ratio), ratios_(ratios) {}

  // Adds the mean to the residuals of all nodes that have one.
  void AddMean(std::ptrdiff_t nnode, Dealing dealing, real* residual) const noexcept {
    dealing.ForPass(nnode).Blocks(nnode, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
      for (std::ptrdiff_t i = begin; i < end; ++i) {
        if (residual[i] != VORL_MISSING_VALUE) residual[i] += means_ != nullptr ? means_[i] : mean_;
      }
    });
  }

  // Whether the multiplier of the unbiasedness row counts: only a variance that is not scaled has it.
  bool countsMultiplier() const noexcept { return usage_ == Variance::kOfModel; }

  // The ratio of standard deviations at a node.
  real Ratio(int node) const noexcept {
    return usage_ == Variance::kOfModel ? 1.0 : usage_ == Variance::kConstant ? ratio_ : ratios_[node];
  }

  // The local mean of the residuals. value(i) and node(i): residual and grid node of neighbour i.
  template <typename Value, typename NodeOf>
  real Mean(int target, int m, const real* weight, const Value& value, const NodeOf& node) const noexcept {
    real mean = 0.0;
    if (usage_ == Variance::kPerNode) {
      for (int i = 0; i < m; ++i) mean += weight[i] * value(i) * ratios_[target] / ratios_[node(i)];
    } else {
      for (int i = 0; i < m; ++i) mean += weight[i] * value(i);
    }
    return mean;
  }

  // The same as a product of weights: of residuals scaled like the model, then scaled like the target.
  real Scaled(int node, real residual) const noexcept {
    return usage_ == Variance::kPerNode ? residual / ratios_[node] : residual;
  }
  real MeanOfScaled(int target, real mean) const noexcept {
    return usage_ == Variance::kPerNode ? mean * ratios_[target] : mean;
  }

  // The local variance from the variance of the model's own system, clipped at 0.
  real LocalVariance(int target, real variance) const noexcept {
    if (!(variance > 0.0)) variance = 0.0;
    if (usage_ == Variance::kOfModel) return variance;
    const real ratio = Ratio(target);
    return variance * ratio * ratio;
  }

 private:
  const real* means_;
  real mean_;
  Variance usage_;
  real ratio_;
  const real* ratios_;
};

}  // namespace kestrum

#endif
