#ifndef KESTRUM_RUNS_RUN_FILES_HPP
#define KESTRUM_RUNS_RUN_FILES_HPP

#include <cstdio>
#include <ctime>

#include "core/image.h"

namespace kestrum {

// Writes the image as text to the file root + suffix. The status of the file (-110) or of the writer.
[[nodiscard]] int WriteImageToFile(VORL_IMAGE* image, const char* formatString, const char* root,
                                   const char* suffix) noexcept;

// Writes the line of a report that gives a processor time.
void WriteCpuTime(const char* what, std::clock_t duration, FILE* stream) noexcept;

}  // namespace kestrum

#endif
