#ifndef KESTRUM_RUNS_RUN_FILES_HPP
#define KESTRUM_RUNS_RUN_FILES_HPP

#include <cstdio>
#include <ctime>

#include "core/image.h"

namespace kestrum {

// An open file, closed by its destructor.
class File {
 public:
  File() = default;
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() {
    if (stream_ != nullptr) std::fclose(stream_);
  }

  // Opens for writing; -110 if that fails. A null name fails as well.
  [[nodiscard]] int OpenForWriting(const char* name) noexcept;
  FILE* stream() const noexcept { return stream_; }

 private:
  FILE* stream_ = nullptr;
};

// Writes the image as text to the file root + suffix. The status of the opening (-110) or of the writer.
[[nodiscard]] int WriteImageToFile(VORL_IMAGE* image, const char* formatString, const char* root,
                                   const char* suffix) noexcept;

// Writes the line of a report that gives a processor time.
void WriteCpuTime(const char* what, std::clock_t duration, FILE* stream) noexcept;

}  // namespace kestrum

#endif
