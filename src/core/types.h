#ifndef KESTRUM_CORE_TYPES_H
#define KESTRUM_CORE_TYPES_H

/* Scalar types, linkage macros and numeric constants that every public header uses.
 *
 * Memory layout, once for the whole library: on a grid of nx by ny by nz cells the node (ix, iy, iz) has the index
 * ix + iy*nx + iz*nx*ny (x runs fastest); the value of variable iv at node id is var[iv*nxyz + id]. A value is missing
 * if it equals VORL_MISSING_VALUE exactly; NaN is not missing.
 *
 * Statuses: a function that can fail returns 0 or the negative of a row number of the error table (core/status.h).
 */

#ifdef __cplusplus
#define KESTRUM_BEGIN_DECLS extern "C" {
#define KESTRUM_END_DECLS }
#define KESTRUM_NOEXCEPT noexcept
#else
#define KESTRUM_BEGIN_DECLS
#define KESTRUM_END_DECLS
#define KESTRUM_NOEXCEPT
#endif

#if defined(SWIG) || !defined(__GNUC__)
#define KESTRUM_API
#else
#define KESTRUM_API __attribute__((visibility("default")))
#endif

/* A variable value, coordinate, spacing or covariance. */
typedef double real;
/* One byte; any non-zero byte counts as true. */
typedef char BOOLEAN;
/* One byte, compared as a signed value. */
typedef char classIdType;

#define FALSE 0
#define TRUE 1

#define VORL_MISSING_CLASSID -1
#define VORL_MISSING_VALUE -9999999
#define VORL_EPSILON_HARD 1e-20
#define VORL_EPSILON 1e-10
#define VORL_EPSILON_SOFT 1e-5
#define VORL_INFINITY 1e25

#endif
