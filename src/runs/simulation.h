#ifndef KESTRUM_RUNS_SIMULATION_H
#define KESTRUM_RUNS_SIMULATION_H

/** @file
 * Sequential Gaussian simulation on a grid. Along a random path, each node takes a value drawn from its local normal
 * law, whose mean and variance are those of simple or ordinary kriging with the nearest data and the nearest nodes that
 * have a value already. Nodes with inequality data are given values first, by a Gibbs sampler over those nodes alone,
 * and then act as data. The functions are called by the run drivers (runs/run_driver.h) once the data are centred; they
 * work on residuals and add the mean back at the end of each realization.
 *
 * The seed of realization r is seed + r*seedIncrement, and each node of the path reseeds with the realization's seed
 * plus its position in the path. So a realization depends on its seed alone, not on the number of threads; and
 * realizations whose seeds differ by less than the number of nodes share node seeds: seedIncrement should exceed it.
 *
 * References: Chiles and Delfiner (2012), Geostatistics, 2nd edition, section 7.5.1 (sequential simulation) and 7.6.2
 * (Gibbs sampler).
 */

#include <stdio.h>

#include "../core/image.h"
#include "../core/progress_monitor.h"
#include "../core/types.h"
#include "../neighborhood/search_neighborhood.h"
#include "../runs/run_input.h"

KESTRUM_BEGIN_DECLS

/** Makes realizations by sequential Gaussian simulation.
 *
 * Warnings: 2001 a neighbour was dropped; 2015 a system failed (the node is drawn as if it had no neighbour); and, if
 * the last pass of the Gibbs sampler needed corrective steps, 2002 and 2016 (the same two among nodes with bounds),
 * 2012 (variance raised), 2005 (bounds relaxed).
 *
 * @param[in] input covModel, mean and variance usage (varianceValue and varianceImage hold ratios of standard
 *   deviations), seed, seedIncrement, nrealization, nGibbsSamplerPathMin, nGibbsSamplerPathMax, varName, output mode,
 *   names and format are read
 * @param ordinaryKriging TRUE: ordinary kriging; FALSE: simple kriging
 * @param[in,out] image work memory: one variable on the grid; holds the last realization at the end
 * @param[out] outputImage an image of nrealization variables that receives names and values, or null
 * @param rotationStationary as VORLKestrumValidateCovModel reports it
 * @param weightStationary as VORLKestrumValidateCovModel reports it
 * @param rangeStationary not used
 * @param covModelStationary as VORLKestrumValidateCovModel reports it
 * @param sill sum of the weights of the model; not read without weightStationary
 * @param[in] rotationMatrix 3 by 3, the fixed rotation; null for none
 * @param[in] searchNeighborhood list of offsets in visiting order
 * @param[in] neighborShift difference of node index of each entry of the list
 * @param nneighborLimit largest number of neighbours of a system, at least 1
 * @param[in] nodeStatus status of each node: 0 known, 1 to simulate, -1 lower bound, -2 upper bound, -3 both bounds
 * @param hasInequalityData TRUE: the nodes with bounds are given values
 * @param[in] inequalityMin one vector of centred lower bounds per node, read where nodeStatus is -1 or -3
 * @param[in] inequalityMax one vector of centred upper bounds per node, read where nodeStatus is -2 or -3
 * @param nnode number of nodes
 * @param[in,out] simulationPath nnode nodes: from pathFirstInequality those with bounds, from pathFirstSimulated the
 *   others to simulate. The order within these two segments changes
 * @param pathFirstInequality position of the first node with bounds
 * @param pathFirstSimulated position of the first other node to simulate
 * @param[in] dataValue centred values of the known nodes in node order
 * @param ndataValue not used
 * @param[in,out] reportFile receives four lines per realization if outputReportFlag of the input is set; else null is
 *   allowed
 * @param[in,out] progressMonitor receives progress and warnings; null is allowed
 * @param progressCallback called when the whole percentage grows, and for warnings; null is allowed
 * @return 0; -71260: nneighborLimit below 1; -110: a file cannot be opened; -1000: aborted; those of the callback and
 *   of the image writer; allocation statuses */
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

/** Threaded form of VORLKestrumSimSimulation.
 *
 * The nodes of a realization are shared out; the Gibbs sampler runs on one thread. A set abort flag to which the
 * callback does not answer is found at the end of the current realization.
 * @copydetails VORLKestrumSimSimulation
 * @param nthreads number of threads, at least 1 */
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
