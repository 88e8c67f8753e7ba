#ifndef KESTRUM_RUNS_ESTIMATION_H
#define KESTRUM_RUNS_ESTIMATION_H

/** @file
 * Kriging estimation on a grid: simple or ordinary kriging at every node to estimate, with a moving neighbourhood (the
 * nearest data of each node) or a unique one (all data for every node). The functions are called by the run drivers
 * (runs/run_driver.h) once the data are centred; they work on residuals and add the mean back at the end. Only hard
 * data condition an estimate, so the result depends neither on the order of the nodes nor on the number of threads.
 *
 * Reference of the method: Chiles and Delfiner (2012), Geostatistics, 2nd edition, chapter 3.
 */

#include <stdio.h>

#include "../core/image.h"
#include "../core/progress_monitor.h"
#include "../core/types.h"
#include "../neighborhood/search_neighborhood.h"
#include "../runs/run_input.h"

KESTRUM_BEGIN_DECLS

/** Estimates with a moving neighbourhood.
 *
 * Warnings: 2001 a neighbour was dropped; 2015 a system failed (the node takes mean and sill). After a failure the
 * images are partly filled.
 *
 * @param[in] input covModel, mean and variance usage (varianceValue and varianceImage hold ratios of standard
 *   deviations), outputMode, outputImageFileName and formatString are read
 * @param ordinaryKriging TRUE: ordinary kriging; FALSE: simple kriging
 * @param[in,out] image in: centred hard data, missing elsewhere; out: the estimate; one variable on the grid
 * @param[in,out] stdImage in: 0.0, or missing where not to be computed; out: the standard deviation; one variable
 * @param[out] outputImage an image of two variables that receives names and values of the two above, or null
 * @param rotationStationary as VORLKestrumValidateCovModel reports it
 * @param weightStationary as VORLKestrumValidateCovModel reports it
 * @param rangeStationary not used
 * @param covModelStationary as VORLKestrumValidateCovModel reports it
 * @param sill sum of the weights of the model; not read without weightStationary
 * @param[in] rotationMatrix 3 by 3, the fixed rotation; null for none
 * @param[in] searchNeighborhood list of offsets in visiting order
 * @param[in] neighborShift difference of node index of each entry of the list
 * @param nneighborLimit largest number of neighbours of a system, at least 1
 * @param[in] nodeStatus status of each node; 0 marks a hard datum
 * @param nnode number of nodes
 * @param[in] simulationPath nnode nodes; those to estimate are at the positions from pathFirstSimulated on
 * @param pathFirstSimulated position of the first node to estimate
 * @param reportFile not used; null is allowed
 * @param[in,out] progressMonitor receives progress and warnings; null is allowed
 * @param progressCallback called when the whole percentage grows, and for warnings; null is allowed
 * @return 0; -71260: nneighborLimit below 1; -110: a file cannot be opened; -1000: aborted; those of the callback and
 *   of the image writer; allocation statuses */
KESTRUM_API int VORLKestrumSimEstimation(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                         VORL_IMAGE* stdImage, VORL_IMAGE* outputImage, BOOLEAN rotationStationary,
                                         BOOLEAN weightStationary, BOOLEAN rangeStationary, BOOLEAN covModelStationary,
                                         real sill, real** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood,
                                         int* neighborShift, int nneighborLimit, int* nodeStatus, int nnode,
                                         int* simulationPath, int pathFirstSimulated, FILE* reportFile,
                                         VORL_PROGRESSMONITOR* progressMonitor,
                                         int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/** Threaded form of VORLKestrumSimEstimation.
 *
 * A set abort flag ends it within some hundred nodes; any other result of the callback counts when all nodes are done.
 * @copydetails VORLKestrumSimEstimation
 * @param nthreads number of threads, at least 1 */
KESTRUM_API int VORLOMPKestrumSimEstimation(
    VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image, VORL_IMAGE* stdImage, VORL_IMAGE* outputImage,
    BOOLEAN rotationStationary, BOOLEAN weightStationary, BOOLEAN rangeStationary, BOOLEAN covModelStationary,
    real sill, real** rotationMatrix, VORL_SEARCHNEIGHBORHOOD* searchNeighborhood, int* neighborShift,
    int nneighborLimit, int* nodeStatus, int nnode, int* simulationPath, int pathFirstSimulated, FILE* reportFile,
    VORL_PROGRESSMONITOR* progressMonitor, int (*progressCallback)(VORL_PROGRESSMONITOR*),
    int nthreads) KESTRUM_NOEXCEPT;

/** Estimates with a unique neighbourhood: the informed values of image are the data of every node.
 *
 * The model must be stationary. Warning 2015: a system failed (the node takes mean and sill); no neighbour is ever
 * dropped. After a failure the images are partly filled.
 *
 * @param[in] input covModel, mean and variance usage (varianceValue and varianceImage hold ratios of standard
 *   deviations), outputMode, outputImageFileName and formatString are read
 * @param ordinaryKriging TRUE: ordinary kriging; FALSE: simple kriging
 * @param[in,out] image in: centred hard data, missing elsewhere; out: the estimate; one variable on the grid
 * @param[in,out] stdImage in: 0.0, or missing where not to be computed; out: the standard deviation; one variable
 * @param[out] outputImage an image of two variables that receives names and values of the two above, or null
 * @param sill sum of the weights of the model
 * @param[in] rotationMatrix 3 by 3, the fixed rotation; null for none
 * @param ndata number of hard data
 * @param nnode number of nodes
 * @param[in] simulationPath nnode nodes; those to estimate are at the positions from pathFirstSimulated on
 * @param pathFirstSimulated position of the first node to estimate
 * @param reportFile not used; null is allowed
 * @param[in,out] progressMonitor receives progress and warnings; null is allowed
 * @param progressCallback called when the whole percentage grows, and for warnings; null is allowed
 * @return 0; -71265: ndata below 1; -71266: more data in the image than ndata; -71267: no datum in the image; -110: a
 *   file cannot be opened; -1000: aborted; those of the callback and of the image writer; allocation statuses */
KESTRUM_API int VORLKestrumSimEstimationUniqueSN(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging, VORL_IMAGE* image,
                                                 VORL_IMAGE* stdImage, VORL_IMAGE* outputImage, real sill,
                                                 real** rotationMatrix, int ndata, int nnode, int* simulationPath,
                                                 int pathFirstSimulated, FILE* reportFile,
                                                 VORL_PROGRESSMONITOR* progressMonitor,
                                                 int (*progressCallback)(VORL_PROGRESSMONITOR*)) KESTRUM_NOEXCEPT;

/** Threaded form of VORLKestrumSimEstimationUniqueSN.
 *
 * A set abort flag ends it within some hundred nodes; any other result of the callback counts when all nodes are done.
 * @copydetails VORLKestrumSimEstimationUniqueSN
 * @param nthreads number of threads, at least 1 */
KESTRUM_API int VORLOMPKestrumSimEstimationUniqueSN(VORL_KESTRUMINPUT* input, BOOLEAN ordinaryKriging,
                                                    VORL_IMAGE* image, VORL_IMAGE* stdImage, VORL_IMAGE* outputImage,
                                                    real sill, real** rotationMatrix, int ndata, int nnode,
                                                    int* simulationPath, int pathFirstSimulated, FILE* reportFile,
                                                    VORL_PROGRESSMONITOR* progressMonitor,
                                                    int (*progressCallback)(VORL_PROGRESSMONITOR*),
                                                    int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
