#ifndef KESTRUM_COVARIANCE_COV_MODEL_HPP
#define KESTRUM_COVARIANCE_COV_MODEL_HPP

#include <cstring>

#include "covariance/cov_model.h"

namespace kestrum {

// The type of an element as a number. Callers can store any int in the field, which the enumeration itself must not
// hold.
inline int ElementType(const VORL_COVMODELELEM& element) noexcept {
  static_assert(sizeof(VORL_COVMODELTYPE) == sizeof(int));
  int type;
  std::memcpy(&type, &element.covModelType, sizeof type);
  return type;
}

// Whether elements of a type have the extra parameter s.
constexpr bool HasExtraParameter(int type) noexcept { return type >= COV_GAMMA && type <= COV_MATERN; }

// A parameter at a node: the image decides if there is one, whatever the flag says.
inline real ParameterAtNode(const VORL_IMAGE* image, real value, int node) noexcept {
  return image != nullptr ? image->var[node] : value;
}

// The sill at a node: the sum of the weights there.
inline real SillAtNode(const VORL_COVMODEL& model, int node) noexcept {
  real sill = 0.0;
  for (int i = 0; i < model.nelem; ++i) {
    const VORL_COVMODELELEM& element = model.covModelElem[i];
    sill += ParameterAtNode(element.weightImage, element.weightValue, node);
  }
  return sill;
}

// The sill of a model whose weights are constants.
inline real StationarySill(const VORL_COVMODEL& model) noexcept {
  real sill = 0.0;
  for (int i = 0; i < model.nelem; ++i) sill += model.covModelElem[i].weightValue;
  return sill;
}

// Reads azimuth, dip and plunge at a node; returns whether one of them is not 0.0, so that there is a rotation.
[[nodiscard]] inline bool AnglesAtNode(const VORL_COVMODEL& model, int node, real angles[3]) noexcept {
  angles[0] = ParameterAtNode(model.angle1Image, model.angle1Value, node);
  angles[1] = ParameterAtNode(model.angle2Image, model.angle2Value, node);
  angles[2] = ParameterAtNode(model.angle3Image, model.angle3Value, node);
  return angles[0] != 0.0 || angles[1] != 0.0 || angles[2] != 0.0;
}

// As AnglesAtNode, from the constants.
[[nodiscard]] inline bool StationaryAngles(const VORL_COVMODEL& model, real angles[3]) noexcept {
  angles[0] = model.angle1Value;
  angles[1] = model.angle2Value;
  angles[2] = model.angle3Value;
  return angles[0] != 0.0 || angles[1] != 0.0 || angles[2] != 0.0;
}

}  // namespace kestrum

#endif
