#ifndef KESTRUM_ENGINE_NODE_DRAWS_HPP
#define KESTRUM_ENGINE_NODE_DRAWS_HPP

#include "numeric/random.h"
#include "numeric/random.hpp"

namespace kestrum {

// The numbers that nodes draw. Each node reseeds with its own seed and takes the number after the first, so that a
// node's number depends on its seed alone; seeds of successive nodes differ by 1. A seed of 0 does not reseed: that
// node goes on where the node before it stopped, or, at the start of a stretch of nodes, where the shuffle stopped.
class NodeDraws {
 public:
  // context: as the shuffle left it.
  NodeDraws(int firstSeed, const VORL_RANDCONTEXT& context) noexcept : firstSeed_(firstSeed), context_(context) {}

  // The numbers of n nodes from the i-th on.
  void Draw(int i, int n, double* number) const noexcept {
    const int seed = WrappingSum(firstSeed_, i);
    DrawAfterSeeding(seed, 1, n, number);
    // The number of nodes before the one of seed 0.
    const unsigned before = 0U - static_cast<unsigned>(seed);
    if (before >= static_cast<unsigned>(n)) return;
    double& going = number[before];
    if (i + static_cast<int>(before) > 0) {
      DrawAfterSeeding(-1, 3, 1, &going);
    } else {
      VORL_RANDCONTEXT context = context_;
      VORLDoubleRand(0, &context);
      going = VORLDoubleRand(0, &context);
    }
  }

  // The state that `count` nodes leave.
  VORL_RANDCONTEXT After(int count) const noexcept {
    VORL_RANDCONTEXT context = context_;
    if (count < 1) return context;
    // A last seed of 0 goes on from the node before, which has the seed -1.
    const int last = WrappingSum(firstSeed_, count - 1);
    if (last == 0 && count > 1) {
      VORLDoubleRand(-1, &context);
      VORLDoubleRand(0, &context);
    }
    VORLDoubleRand(last, &context);
    VORLDoubleRand(0, &context);
    return context;
  }

 private:
  int firstSeed_;
  VORL_RANDCONTEXT context_;
};

}  // namespace kestrum

#endif
