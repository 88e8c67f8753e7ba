#ifndef KESTRUM_CORE_PROGRESS_MONITOR_H
#define KESTRUM_CORE_PROGRESS_MONITOR_H

/* How a run talks to its caller: it fills the record and calls a callback, which shows what it likes and can stop the
 * run. The record has no lock: a run calls the callback from one thread at a time. abortedJobFlag may be set from
 * outside at any time and takes effect at the next call.
 */

#include "core/types.h"

#define VORL_MAX_PROGRESS_NAME_LENGTH 32
#define VORL_MAX_NWARNING 256

KESTRUM_BEGIN_DECLS

typedef struct vorl_progressMonitor VORL_PROGRESSMONITOR;

struct vorl_progressMonitor {
  char progressName[VORL_MAX_PROGRESS_NAME_LENGTH]; /* in front of each progress line */
  int warningNumber;                                /* the warning reported by this call, 0 if none */
  int nrealization;                                 /* number of realizations; 0 if progress is not reported */
  int currentRealization;         /* index of the current realization; in the all-over forms, number of those done */
  int currentRealizationProgress; /* percent of the current realization */
  int allRealizationProgress;     /* percent of the whole job */
  BOOLEAN abortedJobFlag;         /* set by the outside to stop the job */
  int warningNumberList[VORL_MAX_NWARNING]; /* distinct warnings so far, in order of first occurrence */
  int nwarningNumber;                       /* number of entries used in warningNumberList */
  int nwarning;                             /* number of warnings so far, repeats included */
};

/* Clears every field but warningNumberList. */
KESTRUM_API void VORLInitProgressMonitor(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;

/* The ready callbacks. A set abortedJobFlag gives -1000 and nothing else happens. A warning is recorded (and printed
 * on the standard output by forms 1 to 4); otherwise, if nrealization is not 0, forms 2 to 4 print a progress line:
 * form 2 the current realization and the percentage over all, form 3 the percentage and the number of realizations
 * done, form 4 the percentage alone. Form 0 prints nothing. The GI forms do what the forms of the same number do.
 *   monitor  in/out, not null; warningNumber is not cleared.
 * Return 0 or -1000. */
KESTRUM_API int VORLUpdateProgressMonitor0(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLUpdateProgressMonitor1(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLUpdateProgressMonitor1GI(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLUpdateProgressMonitor2(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLUpdateProgressMonitor2GI(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLUpdateProgressMonitor3(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLUpdateProgressMonitor3GI(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLUpdateProgressMonitor4(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLUpdateProgressMonitor4GI(VORL_PROGRESSMONITOR* monitor) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
