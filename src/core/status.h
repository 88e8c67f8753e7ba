#ifndef KESTRUM_CORE_STATUS_H
#define KESTRUM_CORE_STATUS_H

/* The texts behind the numbers that the library gives.
 *
 * A status is 0 for success, or the negative of a row number of the error table: the caller negates a status before it
 * asks for its text. Most functions give the status as their result; functions whose result is a pointer, and the
 * validating functions, write it to their last argument. A warning number is positive, ends no run, and is numbered
 * independently of the errors.
 *
 * All functions here return constant text that lives as long as the library, is never freed by the caller and ends in a
 * newline. They may be called from any thread.
 */

#include "core/types.h"

KESTRUM_BEGIN_DECLS

/* The text of an error.
 * code: positive row number (a negated status).
 * Gives "ERROR: unknown\n" for a number without a row, 0 and all negative numbers among them. */
KESTRUM_API const char* VORLGetErrorMessage(int code) KESTRUM_NOEXCEPT;

/* The text of a warning.
 * number: positive warning number, as kept by the progress monitor.
 * Gives "WARNING: unknown\n" for a number without a row, 0 and all negative numbers among them. */
KESTRUM_API const char* VORLGetWarningMessage(int number) KESTRUM_NOEXCEPT;

/* The same as VORLGetErrorMessage. */
KESTRUM_API const char* vorl_get_error_message(int code) KESTRUM_NOEXCEPT;

/* The same as VORLGetWarningMessage. */
KESTRUM_API const char* vorl_get_warning_message(int number) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
