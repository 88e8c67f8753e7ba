#ifndef KESTRUM_RUNS_ESTIMATION_H
#define KESTRUM_RUNS_ESTIMATION_H

#include <stdio.h>

#include "core/image.h"
#include "core/progress_monitor.h"
#include "core/types.h"
#include "neighborhood/search_neighborhood.h"
#include "runs/run_input.h"

/* Kriging estimation on a grid: simple or ordinary kriging at every node to estimate, with a moving neighbourhood (the
 * nearest data of each node) or a unique one (all data for every node). The functions are called by the run drivers
 * (runs/run_driver.h) once the data are centred; they work on residuals and add the mean back at the end. Only hard
 * data condition an estimate, so the result does not depend on the order of the nodes nor on the number of threads.
 *
 * A twin with the prefix VORLOMP takes the number of threads last and gives the same values.
 *
 * Reference of the method: Chiles and Delfiner (2012), Geostatistics, 2nd edition, chapter 3.
 */

KESTRUM_BEGIN_DECLS

/* Estimation with a moving neighbourhood.
 *
 *   input               in: covModel, mean and variance usage (varianceValue and varianceImage hold ratios of standard
 *                       deviations), outputMode, outputImageFileName, formatString
 *   ordinaryKriging     TRUE: ordinary kriging; FALSE: simple kriging
 *   image               in: centred hard data, missing elsewhere; out: the estimate; 1 variable on the grid
 *   stdImage            in: 0.0, or missing where not to be computed; out: the standard deviation; 1 variable
 *   outputImage         null, or an image of 2 variables that receives names and values of the two above
 *   rotationStationary ... covModelStationary   as validation of the model told them; rangeStationary is not used
 *   sill                sum of the weights of the model, if weightStationary
 *   rotationMatrix      3 by 3, the fixed rotation; null for none
 *   searchNeighborhood  the list of offsets in visiting order
 *   neighborShift       difference of node index of each entry of the list
 *   nneighborLimit      largest number of neighbours of a system, at least 1
 *   nodeStatus          per node; 0 marks a hard datum
 *   nnode, simulationPath, pathFirstSimulated   the nodes to estimate stand at the positions from pathFirstSimulated
 *                       up to nnode - 1 of the path
 *   reportFile          not used
 *   progressMonitor, progressCallback   may be null; the callback is called when the whole percentage grows, and for
 *                       warnings: 2001 a neighbour was dropped, 2015 a system failed (the node takes mean and sill)
 *
 * Everything stays the caller's. After a failure the images are partly filled.
 * Statuses: -71260 nneighborLimit below 1; -110 a file cannot be opened; -1000 aborted; those of the callback, of
 * allocations and of the image writer.
 */
KESTRUM_API int VORLKestrumSimEstimation(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                         VORL_IMAGE* stdImage, VORL_IMAGE* outputImage, BOOLEAN rotationStationary,
                                         BOOLEAN weightStationary, BOOLEAN rangeStationary, BOOLEAN covModelStationary,
                                         real sill, real** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                         int* neighborShift, int nneighborLimit, int* nodeStatus, int nnode,
                                         int* simulationPath, int pathFirstSimulated, FILE* reportFile,
                                         VORL_PROGRESSMONITOR* progressMonitor,
                                         int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/* As VORLKestrumSimEstimation, on `nthreads` threads. All nodes are done before the callback's result counts. */
KESTRUM_API int VORLOMPKestrumSimEstimation(
    VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* stdImage, VORL_IMAGE* outputImage,
    BOOLEAN rotationStationary, BOOLEAN weightStationary, BOOLEAN rangeStationary, BOOLEAN covModelStationary,
    real sill, real** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int* neighborShift,
    int nneighborLimit, int* nodeStatus, int nnode, int* simulationPath, int pathFirstSimulated, FILE* reportFile,
    VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*),
    int nthreads) KESTRUM_NOEXCEPT;

/* Estimation with a unique neighbourhood: the values of `image` that are not missing are the data of every node. The
 * model must be stationary. Arguments as in VORLKestrumSimEstimation, and
 *
 *   ndata               number of hard data
 *
 * Statuses: -71265 ndata below 1; -71266 more data in the image than ndata; -71267 no datum in the image; -110; -1000;
 * those of the callback, of allocations and of the image writer. Warning 2015 as above; no neighbour is ever dropped.
 */
KESTRUM_API int VORLKestrumSimEstimationUniqueSN(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                                 VORL_IMAGE* stdImage, VORL_IMAGE* outputImage, real sill,
                                                 real** rotationMatrix, int ndata, int nnode, int* simulationPath,
                                                 int pathFirstSimulated, FILE* reportFile,
                                                 VORL_PROGRESSMONITOR* progressMonitor,
                                                 int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/* As VORLKestrumSimEstimationUniqueSN, on `nthreads` threads. */
KESTRUM_API int VORLOMPKestrumSimEstimationUniqueSN(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging,
                                                    VORL_IMAGE* image, VORL_IMAGE* stdImage, VORL_IMAGE* outputImage,
                                                    real sill, real** rotationMatrix, int ndata, int nnode,
                                                    int* simulationPath, int pathFirstSimulated, FILE* reportFile,
                                                    VORL_PROGRESSMONITOR* progressMonitor,
                                                    int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                                    int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
