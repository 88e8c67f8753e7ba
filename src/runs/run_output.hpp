#ifndef KESTRUM_RUNS_RUN_OUTPUT_HPP
#define KESTRUM_RUNS_RUN_OUTPUT_HPP

#include <cstdio>
#include <ctime>

#include "core/image.h"
#include "core/integers.hpp"
#include "engine/simulation.hpp"
#include "runs/run_input.h"

namespace kestrum {

// Writes the image as text to the file root + suffix. The status of the file (-110) or of the writer.
[[nodiscard]] int WriteImageToFile(VORL_IMAGE* image, const char* formatString, const char* root,
                                   const char* suffix) noexcept;

// Writes the line of a report that gives a processor time.
void WriteCpuTime(const char* what, std::clock_t duration, FILE* stream) noexcept;

// Where the results of a run go.
struct RunOutput {
  VORL_IMAGE* outputImage;  // null, or all variables of the result
  FILE* report;             // null: no report
  const char* varName;
  int nrealization;
  bool separateFiles;
  const char* fileName;  // or the root of the file names
  const char* formatString;

  // Fields that both inputs have under the same names are taken from `input`.
  template <typename Input>
  RunOutput(const Input& input, VORL_IMAGE* image, FILE* reportFile) noexcept
      : outputImage(image),
        report(input.outputReportFlag ? reportFile : nullptr),
        varName(input.varName),
        nrealization(input.nrealization),
        separateFiles(EnumNumber(input.outputMode) == KESTRUM_OUTPUT_SEPARATE_FILE),
        fileName(input.outputImageFileName),
        formatString(input.formatString) {}

  // Copies the only variable of an image, with its name, to a variable of the result, if there is one.
  void Collect(const VORL_IMAGE& image, int iv, const Dealing& dealing) const noexcept;
  // Writes an image to a file of its own, if the run has such files.
  [[nodiscard]] int WriteSeparately(VORL_IMAGE* image, const char* suffix) const noexcept;
};

// Takes realizations as they come: names, report, result and files.
class RealizationOutput final : public RealizationSink {
 public:
  // image: receives the values of the current realization.
  RealizationOutput(const RunOutput& output, VORL_IMAGE& image, const Dealing& dealing) noexcept
      : output_(output), image_(image), dealing_(dealing) {}
  void Begin(int r) noexcept override;
  [[nodiscard]] int End(int r) noexcept override;

 private:
  const RunOutput& output_;
  VORL_IMAGE& image_;
  Dealing dealing_;
  std::clock_t start_ = 0;
  char ending_[32] = "";  // of the names of this realization
};

}  // namespace kestrum

#endif
