#ifndef KESTRUM_ENGINE_CATEGORIES_HPP
#define KESTRUM_ENGINE_CATEGORIES_HPP

#include <algorithm>
#include <cstddef>

#include "core/constants.h"
#include "engine/problem.hpp"

namespace kestrum {

// The categories of a variable: their values, prior probabilities, and the rules by which the indicators of neighbours
// become probabilities.
class Categories {
 public:
  // values: one per category. priors: one per category, stride 0; or variable by variable of `stride` nodes each.
  Categories(int count, const real* values, const real* priors, std::ptrdiff_t stride, bool ordinaryKriging) noexcept
      : count_(count), values_(values), priors_(priors), stride_(stride), ordinaryKriging_(ordinaryKriging) {}

  int count() const noexcept { return count_; }
  real Value(int c) const noexcept { return values_[c]; }

  // The probability of a category where nothing else is known.
  real Prior(int c, int node) const noexcept { return stride_ == 0 ? priors_[c] : priors_[c * stride_ + node]; }

  // The probability of a category from the weights of m neighbours. value(i): value of neighbour i, whose indicator is
  // 1 if it is exactly the category's.
  template <typename NeighborValue>
  real Probability(int c, int node, int m, const real* weight, const NeighborValue& value) const noexcept {
    const real prior = Prior(c, node);
    if (m == 0) return prior;
    const auto indicator = [&](int i) { return value(i) == Value(c) ? 1.0 : 0.0; };
    real estimate = 0.0;
    if (ordinaryKriging_) {
      for (int i = 0; i < m; ++i) estimate += weight[i] * indicator(i);
    } else {
      estimate = prior;
      for (int i = 0; i < m; ++i) estimate += (indicator(i) - prior) * weight[i];
    }
    return Clamped(estimate);
  }

  // The same from two sums: of the weights of neighbours of the category, and (simple kriging) of all weights.
  real ProbabilityOfSums(int c, int node, real ofCategory, real ofAll) const noexcept {
    return Clamped(ordinaryKriging_ ? ofCategory : ofCategory + Prior(c, node) * (1.0 - ofAll));
  }

  // Scales the probabilities of a node to a sum of 1. Where they are all but zero it takes the prior ones as they are,
  // and gives false.
  bool Normalize(int node, real* probability) const noexcept {
    real sum = 0.0;
    for (int c = 0; c < count(); ++c) sum += probability[c];
    if (sum >= VORL_EPSILON) {
      const real scale = 1.0 / sum;
      for (int c = 0; c < count(); ++c) probability[c] *= scale;
      return true;
    }
    for (int c = 0; c < count(); ++c) probability[c] = Prior(c, node);
    return false;
  }

  // The value that a uniform number draws. A single category is drawn against its complement, whose value is 0.0.
  real Draw(const real* probability, real number) const noexcept {
    if (count() == 1) return probability[0] > number ? Value(0) : 0.0;
    real sum = 0.0;
    for (int c = 0; c < count() - 1; ++c) {
      sum += probability[c];
      if (sum > number) return Value(c);
    }
    return Value(count() - 1);
  }

 private:
  static real Clamped(real estimate) noexcept {
    if (estimate >= 1.0) return 1.0;
    return estimate <= 0.0 ? 0.0 : estimate;
  }

  int count_;
  const real* values_;
  const real* priors_;
  std::ptrdiff_t stride_;
  bool ordinaryKriging_;
};

// Which categories have the same systems everywhere: these are solved once for all of them.
class CategoryGroups {
 public:
  [[nodiscard]] int Find(std::span<const ModelSetup> setups) noexcept;

  int count() const noexcept { return count_; }
  // The first category with the systems of this one.
  int first(int c) const noexcept { return first_[c]; }
  bool isFirst(int c) const noexcept { return first_[c] == c; }

 private:
  int count_ = 0;
  Buffer<int> first_;
};

}  // namespace kestrum

#endif
