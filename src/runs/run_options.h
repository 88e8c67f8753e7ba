#ifndef KESTRUM_RUNS_RUN_OPTIONS_H
#define KESTRUM_RUNS_RUN_OPTIONS_H

#include "../core/progress_monitor.h"
#include "../core/types.h"
#include "../runs/indicator_run_input.h"
#include "../runs/run_input.h"

/** @file
 * Runs with a choice of how they are computed: by which solver, and on how many threads. */

KESTRUM_BEGIN_DECLS

/** How kriging systems are solved. */
typedef enum {
  /** By GMRES from fixed first guesses, as VORLKestrumSim and its relatives do. The unit of the variable matters: total
   * sills far from 1 cost accuracy in ordinary kriging. */
  KESTRUM_SOLVER_ITERATIVE,
  /** By Cholesky's factorisation, with the same results to about 1e-9 where the iterative solver converges. Data times
   * f and a model times f*f give results times f, to rounding. A system that cannot be factorised (a model that is not
   * positive definite, places too close to one another) goes to the iterative solver, with its drops and warnings;
   * with a unique neighbourhood all do then. In a simulation a variance below 0, by more than rounding, is a failure of its
   * system (2015), too. */
  KESTRUM_SOLVER_FACTORISING
} VORL_KESTRUMSOLVER;

typedef struct vorl_kestrumOptions VORL_KESTRUMOPTIONS; /**< see vorl_kestrumOptions */

/** How a run is computed. */
struct vorl_kestrumOptions {
  VORL_KESTRUMSOLVER solver; /**< KESTRUM_SOLVER_ITERATIVE or KESTRUM_SOLVER_FACTORISING */
  int nthreads;              /**< number of threads, at least 1; or 0: no parallel region is opened */
  long long nfallback;       /**< out: number of systems that the factorising solver left to the iterative one */
};

/** Sets the defaults: the iterative solver, without threads.
 *
 * @param[out] options the options */
KESTRUM_API void VORLKestrumInitOptions(VORL_KESTRUMOPTIONS* options) KESTRUM_NOEXCEPT;

/** Runs on a continuous variable, as VORLKestrumSim. With the default options it is that function, bit for bit.
 *
 * @param[in,out] input as for VORLKestrumSim
 * @param[in,out] output as for VORLKestrumSim
 * @param[in,out] progressMonitor as for VORLKestrumSim; null is allowed
 * @param progressCallback as for VORLKestrumSim; null is allowed
 * @param[in,out] options the choices; receives nfallback
 * @return 0; -99: nthreads below 0; -71060: an unknown solver; those of VORLKestrumSim */
KESTRUM_API int VORLKestrumSimWithOptions(VORL_KESTRUMINPUT* input, VORL_KESTRUMOUTPUT* output,
                                          VORL_PROGRESSMONITOR* progressMonitor,
                                          int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                          VORL_KESTRUMOPTIONS* options) KESTRUM_NOEXCEPT;

/** Runs on a categorical variable, as VORLKestrumIndicatorSim. With the default options it is that function, bit for
 * bit.
 *
 * @param[in,out] input as for VORLKestrumIndicatorSim
 * @param[in,out] output as for VORLKestrumIndicatorSim
 * @param[in,out] progressMonitor as for VORLKestrumIndicatorSim; null is allowed
 * @param progressCallback as for VORLKestrumIndicatorSim; null is allowed
 * @param[in,out] options the choices; receives nfallback
 * @return 0; -99: nthreads below 0; -71060: an unknown solver; those of VORLKestrumIndicatorSim */
KESTRUM_API int VORLKestrumIndicatorSimWithOptions(VORL_KESTRUMINDICATORINPUT* input, VORL_KESTRUMOUTPUT* output,
                                                   VORL_PROGRESSMONITOR* progressMonitor,
                                                   int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                                   VORL_KESTRUMOPTIONS* options) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
