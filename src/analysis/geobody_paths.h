#ifndef KESTRUM_ANALYSIS_GEOBODY_PATHS_H
#define KESTRUM_ANALYSIS_GEOBODY_PATHS_H

#include "core/types.h"
#include "numeric/random.h"

/* Shortest paths in a geobody: distances from start nodes (breadth-first search; Moore, 1959), a random shortest path
 * read back from them, and the place where two paths meet.
 *
 * Masks and distance maps are vectors of nx * ny * nz entries in node order; nodes are told by their indices in them.
 * The ending 6, 18 or 26 tells which nodes are neighbours: those that share a face, or also an edge, or also a corner.
 * The order in which neighbours are looked at fixes which path a draw selects: dx is -1, then 1, then 0; for each,
 * first (dx, 0, 0), then dy -1 and dy 1, each with dz 0, -1, 1, then dy 0 with dz -1, 1.
 *
 * Thread safety: calls that write to different vectors and contexts may run at the same time.
 */

KESTRUM_BEGIN_DECLS

/* Numbers of steps from the nearest start node, through nodes of the geobody.
 *   geobody        in; not 0 inside
 *   frontCapacity  number of nodes, at least 1, that the tables of a front are allocated for, usually the size of the
 *                  geobody; they grow if a front is larger
 *   nstart, start  in; start nodes; they need not lie in the geobody
 *   distance       out; -1 at a node not reached, 0 at a start node
 * Statuses: -2205 a start node is not a node of the grid; those of VORLMalloc, and the distances may be incomplete. */
KESTRUM_API int VORLComputeDistanceConnectivity6InGeobody(int nx, int ny, int nz, int* geobody, int frontCapacity,
                                                          int nstart, int* start, int* distance) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLComputeDistanceConnectivity18InGeobody(int nx, int ny, int nz, int* geobody, int frontCapacity,
                                                           int nstart, int* start, int* distance) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLComputeDistanceConnectivity26InGeobody(int nx, int ny, int nz, int* geobody, int frontCapacity,
                                                           int nstart, int* start, int* distance) KESTRUM_NOEXCEPT;

/* A random shortest path: from each node, one of its neighbours nearer to the start, all with the same probability. One
 * number is drawn per step.
 *   distance     in; a map of the functions above with the same neighbours
 *   endNode      the node where the path begins
 *   path         out; nodes from endNode to one at distance 1; the start node is not part of it. Room for
 *                max(1, distance[endNode]) nodes is needed.
 *   pathLength   out, unless the function fails; number of nodes, 1 if the distance of endNode is less than 2
 *   randContext  in and out
 * Statuses: -2200, -2201, -2202 (6, 18, 26) no neighbour is nearer; -2207 endNode is not a node of the grid. */
KESTRUM_API int VORLComputePathInDistanceMapGeobody6(int nx, int ny, int nz, int* distance, int endNode, int* path,
                                                     int* pathLength, VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLComputePathInDistanceMapGeobody18(int nx, int ny, int nz, int* distance, int endNode, int* path,
                                                      int* pathLength, VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLComputePathInDistanceMapGeobody26(int nx, int ny, int nz, int* distance, int endNode, int* path,
                                                      int* pathLength, VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/* Finds where two paths touch, that is, have the same node or neighbours: the last node of path1 that touches path2,
 * and the last node of path2 that it touches.
 *   path1, path2      in; nodes of the grid
 *   length1, length2  numbers of nodes
 *   index1, index2    out; positions in the paths, or -1 and -1 if the paths do not touch
 * Returns 0. */
KESTRUM_API int VORLJoinTwoPathInGeobody6(int nx, int ny, int nz, int* path1, int* path2, int length1, int length2,
                                          int* index1, int* index2) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLJoinTwoPathInGeobody18(int nx, int ny, int nz, int* path1, int* path2, int length1, int length2,
                                           int* index1, int* index2) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLJoinTwoPathInGeobody26(int nx, int ny, int nz, int* path1, int* path2, int length1, int length2,
                                           int* index1, int* index2) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
