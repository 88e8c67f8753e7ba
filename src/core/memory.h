#ifndef KESTRUM_CORE_MEMORY_H
#define KESTRUM_CORE_MEMORY_H

/* Allocation with statuses instead of bare null pointers. Blocks are never cleared. A failing call leaves nothing
 * allocated of its own. All functions are safe from any thread on distinct blocks.
 */

#include <stddef.h>

#include "core/types.h"

KESTRUM_BEGIN_DECLS

/* Allocates a vector of n elements of size bytes; release it with VORLFree.
 *   status  out: 0; -3 if n is 0; -4 if size is 0; -1 if the allocation fails (or n * size overflows). Not null.
 * Returns the vector, null at any failure. */
KESTRUM_API void* VORLMalloc(size_t n, size_t size, int* status) KESTRUM_NOEXCEPT;

/* Resizes a vector to n elements of size bytes.
 *   ptr     the vector, or null.
 *   status  out: -5 if n is 0; -6 if size is 0; -2 if the reallocation fails. A success does not store anything:
 *           set it to 0 before the call. Not null.
 * Returns the resized vector; at failure ptr, which stays valid and owned by the caller. */
KESTRUM_API void* VORLRealloc(void* ptr, size_t n, size_t size, int* status) KESTRUM_NOEXCEPT;

/* Releases a vector of VORLMalloc or VORLRealloc; null is ignored. */
KESTRUM_API void VORLFree(void* ptr) KESTRUM_NOEXCEPT;

/* Allocate an array a[n0][n1], a[n0][n1][n2] or a[n0][n1][n2][n3] of elements of size bytes. The data are one
 * contiguous block in the order of the indices (the last runs fastest), which starts at the first row; each further
 * level is one block of pointers.
 *   status  out: 0; -7, -9, -11 (2D, 3D, 4D) if a dimension is 0; -8, -10, -12 if size is 0; -1 if an allocation
 *           fails. Not null.
 * Return the outermost pointer block, null at any failure. Release with the matching VORLFreeArray function. */
KESTRUM_API void** VORLMallocArray2D(size_t n0, size_t n1, size_t size, int* status) KESTRUM_NOEXCEPT;
KESTRUM_API void*** VORLMallocArray3D(size_t n0, size_t n1, size_t n2, size_t size, int* status) KESTRUM_NOEXCEPT;
KESTRUM_API void**** VORLMallocArray4D(size_t n0, size_t n1, size_t n2, size_t n3, size_t size,
                                       int* status) KESTRUM_NOEXCEPT;

/* Release an array of the matching allocator; null is ignored. */
KESTRUM_API void VORLFreeArray2D(void** array) KESTRUM_NOEXCEPT;
KESTRUM_API void VORLFreeArray3D(void*** array) KESTRUM_NOEXCEPT;
KESTRUM_API void VORLFreeArray4D(void**** array) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
