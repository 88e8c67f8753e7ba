#ifndef KESTRUM_RUNS_INDICATOR_RUN_INPUT_H
#define KESTRUM_RUNS_INDICATOR_RUN_INPUT_H

#include <stdio.h>

#include "core/grid.h"
#include "core/image.h"
#include "core/point_set.h"
#include "core/progress_monitor.h"
#include "core/types.h"
#include "covariance/cov_model.h"
#include "runs/run_input.h"

/* The input of a run on a categorical variable. Its output is VORL_KESTRUMOUTPUT. Life, ownership and thread safety are
 * those of VORL_KESTRUMINPUT. */

/* Largest number of categories. */
#define VORL_KESTRUM_NCATEGORY_MAX 100
/* Largest deviation from 1.0 of a sum of probabilities that is corrected; above, the sum is refused. */
#define VORL_KESTRUM_TOLEREANCE_ON_SUM_PROBABILITY 0.01

KESTRUM_BEGIN_DECLS

typedef struct vorl_kestrumIndicatorInput VORL_KESTRUMINDICATORINPUT;

/* A field without a comment is that of VORL_KESTRUMINPUT; a vector "by category" has ncategory entries. */
struct vorl_kestrumIndicatorInput {
  BOOLEAN consoleAppFlag;
  char* simName;
  VORL_GRID* simGrid;
  char* varName;
  char* formatString;
  int ncategory;       /* number of categories, 1 to 100; 1: binary variable, whose other value is 0.0 */
  real* categoryValue; /* values, by category: informed and distinct; not 0.0 if there is one category */
  VORL_KESTRUMOUTPUTMODE outputMode;
  char* outputImageFileName;
  BOOLEAN outputReportFlag;
  char* outputReportFileName;
  VORL_KESTRUMCOMPUTATIONMODE computationMode;
  VORL_COVMODEL* covModel;         /* covariance models, by category */
  real* searchRadiusRelative;      /* factors on the ranges, by category; -1.0: unique neighbourhood */
  int* nneighborMax;               /* maximal numbers of neighbours, by category */
  int* searchNeighborhoodSortMode; /* orders of the neighbourhoods, by category */
  int ndataImage;
  VORL_IMAGE* dataImage;
  int ndataPointSet;
  VORL_POINTSET* dataPointSet;
  BOOLEAN maskImageFlag;
  VORL_IMAGE* maskImage;
  int probabilityUsage;         /* 0: proportions of the hard data; 1: probabilityValue; 2: probabilityImage */
  real* probabilityValue;       /* probabilities, by category; a run with usage 0 allocates it */
  VORL_IMAGE* probabilityImage; /* ncategory variables on simGrid */
  int seed;
  int seedIncrement;
  int nrealization;
};

/* Sets every field to zero or null.
 *   input  out; what it held is not released */
KESTRUM_API void VORLKestrumInitKestrumIndicatorInput(VORL_KESTRUMINDICATORINPUT* input) KESTRUM_NOEXCEPT;

/* Releases all that the record points to (ncategory models among it); neither resets its fields nor releases the
 * record.
 *   input  in; null allowed */
KESTRUM_API void VORLKestrumFreeKestrumIndicatorInput(VORL_KESTRUMINDICATORINPUT* input) KESTRUM_NOEXCEPT;

/* Writes the input in words. It may be an input that validation would refuse; of a null record only the heading is
 * written, of a null vector nothing.
 *   input   in
 *   prefix  in; put in front of each line, with three blanks more for nested records
 *   stream  in; open for writing
 * Statuses: those of VORLMalloc; those of the nested prints. */
KESTRUM_API int VORLKestrumPrintKestrumIndicatorInput(VORL_KESTRUMINDICATORINPUT* input, char* prefix,
                                                      FILE* stream) KESTRUM_NOEXCEPT;

/* Tests the input against all rules, and tells how stationary the covariance model of each category is.
 *   input               in and out; as in VORLKestrumValidateKestrumInput. Probabilities whose sum is within
 *                       0.01 of 1.0 are scaled to a sum of 1.0; nodes of probabilityImage left out by the mask keep
 *                       their values
 *   rotationStationary  out; null, or a vector by category that belongs to the caller (VORLFree): see
 *                       VORLKestrumValidateKestrumInput
 *   weightStationary, rangeStationary, covModelStationary   likewise. All four are null if a step fails or a rule is
 *                       broken, but for the rule on nrealization, which is the last
 *   progressMonitor, progressCallback, validationError      as in VORLKestrumValidateKestrumInput
 * Statuses: 0, also for a broken rule; -1000 aborted; those of VORLMalloc and of the nested validators.
 * What a null pointer breaks, beyond what VORLKestrumValidateKestrumInput tells: categoryValue -71112,
 * searchRadiusRelative -71070, nneighborMax -71062, searchNeighborhoodSortMode -71067. */
KESTRUM_API int VORLKestrumValidateKestrumIndicatorInput(VORL_KESTRUMINDICATORINPUT* input,
                                                         BOOLEAN** rotationStationary, BOOLEAN** weightStationary,
                                                         BOOLEAN** rangeStationary, BOOLEAN** covModelStationary,
                                                         VORL_PROGRESSMONITOR* progressMonitor,
                                                         int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                                         int* validationError) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
