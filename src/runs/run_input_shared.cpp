#include "runs/run_input_shared.hpp"

#include <cstdarg>

#include "core/plain_numbers.hpp"
#include "core/records.hpp"
#include "core/statuses.hpp"
#include "core/text.h"
#include "covariance/cov_model.hpp"

namespace kestrum {

namespace {

// Room that file and variable names leave for what the run appends to them.
constexpr std::size_t kVarNameExtra = 10;
constexpr std::size_t kSeparateFileNameExtra = 16;
constexpr std::size_t kVarNameMax = VORL_VARNAME_LENGTH - 1;
constexpr std::size_t kFileNameMax = VORL_FILENAME_LENGTH - 1;

}  // namespace

void InputPrinter::Line(const char* format, ...) noexcept {
  const PlainNumbers plainNumbers;
  std::fputs(prefix_, stream_);
  va_list arguments;
  va_start(arguments, format);
  std::vfprintf(stream_, format, arguments);
  va_end(arguments);
  std::fputc('\n', stream_);
}

void InputPrinter::Text(const char* name, const char* value) noexcept {
  if (value != nullptr) {
    Line("%s: %s", name, value);
  } else {
    Line("%s:", name);
  }
}

int InputPrinter::Image(VORL_IMAGE* image) noexcept {
  return image == nullptr ? 0 : VORLPrintImage(image, nested_.text(), stream_);
}

int InputPrinter::CovModel(VORL_COVMODEL* model) noexcept {
  return model == nullptr ? 0 : VORLKestrumPrintCovModel(model, nested_.text(), stream_);
}

int InputPrinter::Grid(VORL_GRID* grid) noexcept {
  return grid == nullptr ? 0 : VORLPrintGrid(grid, nested_.text(), stream_);
}

int InputPrinter::PointSet(VORL_POINTSET* pointSet) noexcept {
  return VORLPrintPointSet(pointSet, nested_.text(), stream_);
}

const char* InputPrinter::OutputModeName(int mode) noexcept {
  switch (mode) {
    case KESTRUM_OUTPUT_NO_FILE:
      return "KESTRUM_OUTPUT_NO_FILE";
    case KESTRUM_OUTPUT_ALL_IN_ONE_FILE:
      return "KESTRUM_OUTPUT_ALL_IN_ONE_FILE";
    case KESTRUM_OUTPUT_SEPARATE_FILE:
      return "KESTRUM_OUTPUT_SEPARATE_FILE";
    default:
      return "unknown";
  }
}

const char* InputPrinter::ComputationModeName(int mode) noexcept {
  switch (mode) {
    case KESTRUM_OK:
      return "KESTRUM_OK";
    case KESTRUM_SK:
      return "KESTRUM_SK";
    case KESTRUM_SIM_OK:
      return "KESTRUM_SIM_OK";
    case KESTRUM_SIM_SK:
      return "KESTRUM_SIM_SK";
    default:
      return "unknown";
  }
}

bool InputValidation::Refuse(int code) noexcept {
  *validationError_ = code;
  return false;
}

bool InputValidation::Sound(int status) noexcept {
  status_ = progress_.After(status);
  return status_ == 0 && *validationError_ == 0;
}

bool InputValidation::Grid(VORL_GRID* grid) noexcept {
  if (grid == nullptr) return Refuse(kGridSize);
  return Sound(VORLValidateGrid(grid, validationError_));
}

bool InputValidation::Image(VORL_IMAGE* image) noexcept { return Sound(VORLValidateImage(image, 0, validationError_)); }

bool InputValidation::PointSet(VORL_POINTSET* pointSet) noexcept {
  return Sound(VORLValidatePointSet(pointSet, validationError_));
}

bool InputValidation::ParameterImage(VORL_IMAGE* image, VORL_GRID* grid, int nvar, int gridCode,
                                     int nvarCode) noexcept {
  if (!Image(image)) return false;
  if (VORLCmpGrid(grid, image->grid) != 0) return Refuse(gridCode);
  if (image->nvar != nvar) return Refuse(nvarCode);
  // Image validation does not compare the number of values with the grid; here every node is read.
  return image->nxyzv >= static_cast<long long>(nvar) * grid->nxyz || Refuse(kImageValueCount);
}

bool InputValidation::Names(const char* varName, bool formatNeeded, const char* formatString) noexcept {
  if (varName == nullptr) return Refuse(kNoVariableName);
  if (std::strlen(varName) + kVarNameExtra > kVarNameMax) return Refuse(kVariableNameTooLong);
  if (formatNeeded && (formatString == nullptr || formatString[0] != '%')) return Refuse(kFormatString);
  return true;
}

bool InputValidation::OutputNames(int outputMode, const char* imageFileName, const char* reportFileName) noexcept {
  if (outputMode < 0 || outputMode > KESTRUM_OUTPUT_SEPARATE_FILE) return Refuse(kOutputMode);
  if (outputMode != KESTRUM_OUTPUT_NO_FILE) {
    const std::size_t extra = outputMode == KESTRUM_OUTPUT_SEPARATE_FILE ? kSeparateFileNameExtra : 0;
    if (imageFileName == nullptr || std::strlen(imageFileName) + extra > kFileNameMax) return Refuse(kOutputFileName);
  }
  if (reportFileName != nullptr && std::strlen(reportFileName) > kFileNameMax) return Refuse(kReportFileName);
  return true;
}

bool InputValidation::ComputationMode(int mode) noexcept {
  return (mode >= 0 && mode <= KESTRUM_SIM_SK) || Refuse(kComputationMode);
}

bool InputValidation::MaskImage(VORL_IMAGE* mask, VORL_GRID* grid) noexcept {
  if (mask == nullptr) return Refuse(kMaskVariableCount);
  if (!ParameterImage(mask, grid, 1, kMaskGrid, kMaskVariableCount)) return false;
  bool anyNode = false;
  for (int i = 0; i < mask->grid->nxyz; ++i) {
    if (mask->var[i] != 0.0 && mask->var[i] != 1.0) return Refuse(kMaskValue);
    anyNode |= mask->var[i] == 1.0;
  }
  return anyNode || Refuse(kMaskEmpty);
}

bool InputValidation::UnflaggedMask(const VORL_IMAGE* mask, const VORL_GRID& grid) noexcept {
  if (mask == nullptr) return true;
  if (const int status = CheckImage(*mask); status != 0) return Refuse(status);
  return mask->grid->nxyz == grid.nxyz || Refuse(kMaskGrid);
}

bool InputValidation::CovModel(VORL_COVMODEL* model, VORL_GRID* grid, VORL_IMAGE* mask, BOOLEAN* rotationStationary,
                               BOOLEAN* weightStationary, BOOLEAN* rangeStationary,
                               BOOLEAN* covModelStationary) noexcept {
  if (model == nullptr) return Refuse(kModelElementCount);
  if (!Sound(VORLKestrumValidateCovModel(model, grid, mask, rotationStationary, weightStationary, rangeStationary,
                                         covModelStationary, validationError_))) {
    return false;
  }
  const int verdict = UnflaggedImagesVerdict(*model, *grid);
  return verdict == 0 || Refuse(verdict);
}

bool InputValidation::UniqueNeighborhood(real searchRadius, bool covModelStationary) noexcept {
  return searchRadius != kUniqueNeighborhood || covModelStationary || Refuse(kUniqueOfVariableModel);
}

bool InputValidation::SearchRadius(real searchRadius, bool simulation) noexcept {
  // The unique neighbourhood in a simulation is refused as too small a radius, on purpose.
  if (searchRadius == kUniqueNeighborhood && !simulation) return true;
  return !(searchRadius < VORL_KESTRUM_SEARCHRADIUSRELATIVE_MIN) || Refuse(kSearchRadius);
}

bool InputValidation::NeighborMax(int nneighborMax) noexcept { return nneighborMax != 0 || Refuse(kNeighborMax); }

bool InputValidation::SortMode(int sortMode, bool covModelStationary) noexcept {
  if (sortMode < 0 || sortMode > 2) return Refuse(kSortMode);
  return sortMode != 2 || covModelStationary || Refuse(kSortModeOfVariableModel);
}

}  // namespace kestrum
