#ifndef KESTRUM_NUMERIC_SPECIAL_FUNCTIONS_H
#define KESTRUM_NUMERIC_SPECIAL_FUNCTIONS_H

/* Bessel and gamma functions, and small transforms of distributions.
 *
 * Pointers must not be null unless n is 0 or less. Outputs must not overlap inputs.
 * Thread safety: all functions are pure; any thread may call them at any time.
 */

#include "core/types.h"

KESTRUM_BEGIN_DECLS

/* Modified Bessel functions of real order and their derivatives, by Temme's series for x below 2 and Steed's continued
 * fractions from 2 on (Temme, 1975, Journal of Computational Physics 19). Relative accuracy about 1e-7 below 2, where
 * the gamma function terms have single precision, and close to that of double from 2 on.
 * x: argument, above 0.  nu: order, at least 0. Neither is tested.
 * ri, rk: out, I and K of order nu at x.  rip, rkp: out, their derivatives. */
KESTRUM_API void VORLbessik(double x, double nu, double* ri, double* rk, double* rip, double* rkp) KESTRUM_NOEXCEPT;

/* Gamma function terms of Temme's series, to single precision.
 * x: in [-1/2, 1/2].
 * gam1: out, (1/G(1 - x) - 1/G(1 + x)) / 2x.  gam2: out, (1/G(1 - x) + 1/G(1 + x)) / 2.
 * gampl: out, 1/G(1 + x).  gammi: out, 1/G(1 - x). */
KESTRUM_API void VORLbeschb(double x, double* gam1, double* gam2, double* gampl, double* gammi) KESTRUM_NOEXCEPT;

/* Sum of a Chebyshev series by the recurrence of Clenshaw (1955), in single precision; half of c[0] counts.
 * a, b: ends of the interval.  c: in, m coefficients, m at least 1.  x: argument in [a, b], not tested. */
KESTRUM_API float VORLchebev(float a, float b, float* c, int m, float x) KESTRUM_NOEXCEPT;

/* Natural logarithm of the gamma function, by a Lanczos approximation (Lanczos, 1964) of 14 terms.
 * x: above 0, not tested. */
KESTRUM_API double VORLgammln(double x) KESTRUM_NOEXCEPT;

/* Interquartile range: quantile of 0.75 minus quantile of 0.25, each interpolated linearly at position p*(n - 1) of the
 * sorted values.
 * n: number of values; below 1 the range is 0.
 * value: in, n values; missing values count like any other.
 * iqr: out.
 * Gives 0, or -1 if memory runs out. */
KESTRUM_API int VORLComputeIQRofReal(int n, real* value, real* iqr) KESTRUM_NOEXCEPT;

/* Positions in [0, 1] for the classes of a distribution: place i/(n - 1) within the class's share of [0, 1].
 * n: number of classes; below 1 nothing is done.
 * value: not read, may be null.
 * pdf: in, n probabilities.
 * newValue: out, n positions, from 0 to 1.
 * Gives 0. */
KESTRUM_API int VORLComputeNewVarValueUniform(int n, real* value, real* pdf, real* newValue) KESTRUM_NOEXCEPT;

/* Positions in [0, 1] for the classes of a distribution: normal scores of the middles of the classes' shares, rescaled.
 * Arguments as in VORLComputeNewVarValueUniform.
 * Gives 0, or -540 if the scores span less than 1e-10 (always so for n 1); newValue then holds the scores. */
KESTRUM_API int VORLComputeNewVarValueNormal(int n, real* value, real* pdf, real* newValue) KESTRUM_NOEXCEPT;

/* Half width, in standard deviations, of the two-sided normal interval of each confidence level.
 * n: number of levels.
 * confidence: in, n levels.
 * factor: out, n half widths, by interpolation in a table: at most 7.495, then VORL_INFINITY up to level 1;
 *   VORL_MISSING_VALUE for a level outside [0, 1].
 * Gives 0. */
KESTRUM_API int VORLConfidenceNormal(int n, real* confidence, real* factor) KESTRUM_NOEXCEPT;

/* Cumulates probabilities, leaving each entry's own out: cdf[i] = (sum of pdf[j] over j < i) / (1 - pdf[i]), so that
 * cdf[0] is 0. A pdf[i] of 1 divides by zero.
 * pdf: in, n probabilities.  cdf: out, n values.
 * Gives 0. */
KESTRUM_API int VORLPdfToCdf(int n, real* pdf, real* cdf) KESTRUM_NOEXCEPT;

/* Quantiles of a distribution given by points, by linear interpolation.
 * n: number of points; below 1 nothing is done.
 * value, cdf: in, n entries each, ascending.
 * nquantile: number of quantiles; below 1 nothing is done.
 * probability: in, nquantile entries, ascending.
 * quantile: out, nquantile entries; value[0] below cdf[0], value[n - 1] from cdf[n - 1] on.
 * Gives 0. */
KESTRUM_API int VORLQuantileFromCdf(int n, real* value, real* cdf, int nquantile, real* probability,
                                    real* quantile) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
