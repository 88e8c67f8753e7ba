#ifndef KESTRUM_ANALYSIS_GEOBODY_PATHS_H
#define KESTRUM_ANALYSIS_GEOBODY_PATHS_H

/** @file
 * Shortest paths in a geobody: distances from start nodes (breadth-first search; Moore, 1959), a random shortest path
 * read back from them, and the place where two paths meet.
 *
 * Masks and distance maps are vectors of nx * ny * nz entries in node order; nodes are given by their indices in them.
 * The ending 6, 18 or 26 says which nodes are neighbours: those that share a face, or also an edge, or also a corner.
 * The order in which neighbours are looked at fixes which path a draw selects: dx is -1, then 1, then 0; for each,
 * first (dx, 0, 0), then dy -1 and dy 1, each with dz 0, -1, 1, then dy 0 with dz -1, 1.
 */

#include "../core/types.h"
#include "../numeric/random.h"

KESTRUM_BEGIN_DECLS

/** Computes numbers of steps from the nearest start node, through nodes of the geobody with 6 neighbours.
 *
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param[in] geobody nx*ny*nz entries, not 0 inside
 * @param frontCapacity number of nodes, at least 1, that the tables of a front are allocated for, usually the size of
 *   the geobody; they grow if a front is larger
 * @param nstart number of start nodes
 * @param[in] start nstart nodes; they need not be in the geobody
 * @param[out] distance nx*ny*nz entries: -1 at a node not reached, 0 at a start node
 * @return 0; -2205: a start node is not a node of the grid; allocation statuses, and the distances may be incomplete */
KESTRUM_API int VORLComputeDistanceConnectivity6InGeobody(int nx, int ny, int nz, int* geobody, int frontCapacity,
                                                          int nstart, int* start, int* distance) KESTRUM_NOEXCEPT;

/** Computes numbers of steps from the nearest start node, through nodes of the geobody with 18 neighbours.
 * @copydetails VORLComputeDistanceConnectivity6InGeobody */
KESTRUM_API int VORLComputeDistanceConnectivity18InGeobody(int nx, int ny, int nz, int* geobody, int frontCapacity,
                                                           int nstart, int* start, int* distance) KESTRUM_NOEXCEPT;

/** Computes numbers of steps from the nearest start node, through nodes of the geobody with 26 neighbours.
 * @copydetails VORLComputeDistanceConnectivity6InGeobody */
KESTRUM_API int VORLComputeDistanceConnectivity26InGeobody(int nx, int ny, int nz, int* geobody, int frontCapacity,
                                                           int nstart, int* start, int* distance) KESTRUM_NOEXCEPT;

/** Draws a random shortest path with 6 neighbours: from each node, one of its neighbours nearer to the start, all with
 * the same probability.
 *
 * One number is drawn per step.
 *
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param[in] distance a map of VORLComputeDistanceConnectivity6InGeobody
 * @param endNode the node where the path begins
 * @param[out] path nodes from endNode to one at distance 1; the start node is not part of it. Room for max(1,
 *   distance[endNode]) nodes is needed
 * @param[out] pathLength number of nodes, 1 if the distance of endNode is less than 2; not set after a failure
 * @param[in,out] randContext the random sequence to draw from
 * @return 0; -2200: no neighbour is nearer; -2207: endNode is not a node of the grid */
KESTRUM_API int VORLComputePathInDistanceMapGeobody6(int nx, int ny, int nz, int* distance, int endNode, int* path,
                                                     int* pathLength, VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Draws a random shortest path with 18 neighbours: from each node, one of its neighbours nearer to the start, all with
 * the same probability.
 *
 * One number is drawn per step.
 *
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param[in] distance a map of VORLComputeDistanceConnectivity18InGeobody
 * @param endNode the node where the path begins
 * @param[out] path nodes from endNode to one at distance 1; the start node is not part of it. Room for max(1,
 *   distance[endNode]) nodes is needed
 * @param[out] pathLength number of nodes, 1 if the distance of endNode is less than 2; not set after a failure
 * @param[in,out] randContext the random sequence to draw from
 * @return 0; -2201: no neighbour is nearer; -2207: endNode is not a node of the grid */
KESTRUM_API int VORLComputePathInDistanceMapGeobody18(int nx, int ny, int nz, int* distance, int endNode, int* path,
                                                      int* pathLength, VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Draws a random shortest path with 26 neighbours: from each node, one of its neighbours nearer to the start, all with
 * the same probability.
 *
 * One number is drawn per step.
 *
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param[in] distance a map of VORLComputeDistanceConnectivity26InGeobody
 * @param endNode the node where the path begins
 * @param[out] path nodes from endNode to one at distance 1; the start node is not part of it. Room for max(1,
 *   distance[endNode]) nodes is needed
 * @param[out] pathLength number of nodes, 1 if the distance of endNode is less than 2; not set after a failure
 * @param[in,out] randContext the random sequence to draw from
 * @return 0; -2202: no neighbour is nearer; -2207: endNode is not a node of the grid */
KESTRUM_API int VORLComputePathInDistanceMapGeobody26(int nx, int ny, int nz, int* distance, int endNode, int* path,
                                                      int* pathLength, VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Finds where two paths touch, that is, have the same node or neighbours with 6 neighbours: the last node of path1
 * that touches path2, and the last node of path2 that it touches.
 *
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param[in] path1 length1 nodes of the grid
 * @param[in] path2 length2 nodes of the grid
 * @param length1 number of nodes of path1
 * @param length2 number of nodes of path2
 * @param[out] index1 position in path1; -1 if the paths do not touch
 * @param[out] index2 position in path2; -1 if the paths do not touch
 * @return 0 */
KESTRUM_API int VORLJoinTwoPathInGeobody6(int nx, int ny, int nz, int* path1, int* path2, int length1, int length2,
                                          int* index1, int* index2) KESTRUM_NOEXCEPT;

/** Finds where two paths touch, that is, have the same node or neighbours with 18 neighbours: the last node of path1
 * that touches path2, and the last node of path2 that it touches.
 * @copydetails VORLJoinTwoPathInGeobody6 */
KESTRUM_API int VORLJoinTwoPathInGeobody18(int nx, int ny, int nz, int* path1, int* path2, int length1, int length2,
                                           int* index1, int* index2) KESTRUM_NOEXCEPT;

/** Finds where two paths touch, that is, have the same node or neighbours with 26 neighbours: the last node of path1
 * that touches path2, and the last node of path2 that it touches.
 * @copydetails VORLJoinTwoPathInGeobody6 */
KESTRUM_API int VORLJoinTwoPathInGeobody26(int nx, int ny, int nz, int* path1, int* path2, int length1, int length2,
                                           int* index1, int* index2) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
