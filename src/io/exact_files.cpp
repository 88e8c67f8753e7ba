#include "io/exact_files.hpp"

#include <cmath>
#include <cstdint>
#include <cstring>

#include "core/progress.hpp"
#include "core/text_reader.hpp"
#include "core/text_writer.hpp"
#include "core/types.h"
#include "io/take_line.hpp"

namespace kestrum {
namespace {

// How many rows are written between two looks at the stream.
constexpr std::size_t kRowsAtOnce = 1 << 10;

void PutValue(TextWriter& writer, double value) {
  writer.PutExact(std::isnan(value) ? static_cast<double>(VORL_MISSING_VALUE) : value);
}

// Three numbers, each after a blank.
void PutThree(TextWriter& writer, double x, double y, double z) {
  for (const double number : {x, y, z}) {
    writer.Put(' ');
    writer.PutExact(number);
  }
}

void PutSizes(TextWriter& writer, const VORL_GRID& grid) {
  writer.PutInt(grid.nx);
  for (const int size : {grid.ny, grid.nz}) {
    writer.Put(' ');
    writer.PutInt(size);
  }
}

// The columns from `first` to before `last` side by side. Stops where the stream fails. Returns 0 or the status of a
// report.
int PutRows(TextWriter& writer, const Columns& columns, int first, int last, std::FILE* stream,
            const Progress* progress) {
  for (std::size_t row = 0; row < columns.rows; ++row) {
    if (row % kRowsAtOnce == 0 && std::ferror(stream) != 0) return 0;
    if (row % kRowsAtOnce == 0 && progress != nullptr) {
      const double part = static_cast<double>(row) / static_cast<double>(columns.rows);
      if (const int status = progress->Publish((first + part * (last - first)) / columns.count); status != 0) {
        return status;
      }
    }
    for (int column = first; column < last; ++column) {
      if (column > first) writer.Put(' ');
      PutValue(writer, columns.values[column][row]);
    }
    writer.Put('\n');
  }
  return 0;
}

void PutNames(TextWriter& writer, const Columns& columns) {
  writer.PutInt(columns.count);
  writer.Put('\n');
  for (int column = 0; column < columns.count; ++column) {
    writer.Put(columns.names[column]);
    writer.Put('\n');
  }
}

// Whether a line is one whole number and nothing else.
bool IsWholeNumber(const char* line, std::int64_t* number) {
  TextReader fields(line, std::strlen(line));
  char rest[2];
  return fields.TakeInteger(number) && fields.TakeWord(rest, sizeof(rest)) == TextReader::Word::kNone;
}

}  // namespace

int WriteGslibGrid(const VORL_GRID& grid, const Columns& columns, std::FILE* stream,
                   const Progress* progress) noexcept {
  TextWriter writer(stream);
  PutSizes(writer, grid);
  PutThree(writer, grid.sx, grid.sy, grid.sz);
  PutThree(writer, grid.ox, grid.oy, grid.oz);
  writer.Put('\n');
  PutNames(writer, columns);
  const int status = PutRows(writer, columns, 0, columns.count, stream, progress);
  return status != 0 ? status : writer.Finish();
}

int WriteVtkGrid(const VORL_GRID& grid, const Columns& columns, std::FILE* stream, const Progress* progress) noexcept {
  TextWriter writer(stream);
  writer.Put(
      "# vtk DataFile Version 3.0\nValues at the centres of cells\nASCII\nDATASET STRUCTURED_POINTS\nDIMENSIONS ");
  PutSizes(writer, grid);
  writer.Put("\nORIGIN");
  PutThree(writer, grid.ox + 0.5 * grid.sx, grid.oy + 0.5 * grid.sy, grid.oz + 0.5 * grid.sz);
  writer.Put("\nSPACING");
  PutThree(writer, grid.sx, grid.sy, grid.sz);
  writer.Put("\nPOINT_DATA ");
  writer.PutInt(grid.nxyz);
  writer.Put('\n');
  for (int column = 0; column < columns.count; ++column) {
    writer.Put("SCALARS ");
    writer.Put(columns.names[column]);
    writer.Put(" double 1\nLOOKUP_TABLE default\n");
    if (const int status = PutRows(writer, columns, column, column + 1, stream, progress); status != 0) return status;
  }
  return writer.Finish();
}

int WriteGslibTable(const Columns& columns, std::FILE* stream, const Progress* progress) noexcept {
  TextWriter writer(stream);
  writer.PutInt(static_cast<int>(columns.rows));
  writer.Put('\n');
  PutNames(writer, columns);
  const int status = PutRows(writer, columns, 0, columns.count, stream, progress);
  return status != 0 ? status : writer.Finish();
}

TableFault ReadGslibTable(std::FILE* stream, GslibTable* table) noexcept {
  char line[VORL_VARNAME_LENGTH];
  std::int64_t promised = -1;
  if (!TakeLine(stream, line)) return TableFault::kNoTitle;
  if (!IsWholeNumber(line, &promised)) promised = -1;
  std::int64_t ncolumn = 0;
  table->line = std::ftell(stream);
  if (!TakeLine(stream, line) || !TextReader(line, std::strlen(line)).TakeInteger(&ncolumn) || ncolumn < 1) {
    return TableFault::kNoCount;
  }
  const auto copyLine = [&line](GslibTable::Name* name) noexcept {
    std::memcpy(name->text, line, sizeof(line));
    return 0;
  };
  for (std::int64_t column = 0; column < ncolumn; ++column) {
    table->line = std::ftell(stream);
    if (!TakeLine(stream, line) || line[0] == '\0') return TableFault::kNoName;
    if (table->names.Append(1, copyLine) != 0) return TableFault::kMemory;
  }
  {
    TextReader reader(stream);
    double value = 0.0;
    const auto take = [&value](double* entry) noexcept {
      *entry = value;
      return 0;
    };
    while (reader.TakeReal(&value)) {
      if (table->values.Append(1, take) != 0) return TableFault::kMemory;
    }
  }
  const int next = std::getc(stream);
  if (next != EOF) {
    std::ungetc(next, stream);
    return TableFault::kNoNumber;
  }
  const std::size_t width = static_cast<std::size_t>(ncolumn);
  if (table->values.size() % width != 0) return TableFault::kPartOfRow;
  const std::size_t rows = table->values.size() / width;
  if (promised >= 0 && static_cast<std::size_t>(promised) != rows) return TableFault::kNumberOfRows;
  return TableFault::kNone;
}

}  // namespace kestrum
