#ifndef KESTRUM_TESTS_PATHS_TEXT_STREAM_HPP
#define KESTRUM_TESTS_PATHS_TEXT_STREAM_HPP

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace kestrum_test {

// The status of read(arguments..., stream) on a text.
template <typename Read, typename... Arguments>
int ReadFrom(const std::string& text, const Read& read, Arguments... arguments) {
  FILE* const stream = std::tmpfile();
  std::fputs(text.c_str(), stream);
  std::rewind(stream);
  const int status = read(arguments..., stream);
  std::fclose(stream);
  return status;
}

// What print(record, prefix, stream) writes with the prefix "> ".
template <typename Print, typename Record>
std::string Printed(const Print& print, Record* record) {
  char prefix[] = "> ";
  char* text = nullptr;
  std::size_t size = 0;
  FILE* const stream = open_memstream(&text, &size);
  EXPECT_EQ(print(record, prefix, stream), 0);
  std::fclose(stream);
  const std::string printed(text, size);
  std::free(text);
  return printed;
}

}  // namespace kestrum_test

#endif
