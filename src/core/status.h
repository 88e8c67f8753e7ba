#ifndef KESTRUM_CORE_STATUS_H
#define KESTRUM_CORE_STATUS_H

/** @file
 * The texts behind the numbers that the library gives.
 *
 * A status is 0 for success, or the negative of a row number of the error table: the caller negates a status before it
 * asks for its text. Most functions give the status as their result; functions whose result is a pointer, and the
 * validating functions, write it to their last argument. A warning number is positive, ends no run, and is numbered
 * independently of the errors.
 */

#include "../core/types.h"

KESTRUM_BEGIN_DECLS

/** Gives the text of an error.
 *
 * @param code row number: a negated status
 * @return a constant text with a line feed at its end, which lives as long as the library and is never freed; "ERROR:
 *   unknown" for a number without a row, such as 0 and all negative ones */
KESTRUM_API const char* VORLGetErrorMessage(int code) KESTRUM_NOEXCEPT;

/** Gives the text of a warning.
 *
 * @param number number of the warning, as the progress monitor keeps it
 * @return a constant text with a line feed at its end, which lives as long as the library and is never freed; "WARNING:
 *   unknown" for a number without a row, such as 0 and all negative ones */
KESTRUM_API const char* VORLGetWarningMessage(int number) KESTRUM_NOEXCEPT;

/** The same as VORLGetErrorMessage.
 * @copydetails VORLGetErrorMessage */
KESTRUM_API const char* vorl_get_error_message(int code) KESTRUM_NOEXCEPT;

/** The same as VORLGetWarningMessage.
 * @copydetails VORLGetWarningMessage */
KESTRUM_API const char* vorl_get_warning_message(int number) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
