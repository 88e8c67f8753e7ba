#include <algorithm>
#include <limits>

#include "core/text_reader.hpp"
#include "fuzz_target.hpp"

namespace kestrum_fuzz {
namespace {

using kestrum::TextReader;

constexpr std::size_t kWordSize = 16;

// Words and numbers, as the reader takes them and as scanf does, and how much more of the stream scanf may have taken
// after a failure: the C library's loses the character at which "inf" or "nan" breaks off.
struct Word {
  bool Take(TextReader& reader) { return reader.TakeWord(text, sizeof(text)) != TextReader::Word::kNone; }
  bool Scan(std::FILE* stream) { return std::fscanf(stream, "%15s", text) == 1; }
  bool Same(const Word& other) const { return std::strcmp(text, other.text) == 0; }
  static constexpr std::size_t kLoss = 0;
  char text[kWordSize];
};

struct Integer {
  bool Take(TextReader& reader) { return reader.TakeInteger(&value); }
  bool Scan(std::FILE* stream) {
    long scanned = 0;
    if (std::fscanf(stream, "%ld", &scanned) != 1) return false;
    value = std::max<std::int64_t>(scanned, -std::numeric_limits<std::int64_t>::max());
    return true;
  }
  bool Same(const Integer& other) const { return value == other.value; }
  static constexpr std::size_t kLoss = 0;
  std::int64_t value;
};

struct Real {
  bool Take(TextReader& reader) { return reader.TakeReal(&value); }
  bool Scan(std::FILE* stream) { return std::fscanf(stream, "%lf", &value) == 1; }
  bool Same(const Real& other) const { return SameNumbers(&value, &other.value, 1); }
  static constexpr std::size_t kLoss = 1;
  double value;
};

template <typename Entry>
void CompareWithScanf(std::string_view bytes, std::FILE* stream) {
  const Stream scanned = Stream::Seekable(bytes);
  {
    TextReader reader(stream);
    for (Entry taken, expected;;) {
      const bool exists = expected.Scan(scanned.file());
      Require(taken.Take(reader) == exists, "an entry is found where scanf finds one");
      if (!exists) break;
      Require(taken.Same(expected), "an entry is what scanf makes of it");
    }
  }
  const std::string rest = RestOf(stream);
  const std::string expectedRest = scanned.Rest();
  Require(rest.ends_with(expectedRest) && rest.size() - expectedRest.size() <= Entry::kLoss,
          "the stream is left where scanf leaves it");
}

template <typename Entry>
void Try(std::string_view bytes) {
  CompareWithScanf<Entry>(bytes, Stream::Seekable(bytes).file());
  if (const Stream pipe = Stream::Pipe(bytes); pipe.file() != nullptr) CompareWithScanf<Entry>(bytes, pipe.file());
}

}  // namespace
}  // namespace kestrum_fuzz

using namespace kestrum_fuzz;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = AsText(data, size);
  Try<Word>(bytes);
  Try<Integer>(bytes);
  if (size <= kestrum::TextReader::kLongestNumber) Try<Real>(bytes);
  return 0;
}
