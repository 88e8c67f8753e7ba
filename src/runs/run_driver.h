#ifndef KESTRUM_RUNS_RUN_DRIVER_H
#define KESTRUM_RUNS_RUN_DRIVER_H

#include "core/progress_monitor.h"
#include "core/types.h"
#include "runs/indicator_run_input.h"
#include "runs/run_input.h"

/* The entry points of the engine: one call takes a filled run input and gives one output image, or files, or both.
 *
 *   input               in and out: validated here. The run takes the conditioning data out of the record and releases
 *                       them, writes the mean of the data to meanValue (or the proportions to probabilityValue) where
 *                       they are asked for, turns the variance into a ratio of standard deviations, and marks masked
 *                       nodes in the parameter images: a filled record serves for one run. Still the caller's.
 *   output              initialised by the caller; receives the result image in outputImage if consoleAppFlag is FALSE,
 *                       which the record then owns (VORLKestrumFreeKestrumOutput). Untouched by a run that fails.
 *   progressMonitor, progressCallback   initialised by the caller; may be null. A caller that sets abortedJobFlag ends
 *                       the run at its next test. The callback is never called from two threads at once; one of a
 *                       threaded run must not start another run.
 *   nthreads            number of threads, at least 1. The values of a run do not depend on it.
 *
 * Statuses: -99 nthreads below 1; -110 report or output file cannot be opened; -1000 aborted; the number of the first
 * rule of the input that is broken; those of allocations and of the routines called. Report and output files written
 * before a failure stay.
 * Thread safety: runs on different records may go on at the same time.
 */

KESTRUM_BEGIN_DECLS

/* A run on a continuous variable: kriging estimation with its standard deviation, by the nearest data or by all data,
 * or realizations by sequential Gaussian simulation. */
KESTRUM_API int VORLKestrumSim(VORL_KESTRUMINPUT* input, VORL_KESTRUMOUTPUT* output,
                               VORL_PROGRESSMONITOR* progressMonitor,
                               int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/* As VORLKestrumSim, on `nthreads` threads. */
KESTRUM_API int VORLOMPKestrumSim(VORL_KESTRUMINPUT* input, VORL_KESTRUMOUTPUT* output,
                                  VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                  int nthreads) KESTRUM_NOEXCEPT;

/* A run on a categorical variable: probabilities of the categories by indicator kriging, or realizations by sequential
 * indicator simulation.
 * Further statuses: -71115, -71116 a datum is no category.
 */
KESTRUM_API int VORLKestrumIndicatorSim(VORL_KESTRUMINDICATORINPUT* input, VORL_KESTRUMOUTPUT* output,
                                        VORL_PROGRESSMONITOR* progressMonitor,
                                        int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/* As VORLKestrumIndicatorSim, on `nthreads` threads. */
KESTRUM_API int VORLOMPKestrumIndicatorSim(VORL_KESTRUMINDICATORINPUT* input, VORL_KESTRUMOUTPUT* output,
                                           VORL_PROGRESSMONITOR* progressMonitor,
                                           int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                           int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
