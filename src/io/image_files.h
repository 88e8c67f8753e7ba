#ifndef KESTRUM_IO_IMAGE_FILES_H
#define KESTRUM_IO_IMAGE_FILES_H

#include <stdio.h>

#include "core/image.h"
#include "core/text.h"
#include "core/types.h"

/* One image on a stream that the caller has opened: four text formats and a native binary form.
 *
 * No function here opens, closes or rewinds the stream, and none prints. A reader leaves the stream just behind the
 * last thing it took; whatever follows stays unread.
 *
 * Text formats (fileFormat):
 *   0  GSLIB-style text
 *   1  VTK legacy text, structured points
 *   2  PGM plain (P2), one variable, 2D
 *   3  PPM plain (P3), three variables, 2D
 * Values stand in node order, one line per node, all variables of the node on the line. A missing value has no syntax
 * of its own: VORL_MISSING_VALUE travels as the number it is. Header numbers are written with six decimals. PGM and PPM
 * keep the grid in a comment that is not read back: such an image returns with spacing 1 and origin 0.
 *
 * Binary form: byte order of the machine; sizes of int and real (one byte each), nx, ny, nz, sx, sy, sz, ox, oy, oz,
 * nvar, the names with their terminating NUL, and the values of the image in one block. It keeps every bit.
 *
 * The readers expect an image that holds nothing (VORLInitImage). They allocate its contents; free them with
 * VORLFreeImage, also after a failure, which may leave them partly filled. A grid whose node or value count does not
 * fit an int is refused as an unreadable size.
 *
 * Thread safety: calls on different images and different streams may run at the same time.
 */

#define VORL_VTK_VERSION_NUMBER 3.4
#define VORL_NAME_FOR_PGM_VAR "pgmValue"
#define VORL_NAME_FOR_PPM_VAR0 "ppmR"
#define VORL_NAME_FOR_PPM_VAR1 "ppmG"
#define VORL_NAME_FOR_PPM_VAR2 "ppmB"
/* A format that callers without a wish of their own pass as formatString. */
#define VORL_FORMAT_DEFAULT "%.10g"
#define VORL_EXTENSION_FOR_IMAGE_FILE ".gslib"

KESTRUM_BEGIN_DECLS

/* Reads an image from a text stream.
 *   image       out; must hold nothing
 *   fileFormat  0 to 3, see above
 *   stream      open for reading
 * Statuses: -720 unknown format; -721 to -726 GSLIB header; -741 to -762 VTK header; -763 to -766 PGM header; -767 to
 * -769 and -710 PPM header; -730 fewer numbers than the image has values; those of VORLMallocImage. */
KESTRUM_API int VORLReadImage(VORL_IMAGE* image, int fileFormat, FILE* stream) KESTRUM_NOEXCEPT;

/* Writes an image to a text stream.
 *   image         in
 *   formatString  in; printf formats of the variables, separated by semicolons and repeated cyclically if there are
 *                 fewer than variables; surplus ones are ignored. A format has at most 127 characters and at most one
 *                 conversion: for a double (a e f g, either case), or for an int if 'd' or 'i' is its last character;
 *                 then the value is truncated toward zero first (one beyond the range of int prints as the lowest int).
 *                 Flags, width, precision, text and %% are free. Not looked at if the image has no variable.
 *   fileFormat    0 to 3, see above
 *   stream        open for writing
 * Statuses: -1020 unknown format; -20 null pointer; -1016, -1018 image does not fit PGM; -1017, -1019 does not fit PPM;
 * -1021 no format, or one that is not as described; those of VORLMalloc. All of them stand before the first byte is
 * written. A failure of the stream itself is not reported. */
KESTRUM_API int VORLWriteImage(VORL_IMAGE* image, char* formatString, int fileFormat, FILE* stream) KESTRUM_NOEXCEPT;

/* Reads an image in binary form. The two size bytes are not compared with anything.
 *   image   out; must hold nothing
 *   stream  open for reading
 * Statuses: -1045 to -1059 the field that could not be read; -726 a name over 255 characters; those of
 * VORLMallocImage. */
KESTRUM_API int VORLReadImageGslibBinary(VORL_IMAGE* image, FILE* stream) KESTRUM_NOEXCEPT;

/* Writes an image in binary form.
 *   image   in
 *   stream  open for writing
 * Statuses: -20 null pointer; -1025 to -1039 the field that could not be written. */
KESTRUM_API int VORLWriteImageGslibBinary(VORL_IMAGE* image, FILE* stream) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
