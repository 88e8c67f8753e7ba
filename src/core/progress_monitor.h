#ifndef KESTRUM_CORE_PROGRESS_MONITOR_H
#define KESTRUM_CORE_PROGRESS_MONITOR_H

/** @file
 * How a run talks to its caller: it fills the record and calls a callback, which shows what it likes and can stop the
 * run. The record has no lock: a run calls the callback from one thread at a time. abortedJobFlag may be set from
 * outside at any time and takes effect at the next call.
 */

#include "../core/types.h"

#define VORL_MAX_PROGRESS_NAME_LENGTH 32 /**< bytes of a progress name, terminator included */
#define VORL_MAX_NWARNING 256            /**< places of the list of warnings, more than there are numbers */

KESTRUM_BEGIN_DECLS

typedef struct vorl_progressMonitor VORL_PROGRESSMONITOR; /**< see vorl_progressMonitor */

/** The progress and the warnings of a run. The run writes all fields but progressName and abortedJobFlag. */
struct vorl_progressMonitor {
  char progressName[VORL_MAX_PROGRESS_NAME_LENGTH]; /**< text in front of each progress line */
  int warningNumber;                                /**< the warning reported by this call; 0: none */
  int nrealization;                                 /**< number of realizations; 0: progress is not reported */
  int currentRealization;         /**< index of the current realization; for callback 3 the number of those done */
  int currentRealizationProgress; /**< percentage of the current realization, 0 to 100 */
  int allRealizationProgress;     /**< percentage of the whole job, 0 to 100 */
  BOOLEAN abortedJobFlag;         /**< TRUE, set by the caller at any time, stops the job */
  int warningNumberList[VORL_MAX_NWARNING]; /**< distinct warnings so far, in the order of their first occurrence */
  int nwarningNumber;                       /**< number of entries used in warningNumberList */
  int nwarning;                             /**< number of warnings so far, repeats included */
};

/** Clears every field but warningNumberList.
 *
 * @param[out] monitor the record */
KESTRUM_API void VORLInitProgressMonitor(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;

/** A callback that prints nothing.
 *
 * All callbacks record a warning; they do nothing if abortedJobFlag is set. A call prints a warning or a line of
 * progress, not both.
 *
 * @param[in,out] monitor the record; warningNumber is not cleared
 * @return 0; -1000 if abortedJobFlag is set */
KESTRUM_API int VORLUpdateProgressMonitor0(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;

/** A callback that prints warnings on the standard output.
 * @copydetails VORLUpdateProgressMonitor0 */
KESTRUM_API int VORLUpdateProgressMonitor1(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;

/** The same as VORLUpdateProgressMonitor1.
 * @copydetails VORLUpdateProgressMonitor0 */
KESTRUM_API int VORLUpdateProgressMonitor1GI(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;

/** A callback that prints warnings, the current realization, its percentage and that over all.
 * @copydetails VORLUpdateProgressMonitor0 */
KESTRUM_API int VORLUpdateProgressMonitor2(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;

/** The same as VORLUpdateProgressMonitor2.
 * @copydetails VORLUpdateProgressMonitor0 */
KESTRUM_API int VORLUpdateProgressMonitor2GI(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;

/** A callback that prints warnings, the percentage over all and the number of realizations done.
 * @copydetails VORLUpdateProgressMonitor0 */
KESTRUM_API int VORLUpdateProgressMonitor3(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;

/** The same as VORLUpdateProgressMonitor3.
 * @copydetails VORLUpdateProgressMonitor0 */
KESTRUM_API int VORLUpdateProgressMonitor3GI(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;

/** A callback that prints warnings and the percentage over all.
 * @copydetails VORLUpdateProgressMonitor0 */
KESTRUM_API int VORLUpdateProgressMonitor4(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;

/** The same as VORLUpdateProgressMonitor4.
 * @copydetails VORLUpdateProgressMonitor0 */
KESTRUM_API int VORLUpdateProgressMonitor4GI(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
