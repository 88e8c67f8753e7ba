#ifndef KESTRUM_CORE_COMPARATORS_H
#define KESTRUM_CORE_COMPARATORS_H

/** @file
 * Ascending orders for qsort and for direct calls. A NaN compares equal to everything.
 */

#include "../core/types.h"

KESTRUM_BEGIN_DECLS

typedef struct vorl_infoIntValue VORL_INFOINTVALUE; /**< see vorl_infoIntValue */
typedef struct vorl_infoDouValue VORL_INFODOUVALUE; /**< see vorl_infoDouValue */
typedef struct vorl_infoReaValue VORL_INFOREAVALUE; /**< see vorl_infoReaValue */

/** A whole number to sort along with its index. */
struct vorl_infoIntValue {
  int index; /**< place before sorting */
  int value; /**< any */
};

/** A double to sort along with its index. */
struct vorl_infoDouValue {
  int index;    /**< place before sorting */
  double value; /**< any */
};

/** A real to sort along with its index. */
struct vorl_infoReaValue {
  int index;  /**< place before sorting */
  real value; /**< any */
};

/** Compares two int.
 *
 * @param[in] a first element
 * @param[in] b second element
 * @return -1 if a comes first, 1 if b does, else 0 */
KESTRUM_API int VORLCmpInt(const void* a, const void* b) KESTRUM_NOEXCEPT;
/** Compares two real.
 * @copydetails VORLCmpInt */
KESTRUM_API int VORLCmpReal(const void* a, const void* b) KESTRUM_NOEXCEPT;
/** Compares two VORL_INFOINTVALUE by value.
 * @copydetails VORLCmpInt */
KESTRUM_API int VORLCmpInfoIntValue(const void* a, const void* b) KESTRUM_NOEXCEPT;
/** Compares two VORL_INFOINTVALUE by index, then by value.
 * @copydetails VORLCmpInt */
KESTRUM_API int VORLCmpInfoIntValueAll(const void* a, const void* b) KESTRUM_NOEXCEPT;
/** Compares two VORL_INFODOUVALUE by value.
 * @copydetails VORLCmpInt */
KESTRUM_API int VORLCmpInfoDouValue(const void* a, const void* b) KESTRUM_NOEXCEPT;
/** Compares two VORL_INFOREAVALUE by value.
 * @copydetails VORLCmpInt */
KESTRUM_API int VORLCmpInfoReaValue(const void* a, const void* b) KESTRUM_NOEXCEPT;

/** Compares two vectors of class identifiers in lexicographic order.
 *
 * @param[in] a first vector, n entries
 * @param[in] b second vector, n entries
 * @param n number of entries; the result is 0 if it is below 1
 * @return -1 if a comes first, 1 if b does, else 0 */
KESTRUM_API int VORLCmpVectorOfClassId(classIdType* a, classIdType* b, int n) KESTRUM_NOEXCEPT;

/** Compares two vectors of real in lexicographic order.
 * @copydetails VORLCmpVectorOfClassId */
KESTRUM_API int VORLCmpVectorOfReal(real* a, real* b, int n) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
