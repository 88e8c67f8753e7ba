#ifndef KESTRUM_RUNS_RUN_INPUT_H
#define KESTRUM_RUNS_RUN_INPUT_H

/** @file
 * The input of a run on a continuous variable, the output of every run, and what a run can do.
 *
 * A record is zeroed by its init function, filled by the caller, read and partly rewritten by one run, and released by
 * its free function. All that it points to belongs to it and comes from VORLMalloc (calloc and malloc serve as well).
 * Validation writes to the images of the record, so two runs must not share one.
 */

#include <stdio.h>

#include "../core/grid.h"
#include "../core/image.h"
#include "../core/point_set.h"
#include "../core/progress_monitor.h"
#include "../core/types.h"
#include "../covariance/cov_model.h"

#define VORL_KESTRUM_VERSION_NUMBER "2.0"    /**< version in the banner of a report */
#define VORL_KESTRUM_BUILD_NUMBER "20240322" /**< build in the banner of a report */

#define VORL_KESTRUM_SUFFIX_FOR_REALIZATION "_real"    /**< in an output name, behind the root: a realization */
#define VORL_KESTRUM_SUFFIX_FOR_ESTIMATE "_est"        /**< in an output name, behind the root: an estimate */
#define VORL_KESTRUM_SUFFIX_FOR_ST_DEV "_std"          /**< in an output name, behind the root: a standard deviation */
#define VORL_KESTRUM_SUFFIX_FOR_PROBABILITY "_prob"    /**< in an output name, behind the root: a probability */
#define VORL_KESTRUM_NB_DIGIT_FOR_REALIZATION_NUMBER 5 /**< digits of the number of a realization in a name */
#define VORL_KESTRUM_NB_DIGIT_FOR_CATEGORY_INDEX 3     /**< digits of the index of a category in a name */

#define VORL_KESTRUM_SEARCHRADIUSRELATIVE_MIN 1e-6 /**< least searchRadiusRelative but -1.0 */
#define VORL_KESTRUM_NGIBBSSAMPLERPATH_MIN 1       /**< least nGibbsSamplerPathMin */
#define VORL_KESTRUM_NGIBBSSAMPLERPATH_MAX 100000  /**< greatest nGibbsSamplerPathMax */
#define VORL_KESTRUM_MAX_NREALIZATION 1000000      /**< greatest nrealization */

KESTRUM_BEGIN_DECLS

/** Which image files a run writes. */
typedef enum {
  KESTRUM_OUTPUT_NO_FILE,         /**< none */
  KESTRUM_OUTPUT_ALL_IN_ONE_FILE, /**< one file with all results */
  KESTRUM_OUTPUT_SEPARATE_FILE    /**< one file for each result */
} VORL_KESTRUMOUTPUTMODE;

/** What a run computes. */
typedef enum {
  KESTRUM_OK,     /**< estimation by ordinary kriging */
  KESTRUM_SK,     /**< estimation by simple kriging */
  KESTRUM_SIM_OK, /**< sequential simulation with ordinary kriging */
  KESTRUM_SIM_SK  /**< sequential simulation with simple kriging */
} VORL_KESTRUMCOMPUTATIONMODE;

typedef struct vorl_kestrumInput VORL_KESTRUMINPUT; /**< see vorl_kestrumInput */

/** The input of a run on a continuous variable. */
struct vorl_kestrumInput {
  BOOLEAN consoleAppFlag; /**< FALSE: the result goes to the output record; TRUE: files only */
  char* simName;          /**< name of the run; not used, null is allowed */
  VORL_GRID* simGrid;     /**< simulation grid, a valid one */
  char* varName;          /**< name of the variable, at most 245 characters: root of the names in the output */
  /** Printf format of a value in image files, with a percent sign at the start; validated with consoleAppFlag alone. */
  char* formatString;
  VORL_KESTRUMOUTPUTMODE outputMode; /**< which image files are written */
  /** File name, or root of the file names; at most 511 characters, 495 for several files. */
  char* outputImageFileName;
  BOOLEAN outputReportFlag;                    /**< TRUE: write a report file */
  char* outputReportFileName;                  /**< name of the report file, at most 511 characters */
  VORL_KESTRUMCOMPUTATIONMODE computationMode; /**< what is computed */
  VORL_COVMODEL* covModel;                     /**< covariance model */
  /** Factor on the ranges, at least 1e-6; -1.0: unique neighbourhood (all data), estimations only. */
  real searchRadiusRelative;
  int nneighborMax; /**< largest number of neighbours, at least 1; negative: unlimited */
  /** Order of neighbours, by 0: Euclidean distance; 1: distance in the ellipsoid; 2: covariance, with a stationary
   * model. */
  int searchNeighborhoodSortMode;
  int ndataImage;              /**< number of conditioning images; 0: none */
  VORL_IMAGE* dataImage;       /**< vector of ndataImage images with as many nodes along each axis as simGrid */
  int ndataPointSet;           /**< number of conditioning point sets; 0: none */
  VORL_POINTSET* dataPointSet; /**< vector of ndataPointSet point sets */
  BOOLEAN maskImageFlag;       /**< TRUE: maskImage is used */
  /** One variable on simGrid of 0.0 (left out) and 1.0 (takes part); null if not used. */
  VORL_IMAGE* maskImage;
  int meanUsage;         /**< 0: mean of the hard data; 1: meanValue; 2: meanImage */
  real meanValue;        /**< mean; a run with usage 0 stores the mean of the data here */
  VORL_IMAGE* meanImage; /**< one variable on simGrid, informed where the mask is not 0.0; null if not used */
  /** 0: sill of the model; 1: varianceValue; 2: varianceImage. 1, 2: simple kriging, constant weights. */
  int varianceUsage;
  real varianceValue;        /**< variance, at least 1e-6; a run replaces it by a scale factor */
  VORL_IMAGE* varianceImage; /**< one variable on simGrid, at least 1e-6; replaced likewise; null if not used */
  /** Least number of Gibbs passes over the inequality nodes, at least 1; for simulations alone. */
  int nGibbsSamplerPathMin;
  /** Greatest number of such passes, nGibbsSamplerPathMin to 100000; for simulations alone. */
  int nGibbsSamplerPathMax;
  int seed; /**< seed of the first realization, any */
  /** Difference of the seeds of successive realizations; best above the number of nodes. */
  int seedIncrement;
  int nrealization; /**< number of realizations, at most 1000000; for simulations alone */
};

typedef struct vorl_kestrumOutput VORL_KESTRUMOUTPUT; /**< see vorl_kestrumOutput */

/** The output of a run. */
struct vorl_kestrumOutput {
  VORL_IMAGE* outputImage; /**< result of a run with consoleAppFlag FALSE, owned by the record; null before */
};

/** Sets every field to zero or null.
 *
 * @param[out] input the input; what it held is not released */
KESTRUM_API void VORLKestrumInitKestrumInput(VORL_KESTRUMINPUT* input) KESTRUM_NOEXCEPT;

/** Releases all that the input points to, not the record. The fields keep their values.
 *
 * @param[in,out] input the input; null is ignored */
KESTRUM_API void VORLKestrumFreeKestrumInput(VORL_KESTRUMINPUT* input) KESTRUM_NOEXCEPT;

/** Sets the image to null.
 *
 * @param[out] output the output; what it held is not released */
KESTRUM_API void VORLKestrumInitKestrumOutput(VORL_KESTRUMOUTPUT* output) KESTRUM_NOEXCEPT;

/** Releases the image, not the record. The field keeps its value.
 *
 * @param[in,out] output the output; null is ignored */
KESTRUM_API void VORLKestrumFreeKestrumOutput(VORL_KESTRUMOUTPUT* output) KESTRUM_NOEXCEPT;

/** Writes the input in words.
 *
 * @param[in] input the input, which may be one that validation would refuse; of null only the heading is written
 * @param[in] prefix text in front of each line, with three blanks more for nested records
 * @param[in,out] stream open for writing
 * @return 0; allocation statuses */
KESTRUM_API int VORLKestrumPrintKestrumInput(VORL_KESTRUMINPUT* input, char* prefix, FILE* stream) KESTRUM_NOEXCEPT;

/** Writes the banner of three lines.
 *
 * @param[in] version text put in the banner
 * @param[in] build text put in the banner
 * @param threadFlag TRUE: the banner gives the number of threads; FALSE: it says "Serial"
 * @param nthreads number of threads
 * @param[in,out] stream open for writing
 * @return 0 */
KESTRUM_API int VORLKestrumPrintVersion(char* version, char* build, BOOLEAN threadFlag, int nthreads,
                                        FILE* stream) KESTRUM_NOEXCEPT;

/** Tests the input against all rules, and reports how stationary its covariance model is.
 *
 * The four flags are set when the model is looked at.
 *
 * @param[in,out] input the input. At nodes left out by the mask the images of the mean, of the variance and of the
 *   model's parameters are set to missing, up to the first rule broken
 * @param[out] rotationStationary TRUE: no angle has an image
 * @param[out] weightStationary TRUE: no weight has an image
 * @param[out] rangeStationary TRUE: no range has an image
 * @param[out] covModelStationary TRUE: no parameter has an image
 * @param[in] progressMonitor its abort flag is tested after each nested record; null is allowed
 * @param progressCallback not called; null is allowed
 * @param[out] validationError 0, or the negative row number of the first rule broken. What a null pointer breaks:
 *   simGrid -601; varName -71046; formatString with consoleAppFlag -71048; outputImageFileName in a file mode -71052;
 *   maskImage with maskImageFlag -1902; covModel -71009; dataImage -621; dataPointSet -641
 * @return 0, also for a broken rule; -1000: aborted; those of the nested validators */
KESTRUM_API int VORLKestrumValidateKestrumInput(VORL_KESTRUMINPUT* input, BOOLEAN* rotationStationary,
                                                BOOLEAN* weightStationary, BOOLEAN* rangeStationary,
                                                BOOLEAN* covModelStationary, VORL_PROGRESSMONITOR* progressMonitor,
                                                int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                                int* validationError) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
