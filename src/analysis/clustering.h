#ifndef KESTRUM_ANALYSIS_CLUSTERING_H
#define KESTRUM_ANALYSIS_CLUSTERING_H

#include "core/types.h"
#include "numeric/random.h"

KESTRUM_BEGIN_DECLS

/* Groups points by k-means: Lloyd iterations (Lloyd, 1982, IEEE Transactions on Information Theory 28), which assign
 * each point to the nearest centre and move each centre to the mean of its points, with restarts. All arrays are the
 * caller's.
 *   n               number of points
 *   nfeature        number of features, at least 1
 *   ncluster        number of clusters, 1 to n
 *   nfixedCluster   number of the first clusters whose centres stay where the caller has put them, 0 to ncluster
 *   data            in; nfeature vectors of n entries: data[f][i] is feature f of point i
 *   mask            in; n entries, null allowed: points with 0 are left out, except at the initialisation
 *   tolerance       relative change of the inertia below which the iterations stop
 *   weight          in; n weights, null allowed. The initialisation does not look at them
 *   center          in and out; nfeature vectors of ncluster entries. An empty cluster that is not fixed ends at 0.0
 *   clusterWeight   out; ncluster sums of weights; not looked at without weights, null allowed then
 *   assignment      out; n cluster numbers; those of points left out are not set
 *   clusterSize     out; ncluster numbers of points
 *   inertia         out; sum over the points of the square of their distance to their centre, times their weights
 *   itMax           largest number of iterations, at least 1
 *   nstart          number of runs, of which the one of least inertia is kept: the first of several. Above 1, a run is
 *                   not kept if its inertia is NaN or reaches VORL_INFINITY; if none is, the outputs are left alone,
 *                   and the inertia is VORL_INFINITY. At or below 0: one run, from the centres that the caller has set
 *   initMode        1: initial centres by k-means++ (Arthur and Vassilvitskii, 2007, Proceedings of SODA); others:
 *                   random points, all different
 *   randContext     in and out; not looked at if nstart is at or below 0
 * Statuses: -5200 nfeature, -5201 ncluster, -5202 nfixedCluster, -5203 itMax; those of VORLMalloc and
 * VORLMallocArray2D.
 * Thread safety: calls that write to different arrays and contexts may run at the same time. The VORLOMP form shares
 * the work among nthreads threads (one if it is below 1). Every sum has the order of the points, so that its results
 * are the same to the last bit. */
KESTRUM_API int VORLKMeans(int n, int nfeature, int ncluster, int nfixedCluster, double** data, char* mask,
                           real tolerance, double* weight, double** center, double* clusterWeight, int* assignment,
                           int* clusterSize, double* inertia, int itMax, int nstart, int initMode,
                           VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPKMeans(int n, int nfeature, int ncluster, int nfixedCluster, double** data, char* mask,
                              real tolerance, double* weight, double** center, double* clusterWeight, int* assignment,
                              int* clusterSize, double* inertia, int itMax, int nstart, int initMode,
                              VORL_RANDCONTEXT* randContext, int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
