#include "covariance/cov_model.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <type_traits>

#include "core/memory.h"
#include "core/nested_prefix.hpp"
#include "core/plain_numbers.hpp"
#include "core/records.hpp"
#include "core/statuses.hpp"
#include "covariance/cov_model.hpp"

static_assert(std::is_standard_layout_v<VORL_COVMODELELEM> && std::is_trivial_v<VORL_COVMODELELEM>);
static_assert(std::is_standard_layout_v<VORL_COVMODEL> && std::is_trivial_v<VORL_COVMODEL>);
static_assert(sizeof(void*) != 8 || (sizeof(VORL_COVMODELELEM) == 96 && sizeof(VORL_COVMODEL) == 72));

namespace kestrum {
namespace {

void FreeParameterImage(VORL_IMAGE* image) noexcept {
  VORLFreeImage(image);
  VORLFree(image);
}

// What the images of one parameter are checked against.
struct Domain {
  VORL_GRID* grid;
  const VORL_IMAGE* mask;  // null for none

  bool HasMask() const noexcept { return mask != nullptr && mask->var != nullptr; }
  bool IsMasked(int node) const noexcept { return HasMask() && mask->var[node] == 0.0; }
  // Number of nodes for which both the image and the mask have a value.
  int NodeCount(const VORL_IMAGE& image) const noexcept {
    const int nnode = std::min(grid->nxyz, image.nxyzv);
    return HasMask() ? std::min(nnode, mask->nxyzv) : nnode;
  }
};

// A parameter that an image of a record may give, and the statuses of an image that does not fit.
template <typename Record>
struct ImageParameter {
  BOOLEAN Record::*flag;
  VORL_IMAGE* Record::*image;
  int wrongGrid;
  int wrongNumberOfVariables;
};

constexpr ImageParameter<VORL_COVMODELELEM> kWeight = {
    &VORL_COVMODELELEM::weightImageFlag, &VORL_COVMODELELEM::weightImage, kWeightImageGrid, kWeightImageVariableCount};
constexpr ImageParameter<VORL_COVMODELELEM> kRanges[] = {
    {&VORL_COVMODELELEM::rxImageFlag, &VORL_COVMODELELEM::rxImage, kRangeXImageGrid, kRangeXImageVariableCount},
    {&VORL_COVMODELELEM::ryImageFlag, &VORL_COVMODELELEM::ryImage, kRangeYImageGrid, kRangeYImageVariableCount},
    {&VORL_COVMODELELEM::rzImageFlag, &VORL_COVMODELELEM::rzImage, kRangeZImageGrid, kRangeZImageVariableCount}};
constexpr ImageParameter<VORL_COVMODELELEM> kExtraParameter = {
    &VORL_COVMODELELEM::sImageFlag, &VORL_COVMODELELEM::sImage, kShapeImageGrid, kShapeImageVariableCount};
// All three angles deliberately have the statuses of angle 3.
constexpr ImageParameter<VORL_COVMODEL> kAngles[] = {
    {&VORL_COVMODEL::angle1ImageFlag, &VORL_COVMODEL::angle1Image, kAngleImageGrid, kAngleImageVariableCount},
    {&VORL_COVMODEL::angle2ImageFlag, &VORL_COVMODEL::angle2Image, kAngleImageGrid, kAngleImageVariableCount},
    {&VORL_COVMODEL::angle3ImageFlag, &VORL_COVMODEL::angle3Image, kAngleImageGrid, kAngleImageVariableCount}};

// The verdicts below are 0 or the first failure.

// Whether an image is valid, lies on the domain's grid and has one variable.
template <typename Record>
int ImageVerdict(const Record& record, const ImageParameter<Record>& parameter, const Domain& domain) noexcept {
  VORL_IMAGE* const image = record.*parameter.image;
  if (image == nullptr) return kNotAllocated;
  int status = 0;
  VORLValidateImage(image, 0, &status);
  if (status != 0) return status;
  if (VORLCmpGrid(domain.grid, image->grid) != 0) return parameter.wrongGrid;
  if (image->nvar != 1) return parameter.wrongNumberOfVariables;
  return image->nxyzv < domain.grid->nxyz ? kImageValueCount : 0;  // every node is read
}

template <typename Record>
int UnflaggedImageVerdict(const Record& record, const ImageParameter<Record>& parameter,
                          const VORL_GRID& grid) noexcept {
  const VORL_IMAGE* const image = record.*parameter.image;
  if (record.*parameter.flag || image == nullptr) return 0;
  if (const int status = CheckImage(*image); status != 0) return status;
  return image->grid->nxyz == grid.nxyz ? 0 : parameter.wrongGrid;
}

// Walks an image of an element: a masked node marks the value at a cursor as missing and moves the cursor on, any other
// node has the value at the cursor tested. The cursor is deliberately not tied to the node: k masked nodes mark the
// first k values, and without a mask only the first value is ever tested. Returns the first status of a test.
template <typename Test>
int WalkElementImage(VORL_IMAGE& image, const Domain& domain, const Test& test) noexcept {
  const int nnode = domain.NodeCount(image);
  real* cursor = image.var;
  for (int node = 0; node < nnode; ++node) {
    if (domain.IsMasked(node)) {
      *cursor++ = VORL_MISSING_VALUE;
    } else if (const int status = test(*cursor); status != 0) {
      return status;
    }
  }
  return 0;
}

// The statuses of an extra parameter out of its range, as a constant or in an image.
struct ExtraParameterRule {
  int valueTooSmall;
  int valueTooLarge;
  int imageTooSmall;
  int imageTooLarge;
};

constexpr ExtraParameterRule kPowerRule = {kShapeTooSmall, kShapeTooLarge, kShapeImageTooSmall, kShapeImageTooLarge};
constexpr ExtraParameterRule kMaternRule = {kSmoothnessTooSmall, kSmoothnessTooLarge, kSmoothnessImageTooSmall,
                                            kSmoothnessImageTooLarge};

int WeightVerdict(const VORL_COVMODELELEM& elem, const Domain& domain) noexcept {
  if (!elem.weightImageFlag) return elem.weightValue < 0.0 ? kWeightValue : 0;
  if (const int status = ImageVerdict(elem, kWeight, domain); status != 0) return status;
  return WalkElementImage(*elem.weightImage, domain, [](real weight) { return weight < 0.0 ? kWeightImageValue : 0; });
}

int RangeImageVerdict(const VORL_COVMODELELEM& elem, const ImageParameter<VORL_COVMODELELEM>& range,
                      const Domain& domain) noexcept {
  if (const int status = ImageVerdict(elem, range, domain); status != 0) return status;
  // Any value will do, as for a constant range.
  return WalkElementImage(*(elem.*range.image), domain, [](real) { return 0; });
}

int ExtraParameterVerdict(const VORL_COVMODELELEM& elem, const Domain& domain) noexcept {
  const ExtraParameterRule& rule = ElementType(elem) == COV_MATERN ? kMaternRule : kPowerRule;
  const Interval range = ExtraParameterRange(ElementType(elem));
  const auto verdict = [range](real s, int tooSmall, int tooLarge) {
    return s < range.min ? tooSmall : s > range.max ? tooLarge : 0;
  };
  if (!elem.sImageFlag) return verdict(elem.sValue, rule.valueTooSmall, rule.valueTooLarge);
  if (const int status = ImageVerdict(elem, kExtraParameter, domain); status != 0) return status;
  return WalkElementImage(*elem.sImage, domain,
                          [&](real s) { return verdict(s, rule.imageTooSmall, rule.imageTooLarge); });
}

// Angle images are marked at the masked nodes themselves.
int AngleImageVerdict(const VORL_COVMODEL& model, const ImageParameter<VORL_COVMODEL>& angle,
                      const Domain& domain) noexcept {
  if (const int status = ImageVerdict(model, angle, domain); status != 0) return status;
  VORL_IMAGE& image = *(model.*angle.image);
  const int nnode = domain.NodeCount(image);
  for (int node = 0; node < nnode; ++node) {
    if (domain.IsMasked(node)) image.var[node] = VORL_MISSING_VALUE;
  }
  return 0;
}

// A parameter as it is printed.
struct PrintedParameter {
  const char* name;
  BOOLEAN imageFlag;
  real value;
  VORL_IMAGE* image;
};

// Prints the flags of some parameters, then their values, then the images of those whose flag is set.
template <std::size_t N>
int PrintParameters(const PrintedParameter (&parameters)[N], const char* prefix, char* nestedPrefix,
                    FILE* stream) noexcept {
  const PlainNumbers plainNumbers;
  for (const PrintedParameter& p : parameters) std::fprintf(stream, "%s%sImageFlag: %d\n", prefix, p.name, p.imageFlag);
  for (const PrintedParameter& p : parameters) std::fprintf(stream, "%s%sValue: %14.6f\n", prefix, p.name, p.value);
  for (const PrintedParameter& p : parameters) {
    if (!p.imageFlag) continue;
    std::fprintf(stream, "%s%sImage:\n", prefix, p.name);
    if (p.image == nullptr) continue;
    if (const int status = VORLPrintImage(p.image, nestedPrefix, stream); status != 0) return status;
  }
  return 0;
}

const char* TypeName(int type) noexcept {
  static constexpr const char* kNames[] = {
      "COV_NUGGET", "COV_SPHERICAL",      "COV_EXPONENTIAL", "COV_GAUSSIAN", "COV_LINEAR",
      "COV_CUBIC",  "COV_SINUS_CARDINAL", "COV_GAMMA",       "COV_POWER",    "COV_EXPONENTIAL_GENERALIZED",
      "COV_MATERN"};
  return type >= COV_NUGGET && type <= COV_MATERN ? kNames[type] : "unknown";
}

}  // namespace

int UnflaggedImagesVerdict(const VORL_COVMODEL& model, const VORL_GRID& grid) noexcept {
  for (int e = 0; e < model.nelem; ++e) {
    const VORL_COVMODELELEM& elem = model.covModelElem[e];
    if (const int status = UnflaggedImageVerdict(elem, kWeight, grid); status != 0) return status;
    for (const auto& range : kRanges) {
      if (const int status = UnflaggedImageVerdict(elem, range, grid); status != 0) return status;
    }
    if (const int status = UnflaggedImageVerdict(elem, kExtraParameter, grid); status != 0) return status;
  }
  for (const auto& angle : kAngles) {
    if (const int status = UnflaggedImageVerdict(model, angle, grid); status != 0) return status;
  }
  return 0;
}

}  // namespace kestrum

void VORLKestrumInitCovModel(VORL_COVMODEL* model) noexcept { *model = VORL_COVMODEL{}; }

void VORLKestrumInitCovModelElem(VORL_COVMODELELEM* elem) noexcept { *elem = VORL_COVMODELELEM{}; }

void VORLKestrumFreeCovModelElem(VORL_COVMODELELEM* elem) noexcept {
  if (elem == nullptr) return;
  for (VORL_IMAGE* image : {elem->weightImage, elem->rxImage, elem->ryImage, elem->rzImage, elem->sImage}) {
    kestrum::FreeParameterImage(image);
  }
}

void VORLKestrumFreeCovModel(VORL_COVMODEL* model) noexcept {
  if (model == nullptr) return;
  if (model->covModelElem != nullptr) {
    for (int i = 0; i < model->nelem; ++i) VORLKestrumFreeCovModelElem(&model->covModelElem[i]);
    VORLFree(model->covModelElem);
  }
  for (VORL_IMAGE* image : {model->angle1Image, model->angle2Image, model->angle3Image}) {
    kestrum::FreeParameterImage(image);
  }
}

int VORLKestrumValidateCovModelElem(VORL_COVMODELELEM* elem, VORL_GRID* grid, VORL_IMAGE* mask,
                                    BOOLEAN* weightStationary, BOOLEAN* rangeStationary, BOOLEAN* elemStationary,
                                    int* status) noexcept {
  *status = 0;
  *weightStationary = TRUE;
  *rangeStationary = TRUE;
  *elemStationary = TRUE;
  const kestrum::Domain domain{grid, mask};
  const int type = kestrum::ElementType(*elem);
  if (type < COV_NUGGET || type > COV_MATERN) {
    *status = kestrum::kModelType;
    return 0;
  }

  *status = kestrum::WeightVerdict(*elem, domain);
  if (*status != 0) return 0;
  if (elem->weightImageFlag) *weightStationary = *elemStationary = FALSE;

  for (const auto& range : kestrum::kRanges) {
    if (!(elem->*range.flag)) continue;
    *status = kestrum::RangeImageVerdict(*elem, range, domain);
    if (*status != 0) return 0;
    *rangeStationary = *elemStationary = FALSE;
  }

  if (!kestrum::HasExtraParameter(type)) return 0;
  *status = kestrum::ExtraParameterVerdict(*elem, domain);
  if (*status == 0 && elem->sImageFlag) *elemStationary = FALSE;
  return 0;
}

int VORLKestrumValidateCovModel(VORL_COVMODEL* model, VORL_GRID* grid, VORL_IMAGE* mask, BOOLEAN* rotationStationary,
                                BOOLEAN* weightStationary, BOOLEAN* rangeStationary, BOOLEAN* covModelStationary,
                                int* status) noexcept {
  *status = 0;
  *rotationStationary = TRUE;
  *weightStationary = TRUE;
  *rangeStationary = TRUE;
  *covModelStationary = TRUE;
  if (model->nelem < 1 || model->covModelElem == nullptr) {
    *status = kestrum::kModelElementCount;
    return 0;
  }

  for (int i = 0; i < model->nelem; ++i) {
    BOOLEAN weightIsConstant, rangeIsConstant, elemIsConstant;
    VORLKestrumValidateCovModelElem(&model->covModelElem[i], grid, mask, &weightIsConstant, &rangeIsConstant,
                                    &elemIsConstant, status);
    if (*status != 0) return 0;
    if (!weightIsConstant) *weightStationary = FALSE;
    if (!rangeIsConstant) *rangeStationary = FALSE;
    if (!elemIsConstant) *covModelStationary = FALSE;
  }

  for (const auto& angle : kestrum::kAngles) {
    if (!(model->*angle.flag)) continue;
    *status = kestrum::AngleImageVerdict(*model, angle, {grid, mask});
    if (*status != 0) return 0;
    *rotationStationary = *covModelStationary = FALSE;
  }
  return 0;
}

int VORLKestrumPrintCovModelElem(VORL_COVMODELELEM* elem, char* prefix, FILE* stream) noexcept {
  kestrum::NestedPrefix nested;
  if (const int status = nested.Extend(prefix); status != 0) return status;
  const kestrum::PrintedParameter weight[] = {{"weight", elem->weightImageFlag, elem->weightValue, elem->weightImage}};
  const kestrum::PrintedParameter ranges[] = {{"rx", elem->rxImageFlag, elem->rxValue, elem->rxImage},
                                              {"ry", elem->ryImageFlag, elem->ryValue, elem->ryImage},
                                              {"rz", elem->rzImageFlag, elem->rzValue, elem->rzImage}};
  const kestrum::PrintedParameter extra[] = {{"s", elem->sImageFlag, elem->sValue, elem->sImage}};

  const int type = kestrum::ElementType(*elem);
  std::fprintf(stream, "%sType: %s\n", prefix, kestrum::TypeName(type));
  std::fprintf(stream, "%sWeight:\n", prefix);
  if (const int status = kestrum::PrintParameters(weight, prefix, nested.text(), stream); status != 0) return status;
  std::fprintf(stream, "%sRanges:\n", prefix);
  if (const int status = kestrum::PrintParameters(ranges, prefix, nested.text(), stream); status != 0) return status;
  if (!kestrum::HasExtraParameter(type)) return 0;
  std::fprintf(stream, "%sAdditional parameter (%s), s:\n", prefix, type == COV_MATERN ? "nu" : "power");
  return kestrum::PrintParameters(extra, prefix, nested.text(), stream);
}

int VORLKestrumPrintCovModel(VORL_COVMODEL* model, char* prefix, FILE* stream) noexcept {
  kestrum::NestedPrefix nested;
  if (const int status = nested.Extend(prefix); status != 0) return status;
  std::fprintf(stream, "%sNumber of elementary covariance model (contribution): %2d\n", prefix, model->nelem);
  for (int i = 0; i < model->nelem && model->covModelElem != nullptr; ++i) {
    std::fprintf(stream, "\n%sElementary covariance model #%d:\n", prefix, i);
    const int status = VORLKestrumPrintCovModelElem(&model->covModelElem[i], nested.text(), stream);
    if (status != 0) return status;
  }
  const kestrum::PrintedParameter angles[] = {
      {"angle1", model->angle1ImageFlag, model->angle1Value, model->angle1Image},
      {"angle2", model->angle2ImageFlag, model->angle2Value, model->angle2Image},
      {"angle3", model->angle3ImageFlag, model->angle3Value, model->angle3Image}};
  std::fprintf(stream, "\n%sOrientation angles:\n", prefix);
  return kestrum::PrintParameters(angles, prefix, nested.text(), stream);
}
