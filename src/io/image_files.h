#ifndef KESTRUM_IO_IMAGE_FILES_H
#define KESTRUM_IO_IMAGE_FILES_H

/** @file
 * One image on a stream that the caller has opened: four text formats and a native binary form.
 *
 * No function here opens, closes or rewinds the stream, and none prints. A reader leaves the stream just behind the
 * last thing it took; whatever follows stays unread.
 *
 * Text formats (fileFormat):
 * - 0: GSLIB-style text
 * - 1: VTK legacy text, structured points
 * - 2: PGM plain (P2), one variable, 2D
 * - 3: PPM plain (P3), three variables, 2D
 *
 * Values are in node order, one line per node, all variables of the node on the line. A missing value has no syntax of
 * its own: it is written as the number VORL_MISSING_VALUE. Header numbers are written with six decimals. PGM and PPM
 * keep the grid in a comment that is not read back: such an image returns with spacing 1 and origin 0.
 *
 * Binary form: byte order of the machine; sizes of int and real (one byte each), nx, ny, nz, sx, sy, sz, ox, oy, oz,
 * nvar, the names with their terminating NUL, and the values of the image in one block. It keeps every bit.
 *
 * A grid whose node or value count does not fit an int is refused as an unreadable size. After a failure of a reader
 * its image may be partly filled.
 */

#include <stdio.h>

#include "../core/image.h"
#include "../core/text.h"
#include "../core/types.h"

#define VORL_VTK_VERSION_NUMBER 3.4            /**< version in the first line of a VTK file */
#define VORL_NAME_FOR_PGM_VAR "pgmValue"       /**< name of the variable of a PGM file */
#define VORL_NAME_FOR_PPM_VAR0 "ppmR"          /**< name of the red variable of a PPM file */
#define VORL_NAME_FOR_PPM_VAR1 "ppmG"          /**< name of the green variable of a PPM file */
#define VORL_NAME_FOR_PPM_VAR2 "ppmB"          /**< name of the blue variable of a PPM file */
#define VORL_FORMAT_DEFAULT "%.10g"            /**< a formatString for callers without a wish of their own */
#define VORL_EXTENSION_FOR_IMAGE_FILE ".gslib" /**< ending of the names of image files */

KESTRUM_BEGIN_DECLS

/** Reads an image from a text stream.
 *
 * @param[out] image must be empty
 * @param fileFormat 0 GSLIB-style text, 1 VTK, 2 PGM, 3 PPM
 * @param[in,out] stream open for reading
 * @return 0; -720: unknown format; -721 to -726: GSLIB header; -741 to -762: VTK header; -763 to -766: PGM header; -767
 *   to -769 and -710: PPM header; -730: fewer numbers than the image has values; those of VORLMallocImage */
KESTRUM_API int VORLReadImage(VORL_IMAGE* image, int fileFormat, FILE* stream) KESTRUM_NOEXCEPT;

/** Writes an image to a text stream.
 *
 * The stream is flushed at the end.
 *
 * @param[in] image the image
 * @param[in] formatString printf formats of the variables, separated by semicolons and repeated cyclically if there are
 *   fewer than variables; surplus ones are ignored. A format has at most 127 characters and at most one conversion: for
 *   a double (a e f g, either case), or for an int if 'd' or 'i' is its last character; then the value is truncated
 *   toward zero first (one beyond the range of int prints as the lowest int). Flags, width, precision, text and doubled
 *   percent signs are free. Not looked at if the image has no variable
 * @param fileFormat 0 GSLIB-style text, 1 VTK, 2 PGM, 3 PPM
 * @param[in,out] stream open for writing
 * @return 0; before the first byte is written: -1020: unknown format; those of an image that is not filled; -1016,
 *   -1018: the image does not fit PGM; -1017, -1019: it does not fit PPM; -1021: no formatString, or one that is not as
 *   described; allocation statuses; after that -110: the stream does not take everything, as on a full disk */
KESTRUM_API int VORLWriteImage(VORL_IMAGE* image, char* formatString, int fileFormat, FILE* stream) KESTRUM_NOEXCEPT;

/** Reads an image in binary form. The two size bytes are not compared with anything.
 *
 * @param[out] image must be empty
 * @param[in,out] stream open for reading
 * @return 0; -1045 to -1059: the field that cannot be read; -726: a name over 255 characters; those of VORLMallocImage
 */
KESTRUM_API int VORLReadImageGslibBinary(VORL_IMAGE* image, FILE* stream) KESTRUM_NOEXCEPT;

/** Writes an image in binary form.
 *
 * @param[in] image the image
 * @param[in,out] stream open for writing
 * @return 0; before the first byte is written those of an image that is not filled; -1025 to -1039: the field that
 *   cannot be written, the last one if that shows when the stream is flushed at the end */
KESTRUM_API int VORLWriteImageGslibBinary(VORL_IMAGE* image, FILE* stream) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
