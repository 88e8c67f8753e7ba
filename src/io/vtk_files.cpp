#include "io/vtk_files.hpp"

#include <bit>
#include <cstdint>
#include <cstring>

#include "core/integers.hpp"
#include "core/text_reader.hpp"
#include "io/take_line.hpp"

namespace kestrum {
namespace {

constexpr std::size_t kLongestLine = 1024;
using Line = char[kLongestLine];

enum class Kind { kBit, kSigned, kUnsigned, kReal };

struct NumberType {
  const char* name;
  Kind kind;
  std::size_t size;  // in bytes
};

// An index is of 32 bits in these files, whatever the program that wrote it counts with.
constexpr NumberType kNumberTypes[] = {
    {"bit", Kind::kBit, 1},
    {"char", Kind::kSigned, 1},
    {"signed_char", Kind::kSigned, 1},
    {"unsigned_char", Kind::kUnsigned, 1},
    {"short", Kind::kSigned, 2},
    {"unsigned_short", Kind::kUnsigned, 2},
    {"int", Kind::kSigned, 4},
    {"unsigned_int", Kind::kUnsigned, 4},
    {"vtkidtype", Kind::kSigned, 4},
    {"long", Kind::kSigned, 8},
    {"unsigned_long", Kind::kUnsigned, 8},
    {"vtktypeint64", Kind::kSigned, 8},
    {"vtktypeuint64", Kind::kUnsigned, 8},
    {"float", Kind::kReal, 4},
    {"double", Kind::kReal, 8},
};

void ToLower(char* word) noexcept {
  for (; *word != '\0'; ++word) {
    if (*word >= 'A' && *word <= 'Z') *word = static_cast<char>(*word - 'A' + 'a');
  }
}

// A number of big-endian bytes.
double NumberOf(const unsigned char* bytes, const NumberType& type) noexcept {
  std::uint64_t bits = 0;
  for (std::size_t i = 0; i < type.size; ++i) bits = bits << 8 | bytes[i];
  if (type.kind == Kind::kReal) {
    return type.size == 4 ? std::bit_cast<float>(static_cast<std::uint32_t>(bits)) : std::bit_cast<double>(bits);
  }
  if (type.kind == Kind::kUnsigned) return static_cast<double>(bits);
  switch (type.size) {
    case 1:
      return static_cast<std::int8_t>(bits);
    case 2:
      return static_cast<std::int16_t>(bits);
    case 4:
      return static_cast<std::int32_t>(bits);
    default:
      return static_cast<double>(static_cast<std::int64_t>(bits));
  }
}

// What a line announces.
struct Announced {
  char name[VORL_VARNAME_LENGTH];
  const NumberType* type;
  std::int64_t components;
  std::int64_t count;  // of points, cells or, in data of the whole file, anything
};

class VtkReader {
 public:
  VtkReader(std::FILE* stream, VtkImage* image) noexcept : stream_(stream), image_(*image) {}

  VtkFault Read() noexcept {
    if (const VtkFault fault = ReadHeader(); fault != VtkFault::kNone) return fault;
    Line line;
    char keyword[32];
    while (NextLine(line)) {
      TextReader rest(line, std::strlen(line));
      if (rest.TakeWord(keyword, sizeof(keyword)) != TextReader::Word::kTaken) return VtkFault::kNoKeyword;
      ToLower(keyword);
      if (const VtkFault fault = Obey(keyword, rest); fault != VtkFault::kNone) return fault;
    }
    return image_.arrays.size() > 0 ? VtkFault::kNone : VtkFault::kNoData;
  }

 private:
  // The next line that is not empty. False at the end.
  bool NextLine(Line& line) noexcept {
    do {
      image_.line = std::ftell(stream_);
      if (!TakeLine(stream_, line)) return false;
    } while (line[0] == '\0');
    return true;
  }

  VtkFault ReadHeader() noexcept {
    constexpr char kFirst[] = "# vtk DataFile Version";
    Line line;
    if (!NextLine(line) || std::strncmp(line, kFirst, sizeof(kFirst) - 1) != 0) return VtkFault::kNoVersion;
    const bool version = std::strcmp(line + sizeof(kFirst) - 1, " 3.4") == 0;
    image_.line = std::ftell(stream_);
    if (!TakeLine(stream_, line)) return VtkFault::kNoForm;  // the title, which may be empty
    image_.ofLibrary = version && std::strcmp(line, "Image") == 0;
    if (!NextLine(line)) return VtkFault::kNoForm;
    ToLower(line);
    binary_ = std::strcmp(line, "binary") == 0;
    if (!binary_ && std::strcmp(line, "ascii") != 0) return VtkFault::kNoForm;
    if (!NextLine(line)) return VtkFault::kNoDataset;
    ToLower(line);
    char word[32];
    TextReader words(line, std::strlen(line));
    for (const char* const expected : {"dataset", "structured_points"}) {
      if (words.TakeWord(word, sizeof(word)) != TextReader::Word::kTaken || std::strcmp(word, expected) != 0) {
        return VtkFault::kNoDataset;
      }
    }
    return VtkFault::kNone;
  }

  VtkFault Obey(const char* keyword, TextReader& rest) noexcept {
    const auto is = [keyword](const char* other) noexcept { return std::strcmp(keyword, other) == 0; };
    if (nvalue_ == 0) {
      if (is("dimensions")) return TakeSizes(rest);
      if (is("origin")) return TakeThree(rest, image_.origin);
      if (is("spacing") || is("aspect_ratio")) return TakeThree(rest, image_.spacing);
    }
    if (is("point_data")) return Begin(rest, false);
    if (is("cell_data")) return Begin(rest, true);
    if (is("field")) return TakeField(rest);
    if (is("metadata")) return SkipRemarks();
    if (is("lookup_table")) return SkipColours(rest);
    constexpr struct {
      const char* keyword;
      int components;
    } kSorts[] = {{"scalars", 0}, {"vectors", 3}, {"normals", 3}, {"tensors", 9}, {"tensors6", 6}};
    for (const auto& sort : kSorts) {
      if (is(sort.keyword)) return TakeAttribute(rest, sort.components);
    }
    return VtkFault::kNoKeyword;
  }

  // Of points or cells; 0 if an int cannot hold it.
  int Count(bool cells) const noexcept {
    const auto along = [&](int axis) noexcept { return image_.points[axis] - (cells && image_.points[axis] > 1); };
    return CountOf(along(0), along(1), along(2));
  }

  VtkFault TakeSizes(TextReader& rest) noexcept {
    for (int& n : image_.points) {
      if (!rest.TakeInt(&n)) return VtkFault::kNoGrid;
    }
    return Count(false) > 0 ? VtkFault::kNone : VtkFault::kNoGrid;
  }

  static VtkFault TakeThree(TextReader& rest, double (&numbers)[3]) noexcept {
    for (double& number : numbers) {
      if (!rest.TakeReal(&number)) return VtkFault::kNoGrid;
    }
    return VtkFault::kNone;
  }

  VtkFault Begin(TextReader& rest, bool cells) noexcept {
    std::int64_t count = 0;
    if (!rest.TakeInteger(&count) || count < 1 || count != Count(cells)) return VtkFault::kNoData;
    if (image_.arrays.size() > 0 && cells != image_.inCells) return VtkFault::kBoth;
    image_.inCells = cells;
    nvalue_ = count;
    return VtkFault::kNone;
  }

  static const NumberType* TakeType(TextReader& rest) noexcept {
    char word[32];
    if (rest.TakeWord(word, sizeof(word)) != TextReader::Word::kTaken) return nullptr;
    ToLower(word);
    for (const NumberType& type : kNumberTypes) {
      if (std::strcmp(word, type.name) == 0) return &type;
    }
    return nullptr;
  }

  // SCALARS name type components (1 if left out), and those whose keyword gives the number of components.
  VtkFault TakeAttribute(TextReader& rest, int components) noexcept {
    if (nvalue_ == 0) return VtkFault::kNoData;
    Announced array{};
    if (rest.TakeName(array.name, 1) != 0) return VtkFault::kNoArray;
    array.type = TakeType(rest);
    array.components = components;
    array.count = nvalue_;
    if (array.type == nullptr) return VtkFault::kNoArray;
    if (components > 0) return TakeArray(array);
    char more[32];
    array.components = 1;
    if (rest.TakeWord(more, sizeof(more)) != TextReader::Word::kNone &&
        !TextReader(more, std::strlen(more)).TakeInteger(&array.components)) {
      return VtkFault::kNoArray;
    }
    const long place = image_.line;
    Line line;
    if (!NextLine(line)) return VtkFault::kFewValues;
    ToLower(line);
    if (std::strncmp(line, "lookup_table", 12) != 0) return VtkFault::kNoKeyword;
    image_.line = place;
    return TakeArray(array);
  }

  // FIELD name n, and n arrays, each behind a line "name components count type".
  VtkFault TakeField(TextReader& rest) noexcept {
    char name[VORL_VARNAME_LENGTH];
    std::int64_t narray = 0;
    if (rest.TakeName(name, 1) != 0 || !rest.TakeInteger(&narray)) return VtkFault::kNoArray;
    for (; narray > 0; --narray) {
      Line line;
      Announced array{};
      if (!NextLine(line)) return VtkFault::kNoArray;
      TextReader words(line, std::strlen(line));
      if (std::strcmp(line, "METADATA") == 0) {
        if (const VtkFault fault = SkipRemarks(); fault != VtkFault::kNone) return fault;
        ++narray;
        continue;
      }
      if (words.TakeName(array.name, 1) != 0 || !words.TakeInteger(&array.components) ||
          !words.TakeInteger(&array.count) || (array.type = TakeType(words)) == nullptr) {
        return VtkFault::kNoArray;
      }
      if (nvalue_ > 0 && array.count != nvalue_) return VtkFault::kNoData;
      if (const VtkFault fault = TakeArray(array); fault != VtkFault::kNone) return fault;
    }
    return VtkFault::kNone;
  }

  // Remarks end at an empty line.
  VtkFault SkipRemarks() noexcept {
    Line line;
    while (TakeLine(stream_, line) && line[0] != '\0') {
    }
    return VtkFault::kNone;
  }

  // A table of colours, four numbers for each: bytes in a binary file.
  VtkFault SkipColours(TextReader& rest) noexcept {
    Announced table{};
    table.type = &kNumberTypes[3];
    table.components = 4;
    if (rest.TakeName(table.name, 1) != 0 || !rest.TakeInteger(&table.count)) return VtkFault::kNoArray;
    return TakeNumbers(table, [](double) noexcept { return 0; });
  }

  VtkFault TakeArray(const Announced& array) noexcept {
    if (array.components < 1 || !FitsInt(array.components)) return VtkFault::kNoArray;
    if (nvalue_ == 0) return TakeNumbers(array, [](double) noexcept { return 0; });
    const auto copy = [&array](VtkImage::Array* made) noexcept {
      std::memcpy(made->name, array.name, sizeof(array.name));
      made->components = static_cast<int>(array.components);
      return 0;
    };
    if (image_.arrays.Append(1, copy) != 0) return VtkFault::kMemory;
    return TakeNumbers(array, [this](double number) noexcept {
      return image_.values.Append(1, [number](double* value) noexcept {
        *value = number;
        return 0;
      });
    });
  }

  // Calls keep(number), which gives a status, with all numbers of an array.
  template <typename Keep>
  VtkFault TakeNumbers(const Announced& array, const Keep& keep) noexcept {
    if (array.count < 0 || !FitsInt(array.count)) return VtkFault::kNoArray;
    const std::int64_t count = array.components * array.count;
    if (binary_) return TakeBinary(*array.type, count, keep);
    TextReader reader(stream_);
    for (std::int64_t i = 0; i < count; ++i) {
      double number = 0.0;
      if (!reader.TakeReal(&number)) return VtkFault::kNoNumber;
      if (keep(number) != 0) return VtkFault::kMemory;
    }
    return VtkFault::kNone;
  }

  template <typename Keep>
  VtkFault TakeBinary(const NumberType& type, std::int64_t count, const Keep& keep) noexcept {
    constexpr std::int64_t kAtOnce = 2048;
    unsigned char block[8 * kAtOnce];
    for (std::int64_t first = 0; first < count; first += kAtOnce) {
      const std::int64_t n = count - first < kAtOnce ? count - first : kAtOnce;
      const bool bits = type.kind == Kind::kBit;
      const std::size_t size = bits ? static_cast<std::size_t>(n + 7) / 8 : static_cast<std::size_t>(n) * type.size;
      if (std::fread(block, 1, size, stream_) != size) return VtkFault::kFewValues;
      for (std::int64_t i = 0; i < n; ++i) {
        const double number = bits ? block[i / 8] >> (7 - i % 8) & 1 : NumberOf(block + i * type.size, type);
        if (keep(number) != 0) return VtkFault::kMemory;
      }
    }
    return VtkFault::kNone;
  }

  std::FILE* const stream_;
  VtkImage& image_;
  bool binary_ = false;
  std::int64_t nvalue_ = 0;  // of each component of an array; 0 before the data begin
};

}  // namespace

VtkFault ReadVtkImage(std::FILE* stream, VtkImage* image) noexcept { return VtkReader(stream, image).Read(); }

}  // namespace kestrum
