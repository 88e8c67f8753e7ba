#ifndef KESTRUM_RUNS_CONDITIONING_H
#define KESTRUM_RUNS_CONDITIONING_H

#include "core/image.h"
#include "core/progress_monitor.h"
#include "core/types.h"
#include "runs/indicator_run_input.h"
#include "runs/run_input.h"

/* Gathering of the conditioning data of a run, and the fixed part of the order in which its nodes are visited.
 *
 * nodeStatus, one int per node:
 *    1  no datum; the image holds the missing value
 *    0  hard datum, in the image; no bound
 *   -1  inequality with a lower bound only
 *   -2  inequality with an upper bound only
 *   -3  inequality with both bounds
 *
 * A warning is raised by storing its number in the monitor, calling the callback, and storing 0. A result of the
 * callback other than 0 ends the function with that status, and a set abort flag ends it with -1000. A null monitor or
 * callback is allowed: warnings are then lost.
 *
 * Thread safety: calls on different records and vectors may run at the same time.
 */

KESTRUM_BEGIN_DECLS

/* Puts the data of the input into the working image of a run on a continuous variable.
 * Data images come first, then point sets; a later value replaces an earlier one of the same node, and of two bounds
 * the tighter one stays. Data where the mask is 0.0 are removed. Bounds that agree with a hard datum are removed; equal
 * bounds become a hard datum.
 *   input          in; validated
 *   image          in and out; 1 variable on the simulation grid, all missing
 *   inequalityMin  in and out; one pointer (for the variable of image), null on entry; left null or pointing to one
 *                  lower bound per node (missing: none), which belongs to the caller (VORLFree), also on failure. Null
 *                  allowed: there are no inequality data
 *   inequalityMax  the same for upper bounds
 *   nodeStatus     out; one entry per node
 *   ndata          out; number of hard data
 *   progressMonitor, progressCallback   see above
 * Statuses: -190 lower bound above upper bound, -191 hard datum below its lower bound, -192 hard datum above its upper
 * bound; -1000 aborted; those of the callback, of VORLImageToImage and of VORLPointSetToImage.
 * Warnings: after each data image 44, 45; after each point set 43, 42, 41; then 40, 60, 61, 62, 63, once each. */
KESTRUM_API int VORLKestrumIntegrateConditioningData(VORL_KESTRUMINPUT* input, VORL_IMAGE* image, real** inequalityMin,
                                                     real** inequalityMax, int* nodeStatus, int* ndata,
                                                     VORL_PROGRESSMONITOR* progressMonitor,
                                                     int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/* The same for a run on a categorical variable, which has no inequality data: nodeStatus is 1 or 0. */
KESTRUM_API int VORLKestrumIndicatorIntegrateConditioningData(
    VORL_KESTRUMINDICATORINPUT* input, VORL_IMAGE* image, int* nodeStatus, int* ndata,
    VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/* Splits the nodes into those never computed, the inequality nodes, and those to compute. Nothing here is random.
 *   maskImage            in; 1 variable of nnode values, read whenever it is not null: 0.0 marks nodes never computed
 *   nodeStatus           in; one entry per node
 *   nnode                number of nodes
 *   simulationPath       out; all node indices: never computed (ascending), inequality nodes, nodes to compute
 *                        (descending if there is no inequality node)
 *   pathFirstInequality  out; position of the first inequality node
 *   pathFirstSimulated   out; position of the first node to compute
 *   nnodeSimulated       out; number of nodes to compute
 *   progressMonitor, progressCallback   not used
 * Gives 0. */
KESTRUM_API int VORLSKestrumPrepareSimulationPath(VORL_IMAGE* maskImage, int* nodeStatus, int nnode,
                                                  int* simulationPath, int* pathFirstInequality,
                                                  int* pathFirstSimulated, int* nnodeSimulated,
                                                  VORL_PROGRESSMONITOR* progressMonitor,
                                                  int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
