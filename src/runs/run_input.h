#ifndef KESTRUM_RUNS_RUN_INPUT_H
#define KESTRUM_RUNS_RUN_INPUT_H

#include <stdio.h>

#include "core/grid.h"
#include "core/image.h"
#include "core/point_set.h"
#include "core/progress_monitor.h"
#include "core/types.h"
#include "covariance/cov_model.h"

/* The input of a run on a continuous variable, the output of every run, and what a run may be told to do.
 *
 * A record is zeroed by its init function, filled by the caller, read and partly rewritten by one run, and released by
 * its free function. All that it points to belongs to it and comes from VORLMalloc (calloc and malloc serve as well).
 *
 * Thread safety: the functions have no state; calls on different records may run at the same time. Validation writes to
 * the images of the record, so two runs must not share one.
 */

#define VORL_KESTRUM_VERSION_NUMBER "2.0"
#define VORL_KESTRUM_BUILD_NUMBER "20240322"

/* Parts of output names, "%s%s%0*d" of variable name (or file name), suffix, number of digits and number. */
#define VORL_KESTRUM_SUFFIX_FOR_REALIZATION "_real"
#define VORL_KESTRUM_SUFFIX_FOR_ESTIMATE "_est"
#define VORL_KESTRUM_SUFFIX_FOR_ST_DEV "_std"
#define VORL_KESTRUM_SUFFIX_FOR_PROBABILITY "_prob"
#define VORL_KESTRUM_NB_DIGIT_FOR_REALIZATION_NUMBER 5
#define VORL_KESTRUM_NB_DIGIT_FOR_CATEGORY_INDEX 3

/* Bounds that validation applies. */
#define VORL_KESTRUM_SEARCHRADIUSRELATIVE_MIN 1e-6
#define VORL_KESTRUM_NGIBBSSAMPLERPATH_MIN 1
#define VORL_KESTRUM_NGIBBSSAMPLERPATH_MAX 100000
#define VORL_KESTRUM_MAX_NREALIZATION 1000000

KESTRUM_BEGIN_DECLS

/* Which files a run writes. */
typedef enum {
  KESTRUM_OUTPUT_NO_FILE,         /* none */
  KESTRUM_OUTPUT_ALL_IN_ONE_FILE, /* one file with all results */
  KESTRUM_OUTPUT_SEPARATE_FILE    /* one file for each result */
} VORL_KESTRUMOUTPUTMODE;

/* What a run computes. */
typedef enum {
  KESTRUM_OK,     /* estimation by ordinary kriging */
  KESTRUM_SK,     /* estimation by simple kriging */
  KESTRUM_SIM_OK, /* sequential simulation with ordinary kriging */
  KESTRUM_SIM_SK  /* sequential simulation with simple kriging */
} VORL_KESTRUMCOMPUTATIONMODE;

typedef struct vorl_kestrumInput VORL_KESTRUMINPUT;

struct vorl_kestrumInput {
  BOOLEAN consoleAppFlag;                      /* FALSE: the result goes to the output record; TRUE: files only */
  char* simName;                               /* name of the run, used by nobody */
  VORL_GRID* simGrid;                          /* simulation grid */
  char* varName;                               /* name of the variable, root of the names in the output */
  char* formatString;                          /* printf format of a value in image files, beginning with '%' */
  VORL_KESTRUMOUTPUTMODE outputMode;           /* which files are written */
  char* outputImageFileName;                   /* file name, or root of the file names */
  BOOLEAN outputReportFlag;                    /* TRUE: write a report file */
  char* outputReportFileName;                  /* name of the report file */
  VORL_KESTRUMCOMPUTATIONMODE computationMode; /* what is computed */
  VORL_COVMODEL* covModel;                     /* covariance model */
  real searchRadiusRelative;      /* factor on the ranges, at least 1e-6; -1.0: unique neighbourhood (all data) */
  int nneighborMax;               /* maximal number of neighbours; negative: unlimited; 0 is refused */
  int searchNeighborhoodSortMode; /* order of the neighbourhood: 0, 1, or 2 */
  int ndataImage;                 /* number of conditioning images */
  VORL_IMAGE* dataImage;          /* vector of ndataImage images */
  int ndataPointSet;              /* number of conditioning point sets */
  VORL_POINTSET* dataPointSet;    /* vector of ndataPointSet point sets */
  BOOLEAN maskImageFlag;          /* TRUE: maskImage is used */
  VORL_IMAGE* maskImage;          /* one variable of 0.0 (left out) and 1.0; null if not used */
  int meanUsage;                  /* 0: mean of the hard data; 1: meanValue; 2: meanImage */
  real meanValue;                 /* mean; a run with usage 0 stores the mean of the data here */
  VORL_IMAGE* meanImage;          /* one variable on simGrid */
  int varianceUsage;              /* 0: sill of the model; 1: varianceValue; 2: varianceImage */
  real varianceValue;             /* variance, at least 1e-6; a run replaces it by a scale factor */
  VORL_IMAGE* varianceImage;      /* one variable on simGrid, at least 1e-6; replaced likewise */
  int nGibbsSamplerPathMin;       /* smallest number of Gibbs passes over the inequality nodes, at least 1 */
  int nGibbsSamplerPathMax;       /* largest number of such passes, at most 100000 */
  int seed;                       /* seed of the first realization */
  int seedIncrement;              /* difference of the seeds of successive realizations */
  int nrealization;               /* number of realizations, at most 1000000 */
};

typedef struct vorl_kestrumOutput VORL_KESTRUMOUTPUT;

struct vorl_kestrumOutput {
  VORL_IMAGE* outputImage; /* result of a run with consoleAppFlag FALSE, owned by the record; null before */
};

/* Sets every field to zero or null.
 *   input  out; what it held is not released */
KESTRUM_API void VORLKestrumInitKestrumInput(VORL_KESTRUMINPUT* input) KESTRUM_NOEXCEPT;

/* Releases all that the record points to; neither resets its fields nor releases the record.
 *   input  in; null allowed */
KESTRUM_API void VORLKestrumFreeKestrumInput(VORL_KESTRUMINPUT* input) KESTRUM_NOEXCEPT;

/* Sets the image to null.
 *   output  out; what it held is not released */
KESTRUM_API void VORLKestrumInitKestrumOutput(VORL_KESTRUMOUTPUT* output) KESTRUM_NOEXCEPT;

/* Releases the image; neither resets the field nor releases the record.
 *   output  in; null allowed */
KESTRUM_API void VORLKestrumFreeKestrumOutput(VORL_KESTRUMOUTPUT* output) KESTRUM_NOEXCEPT;

/* Writes the input in words. It may be an input that validation would refuse; of a null record only the heading is
 * written.
 *   input   in
 *   prefix  in; put in front of each line, with three blanks more for nested records
 *   stream  in; open for writing
 * Statuses: those of VORLMalloc; those of the nested prints. */
KESTRUM_API int VORLKestrumPrintKestrumInput(VORL_KESTRUMINPUT* input, char* prefix, FILE* stream) KESTRUM_NOEXCEPT;

/* Writes the banner of three lines.
 *   version, build  in; texts put in the banner
 *   threadFlag      TRUE: the banner tells the number of threads; FALSE: it says "Serial"
 *   nthreads        number of threads
 *   stream          in; open for writing
 * Gives 0. */
KESTRUM_API int VORLKestrumPrintVersion(char* version, char* build, BOOLEAN threadFlag, int nthreads,
                                        FILE* stream) KESTRUM_NOEXCEPT;

/* Tests the input against all rules, and tells how stationary its covariance model is.
 *   input               in and out; at nodes left out by the mask the images of the mean, of the variance and of the
 *                       model's parameters are set to missing, up to the first rule broken
 *   rotationStationary  out; TRUE: no angle has an image
 *   weightStationary    out; TRUE: no weight has an image
 *   rangeStationary     out; TRUE: no range has an image
 *   covModelStationary  out; TRUE: no parameter has an image. The four flags are set when the model is looked at
 *   progressMonitor     in; its abort flag is tested after each nested record; null allowed
 *   progressCallback    not called
 *   validationError     out; 0, or the negative row number of the first rule broken
 * Statuses: 0, also for a broken rule; -1000 aborted; those of the nested validators.
 * What a null pointer breaks: simGrid -601, formatString with consoleAppFlag -71048, outputImageFileName in a file mode
 * -71052, maskImage with maskImageFlag -1902, covModel -71009, dataImage -621, dataPointSet -641. */
KESTRUM_API int VORLKestrumValidateKestrumInput(VORL_KESTRUMINPUT* input, BOOLEAN* rotationStationary,
                                                BOOLEAN* weightStationary, BOOLEAN* rangeStationary,
                                                BOOLEAN* covModelStationary, VORL_PROGRESSMONITOR* progressMonitor,
                                                int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                                int* validationError) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
