#ifndef KESTRUM_NUMERIC_RANDOM_H
#define KESTRUM_NUMERIC_RANDOM_H

/** @file
 * The random number generator of the library, and what draws from it directly.
 *
 * A draw is the sum, modulo one, of a lagged recursion over 101 values modulo the prime 1000009711 and of a
 * congruential sequence (multiplier 37, increment 1, modulus 2^25, zero skipped). Both are seeded by a Wichmann-Hill
 * generator (Wichmann and Hill, 1982, Applied Statistics 31, algorithm AS 183). The sequence depends on the seed alone,
 * so results can be reproduced: the arithmetic never changes.
 *
 * The whole state is in a record of the caller, without pointers: it may be copied by value, be on the stack, and is
 * never freed here. Use: VORLInitRandContext, then VORLDoubleRand once with a seed, then any number of draws with seed
 * 0. Threads need a context each, or a lock.
 */

#include "../core/types.h"

KESTRUM_BEGIN_DECLS

typedef struct vorl_randcontext VORL_RANDCONTEXT; /**< see vorl_randcontext */

/** State of one random sequence; m is 1000009711. */
struct vorl_randcontext {
  double y;          /**< value of the congruential sequence, a multiple of 2^-25 in (0, 1) */
  double step;       /**< 2^-25 once seeded */
  double twoM;       /**< 2m once seeded */
  double fourM;      /**< 4m once seeded */
  double state[101]; /**< lagged values, whole numbers in [0, m) */
  int needSeed;      /**< non-zero until seeded */
  int position;      /**< index in state of the value that the next draw replaces, 0 to 100 */
};

/** Makes a context that is not seeded yet.
 *
 * @param[out] context the context */
KESTRUM_API void VORLInitRandContext(VORL_RANDCONTEXT* context) KESTRUM_NOEXCEPT;

/** Draws the next number of the sequence.
 *
 * @param seed not 0: restart the sequence of that seed, and give its first number (a negative seed gives the sequence
 *   of its absolute value); 0: continue, or start the sequence of seed 0 on a context that was never seeded
 * @param[in,out] context the context
 * @return a number in [1e-17, 1) */
KESTRUM_API double VORLDoubleRand(int seed, VORL_RANDCONTEXT* context) KESTRUM_NOEXCEPT;

/** Draws a whole number: one draw times n, truncated.
 *
 * @param seed as in VORLDoubleRand
 * @param n at least 1, not tested
 * @param[in,out] context the context
 * @return a number from 0 to n - 1 */
KESTRUM_API int VORLIntRand(int seed, int n, VORL_RANDCONTEXT* context) KESTRUM_NOEXCEPT;

/** Shuffles a list (Fisher-Yates, from the end), with n - 1 draws.
 *
 * @param n number of entries; below 2 nothing is drawn
 * @param[in,out] list n entries; null is allowed if n is below 2
 * @param[in,out] context the context
 * @return 0 */
KESTRUM_API int VORLRandomizeListOfInt(int n, int* list, VORL_RANDCONTEXT* context) KESTRUM_NOEXCEPT;

/** Shuffles the visiting order of a simulation, as VORLRandomizeListOfInt.
 *
 * @param n number of nodes; below 2 nothing is drawn
 * @param[in,out] path n nodes; null is allowed if n is below 2
 * @param[in,out] context the context
 * @return 0 */
KESTRUM_API int VORLPathRandom(int n, int* path, VORL_RANDCONTEXT* context) KESTRUM_NOEXCEPT;

/** Draws the order of a list without replacement, so that entries come early in proportion to their weights.
 *
 * Long lists take a time of n log n for weights of like size; short ones, and all if memory is short, n squared.
 *
 * @param n number of entries; below 2 nothing is drawn
 * @param[in,out] list n entries
 * @param[in,out] cumulative n + 1 entries, destroyed: the first is 0, the weight of list[i] is cumulative[i + 1] -
 *   cumulative[i]
 * @param[in,out] context the context
 * @return 0 */
KESTRUM_API int VORLRandomizeWeightedListOfInt(int n, int* list, real* cumulative,
                                               VORL_RANDCONTEXT* context) KESTRUM_NOEXCEPT;

/** Draws an index with given probabilities, with one draw.
 *
 * The last entry takes what the others leave, so the probabilities need not sum to exactly 1.
 *
 * @param n number of entries
 * @param[in] pdf n probabilities; the last is not read
 * @param[out] index 0 to n - 1
 * @param[in,out] context the context
 * @return 0 */
KESTRUM_API int VORLDrawIndexFromPdf(int n, real* pdf, int* index, VORL_RANDCONTEXT* context) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
