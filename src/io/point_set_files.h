#ifndef KESTRUM_IO_POINT_SET_FILES_H
#define KESTRUM_IO_POINT_SET_FILES_H

/** @file
 * Point sets and 2-D arrays as text, on a stream that the caller has opened.
 *
 * Entries are separated by white space; there are no comments. No function here opens, closes or rewinds the stream,
 * and none prints. A reader leaves the stream just behind the last thing it took; whatever follows stays unread.
 *
 * Point set: the number of points; the number of columns, which is that of the variables plus 3; the names of the
 * columns, each one word, of which the first three begin with x, y and z in either case; then a row for each point: x,
 * y, z and the variables. A missing value has no syntax of its own: it is written as the number VORL_MISSING_VALUE.
 *
 * Array: the numbers of rows and of columns, then the entries row by row.
 *
 * A count that does not fit an int is refused as one that cannot be read.
 */

#include <stdio.h>

#include "../core/point_set.h"
#include "../core/types.h"

KESTRUM_BEGIN_DECLS

/** Reads a point set.
 *
 * A file of exactly three columns is read up to its second entry only: the coordinates are allocated, but not set.
 *
 * @param[out] ps must be empty; after a failure it holds what was read before
 * @param[in,out] stream open for reading
 * @return 0; -771, -772: no number of points, of columns; -630: fewer than three columns; -773, -774, -775: no name for
 *   x, y, z; -631, -632, -633: a name that is not one of x, y, z; -776: no name for a variable; -777: a name over 255
 *   characters; -731: fewer numbers than the rows have; those of VORLMallocPointSet */
KESTRUM_API int VORLReadPointSet(VORL_POINTSET* ps, FILE* stream) KESTRUM_NOEXCEPT;

/** Writes a point set. The coordinates get the names x, y and z.
 *
 * The stream is flushed at the end.
 *
 * @param[in] ps the point set
 * @param[in] coordFormat printf formats of x, y and z, separated by semicolons, as in VORLWriteImage: repeated
 *   cyclically if there are fewer than three, an int if 'd' or 'i' is the last character, a double otherwise
 * @param[in] varFormat the same for the variables; not looked at if there is no variable
 * @param[in,out] stream open for writing
 * @return 0; before the first byte is written: -20: a null pointer where there are points or variables; -1021: no
 *   format, or one that VORLWriteImage refuses; allocation statuses; after that -110: the stream does not take
 *   everything, as on a full disk */
KESTRUM_API int VORLWritePointSet(VORL_POINTSET* ps, char* coordFormat, char* varFormat, FILE* stream) KESTRUM_NOEXCEPT;

/** Reads an array.
 *
 * @param[out] nrow number of rows
 * @param[out] ncol number of columns
 * @param[out] array the array, allocated here, which the caller releases with VORLFreeArray2D, also after -27. Null
 *   after the status of an allocation, and after -27 if the file claims more than 33554432 rows and holds fewer entries
 * @param[in,out] stream open for reading
 * @return 0; -25, -26: no number of rows, of columns; -27: fewer numbers than the array has entries; those of
 *   VORLMallocArray2D (a negative size is more than memory holds) */
KESTRUM_API int VORLReadArray2D(int* nrow, int* ncol, real*** array, FILE* stream) KESTRUM_NOEXCEPT;

/** Writes an array, one entry on a line.
 *
 * The stream is flushed at the end.
 *
 * @param nrow number of rows
 * @param ncol number of columns
 * @param[in] array nrow rows of ncol entries
 * @param[in] format one printf format of the kind that VORLWriteImage takes, with an int if 'd' or 'i' is its last
 *   character and a double otherwise
 * @param[in,out] stream open for writing
 * @return 0; -1021, before the first byte is written: a format that VORLWriteImage refuses; -110: the stream does not
 *   take everything, as on a full disk */
KESTRUM_API int VORLWriteArray2D(int nrow, int ncol, real** array, char* format, FILE* stream) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
