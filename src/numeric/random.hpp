#ifndef KESTRUM_NUMERIC_RANDOM_HPP
#define KESTRUM_NUMERIC_RANDOM_HPP

#include "numeric/random.h"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Sum in int arithmetic; seeds wrap.
inline int WrappingSum(int a, int b) noexcept {
  return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

// number[i], for i below n, becomes what VORLDoubleRand(0, context) gives after a call VORLDoubleRand(firstSeed + i, context) and
// `skip - 1` further draws; with `skip` 0, what VORLDoubleRand(firstSeed + i, context) itself gives. Bit for bit the
// same numbers, without a context and without the 101 values that seeding computes. `skip` must be in 0 to 63 (later
// draws read values that earlier draws have replaced). Seeds wrap; a seed of 0 is the sequence of seed 0, not a
// continuation.
void DrawAfterSeeding(int firstSeed, int skip, int n, double* number, SimdLevel level = BestSimdLevel()) noexcept;

}  // namespace kestrum

#endif
