#ifndef KESTRUM_CORE_TEXT_H
#define KESTRUM_CORE_TEXT_H

/* Helpers of names and of text readers. All functions are safe from any thread on distinct streams and strings. */

#include <stdio.h>

#include "core/types.h"

/* Sizes of text buffers, terminator included. */
#define VORL_VARNAME_LENGTH 256
#define VORL_FILENAME_LENGTH 512
#define VORL_LINE_LENGTH 256
#define VORL_WORD_LENGTH 128

KESTRUM_BEGIN_DECLS

/* The character of a decimal digit; 'x' for a number that is none. */
KESTRUM_API char VORLDigitToChar(int digit) KESTRUM_NOEXCEPT;

/* Writes the ndigit lowest decimal digits of value, zero-filled on the left; a negative value becomes ndigit 'x'.
 *   str  out: ndigit + 1 bytes, terminator included; untouched if ndigit is negative. */
KESTRUM_API void VORLIntToString(int value, char* str, int ndigit) KESTRUM_NOEXCEPT;

/* Moves a seekable stream over blanks, tabs, ends of line and comments (to the end of the line, or between slash-star
 * and star-slash) to the first character of the next entry.
 * Returns 0, or -999 if the file ends first, also within a comment. */
KESTRUM_API int VORLSkipComments(FILE* stream) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
