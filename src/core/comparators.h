#ifndef KESTRUM_CORE_COMPARATORS_H
#define KESTRUM_CORE_COMPARATORS_H

/* Ascending orders for qsort: each takes the addresses of two elements, not null, and returns -1, 0 or 1. A NaN
 * compares equal to everything. Safe from any thread.
 */

#include "core/types.h"

KESTRUM_BEGIN_DECLS

/* Elements to sort along with their index. */
typedef struct vorl_infoIntValue VORL_INFOINTVALUE;
typedef struct vorl_infoDouValue VORL_INFODOUVALUE;
typedef struct vorl_infoReaValue VORL_INFOREAVALUE;

struct vorl_infoIntValue {
  int index;
  int value;
};

struct vorl_infoDouValue {
  int index;
  double value;
};

struct vorl_infoReaValue {
  int index;
  real value;
};

/* Two int. */
KESTRUM_API int VORLCmpInt(const void* a, const void* b) KESTRUM_NOEXCEPT;
/* Two real. */
KESTRUM_API int VORLCmpReal(const void* a, const void* b) KESTRUM_NOEXCEPT;
/* Two VORL_INFOINTVALUE, by value. */
KESTRUM_API int VORLCmpInfoIntValue(const void* a, const void* b) KESTRUM_NOEXCEPT;
/* Two VORL_INFOINTVALUE, by index, then by value. */
KESTRUM_API int VORLCmpInfoIntValueAll(const void* a, const void* b) KESTRUM_NOEXCEPT;
/* Two VORL_INFODOUVALUE, by value. */
KESTRUM_API int VORLCmpInfoDouValue(const void* a, const void* b) KESTRUM_NOEXCEPT;
/* Two VORL_INFOREAVALUE, by value. */
KESTRUM_API int VORLCmpInfoReaValue(const void* a, const void* b) KESTRUM_NOEXCEPT;

/* Lexicographic order of the first n entries of two vectors; an n below 1 gives 0. */
KESTRUM_API int VORLCmpVectorOfClassId(classIdType* a, classIdType* b, int n) KESTRUM_NOEXCEPT;
KESTRUM_API int VORLCmpVectorOfReal(real* a, real* b, int n) KESTRUM_NOEXCEPT;

KESTRUM_END_DECLS

#endif
