#ifndef KESTRUM_ENGINE_NODE_DRAWS_HPP
#define KESTRUM_ENGINE_NODE_DRAWS_HPP

#include "numeric/random.h"
#include "numeric/random.hpp"

namespace kestrum {

// Sum in int arithmetic; seeds wrap.
inline int WrappingSum(int a, int b) noexcept {
  return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

// The numbers that nodes draw. Each node reseeds with its own seed and takes the number after the first, so that a
// node's number depends on its seed alone; seeds of successive nodes differ by 1. A seed of 0 does not reseed: that
// node goes on where the node before it stopped, or, at the start of a stretch of nodes, where the shuffle stopped.
class NodeDraws {
 public:
  // context: as the shuffle left it.
  NodeDraws(int firstSeed, const VORL_RANDCONTEXT& context) noexcept : firstSeed_(firstSeed), context_(context) {}

  // The number of the i-th node.
  double Draw(int i) const noexcept {
    const int seed = WrappingSum(firstSeed_, i);
    if (seed != 0) return DrawAfterSeeding(seed, 1);
    if (i > 0) return DrawAfterSeeding(-1, 3);
    VORL_RANDCONTEXT context = context_;
    VORLDoubleRand(0, &context);
    return VORLDoubleRand(0, &context);
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
