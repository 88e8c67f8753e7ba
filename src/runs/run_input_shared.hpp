#ifndef KESTRUM_RUNS_RUN_INPUT_SHARED_HPP
#define KESTRUM_RUNS_RUN_INPUT_SHARED_HPP

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "core/integers.hpp"
#include "core/memory.h"
#include "core/nested_prefix.hpp"
#include "core/progress.hpp"
#include "core/statuses.hpp"
#include "runs/run_input.h"

// What the two run inputs have in common: release, printing and the rules on the fields of the same name. The templates
// take either record.

namespace kestrum {

// Smallest variance, as a value and in an image.
inline constexpr real kVarianceMin = 1e-6;
// The search radius that selects the unique neighbourhood.
inline constexpr real kUniqueNeighborhood = -1.0;

// Whether the input asks for a simulation; otherwise it asks for an estimation.
template <typename Input>
inline bool IsSimulation(const Input& input) noexcept {
  const int mode = EnumNumber(input.computationMode);
  return mode == KESTRUM_SIM_OK || mode == KESTRUM_SIM_SK;
}

// The mask, or null where every node takes part. Only a validated input may be asked to read it.
template <typename Input>
inline const VORL_IMAGE* UsedMask(const Input& input) noexcept {
  return input.maskImageFlag ? input.maskImage : nullptr;
}

// Releases an image and its record.
inline void FreeImageRecord(VORL_IMAGE* image) noexcept {
  VORLFreeImage(image);
  VORLFree(image);
}

// Releases the conditioning data; the fields keep their values.
template <typename Input>
void FreeConditioningData(const Input& input) noexcept {
  if (input.dataImage != nullptr) {
    for (int i = 0; i < input.ndataImage; ++i) VORLFreeImage(&input.dataImage[i]);
  }
  VORLFree(input.dataImage);
  if (input.dataPointSet != nullptr) {
    for (int i = 0; i < input.ndataPointSet; ++i) VORLFreePointSet(&input.dataPointSet[i]);
  }
  VORLFree(input.dataPointSet);
}

// Writes an input item by item. Of a nested record that is null only the heading is written: an input is printed before
// it is validated.
class InputPrinter {
 public:
  InputPrinter(char* prefix, FILE* stream) noexcept : prefix_(prefix), stream_(stream) {}
  // To be called first.
  [[nodiscard]] int Prepare() noexcept { return nested_.Extend(prefix_); }

  // One line, with the prefix in front and its end added.
  [[gnu::format(printf, 2, 3)]] void Line(const char* format, ...) noexcept;
  void EmptyLine() noexcept { std::fputc('\n', stream_); }
  void Text(const char* name, const char* value) noexcept;

  // Nested records, with the second prefix and without a heading.
  [[nodiscard]] int Image(VORL_IMAGE* image) noexcept;
  [[nodiscard]] int CovModel(VORL_COVMODEL* model) noexcept;

  // Groups of items. There is no empty line in front of the first and after the last item of a group.
  template <typename Input>
  [[nodiscard]] int ConsoleToFormat(const Input& input) noexcept {
    Line("consoleAppFlag: %d", input.consoleAppFlag);
    EmptyLine();
    Line("simGrid:");
    if (const int status = Grid(input.simGrid); status != 0) return status;
    EmptyLine();
    Text("varName", input.varName);
    EmptyLine();
    Text("formatString", input.formatString);
    return 0;
  }

  template <typename Input>
  void OutputToComputationMode(const Input& input) noexcept {
    Line("outputMode: %s", OutputModeName(EnumNumber(input.outputMode)));
    EmptyLine();
    Text("outputImageFileName", input.outputImageFileName);
    EmptyLine();
    Line("outputReportFlag: %d", input.outputReportFlag);
    if (input.outputReportFlag) Text("outputReportFileName", input.outputReportFileName);
    EmptyLine();
    Line("computationMode: %s", ComputationModeName(EnumNumber(input.computationMode)));
  }

  template <typename Input>
  [[nodiscard]] int DataToMask(const Input& input) noexcept {
    Line("ndataImage: %3d", input.ndataImage);
    for (int i = 0; i < input.ndataImage; ++i) {
      Line("dataImage %3d:", i);
      if (input.dataImage == nullptr) break;
      if (const int status = Image(&input.dataImage[i]); status != 0) return status;
    }
    EmptyLine();
    Line("ndataPointSet: %3d", input.ndataPointSet);
    for (int i = 0; i < input.ndataPointSet; ++i) {
      Line("dataPointSet %3d:", i);
      if (input.dataPointSet == nullptr) break;
      if (const int status = PointSet(&input.dataPointSet[i]); status != 0) return status;
    }
    EmptyLine();
    Line("maskImageFlag: %d", input.maskImageFlag);
    if (!input.maskImageFlag) return 0;
    Line("maskImage:");
    return Image(input.maskImage);
  }

  // With the empty lines in front of its items, as in estimation there are none.
  template <typename Input>
  void Realizations(const Input& input) noexcept {
    if (!IsSimulation(input)) return;
    EmptyLine();
    Line("seed         : %10d", input.seed);
    Line("seedIncrement: %10d", input.seedIncrement);
    EmptyLine();
    Line("nrealization: %d", input.nrealization);
  }

 private:
  static const char* OutputModeName(int mode) noexcept;
  static const char* ComputationModeName(int mode) noexcept;
  [[nodiscard]] int Grid(VORL_GRID* grid) noexcept;
  [[nodiscard]] int PointSet(VORL_POINTSET* pointSet) noexcept;

  char* prefix_;
  FILE* stream_;
  NestedPrefix nested_;
};

// Tests an input rule by rule. Each test returns whether the input is valid so far. If it is not, either the validation
// error or the status is set, and validation ends.
class InputValidation {
 public:
  InputValidation(VORL_PROGRESSMONITOR* monitor, int* validationError) noexcept
      : progress_(monitor, nullptr), validationError_(validationError) {
    *validationError_ = 0;
  }

  int status() const noexcept { return status_; }
  // Takes the status of a step that breaks no rule.
  [[nodiscard]] bool Succeeded(int status) noexcept {
    status_ = status;
    return status == 0;
  }
  // Always false.
  [[nodiscard]] bool Refuse(int code) noexcept;

  [[nodiscard]] bool Image(VORL_IMAGE* image) noexcept;
  // An image of parameters: sound, on the grid of the run, with nvar variables and a value of each at every node.
  [[nodiscard]] bool ParameterImage(VORL_IMAGE* image, VORL_GRID* grid, int nvar, int gridCode, int nvarCode) noexcept;

  template <typename Input>
  [[nodiscard]] bool GridToFormat(const Input& input) noexcept {
    return Grid(input.simGrid) && Names(input.varName, input.consoleAppFlag, input.formatString);
  }

  template <typename Input>
  [[nodiscard]] bool Output(const Input& input) noexcept {
    return OutputNames(EnumNumber(input.outputMode), input.outputImageFileName,
                       input.outputReportFlag ? input.outputReportFileName : nullptr);
  }

  [[nodiscard]] bool ComputationMode(int mode) noexcept;

  template <typename Input>
  [[nodiscard]] bool Mask(const Input& input) noexcept {
    return input.maskImageFlag ? MaskImage(input.maskImage, input.simGrid)
                               : UnflaggedMask(input.maskImage, *input.simGrid);
  }

  [[nodiscard]] bool CovModel(VORL_COVMODEL* model, VORL_GRID* grid, VORL_IMAGE* mask, BOOLEAN* rotationStationary,
                              BOOLEAN* weightStationary, BOOLEAN* rangeStationary,
                              BOOLEAN* covModelStationary) noexcept;

  [[nodiscard]] bool UniqueNeighborhood(real searchRadius, bool covModelStationary) noexcept;
  [[nodiscard]] bool SearchRadius(real searchRadius, bool simulation) noexcept;
  [[nodiscard]] bool NeighborMax(int nneighborMax) noexcept;
  [[nodiscard]] bool SortMode(int sortMode, bool covModelStationary) noexcept;

  template <typename Input>
  [[nodiscard]] bool Data(const Input& input) noexcept {
    if (input.ndataImage > 0 && input.dataImage == nullptr) return Refuse(kImageVariableCount);
    for (int i = 0; i < input.ndataImage; ++i) {
      if (!Image(&input.dataImage[i])) return false;
      const VORL_IMAGE& image = input.dataImage[i];
      // Every value is read, of as many nodes as the sizes give: no stored product counts.
      std::int64_t nvalue = image.nvar;
      for (const int size : {image.grid->nx, image.grid->ny, image.grid->nz}) {
        nvalue *= size;
        if (nvalue > image.nxyzv) return Refuse(kImageValueCount);
      }
    }
    if (input.ndataPointSet > 0 && input.dataPointSet == nullptr) return Refuse(kPointSetVariableCount);
    for (int i = 0; i < input.ndataPointSet; ++i) {
      if (!PointSet(&input.dataPointSet[i])) return false;
    }
    return true;
  }

  template <typename Input>
  [[nodiscard]] bool Realizations(const Input& input) noexcept {
    return !IsSimulation(input) || input.nrealization <= VORL_KESTRUM_MAX_NREALIZATION || Refuse(kRealizationCount);
  }

 private:
  // Takes the status of a nested validator, which has set the validation error.
  [[nodiscard]] bool Sound(int status) noexcept;
  [[nodiscard]] bool Grid(VORL_GRID* grid) noexcept;
  [[nodiscard]] bool Names(const char* varName, bool formatNeeded, const char* formatString) noexcept;
  [[nodiscard]] bool OutputNames(int outputMode, const char* imageFileName, const char* reportFileName) noexcept;
  [[nodiscard]] bool MaskImage(VORL_IMAGE* mask, VORL_GRID* grid) noexcept;
  // A mask that is set without its flag is read all the same, so it must have the nodes of the run.
  [[nodiscard]] bool UnflaggedMask(const VORL_IMAGE* mask, const VORL_GRID& grid) noexcept;
  [[nodiscard]] bool PointSet(VORL_POINTSET* pointSet) noexcept;

  Progress progress_;
  int* validationError_;
  int status_ = 0;
};

}  // namespace kestrum

#endif
