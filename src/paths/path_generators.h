#ifndef KESTRUM_PATHS_PATH_GENERATORS_H
#define KESTRUM_PATHS_PATH_GENERATORS_H

/** @file
 * Generators of visiting orders: each permutes a list of elements in place. The plain shuffle is VORLPathRandom
 * (numeric/random.h).
 *
 * An element is a value of a multi-variable array on a grid, with index variable * nxyz + node, or, in the functions
 * named VORLVectorPath..., a node. The result depends on the arguments and the state of the random sequence alone.
 * After a failure the path is as it was.
 */

#include "../core/types.h"
#include "../numeric/random.h"

KESTRUM_BEGIN_DECLS

/** Orders the elements so that those near hard data tend to come first: without replacement, by weights.
 *
 * The weights decrease with the Euclidean distance to the nearest hard datum of the element's variable, to which each
 * other variable adds its own distance divided by nv. With strength 1 they go from 1 at the nearest to 1e-10 at the
 * farthest element. Without hard data, an element that is drawn at random takes the place of one. Distances that differ
 * by less than 1e-10 give a plain shuffle.
 *
 * @param sx cell size along x
 * @param sy cell size along y
 * @param sz cell size along z
 * @param strength how much the distance to hard data counts, from 0 (not at all) to 1; not tested
 * @param n number of elements; below 1 nothing is done and nothing drawn
 * @param[in,out] path n elements, which are not tested
 * @param[in,out] mask nv blocks of nxyz entries, 0 where the variable is known already (a hard datum); changed while
 *   the function runs, and restored
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param nv number of variables
 * @param[in,out] randContext the random sequence to draw from
 * @return 0; -20: path or mask null; -3: a size below 1, or more values than an int can count; allocation statuses */
KESTRUM_API int VORLPathDistancePdfRandom(real sx, real sy, real sz, real strength, int n, int* path, int* mask, int nx,
                                          int ny, int nz, int nv, VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Sorts the elements by their distance to hard data, scaled to [0, strength], plus a random number in [0, 1 -
 * strength].
 *
 * The distances are those of VORLPathDistancePdfRandom.
 *
 * @param sx cell size along x
 * @param sy cell size along y
 * @param sz cell size along z
 * @param strength how much the distance to hard data counts, from 0 (not at all) to 1; not tested
 * @param n number of elements; below 1 nothing is done and nothing drawn
 * @param[in,out] path n elements, which are not tested
 * @param[in,out] mask nv blocks of nxyz entries, 0 where the variable is known already (a hard datum); changed while
 *   the function runs, and restored
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param nv number of variables
 * @param[in,out] randContext the random sequence to draw from
 * @return 0; -20: path or mask null; -3: a size below 1, or more values than an int can count; allocation statuses */
KESTRUM_API int VORLPathDistanceSortRandom(real sx, real sy, real sz, real strength, int n, int* path, int* mask,
                                           int nx, int ny, int nz, int nv,
                                           VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Orders the elements as VORLPathDistancePdfRandom, with another distance: the mean over all hard data of the distance
 * to the power pow.
 *
 * Two variables are as far apart as two nodes along the axis of the largest cell size. Hard data are those of the
 * variables that are unknown somewhere on the path. Without any, the path is shuffled. The time grows with the number
 * of elements times the number of hard data.
 *
 * @param sx cell size along x
 * @param sy cell size along y
 * @param sz cell size along z
 * @param pow exponent of the distance, above 0; not tested
 * @param strength how much the distance to hard data counts, from 0 (not at all) to 1; not tested
 * @param n number of elements; below 1 nothing is done and nothing drawn
 * @param[in,out] path n elements, which are not tested
 * @param[in] mask nv blocks of nxyz entries, 0 where the variable is known already (a hard datum)
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param nv number of variables
 * @param[in,out] randContext the random sequence to draw from
 * @return 0; -20: path or mask null; -3: a size below 1, or more values than an int can count; allocation statuses */
KESTRUM_API int VORLPathDistanceSumPdfRandom(real sx, real sy, real sz, real pow, real strength, int n, int* path,
                                             int* mask, int nx, int ny, int nz, int nv,
                                             VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Sorts the elements as VORLPathDistanceSortRandom, with the distance of VORLPathDistanceSumPdfRandom.
 * @copydetails VORLPathDistanceSumPdfRandom */
KESTRUM_API int VORLPathDistanceSumSortRandom(real sx, real sy, real sz, real pow, real strength, int n, int* path,
                                              int* mask, int nx, int ny, int nz, int nv,
                                              VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Orders nodes as VORLPathDistancePdfRandom orders elements.
 *
 * A node is a hard datum if it is known for some variable that is unknown somewhere on the path.
 *
 * @param sx cell size along x
 * @param sy cell size along y
 * @param sz cell size along z
 * @param strength how much the distance to hard data counts, from 0 (not at all) to 1; not tested
 * @param n number of nodes; below 1 nothing is done and nothing drawn
 * @param[in,out] path n nodes, which are not tested
 * @param[in] mask nv blocks of nxyz entries, 0 where the variable is known already
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param nv number of variables
 * @param[in,out] randContext the random sequence to draw from
 * @return 0; -20: path or mask null; -3: a size below 1, or more values than an int can count; allocation statuses */
KESTRUM_API int VORLVectorPathDistancePdfRandom(real sx, real sy, real sz, real strength, int n, int* path, int* mask,
                                                int nx, int ny, int nz, int nv,
                                                VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Sorts nodes as VORLPathDistanceSortRandom sorts elements.
 * @copydetails VORLVectorPathDistancePdfRandom */
KESTRUM_API int VORLVectorPathDistanceSortRandom(real sx, real sy, real sz, real strength, int n, int* path, int* mask,
                                                 int nx, int ny, int nz, int nv,
                                                 VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Orders nodes as VORLPathDistanceSumPdfRandom orders elements.
 *
 * A node is a hard datum if it is known for some variable that is unknown somewhere on the path.
 *
 * @param sx cell size along x
 * @param sy cell size along y
 * @param sz cell size along z
 * @param pow exponent of the distance, above 0; not tested
 * @param strength how much the distance to hard data counts, from 0 (not at all) to 1; not tested
 * @param n number of nodes; below 1 nothing is done and nothing drawn
 * @param[in,out] path n nodes, which are not tested
 * @param[in] mask nv blocks of nxyz entries, 0 where the variable is known already
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param nv number of variables
 * @param[in,out] randContext the random sequence to draw from
 * @return 0; -20: path or mask null; -3: a size below 1, or more values than an int can count; allocation statuses */
KESTRUM_API int VORLVectorPathDistanceSumPdfRandom(real sx, real sy, real sz, real pow, real strength, int n, int* path,
                                                   int* mask, int nx, int ny, int nz, int nv,
                                                   VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Sorts nodes as VORLPathDistanceSumSortRandom sorts elements.
 * @copydetails VORLVectorPathDistanceSumPdfRandom */
KESTRUM_API int VORLVectorPathDistanceSumSortRandom(real sx, real sy, real sz, real pow, real strength, int n,
                                                    int* path, int* mask, int nx, int ny, int nz, int nv,
                                                    VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Scans the grid along its axes. Elements at one position on all axes that count come in random order.
 *
 * @param n number of elements; below 1 nothing is done and nothing drawn
 * @param[in,out] path n elements, which are not tested
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param[in] order one entry for each of the axes x, y, z: 0 if the position on the axis does not count; otherwise the
 *   rank of the axis, 1 for the one that varies fastest, negative to go backwards
 * @param[in,out] randContext the random sequence to draw from
 * @return 0; -20: path or order null; -3: a size below 1, or more values than an int can count; allocation statuses */
KESTRUM_API int VORLPathUnilateral3D(int n, int* path, int nx, int ny, int nz, int* order,
                                     VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Scans the grid along its axes as VORLPathUnilateral3D, with the variable as a fourth axis.
 *
 * @param n number of elements; below 1 nothing is done and nothing drawn
 * @param[in,out] path n elements, which are not tested
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param nv number of variables
 * @param[in] order one entry for each of the axes x, y, z and variable, as in VORLPathUnilateral3D
 * @param[in,out] randContext the random sequence to draw from
 * @return 0; -20: path or order null; -3: a size below 1, or more values than an int can count; allocation statuses */
KESTRUM_API int VORLPathUnilateral4D(int n, int* path, int nx, int ny, int nz, int nv, int* order,
                                     VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/** Computes the Euclidean distance from each node of a grid to the nearest feature node, in linear time, as
 * VORLImageDistanceEuclidean.
 *
 * @param sx cell size along x
 * @param sy cell size along y
 * @param sz cell size along z
 * @param nx number of cells along x
 * @param ny number of cells along y
 * @param nz number of cells along z
 * @param zeroIsFeature TRUE: features are the nodes where the mask is 0; FALSE: those where it is not
 * @param[in] mask nx * ny * nz entries
 * @param[out] distance nx * ny * nz entries; the root of (nx sx)^2 + (ny sy)^2 + (nz sz)^2 everywhere if there is no
 *   feature
 * @return 0; -20: mask or distance null; -3: a size below 1, or more nodes than an int can count; allocation statuses
 */
KESTRUM_API int VORLDistanceEuclidean(real sx, real sy, real sz, int nx, int ny, int nz, BOOLEAN zeroIsFeature,
                                      int* mask, real* distance) KESTRUM_NOEXCEPT;

/** Threaded form of VORLDistanceEuclidean.
 * @copydetails VORLDistanceEuclidean
 * @param nthreads number of threads; -3 is also the status of one below 1 */
KESTRUM_API int VORLOMPDistanceEuclidean(real sx, real sy, real sz, int nx, int ny, int nz, BOOLEAN zeroIsFeature,
                                         int* mask, real* distance, int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
