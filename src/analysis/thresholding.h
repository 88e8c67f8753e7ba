#ifndef KESTRUM_ANALYSIS_THRESHOLDING_H
#define KESTRUM_ANALYSIS_THRESHOLDING_H

#include "core/types.h"
#include "numeric/random.h"

/* Classes of a continuous variable, from limits between its values.
 *
 * The functions work on plain vectors. `values` has n entries; `classIndex`, as long, receives the class of each value,
 * 0 to nclass - 1. All arrays are the caller's.
 *
 * verbose: not 0: progress goes to the standard output, in lines "Computing Otsu thresholding: %3d %%".
 *
 * Statuses of all: 0; those of VORLMalloc.
 *
 * Thread safety: calls that write to different arrays and contexts may run at the same time.
 */

KESTRUM_BEGIN_DECLS

/* Looks for class limits by simulated annealing (Kirkpatrick, Gelatt and Vecchi, 1983, Science 220), maximising in the
 * way of Otsu (1979, IEEE Transactions on Systems, Man and Cybernetics 9) the sum over classes of the sum of the
 * squares of a class's values divided by their number. Missing values are not told apart from others.
 *   n              number of values; below 1, or with nclass below 1, all outputs are missing values
 *   values         in
 *   nclass         number of classes
 *   classLimit     out; nclass + 1 ascending limits, from the smallest value to the largest (but for rounding); class c
 *                  begins at limit c. If there are no more distinct values than classes, these values, the last one
 *                  repeated
 *   classIndex     out
 *   nstep          number of annealing steps, three draws each
 *   temperature    initial temperature
 *   coolingScheme  divisor of the temperature in step t, counted from 0: 0: log(t + 2); 1: sqrt(t + 1); 2: t + 1
 *   randContext    in and out
 * Status: -4260 unknown cooling scheme. */
KESTRUM_API int VORLOtsuThresholding(int n, real* values, int nclass, real* classLimit, real* classIndex, int nstep,
                                     real temperature, int coolingScheme, VORL_RANDCONTEXT* randContext,
                                     BOOLEAN verbose) KESTRUM_NOEXCEPT;

/* Finds the best way of joining pre-classes of equal width to classes, by the criterion of Otsu on the pre-classes'
 * numbers, among all ways: their count grows with the power nclass - 1 of npreclass. Missing values stay missing.
 *   n           number of values; below 1 nothing is done
 *   values      in
 *   npreclass   number of pre-classes. With npreclass or nclass below 1 all of classIndex is missing
 *   nclass      number of classes
 *   thresholds  out; nclass - 1 ascending thresholds: a value has the first class whose threshold is above it. Those
 *               that are not needed are VORL_INFINITY, all of them if the values do not differ by 1e-10 per pre-class.
 *               With one class or one pre-class they are in; without an informed value they are left alone
 *   classIndex  out */
KESTRUM_API int VORLOtsuThresholdingPreCateg(int n, real* values, int npreclass, int nclass, real* thresholds,
                                             real* classIndex, BOOLEAN verbose) KESTRUM_NOEXCEPT;

/* Cuts the distribution of the values so that the proportions of the classes come near those asked for, class by class
 * from the lowest. Missing values stay missing.
 *   n           number of values; below 1 nothing is done
 *   values      in
 *   nclass      number of classes; below 1 all of classIndex is missing
 *   pdf         in; nclass proportions, of which the last is not read
 *   thresholds  out; nclass - 1 ascending thresholds: a value has the first class whose threshold is above it. Missing
 *               values without an informed value
 *   classIndex  out */
KESTRUM_API int VORLPdfThresholding(int n, real* values, int nclass, real* pdf, real* thresholds,
                                    real* classIndex) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
