#ifndef KESTRUM_NUMERIC_RANDOM_HPP
#define KESTRUM_NUMERIC_RANDOM_HPP

#include "numeric/random.h"

namespace kestrum {

// The number that VORLDoubleRand(0, context) gives after a call VORLDoubleRand(seed, context) and `skip - 1` further
// draws; with `skip` 0, what VORLDoubleRand(seed, context) itself gives. Bit for bit the same number, without a context
// and without the 101 values that seeding computes: more than ten times faster than seeding and drawing. `skip` must be
// in 0 to 63 (later draws read values that earlier draws have replaced). A `seed` of 0 is the sequence of seed 0, not a
// continuation.
double DrawAfterSeeding(int seed, int skip) noexcept;

}  // namespace kestrum

#endif
