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

// The legal values of the extra parameter s of a type that has it.
struct Interval {
  real min;
  real max;
  constexpr bool Holds(real s) const noexcept { return s >= min && s <= max; }
};
constexpr Interval ExtraParameterRange(int type) noexcept {
  constexpr Interval kRanges[] = {{VORL_KESTRUM_COV_POWER_MIN, VORL_KESTRUM_COV_POWER_MAX},
                                  {VORL_KESTRUM_COV_MATERN_NU_MIN, VORL_KESTRUM_COV_MATERN_NU_MAX}};
  return kRanges[type == COV_MATERN];
}

// Whether the images that are set without their flag, which evaluation reads all the same, have the nodes of a grid: 0;
// the status of CheckImage; or that of the parameter for an image on another grid.
[[nodiscard]] int UnflaggedImagesVerdict(const VORL_COVMODEL& model, const VORL_GRID& grid) noexcept;

// Reads a parameter at a node: the image decides if there is one, whatever the flag says.
struct ParametersAtNode {
  int node;
  real operator()(const VORL_IMAGE* image, real value) const noexcept {
    return image != nullptr ? image->var[node] : value;
  }
};

// Reads the constants, whether or not there are images.
struct ConstantParameters {
  real operator()(const VORL_IMAGE*, real value) const noexcept { return value; }
};

// An element's parameters, wherever they come from. Those that its type does not use are not read, and stay 0.0.
struct ElementParameters {
  int type;
  real w;
  real rx = 0.0;
  real ry = 0.0;
  real rz = 0.0;
  real s = 0.0;
};

template <typename Source>
ElementParameters ReadParameters(const VORL_COVMODELELEM& element, const Source& source) noexcept {
  ElementParameters p{.type = ElementType(element), .w = source(element.weightImage, element.weightValue)};
  if (p.type != COV_NUGGET) {
    p.rx = source(element.rxImage, element.rxValue);
    p.ry = source(element.ryImage, element.ryValue);
    p.rz = source(element.rzImage, element.rzValue);
  }
  if (HasExtraParameter(p.type)) p.s = source(element.sImage, element.sValue);
  return p;
}

// The sill: the sum of the weights.
template <typename Source>
real Sill(const VORL_COVMODEL& model, const Source& source) noexcept {
  real sill = 0.0;
  for (int i = 0; i < model.nelem; ++i) {
    const VORL_COVMODELELEM& element = model.covModelElem[i];
    sill += source(element.weightImage, element.weightValue);
  }
  return sill;
}
inline real SillAtNode(const VORL_COVMODEL& model, int node) noexcept { return Sill(model, ParametersAtNode{node}); }
inline real StationarySill(const VORL_COVMODEL& model) noexcept { return Sill(model, ConstantParameters{}); }

// Reads azimuth, dip and plunge; returns whether one of them is not 0.0, so that there is a rotation.
template <typename Source>
[[nodiscard]] bool Angles(const VORL_COVMODEL& model, const Source& source, real angles[3]) noexcept {
  angles[0] = source(model.angle1Image, model.angle1Value);
  angles[1] = source(model.angle2Image, model.angle2Value);
  angles[2] = source(model.angle3Image, model.angle3Value);
  return angles[0] != 0.0 || angles[1] != 0.0 || angles[2] != 0.0;
}
[[nodiscard]] inline bool AnglesAtNode(const VORL_COVMODEL& model, int node, real angles[3]) noexcept {
  return Angles(model, ParametersAtNode{node}, angles);
}
[[nodiscard]] inline bool StationaryAngles(const VORL_COVMODEL& model, real angles[3]) noexcept {
  return Angles(model, ConstantParameters{}, angles);
}

}  // namespace kestrum

#endif
