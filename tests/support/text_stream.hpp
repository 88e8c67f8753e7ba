#ifndef KESTRUM_TESTS_SUPPORT_TEXT_STREAM_HPP
#define KESTRUM_TESTS_SUPPORT_TEXT_STREAM_HPP

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace kestrum_test {

// A temporary file with this text, at its start.
struct TextStream {
  FILE* const file = std::tmpfile();

  explicit TextStream(const std::string& text = "") {
    std::fwrite(text.data(), 1, text.size(), file);
    std::rewind(file);
  }
  TextStream(const TextStream&) = delete;
  TextStream& operator=(const TextStream&) = delete;
  ~TextStream() { std::fclose(file); }

  std::string Rest() {
    std::string rest;
    for (int c; (c = std::getc(file)) != EOF;) rest += static_cast<char>(c);
    return rest;
  }
  std::string All() {
    std::rewind(file);
    return Rest();
  }
};

// What write(stream) writes; its status is looked at.
template <typename Write>
std::string Written(const Write& write, int expectedStatus = 0) {
  TextStream stream;
  EXPECT_EQ(write(stream.file), expectedStatus);
  return stream.All();
}

// The status of write(stream), which must write nothing if it fails.
template <typename Write>
int WriteStatus(const Write& write) {
  TextStream stream;
  const int status = write(stream.file);
  EXPECT_EQ(stream.All().empty(), status != 0);
  return status;
}

// What print(record, prefix, stream) writes.
template <typename Print, typename Record>
std::string Printed(const Print& print, Record* record, std::string prefix = "> ") {
  return Written([&](FILE* stream) { return print(record, prefix.data(), stream); });
}

}  // namespace kestrum_test

#endif
