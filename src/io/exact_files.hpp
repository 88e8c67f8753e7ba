#ifndef KESTRUM_IO_EXACT_FILES_HPP
#define KESTRUM_IO_EXACT_FILES_HPP

#include <cstddef>
#include <cstdio>

#include "core/grid.h"
#include "core/growing_buffer.hpp"
#include "core/text.h"

// Text files whose numbers come back bit for bit: each number is the shortest text that reads back as the same. A NaN is
// written as VORL_MISSING_VALUE. The stream belongs to the caller.
namespace kestrum {

class Progress;

// Values of variables, as text files have them: one row for each node or point.
struct Columns {
  int count;
  std::size_t rows;
  const char* const* names;     // count
  const double* const* values;  // count, each of `rows` numbers
};

// These return 0, kOutputFailed, soon after the stream fails, or the status of a report to `progress`, that
// of one realization, which may be null. They flush the stream at the end.

// A grid as VORLReadImage takes it (format 0): the values are in node order.
[[nodiscard]] int WriteGslibGrid(const VORL_GRID& grid, const Columns& columns, std::FILE* stream,
                                 const Progress* progress = nullptr) noexcept;
// A legacy file of structured points at the cells' centres, with an array of doubles for each variable.
[[nodiscard]] int WriteVtkGrid(const VORL_GRID& grid, const Columns& columns, std::FILE* stream,
                               const Progress* progress = nullptr) noexcept;
// A table: the number of rows, that of columns, their names, the rows. Other programs take the first line for a title.
// It is a point set (VORLReadPointSet) if the names of the first three columns begin with x, y and z.
[[nodiscard]] int WriteGslibTable(const Columns& columns, std::FILE* stream,
                                  const Progress* progress = nullptr) noexcept;

// A table as WriteGslibTable writes it, or with a title of any words in the first line.
struct GslibTable {
  struct Name {
    char text[VORL_VARNAME_LENGTH];
  };
  GrowingBuffer<Name> names;
  GrowingBuffer<double> values;  // row by row
  long line = 0;                 // where the last line of the header begins that was read; -1 in a pipe
};

enum class TableFault {
  kNone,
  kNoTitle,       // no first line
  kNoCount,       // no number of columns above 0 in the second line
  kNoName,        // no name for a column
  kNoNumber,      // something other than a number
  kPartOfRow,     // the last row ends early
  kNumberOfRows,  // another number of rows than the first line has, if that is one whole number
  kMemory,
};

// Reads a table up to the end of the stream, or through the line of the header that is unfit, or up to what is not a
// number.
[[nodiscard]] TableFault ReadGslibTable(std::FILE* stream, GslibTable* table) noexcept;

}  // namespace kestrum

#endif
