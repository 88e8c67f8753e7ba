#include "core/output_file.hpp"

#include <utility>

namespace kestrum {

int FlushOutput(std::FILE* stream) noexcept {
  return std::fflush(stream) == 0 && std::ferror(stream) == 0 ? 0 : kOutputFailed;
}

int OutputFile::Open(const char* name) noexcept {
  stream_ = name == nullptr ? nullptr : std::fopen(name, "w");
  return stream_ == nullptr ? kOutputFailed : 0;
}

int OutputFile::Close() noexcept {
  std::FILE* const stream = std::exchange(stream_, nullptr);
  if (stream == nullptr) return 0;
  const int status = FlushOutput(stream);
  return std::fclose(stream) == 0 ? status : kOutputFailed;
}

}  // namespace kestrum
