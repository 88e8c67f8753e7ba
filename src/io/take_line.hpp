#ifndef KESTRUM_IO_TAKE_LINE_HPP
#define KESTRUM_IO_TAKE_LINE_HPP

#include <cstddef>
#include <cstdio>
#include <cstring>

namespace kestrum {

// Takes a line without its end, and without white space around it; what does not fit is left out. False at the end of
// the stream.
template <std::size_t size>
bool TakeLine(std::FILE* stream, char (&line)[size]) noexcept {
  int c = std::getc(stream);
  if (c == EOF) return false;
  std::size_t length = 0;
  for (; c != EOF && c != '\n'; c = std::getc(stream)) {
    const bool space = std::strchr(" \t\r\v\f", c) != nullptr;
    if ((length > 0 || !space) && length < size - 1) line[length++] = static_cast<char>(c);
  }
  while (length > 0 && std::strchr(" \t\r\v\f", line[length - 1]) != nullptr) --length;
  line[length] = '\0';
  return true;
}

}  // namespace kestrum

#endif
