#include "runs/run_output.hpp"

#include <algorithm>

#include "core/constants.h"
#include "core/output_file.hpp"
#include "core/plain_numbers.hpp"
#include "core/text.h"
#include "io/image_files.h"

namespace kestrum {
namespace {

// File format of all output of a run, whatever the suffix of the file's name.
constexpr int kGslibFormat = 0;

}  // namespace

int WriteImageToFile(VORL_IMAGE* image, const char* formatString, const char* root, const char* suffix) noexcept {
  if (root == nullptr) return kOutputFailed;
  char name[2 * VORL_FILENAME_LENGTH];
  const int length = std::snprintf(name, sizeof name, "%s%s", root, suffix);
  if (length < 0 || length >= static_cast<int>(sizeof name)) return kOutputFailed;
  OutputFile file;
  if (const int status = file.Open(name); status != 0) return status;
  // The writer takes a plain char *, and changes nothing; no format is an empty one.
  char none[] = "";
  char* const format = formatString != nullptr ? const_cast<char*>(formatString) : none;
  const int status = VORLWriteImage(image, format, kGslibFormat, file.stream());
  return status != 0 ? status : file.Close();
}

void WriteCpuTime(const char* what, std::clock_t duration, FILE* stream) noexcept {
  const PlainNumbers plainNumbers;
  std::fprintf(stream, "%-68s: %10.4E\n", what, static_cast<double>(duration) / static_cast<double>(CLOCKS_PER_SEC));
}

void RunOutput::Collect(const VORL_IMAGE& image, int iv, const Dealing& dealing) const noexcept {
  if (outputImage == nullptr) return;
  const std::ptrdiff_t nxyz = image.grid->nxyz;
  std::copy_n(image.varName[0], VORL_VARNAME_LENGTH, outputImage->varName[iv]);
  dealing.ForPass(nxyz).Blocks(nxyz, [&](std::ptrdiff_t begin, std::ptrdiff_t end) noexcept {
    std::copy(image.var + begin, image.var + end, outputImage->var + iv * nxyz + begin);
  });
}

int RunOutput::WriteSeparately(VORL_IMAGE* image, const char* suffix) const noexcept {
  return separateFiles ? WriteImageToFile(image, formatString, fileName, suffix) : 0;
}

void RealizationOutput::Begin(int r) noexcept {
  if (output_.report != nullptr) {
    std::fprintf(output_.report, "Realization %5d of %5d:\n", r + 1, output_.nrealization);
  }
  start_ = std::clock();
  std::snprintf(ending_, sizeof ending_, "%s%0*d", VORL_SUFFIX_FOR_REALIZATION,
                VORL_KESTRUM_NB_DIGIT_FOR_REALIZATION_NUMBER, r);
  std::snprintf(image_.varName[0], VORL_VARNAME_LENGTH, "%s%s", output_.varName, ending_);
}

int RealizationOutput::End(int r) noexcept {
  if (output_.report != nullptr) {
    char what[80];
    std::snprintf(what, sizeof what, "CPU time (sec) for realization %5d of %5d", r + 1, output_.nrealization);
    std::fputs(VORL_SEPARATION_LINE_STAR, output_.report);
    WriteCpuTime(what, std::clock() - start_, output_.report);
    std::fputs(VORL_SEPARATION_LINE_STAR, output_.report);
  }
  output_.Collect(image_, r, dealing_);
  char suffix[sizeof ending_ + sizeof VORL_EXTENSION_FOR_IMAGE_FILE];
  std::snprintf(suffix, sizeof suffix, "%s%s", ending_, VORL_EXTENSION_FOR_IMAGE_FILE);
  return output_.WriteSeparately(&image_, suffix);
}

}  // namespace kestrum
