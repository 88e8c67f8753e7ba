#ifndef KESTRUM_ANALYSIS_CATEGORY_ORDER_H
#define KESTRUM_ANALYSIS_CATEGORY_ORDER_H

#include "core/types.h"

/* Transitions between the categories of neighbouring nodes, and an order of categories by them.
 *
 * A grid is given by its sizes and an index vector, nx*ny*nz entries in node order: the number of the category, 0 to
 * nvalue - 1, or -1 for nothing (any other number counts as nothing in the ordering functions, any negative one in
 * VORLUpdateTransitionMatrix). All arrays are the caller's. alongX, alongY, alongZ: not 0: neighbours along that axis
 * count.
 *
 * Statuses of all: -4400, -4401, -4402 neighbours asked for along x, y, z where the grid has no two nodes; -620
 * more nodes than an int can count.
 *
 * Thread safety: calls that write to different arrays may run at the same time. The VORLOMP forms share the work among
 * nthreads threads (one if it is below 1), with the same result.
 */

KESTRUM_BEGIN_DECLS

/* Counts pairs of neighbours in matrix[a][b], a being the category of the lower node and b that of the upper one.
 *   index   in; not tested for numbers beyond the matrix
 *   matrix  in and out; not cleared here, so that it can gather several grids. A failure leaves it as it is. An
 *           entry that an int can not count any further stays at the greatest int. */
KESTRUM_API int VORLUpdateTransitionMatrix(int nx, int ny, int nz, int* index, int** matrix, BOOLEAN alongX,
                                           BOOLEAN alongY, BOOLEAN alongZ) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPUpdateTransitionMatrix(int nx, int ny, int nz, int* index, int** matrix, BOOLEAN alongX,
                                              BOOLEAN alongY, BOOLEAN alongZ, int nthreads) KESTRUM_NOEXCEPT;

/* Puts the categories in an order in which those often next to each other stand near: a chain that starts with the most
 * frequent pair and grows, at either end, by the category that most often lies next to that end.
 *   nvalue    number of categories
 *   index     in
 *   rank      out; nvalue entries: the place of each category in sequence
 *   sequence  out; nvalue entries: the categories in order
 * Statuses: those of VORLMallocArray2D (-7 for no category). */
KESTRUM_API int VORLGetImageOneVarNewValueIndexOrder(int nx, int ny, int nz, int nvalue, int* index, int* rank,
                                                     int* sequence, BOOLEAN alongX, BOOLEAN alongY,
                                                     BOOLEAN alongZ) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPGetImageOneVarNewValueIndexOrder(int nx, int ny, int nz, int nvalue, int* index, int* rank,
                                                        int* sequence, BOOLEAN alongX, BOOLEAN alongY, BOOLEAN alongZ,
                                                        int nthreads) KESTRUM_NOEXCEPT;

/* The same for the pairs of several grids together.
 *   nimage      number of grids; below 1 nothing is done
 *   nx, ny, nz  in; nimage sizes each; a grid with a size below 1 is left out
 *   index       in; nimage index vectors */
KESTRUM_API int VORLGetNImageOneVarNewValueIndexOrder(int nimage, int* nx, int* ny, int* nz, int nvalue, int** index,
                                                      int* rank, int* sequence, BOOLEAN alongX, BOOLEAN alongY,
                                                      BOOLEAN alongZ) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLOMPGetNImageOneVarNewValueIndexOrder(int nimage, int* nx, int* ny, int* nz, int nvalue, int** index,
                                                         int* rank, int* sequence, BOOLEAN alongX, BOOLEAN alongY,
                                                         BOOLEAN alongZ, int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
