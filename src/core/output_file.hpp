#ifndef KESTRUM_CORE_OUTPUT_FILE_HPP
#define KESTRUM_CORE_OUTPUT_FILE_HPP

#include <cstdio>

#include "core/statuses.hpp"

namespace kestrum {

// Hands what has been written to a stream over to the system. Returns 0, or kOutputFailed, as for a file that cannot be
// opened, if this or an earlier writing to the stream has failed: on a full disk, say.
[[nodiscard]] int FlushOutput(std::FILE* stream) noexcept;

// A file for output. Close() reports whether it holds all that was written; the destructor closes without that, as after
// a failure.
class OutputFile {
 public:
  OutputFile() = default;
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile() { static_cast<void>(Close()); }

  // Once per file; a null name fails as well. Returns 0 or kOutputFailed.
  [[nodiscard]] int Open(const char* name) noexcept;
  // Null if the file is not open.
  std::FILE* stream() const noexcept { return stream_; }
  // Flushes and closes the file, if it is open. Returns 0 or kOutputFailed.
  [[nodiscard]] int Close() noexcept;

 private:
  std::FILE* stream_ = nullptr;
};

}  // namespace kestrum

#endif
