#ifndef KESTRUM_CORE_STATUSES_HPP
#define KESTRUM_CORE_STATUSES_HPP

#include "core/warning_messages.h"

namespace kestrum {

// The statuses that the library gives, by name: the rows of the error table that have one, negated.
enum Status : int {
#define KESTRUM_ERROR(number, text)
#define KESTRUM_STATUS(number, name, text) name = -(number),
#include "core/error_messages.inc"
#undef KESTRUM_ERROR
#undef KESTRUM_STATUS
};

// The warnings that the library raises, by name. Each has a row of the warning table.
enum Warning : int {
#define KESTRUM_WARNING(name, digits) name = sizeof(VORL_WARNING_MSG_##digits) > 1 ? 1##digits - 100000 : 0
  KESTRUM_WARNING(kMaskedDataRemoved, 00040),
  KESTRUM_WARNING(kPointConflict, 00041),
  KESTRUM_WARNING(kPointDropped, 00042),
  KESTRUM_WARNING(kPointVarIgnored, 00043),
  KESTRUM_WARNING(kImageVarIgnored, 00044),
  KESTRUM_WARNING(kImageConflict, 00045),
  KESTRUM_WARNING(kBothBoundsRemoved, 00060),
  KESTRUM_WARNING(kMinRemoved, 00061),
  KESTRUM_WARNING(kMaxRemoved, 00062),
  KESTRUM_WARNING(kEqualBounds, 00063),
  KESTRUM_WARNING(kNeighborDropped, 02001),
  KESTRUM_WARNING(kNeighborDroppedByGibbs, 02002),
  KESTRUM_WARNING(kBoundsRelaxed, 02005),
  KESTRUM_WARNING(kVarianceRaised, 02012),
  KESTRUM_WARNING(kSystemFailed, 02015),
  KESTRUM_WARNING(kSystemFailedInGibbs, 02016),
  KESTRUM_WARNING(kDefaultProbabilities, 02020),
#undef KESTRUM_WARNING
};

}  // namespace kestrum

#endif
