#ifndef KESTRUM_CORE_IMAGE_STATISTICS_H
#define KESTRUM_CORE_IMAGE_STATISTICS_H

/* Statistics over the variables of images, and transforms of their values. Missing values (equal to VORL_MISSING_VALUE)
 * are left out; a NaN is a value and spreads. The functions hold no state.
 *
 * iv is the index of a variable; one that the image does not have gives -1100. Output vectors over all variables have
 * nvar entries and are allocated by the caller; a null one gives -20. Other pointers are not null. Unless told
 * otherwise a function returns 0, -1100, -20 or the status of a failing allocation.
 */

#include <stdio.h>

#include "core/image.h"
#include "core/types.h"

#define VORL_PREFIX_FOR_OCCURRENCE_PROPORTION "occ_prop_of_"
#define VORL_NB_DIGIT_FOR_VALUE_NAME 5

KESTRUM_BEGIN_DECLS

/* Mean of one variable or of each; VORL_MISSING_VALUE if there is no value. */
KESTRUM_API int VORLGetImageOneVarValueMean(VORL_IMAGE* image, int iv, real* mean) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLGetImageVarValueMean(VORL_IMAGE* image, real* mean) KESTRUM_NOEXCEPT;

/* Standard deviation about a given mean, with the divisor count - 1; for a single value, its distance from the mean.
 *   mean  in: one mean, or one per variable.
 *   sd    out: VORL_MISSING_VALUE if the mean is, or if there is no value. */
KESTRUM_API int VORLGetImageOneVarValueSD(VORL_IMAGE* image, int iv, real* mean, real* sd) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLGetImageVarValueSD(VORL_IMAGE* image, real* mean, real* sd) KESTRUM_NOEXCEPT;

/* Number of informed values, minimum, maximum and maximum - minimum; the last three are VORL_MISSING_VALUE if there
 * is no value. */
KESTRUM_API int VORLGetImageOneVarValueRange(VORL_IMAGE* image, int iv, int* ninformed, real* min, real* max,
                                             real* range) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLGetImageVarValueRange(VORL_IMAGE* image, int* ninformed, real* min, real* max,
                                          real* range) KESTRUM_NOEXCEPT;

/* Distribution of the distinct values, of one image or of several taken together (-30 if their numbers of variables
 * differ; their grids may).
 *   nvalue    out: number of distinct values, 0 if all are missing.
 *   value     out: the distinct values, ascending; allocated here, released by the caller with VORLFree; untouched if
 *             nvalue is 0.
 *   pdf       out: the proportion of each among the informed values; as value.
 *   nmissing  out: number of missing values; 0 if a value lies below VORL_MISSING_VALUE, and then the missing ones
 *             count as a value.
 * -620 if the images have more nodes together than an int can count.
 * At failure what was handed over for earlier variables stays with the caller. */
KESTRUM_API int VORLGetImageOneVarValuePdf(VORL_IMAGE* image, int iv, int* nvalue, real** value, double** pdf,
                                           int* nmissing) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLGetImageVarValuePdf(VORL_IMAGE* image, int* nvalue, real** value, double** pdf,
                                        int* nmissing) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLGetNImageOneVarValuePdf(int nimage, VORL_IMAGE* images, int iv, int* nvalue, real** value,
                                            double** pdf, int* nmissing) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLGetNImageVarValuePdf(int nimage, VORL_IMAGE* images, int* nvalue, real** value, double** pdf,
                                         int* nmissing) KESTRUM_NOEXCEPT;

/* Position of each node's value in an ascending list.
 *   value  in: nvalue entries.
 *   index  out: one entry per node; -1 for a missing value and for one that is not in the list. */
KESTRUM_API int VORLGetImageOneVarValueIndex(VORL_IMAGE* image, int iv, int nvalue, real* value,
                                             int* index) KESTRUM_NOEXCEPT;

/* Number of missing nodes of each variable. */
KESTRUM_API int VORLGetImageNumberVarValueMissing(VORL_IMAGE* image, int* nmissing) KESTRUM_NOEXCEPT;

/* Marks the nodes where at least one variable is missing.
 *   missing  out: one entry per node, 1 or 0.
 *   count    out: number of such nodes. */
KESTRUM_API int VORLGetImageVarVectorMissing(VORL_IMAGE* image, BOOLEAN* missing, int* count) KESTRUM_NOEXCEPT;

/* Counts, extremes, means and covariances of all variables.
 *   n               out: nvar by nvar, number of nodes where both variables are informed.
 *   min, max, mean  out: 1e25, -1e25 and 0 for a variable without a value.
 *   cov             out: nvar by nvar, about the means over the pair's own nodes, with the divisor n - 1, at least 1;
 *                   0 without nodes.
 * A null array gives -20. */
KESTRUM_API int VORLGetImageVarStats(VORL_IMAGE* image, int** n, double* min, double* max, double* mean,
                                     double** cov) KESTRUM_NOEXCEPT;

/* Statistics across the variables at each node.
 *   out        out: an image whose pointers are unused, on the same grid. With ncategory below 1 the variables "min",
 *              "max", "mean", "std"; otherwise one per category, the proportion of variables equal to it. Every
 *              division is by nvar, missing values included; a node without a value has 1e25, -1e25, 0, 0. Released by
 *              the caller, also at failure.
 *   category   in: ncategory values; may be null if ncategory is below 1.
 * Returns 0; -20 for a null array, or if out is image; -620 if out would have more values than an int can
 * count; the status of VORLMallocImage. */
KESTRUM_API int VORLGetImageVarStatsLocal(VORL_IMAGE* image, VORL_IMAGE* out, int ncategory,
                                          real* category) KESTRUM_NOEXCEPT;

/* Writes grid, names, counts, statistics and distributions to stream, each line with prefix in front; an empty line
 * has none.
 *   ndetail  a distribution with more distinct values than this is not listed. */
KESTRUM_API int VORLPrintImageInfo(VORL_IMAGE* image, char* prefix, FILE* stream, int ndetail) KESTRUM_NOEXCEPT;

/* Turns every informed value v into v*a + b, in place; the VORLOMP form on nthreads threads (one if it is below 1). */
KESTRUM_API int VORLTransformLinearImageVar(VORL_IMAGE* image, int iv, real a, real b) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLTransformLinearVector(real* vector, int nvalue, real a, real b) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPTransformLinearVector(real* vector, int nvalue, real a, real b, int nthreads) KESTRUM_NOEXCEPT;

/* Maps every informed value by linear interpolation between n points, in place; constant beyond the first and the last
 * point; the VORLOMP form on nthreads threads (one if it is below 1).
 *   x, y  in: n entries each, x ascending; without points the values stay, and a NaN always does. */
KESTRUM_API int VORLTransformExplicitImageVar(VORL_IMAGE* image, int iv, int n, real* x, real* y) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLTransformExplicitVector(real* vector, int nvalue, int n, real* x, real* y) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPTransformExplicitVector(real* vector, int nvalue, int n, real* x, real* y,
                                               int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
