#include "io/point_set_files.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>

#include "core/growing_buffer.hpp"
#include "core/memory.h"
#include "core/page_size.hpp"
#include "core/records.hpp"
#include "core/statuses.hpp"
#include "core/text_reader.hpp"
#include "core/text_writer.hpp"
#include "io/names_ahead.hpp"

namespace kestrum {
namespace {

// Rows of an array, and names of a point set, for which memory is taken before it is known whether there are as many.
constexpr int kRowsTakenOnTrust = 1 << 25;
constexpr int kNamesTakenOnTrust = 1 << 20;

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
  if (!reader.TakeInt(&npoint)) return kReadPointsLine1;
  if (!reader.TakeInt(&ncolumn)) return kReadPointsLine2;
  if (ncolumn < 3) return kPointSetCoordinates;
  const int nvar = ncolumn - 3;
  const auto takeName = [&reader](char* name) { return reader.TakeName(name, kReadPointsName); };
  const bool startsWithNames = nvar > kNamesTakenOnTrust;
  NamesAhead ahead;
  if (startsWithNames) {
    if (const int status = TakeCoordinateNames(reader); status != 0) return status;
    if (const int status = ahead.Read(static_cast<std::size_t>(nvar), takeName); status != 0) return status;
  }
  if (const int status = VORLMallocPointSet(ps, npoint, nvar); status != 0) return status;
  ps->npoint = npoint;
  ps->nvar = nvar;
  // Names and rows are deliberately not read if there are coordinates alone.
  if (nvar == 0) return 0;
  if (const int status = startsWithNames ? 0 : TakeCoordinateNames(reader); status != 0) return status;
  if (const int status = ahead.Fill(ps->varName, nvar, takeName); status != 0) return status;
  // A file that ends early has a few values of each variable, which must not take a huge page each.
  if (npoint > 0) {
    const std::size_t nvalue = static_cast<std::size_t>(npoint) * static_cast<std::size_t>(nvar);
    AskForPages(ps->var, nvalue * sizeof(real), PageSize::kSmall);
  }
  return ForEachNumber(*ps, [&reader](real& value) { return reader.TakeReal(&value); }) ? 0 : kReadPointSetEntries;
}

int VORLWritePointSet(VORL_POINTSET* ps, char* coordFormat, char* varFormat, FILE* stream) noexcept {
  if (const int status = CheckPointSet(*ps); status != 0) return status;
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
  return writer.Finish();
}

int VORLReadArray2D(int* nrow, int* ncol, real*** array, FILE* stream) noexcept {
  TextReader reader(stream);
  if (!reader.TakeInt(nrow)) return kRead2DRows;
  if (!reader.TakeInt(ncol)) return kRead2DColumns;
  *array = nullptr;
  const auto take = [&reader](real* entry) { return reader.TakeReal(entry) ? 0 : kRead2DElement; };
  // As with names above: each row has a pointer, whether it is read or not, so that there must be an entry for it.
  GrowingBuffer<real> ahead;
  int status = 0;
  if (*nrow > kRowsTakenOnTrust && *ncol > 0) status = ahead.Append(static_cast<std::size_t>(*nrow), take);
  if (status != 0) return status;
  *array = reinterpret_cast<real**>(
      VORLMallocArray2D(static_cast<std::size_t>(*nrow), static_cast<std::size_t>(*ncol), sizeof(real), &status));
  if (status != 0) return status;
  real* const entries = (*array)[0];
  const std::size_t nentry = static_cast<std::size_t>(*nrow) * static_cast<std::size_t>(*ncol);
  for (std::size_t i = 0; i < nentry && status == 0; ++i) {
    if (i < ahead.size()) {
      entries[i] = ahead[i];
    } else {
      status = take(&entries[i]);
    }
  }
  return status;
}

int VORLWriteArray2D(int nrow, int ncol, real** array, char* format, FILE* stream) noexcept {
  NumberFormat entryFormat;
  if (format == nullptr || !entryFormat.Set(format, std::strlen(format))) return kWriteFormatString;
  std::fprintf(stream, "%d %d\n", nrow, ncol);
  TextWriter writer(stream);
  for (int row = 0; row < nrow; ++row) {
    for (int col = 0; col < ncol; ++col) {
      writer.Put(entryFormat, array[row][col]);
      writer.Put('\n');
    }
  }
  return writer.Finish();
}
