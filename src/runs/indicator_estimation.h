#ifndef KESTRUM_RUNS_INDICATOR_ESTIMATION_H
#define KESTRUM_RUNS_INDICATOR_ESTIMATION_H

/** @file
 * Indicator kriging on a grid: the probability of each category at every node to estimate, by simple or ordinary
 * kriging of the data's indicators. Each category has its own covariance model, and its own neighbourhood: the nearest
 * data (moving) or all of them (unique). The rules that turn estimates into probabilities are those of
 * runs/indicator_simulation.h.
 *
 * Reference: Journel (1983), Nonparametric estimation of spatial distributions, Mathematical Geology 15(3).
 */

#include <stdio.h>

#include "../core/image.h"
#include "../core/progress_monitor.h"
#include "../core/types.h"
#include "../neighborhood/search_neighborhood.h"
#include "../runs/indicator_run_input.h"

KESTRUM_BEGIN_DECLS

/** Estimates probabilities of categories by indicator kriging.
 *
 * Warnings: 2001 a neighbour was dropped; 2015 a system failed (its category takes the prior probability); 2020 all
 * probabilities of a node were zero (they are replaced by the prior ones). After a failure outputImage is partly
 * filled.
 *
 * @param[in] input ncategory, categoryValue, covModel, searchRadiusRelative (-1.0: unique neighbourhood of that
 *   category), probabilities, outputMode, outputImageFileName and formatString are read
 * @param ordinaryKriging TRUE: ordinary kriging; FALSE: simple kriging with the prior probability as mean
 * @param[in] image the data, missing elsewhere; one variable on the grid
 * @param[in,out] outputImage ncategory variables, which receive the probabilities of the nodes to estimate
 * @param[in] rotationStationary for each category, as VORLKestrumValidateCovModel reports it
 * @param[in] weightStationary for each category, as VORLKestrumValidateCovModel reports it
 * @param rangeStationary not used
 * @param[in] covModelStationary for each category, as VORLKestrumValidateCovModel reports it
 * @param[in] sill for each category the sum of the weights of its model; not read without weightStationary
 * @param[in] rotationMatrix for each category 3 by 3, the fixed rotation; null for none
 * @param nuniqueDataMax largest number of data that a unique neighbourhood takes
 * @param[in] searchNeighborhood for each category the list of offsets in visiting order; not read for a unique
 *   neighbourhood
 * @param[in] neighborShift for each category the difference of node index of each entry of its list; not read for a
 *   unique neighbourhood
 * @param[in] nneighborLimit for each category the largest number of neighbours of a system, at least 1; not read for a
 *   unique neighbourhood
 * @param nodeStatus not used; null is allowed
 * @param nnode number of nodes
 * @param[in] simulationPath nnode nodes; those to estimate are at the positions from pathFirstSimulated on
 * @param pathFirstSimulated position of the first node to estimate
 * @param reportFile not used; null is allowed
 * @param[in,out] progressMonitor receives progress and warnings; null is allowed
 * @param progressCallback called when the whole percentage grows, and for warnings; null is allowed
 * @return 0; with a unique neighbourhood -71265: nuniqueDataMax below 1; -71266: more data than that; -71267: no data;
 *   with a moving one -71260: a nneighborLimit below 1; -110: a file cannot be opened; -1000: aborted; those of the
 *   callback and of the image writer; allocation statuses */
KESTRUM_API int VORLKestrumIndicatorSimEstimation(
    VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* outputImage,
    BOOLEAN* rotationStationary, BOOLEAN* weightStationary, BOOLEAN* rangeStationary, BOOLEAN* covModelStationary,
    real* sill, real*** rotationMatrix, int nuniqueDataMax, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
    int** neighborShift, int* nneighborLimit, int* nodeStatus, int nnode, int* simulationPath, int pathFirstSimulated,
    FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor,
    int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/** Threaded form of VORLKestrumIndicatorSimEstimation.
 *
 * A set abort flag ends it within some hundred nodes; any other result of the callback counts when all nodes are done.
 * @copydetails VORLKestrumIndicatorSimEstimation
 * @param nthreads number of threads, at least 1 */
KESTRUM_API int VORLOMPKestrumIndicatorSimEstimation(
    VORL_KESTRUMINDICATORINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* outputImage,
    BOOLEAN* rotationStationary, BOOLEAN* weightStationary, BOOLEAN* rangeStationary, BOOLEAN* covModelStationary,
    real* sill, real*** rotationMatrix, int nuniqueDataMax, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
    int** neighborShift, int* nneighborLimit, int* nodeStatus, int nnode, int* simulationPath, int pathFirstSimulated,
    FILE* reportFile, VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*),
    int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
