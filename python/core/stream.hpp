#ifndef KESTRUM_PYTHON_CORE_STREAM_HPP
#define KESTRUM_PYTHON_CORE_STREAM_HPP

#include <sys/types.h>

#include <cstddef>
#include <cstdio>

#include "watch.hpp"

namespace kestrum::python {

// A stream of the library on an open file of Python's, whose position it moves. It fails once the monitor stops the
// work, which makes readers and writers return early. What it reads of a file is the monitor's percentage.
class Stream {
 public:
  // mode "r" or "w". The descriptor stays open.
  Stream(int descriptor, const char* mode, Monitor& monitor);
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() { std::fclose(stream_); }

  std::FILE* get() const noexcept { return stream_; }
  // The system's number of the first failure, or 0.
  int error() const noexcept { return error_; }

 private:
  bool Ready(short events) noexcept;
  static ssize_t Read(void* self, char* bytes, std::size_t size) noexcept;
  static ssize_t Write(void* self, const char* bytes, std::size_t size) noexcept;
  static int Seek(void* self, off64_t* offset, int whence) noexcept;

  int descriptor_;
  off_t size_ = 0;  // of a file; 0 where there is no telling
  off_t position_ = 0;
  Monitor& monitor_;
  int error_ = 0;
  std::FILE* stream_;
};

}  // namespace kestrum::python

#endif
