#ifndef KESTRUM_IO_VTK_FILES_HPP
#define KESTRUM_IO_VTK_FILES_HPP

#include <cstddef>
#include <cstdio>

#include "core/growing_buffer.hpp"
#include "core/text.h"

namespace kestrum {

// Structured points of a legacy VTK file, text or binary, with the arrays at the points or in the cells between them.
struct VtkImage {
  struct Array {
    char name[VORL_VARNAME_LENGTH];
    int components;
  };
  int points[3] = {};
  double origin[3] = {};  // the first point
  double spacing[3] = {1.0, 1.0, 1.0};
  bool inCells = false;
  // Whether the first two lines are those of VORLWriteImage, whose origin is the lower corner of the first cell.
  bool ofLibrary = false;
  GrowingBuffer<Array> arrays;
  GrowingBuffer<double> values;  // array by array; the components of a point or cell lie side by side
  long line = 0;                 // where the last line begins that is none of values; -1 in a pipe
};

enum class VtkFault {
  kNone,
  kNoVersion,  // no first line of such a file
  kNoForm,     // neither ASCII nor BINARY in the third line
  kNoDataset,  // another kind of dataset
  kNoGrid,     // sizes, origin or spacing that cannot be read, or too many points
  kNoData,     // no values, values before the sizes of the grid, or another number of them than the grid has
  kNoKeyword,  // a line that begins otherwise than those of such files
  kNoArray,    // an array without a name, a type of numbers, or a number of components
  kBoth,       // values at the points and in the cells
  kFewValues,  // fewer values than announced
  kNoNumber,   // something other than a number
  kMemory,
};

// Reads a file to its end, or through the line that is unfit, or up to what is not a number. Numbers of any type become
// doubles. Data of the whole file, colour tables and remarks of newer versions are skipped.
[[nodiscard]] VtkFault ReadVtkImage(std::FILE* stream, VtkImage* image) noexcept;

}  // namespace kestrum

#endif
