#ifndef KESTRUM_CORE_TEXT_READER_HPP
#define KESTRUM_CORE_TEXT_READER_HPP

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <initializer_list>

namespace kestrum {

// Takes words and numbers, separated by white space, from a stream or from a text, just as scanf with "%s", "%d" and
// "%lf" would in the locale "C", only faster. A stream is read in blocks; the destructor puts it back to just behind
// what was taken, so nothing else may use the stream while the reader lives. A stream that cannot seek is read character
// by character.
class TextReader {
 public:
  enum class Word { kTaken, kNone, kTooLong };

  // No number has more characters than this; longer ones are refused.
  static constexpr std::size_t kLongestNumber = 4095;

  explicit TextReader(std::FILE* stream) noexcept;
  TextReader(const char* text, std::size_t length) noexcept : cursor_(text), end_(text + length) {}
  TextReader(const TextReader&) = delete;
  TextReader& operator=(const TextReader&) = delete;
  ~TextReader();

  // These three leave the value alone if they fail.
  // An integer; one that leaves 64 bits becomes the nearest that does not.
  bool TakeInteger(std::int64_t* value) noexcept;
  bool TakeInt(int* value) noexcept;
  bool TakeReal(double* value) noexcept;
  // Writes the word, cut to fit `size` bytes with its terminator. Reading stops at the first character too many.
  Word TakeWord(char* word, std::size_t size) noexcept;
  // Takes the name of a variable. Returns 0, `noName` if there is none, or one less than that if it is too long.
  int TakeName(char* name, int noName) noexcept;

 private:
  int Peek() noexcept { return cursor_ != end_ || Fill() ? static_cast<unsigned char>(*cursor_) : EOF; }
  bool Fill() noexcept;
  bool SkipSpace() noexcept;
  bool TakeRealByCharacter(double* value) noexcept;

  static constexpr std::size_t kBlockSize = 1 << 14;

  std::FILE* stream_ = nullptr;
  bool seekable_ = false;
  const char* cursor_ = nullptr;
  const char* end_ = nullptr;
  char block_[kBlockSize];
};

// Take the next entries of a seekable file in which white space and comments may precede each. Return 0, or the
// status of the entry that is missing or cannot be read, which is left alone: `status` for the first, one less for
// each further one.
[[nodiscard]] int TakeInts(std::FILE* stream, int status, std::initializer_list<int*> values) noexcept;
[[nodiscard]] int TakeReals(std::FILE* stream, int status, std::initializer_list<double*> values) noexcept;

}  // namespace kestrum

#endif
