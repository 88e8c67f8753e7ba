#ifndef KESTRUM_NUMERIC_SPECIAL_FUNCTIONS_H
#define KESTRUM_NUMERIC_SPECIAL_FUNCTIONS_H

/** @file
 * Bessel and gamma functions, and small transforms of distributions. Null is allowed for vectors of no entries.
 */

#include "../core/types.h"

KESTRUM_BEGIN_DECLS

/** Computes modified Bessel functions of real order and their derivatives.
 *
 * Temme's series for x below 2, Steed's continued fractions from 2 on (Temme, 1975, Journal of Computational Physics
 * 19). The relative accuracy is about 1e-7 below 2, where the gamma function terms have single precision, and close to
 * that of double from 2 on.
 *
 * @param x argument, above 0, not tested
 * @param nu order, at least 0, not tested
 * @param[out] ri I of order nu at x
 * @param[out] rk K of order nu at x
 * @param[out] rip derivative of I
 * @param[out] rkp derivative of K */
KESTRUM_API void VORLbessik(double x, double nu, double* ri, double* rk, double* rip, double* rkp) KESTRUM_NOEXCEPT;

/** Computes the gamma function terms of Temme's series, to single precision. G is the gamma function.
 *
 * @param x in [-1/2, 1/2], not tested
 * @param[out] gam1 (1/G(1 - x) - 1/G(1 + x)) / 2x
 * @param[out] gam2 (1/G(1 - x) + 1/G(1 + x)) / 2
 * @param[out] gampl 1/G(1 + x)
 * @param[out] gammi 1/G(1 - x) */
KESTRUM_API void VORLbeschb(double x, double* gam1, double* gam2, double* gampl, double* gammi) KESTRUM_NOEXCEPT;

/** Sums a Chebyshev series by the recurrence of Clenshaw (1955), in single precision; half of c[0] counts.
 *
 * @param a lower end of the interval
 * @param b upper end of the interval
 * @param[in] c m coefficients
 * @param m number of coefficients, at least 1
 * @param x argument in [a, b], not tested
 * @return the sum */
KESTRUM_API float VORLchebev(float a, float b, float* c, int m, float x) KESTRUM_NOEXCEPT;

/** Computes the natural logarithm of the gamma function, by a Lanczos approximation (Lanczos, 1964) of 14 terms.
 *
 * @param x argument, above 0, not tested
 * @return the logarithm */
KESTRUM_API double VORLgammln(double x) KESTRUM_NOEXCEPT;

/** Computes the interquartile range: the quantile of 0.75 less that of 0.25, each interpolated linearly at position
 * p*(n - 1) of the sorted values.
 *
 * @param n number of values; below 1 the range is 0
 * @param[in] value n values; missing values count like any other
 * @param[out] iqr the range
 * @return 0; -1: memory is short */
KESTRUM_API int VORLComputeIQRofReal(int n, real* value, real* iqr) KESTRUM_NOEXCEPT;

/** Computes positions in [0, 1] for the classes of a distribution: place i/(n - 1) within the class's share of [0, 1].
 *
 * @param n number of classes; below 1 nothing is done
 * @param[in] value not read; null is allowed
 * @param[in] pdf n probabilities
 * @param[out] newValue n positions, from 0 to 1
 * @return 0 */
KESTRUM_API int VORLComputeNewVarValueUniform(int n, real* value, real* pdf, real* newValue) KESTRUM_NOEXCEPT;

/** Computes positions in [0, 1] for the classes of a distribution: normal scores of the middles of the classes' shares,
 * rescaled.
 *
 * @param n number of classes; below 1 nothing is done
 * @param[in] value not read; null is allowed
 * @param[in] pdf n probabilities
 * @param[out] newValue n positions, from 0 to 1
 * @return 0; -540: the scores span less than 1e-10 (always so for n 1), and newValue holds the scores */
KESTRUM_API int VORLComputeNewVarValueNormal(int n, real* value, real* pdf, real* newValue) KESTRUM_NOEXCEPT;

/** Computes the half width, in standard deviations, of the two-sided normal interval of each confidence level.
 *
 * @param n number of levels
 * @param[in] confidence n levels
 * @param[out] factor n half widths, interpolated in a table: at most 7.495, then VORL_INFINITY up to level 1; missing
 *   for a level outside [0, 1]
 * @return 0 */
KESTRUM_API int VORLConfidenceNormal(int n, real* confidence, real* factor) KESTRUM_NOEXCEPT;

/** Cumulates probabilities, leaving each entry's own out: cdf[i] = (sum of pdf[j] over j less than i) / (1 - pdf[i]).
 *
 * So cdf[0] is 0. A pdf[i] of 1 divides by zero.
 *
 * @param n number of entries
 * @param[in] pdf n probabilities
 * @param[out] cdf n values
 * @return 0 */
KESTRUM_API int VORLPdfToCdf(int n, real* pdf, real* cdf) KESTRUM_NOEXCEPT;

/** Computes quantiles of a distribution given by points, by linear interpolation.
 *
 * @param n number of points; below 1 nothing is done
 * @param[in] value n values, ascending
 * @param[in] cdf n cumulative probabilities, ascending
 * @param nquantile number of quantiles; below 1 nothing is done
 * @param[in] probability nquantile probabilities, ascending
 * @param[out] quantile nquantile quantiles: value[0] below cdf[0], value[n - 1] from cdf[n - 1] on
 * @return 0 */
KESTRUM_API int VORLQuantileFromCdf(int n, real* value, real* cdf, int nquantile, real* probability,
                                    real* quantile) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
