#include "core/text_writer.hpp"

#include <charconv>
#include <cmath>
#include <cstring>
#include <system_error>

#include "core/characters.hpp"
#include "core/integers.hpp"
#include "core/output_file.hpp"

namespace kestrum {
namespace {

bool IsOneOf(char c, const char* set) { return c != '\0' && std::strchr(set, c) != nullptr; }

// Up to four digits, which is more than a plain format needs.
int SmallNumber(const char* digits, const char* end) {
  int number = 0;
  for (; digits != end && number < 1000; ++digits) number = number * 10 + (*digits - '0');
  return number;
}

}  // namespace

bool NumberFormat::Set(const char* format, std::size_t length) noexcept {
  if (length == 0 || length >= sizeof(text)) return false;
  std::memcpy(text, format, length);
  text[length] = '\0';
  const char* const end = text + length;
  integer = end[-1] == 'd' || end[-1] == 'i';
  plain = 0;
  width = 0;
  precision = 6;
  wholeLimit = 0.0;

  int nconversion = 0;
  for (const char* p = text; (p = std::strchr(p, '%')) != nullptr; ++p) {
    const char* const start = p++;
    if (*p == '%') continue;
    const char* const flags = p;
    while (IsOneOf(*p, "-+ #0'")) ++p;
    const char* const widthDigits = p;
    while (IsDigit(*p)) ++p;
    const char* const point = p;
    if (*p == '.') {
      ++p;
      while (IsDigit(*p)) ++p;
    }
    const char* const numbersEnd = p;
    if (!integer && *p == 'l') ++p;
    if (!IsOneOf(*p, integer ? "di" : "aAeEfFgG") || ++nconversion > 1) return false;

    const bool alone = start == text && p + 1 == end && flags == widthDigits;
    const bool hasPrecision = point != numbersEnd;
    if (alone && IsOneOf(*p, "diefg") && !(integer && hasPrecision)) {
      width = SmallNumber(widthDigits, point);
      if (hasPrecision) precision = SmallNumber(point + 1, numbersEnd);
      if (width < 100 && precision < 100) plain = integer ? 'd' : *p;
    }
  }
  if (plain == 'g') {
    wholeLimit = 10.0;
    for (int digits = 1; digits < precision && digits < 9; ++digits) wholeLimit *= 10.0;
  }
  return true;
}

int FormatList::Split(const char* list, int count) noexcept {
  if (list == nullptr) return kWriteFormatString;
  const auto next = [](const char* p, std::size_t* length) noexcept {
    p += std::strspn(p, ";");
    *length = std::strcspn(p, ";");
    return p;
  };
  std::size_t length = 0;
  std::size_t nformat = 0;
  for (const char* p = next(list, &length); length > 0 && nformat < static_cast<std::size_t>(count); ++nformat) {
    p = next(p + length, &length);
  }
  if (nformat == 0) return kWriteFormatString;
  if (const int status = formats_.Allocate(nformat); status != 0) return status;
  const char* p = list;
  length = 0;
  for (NumberFormat& format : formats_) {
    p = next(p + length, &length);
    if (!format.Set(p, length)) return kWriteFormatString;
  }
  return 0;
}

int TextWriter::Finish() noexcept {
  Flush();
  return FlushOutput(stream_);
}

void TextWriter::Flush() noexcept {
  std::fwrite(block_, 1, length_, stream_);
  length_ = 0;
}

void TextWriter::Put(const NumberFormat& format, double value) noexcept {
  if (kBlockSize - length_ < kNumberRoom) Flush();
  if (format.plain != 0 && PutPlain(format, value)) return;
  if (format.integer) {
    Print(format.text, TruncateToInt(value));
  } else {
    Print(format.text, value);
  }
}

void TextWriter::PutExact(double value) noexcept {
  if (kBlockSize - length_ < kNumberRoom) Flush();
  length_ = static_cast<std::size_t>(std::to_chars(block_ + length_, block_ + kBlockSize, value).ptr - block_);
}

void TextWriter::PutInt(int value) noexcept {
  if (kBlockSize - length_ < kNumberRoom) Flush();
  length_ = static_cast<std::size_t>(std::to_chars(block_ + length_, block_ + kBlockSize, value).ptr - block_);
}

bool TextWriter::PutPlain(const NumberFormat& format, double value) noexcept {
  char* const start = block_ + length_;
  char* const end = block_ + kBlockSize;
  std::to_chars_result result{start, std::errc()};
  const bool looksLikeInt =
      std::abs(value) < format.wholeLimit && value == static_cast<int>(value) && (value != 0.0 || !std::signbit(value));
  if (format.integer || looksLikeInt) {
    result = std::to_chars(start, end, TruncateToInt(value));
  } else {
    if (!std::isfinite(value)) return false;
    const std::chars_format style = format.plain == 'f'   ? std::chars_format::fixed
                                    : format.plain == 'e' ? std::chars_format::scientific
                                                          : std::chars_format::general;
    result = std::to_chars(start, end, value, style, format.precision);
  }
  if (result.ec != std::errc()) return false;
  const std::size_t printed = static_cast<std::size_t>(result.ptr - start);
  const std::size_t width = static_cast<std::size_t>(format.width);
  if (printed < width) {
    std::memmove(start + (width - printed), start, printed);
    std::memset(start, ' ', width - printed);
  }
  length_ += printed < width ? width : printed;
  return true;
}

template <typename Number>
void TextWriter::Print(const char* format, Number number) noexcept {
  const std::size_t room = kBlockSize - length_;
  const int printed = std::snprintf(block_ + length_, room, format, number);
  if (printed >= 0 && static_cast<std::size_t>(printed) < room) {
    length_ += static_cast<std::size_t>(printed);
  } else {
    Flush();
    std::fprintf(stream_, format, number);
  }
}

}  // namespace kestrum
