#ifndef KESTRUM_ANALYSIS_CLUSTERING_H
#define KESTRUM_ANALYSIS_CLUSTERING_H

/** @file
 * Grouping of points.
 */

#include "../core/types.h"
#include "../numeric/random.h"

KESTRUM_BEGIN_DECLS

/** Groups points by k-means, with restarts.
 *
 * Lloyd iterations (Lloyd, 1982, IEEE Transactions on Information Theory 28) assign each point to the nearest centre
 * and move each centre to the mean of its points. Every sum has the order of the points.
 *
 * @param n number of points
 * @param nfeature number of features, at least 1
 * @param ncluster number of clusters, 1 to n
 * @param nfixedCluster number of the first clusters whose centres stay where the caller has put them, 0 to ncluster
 * @param[in] data nfeature vectors of n entries: data[f][i] is feature f of point i
 * @param[in] mask n entries, or null: points with 0 are left out, except at the initialisation
 * @param tolerance relative change of the inertia below which the iterations stop
 * @param[in] weight n weights, or null; the initialisation does not look at them
 * @param[in,out] center nfeature vectors of ncluster entries. An empty cluster that is not fixed ends at 0.0
 * @param[out] clusterWeight ncluster sums of weights; not looked at without weights, null is allowed then
 * @param[out] assignment n cluster numbers; those of points left out are not set
 * @param[out] clusterSize ncluster numbers of points
 * @param[out] inertia sum over the points of the square of their distance to their centre, times their weights
 * @param itMax largest number of iterations, at least 1
 * @param nstart number of runs, of which the one of least inertia is kept, the first of several. Above 1, a run is not
 *   kept if its inertia is NaN or reaches VORL_INFINITY; if none is, the outputs are left alone, and the inertia is
 *   VORL_INFINITY. At or below 0: one run, from the centres that the caller has set
 * @param initMode 1: initial centres by k-means++ (Arthur and Vassilvitskii, 2007, Proceedings of SODA); others: random
 *   points, all different
 * @param[in,out] randContext the random sequence to draw from; not looked at if nstart is at or below 0
 * @return 0; -5200: nfeature; -5201: ncluster; -5202: nfixedCluster; -5203: itMax; allocation statuses */
KESTRUM_API int VORLKMeans(int n, int nfeature, int ncluster, int nfixedCluster, double** data, char* mask,
                           real tolerance, double* weight, double** center, double* clusterWeight, int* assignment,
                           int* clusterSize, double* inertia, int itMax, int nstart, int initMode,
                           VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Threaded form of VORLKMeans, with the same results to the last bit.
 * @copydetails VORLKMeans
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPKMeans(int n, int nfeature, int ncluster, int nfixedCluster, double** data, char* mask,
                              real tolerance, double* weight, double** center, double* clusterWeight, int* assignment,
                              int* clusterSize, double* inertia, int itMax, int nstart, int initMode,
                              VORL_RANDCONTEXT* randContext, int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
