#include "engine/same_systems.hpp"

#include <algorithm>
#include <cstring>

#include "core/integers.hpp"

namespace kestrum {
namespace {

bool SameElement(const VORL_COVMODELELEM& a, const VORL_COVMODELELEM& b) noexcept {
  return EnumNumber(a.covModelType) == EnumNumber(b.covModelType) && a.weightValue == b.weightValue &&
         a.rxValue == b.rxValue && a.ryValue == b.ryValue && a.rzValue == b.rzValue && a.sValue == b.sValue;
}

bool SameRotation(const KrigingModel& a, const KrigingModel& b) noexcept {
  return a.rotated == b.rotated && (!a.rotated || std::memcmp(&a.rotation, &b.rotation, sizeof a.rotation) == 0);
}

}  // namespace

bool SameModel(const KrigingModel& a, const KrigingModel& b) noexcept {
  if (!a.covModelStationary || !b.covModelStationary || a.sill != b.sill || !SameRotation(a, b)) return false;
  const VORL_COVMODEL& p = *a.covModel;
  const VORL_COVMODEL& q = *b.covModel;
  return p.nelem == q.nelem && std::equal(p.covModelElem, p.covModelElem + p.nelem, q.covModelElem, SameElement);
}

bool SameList(const VORL_SEARCHNEIGHBORHOOD& a, const VORL_SEARCHNEIGHBORHOOD& b) noexcept {
  return a.size == b.size && std::equal(a.ix, a.ix + a.size, b.ix) && std::equal(a.iy, a.iy + a.size, b.iy) &&
         std::equal(a.iz, a.iz + a.size, b.iz) && std::equal(a.weight, a.weight + a.size, b.weight);
}

}  // namespace kestrum
