#ifndef KESTRUM_CORE_IMAGE_STATISTICS_H
#define KESTRUM_CORE_IMAGE_STATISTICS_H

/** @file
 * Statistics over the variables of images, and transforms of their values. Missing values are left out; a NaN is a
 * value and spreads.
 */

#include <stdio.h>

#include "../core/image.h"
#include "../core/types.h"

#define VORL_PREFIX_FOR_OCCURRENCE_PROPORTION "occ_prop_of_" /**< beginning of the names of proportions */
#define VORL_NB_DIGIT_FOR_VALUE_NAME 5                       /**< digits of the number of a category in such a name */

KESTRUM_BEGIN_DECLS

/** Computes the mean of one variable.
 *
 * @param[in] image the image
 * @param iv index of the variable, 0 to nvar - 1
 * @param[out] mean the mean; missing if no value is informed
 * @return 0; -1100: iv out of range; -20: mean null */
KESTRUM_API int VORLGetImageOneVarValueMean(VORL_IMAGE* image, int iv, real* mean) KESTRUM_NOEXCEPT;

/** Computes the mean of each variable.
 *
 * @param[in] image the image
 * @param[out] mean nvar means; missing if no value is informed
 * @return 0; -20: mean null */
KESTRUM_API int VORLGetImageVarValueMean(VORL_IMAGE* image, real* mean) KESTRUM_NOEXCEPT;

/** Computes the standard deviation of one variable about a given mean.
 *
 * The divisor is the number of values less 1; for a single value the result is its distance from the mean.
 *
 * @param[in] image the image
 * @param iv index of the variable, 0 to nvar - 1
 * @param[in] mean the mean, one value
 * @param[out] sd the standard deviation; missing if the mean is, or if no value is informed
 * @return 0; -1100: iv out of range; -20: mean or sd null */
KESTRUM_API int VORLGetImageOneVarValueSD(VORL_IMAGE* image, int iv, real* mean, real* sd) KESTRUM_NOEXCEPT;

/** Computes the standard deviation of each variable about given means, as VORLGetImageOneVarValueSD.
 *
 * @param[in] image the image
 * @param[in] mean nvar means
 * @param[out] sd nvar standard deviations; missing if the mean is, or if no value is informed
 * @return 0; -20: mean or sd null */
KESTRUM_API int VORLGetImageVarValueSD(VORL_IMAGE* image, real* mean, real* sd) KESTRUM_NOEXCEPT;

/** Computes the range of one variable.
 *
 * @param[in] image the image
 * @param iv index of the variable, 0 to nvar - 1
 * @param[out] ninformed number of informed values
 * @param[out] min the minimum; missing if no value is informed
 * @param[out] max the maximum; likewise
 * @param[out] range maximum less minimum; likewise
 * @return 0; -1100: iv out of range; -20: an output null */
KESTRUM_API int VORLGetImageOneVarValueRange(VORL_IMAGE* image, int iv, int* ninformed, real* min, real* max,
                                             real* range) KESTRUM_NOEXCEPT;

/** Computes the range of each variable.
 *
 * @param[in] image the image
 * @param[out] ninformed nvar numbers of informed values
 * @param[out] min nvar minima; missing if no value is informed
 * @param[out] max nvar maxima; likewise
 * @param[out] range nvar maxima less minima; likewise
 * @return 0; -20: an output null */
KESTRUM_API int VORLGetImageVarValueRange(VORL_IMAGE* image, int* ninformed, real* min, real* max,
                                          real* range) KESTRUM_NOEXCEPT;

/** Computes the distribution of the distinct values of one variable.
 *
 * @param[in] image the image
 * @param iv index of the variable, 0 to nvar - 1
 * @param[out] nvalue number of distinct values; 0 if all are missing
 * @param[out] value nvalue distinct values, ascending: a vector allocated here, which the caller releases with
 *   VORLFree; untouched if nvalue is 0
 * @param[out] pdf proportion of each among the informed values: a vector like value
 * @param[out] nmissing number of missing values; 0 if a value lies below VORL_MISSING_VALUE, and then the missing ones
 *   count as a value
 * @return 0; -1100: iv out of range; -20: an output null; allocation statuses */
KESTRUM_API int VORLGetImageOneVarValuePdf(VORL_IMAGE* image, int iv, int* nvalue, real** value, double** pdf,
                                           int* nmissing) KESTRUM_NOEXCEPT;

/** Computes the distribution of the distinct values of each variable, as VORLGetImageOneVarValuePdf.
 *
 * @param[in] image the image
 * @param[out] nvalue nvar numbers of distinct values
 * @param[out] value nvar vectors of distinct values; after a failure those of the variables before are set
 * @param[out] pdf nvar vectors of proportions, like value
 * @param[out] nmissing nvar numbers of missing values
 * @return 0; -20: an output null; allocation statuses */
KESTRUM_API int VORLGetImageVarValuePdf(VORL_IMAGE* image, int* nvalue, real** value, double** pdf,
                                        int* nmissing) KESTRUM_NOEXCEPT;

/** Computes the distribution of the distinct values of one variable of several images together.
 *
 * @param nimage number of images
 * @param[in] images nimage images with equal numbers of variables; their grids may differ
 * @param iv index of the variable, 0 to nvar - 1
 * @param[out] nvalue number of distinct values; 0 if all are missing
 * @param[out] value nvalue distinct values, as in VORLGetImageOneVarValuePdf
 * @param[out] pdf nvalue proportions, as in VORLGetImageOneVarValuePdf
 * @param[out] nmissing number of missing values, as in VORLGetImageOneVarValuePdf
 * @return 0; -30: the numbers of variables differ; -1100: iv out of range; -20: an output null; -620: the images have
 *   more nodes together than an int can count; allocation statuses */
KESTRUM_API int VORLGetNImageOneVarValuePdf(int nimage, VORL_IMAGE* images, int iv, int* nvalue, real** value,
                                            double** pdf, int* nmissing) KESTRUM_NOEXCEPT;

/** Computes the distribution of the distinct values of each variable of several images together.
 *
 * @param nimage number of images
 * @param[in] images nimage images with equal numbers of variables; their grids may differ
 * @param[out] nvalue nvar numbers of distinct values
 * @param[out] value nvar vectors of distinct values, as in VORLGetImageVarValuePdf
 * @param[out] pdf nvar vectors of proportions, like value
 * @param[out] nmissing nvar numbers of missing values
 * @return 0; -30: the numbers of variables differ; -20: an output null; -620: the images have more nodes together than
 *   an int can count; allocation statuses */
KESTRUM_API int VORLGetNImageVarValuePdf(int nimage, VORL_IMAGE* images, int* nvalue, real** value, double** pdf,
                                         int* nmissing) KESTRUM_NOEXCEPT;

/** Finds the value of each node in an ascending list.
 *
 * @param[in] image the image
 * @param iv index of the variable, 0 to nvar - 1
 * @param nvalue number of entries of the list
 * @param[in] value nvalue entries, ascending
 * @param[out] index one entry per node: the position in the list, -1 for a missing value and for one that is not in it
 * @return 0; -1100: iv out of range; -20: index null */
KESTRUM_API int VORLGetImageOneVarValueIndex(VORL_IMAGE* image, int iv, int nvalue, real* value,
                                             int* index) KESTRUM_NOEXCEPT;

/** Counts the missing values of each variable.
 *
 * @param[in] image the image
 * @param[out] nmissing nvar numbers
 * @return 0; -20: nmissing null */
KESTRUM_API int VORLGetImageNumberVarValueMissing(VORL_IMAGE* image, int* nmissing) KESTRUM_NOEXCEPT;

/** Marks the nodes where at least one variable is missing.
 *
 * @param[in] image the image
 * @param[out] missing one entry per node, 1 or 0
 * @param[out] count number of nodes marked
 * @return 0; -20: missing or count null */
KESTRUM_API int VORLGetImageVarVectorMissing(VORL_IMAGE* image, BOOLEAN* missing, int* count) KESTRUM_NOEXCEPT;

/** Computes counts, extremes, means and covariances of all variables.
 *
 * @param[in] image the image
 * @param[out] n nvar by nvar: number of nodes where both variables are informed
 * @param[out] min nvar minima; VORL_INFINITY for a variable without a value
 * @param[out] max nvar maxima; -VORL_INFINITY for a variable without a value
 * @param[out] mean nvar means; 0 for a variable without a value
 * @param[out] cov nvar by nvar: covariance about the means over the nodes where both variables are informed, with the
 *   divisor n - 1, at least 1; 0 without such nodes
 * @return 0; -20: an output null */
KESTRUM_API int VORLGetImageVarStats(VORL_IMAGE* image, int** n, double* min, double* max, double* mean,
                                     double** cov) KESTRUM_NOEXCEPT;

/** Computes statistics across the variables at each node.
 *
 * Every division is by nvar, missing values included. A node without a value has the minimum VORL_INFINITY, the maximum
 * -VORL_INFINITY, and 0 for the rest.
 *
 * @param[in] image the image
 * @param[out] out must be empty; an image on the same grid. With ncategory below 1 its variables are "min", "max",
 *   "mean" and "std"; otherwise there is one per category, the proportion of variables equal to it
 * @param ncategory number of categories
 * @param[in] category ncategory values; null is allowed if ncategory is below 1
 * @return 0; -20: category null, or out is image; -620: more values than an int can count; those of VORLMallocImage */
KESTRUM_API int VORLGetImageVarStatsLocal(VORL_IMAGE* image, VORL_IMAGE* out, int ncategory,
                                          real* category) KESTRUM_NOEXCEPT;

/** Writes the grid, the names, counts, statistics and distributions of an image as a report.
 *
 * @param[in] image the image
 * @param[in] prefix text in front of each line but the empty ones
 * @param[in,out] stream open for writing
 * @param ndetail a distribution of more distinct values is not listed
 * @return 0; allocation statuses */
KESTRUM_API int VORLPrintImageInfo(VORL_IMAGE* image, char* prefix, FILE* stream, int ndetail) KESTRUM_NOEXCEPT;

/** Turns every informed value v of a variable into v*a + b.
 *
 * @param[in,out] image the image
 * @param iv index of the variable, 0 to nvar - 1
 * @param a factor
 * @param b summand
 * @return 0; -1100: iv out of range */
KESTRUM_API int VORLTransformLinearImageVar(VORL_IMAGE* image, int iv, real a, real b) KESTRUM_NOEXCEPT;

/** Turns every informed value v of a vector into v*a + b.
 *
 * @param[in,out] vector nvalue values
 * @param nvalue number of values
 * @param a factor
 * @param b summand
 * @return 0 */
KESTRUM_API int VORLTransformLinearVector(real* vector, int nvalue, real a, real b) KESTRUM_NOEXCEPT;

/** Threaded form of VORLTransformLinearVector.
 * @copydetails VORLTransformLinearVector
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPTransformLinearVector(real* vector, int nvalue, real a, real b, int nthreads) KESTRUM_NOEXCEPT;

/** Maps every informed value of a variable by linear interpolation between given points.
 *
 * The map is constant beyond the first and the last point. A NaN stays.
 *
 * @param[in,out] image the image
 * @param iv index of the variable, 0 to nvar - 1
 * @param n number of points; below 1 the values stay
 * @param[in] x n abscissas, ascending
 * @param[in] y n images of them
 * @return 0; -1100: iv out of range */
KESTRUM_API int VORLTransformExplicitImageVar(VORL_IMAGE* image, int iv, int n, real* x, real* y) KESTRUM_NOEXCEPT;

/** Maps every informed value of a vector by linear interpolation between given points.
 *
 * The map is constant beyond the first and the last point. A NaN stays.
 *
 * @param[in,out] vector nvalue values
 * @param nvalue number of values
 * @param n number of points; below 1 the values stay
 * @param[in] x n abscissas, ascending
 * @param[in] y n images of them
 * @return 0 */
KESTRUM_API int VORLTransformExplicitVector(real* vector, int nvalue, int n, real* x, real* y) KESTRUM_NOEXCEPT;

/** Threaded form of VORLTransformExplicitVector.
 * @copydetails VORLTransformExplicitVector
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPTransformExplicitVector(real* vector, int nvalue, int n, real* x, real* y,
                                               int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
