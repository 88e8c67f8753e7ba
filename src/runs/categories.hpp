#ifndef KESTRUM_RUNS_CATEGORIES_HPP
#define KESTRUM_RUNS_CATEGORIES_HPP

#include <cstddef>

#include "engine/ahead_solver.hpp"
#include "runs/indicator_run_input.h"

namespace kestrum {

// The categories of a run: their values, prior probabilities, and the rules by which the indicators of neighbours
// become probabilities.
class Categories {
 public:
  Categories(const VORL_KESTRUMINDICATORINPUT& input, bool ordinaryKriging) noexcept
      : input_(input), ordinaryKriging_(ordinaryKriging) {}

  int count() const noexcept { return input_.ncategory; }
  real Value(int c) const noexcept { return input_.categoryValue[c]; }

  // The probability of a category where nothing else is known.
  real Prior(int c, int node) const noexcept {
    if (input_.probabilityUsage != 2) return input_.probabilityValue[c];
    return input_.probabilityImage->var[static_cast<std::ptrdiff_t>(c) * input_.probabilityImage->grid->nxyz + node];
  }

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
    if (estimate >= 1.0) return 1.0;
    return estimate <= 0.0 ? 0.0 : estimate;
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

  // The value that a uniform number draws. A single category stands against its complement, whose value is 0.0.
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
  const VORL_KESTRUMINDICATORINPUT& input_;
  bool ordinaryKriging_;
};

}  // namespace kestrum

#endif
