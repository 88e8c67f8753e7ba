#ifndef KESTRUM_RUNS_RUN_DRIVER_H
#define KESTRUM_RUNS_RUN_DRIVER_H

/** @file
 * The entry points of the engine: one call takes a filled run input and gives one output image, or files, or both.
 */

#include "../core/progress_monitor.h"
#include "../core/types.h"
#include "../runs/indicator_run_input.h"
#include "../runs/run_input.h"

KESTRUM_BEGIN_DECLS

/** Runs on a continuous variable: kriging estimation with its standard deviation, by the nearest data or by all data,
 * or realizations by sequential Gaussian simulation.
 *
 * The input is validated first. The callback is never called from two threads at once; one of a threaded run must not
 * start another run. Report and output files written before a failure stay.
 *
 * @param[in,out] input the input. A filled record serves for one run: it takes the conditioning data out of the record
 *   and releases them, writes the mean of the data to meanValue where it is asked for, turns the variance into a ratio
 *   of standard deviations, and marks masked nodes in the parameter images. The record stays the caller's
 * @param[in,out] output initialised by the caller; receives the result image in outputImage if consoleAppFlag is FALSE,
 *   which the record then owns (VORLKestrumFreeKestrumOutput). Untouched by a run that fails
 * @param[in,out] progressMonitor initialised by the caller; its abortedJobFlag ends the run at its next test. Null is
 *   allowed
 * @param progressCallback called when the whole percentage grows, and for warnings (docs/statuses.md); null is allowed
 * @return 0; -110: report or output file cannot be opened; -1000: aborted; the number of the first rule of the input
 *   that is broken; those of the callback and of the routines called; allocation statuses */
KESTRUM_API int VORLKestrumSim(VORL_KESTRUMINPUT* input, VORL_KESTRUMOUTPUT* output,
                               VORL_PROGRESSMONITOR* progressMonitor,
                               int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/** Threaded form of VORLKestrumSim. The values of a run do not depend on the number of threads.
 * @copydetails VORLKestrumSim
 * @param nthreads number of threads, at least 1; -99 is the status of one below */
KESTRUM_API int VORLOMPKestrumSim(VORL_KESTRUMINPUT* input, VORL_KESTRUMOUTPUT* output,
                                  VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                  int nthreads) KESTRUM_NOEXCEPT;

/** Runs on a categorical variable: probabilities of the categories by indicator kriging, or realizations by sequential
 * indicator simulation.
 *
 * The input is validated first. The callback is never called from two threads at once; one of a threaded run must not
 * start another run. Report and output files written before a failure stay.
 *
 * @param[in,out] input the input. A filled record serves for one run: it takes the conditioning data out of the record
 *   and releases them, writes the proportions of the data to probabilityValue where they are asked for, and marks
 *   masked nodes in the parameter images. The record stays the caller's
 * @param[in,out] output initialised by the caller; receives the result image in outputImage if consoleAppFlag is FALSE,
 *   which the record then owns (VORLKestrumFreeKestrumOutput). Untouched by a run that fails
 * @param[in,out] progressMonitor initialised by the caller; its abortedJobFlag ends the run at its next test. Null is
 *   allowed
 * @param progressCallback called when the whole percentage grows, and for warnings (docs/statuses.md); null is allowed
 * @return 0; -110: report or output file cannot be opened; -1000: aborted; -71115, -71116: a datum is no category; the
 *   number of the first rule of the input that is broken; those of the callback and of the routines called; allocation
 *   statuses */
KESTRUM_API int VORLKestrumIndicatorSim(VORL_KESTRUMINDICATORINPUT* input, VORL_KESTRUMOUTPUT* output,
                                        VORL_PROGRESSMONITOR* progressMonitor,
                                        int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/** Threaded form of VORLKestrumIndicatorSim. The values of a run do not depend on the number of threads.
 * @copydetails VORLKestrumIndicatorSim
 * @param nthreads number of threads, at least 1; -99 is the status of one below */
KESTRUM_API int VORLOMPKestrumIndicatorSim(VORL_KESTRUMINDICATORINPUT* input, VORL_KESTRUMOUTPUT* output,
                                           VORL_PROGRESSMONITOR* progressMonitor,
                                           int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                           int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
