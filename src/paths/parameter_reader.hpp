#ifndef KESTRUM_PATHS_PARAMETER_READER_HPP
#define KESTRUM_PATHS_PARAMETER_READER_HPP

#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "core/text.h"
#include "io/text_reader.hpp"

namespace kestrum {

// The next entry of a parameter file; white space and comments may precede it. The functions fail, and leave the
// value alone, if the file ends or holds anything else there.

inline bool TakeInt(std::FILE* stream, int* value) noexcept {
  return VORLSkipComments(stream) == 0 && TextReader(stream).TakeInt(value);
}

// Takes several reals. Returns 0 or the status of the one that fails: `status` for the first, one less for each other.
[[nodiscard]] inline int TakeReals(std::FILE* stream, int status, std::initializer_list<real*> values) noexcept {
  for (real* const value : values) {
    if (VORLSkipComments(stream) != 0 || !TextReader(stream).TakeReal(value)) return status;
    --status;
  }
  return 0;
}

// A value of a mode, which is its place in a list of these: how files call it, and what it means, if that is printed.
struct Mode {
  const char* word;
  const char* meaning = "";
};

template <int kCount>
bool TakeMode(std::FILE* stream, const Mode (&modes)[kCount], int* mode) noexcept {
  char word[VORL_WORD_LENGTH];
  if (VORLSkipComments(stream) != 0 || TextReader(stream).TakeWord(word, sizeof(word)) != TextReader::Word::kTaken) {
    return false;
  }
  for (int m = 0; m < kCount; ++m) {
    if (std::strcmp(word, modes[m].word) == 0) {
      *mode = m;
      return true;
    }
  }
  return false;
}

// The mode of a number, null for a number that is none.
template <int kCount>
const Mode* FindMode(const Mode (&modes)[kCount], int mode) noexcept {
  return mode >= 0 && mode < kCount ? &modes[mode] : nullptr;
}

}  // namespace kestrum

#endif
