#include "engine/kriging_model.hpp"

#include <algorithm>

namespace kestrum {
namespace {

// Images count wherever they are set, whatever the flags say.
bool HasImage(const VORL_COVMODELELEM& e) noexcept {
  return e.weightImage != nullptr || e.rxImage != nullptr || e.ryImage != nullptr || e.rzImage != nullptr ||
         e.sImage != nullptr;
}

bool SameElement(const VORL_COVMODELELEM& a, const VORL_COVMODELELEM& b) noexcept {
  return !HasImage(a) && !HasImage(b) && ElementType(a) == ElementType(b) && a.weightValue == b.weightValue &&
         a.rxValue == b.rxValue && a.ryValue == b.ryValue && a.rzValue == b.rzValue && a.sValue == b.sValue;
}

bool SameRotation(const KrigingModel& a, const KrigingModel& b) noexcept {
  return a.rotated == b.rotated && (!a.rotated || a.rotation == b.rotation);
}

}  // namespace

bool SameModel(const KrigingModel& a, const KrigingModel& b) noexcept {
  if (!a.covModelStationary || !b.covModelStationary || a.sill != b.sill || !SameRotation(a, b)) return false;
  const VORL_COVMODEL& p = *a.covModel;
  const VORL_COVMODEL& q = *b.covModel;
  return p.nelem == q.nelem && std::equal(p.covModelElem, p.covModelElem + p.nelem, q.covModelElem, SameElement);
}

}  // namespace kestrum
