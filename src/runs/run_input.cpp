#include "runs/run_input.h"

#include <cstdio>
#include <type_traits>

#include "core/constants.h"
#include "core/memory.h"
#include "core/statuses.hpp"
#include "runs/run_input_shared.hpp"

static_assert(std::is_standard_layout_v<VORL_KESTRUMINPUT> && sizeof(VORL_KESTRUMINPUT) == 224);
static_assert(std::is_standard_layout_v<VORL_KESTRUMOUTPUT> && sizeof(VORL_KESTRUMOUTPUT) == 8);

namespace kestrum {
namespace {

// How the mean or the variance is given; the values of the two usage fields.
enum ParameterUsage { kFromData, kConstant, kImage };

// Calls refuse(value) for the values of a parameter image at the nodes that take part, until it gives a code other than
// 0, which is the result. The values at the other nodes become missing on the way.
template <typename Refuse>
int WalkParameterImage(VORL_IMAGE& image, const VORL_IMAGE* mask, const Refuse& refuse) noexcept {
  for (int i = 0; i < image.grid->nxyz; ++i) {
    if (mask != nullptr && mask->var[i] == 0.0) {
      image.var[i] = VORL_MISSING_VALUE;
    } else if (const int code = refuse(image.var[i]); code != 0) {
      return code;
    }
  }
  return 0;
}

bool ValidMean(VORL_KESTRUMINPUT& input, InputValidation& validation) noexcept {
  if (input.meanUsage == kFromData || input.meanUsage == kConstant) return true;
  if (input.meanUsage != kImage) return validation.Refuse(kMeanUsage);
  if (input.meanImage == nullptr) return validation.Refuse(kNoMeanImage);
  if (!validation.ParameterImage(input.meanImage, input.simGrid, 1, kMeanImageGrid, kMeanImageVariableCount))
    return false;
  const int code = WalkParameterImage(*input.meanImage, UsedMask(input),
                                      [](real value) { return value == VORL_MISSING_VALUE ? kMeanImageMissing : 0; });
  return code == 0 || validation.Refuse(code);
}

bool ValidVariance(VORL_KESTRUMINPUT& input, bool weightStationary, InputValidation& validation) noexcept {
  if (input.varianceUsage == kFromData) return true;
  if (input.varianceUsage != kConstant && input.varianceUsage != kImage) return validation.Refuse(kVarianceUsage);
  if (!weightStationary) return validation.Refuse(kVarianceOfVariableModel);
  if (input.varianceUsage == kConstant)
    return !(input.varianceValue < kVarianceMin) || validation.Refuse(kVarianceValue);
  if (input.varianceImage == nullptr) return validation.Refuse(kNoVarianceImage);
  if (!validation.ParameterImage(input.varianceImage, input.simGrid, 1, kVarianceImageGrid,
                                 kVarianceImageVariableCount))
    return false;
  const int code = WalkParameterImage(*input.varianceImage, UsedMask(input), [](real value) -> int {
    if (value == VORL_MISSING_VALUE) return kVarianceImageMissing;
    return value < kVarianceMin ? kVarianceImageValue : 0;
  });
  return code == 0 || validation.Refuse(code);
}

bool ValidGibbsBounds(const VORL_KESTRUMINPUT& input, InputValidation& validation) noexcept {
  if (input.nGibbsSamplerPathMin < VORL_KESTRUM_NGIBBSSAMPLERPATH_MIN) return validation.Refuse(kGibbsPassMin);
  if (input.nGibbsSamplerPathMax > VORL_KESTRUM_NGIBBSSAMPLERPATH_MAX) return validation.Refuse(kGibbsPassMax);
  return input.nGibbsSamplerPathMin <= input.nGibbsSamplerPathMax || validation.Refuse(kGibbsPassOrder);
}

bool ValidInput(VORL_KESTRUMINPUT& input, BOOLEAN* rotationStationary, BOOLEAN* weightStationary,
                BOOLEAN* rangeStationary, BOOLEAN* covModelStationary, InputValidation& validation) noexcept {
  if (!validation.GridToFormat(input) || !validation.Output(input)) return false;
  const int mode = EnumNumber(input.computationMode);
  if ((mode == KESTRUM_OK || mode == KESTRUM_SIM_OK) && input.varianceUsage != kFromData) {
    return validation.Refuse(kVarianceOfOrdinaryKriging);
  }
  return validation.ComputationMode(mode) && validation.Mask(input) &&
         validation.CovModel(input.covModel, input.simGrid, input.maskImage, rotationStationary, weightStationary,
                             rangeStationary, covModelStationary) &&
         validation.UniqueNeighborhood(input.searchRadiusRelative, *covModelStationary) &&
         validation.SearchRadius(input.searchRadiusRelative, IsSimulation(input)) &&
         validation.NeighborMax(input.nneighborMax) &&
         validation.SortMode(input.searchNeighborhoodSortMode, *covModelStationary) && validation.Data(input) &&
         ValidMean(input, validation) && ValidVariance(input, *weightStationary, validation) &&
         (!IsSimulation(input) || ValidGibbsBounds(input, validation)) && validation.Realizations(input);
}

// The item of the mean or of the variance.
int PrintParameter(InputPrinter& printer, const char* name, int usage, real value, VORL_IMAGE* image) noexcept {
  printer.Line("%sUsage: %d", name, usage);
  if (usage == kConstant) printer.Line("%sValue: %14.6f", name, value);
  if (usage != kImage) return 0;
  printer.Line("%sImage:", name);
  return printer.Image(image);
}

}  // namespace
}  // namespace kestrum

void VORLKestrumInitKestrumInput(VORL_KESTRUMINPUT* input) noexcept { *input = VORL_KESTRUMINPUT{}; }

void VORLKestrumFreeKestrumInput(VORL_KESTRUMINPUT* input) noexcept {
  if (input == nullptr) return;
  VORLFree(input->simName);
  VORLFree(input->simGrid);
  VORLFree(input->varName);
  VORLFree(input->formatString);
  VORLFree(input->outputImageFileName);
  VORLFree(input->outputReportFileName);
  VORLKestrumFreeCovModel(input->covModel);
  VORLFree(input->covModel);
  kestrum::FreeConditioningData(*input);
  kestrum::FreeImageRecord(input->maskImage);
  kestrum::FreeImageRecord(input->meanImage);
  kestrum::FreeImageRecord(input->varianceImage);
}

void VORLKestrumInitKestrumOutput(VORL_KESTRUMOUTPUT* output) noexcept { output->outputImage = nullptr; }

void VORLKestrumFreeKestrumOutput(VORL_KESTRUMOUTPUT* output) noexcept {
  if (output != nullptr) kestrum::FreeImageRecord(output->outputImage);
}

int VORLKestrumPrintKestrumInput(VORL_KESTRUMINPUT* input, char* prefix, FILE* stream) noexcept {
  using kestrum::PrintParameter;
  kestrum::InputPrinter printer(prefix, stream);
  if (const int status = printer.Prepare(); status != 0) return status;
  if (const int status = printer.ConsoleToFormat(*input); status != 0) return status;
  printer.EmptyLine();
  printer.OutputToComputationMode(*input);
  printer.EmptyLine();
  if (const int status = PrintParameter(printer, "mean", input->meanUsage, input->meanValue, input->meanImage);
      status != 0) {
    return status;
  }
  printer.EmptyLine();
  if (const int status =
          PrintParameter(printer, "variance", input->varianceUsage, input->varianceValue, input->varianceImage);
      status != 0) {
    return status;
  }
  printer.EmptyLine();
  printer.Line("covModel:");
  if (const int status = printer.CovModel(input->covModel); status != 0) return status;
  printer.EmptyLine();
  printer.Line("searchRadiusRelative: %14.6f", input->searchRadiusRelative);
  printer.EmptyLine();
  printer.Line("nneighborMax: %4d", input->nneighborMax);
  printer.EmptyLine();
  printer.Line("searchNeighborhoodSortMode: %d", input->searchNeighborhoodSortMode);
  printer.EmptyLine();
  if (const int status = printer.DataToMask(*input); status != 0) return status;
  printer.EmptyLine();
  printer.Line("nGibbsSamplerPathMin: %10d", input->nGibbsSamplerPathMin);
  printer.Line("nGibbsSamplerPathMax: %10d", input->nGibbsSamplerPathMax);
  printer.Realizations(*input);
  return 0;
}

int VORLKestrumPrintVersion(char* version, char* build, BOOLEAN threadFlag, int nthreads, FILE* stream) noexcept {
  std::fputs(VORL_SEPARATION_LINE_STAR, stream);
  std::fprintf(stream, "KESTRUM VERSION %s / BUILD NUMBER %s / ", version, build);
  if (threadFlag) {
    std::fprintf(stream, "OpenMP %d thread(s)\n", nthreads);
  } else {
    std::fputs("Serial\n", stream);
  }
  std::fputs(VORL_SEPARATION_LINE_STAR, stream);
  return 0;
}

int VORLKestrumValidateKestrumInput(VORL_KESTRUMINPUT* input, BOOLEAN* rotationStationary, BOOLEAN* weightStationary,
                                    BOOLEAN* rangeStationary, BOOLEAN* covModelStationary,
                                    VORL_PROGRESSMONITOR* progressMonitor, int (*)(VORL_PROGRESSMONITOR*),
                                    int* validationError) noexcept {
  kestrum::InputValidation validation(progressMonitor, validationError);
  static_cast<void>(kestrum::ValidInput(*input, rotationStationary, weightStationary, rangeStationary,
                                        covModelStationary, validation));
  return validation.status();
}
