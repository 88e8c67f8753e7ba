#ifndef KESTRUM_ANALYSIS_TWO_POINT_STATISTICS_H
#define KESTRUM_ANALYSIS_TWO_POINT_STATISTICS_H

#include "core/image.h"
#include "core/types.h"

/* Experimental two-point statistics of a variable on a grid: variogram, covariances, correlogram, transiogram and
 * connectivity functions, for every lag of a regular box of lags (Goovaerts, 1997, Geostatistics for Natural Resources
 * Evaluation, chapter 2).
 *
 * A lag (hx, hy, hz) is a whole number of cells along each axis; it may be negative. A pair is a tail node (x, y, z)
 * and the head node (x+hx, y+hy, z+hz), both in the grid. In the formulas a is the value at the tail, b the value at
 * the head, N the number of pairs, n the number of counted pairs and S the sum over these, in the order of the tails.
 *
 * Missing values: a pair counts if neither end is missing, and a lag without counted pairs has the missing value. The
 * connectivity functions count all pairs; to them a missing value is background.
 *
 * Common arguments:
 *   imageIn               in
 *   imageOut              out; must hold nothing; its contents are allocated (VORLFreeImage). One node per lag; one
 *                         variable, with the name of that of imageIn followed by the suffix of the statistic. The nodes
 *                         are as far apart as the lags and stand at the lag vectors: the first at (sx*hxMin, sy*hyMin,
 *                         sz*hzMin), which is the centre of its cell.
 *   varIndex              variable of imageIn
 *   hxMin, hxMax, hxStep  lags along x: hxMin, hxMin + hxStep, .. up to hxMax, which need not be reached. |hxMin| and
 *                         |hxMax| are below nx; the step is at least 1, and not looked at where hxMin is hxMax.
 *   hyMin, hyMax, hyStep  the same along y
 *   hzMin, hzMax, hzStep  the same along z
 *   verbose               not FALSE: progress is printed on the standard output
 *   nthreads              number of threads of the VORLOMP form, one if it is below 1; the result does not depend on it
 *
 * Statuses: -1100 varIndex out of range; -2012, -2013, -2014 (x, y, z) minimal lag and -2015, -2016, -2017 maximal lag
 * not below the size of the grid; -2018, -2019, -2020 minimal above maximal lag; -2021, -2022, -2023 step below 1; -20
 * null pointer; -611 sizes of the grid below 1 or inconsistent; -620 too many lags; -623 the name has no room for the
 * suffix: all these leave imageOut untouched. Then those of VORLMallocImage and VORLMalloc; the work memory is a small
 * multiple of that of the variable. After a failure imageOut may be released.
 *
 * Thread safety: calls that write to different images may run at the same time.
 */

KESTRUM_BEGIN_DECLS

/* Variogram: 0.5/n * S(a-b)^2. Suffix: VORL_SUFFIX_FOR_VARIOGRAM. */
KESTRUM_API int VORLImageVariogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                   int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                   BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageVariogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                      int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                      BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/* Covariance: (S(ab) - (S(a)/n) * S(b)) / n, with the means of the tails and heads of the lag itself. Suffix:
 * VORL_SUFFIX_FOR_COVARIANCE. */
KESTRUM_API int VORLImageCovariance(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                    int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                    BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageCovariance(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                       int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                       BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/* Covariance without centring: S(ab) / n. Suffix: VORL_SUFFIX_FOR_COVARIANCE_NOT_CENTRED. */
KESTRUM_API int VORLImageCovarianceNotCentred(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                              int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                              int hzMax, int hzStep, BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageCovarianceNotCentred(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                                 int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                                 int hzMax, int hzStep, BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/* Correlogram: the covariance over the product of the standard deviations of the tails and heads of the lag itself. A
 * not-a-number where a variance is zero, as with a single pair, or negative by rounding. Suffix:
 * VORL_SUFFIX_FOR_CORRELOGRAM. */
KESTRUM_API int VORLImageCorrelogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                     int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                     BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageCorrelogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                        int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                        BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/* Transiogram: of the counted pairs with a > 0, the share of those with b > 0 (Li, 2007, Transiograms for
 * characterizing spatial variability of soil classes). 0.0 if there are pairs, but none with a > 0. Suffix:
 * VORL_SUFFIX_FOR_TRANSIOGRAM. */
KESTRUM_API int VORLImageTransiogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                     int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                     BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageTransiogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                        int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                        BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/* Connectivity functions of an image of labels, such as geobodies (Pardo-Iguzquiza and Dowd, 2003). Two nodes are
 * connected if they have the same positive label. Function 0: the share of connected pairs among all N. Suffix of the
 * three: VORL_SUFFIX_FOR_CONNECTIVITY_FUNCTION. */
KESTRUM_API int VORLImageConnectivityFunction0(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                               int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                               int hzMax, int hzStep, BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageConnectivityFunction0(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                                  int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                                  int hzMax, int hzStep, BOOLEAN verbose,
                                                  int nthreads) KESTRUM_NOEXCEPT;

/* Function 1: the share among the pairs with a > 0; 0.0 if there is none. */
KESTRUM_API int VORLImageConnectivityFunction1(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                               int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                               int hzMax, int hzStep, BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageConnectivityFunction1(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                                  int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                                  int hzMax, int hzStep, BOOLEAN verbose,
                                                  int nthreads) KESTRUM_NOEXCEPT;

/* Function 2: the share among the pairs with a > 0 and b > 0; 0.0 if there is none. */
KESTRUM_API int VORLImageConnectivityFunction2(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                               int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                               int hzMax, int hzStep, BOOLEAN verbose) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPImageConnectivityFunction2(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                                  int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                                  int hzMax, int hzStep, BOOLEAN verbose,
                                                  int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
