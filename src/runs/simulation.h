#ifndef KESTRUM_RUNS_SIMULATION_H
#define KESTRUM_RUNS_SIMULATION_H

#include <stdio.h>

#include "core/image.h"
#include "core/progress_monitor.h"
#include "core/types.h"
#include "neighborhood/search_neighborhood.h"
#include "runs/run_input.h"

/* Sequential Gaussian simulation on a grid. Along a random path, each node takes a value drawn from its local normal
 * law, whose mean and variance are those of simple or ordinary kriging with the nearest data and the nearest nodes that
 * have a value already. Nodes with inequality data are given values first, by a Gibbs sampler over those nodes alone,
 * and then act as data. The functions are called by the run drivers (runs/run_driver.h) once the data are centred;
 * they work on residuals and add the mean back at the end of each realization.
 *
 * The seed of realization r is seed + r*seedIncrement, and each node of the path reseeds with the realization's seed
 * plus its position in the path. So a realization depends on its seed alone, not on the number of threads; and
 * realizations whose seeds differ by less than the number of nodes share node seeds: seedIncrement should exceed it.
 *
 * References: Chiles and Delfiner (2012), Geostatistics, 2nd edition, section 7.5.1 (sequential simulation) and 7.6.2
 * (Gibbs sampler).
 */

KESTRUM_BEGIN_DECLS

/* Realizations by sequential Gaussian simulation.
 *
 *   input               in: covModel, mean and variance usage (varianceValue and varianceImage hold ratios of standard
 *                       deviations), seed, seedIncrement, nrealization, nGibbsSamplerPathMin and Max, varName, output
 *                       mode, names and format
 *   ordinaryKriging     TRUE: ordinary kriging; FALSE: simple kriging
 *   image               work: 1 variable on the grid; holds the last realization at the end
 *   outputImage         null, or an image of nrealization variables that receives names and values
 *   rotationStationary ... covModelStationary   as validation of the model told them; rangeStationary is not used
 *   sill                sum of the weights of the model, if weightStationary
 *   rotationMatrix      3 by 3, the fixed rotation; null for none
 *   searchNeighborhood  the list of offsets in visiting order
 *   neighborShift       difference of node index of each entry of the list
 *   nneighborLimit      largest number of neighbours of a system, at least 1
 *   nodeStatus          per node: 0 known, 1 to simulate, -1 lower bound, -2 upper bound, -3 both bounds
 *   hasInequalityData   whether the nodes with bounds are given values
 *   inequalityMin, inequalityMax   centred bounds per node; read where nodeStatus tells of one
 *   nnode, simulationPath   the path: all nodes; from pathFirstInequality the nodes with bounds, from
 *                       pathFirstSimulated the others to simulate. The order within these two segments changes
 *   dataValue           centred values of the known nodes in node order
 *   ndataValue          their number; not used
 *   reportFile          receives four lines per realization if outputReportFlag is set
 *   progressMonitor, progressCallback   may be null; the callback is called when the whole percentage grows, and for
 *                       warnings: 2001 a neighbour was dropped, 2015 a system failed (the node is drawn as if it had no
 *                       neighbour), and after the last Gibbs pass that had to help itself: 2002, 2016, 2012 (variance
 *                       raised), 2005 (bounds relaxed)
 *
 * Everything stays the caller's.
 * Statuses: -71260 nneighborLimit below 1; -110 a file cannot be opened; -1000 aborted; those of the callback, of
 * allocations and of the image writer.
 */
KESTRUM_API int VORLKestrumSimSimulation(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                         VORL_IMAGE* outputImage, BOOLEAN rotationStationary, BOOLEAN weightStationary,
                                         BOOLEAN rangeStationary, BOOLEAN covModelStationary, real sill,
                                         real** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                         int* neighborShift, int nneighborLimit, int* nodeStatus,
                                         BOOLEAN hasInequalityData, real** inequalityMin, real** inequalityMax,
                                         int nnode, int* simulationPath, int pathFirstInequality,
                                         int pathFirstSimulated, real* dataValue, int ndataValue, FILE* reportFile,
                                         VORL_PROGRESSMONITOR* progressMonitor,
                                         int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/* As VORLKestrumSimSimulation, on `nthreads` threads, with the same values. The nodes of a realization are shared out;
 * the Gibbs sampler runs on one thread. A set abort flag to which the callback does not answer is found at the end of
 * the realization at hand. */
KESTRUM_API int VORLOMPKestrumSimSimulation(
    VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* outputImage,
    BOOLEAN rotationStationary, BOOLEAN weightStationary, BOOLEAN rangeStationary, BOOLEAN covModelStationary,
    real sill, real** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int* neighborShift,
    int nneighborLimit, int* nodeStatus, BOOLEAN hasInequalityData, real** inequalityMin, real** inequalityMax,
    int nnode, int* simulationPath, int pathFirstInequality, int pathFirstSimulated, real* dataValue, int ndataValue,
    FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*),
    int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
