#ifndef KESTRUM_PATHS_PATH_GENERATORS_H
#define KESTRUM_PATHS_PATH_GENERATORS_H

#include "core/types.h"
#include "numeric/random.h"

/* Generators of visiting orders: each permutes a list of elements in place. The plain shuffle is VORLPathRandom
 * (numeric/random.h).
 *
 * An element is a value of a multi-variable array on a grid, with index variable * nxyz + node, or, in the functions
 * named VORLVectorPath..., a node. Arguments that they share:
 *   sx, sy, sz   cell sizes
 *   strength     how much the distance to hard data counts, from 0 (not at all) to 1; not tested
 *   pow          exponent of the distance, above 0; not tested
 *   n            number of elements; below 1 nothing is done and nothing drawn
 *   path         in and out: n elements, which are not tested
 *   mask         nv blocks of nxyz entries, 0 where the variable is known already (a hard datum)
 *   nx, ny, nz   numbers of cells
 *   nv           number of variables
 *   randContext  in and out: the random sequence to draw from
 * The result depends on the arguments and the state of the sequence alone. Calls may run at the same time on different
 * paths, masks and random contexts.
 *
 * Statuses: 0; -20 path, mask or order null; -3 a size below 1, or more values than an int can count; those of failing
 * allocations. After a failure the path is as it was.
 */

KESTRUM_BEGIN_DECLS

/* Elements near hard data tend to come first: the order is drawn without replacement, with weights that decrease with
 * the Euclidean distance to the nearest hard datum of the element's variable, to which each other variable adds its own
 * distance divided by nv. With strength 1 the weights go from 1 at the nearest to 1e-10 at the farthest element.
 * Without hard data, an element that is drawn at random takes the place of one. Distances that differ by less than
 * 1e-10 give a plain shuffle. The mask is changed while the function runs, and restored. */
KESTRUM_API int VORLPathDistancePdfRandom(real sx, real sy, real sz, real strength, int n, int* path, int* mask, int nx,
                                          int ny, int nz, int nv, VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/* The same distances; the elements are sorted by their distance, scaled to [0, strength], plus a random number in
 * [0, 1 - strength]. */
KESTRUM_API int VORLPathDistanceSortRandom(real sx, real sy, real sz, real strength, int n, int* path, int* mask,
                                           int nx, int ny, int nz, int nv,
                                           VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/* As VORLPathDistancePdfRandom and VORLPathDistanceSortRandom, with the mean over all hard data of the distance to the
 * power `pow`; two variables are as far apart as two nodes along the axis of the largest cell size. Hard data are those
 * of the variables that are unknown somewhere on the path. Without any, the path is shuffled. The time grows with the
 * number of elements times the number of hard data. */
KESTRUM_API int VORLPathDistanceSumPdfRandom(real sx, real sy, real sz, real pow, real strength, int n, int* path,
                                             int* mask, int nx, int ny, int nz, int nv,
                                             VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLPathDistanceSumSortRandom(real sx, real sy, real sz, real pow, real strength, int n, int* path,
                                              int* mask, int nx, int ny, int nz, int nv,
                                              VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/* The four orders for a path of nodes. A node is a hard datum if it is known for some variable that is unknown
 * somewhere on the path. The mask is only read. */
KESTRUM_API int VORLVectorPathDistancePdfRandom(real sx, real sy, real sz, real strength, int n, int* path, int* mask,
                                                int nx, int ny, int nz, int nv,
                                                VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLVectorPathDistanceSortRandom(real sx, real sy, real sz, real strength, int n, int* path, int* mask,
                                                 int nx, int ny, int nz, int nv,
                                                 VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLVectorPathDistanceSumPdfRandom(real sx, real sy, real sz, real pow, real strength, int n, int* path,
                                                   int* mask, int nx, int ny, int nz, int nv,
                                                   VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLVectorPathDistanceSumSortRandom(real sx, real sy, real sz, real pow, real strength, int n,
                                                    int* path, int* mask, int nx, int ny, int nz, int nv,
                                                    VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/* Scans the grid along its axes. Elements at one position on all axes that count come in random order.
 *   order  one entry for each of the axes x, y, z: 0 if the position on the axis does not count; otherwise the rank of
 *          the axis, 1 for the one that varies fastest, negative to go backwards */
KESTRUM_API int VORLPathUnilateral3D(int n, int* path, int nx, int ny, int nz, int* order,
                                     VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/* The same with the variable as a fourth axis. */
KESTRUM_API int VORLPathUnilateral4D(int n, int* path, int nx, int ny, int nz, int nv, int* order,
                                     VORL_RANDCONTEXT* randContext) KESTRUM_NOEXCEPT;

/* Euclidean distance from each node of a grid to the nearest feature node, in linear time; see
 * VORLImageDistanceEuclidean.
 *   zeroIsFeature  TRUE: features are the nodes where the mask is 0; FALSE: those where it is not
 *   mask           in: nx * ny * nz entries
 *   distance       out: nx * ny * nz entries; the root of (nx sx)^2 + (ny sy)^2 + (nz sz)^2 everywhere if there is no
 *                  feature
 * Returns 0; -20 mask or distance null; -3 a size below 1, or more nodes than an int can count; the status of a failing
 * allocation. */
KESTRUM_API int VORLDistanceEuclidean(real sx, real sy, real sz, int nx, int ny, int nz, BOOLEAN zeroIsFeature,
                                      int* mask, real* distance) KESTRUM_NOEXCEPT;
/* The same on nthreads threads, with the same result; -3 also if nthreads is below 1. */
KESTRUM_API int VORLOMPDistanceEuclidean(real sx, real sy, real sz, int nx, int ny, int nz, BOOLEAN zeroIsFeature,
                                         int* mask, real* distance, int nthreads) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
