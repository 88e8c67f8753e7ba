#ifndef KESTRUM_CORE_TYPES_H
#define KESTRUM_CORE_TYPES_H

/** @file
 * Scalar types, linkage macros and numeric constants that every public header uses, and the rules that hold for all of
 * them unless a comment says otherwise.
 *
 * Memory layout: on a grid of nx by ny by nz cells the node (ix, iy, iz) has the index ix + iy*nx + iz*nx*ny (x runs
 * fastest); the value of variable iv at node id is var[iv*nxyz + id], always compact.
 *
 * Missing values: a value is missing if it equals VORL_MISSING_VALUE exactly, and informed otherwise. NaN is informed.
 *
 * Statuses: a function that can fail returns 0, or the negative of a row number of the error table (core/status.h).
 * "Allocation statuses" are those of VORLMalloc and its relatives (core/memory.h), mostly -1.
 *
 * Arguments: coordinates, cell sizes and ranges have the unit of the grid, angles are degrees, and an index counts from
 * 0. A pointer must not be null. Arrays belong to the caller, who allocates and releases them. An output must not
 * overlap an input.
 *
 * Empty records: an output record that "must be empty" owns nothing, as after its VORLInit function. The function
 * allocates what it holds, and the caller releases that with its VORLFree function, also after a failure.
 *
 * Threads: the library has no global state. Calls may run at the same time as long as none of them writes to what
 * another one uses; what is only read may be shared.
 *
 * Threaded forms: a function with VORLOMP in its name takes a number of threads last, and gives the values of its
 * serial form, whatever that number.
 */

/** @name Linkage
 * @{ */
/** Declares functions alike for C and for C++. */
#ifdef __cplusplus
#define KESTRUM_BEGIN_DECLS extern "C" {
#define KESTRUM_END_DECLS }
#define KESTRUM_NOEXCEPT noexcept
#else
#define KESTRUM_BEGIN_DECLS
#define KESTRUM_END_DECLS
#define KESTRUM_NOEXCEPT
#endif
/** @} */

/** Marks an exported function. */
#if defined(SWIG) || !defined(__GNUC__)
#define KESTRUM_API
#else
#define KESTRUM_API __attribute__((visibility("default")))
#endif

/** A value of a variable, a coordinate, a cell size or a covariance. */
typedef double real;
/** FALSE or TRUE in one byte; any byte but 0 counts as true. */
typedef char BOOLEAN;
/** The identifier of a class in one byte, compared as a signed value. */
typedef char classIdType;

#define FALSE 0 /**< the BOOLEAN for no */
#define TRUE 1  /**< the BOOLEAN for yes */

#define VORL_MISSING_CLASSID (-1)     /**< the classIdType of no class */
#define VORL_MISSING_VALUE (-9999999) /**< the value of a variable where it has none */
#define VORL_EPSILON_HARD 1e-20       /**< tolerance of sums of squares and of norms */
#define VORL_EPSILON 1e-10            /**< tolerance of values and of probabilities */
#define VORL_EPSILON_SOFT 1e-5        /**< coarse tolerance */
#define VORL_INFINITY 1e25            /**< beyond every value: the start of minima, and the width of certainty */

#endif
