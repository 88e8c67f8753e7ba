#ifndef KESTRUM_CORE_TEXT_H
#define KESTRUM_CORE_TEXT_H

/** @file
 * Helpers of names and of text readers.
 */

#include <stdio.h>

#include "../core/types.h"

#define VORL_VARNAME_LENGTH 256  /**< bytes of the name of a variable, terminator included */
#define VORL_FILENAME_LENGTH 512 /**< bytes of the name of a file, terminator included */
#define VORL_LINE_LENGTH 256     /**< bytes of a line, terminator included */
#define VORL_WORD_LENGTH 128     /**< bytes of a word, terminator included */

KESTRUM_BEGIN_DECLS

/** Gives the character of a decimal digit.
 *
 * @param digit any number
 * @return '0' to '9' for 0 to 9, otherwise 'x' */
KESTRUM_API char VORLDigitToChar(int digit) KESTRUM_NOEXCEPT;

/** Writes a number with a fixed number of digits: its lowest ones, filled with zeros on the left.
 *
 * @param value the number; a negative one becomes ndigit times 'x'
 * @param[out] str ndigit + 1 bytes, terminator included; untouched if ndigit is negative
 * @param ndigit number of digits */
KESTRUM_API void VORLIntToString(int value, char* str, int ndigit) KESTRUM_NOEXCEPT;

/** Moves a stream over white space and comments to the first character of the next entry.
 *
 * White space is blanks, tabs and ends of line; comments are those of C and C++.
 *
 * @param[in,out] stream seekable text, open for reading
 * @return 0; -999: the file ends first, perhaps within a comment */
KESTRUM_API int VORLSkipComments(FILE* stream) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
