#ifndef KESTRUM_CORE_POINT_SET_HPP
#define KESTRUM_CORE_POINT_SET_HPP

#include "core/types.h"

namespace kestrum {

// Whether the coordinates, names and values that the numbers of points and of variables tell of are there.
inline bool IsWhole(const VORL_POINTSET& ps) noexcept {
  if (ps.nvar > 0 && ps.varName == nullptr) return false;
  if (ps.npoint < 1) return true;
  return ps.x != nullptr && ps.y != nullptr && ps.z != nullptr && (ps.nvar < 1 || ps.var != nullptr);
}

}  // namespace kestrum

#endif
