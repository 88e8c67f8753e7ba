#include "runs/run_files.hpp"

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

}  // namespace kestrum
