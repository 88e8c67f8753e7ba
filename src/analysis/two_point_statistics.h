#ifndef KESTRUM_ANALYSIS_TWO_POINT_STATISTICS_H
#define KESTRUM_ANALYSIS_TWO_POINT_STATISTICS_H

/** @file
 * Experimental two-point statistics of a variable on a grid: variogram, covariances, correlogram, transiogram and
 * connectivity functions, for every lag of a regular box of lags (Goovaerts, 1997, Geostatistics for Natural Resources
 * Evaluation, chapter 2).
 *
 * A lag (hx, hy, hz) is a whole number of cells along each axis; it may be negative. A pair is a tail node (x, y, z)
 * and the head node (x+hx, y+hy, z+hz), both in the grid. In the formulas a is the value at the tail, b the value at
 * the head, N the number of pairs, n the number of counted pairs and S the sum over these, in the order of the tails.
 *
 * Missing values: a pair counts if neither end is missing, and a lag without counted pairs has the missing value. The
 * connectivity functions count all pairs; to them a missing value is background.
 */

#include "../core/image.h"
#include "../core/types.h"

KESTRUM_BEGIN_DECLS

/** Computes the variogram of every lag of a box: 0.5/n * S(a-b)^2.
 *
 * A pair is a tail node and the head node a lag away; it counts if neither is missing. A lag without counted pairs is
 * missing. Here a is the value at the tail, b that at the head, n the number of counted pairs and S the sum over them.
 *
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty. It has one node per lag, and one variable, with the name of that of imageIn
 *   followed by VORL_SUFFIX_FOR_VARIOGRAM. The nodes are as far apart as the lags and are at the lag vectors: the first
 *   at (sx*hxMin, sy*hyMin, sz*hzMin), which is the centre of its cell
 * @param varIndex index of the variable of imageIn, 0 to nvar - 1
 * @param hxMin first lag along x in cells, |hxMin| below nx
 * @param hxMax bound of the lags along x, hxMin to nx - 1; it need not be reached
 * @param hxStep step along x, at least 1; not looked at where hxMin is hxMax
 * @param hyMin first lag along y in cells, |hyMin| below ny
 * @param hyMax bound of the lags along y, hyMin to ny - 1; it need not be reached
 * @param hyStep step along y, at least 1; not looked at where hyMin is hyMax
 * @param hzMin first lag along z in cells, |hzMin| below nz
 * @param hzMax bound of the lags along z, hzMin to nz - 1; it need not be reached
 * @param hzStep step along z, at least 1; not looked at where hzMin is hzMax
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -1100: varIndex out of range; -2012, -2013, -2014: minimal lag along x, y, z not below the size of the
 *   grid; -2015, -2016, -2017: maximal lag not below it; -2018, -2019, -2020: minimal above maximal lag; -2021, -2022,
 *   -2023: step below 1; -20: null pointer; -611: sizes of the grid below 1 or inconsistent; -620: too many lags; -623:
 *   the name has no room for the suffix (all these leave imageOut untouched); allocation statuses */
KESTRUM_API int VORLImageVariogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                   int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                   BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageVariogram.
 * @copydetails VORLImageVariogram
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPImageVariogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                      int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                      BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/** Computes the covariance of every lag of a box: (S(ab) - (S(a)/n) * S(b)) / n.
 *
 * A pair is a tail node and the head node a lag away; it counts if neither is missing. A lag without counted pairs is
 * missing. Here a is the value at the tail, b that at the head, n the number of counted pairs and S the sum over them:
 * the means are those of the tails and heads of the lag itself.
 *
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty. It has one node per lag, and one variable, with the name of that of imageIn
 *   followed by VORL_SUFFIX_FOR_COVARIANCE. The nodes are as far apart as the lags and are at the lag vectors: the
 *   first at (sx*hxMin, sy*hyMin, sz*hzMin), which is the centre of its cell
 * @param varIndex index of the variable of imageIn, 0 to nvar - 1
 * @param hxMin first lag along x in cells, |hxMin| below nx
 * @param hxMax bound of the lags along x, hxMin to nx - 1; it need not be reached
 * @param hxStep step along x, at least 1; not looked at where hxMin is hxMax
 * @param hyMin first lag along y in cells, |hyMin| below ny
 * @param hyMax bound of the lags along y, hyMin to ny - 1; it need not be reached
 * @param hyStep step along y, at least 1; not looked at where hyMin is hyMax
 * @param hzMin first lag along z in cells, |hzMin| below nz
 * @param hzMax bound of the lags along z, hzMin to nz - 1; it need not be reached
 * @param hzStep step along z, at least 1; not looked at where hzMin is hzMax
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -1100: varIndex out of range; -2012, -2013, -2014: minimal lag along x, y, z not below the size of the
 *   grid; -2015, -2016, -2017: maximal lag not below it; -2018, -2019, -2020: minimal above maximal lag; -2021, -2022,
 *   -2023: step below 1; -20: null pointer; -611: sizes of the grid below 1 or inconsistent; -620: too many lags; -623:
 *   the name has no room for the suffix (all these leave imageOut untouched); allocation statuses */
KESTRUM_API int VORLImageCovariance(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                    int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                    BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageCovariance.
 * @copydetails VORLImageCovariance
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPImageCovariance(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                       int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                       BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/** Computes the covariance without centring of every lag of a box: S(ab) / n.
 *
 * A pair is a tail node and the head node a lag away; it counts if neither is missing. A lag without counted pairs is
 * missing. Here a is the value at the tail, b that at the head, n the number of counted pairs and S the sum over them.
 *
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty. It has one node per lag, and one variable, with the name of that of imageIn
 *   followed by VORL_SUFFIX_FOR_COVARIANCE_NOT_CENTRED. The nodes are as far apart as the lags and are at the lag
 *   vectors: the first at (sx*hxMin, sy*hyMin, sz*hzMin), which is the centre of its cell
 * @param varIndex index of the variable of imageIn, 0 to nvar - 1
 * @param hxMin first lag along x in cells, |hxMin| below nx
 * @param hxMax bound of the lags along x, hxMin to nx - 1; it need not be reached
 * @param hxStep step along x, at least 1; not looked at where hxMin is hxMax
 * @param hyMin first lag along y in cells, |hyMin| below ny
 * @param hyMax bound of the lags along y, hyMin to ny - 1; it need not be reached
 * @param hyStep step along y, at least 1; not looked at where hyMin is hyMax
 * @param hzMin first lag along z in cells, |hzMin| below nz
 * @param hzMax bound of the lags along z, hzMin to nz - 1; it need not be reached
 * @param hzStep step along z, at least 1; not looked at where hzMin is hzMax
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -1100: varIndex out of range; -2012, -2013, -2014: minimal lag along x, y, z not below the size of the
 *   grid; -2015, -2016, -2017: maximal lag not below it; -2018, -2019, -2020: minimal above maximal lag; -2021, -2022,
 *   -2023: step below 1; -20: null pointer; -611: sizes of the grid below 1 or inconsistent; -620: too many lags; -623:
 *   the name has no room for the suffix (all these leave imageOut untouched); allocation statuses */
KESTRUM_API int VORLImageCovarianceNotCentred(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                              int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                              int hzMax, int hzStep, BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageCovarianceNotCentred.
 * @copydetails VORLImageCovarianceNotCentred
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPImageCovarianceNotCentred(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                                 int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                                 int hzMax, int hzStep, BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/** Computes the correlogram of every lag of a box: the covariance over the product of the standard deviations of the
 * tails and heads of the lag itself.
 *
 * A pair is a tail node and the head node a lag away; it counts if neither is missing. A lag without counted pairs is
 * missing. The result is a not-a-number where a variance is zero, as with a single pair, or negative by rounding.
 *
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty. It has one node per lag, and one variable, with the name of that of imageIn
 *   followed by VORL_SUFFIX_FOR_CORRELOGRAM. The nodes are as far apart as the lags and are at the lag vectors: the
 *   first at (sx*hxMin, sy*hyMin, sz*hzMin), which is the centre of its cell
 * @param varIndex index of the variable of imageIn, 0 to nvar - 1
 * @param hxMin first lag along x in cells, |hxMin| below nx
 * @param hxMax bound of the lags along x, hxMin to nx - 1; it need not be reached
 * @param hxStep step along x, at least 1; not looked at where hxMin is hxMax
 * @param hyMin first lag along y in cells, |hyMin| below ny
 * @param hyMax bound of the lags along y, hyMin to ny - 1; it need not be reached
 * @param hyStep step along y, at least 1; not looked at where hyMin is hyMax
 * @param hzMin first lag along z in cells, |hzMin| below nz
 * @param hzMax bound of the lags along z, hzMin to nz - 1; it need not be reached
 * @param hzStep step along z, at least 1; not looked at where hzMin is hzMax
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -1100: varIndex out of range; -2012, -2013, -2014: minimal lag along x, y, z not below the size of the
 *   grid; -2015, -2016, -2017: maximal lag not below it; -2018, -2019, -2020: minimal above maximal lag; -2021, -2022,
 *   -2023: step below 1; -20: null pointer; -611: sizes of the grid below 1 or inconsistent; -620: too many lags; -623:
 *   the name has no room for the suffix (all these leave imageOut untouched); allocation statuses */
KESTRUM_API int VORLImageCorrelogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                     int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                     BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageCorrelogram.
 * @copydetails VORLImageCorrelogram
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPImageCorrelogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                        int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                        BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/** Computes the transiogram of every lag of a box: of the counted pairs with a > 0, the share of those with b > 0.
 *
 * Here a is the value at the tail node, b that at the head node a lag away (Li, 2007, Transiograms for characterizing
 * spatial variability of soil classes). A pair counts if neither is missing. A lag without counted pairs is missing; it
 * is 0.0 if there are pairs, but none with a > 0.
 *
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty. It has one node per lag, and one variable, with the name of that of imageIn
 *   followed by VORL_SUFFIX_FOR_TRANSIOGRAM. The nodes are as far apart as the lags and are at the lag vectors: the
 *   first at (sx*hxMin, sy*hyMin, sz*hzMin), which is the centre of its cell
 * @param varIndex index of the variable of imageIn, 0 to nvar - 1
 * @param hxMin first lag along x in cells, |hxMin| below nx
 * @param hxMax bound of the lags along x, hxMin to nx - 1; it need not be reached
 * @param hxStep step along x, at least 1; not looked at where hxMin is hxMax
 * @param hyMin first lag along y in cells, |hyMin| below ny
 * @param hyMax bound of the lags along y, hyMin to ny - 1; it need not be reached
 * @param hyStep step along y, at least 1; not looked at where hyMin is hyMax
 * @param hzMin first lag along z in cells, |hzMin| below nz
 * @param hzMax bound of the lags along z, hzMin to nz - 1; it need not be reached
 * @param hzStep step along z, at least 1; not looked at where hzMin is hzMax
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -1100: varIndex out of range; -2012, -2013, -2014: minimal lag along x, y, z not below the size of the
 *   grid; -2015, -2016, -2017: maximal lag not below it; -2018, -2019, -2020: minimal above maximal lag; -2021, -2022,
 *   -2023: step below 1; -20: null pointer; -611: sizes of the grid below 1 or inconsistent; -620: too many lags; -623:
 *   the name has no room for the suffix (all these leave imageOut untouched); allocation statuses */
KESTRUM_API int VORLImageTransiogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                     int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                     BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageTransiogram.
 * @copydetails VORLImageTransiogram
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPImageTransiogram(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin, int hxMax,
                                        int hxStep, int hyMin, int hyMax, int hyStep, int hzMin, int hzMax, int hzStep,
                                        BOOLEAN verbose, int nthreads) KESTRUM_NOEXCEPT;

/** Computes connectivity function 0 of every lag of a box: the share of connected pairs among all pairs.
 *
 * imageIn holds labels, such as geobodies (Pardo-Iguzquiza and Dowd, 2003). Two nodes are connected if they have the
 * same positive label; a missing value is background.
 *
 * @param[in] imageIn the image
 * @param[out] imageOut must be empty. It has one node per lag, and one variable, with the name of that of imageIn
 *   followed by VORL_SUFFIX_FOR_CONNECTIVITY_FUNCTION. The nodes are as far apart as the lags and are at the lag
 *   vectors: the first at (sx*hxMin, sy*hyMin, sz*hzMin), which is the centre of its cell
 * @param varIndex index of the variable of imageIn, 0 to nvar - 1
 * @param hxMin first lag along x in cells, |hxMin| below nx
 * @param hxMax bound of the lags along x, hxMin to nx - 1; it need not be reached
 * @param hxStep step along x, at least 1; not looked at where hxMin is hxMax
 * @param hyMin first lag along y in cells, |hyMin| below ny
 * @param hyMax bound of the lags along y, hyMin to ny - 1; it need not be reached
 * @param hyStep step along y, at least 1; not looked at where hyMin is hyMax
 * @param hzMin first lag along z in cells, |hzMin| below nz
 * @param hzMax bound of the lags along z, hzMin to nz - 1; it need not be reached
 * @param hzStep step along z, at least 1; not looked at where hzMin is hzMax
 * @param verbose TRUE: print progress on the standard output
 * @return 0; -1100: varIndex out of range; -2012, -2013, -2014: minimal lag along x, y, z not below the size of the
 *   grid; -2015, -2016, -2017: maximal lag not below it; -2018, -2019, -2020: minimal above maximal lag; -2021, -2022,
 *   -2023: step below 1; -20: null pointer; -611: sizes of the grid below 1 or inconsistent; -620: too many lags; -623:
 *   the name has no room for the suffix (all these leave imageOut untouched); allocation statuses */
KESTRUM_API int VORLImageConnectivityFunction0(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                               int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                               int hzMax, int hzStep, BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageConnectivityFunction0.
 * @copydetails VORLImageConnectivityFunction0
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPImageConnectivityFunction0(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                                  int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                                  int hzMax, int hzStep, BOOLEAN verbose,
                                                  int nthreads) KESTRUM_NOEXCEPT;

/** Computes connectivity function 1 of every lag of a box: the share of connected pairs among those with a positive
 * label at the tail, 0.0 if there is none.
 * @copydetails VORLImageConnectivityFunction0 */
KESTRUM_API int VORLImageConnectivityFunction1(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                               int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                               int hzMax, int hzStep, BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageConnectivityFunction1.
 * @copydetails VORLImageConnectivityFunction1
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPImageConnectivityFunction1(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                                  int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                                  int hzMax, int hzStep, BOOLEAN verbose,
                                                  int nthreads) KESTRUM_NOEXCEPT;

/** Computes connectivity function 2 of every lag of a box: the share of connected pairs among those with positive
 * labels at both ends, 0.0 if there is none.
 * @copydetails VORLImageConnectivityFunction0 */
KESTRUM_API int VORLImageConnectivityFunction2(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                               int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                               int hzMax, int hzStep, BOOLEAN verbose) KESTRUM_NOEXCEPT;

/** Threaded form of VORLImageConnectivityFunction2.
 * @copydetails VORLImageConnectivityFunction2
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPImageConnectivityFunction2(VORL_IMAGE* imageIn, VORL_IMAGE* imageOut, int varIndex, int hxMin,
                                                  int hxMax, int hxStep, int hyMin, int hyMax, int hyStep, int hzMin,
                                                  int hzMax, int hzStep, BOOLEAN verbose,
                                                  int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
