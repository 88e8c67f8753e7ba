#include "runs/run_files.hpp"

#include "core/text.h"
#include "io/image_files.h"

namespace kestrum {
namespace {

// File format of all output of a run, whatever the suffix of the file's name.
constexpr int kGslibFormat = 0;

}  // namespace

int File::OpenForWriting(const char* name) noexcept {
  if (name == nullptr) return -110;
  stream_ = std::fopen(name, "w");
  return stream_ == nullptr ? -110 : 0;
}

int WriteImageToFile(VORL_IMAGE* image, const char* formatString, const char* root, const char* suffix) noexcept {
  if (root == nullptr) return -110;
  char name[2 * VORL_FILENAME_LENGTH];
  const int length = std::snprintf(name, sizeof name, "%s%s", root, suffix);
  if (length < 0 || length >= static_cast<int>(sizeof name)) return -110;
  File file;
  if (const int status = file.OpenForWriting(name); status != 0) return status;
  // The writer takes a plain char *, and changes nothing; no format is an empty one.
  char none[] = "";
  return VORLWriteImage(image, formatString != nullptr ? const_cast<char*>(formatString) : none, kGslibFormat,
                        file.stream());
}

void WriteCpuTime(const char* what, std::clock_t duration, FILE* stream) noexcept {
  std::fprintf(stream, "%-68s: %10.4E\n", what, static_cast<double>(duration) / static_cast<double>(CLOCKS_PER_SEC));
}

}  // namespace kestrum
