#ifndef KESTRUM_RUNS_INDICATOR_RUN_INPUT_H
#define KESTRUM_RUNS_INDICATOR_RUN_INPUT_H

/** @file
 * The input of a run on a categorical variable. Its output is VORL_KESTRUMOUTPUT. Life and ownership are those of
 * VORL_KESTRUMINPUT.
 */

#include <stdio.h>

#include "../core/grid.h"
#include "../core/image.h"
#include "../core/point_set.h"
#include "../core/progress_monitor.h"
#include "../core/types.h"
#include "../covariance/cov_model.h"
#include "../runs/run_input.h"

#define VORL_KESTRUM_NCATEGORY_MAX 100 /**< largest number of categories */
/** Largest deviation from 1.0 of a sum of probabilities that is corrected; above, the sum is refused. */
#define VORL_KESTRUM_TOLEREANCE_ON_SUM_PROBABILITY 0.01

KESTRUM_BEGIN_DECLS

typedef struct vorl_kestrumIndicatorInput VORL_KESTRUMINDICATORINPUT; /**< see vorl_kestrumIndicatorInput */

/** The input of a run on a categorical variable. */
struct vorl_kestrumIndicatorInput {
  BOOLEAN consoleAppFlag; /**< FALSE: the result goes to the output record; TRUE: files only */
  char* simName;          /**< name of the run; not used, null is allowed */
  VORL_GRID* simGrid;     /**< simulation grid, a valid one */
  char* varName;          /**< name of the variable, at most 245 characters: root of the names in the output */
  /** Printf format of a value in image files, with a percent sign at the start; validated with consoleAppFlag alone. */
  char* formatString;
  int ncategory;       /**< number of categories, 1 to 100; 1: binary variable, whose other value is 0.0 */
  real* categoryValue; /**< ncategory values, informed and distinct; not 0.0 if there is one category */
  VORL_KESTRUMOUTPUTMODE outputMode; /**< which image files are written */
  /** File name, or root of the file names; at most 511 characters, 495 for several files. */
  char* outputImageFileName;
  BOOLEAN outputReportFlag;                    /**< TRUE: write a report file */
  char* outputReportFileName;                  /**< name of the report file, at most 511 characters */
  VORL_KESTRUMCOMPUTATIONMODE computationMode; /**< what is computed */
  VORL_COVMODEL* covModel;                     /**< ncategory covariance models */
  /** Factor on the ranges for each category, at least 1e-6; -1.0: unique neighbourhood, estimations only. */
  real* searchRadiusRelative;
  int* nneighborMax;               /**< ncategory largest numbers of neighbours, at least 1; negative: unlimited */
  int* searchNeighborhoodSortMode; /**< ncategory orders of neighbours, 0 to 2 as in VORL_KESTRUMINPUT */
  int ndataImage;                  /**< number of conditioning images; 0: none */
  VORL_IMAGE* dataImage;           /**< vector of ndataImage images with as many nodes along each axis as simGrid */
  int ndataPointSet;               /**< number of conditioning point sets; 0: none */
  VORL_POINTSET* dataPointSet;     /**< vector of ndataPointSet point sets */
  BOOLEAN maskImageFlag;           /**< TRUE: maskImage is used */
  /** One variable on simGrid of 0.0 (left out) and 1.0 (takes part); null if not used. */
  VORL_IMAGE* maskImage;
  int probabilityUsage; /**< 0: proportions of the hard data; 1: probabilityValue; 2: probabilityImage */
  /** Probability of each category, of sum 1 (one category: 0 to 1); a run with usage 0 allocates it. */
  real* probabilityValue;
  VORL_IMAGE* probabilityImage; /**< ncategory variables on simGrid, likewise at each node; null if not used */
  int seed;                     /**< seed of the first realization, any */
  /** Difference of the seeds of successive realizations; best above the number of nodes. */
  int seedIncrement;
  int nrealization; /**< number of realizations, at most 1000000; for simulations alone */
};

/** Sets every field to zero or null.
 *
 * @param[out] input the input; what it held is not released */
KESTRUM_API void VORLKestrumInitKestrumIndicatorInput(VORL_KESTRUMINDICATORINPUT* input) KESTRUM_NOEXCEPT;

/** Releases all that the input points to, ncategory models among it, not the record. The fields keep their values.
 *
 * @param[in,out] input the input; null is ignored */
KESTRUM_API void VORLKestrumFreeKestrumIndicatorInput(VORL_KESTRUMINDICATORINPUT* input) KESTRUM_NOEXCEPT;

/** Writes the input in words.
 *
 * @param[in] input the input, which may be one that validation would refuse; of null only the heading is written, of a
 *   null vector nothing
 * @param[in] prefix text in front of each line, with three blanks more for nested records
 * @param[in,out] stream open for writing
 * @return 0; allocation statuses */
KESTRUM_API int VORLKestrumPrintKestrumIndicatorInput(VORL_KESTRUMINDICATORINPUT* input, char* prefix,
                                                      FILE* stream) KESTRUM_NOEXCEPT;

/** Tests the input against all rules, and reports how stationary the covariance model of each category is.
 *
 * The four vectors are allocated here, with ncategory entries, and released by the caller with VORLFree. All four are
 * null if a step fails or a rule is broken, but for the rule on nrealization, which is the last.
 *
 * @param[in,out] input the input, as in VORLKestrumValidateKestrumInput. Probabilities whose sum is within 0.01 of 1.0
 *   are scaled to a sum of 1.0; nodes of probabilityImage left out by the mask keep their values
 * @param[out] rotationStationary for each category TRUE: no angle has an image
 * @param[out] weightStationary for each category TRUE: no weight has an image
 * @param[out] rangeStationary for each category TRUE: no range has an image
 * @param[out] covModelStationary for each category TRUE: no parameter has an image
 * @param[in] progressMonitor its abort flag is tested after each nested record; null is allowed
 * @param progressCallback not called; null is allowed
 * @param[out] validationError 0, or the negative row number of the first rule broken. What a null pointer breaks:
 *   simGrid -601; varName -71046; formatString with consoleAppFlag -71048; outputImageFileName in a file mode -71052;
 *   maskImage with maskImageFlag -1902; covModel -71009; dataImage -621; dataPointSet -641; categoryValue -71112;
 *   searchRadiusRelative -71070; nneighborMax -71062; searchNeighborhoodSortMode -71067
 * @return 0, also for a broken rule; -1000: aborted; those of the nested validators; allocation statuses */
KESTRUM_API int VORLKestrumValidateKestrumIndicatorInput(VORL_KESTRUMINDICATORINPUT* input,
                                                         BOOLEAN** rotationStationary, BOOLEAN** weightStationary,
                                                         BOOLEAN** rangeStationary, BOOLEAN** covModelStationary,
                                                         VORL_PROGRESSMONITOR* progressMonitor,
                                                         int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                                         int* validationError) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
