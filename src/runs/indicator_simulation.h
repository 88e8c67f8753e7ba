#ifndef KESTRUM_RUNS_INDICATOR_SIMULATION_H
#define KESTRUM_RUNS_INDICATOR_SIMULATION_H

#include <stdio.h>

#include "core/image.h"
#include "core/progress_monitor.h"
#include "core/types.h"
#include "neighborhood/search_neighborhood.h"
#include "runs/indicator_run_input.h"

/* Sequential indicator simulation on a grid. Along a random path, each node takes a category drawn from its local
 * probabilities, which indicator kriging gives from the nearest data and the nearest nodes that have a
 * category already: one kriging system per category, each with its own covariance model and neighbourhood.
 * Probabilities are cut to [0, 1] and, for two categories or more, scaled to a sum of 1. Seeds and paths are those of
 * runs/simulation.h.
 *
 * Reference: Chiles and Delfiner (2012), Geostatistics, 2nd edition, section 7.6.1.
 */

KESTRUM_BEGIN_DECLS

/* Realizations by sequential indicator simulation.
 *
 *   input               in: ncategory, categoryValue, covModel, probabilities, seed, seedIncrement, nrealization,
 *                       varName, output mode, names and format. With one category, a node takes its value or 0.0
 *   ordinaryKriging     TRUE: ordinary kriging; FALSE: simple kriging with the prior probability as mean
 *   image               work: 1 variable on the grid; holds the last realization at the end
 *   outputImage         null, or an image of nrealization variables that receives names and values
 *   rotationStationary ... covModelStationary   per category, as validation of the models told them; rangeStationary is
 *                       not used
 *   sill                per category: sum of the weights of the model, if weightStationary
 *   rotationMatrix      per category: 3 by 3, the fixed rotation; null for none
 *   searchNeighborhood, neighborShift, nneighborLimit   per category: the list of offsets in visiting order, the
 *                       difference of node index of each entry, and the largest number of neighbours, at least 1
 *   nodeStatus          per node: 0 known, 1 to simulate
 *   nnode, simulationPath, pathFirstSimulated   the path: all nodes; from pathFirstSimulated those to simulate, whose
 *                       order changes
 *   dataValue           values of the known nodes in node order
 *   ndataValue          their number; not used
 *   reportFile          receives four lines per realization if outputReportFlag is set
 *   progressMonitor, progressCallback   may be null; the callback is called when the whole percentage grows, and for
 *                       warnings: 2001 a neighbour was dropped, 2015 a system failed (its category takes the prior
 *                       probability), 2020 all probabilities of a node were zero (they are replaced by the prior ones)
 *
 * Everything stays the caller's.
 * Statuses: -71260 a nneighborLimit below 1; -110 a file cannot be opened; -1000 aborted; those of the callback, of
 * allocations and of the image writer.
 */
KESTRUM_API int VORLKestrumIndicatorSimSimulation(
    VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* outputImage,
    BOOLEAN* rotationStationary, BOOLEAN* weightStationary, BOOLEAN* rangeStationary, BOOLEAN* covModelStationary,
    real* sill, real*** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int** neighborShift,
    int* nneighborLimit, int* nodeStatus, int nnode, int* simulationPath, int pathFirstSimulated, real* dataValue,
    int ndataValue, FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
    int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/* As VORLKestrumIndicatorSimSimulation, on `nthreads` threads, with the same values. The nodes of a realization are
 * shared out. A result of the callback for warning 2020 that is not 0 ends the run here. A set abort flag to which the
 * callback does not answer is found at the end of the realization at hand. */
KESTRUM_API int VORLOMPKestrumIndicatorSimSimulation(
    VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* outputImage,
    BOOLEAN* rotationStationary, BOOLEAN* weightStationary, BOOLEAN* rangeStationary, BOOLEAN* covModelStationary,
    real* sill, real*** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int** neighborShift,
    int* nneighborLimit, int* nodeStatus, int nnode, int* simulationPath, int pathFirstSimulated, real* dataValue,
    int ndataValue, FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
    int (*progressCallback)(VORL_PROGRESSMONITOR*), int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
