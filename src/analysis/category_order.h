#ifndef KESTRUM_ANALYSIS_CATEGORY_ORDER_H
#define KESTRUM_ANALYSIS_CATEGORY_ORDER_H

/** @file
 * Transitions between the categories of neighbouring nodes, and an order of categories by them.
 *
 * A grid is given by its sizes and an index vector, nx*ny*nz entries in node order: the number of the category, 0 to
 * nvalue - 1, or -1 for none.
 */

#include "../core/types.h"

KESTRUM_BEGIN_DECLS

/** Counts pairs of neighbours in matrix[a][b], a being the category of the lower node and b that of the upper one.
 *
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param[in] index category of each node; a negative one is none, and numbers beyond the matrix are not tested
 * @param[in,out] matrix the counts, not cleared here, so that it can gather several grids. A failure leaves it as it
 *   is. An entry that an int cannot count any further stays at the greatest int
 * @param alongX not 0: neighbours along x count
 * @param alongY not 0: neighbours along y count
 * @param alongZ not 0: neighbours along z count
 * @return 0; -4400, -4401, -4402: neighbours asked for along x, y, z where the grid has no two nodes; -620: more nodes
 *   than an int can count */
KESTRUM_API int VORLUpdateTransitionMatrix(int nx, int ny, int nz, int* index, int** matrix, BOOLEAN alongX,
                                           BOOLEAN alongY, BOOLEAN alongZ) KESTRUM_NOEXCEPT;

/** Threaded form of VORLUpdateTransitionMatrix.
 * @copydetails VORLUpdateTransitionMatrix
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPUpdateTransitionMatrix(int nx, int ny, int nz, int* index, int** matrix, BOOLEAN alongX,
                                              BOOLEAN alongY, BOOLEAN alongZ, int nthreads) KESTRUM_NOEXCEPT;

/** Puts the categories in an order in which those often next to each other are near.
 *
 * The order is a chain that starts with the most frequent pair and grows, at either end, by the category that is most
 * often next to that end.
 *
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param nvalue number of categories
 * @param[in] index category of each node; any number outside 0 to nvalue - 1 is none
 * @param[out] rank nvalue entries: the place of each category in sequence
 * @param[out] sequence nvalue entries: the categories in order
 * @param alongX not 0: neighbours along x count
 * @param alongY not 0: neighbours along y count
 * @param alongZ not 0: neighbours along z count
 * @return 0; -4400, -4401, -4402: neighbours asked for along x, y, z where the grid has no two nodes; -620: more nodes
 *   than an int can count; those of VORLMallocArray2D (-7 for no category) */
KESTRUM_API int VORLGetImageOneVarNewValueIndexOrder(int nx, int ny, int nz, int nvalue, int* index, int* rank,
                                                     int* sequence, BOOLEAN alongX, BOOLEAN alongY,
                                                     BOOLEAN alongZ) KESTRUM_NOEXCEPT;

/** Threaded form of VORLGetImageOneVarNewValueIndexOrder.
 * @copydetails VORLGetImageOneVarNewValueIndexOrder
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPGetImageOneVarNewValueIndexOrder(int nx, int ny, int nz, int nvalue, int* index, int* rank,
                                                        int* sequence, BOOLEAN alongX, BOOLEAN alongY, BOOLEAN alongZ,
                                                        int nthreads) KESTRUM_NOEXCEPT;

/** Puts the categories in an order as VORLGetImageOneVarNewValueIndexOrder, by the pairs of several grids together.
 *
 * @param nimage number of grids; below 1 nothing is done
 * @param[in] nx nimage numbers of cells along x; a grid with a size below 1 is left out
 * @param[in] ny nimage numbers of cells along y
 * @param[in] nz nimage numbers of cells along z
 * @param nvalue number of categories
 * @param[in] index nimage index vectors; any number outside 0 to nvalue - 1 is no category
 * @param[out] rank nvalue entries: the place of each category in sequence
 * @param[out] sequence nvalue entries: the categories in order
 * @param alongX not 0: neighbours along x count
 * @param alongY not 0: neighbours along y count
 * @param alongZ not 0: neighbours along z count
 * @return 0; -4400, -4401, -4402: neighbours asked for along x, y, z where the grid has no two nodes; -620: more nodes
 *   than an int can count; those of VORLMallocArray2D (-7 for no category) */
KESTRUM_API int VORLGetNImageOneVarNewValueIndexOrder(int nimage, int* nx, int* ny, int* nz, int nvalue, int** index,
                                                      int* rank, int* sequence, BOOLEAN alongX, BOOLEAN alongY,
                                                      BOOLEAN alongZ) KESTRUM_NOEXCEPT;

/** Threaded form of VORLGetNImageOneVarNewValueIndexOrder.
 * @copydetails VORLGetNImageOneVarNewValueIndexOrder
 * @param nthreads number of threads; below 1 it counts as 1 */
KESTRUM_API int VORLOMPGetNImageOneVarNewValueIndexOrder(int nimage, int* nx, int* ny, int* nz, int nvalue, int** index,
                                                         int* rank, int* sequence, BOOLEAN alongX, BOOLEAN alongY,
                                                         BOOLEAN alongZ, int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
