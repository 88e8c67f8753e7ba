#ifndef KESTRUM_CORE_MEMORY_H
#define KESTRUM_CORE_MEMORY_H

/** @file
 * Allocation with statuses instead of bare null pointers. Blocks are never cleared. A call that fails leaves nothing
 * allocated of its own.
 */

#include <stddef.h>

#include "../core/types.h"

KESTRUM_BEGIN_DECLS

/** Allocates a vector.
 *
 * @param n number of elements
 * @param size bytes of an element
 * @param[out] status 0; -3 if n is 0; -4 if size is 0; -1 if the allocation fails or n * size overflows
 * @return the vector, for VORLFree; null after a failure */
KESTRUM_API void* VORLMalloc(size_t n, size_t size, int* status) KESTRUM_NOEXCEPT;

/** Resizes a vector.
 *
 * @param[in] ptr the vector, or null for a new one
 * @param n number of elements
 * @param size bytes of an element
 * @param[in,out] status -5 if n is 0; -6 if size is 0; -2 if the reallocation fails. A success stores nothing: set it
 *   to 0 before the call
 * @return the resized vector; after a failure ptr, which stays valid and the caller's */
KESTRUM_API void* VORLRealloc(void* ptr, size_t n, size_t size, int* status) KESTRUM_NOEXCEPT;

/** Releases a vector of VORLMalloc or VORLRealloc.
 *
 * @param[in] ptr the vector; null is ignored */
KESTRUM_API void VORLFree(void* ptr) KESTRUM_NOEXCEPT;

/** Allocates an array a[n0][n1].
 *
 * The data are one contiguous block in the order of the indices (the last runs fastest), which starts at a[0]; the rows
 * are one block of pointers into it.
 *
 * @param n0 first dimension
 * @param n1 second dimension
 * @param size bytes of an element
 * @param[out] status 0; -7 if a dimension is 0; -8 if size is 0; -1 if an allocation fails
 * @return the array, for VORLFreeArray2D; null after a failure */
KESTRUM_API void** VORLMallocArray2D(size_t n0, size_t n1, size_t size, int* status) KESTRUM_NOEXCEPT;

/** Allocates an array a[n0][n1][n2].
 *
 * The data are one contiguous block, as in VORLMallocArray2D, which starts at a[0][0]; each further level is one block
 * of pointers.
 *
 * @param n0 first dimension
 * @param n1 second dimension
 * @param n2 third dimension
 * @param size bytes of an element
 * @param[out] status 0; -9 if a dimension is 0; -10 if size is 0; -1 if an allocation fails
 * @return the array, for VORLFreeArray3D; null after a failure */
KESTRUM_API void*** VORLMallocArray3D(size_t n0, size_t n1, size_t n2, size_t size, int* status) KESTRUM_NOEXCEPT;

/** Allocates an array a[n0][n1][n2][n3].
 *
 * The data are one contiguous block, as in VORLMallocArray2D, which starts at a[0][0][0]; each further level is one
 * block of pointers.
 *
 * @param n0 first dimension
 * @param n1 second dimension
 * @param n2 third dimension
 * @param n3 fourth dimension
 * @param size bytes of an element
 * @param[out] status 0; -11 if a dimension is 0; -12 if size is 0; -1 if an allocation fails
 * @return the array, for VORLFreeArray4D; null after a failure */
KESTRUM_API void**** VORLMallocArray4D(size_t n0, size_t n1, size_t n2, size_t n3, size_t size,
                                       int* status) KESTRUM_NOEXCEPT;

/** Releases an array of VORLMallocArray2D.
 *
 * @param[in] array the array; null is ignored */
KESTRUM_API void VORLFreeArray2D(void** array) KESTRUM_NOEXCEPT;

/** Releases an array of VORLMallocArray3D.
 * @copydetails VORLFreeArray2D */
KESTRUM_API void VORLFreeArray3D(void*** array) KESTRUM_NOEXCEPT;

/** Releases an array of VORLMallocArray4D.
 * @copydetails VORLFreeArray2D */
KESTRUM_API void VORLFreeArray4D(void**** array) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
