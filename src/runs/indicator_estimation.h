#ifndef KESTRUM_RUNS_INDICATOR_ESTIMATION_H
#define KESTRUM_RUNS_INDICATOR_ESTIMATION_H

#include <stdio.h>

#include "core/image.h"
#include "core/progress_monitor.h"
#include "core/types.h"
#include "neighborhood/search_neighborhood.h"
#include "runs/indicator_run_input.h"

/* Indicator kriging on a grid: the probability of each category at every node to estimate, by simple or ordinary
 * kriging of the data's indicators. Each category has its own covariance model, and its own neighbourhood: the nearest
 * data (moving) or all of them (unique). The rules that turn estimates into probabilities are those of
 * runs/indicator_simulation.h.
 *
 * Reference: Journel (1983), Nonparametric estimation of spatial distributions, Mathematical Geology 15(3).
 */

KESTRUM_BEGIN_DECLS

/* Probabilities of categories by indicator kriging.
 *
 *   input               in: ncategory, categoryValue, covModel, searchRadiusRelative (-1.0: unique neighbourhood of
 *                       that category), probabilities, outputMode, outputImageFileName, formatString
 *   ordinaryKriging     TRUE: ordinary kriging; FALSE: simple kriging with the prior probability as mean
 *   image               in: the data, missing elsewhere; 1 variable on the grid
 *   outputImage         in and out: ncategory variables, which receive the probabilities of the nodes to estimate
 *   rotationStationary ... covModelStationary, sill, rotationMatrix   per category, as in runs/indicator_simulation.h
 *   nuniqueDataMax      largest number of data that a unique neighbourhood takes
 *   searchNeighborhood, neighborShift, nneighborLimit   per category; not read for a unique neighbourhood
 *   nodeStatus          not used
 *   nnode, simulationPath, pathFirstSimulated   the nodes to estimate stand at the positions from pathFirstSimulated up
 *                       to nnode - 1 of the path
 *   reportFile          not used
 *   progressMonitor, progressCallback   may be null; the callback is called when the whole percentage grows, and for
 *                       warnings: 2001 a neighbour was dropped, 2015 a system failed (its category takes the prior
 *                       probability), 2020 all probabilities of a node were zero (they are replaced by the prior ones)
 *
 * Everything stays the caller's. After a failure outputImage is partly filled.
 * Statuses: -71265 nuniqueDataMax below 1, -71266 more data than that, -71267 no data, each only with a unique
 * neighbourhood; -71260 a nneighborLimit below 1 with a moving one; -110 a file cannot be opened; -1000 aborted; those
 * of the callback, of allocations and of the image writer.
 */
KESTRUM_API int VORLKestrumIndicatorSimEstimation(
    VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* outputImage,
    BOOLEAN* rotationStationary, BOOLEAN* weightStationary, BOOLEAN* rangeStationary, BOOLEAN* covModelStationary,
    real* sill, real*** rotationMatrix, int nuniqueDataMax, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
    int** neighborShift, int* nneighborLimit, int* nodeStatus, int nnode, int* simulationPath, int pathFirstSimulated,
    FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
    int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/* As VORLKestrumIndicatorSimEstimation, on `nthreads` threads. All nodes are done before a result of the
 * callback counts. */
KESTRUM_API int VORLOMPKestrumIndicatorSimEstimation(
    VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* outputImage,
    BOOLEAN* rotationStationary, BOOLEAN* weightStationary, BOOLEAN* rangeStationary, BOOLEAN* covModelStationary,
    real* sill, real*** rotationMatrix, int nuniqueDataMax, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
    int** neighborShift, int* nneighborLimit, int* nodeStatus, int nnode, int* simulationPath, int pathFirstSimulated,
    FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*),
    int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
