#include "core/text.h"

#include <cstdio>

#include "core/statuses.hpp"

namespace kestrum {
namespace {

// Read the stream up to and including the end of the comment; false if the file ends first.
bool SkipLineComment(FILE* stream) noexcept {
  int c;
  while ((c = std::getc(stream)) != EOF) {
    if (c == '\n') return true;
  }
  return false;
}

bool SkipBlockComment(FILE* stream) noexcept {
  int c;
  for (int previous = 0; (c = std::getc(stream)) != EOF; previous = c) {
    if (previous == '*' && c == '/') return true;
  }
  return false;
}

}  // namespace
}  // namespace kestrum

char VORLDigitToChar(int digit) noexcept { return 0 <= digit && digit <= 9 ? static_cast<char>('0' + digit) : 'x'; }

void VORLIntToString(int value, char* str, int ndigit) noexcept {
  if (ndigit < 0) return;
  str[ndigit] = '\0';
  for (int i = ndigit - 1; i >= 0; --i) {
    str[i] = VORLDigitToChar(value < 0 ? -1 : value % 10);
    if (value > 0) value /= 10;
  }
}

int VORLSkipComments(FILE* stream) noexcept {
  constexpr int kEndOfFile = kestrum::kReadFurtherEntry;
  for (;;) {
    const int c = std::getc(stream);
    if (c == EOF) return kEndOfFile;
    if (c == '\r' || c == '\t' || c == '\n' || c == ' ') continue;
    if (c != '/') {
      std::ungetc(c, stream);
      return 0;
    }
    // Only one character can be pushed back for certain, so the stream returns to a lone slash by its position.
    const long afterSlash = std::ftell(stream);
    const int next = std::getc(stream);
    if (next != '/' && next != '*') {
      std::fseek(stream, afterSlash - 1, SEEK_SET);
      return 0;
    }
    if (!(next == '/' ? kestrum::SkipLineComment(stream) : kestrum::SkipBlockComment(stream))) return kEndOfFile;
  }
}
