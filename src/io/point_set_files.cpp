#include "io/point_set_files.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>

#include "core/image.h"
#include "core/memory.h"
#include "io/text_reader.hpp"
#include "io/text_writer.hpp"

namespace kestrum {
namespace {

constexpr int kUnfitFormat = -1021;

// Rows of an array, and names of a point set, for which memory is taken before it is known whether the file has as many.
constexpr int kRowsTakenOnTrust = 1 << 25;
constexpr int kNamesTakenOnTrust = 1 << 20;

bool TakeInt(TextReader& reader, int* value) {
  std::int64_t number = 0;
  if (!reader.TakeInteger(&number) || number < std::numeric_limits<int>::min() ||
      number > std::numeric_limits<int>::max()) {
    return false;
  }
  *value = static_cast<int>(number);
  return true;
}

// Takes a word of any length, of which the first character counts.
bool TakeInitial(TextReader& reader, char* initial) {
  char word[VORL_WORD_LENGTH];
  TextReader::Word outcome = reader.TakeWord(word, sizeof(word));
  if (outcome == TextReader::Word::kNone) return false;
  *initial = word[0];
  while (outcome == TextReader::Word::kTooLong) outcome = reader.TakeWord(word, sizeof(word));
  return true;
}

int TakeCoordinateNames(TextReader& reader) {
  for (int axis = 0; axis < 3; ++axis) {
    char initial = '\0';
    if (!TakeInitial(reader, &initial)) return -(773 + axis);
    if (initial != "xyz"[axis] && initial != "XYZ"[axis]) return -(631 + axis);
  }
  return 0;
}

int TakeVariableName(TextReader& reader, char* name) {
  switch (reader.TakeWord(name, VORL_VARNAME_LENGTH)) {
    case TextReader::Word::kNone:
      return -776;
    case TextReader::Word::kTooLong:
      return -777;
    default:
      return 0;
  }
}

// Calls use(value) for each number of each row in turn, until one fails.
template <typename Use>
bool ForEachNumber(VORL_POINTSET& ps, const Use& use) {
  const std::size_t npoint = static_cast<std::size_t>(std::max(ps.npoint, 0));
  for (std::size_t ip = 0; ip < npoint; ++ip) {
    for (real* const axis : {ps.x, ps.y, ps.z}) {
      if (!use(axis[ip])) return false;
    }
    for (int iv = 0; iv < ps.nvar; ++iv) {
      if (!use(ps.var[static_cast<std::size_t>(iv) * npoint + ip])) return false;
    }
  }
  return true;
}

}  // namespace
}  // namespace kestrum

using namespace kestrum;

int VORLReadPointSet(VORL_POINTSET* ps, FILE* stream) noexcept {
  TextReader reader(stream);
  int npoint = 0;
  int ncolumn = 0;
  if (!TakeInt(reader, &npoint)) return -771;
  if (!TakeInt(reader, &ncolumn)) return -772;
  if (ncolumn < 3) return -630;
  const int nvar = ncolumn - 3;
  // A file shorter than its names takes no memory for them: their reading must fail, and tells how.
  if (nvar > kNamesTakenOnTrust && reader.Remaining() < nvar) {
    if (const int status = TakeCoordinateNames(reader); status != 0) return status;
    for (char name[VORL_VARNAME_LENGTH];;) {
      if (const int status = TakeVariableName(reader, name); status != 0) return status;
    }
  }
  if (const int status = VORLMallocPointSet(ps, npoint, nvar); status != 0) return status;
  ps->npoint = npoint;
  ps->nvar = nvar;
  // It is meant that names and rows are not read if there are coordinates alone.
  if (nvar == 0) return 0;
  if (const int status = TakeCoordinateNames(reader); status != 0) return status;
  for (int iv = 0; iv < nvar; ++iv) {
    if (const int status = TakeVariableName(reader, ps->varName[iv]); status != 0) return status;
  }
  return ForEachNumber(*ps, [&reader](real& value) { return reader.TakeReal(&value); }) ? 0 : -731;
}

int VORLWritePointSet(VORL_POINTSET* ps, char* coordFormat, char* varFormat, FILE* stream) noexcept {
  FormatList coordFormats;
  FormatList varFormats;
  if (const int status = coordFormats.Split(coordFormat, 3); status != 0) return status;
  if (ps->nvar > 0) {
    if (const int status = varFormats.Split(varFormat, ps->nvar); status != 0) return status;
  }
  std::fprintf(stream, "%d\n%d\nx\ny\nz\n", ps->npoint, ps->nvar + 3);
  for (int iv = 0; iv < ps->nvar; ++iv) std::fprintf(stream, "%s\n", ps->varName[iv]);
  TextWriter writer(stream);
  const int last = std::max(ps->nvar, 0) + 2;
  int column = 0;
  ForEachNumber(*ps, [&](real& value) {
    writer.Put(column < 3 ? coordFormats[column] : varFormats[column - 3], value);
    writer.Put(column < last ? ' ' : '\n');
    column = column < last ? column + 1 : 0;
    return true;
  });
  return 0;
}

int VORLReadArray2D(int* nrow, int* ncol, real*** array, FILE* stream) noexcept {
  TextReader reader(stream);
  if (!TakeInt(reader, nrow)) return -25;
  if (!TakeInt(reader, ncol)) return -26;
  *array = nullptr;
  // As with names above: each row has a pointer, whether it is read or not.
  if (*nrow > kRowsTakenOnTrust && *ncol > 0 && reader.Remaining() < *nrow) {
    for (real entry; reader.TakeReal(&entry);) continue;
    return -27;
  }
  int status = 0;
  *array = reinterpret_cast<real**>(
      VORLMallocArray2D(static_cast<std::size_t>(*nrow), static_cast<std::size_t>(*ncol), sizeof(real), &status));
  if (status != 0) return status;
  for (int row = 0; row < *nrow; ++row) {
    for (int col = 0; col < *ncol; ++col) {
      if (!reader.TakeReal(&(*array)[row][col])) return -27;
    }
  }
  return 0;
}

int VORLWriteArray2D(int nrow, int ncol, real** array, char* format, FILE* stream) noexcept {
  NumberFormat entryFormat;
  if (format == nullptr || !entryFormat.Set(format, std::strlen(format))) return kUnfitFormat;
  std::fprintf(stream, "%d %d\n", nrow, ncol);
  TextWriter writer(stream);
  for (int row = 0; row < nrow; ++row) {
    for (int col = 0; col < ncol; ++col) {
      writer.Put(entryFormat, array[row][col]);
      writer.Put('\n');
    }
  }
  return 0;
}
