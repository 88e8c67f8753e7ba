#ifndef KESTRUM_RUNS_CONDITIONING_H
#define KESTRUM_RUNS_CONDITIONING_H

/** @file
 * Gathering of the conditioning data of a run, and the fixed part of the order in which its nodes are visited.
 *
 * The status of a node:
 * - 1: no datum; the image holds the missing value
 * - 0: hard datum, in the image; no bound
 * - -1: inequality with a lower bound only
 * - -2: inequality with an upper bound only
 * - -3: inequality with both bounds
 *
 * A warning is raised by storing its number in the monitor, calling the callback, and storing 0. A result of the
 * callback other than 0 ends the function with that status, and a set abort flag ends it with -1000.
 */

#include "../core/image.h"
#include "../core/progress_monitor.h"
#include "../core/types.h"
#include "../runs/indicator_run_input.h"
#include "../runs/run_input.h"

KESTRUM_BEGIN_DECLS

/** Puts the data of the input into the working image of a run on a continuous variable.
 *
 * Data images come first, then point sets; a later value replaces an earlier one of the same node, and of two bounds
 * the tighter one stays. Data where the mask is 0.0 are removed. Bounds that agree with a hard datum are removed; equal
 * bounds become a hard datum. Warnings: after each data image 44, 45; after each point set 43, 42, 41; then 40, 60, 61,
 * 62, 63, once each.
 *
 * @param[in] input a valid input
 * @param[in,out] image one variable on the simulation grid, all missing
 * @param[in,out] inequalityMin one pointer (for the variable of image), null on entry; left null or pointing to one
 *   lower bound per node (missing: none), which belongs to the caller (VORLFree), also after a failure. Null is
 *   allowed: there are no inequality data
 * @param[in,out] inequalityMax the same for upper bounds
 * @param[out] nodeStatus status of each node, 1 to -3
 * @param[out] ndata number of hard data
 * @param[in,out] progressMonitor receives the warnings; null is allowed: they are lost
 * @param progressCallback called for each warning; null is allowed
 * @return 0; -190: lower bound above upper bound; -191: hard datum below its lower bound; -192: hard datum above its
 *   upper bound; -1000: aborted; those of the callback, of VORLImageToImage and of VORLPointSetToImage */
KESTRUM_API int VORLKestrumIntegrateConditioningData(VORL_KESTRUMINPUT* input, VORL_IMAGE* image, real** inequalityMin,
                                                     real** inequalityMax, int* nodeStatus, int* ndata,
                                                     VORL_PROGRESSMONITOR* progressMonitor,
                                                     int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/** Puts the data of the input into the working image of a run on a categorical variable, which has no inequality data.
 *
 * Data images come first, then point sets; a later value replaces an earlier one of the same node. Data where the mask
 * is 0.0 are removed. Warnings: after each data image 44, 45; after each point set 43, 42, 41; then 40 once.
 *
 * @param[in] input a valid input
 * @param[in,out] image one variable on the simulation grid, all missing
 * @param[out] nodeStatus status of each node: 1 no datum, 0 hard datum
 * @param[out] ndata number of hard data
 * @param[in,out] progressMonitor receives the warnings; null is allowed: they are lost
 * @param progressCallback called for each warning; null is allowed
 * @return 0; -1000: aborted; those of the callback, of VORLImageToImage and of VORLPointSetToImage */
KESTRUM_API int VORLKestrumIndicatorIntegrateConditioningData(
    VORL_KESTRUMINDICATORINPUT* input, VORL_IMAGE* image, int* nodeStatus, int* ndata,
    VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/** Splits the nodes into those never computed, the inequality nodes, and those to compute. Nothing here is random.
 *
 * @param[in] maskImage one variable of nnode values, or null: 0.0 marks nodes never computed
 * @param[in] nodeStatus status of each node, 1 to -3
 * @param nnode number of nodes
 * @param[out] simulationPath all node indices: never computed (ascending), inequality nodes, nodes to compute
 *   (descending if there is no inequality node)
 * @param[out] pathFirstInequality position of the first inequality node
 * @param[out] pathFirstSimulated position of the first node to compute
 * @param[out] nnodeSimulated number of nodes to compute
 * @param progressMonitor not used; null is allowed
 * @param progressCallback not used; null is allowed
 * @return 0 */
KESTRUM_API int VORLSKestrumPrepareSimulationPath(VORL_IMAGE* maskImage, int* nodeStatus, int nnode,
                                                  int* simulationPath, int* pathFirstInequality,
                                                  int* pathFirstSimulated, int* nnodeSimulated,
                                                  VORL_PROGRESSMONITOR* progressMonitor,
                                                  int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
