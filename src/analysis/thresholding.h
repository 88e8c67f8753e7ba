#ifndef KESTRUM_ANALYSIS_THRESHOLDING_H
#define KESTRUM_ANALYSIS_THRESHOLDING_H

/** @file
 * Classes of a continuous variable, from limits between its values.
 */

#include "../core/types.h"
#include "../numeric/random.h"

KESTRUM_BEGIN_DECLS

/** Looks for class limits by simulated annealing (Kirkpatrick, Gelatt and Vecchi, 1983, Science 220).
 *
 * As with Otsu (1979, IEEE Transactions on Systems, Man and Cybernetics 9), it maximises the sum over classes of the
 * sum of the squares of a class's values divided by their number. Missing values count like any other.
 *
 * @param n number of values; below 1, or with nclass below 1, all outputs are missing values
 * @param[in] values n values
 * @param nclass number of classes
 * @param[out] classLimit nclass + 1 ascending limits, from the smallest value to the largest (but for rounding); class
 *   c begins at limit c. If there are no more distinct values than classes, these values, the last one repeated
 * @param[out] classIndex class of each value, 0 to nclass - 1
 * @param nstep number of annealing steps, three draws each
 * @param temperature initial temperature
 * @param coolingScheme divisor of the temperature in step t, counted from 0. 0: log(t + 2); 1: sqrt(t + 1); 2: t + 1
 * @param[in,out] randContext the random sequence to draw from
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -4260: unknown cooling scheme; allocation statuses */
KESTRUM_API int VORLOtsuThresholding(int n, real* values, int nclass, real* classLimit, real* classIndex, int nstep,
                                     real temperature, int coolingScheme, VORL_RANDCONTEXT* randContext,
                                     BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Finds the best way of joining pre-classes of equal width to classes, by the criterion of Otsu on the pre-classes'
 * numbers, among all ways.
 *
 * Their count grows with the power nclass - 1 of npreclass. Missing values stay missing.
 *
 * @param n number of values; below 1 nothing is done
 * @param[in] values n values
 * @param npreclass number of pre-classes. With npreclass or nclass below 1 all of classIndex is missing
 * @param nclass number of classes
 * @param[out] thresholds nclass - 1 ascending thresholds: a value has the first class whose threshold is above it.
 *   Those that are not needed are VORL_INFINITY, all of them if the values do not differ by 1e-10 per pre-class, or
 *   with one class or one pre-class; without an informed value they are left alone
 * @param[out] classIndex class of each value, 0 to nclass - 1
 * @param verbose TRUE: print progress on the standard output
 * @return 0; allocation statuses */
KESTRUM_API int VORLOtsuThresholdingPreCateg(int n, real* values, int npreclass, int nclass, real* thresholds,
                                             real* classIndex, BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Cuts the distribution of the values so that the proportions of the classes come near those asked for, class by class
 * from the lowest.
 *
 * Missing values stay missing.
 *
 * @param n number of values; below 1 nothing is done
 * @param[in] values n values
 * @param nclass number of classes; below 1 all of classIndex is missing
 * @param[in] pdf nclass proportions, of which the last is not read
 * @param[out] thresholds nclass - 1 ascending thresholds: a value has the first class whose threshold is above it.
 *   Missing values without an informed value
 * @param[out] classIndex class of each value, 0 to nclass - 1
 * @return 0; allocation statuses */
KESTRUM_API int VORLPdfThresholding(int n, real* values, int nclass, real* pdf, real* thresholds,
                                    real* classIndex) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
