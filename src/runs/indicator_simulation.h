#ifndef KESTRUM_RUNS_INDICATOR_SIMULATION_H
#define KESTRUM_RUNS_INDICATOR_SIMULATION_H

/** @file
 * Sequential indicator simulation on a grid. Along a random path, each node takes a category drawn from its local
 * probabilities, which indicator kriging gives from the nearest data and the nearest nodes that have a category
 * already: one kriging system per category, each with its own covariance model and neighbourhood. Probabilities are cut
 * to [0, 1] and, for two categories or more, scaled to a sum of 1. Seeds and paths are those of runs/simulation.h.
 *
 * Reference: Chiles and Delfiner (2012), Geostatistics, 2nd edition, section 7.6.1.
 */

#include <stdio.h>

#include "../core/image.h"
#include "../core/progress_monitor.h"
#include "../core/types.h"
#include "../neighborhood/search_neighborhood.h"
#include "../runs/indicator_run_input.h"

KESTRUM_BEGIN_DECLS

/** Makes realizations by sequential indicator simulation.
 *
 * Warnings: 2001 a neighbour was dropped; 2015 a system failed (its category takes the prior probability); 2020 all
 * probabilities of a node were zero (they are replaced by the prior ones).
 *
 * @param[in] input ncategory, categoryValue, covModel, probabilities, seed, seedIncrement, nrealization, varName,
 *   output mode, names and format are read. With one category, a node takes its value or 0.0
 * @param ordinaryKriging TRUE: ordinary kriging; FALSE: simple kriging with the prior probability as mean
 * @param[in,out] image work memory: one variable on the grid; holds the last realization at the end
 * @param[out] outputImage an image of nrealization variables that receives names and values, or null
 * @param[in] rotationStationary for each category, as VORLKestrumValidateCovModel reports it
 * @param[in] weightStationary for each category, as VORLKestrumValidateCovModel reports it
 * @param rangeStationary not used
 * @param[in] covModelStationary for each category, as VORLKestrumValidateCovModel reports it
 * @param[in] sill for each category the sum of the weights of its model; not read without weightStationary
 * @param[in] rotationMatrix for each category 3 by 3, the fixed rotation; null for none
 * @param[in] searchNeighborhood for each category the list of offsets in visiting order
 * @param[in] neighborShift for each category the difference of node index of each entry of its list
 * @param[in] nneighborLimit for each category the largest number of neighbours of a system, at least 1
 * @param[in] nodeStatus status of each node: 0 known, 1 to simulate
 * @param nnode number of nodes
 * @param[in,out] simulationPath nnode nodes: from pathFirstSimulated those to simulate, whose order changes
 * @param pathFirstSimulated position of the first node to simulate
 * @param[in] dataValue values of the known nodes in node order
 * @param ndataValue not used
 * @param[in,out] reportFile receives four lines per realization if outputReportFlag of the input is set; else null is
 *   allowed
 * @param[in,out] progressMonitor receives progress and warnings; null is allowed
 * @param progressCallback called when the whole percentage grows, and for warnings; null is allowed
 * @return 0; -71260: a nneighborLimit below 1; -110: a file cannot be opened; -1000: aborted; those of the callback and
 *   of the image writer; allocation statuses */
KESTRUM_API int VORLKestrumIndicatorSimSimulation(
    VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* outputImage,
    BOOLEAN* rotationStationary, BOOLEAN* weightStationary, BOOLEAN* rangeStationary, BOOLEAN* covModelStationary,
    real* sill, real*** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int** neighborShift,
    int* nneighborLimit, int* nodeStatus, int nnode, int* simulationPath, int pathFirstSimulated, real* dataValue,
    int ndataValue, FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
    int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/** Threaded form of VORLKestrumIndicatorSimSimulation.
 *
 * The nodes of a realization are shared out. A result of the callback for warning 2020 that is not 0 ends the run here.
 * A set abort flag to which the callback does not answer is found at the end of the current realization.
 * @copydetails VORLKestrumIndicatorSimSimulation
 * @param nthreads number of threads, at least 1 */
KESTRUM_API int VORLOMPKestrumIndicatorSimSimulation(
    VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* outputImage,
    BOOLEAN* rotationStationary, BOOLEAN* weightStationary, BOOLEAN* rangeStationary, BOOLEAN* covModelStationary,
    real* sill, real*** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int** neighborShift,
    int* nneighborLimit, int* nodeStatus, int nnode, int* simulationPath, int pathFirstSimulated, real* dataValue,
    int ndataValue, FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
    int (*progressCallback)(VORL_PROGRESSMONITOR*), int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
