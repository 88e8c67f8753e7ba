#include "io/image_files.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "core/integers.hpp"
#include "core/output_file.hpp"
#include "core/page_size.hpp"
#include "core/plain_numbers.hpp"
#include "core/records.hpp"
#include "core/statuses.hpp"
#include "core/text_reader.hpp"
#include "core/text_writer.hpp"
#include "io/names_ahead.hpp"

namespace kestrum {
namespace {

enum TextFormat { kGslib, kVtk, kPgm, kPpm, kTextFormatCount };

// What the two portable map formats do not share.
struct PortableMap {
  const char* keyword;
  const char* label;
  int nvar;
  const char* names[3];
  int lineRow;  // of a missing line; a line too long and a wrong keyword have the next two
  int dimensionStatus;
  int wrongNvarStatus;
  int not2DStatus;
};
constexpr PortableMap kPortableMaps[] = {
    {"P2\n", "PGM", 1, {VORL_NAME_FOR_PGM_VAR}, 763, kReadPgmDimension, kWritePgmVariables, kWritePgmDimension},
    // Bad dimensions of a PPM deliberately give row 710, not one of their own.
    {"P3\n",
     "PPM",
     3,
     {VORL_NAME_FOR_PPM_VAR0, VORL_NAME_FOR_PPM_VAR1, VORL_NAME_FOR_PPM_VAR2},
     767,
     kDistanceType,
     kWritePpmVariables,
     kWritePpmDimension},
};

// Null for the other formats.
const PortableMap* FindMap(int fileFormat) {
  return fileFormat == kPgm || fileFormat == kPpm ? &kPortableMaps[fileFormat - kPgm] : nullptr;
}

bool ValueCountFits(const VORL_GRID& grid, std::int64_t nvar) { return FitsInt(nvar) && FitsInt(nvar * grid.nxyz); }

VORL_GRID UnitGrid() { return {0, 0, 0, 1.0, 1.0, 1.0, 0.0, 0.0, 0.0, 0, 0}; }

// Variables without nodes: the values cannot be allocated, however many variables there are.
bool LacksNodes(const VORL_GRID& grid, std::int64_t nvar) {
  return nvar > 0 && std::min({grid.nx, grid.ny, grid.nz}) < 1;
}

int AllocateImage(VORL_IMAGE* image, const VORL_GRID& grid, std::int64_t nvar) {
  return LacksNodes(grid, nvar) ? VORLMallocImage(image, 0, 1) : MallocImageOn(grid, static_cast<int>(nvar), image);
}

// The same, with names from takeName(name); very many are read before memory is allocated for them.
template <typename TakeName>
int AllocateImage(VORL_IMAGE* image, const VORL_GRID& grid, std::int64_t nvar, const TakeName& takeName) {
  NamesAhead ahead;
  if (nvar > VORL_MAX_NVAR && !LacksNodes(grid, nvar)) {
    if (const int status = ahead.Read(static_cast<std::size_t>(nvar), takeName); status != 0) return status;
  }
  if (const int status = AllocateImage(image, grid, nvar); status != 0) return status;
  return ahead.Fill(image->varName, image->nvar, takeName);
}

// Takes a header line; the status of a missing line is that of `row`, that of a line too long is of the next row.
int ReadLine(std::FILE* stream, char (&line)[VORL_LINE_LENGTH], int row) {
  if (std::fgets(line, VORL_LINE_LENGTH, stream) == nullptr) return -row;
  const std::size_t length = std::strlen(line);
  return length > 0 && line[length - 1] == '\n' ? 0 : -(row + 1);
}

int TakeIntegers(TextReader& fields, std::int64_t (&values)[3]) {
  int n = 0;
  while (n < 3 && fields.TakeInteger(&values[n])) ++n;
  return n;
}

int TakeReals(TextReader& fields, double* x, double* y, double* z) {
  double* const values[] = {x, y, z};
  int n = 0;
  while (n < 3 && fields.TakeReal(values[n])) ++n;
  return n;
}

bool TakeKeyword(TextReader& fields) {
  char word[VORL_LINE_LENGTH];
  return fields.TakeWord(word, sizeof(word)) == TextReader::Word::kTaken;
}

// As ReadLine, of a line that starts with a keyword; if there is none or takeFields(fields) fails, the status is that
// of the row after the next.
template <typename TakeFields>
int ReadKeywordLine(std::FILE* stream, int row, const TakeFields& takeFields) {
  char line[VORL_LINE_LENGTH];
  if (const int status = ReadLine(stream, line, row); status != 0) return status;
  TextReader fields(line, std::strlen(line));
  return TakeKeyword(fields) && takeFields(fields) ? 0 : -(row + 2);
}

int ReadValues(VORL_IMAGE* image, TextReader& reader) {
  if (image->nvar < 1) return 0;
  const std::size_t nxyz = static_cast<std::size_t>(std::max(image->grid->nxyz, 0));
  // A file that ends early has a few values of each variable, which must not take a huge page each.
  if (image->nvar > 1) {
    AskForPages(image->var, static_cast<std::size_t>(image->nxyzv) * sizeof(real), PageSize::kSmall);
  }
  for (std::size_t node = 0; node < nxyz; ++node) {
    double* value = image->var + node;
    for (int v = 0; v < image->nvar; ++v, value += nxyz) {
      if (!reader.TakeReal(value)) return kReadImageEntries;
    }
  }
  return 0;
}

int ReadGslib(VORL_IMAGE* image, std::FILE* stream) {
  char line[VORL_LINE_LENGTH];
  if (const int status = ReadLine(stream, line, 721); status != 0) return status;
  VORL_GRID grid = UnitGrid();
  TextReader fields(line, std::strlen(line));
  std::int64_t sizes[3];
  int nfield = TakeIntegers(fields, sizes);
  if (nfield == 3) nfield += TakeReals(fields, &grid.sx, &grid.sy, &grid.sz);
  if (nfield == 6) nfield += TakeReals(fields, &grid.ox, &grid.oy, &grid.oz);
  if (nfield % 3 != 0 || nfield == 0 || !SetSizes(&grid, sizes[0], sizes[1], sizes[2])) return kReadGslibLine1;

  TextReader reader(stream);
  std::int64_t nvar = 0;
  if (!reader.TakeInteger(&nvar) || !ValueCountFits(grid, nvar)) return kReadGslibLine2;
  const auto takeName = [&reader](char* name) { return reader.TakeName(name, kReadGslibName); };
  if (const int status = AllocateImage(image, grid, nvar, takeName); status != 0) return status;
  return ReadValues(image, reader);
}

// The names are in one field, separated by slashes.
int SplitVtkNames(const char* field, VORL_IMAGE* image) {
  for (int v = 0; v < image->nvar; ++v) {
    const char* const slash = v + 1 < image->nvar ? std::strchr(field, '/') : std::strchr(field, '\0');
    if (slash == nullptr) return kReadVtkName;
    std::memcpy(image->varName[v], field, static_cast<std::size_t>(slash - field));
    image->varName[v][slash - field] = '\0';
    field = slash + 1;
  }
  return 0;
}

int ReadVtk(VORL_IMAGE* image, std::FILE* stream) {
  char line[VORL_LINE_LENGTH];
  for (int i = 1; i <= 4; ++i) {
    if (const int status = ReadLine(stream, line, 741); status != 0) return status;
  }
  VORL_GRID grid = UnitGrid();
  const auto takeSizes = [&grid](TextReader& fields) {
    std::int64_t sizes[3];
    return TakeIntegers(fields, sizes) == 3 && SetSizes(&grid, sizes[0], sizes[1], sizes[2]);
  };
  const auto takeOrigin = [&grid](TextReader& fields) { return TakeReals(fields, &grid.ox, &grid.oy, &grid.oz) == 3; };
  const auto takeSpacing = [&grid](TextReader& fields) { return TakeReals(fields, &grid.sx, &grid.sy, &grid.sz) == 3; };
  std::int64_t nxyz = 0;
  const auto takeNodeCount = [&nxyz](TextReader& fields) { return fields.TakeInteger(&nxyz); };
  char names[VORL_LINE_LENGTH];
  std::int64_t nvar = 1;
  const auto takeVariables = [&](TextReader& fields) {
    if (fields.TakeWord(names, sizeof(names)) != TextReader::Word::kTaken || !TakeKeyword(fields)) return false;
    fields.TakeInteger(&nvar);  // one if it is not given
    return ValueCountFits(grid, nvar);
  };
  if (const int status = ReadKeywordLine(stream, 743, takeSizes); status != 0) return status;
  if (const int status = ReadKeywordLine(stream, 746, takeOrigin); status != 0) return status;
  if (const int status = ReadKeywordLine(stream, 749, takeSpacing); status != 0) return status;
  if (const int status = ReadKeywordLine(stream, 752, takeNodeCount); status != 0) return status;
  if (nxyz != grid.nxyz) return kReadVtkSize;
  if (const int status = ReadKeywordLine(stream, 756, takeVariables); status != 0) return status;
  // More names than the line can hold take no memory.
  if (nvar > VORL_LINE_LENGTH && !LacksNodes(grid, nvar)) return kReadVtkName;
  if (const int status = AllocateImage(image, grid, nvar); status != 0) return status;
  if (const int status = SplitVtkNames(names, image); status != 0) return status;
  if (const int status = ReadLine(stream, line, 761); status != 0) return status;
  TextReader reader(stream);
  return ReadValues(image, reader);
}

int ReadPortableMap(VORL_IMAGE* image, const PortableMap& map, std::FILE* stream) {
  char line[VORL_LINE_LENGTH];
  if (const int status = ReadLine(stream, line, map.lineRow); status != 0) return status;
  if (std::strcmp(line, map.keyword) != 0) return -(map.lineRow + 2);
  if (const int status = ReadLine(stream, line, map.lineRow); status != 0) return status;
  if (const int status = ReadLine(stream, line, map.lineRow); status != 0) return status;
  VORL_GRID grid = UnitGrid();
  {
    TextReader fields(line, std::strlen(line));
    std::int64_t nx = 0;
    std::int64_t ny = 0;
    const bool complete = fields.TakeInteger(&nx) && fields.TakeInteger(&ny);
    if (!complete || !SetSizes(&grid, nx, ny, 1) || !ValueCountFits(grid, map.nvar)) return map.dimensionStatus;
  }
  if (const int status = ReadLine(stream, line, map.lineRow); status != 0) return status;
  if (const int status = AllocateImage(image, grid, map.nvar); status != 0) return status;
  for (int v = 0; v < map.nvar; ++v) std::strcpy(image->varName[v], map.names[v]);
  TextReader reader(stream);
  return ReadValues(image, reader);
}

void WriteGslibHeader(const VORL_IMAGE& image, std::FILE* stream) {
  const VORL_GRID& grid = *image.grid;
  std::fprintf(stream, "%d %d %d %f %f %f %f %f %f\n", grid.nx, grid.ny, grid.nz, grid.sx, grid.sy, grid.sz, grid.ox,
               grid.oy, grid.oz);
  std::fprintf(stream, "%d\n", image.nvar);
  for (int v = 0; v < image.nvar; ++v) std::fprintf(stream, "%s\n", image.varName[v]);
}

void WriteVtkHeader(const VORL_IMAGE& image, std::FILE* stream) {
  const VORL_GRID& grid = *image.grid;
  std::fprintf(stream, "# vtk DataFile Version %3.1f\nImage\nASCII\nDATASET STRUCTURED_POINTS\n",
               VORL_VTK_VERSION_NUMBER);
  std::fprintf(stream, "DIMENSIONS %d %d %d\n", grid.nx, grid.ny, grid.nz);
  std::fprintf(stream, "ORIGIN %f %f %f\n", grid.ox, grid.oy, grid.oz);
  std::fprintf(stream, "SPACING %f %f %f\n", grid.sx, grid.sy, grid.sz);
  std::fprintf(stream, "POINT_DATA %d\nSCALARS ", grid.nxyz);
  for (int v = 0; v < image.nvar; ++v) std::fprintf(stream, v == 0 ? "%s" : "/%s", image.varName[v]);
  std::fprintf(stream, " float %d\nLOOKUP_TABLE default\n", image.nvar);
}

void WritePortableMapHeader(const VORL_IMAGE& image, const PortableMap& map, std::FILE* stream) {
  const VORL_GRID& grid = *image.grid;
  std::fprintf(stream, "%s# %s: %d %d %d %f %f %f %f %f %f\n%d %d\n255\n", map.keyword, map.label, grid.nx, grid.ny,
               grid.nz, grid.sx, grid.sy, grid.sz, grid.ox, grid.oy, grid.oz, grid.nx, grid.ny);
}

int WriteValues(const VORL_IMAGE& image, const FormatList& formats, std::FILE* stream) {
  TextWriter writer(stream);
  const std::size_t nxyz = image.nvar > 0 ? static_cast<std::size_t>(image.grid->nxyz) : 0;
  for (std::size_t node = 0; node < nxyz; ++node) {
    const double* value = image.var + node;
    for (int v = 0; v < image.nvar; ++v, value += nxyz) {
      if (v > 0) writer.Put(' ');
      writer.Put(formats[v], *value);
    }
    writer.Put('\n');
  }
  return writer.Finish();
}

// The fixed fields of the binary form in the order of the file. The row of a failure is `row` behind the first row of
// the writer or of the reader.
struct BinaryHeader {
  unsigned char sizeOfInt = sizeof(int);
  unsigned char sizeOfReal = sizeof(real);
  VORL_GRID grid = UnitGrid();
  int nvar = 0;

  // Calls transfer(field, size) for each field, up to the first that fails; `row` then is its row.
  template <typename Transfer>
  bool ForEachField(const Transfer& transfer, int* row) {
    const struct {
      void* data;
      std::size_t size;
      int row;
    } fields[] = {
        {&sizeOfInt, sizeof(sizeOfInt), 0}, {&sizeOfReal, sizeof(sizeOfReal), 1}, {&grid.nx, sizeof(int), 3},
        {&grid.ny, sizeof(int), 4},         {&grid.nz, sizeof(int), 5},           {&grid.sx, sizeof(real), 6},
        {&grid.sy, sizeof(real), 7},        {&grid.sz, sizeof(real), 8},          {&grid.ox, sizeof(real), 9},
        {&grid.oy, sizeof(real), 10},       {&grid.oz, sizeof(real), 11},         {&nvar, sizeof(int), 12},
    };
    for (const auto& field : fields) {
      *row = field.row;
      if (!transfer(field.data, field.size)) return false;
    }
    return true;
  }
};
static_assert(sizeof(int) == 4 && sizeof(real) == 8);

constexpr int kBinaryWriterRow = 1025;
constexpr int kBinaryReaderRow = 1045;
constexpr int kNzRow = 5;
constexpr int kNvarRow = 12;
constexpr int kNamesRow = 13;
constexpr int kValuesRow = 14;

int ReadBinaryName(std::FILE* stream, char* name) {
  for (int i = 0; i < VORL_VARNAME_LENGTH; ++i) {
    const int c = std::getc(stream);
    if (c == EOF) return -(kBinaryReaderRow + kNamesRow);
    name[i] = static_cast<char>(c);
    if (c == '\0') return 0;
  }
  name[VORL_VARNAME_LENGTH - 1] = '\0';
  return kReadGslibName - 1;
}

}  // namespace
}  // namespace kestrum

using namespace kestrum;

int VORLReadImage(VORL_IMAGE* image, int fileFormat, FILE* stream) noexcept {
  if (fileFormat == kGslib) return ReadGslib(image, stream);
  if (fileFormat == kVtk) return ReadVtk(image, stream);
  const PortableMap* const map = FindMap(fileFormat);
  return map != nullptr ? ReadPortableMap(image, *map, stream) : kReadImageFormat;
}

int VORLWriteImage(VORL_IMAGE* image, char* formatString, int fileFormat, FILE* stream) noexcept {
  if (fileFormat < 0 || fileFormat >= kTextFormatCount) return kWriteImageFormat;
  if (const int status = CheckImageIfAnyVariable(*image); status != 0) return status;
  const PortableMap* const map = FindMap(fileFormat);
  if (map != nullptr && image->nvar != map->nvar) return map->wrongNvarStatus;
  if (map != nullptr && image->grid->nz != 1) return map->not2DStatus;
  FormatList formats;
  if (image->nvar >= 1) {
    if (const int status = formats.Split(formatString, image->nvar); status != 0) return status;
  }

  const PlainNumbers plainNumbers;
  if (fileFormat == kGslib) {
    WriteGslibHeader(*image, stream);
  } else if (fileFormat == kVtk) {
    WriteVtkHeader(*image, stream);
  } else {
    WritePortableMapHeader(*image, *map, stream);
  }
  return WriteValues(*image, formats, stream);
}

int VORLReadImageGslibBinary(VORL_IMAGE* image, FILE* stream) noexcept {
  BinaryHeader header;
  int row = 0;
  const auto transfer = [stream](void* field, std::size_t size) { return std::fread(field, size, 1, stream) == 1; };
  if (!header.ForEachField(transfer, &row)) return -(kBinaryReaderRow + row);
  VORL_GRID grid = header.grid;
  if (!SetSizes(&grid, grid.nx, grid.ny, grid.nz)) return -(kBinaryReaderRow + kNzRow);
  if (!ValueCountFits(grid, header.nvar)) return -(kBinaryReaderRow + kNvarRow);
  const auto readName = [stream](char* name) { return ReadBinaryName(stream, name); };
  if (const int status = AllocateImage(image, grid, header.nvar, readName); status != 0) return status;
  if (image->nvar < 1) return 0;
  const std::size_t nvalue = static_cast<std::size_t>(image->nxyzv);
  return std::fread(image->var, sizeof(real), nvalue, stream) == nvalue ? 0 : -(kBinaryReaderRow + kValuesRow);
}

int VORLWriteImageGslibBinary(VORL_IMAGE* image, FILE* stream) noexcept {
  if (const int status = CheckImageIfAnyVariable(*image); status != 0) return status;
  BinaryHeader header;
  header.grid = *image->grid;
  header.nvar = image->nvar;
  int row = 0;
  const auto transfer = [stream](void* field, std::size_t size) { return std::fwrite(field, size, 1, stream) == 1; };
  if (!header.ForEachField(transfer, &row)) return -(kBinaryWriterRow + row);
  for (int v = 0; v < image->nvar; ++v) {
    const std::size_t length = std::strlen(image->varName[v]) + 1;
    if (std::fwrite(image->varName[v], 1, length, stream) != length) return -(kBinaryWriterRow + kNamesRow);
  }
  if (image->nvar > 0) {
    row = kValuesRow;
    const std::size_t nvalue = static_cast<std::size_t>(image->nxyzv);
    if (std::fwrite(image->var, sizeof(real), nvalue, stream) != nvalue) return -(kBinaryWriterRow + row);
  }
  // What waits in the stream's buffer can still fail: as the last field.
  return FlushOutput(stream) == 0 ? 0 : -(kBinaryWriterRow + row);
}
