#ifndef KESTRUM_CORE_TEXT_WRITER_HPP
#define KESTRUM_CORE_TEXT_WRITER_HPP

#include <cstddef>
#include <cstdio>

#include "core/buffer.hpp"
#include "core/plain_numbers.hpp"
#include "core/statuses.hpp"
#include "core/text.h"

namespace kestrum {

// A printf format for one number. Plain formats (width, precision and conversion, nothing else) are printed without
// printf, letter for letter alike. All are printed as in the locale "C".
struct NumberFormat {
  // Takes a format over from `length` characters; false if it is too long, if it has more than one conversion, or if
  // the conversion does not fit: a format that ends in 'd' or 'i' prints an int, any other a double.
  bool Set(const char* format, std::size_t length) noexcept;

  char text[VORL_WORD_LENGTH];
  bool integer;
  char plain;  // 'd', 'e', 'f' or 'g' if the format is plain, otherwise 0
  int width;   // these two of a plain format
  int precision;
  double wholeLimit;  // whole numbers of a magnitude below this look as an int does
};

// The formats of `count` numbers, from a list of formats separated by semicolons: the list is repeated if it is short,
// and what it has in surplus is not looked at.
class FormatList {
 public:
  // kWriteFormatString, or the status of the allocation.
  [[nodiscard]] int Split(const char* list, int count) noexcept;

  const NumberFormat& operator[](int number) const noexcept {
    return formats_[static_cast<unsigned>(number) % static_cast<unsigned>(formats_.size())];
  }

 private:
  Buffer<NumberFormat> formats_;
};

// Collects text in a block, and writes it to the stream in large pieces, the last by Finish.
class TextWriter {
 public:
  explicit TextWriter(std::FILE* stream) noexcept : stream_(stream) {}
  TextWriter(const TextWriter&) = delete;
  TextWriter& operator=(const TextWriter&) = delete;

  void Put(char c) noexcept {
    if (length_ == kBlockSize) Flush();
    block_[length_++] = c;
  }
  // An integer format prints the value truncated toward zero; a value that no int holds becomes the lowest int.
  void Put(const NumberFormat& format, double value) noexcept;
  void Put(const char* text) noexcept {
    for (; *text != '\0'; ++text) Put(*text);
  }
  // The shortest text that reads back as the same number.
  void PutExact(double value) noexcept;
  void PutInt(int value) noexcept;
  // Ends the text. Returns the status of FlushOutput: whether all that was written to the stream has left the program.
  [[nodiscard]] int Finish() noexcept;

 private:
  void Flush() noexcept;
  bool PutPlain(const NumberFormat& format, double value) noexcept;
  template <typename Number>
  void Print(const char* format, Number number) noexcept;

  static constexpr std::size_t kBlockSize = 1 << 14;
  // Free space that is made before a number is printed.
  static constexpr std::size_t kNumberRoom = 512;

  const PlainNumbers plainNumbers_;
  std::FILE* stream_;
  std::size_t length_ = 0;
  char block_[kBlockSize];
};

}  // namespace kestrum

#endif
