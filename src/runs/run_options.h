#ifndef KESTRUM_RUNS_RUN_OPTIONS_H
#define KESTRUM_RUNS_RUN_OPTIONS_H

#include "core/progress_monitor.h"
#include "core/types.h"
#include "runs/indicator_run_input.h"
#include "runs/run_input.h"

/** @file
 * Runs with a choice of how they are computed: by which solver, and on how many threads. */

KESTRUM_BEGIN_DECLS

/** How kriging systems are solved. */
typedef enum {
  /** By GMRES from fixed first guesses, as VORLKestrumSim and its relatives do. The unit of the variable matters: total
   * sills far from 1 cost accuracy in ordinary kriging. */
  KESTRUM_SOLVER_ITERATIVE,
  /** By Cholesky's factorisation, with the same results to about 1e-9 where the iterative solver converges. Data times f
   * and a model times f*f give results times f, to rounding. A system that cannot be factorised (a model that is not
   * positive definite, places too close to one another) goes to the iterative solver, with its drops and warnings; with
   * a unique neighbourhood all do then. */
  KESTRUM_SOLVER_FACTORISING
} VORL_KESTRUMSOLVER;

typedef struct vorl_kestrumOptions VORL_KESTRUMOPTIONS;

/** How a run is computed. */
struct vorl_kestrumOptions {
  VORL_KESTRUMSOLVER solver; /**< one of the above */
  int nthreads;              /**< number of threads, at least 1; or 0: no parallel region is opened */
  long long nfallback;       /**< out: number of systems that the factorising solver left to the iterative one */
};

/**
 * Sets the defaults: the iterative solver, without threads.
 * @param options out
 */
KESTRUM_API void VORLKestrumInitOptions(VORL_KESTRUMOPTIONS* options) KESTRUM_NOEXCEPT;

/**
 * A run on a continuous variable, as VORLKestrumSim. With the default options it is that function, bit for bit.
 * @param input in and out: as for VORLKestrumSim
 * @param output out: as for VORLKestrumSim
 * @param progressMonitor in and out: may be null
 * @param progressCallback may be null
 * @param options in and out: the choices; receives nfallback
 * @return 0; -99 nthreads below 0; -71060 an unknown solver; otherwise the statuses of VORLKestrumSim
 */
KESTRUM_API int VORLKestrumSimWithOptions(VORL_KESTRUMINPUT* input, VORL_KESTRUMOUTPUT* output,
                                          VORL_PROGRESSMONITOR* progressMonitor,
                                          int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                          VORL_KESTRUMOPTIONS* options) KESTRUM_NOEXCEPT;

/**
 * A run on a categorical variable, as VORLKestrumIndicatorSim. With the default options it is that function, bit for
 * bit.
 * @param input in and out: as for VORLKestrumIndicatorSim
 * @param output out: as for VORLKestrumIndicatorSim
 * @param progressMonitor in and out: may be null
 * @param progressCallback may be null
 * @param options in and out: the choices; receives nfallback
 * @return 0; -99 nthreads below 0; -71060 an unknown solver; otherwise the statuses of VORLKestrumIndicatorSim
 */
KESTRUM_API int VORLKestrumIndicatorSimWithOptions(VORL_KESTRUMINDICATORINPUT* input, VORL_KESTRUMOUTPUT* output,
                                                   VORL_PROGRESSMONITOR* progressMonitor,
                                                   int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                                   VORL_KESTRUMOPTIONS* options) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
