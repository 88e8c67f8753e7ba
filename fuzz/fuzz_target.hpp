#ifndef KESTRUM_FUZZ_FUZZ_TARGET_HPP
#define KESTRUM_FUZZ_FUZZ_TARGET_HPP

#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

// What every fuzz target has, under the name that libFuzzer and replay_main.cpp look for: tries one input, and stops
// the program if a reader does wrong.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace kestrum_fuzz {

inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken promise: %s\n", what);
  std::abort();
}

inline std::string_view AsText(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

inline std::string RestOf(std::FILE* stream) {
  std::string rest;
  for (int c; (c = std::getc(stream)) != EOF;) rest += static_cast<char>(c);
  return rest;
}

// A stream that holds these bytes, closed at the end of its life.
class Stream {
 public:
  static Stream Seekable(std::string_view bytes) {
    return Stream(bytes.empty() ? std::fopen("/dev/null", "rb")
                                : fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "rb"));
  }
  // A pipe; it cannot seek. It holds no stream if the bytes are more than a pipe takes at once.
  static Stream Pipe(std::string_view bytes) {
    int ends[2];
    Require(pipe2(ends, O_NONBLOCK) == 0, "a pipe can be had");
    const ssize_t written = write(ends[1], bytes.data(), bytes.size());
    close(ends[1]);
    if (written == static_cast<ssize_t>(bytes.size())) return Stream(fdopen(ends[0], "rb"));
    close(ends[0]);
    return Stream(nullptr);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() {
    if (file_ != nullptr) std::fclose(file_);
  }

  std::FILE* file() const { return file_; }
  std::string Rest() const { return RestOf(file_); }

 private:
  explicit Stream(std::FILE* file) : file_(file) {}
  std::FILE* file_;
};

// What write(stream) writes.
template <typename Write>
std::string Written(const Write& write) {
  char* text = nullptr;
  std::size_t size = 0;
  std::FILE* const stream = open_memstream(&text, &size);
  write(stream);
  std::fclose(stream);
  const std::string written(text, size);
  std::free(text);
  return written;
}

// Whether two arrays hold the same numbers bit for bit, where all NaN count as one.
inline bool SameNumbers(const double* a, const double* b, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    if (std::memcmp(&a[i], &b[i], sizeof(double)) != 0 && !(std::isnan(a[i]) && std::isnan(b[i]))) return false;
  }
  return true;
}

// A file that holds these bytes must give what a pipe gives that does, up to the rest of the stream.
//
// Record: default constructed empty, releases itself, and has
//   int Read(std::FILE*)        the reader
//   bool Same(const Record&)    whether two records are equal
//   bool Survives()             whether a record that has been read can be written and read without a loss
//   int Write(std::FILE*)       the writer
template <typename Record>
void TestReader(std::string_view bytes) {
  Record record;
  const Stream stream = Stream::Seekable(bytes);
  const int status = record.Read(stream.file());

  if (const Stream pipe = Stream::Pipe(bytes); pipe.file() != nullptr) {
    Record piped;
    Require(piped.Read(pipe.file()) == status, "a pipe reads as a file does");
    Require(stream.Rest() == pipe.Rest(), "a pipe is left where a file is");
    Require(status != 0 || record.Same(piped), "a pipe gives the values of a file");
  }

  if (status != 0 || !record.Survives()) return;
  const auto write = [](Record& source) {
    return Written([&](std::FILE* out) { Require(source.Write(out) == 0, "what was read can be written"); });
  };
  const std::string written = write(record);
  const Stream again = Stream::Seekable(written);
  Record copy;
  Require(copy.Read(again.file()) == 0, "what was written can be read");
  Require(record.Same(copy), "what was written comes back");
  Require(written == write(copy), "what came back is written alike");
}

// Names that a text file keeps: words, without the NUL that a hostile file may hold.
inline bool AreWords(char** names, int count) {
  for (int i = 0; i < count; ++i) {
    if (names[i][0] == '\0') return false;
  }
  return true;
}

inline bool SameNames(char** a, char** b, int count) {
  for (int i = 0; i < count; ++i) {
    if (std::strcmp(a[i], b[i]) != 0) return false;
  }
  return true;
}

}  // namespace kestrum_fuzz

#endif
