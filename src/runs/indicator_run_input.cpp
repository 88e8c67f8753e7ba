#include "runs/indicator_run_input.h"

#include <cmath>
#include <cstddef>
#include <type_traits>

#include "core/c_vector.hpp"
#include "core/memory.h"
#include "core/statuses.hpp"
#include "runs/run_input_shared.hpp"

static_assert(std::is_standard_layout_v<VORL_KESTRUMINDICATORINPUT> && sizeof(VORL_KESTRUMINDICATORINPUT) == 216);

namespace kestrum {
namespace {

enum ProbabilityUsage { kFromData, kConstants, kImage };

// What validation reports on the models of all categories, to be handed over to its caller.
struct Stationarity {
  CVector<BOOLEAN> rotation;
  CVector<BOOLEAN> weight;
  CVector<BOOLEAN> range;
  CVector<BOOLEAN> covModel;

  [[nodiscard]] int Allocate(int ncategory) noexcept {
    for (CVector<BOOLEAN>* flags : {&rotation, &weight, &range, &covModel}) {
      if (const int status = flags->Allocate(ncategory); status != 0) return status;
    }
    return 0;
  }
};

bool ValidCategories(const VORL_KESTRUMINDICATORINPUT& input, InputValidation& validation) noexcept {
  if (input.ncategory < 1) return validation.Refuse(kCategoryCount);
  if (input.ncategory > VORL_KESTRUM_NCATEGORY_MAX) return validation.Refuse(kTooManyCategories);
  if (input.categoryValue == nullptr) return validation.Refuse(kCategoryMissing);
  for (int c = 0; c < input.ncategory; ++c) {
    const real value = input.categoryValue[c];
    if (value == VORL_MISSING_VALUE) return validation.Refuse(kCategoryMissing);
    // The only category of a binary variable must differ from its complement.
    if (input.ncategory == 1 && value == 0.0) return validation.Refuse(kCategoryZero);
    for (int later = c + 1; later < input.ncategory; ++later) {
      if (value == input.categoryValue[later]) return validation.Refuse(kCategoriesNotDistinct);
    }
  }
  return true;
}

bool ValidModels(const VORL_KESTRUMINDICATORINPUT& input, Stationarity& stationarity,
                 InputValidation& validation) noexcept {
  if (input.covModel == nullptr) return validation.Refuse(kModelElementCount);
  for (int c = 0; c < input.ncategory; ++c) {
    if (!validation.CovModel(&input.covModel[c], input.simGrid, input.maskImage, stationarity.rotation.data() + c,
                             stationarity.weight.data() + c, stationarity.range.data() + c,
                             stationarity.covModel.data() + c)) {
      return false;
    }
  }
  return true;
}

// Each rule is put to all categories before the next one.
bool ValidNeighborhoods(const VORL_KESTRUMINDICATORINPUT& input, Stationarity& stationarity,
                        InputValidation& validation) noexcept {
  const int ncategory = input.ncategory;
  if (input.searchRadiusRelative == nullptr) return validation.Refuse(kSearchRadius);
  for (int c = 0; c < ncategory; ++c) {
    if (!validation.UniqueNeighborhood(input.searchRadiusRelative[c], stationarity.covModel.data()[c])) return false;
  }
  for (int c = 0; c < ncategory; ++c) {
    if (!validation.SearchRadius(input.searchRadiusRelative[c], IsSimulation(input))) return false;
  }
  if (input.nneighborMax == nullptr) return validation.Refuse(kNeighborMax);
  for (int c = 0; c < ncategory; ++c) {
    if (!validation.NeighborMax(input.nneighborMax[c])) return false;
  }
  if (input.searchNeighborhoodSortMode == nullptr) return validation.Refuse(kSortMode);
  for (int c = 0; c < ncategory; ++c) {
    if (!validation.SortMode(input.searchNeighborhoodSortMode[c], stationarity.covModel.data()[c])) return false;
  }
  return true;
}

// Tests the probabilities of all categories, stride apart, and corrects a sum that is slightly off. With one category
// the rest belongs to the complement, and there is no sum to test. Gives 0 or the code of the rule broken.
int CheckProbabilities(real* probability, int ncategory, std::ptrdiff_t stride) noexcept {
  real sum = 0.0;
  for (int c = 0; c < ncategory; ++c) {
    const real value = probability[c * stride];
    if (value < 0.0) return kProbabilityBelowZero;
    if (value > 1.0) return kProbabilityAboveOne;
    sum += value;
  }
  if (ncategory < 2) return 0;
  const real excess = std::fabs(sum - 1.0);
  if (excess > VORL_KESTRUM_TOLEREANCE_ON_SUM_PROBABILITY) return kProbabilitySum;
  if (excess > VORL_EPSILON_SOFT) {
    const real scale = 1.0 / sum;
    for (int c = 0; c < ncategory; ++c) probability[c * stride] *= scale;
  }
  return 0;
}

bool ValidProbabilityImage(const VORL_KESTRUMINDICATORINPUT& input, InputValidation& validation) noexcept {
  VORL_IMAGE* const image = input.probabilityImage;
  if (image == nullptr) return validation.Refuse(kNoProbabilityImage);
  if (!validation.ParameterImage(image, input.simGrid, input.ncategory, kProbabilityImageGrid,
                                 kProbabilityImageVariableCount))
    return false;
  const VORL_IMAGE* const mask = UsedMask(input);
  const int nxyz = image->grid->nxyz;
  for (int i = 0; i < nxyz; ++i) {
    if (mask != nullptr && mask->var[i] == 0.0) continue;
    if (const int code = CheckProbabilities(image->var + i, input.ncategory, nxyz); code != 0) {
      return validation.Refuse(code);
    }
  }
  return true;
}

bool ValidProbabilities(const VORL_KESTRUMINDICATORINPUT& input, InputValidation& validation) noexcept {
  switch (input.probabilityUsage) {
    case kFromData:
      return true;
    case kConstants: {
      if (input.probabilityValue == nullptr) return validation.Refuse(kNoProbabilities);
      const int code = CheckProbabilities(input.probabilityValue, input.ncategory, 1);
      return code == 0 || validation.Refuse(code);
    }
    case kImage:
      return ValidProbabilityImage(input, validation);
    default:
      return validation.Refuse(kProbabilityUsage);
  }
}

// All rules but the last one, which does not keep the flags from the caller.
bool ValidUpToProbabilities(const VORL_KESTRUMINDICATORINPUT& input, Stationarity& stationarity,
                            InputValidation& validation) noexcept {
  return validation.GridToFormat(input) && ValidCategories(input, validation) && validation.Output(input) &&
         validation.ComputationMode(EnumNumber(input.computationMode)) && validation.Mask(input) &&
         validation.Succeeded(stationarity.Allocate(input.ncategory)) && ValidModels(input, stationarity, validation) &&
         ValidNeighborhoods(input, stationarity, validation) && validation.Data(input) &&
         ValidProbabilities(input, validation);
}

// Calls printValue(c, value) for each category, unless the vector is null.
template <typename Value, typename PrintValue>
void PrintByCategory(int ncategory, const Value* values, const PrintValue& printValue) noexcept {
  if (values == nullptr) return;
  for (int c = 0; c < ncategory; ++c) printValue(c, values[c]);
}

int PrintProbabilities(const VORL_KESTRUMINDICATORINPUT& input, InputPrinter& printer) noexcept {
  printer.Line("probabilityUsage: %d", input.probabilityUsage);
  if (input.probabilityUsage == kConstants) {
    PrintByCategory(input.ncategory, input.probabilityValue,
                    [&](int c, real value) { printer.Line("probabilityValue %2d: %14.6f", c, value); });
  }
  if (input.probabilityUsage != kImage) return 0;
  printer.Line("probabilityImage:");
  return printer.Image(input.probabilityImage);
}

int PrintModels(const VORL_KESTRUMINDICATORINPUT& input, InputPrinter& printer) noexcept {
  printer.Line("covModel:");
  if (input.covModel == nullptr) return 0;
  for (int c = 0; c < input.ncategory; ++c) {
    printer.Line("covModel %2d:", c);
    if (const int status = printer.CovModel(&input.covModel[c]); status != 0) return status;
    printer.EmptyLine();
  }
  return 0;
}

}  // namespace
}  // namespace kestrum

void VORLKestrumInitKestrumIndicatorInput(VORL_KESTRUMINDICATORINPUT* input) noexcept {
  *input = VORL_KESTRUMINDICATORINPUT{};
}

void VORLKestrumFreeKestrumIndicatorInput(VORL_KESTRUMINDICATORINPUT* input) noexcept {
  if (input == nullptr) return;
  VORLFree(input->simName);
  VORLFree(input->simGrid);
  VORLFree(input->varName);
  VORLFree(input->formatString);
  VORLFree(input->categoryValue);
  VORLFree(input->outputImageFileName);
  VORLFree(input->outputReportFileName);
  if (input->covModel != nullptr) {
    for (int c = 0; c < input->ncategory; ++c) VORLKestrumFreeCovModel(&input->covModel[c]);
  }
  VORLFree(input->covModel);
  VORLFree(input->searchRadiusRelative);
  VORLFree(input->nneighborMax);
  VORLFree(input->searchNeighborhoodSortMode);
  kestrum::FreeConditioningData(*input);
  kestrum::FreeImageRecord(input->maskImage);
  VORLFree(input->probabilityValue);
  kestrum::FreeImageRecord(input->probabilityImage);
}

int VORLKestrumPrintKestrumIndicatorInput(VORL_KESTRUMINDICATORINPUT* input, char* prefix, FILE* stream) noexcept {
  using kestrum::PrintByCategory;
  const int ncategory = input->ncategory;
  kestrum::InputPrinter printer(prefix, stream);
  if (const int status = printer.Prepare(); status != 0) return status;
  if (const int status = printer.ConsoleToFormat(*input); status != 0) return status;
  printer.EmptyLine();
  printer.Line("ncategory: %d", ncategory);
  PrintByCategory(ncategory, input->categoryValue,
                  [&](int c, real value) { printer.Line("categoryValue %2d: %14.6f", c, value); });
  printer.EmptyLine();
  printer.OutputToComputationMode(*input);
  printer.EmptyLine();
  if (const int status = kestrum::PrintProbabilities(*input, printer); status != 0) return status;
  printer.EmptyLine();
  if (const int status = kestrum::PrintModels(*input, printer); status != 0) return status;
  printer.EmptyLine();
  PrintByCategory(ncategory, input->searchRadiusRelative,
                  [&](int c, real value) { printer.Line("searchRadiusRelative %2d: %14.6f", c, value); });
  printer.EmptyLine();
  PrintByCategory(ncategory, input->nneighborMax,
                  [&](int c, int value) { printer.Line("nneighborMax %2d: %4d", c, value); });
  printer.EmptyLine();
  PrintByCategory(ncategory, input->searchNeighborhoodSortMode,
                  [&](int c, int value) { printer.Line("searchNeighborhoodSortMode %2d: %2d", c, value); });
  printer.EmptyLine();
  if (const int status = printer.DataToMask(*input); status != 0) return status;
  printer.Realizations(*input);
  return 0;
}

int VORLKestrumValidateKestrumIndicatorInput(VORL_KESTRUMINDICATORINPUT* input, BOOLEAN** rotationStationary,
                                             BOOLEAN** weightStationary, BOOLEAN** rangeStationary,
                                             BOOLEAN** covModelStationary, VORL_PROGRESSMONITOR* progressMonitor,
                                             int (*)(VORL_PROGRESSMONITOR*), int* validationError) noexcept {
  *rotationStationary = *weightStationary = *rangeStationary = *covModelStationary = nullptr;
  kestrum::InputValidation validation(progressMonitor, validationError);
  kestrum::Stationarity stationarity;
  if (!kestrum::ValidUpToProbabilities(*input, stationarity, validation)) return validation.status();
  *rotationStationary = stationarity.rotation.HandOver();
  *weightStationary = stationarity.weight.HandOver();
  *rangeStationary = stationarity.range.HandOver();
  *covModelStationary = stationarity.covModel.HandOver();
  static_cast<void>(validation.Realizations(*input));
  return 0;
}
