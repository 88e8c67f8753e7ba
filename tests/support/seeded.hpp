#ifndef KESTRUM_TESTS_SUPPORT_SEEDED_HPP
#define KESTRUM_TESTS_SUPPORT_SEEDED_HPP

#include "numeric/random.h"

namespace kestrum_test {

inline VORL_RANDCONTEXT Seeded(int seed) {
  VORL_RANDCONTEXT context;
  VORLInitRandContext(&context);
  VORLDoubleRand(seed, &context);
  return context;
}

}  // namespace kestrum_test

#endif
