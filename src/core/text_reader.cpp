#include "core/text_reader.hpp"

#include <charconv>
#include <cstdlib>
#include <limits>
#include <system_error>

#include "core/characters.hpp"
#include "core/integers.hpp"
#include "core/plain_numbers.hpp"
#include "core/text.h"

namespace kestrum {
namespace {

bool IsSpace(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
int ToLower(int c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; }
bool IsHexDigit(int c) { return IsDigit(c) || (ToLower(c) >= 'a' && ToLower(c) <= 'f'); }

template <typename T, typename Take>
int TakeEntries(std::FILE* stream, int status, std::initializer_list<T*> values, const Take& take) noexcept {
  for (T* const value : values) {
    if (VORLSkipComments(stream) != 0 || !(TextReader(stream).*take)(value)) return status;
    --status;
  }
  return 0;
}

}  // namespace

TextReader::TextReader(std::FILE* stream) noexcept : stream_(stream), seekable_(std::ftell(stream) >= 0) {}

TextReader::~TextReader() {
  if (stream_ == nullptr || cursor_ == end_) return;
  if (seekable_) {
    std::fseek(stream_, static_cast<long>(cursor_ - end_), SEEK_CUR);
  } else {
    std::ungetc(static_cast<unsigned char>(*cursor_), stream_);
  }
}

bool TextReader::Fill() noexcept {
  std::size_t length = 0;
  if (seekable_) {
    length = std::fread(block_, 1, kBlockSize, stream_);
  } else if (stream_ != nullptr) {
    const int c = std::getc(stream_);
    block_[0] = static_cast<char>(c);
    length = c == EOF ? 0 : 1;
  }
  if (length == 0) return false;
  cursor_ = block_;
  end_ = block_ + length;
  return true;
}

bool TextReader::SkipSpace() noexcept {
  int c = Peek();
  for (; IsSpace(c); c = Peek()) ++cursor_;
  return c != EOF;
}

bool TextReader::TakeInteger(std::int64_t* value) noexcept {
  if (!SkipSpace()) return false;
  const bool negative = *cursor_ == '-';
  if (negative || *cursor_ == '+') ++cursor_;
  if (!IsDigit(Peek())) return false;
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  std::int64_t magnitude = 0;
  for (int c = Peek(); IsDigit(c); c = Peek()) {
    ++cursor_;
    const int digit = c - '0';
    magnitude = magnitude > (kMost - digit) / 10 ? kMost : magnitude * 10 + digit;
  }
  *value = negative ? -magnitude : magnitude;
  return true;
}

bool TextReader::TakeInt(int* value) noexcept {
  std::int64_t number = 0;
  if (!TakeInteger(&number) || !FitsInt(number)) return false;
  *value = static_cast<int>(number);
  return true;
}

bool TextReader::TakeReal(double* value) noexcept {
  if (!SkipSpace()) return false;
  // Almost every number is plain decimal and lies in the block together with the white space behind it.
  const char* const digits = cursor_ + (*cursor_ == '+' || *cursor_ == '-');
  if (digits != end_ && (IsDigit(*digits) || *digits == '.')) {
    double number = 0.0;
    const auto [stop, error] = std::from_chars(*cursor_ == '+' ? digits : cursor_, end_, number);
    if (error == std::errc() && stop != end_ && IsSpace(*stop) &&
        static_cast<std::size_t>(stop - cursor_) <= kLongestNumber) {
      cursor_ = stop;
      *value = number;
      return true;
    }
  }
  return TakeRealByCharacter(value);
}

// Gathers the characters that scanf would take for a number, and no others, then converts them. Like the C library's
// scanf, an exponent may have no digits ("1e+" is 1) and what "nan" may have in brackets is not taken.
bool TextReader::TakeRealByCharacter(double* value) noexcept {
  char text[kLongestNumber + 1];
  std::size_t length = 0;
  const auto take = [&]() noexcept {
    if (length == kLongestNumber) return false;
    text[length++] = *cursor_++;
    return true;
  };
  const auto takeLetters = [&](const char* letters) noexcept {
    for (; *letters != '\0'; ++letters) {
      if (ToLower(Peek()) != *letters || !take()) return false;
    }
    return true;
  };

  int c = Peek();
  if (c == '+' || c == '-') take();
  c = ToLower(Peek());
  if (c == 'n') {
    if (!takeLetters("nan")) return false;
  } else if (c == 'i') {
    if (!takeLetters("inf")) return false;
    if (ToLower(Peek()) == 'i' && !takeLetters("inity")) return false;
  } else {
    bool hex = false;
    bool seenDigit = false;
    bool seenPoint = false;
    bool seenExponent = false;
    if (c == '0') {
      take();
      hex = ToLower(Peek()) == 'x';
      seenDigit = !hex;
      if (hex) take();
    }
    const std::size_t prefixLength = length;
    for (bool afterExponent = false;;) {
      c = ToLower(Peek());
      const bool startsExponent = seenDigit && !seenExponent && c == (hex ? 'p' : 'e');
      if (IsDigit(c) || (hex && !seenExponent && IsHexDigit(c))) {
        seenDigit = true;
      } else if (startsExponent) {
        seenExponent = seenPoint = true;
      } else if (c == '.' && !seenPoint) {
        seenPoint = true;
      } else if (!(afterExponent && (c == '+' || c == '-'))) {
        break;
      }
      afterExponent = startsExponent;
      if (!take()) return false;
    }
    if (hex && length == prefixLength) return false;
  }
  text[length] = '\0';
  char* stop = nullptr;
  const PlainNumbers plainNumbers;
  const double number = std::strtod(text, &stop);
  if (stop == text) return false;
  *value = number;
  return true;
}

TextReader::Word TextReader::TakeWord(char* word, std::size_t size) noexcept {
  if (!SkipSpace()) return Word::kNone;
  std::size_t length = 0;
  for (int c = Peek(); c != EOF && !IsSpace(c); c = Peek()) {
    if (length == size - 1) {
      word[length] = '\0';
      return Word::kTooLong;
    }
    word[length++] = static_cast<char>(c);
    ++cursor_;
  }
  word[length] = '\0';
  return Word::kTaken;
}

int TextReader::TakeName(char* name, int noName) noexcept {
  const Word outcome = TakeWord(name, VORL_VARNAME_LENGTH);
  return outcome == Word::kTaken ? 0 : outcome == Word::kNone ? noName : noName - 1;
}

int TakeInts(std::FILE* stream, int status, std::initializer_list<int*> values) noexcept {
  return TakeEntries(stream, status, values, &TextReader::TakeInt);
}

int TakeReals(std::FILE* stream, int status, std::initializer_list<double*> values) noexcept {
  return TakeEntries(stream, status, values, &TextReader::TakeReal);
}

}  // namespace kestrum
