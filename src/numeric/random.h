#ifndef KESTRUM_NUMERIC_RANDOM_H
#define KESTRUM_NUMERIC_RANDOM_H

/* The random number generator of the library, and what draws from it directly.
 *
 * A draw is the sum, modulo one, of a lagged recursion over 101 values modulo the prime 1000009711 and of a
 * congruential sequence (multiplier 37, increment 1, modulus 2^25, zero skipped). Both are seeded by a Wichmann-Hill
 * generator (Wichmann and Hill, 1982, Applied Statistics 31, algorithm AS 183). The sequence depends on the seed alone,
 * so results can be reproduced: the arithmetic never changes.
 *
 * The whole state sits in a record of the caller, without pointers: it may be copied by value, lie on the stack, and is
 * never freed here. Use: VORLInitRandContext, then VORLDoubleRand once with a seed, then any number of draws with seed
 * 0.
 *
 * Thread safety: calls on different contexts may run at the same time; a context must not be shared without a lock.
 */

#include "core/types.h"

KESTRUM_BEGIN_DECLS

typedef struct vorl_randcontext VORL_RANDCONTEXT;

/* State of one random sequence; m stands for 1000009711. */
struct vorl_randcontext {
  double y;          /* value of the congruential sequence, a multiple of 2^-25 in (0, 1) */
  double step;       /* 2^-25 once seeded */
  double twoM;       /* 2m once seeded */
  double fourM;      /* 4m once seeded */
  double state[101]; /* lagged values, whole numbers in [0, m) */
  int needSeed;      /* non-zero until seeded */
  int position;      /* index in state of the value that the next draw replaces, 0 to 100 */
};

/* Makes a context that is not seeded yet.
 * context: out. */
KESTRUM_API void VORLInitRandContext(VORL_RANDCONTEXT* context) KESTRUM_NOEXCEPT;

/* The next number of the sequence, in [1e-17, 1).
 * seed: not 0 restarts the sequence of that seed, and the result is its first number; a negative seed gives the
 *   sequence of its absolute value. 0 continues; on a context that was never seeded it starts the sequence of seed 0.
 * context: in and out. */
KESTRUM_API double VORLDoubleRand(int seed, VORL_RANDCONTEXT* context) KESTRUM_NOEXCEPT;

/* A whole number from 0 to n - 1: one draw times n, truncated.
 * n: at least 1, not tested.
 * seed, context: as in VORLDoubleRand. */
KESTRUM_API int VORLIntRand(int seed, int n, VORL_RANDCONTEXT* context) KESTRUM_NOEXCEPT;

/* Shuffles a list (Fisher-Yates, from the end), with n - 1 draws.
 * n: number of entries; below 2 nothing is drawn.
 * list: in and out, n entries; may be null if n is below 2.
 * context: in and out.
 * Gives 0. */
KESTRUM_API int VORLRandomizeListOfInt(int n, int* list, VORL_RANDCONTEXT* context) KESTRUM_NOEXCEPT;

/* The random visiting order of a simulation: VORLRandomizeListOfInt on a path. */
KESTRUM_API int VORLPathRandom(int n, int* path, VORL_RANDCONTEXT* context) KESTRUM_NOEXCEPT;

/* Draws the order of a list without replacement, so that entries come early in proportion to their weights. Long lists
 * take a time of n log n for weights of like size; short ones, and all if memory is short, n squared.
 * n: number of entries; below 2 nothing is drawn.
 * list: in and out, n entries.
 * cumulative: in, destroyed; n + 1 entries, the first 0, the weight of list[i] is cumulative[i + 1] - cumulative[i].
 * context: in and out.
 * Gives 0. */
KESTRUM_API int VORLRandomizeWeightedListOfInt(int n, int* list, real* cumulative,
                                               VORL_RANDCONTEXT* context) KESTRUM_NOEXCEPT;

/* Draws an index with given probabilities, with one draw. The last entry takes what the others leave, so the
 * probabilities need not sum to exactly 1.
 * n: number of entries.
 * pdf: in, n probabilities; the last is not read.
 * index: out, 0 to n - 1.
 * context: in and out.
 * Gives 0. */
KESTRUM_API int VORLDrawIndexFromPdf(int n, real* pdf, int* index, VORL_RANDCONTEXT* context) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
