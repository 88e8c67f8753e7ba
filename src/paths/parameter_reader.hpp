#ifndef KESTRUM_PATHS_PARAMETER_READER_HPP
#define KESTRUM_PATHS_PARAMETER_READER_HPP

#include <cstdio>
#include <cstring>

#include "core/text.h"
#include "core/text_reader.hpp"

namespace kestrum {

// A value of a mode, which is its place in a list of these: its name in files, and its meaning, if that is printed.
struct Mode {
  const char* word;
  const char* meaning = "";
};

// Takes a mode by its word, which white space and comments may precede. False, with the mode left alone, if the file
// ends or holds anything else there.
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
