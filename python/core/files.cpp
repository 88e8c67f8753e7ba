// Files of text whose numbers come back bit for bit.

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "arrays.hpp"
#include "bindings.hpp"
#include "core/image.h"
#include "io/exact_files.hpp"
#include "io/image_files.h"
#include "io/vtk_files.hpp"
#include "stream.hpp"
#include "watch.hpp"

namespace kestrum::python {
namespace {

// Memory of the library as an array, released with it.
template <typename Owner>
py::array_t<double> ArrayOf(std::unique_ptr<Owner> owner, const std::vector<std::ptrdiff_t>& shape,
                            const double* data) {
  const py::capsule base(owner.get(), [](void* held) { delete static_cast<Owner*>(held); });
  static_cast<void>(owner.release());
  return py::array_t<double>(shape, data, base);
}

struct Image {
  Image() { VORLInitImage(&record); }
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;
  ~Image() { VORLFreeImage(&record); }

  VORL_IMAGE record;
};

// What the system says of a stream that failed.
void RaiseForSystem(const Stream& stream) {
  if (stream.error() == 0) return;
  errno = stream.error();
  PyErr_SetFromErrno(PyExc_OSError);
  throw py::error_already_set();
}

// (status, where the stream is, None) or (0, where, (grid, names, values)).
py::tuple ReadGrid(int descriptor, const py::object& report) {
  auto image = std::make_unique<Image>();
  Monitor monitor;
  Stream stream(descriptor, "r", monitor);
  const int status = RunWatched(report, monitor, [&] { return VORLReadImage(&image->record, 0, stream.get()); });
  RaiseForSystem(stream);
  if (status == -1 || status == -2) RaiseFor(status);
  const long position = std::ftell(stream.get());
  const VORL_IMAGE& record = image->record;
  if (status != 0 || record.nvar < 1) return py::make_tuple(status, position, py::none());
  const VORL_GRID grid = *record.grid;
  py::list names;
  for (int v = 0; v < record.nvar; ++v) names.append(py::bytes(record.varName[v]));
  const std::vector<std::ptrdiff_t> shape{record.nvar, grid.nz, grid.ny, grid.nx};
  const double* const values = record.var;
  return py::make_tuple(
      0, position,
      py::make_tuple(py::make_tuple(grid.nx, grid.ny, grid.nz, grid.sx, grid.sy, grid.sz, grid.ox, grid.oy, grid.oz),
                     names, ArrayOf(std::move(image), shape, values)));
}

// Reads a record, by a function that gives a fault, 0 for none.
template <typename Record, typename Fault>
int ReadRecord(Stream& stream, Monitor& monitor, const py::object& report, Fault (*read)(std::FILE*, Record*),
               Record* record) {
  const int fault = RunWatched(report, monitor, [&] { return static_cast<int>(read(stream.get(), record)); });
  RaiseForSystem(stream);
  if (fault == static_cast<int>(Fault::kMemory)) throw std::bad_alloc();
  return fault;
}

// (fault, where the stream is, None) or (0, where, (names, values)).
py::tuple ReadTable(int descriptor, const py::object& report) {
  auto table = std::make_unique<GslibTable>();
  Monitor monitor;
  Stream stream(descriptor, "r", monitor);
  const int fault = ReadRecord(stream, monitor, report, &ReadGslibTable, table.get());
  const bool inHeader = fault > 0 && fault <= static_cast<int>(TableFault::kNoName);
  const long position = inHeader ? table->line : std::ftell(stream.get());
  if (fault != 0) return py::make_tuple(fault, position, py::none());
  py::list names;
  for (std::size_t column = 0; column < table->names.size(); ++column)
    names.append(py::bytes(table->names[column].text));
  const std::ptrdiff_t width = static_cast<std::ptrdiff_t>(table->names.size());
  const std::vector<std::ptrdiff_t> shape{static_cast<std::ptrdiff_t>(table->values.size()) / width, width};
  const double* const values = table->values.data();
  return py::make_tuple(0, position, py::make_tuple(names, ArrayOf(std::move(table), shape, values)));
}

// (fault, where, None) or (0, where, (header, values)); header: points along x, y and z, origin, spacing, whether the
// arrays are in cells, whether VORLWriteImage wrote the file, (name, components) of each array.
py::tuple ReadVtk(int descriptor, const py::object& report) {
  auto image = std::make_unique<VtkImage>();
  Monitor monitor;
  Stream stream(descriptor, "r", monitor);
  const int fault = ReadRecord(stream, monitor, report, &ReadVtkImage, image.get());
  const long position = fault == static_cast<int>(VtkFault::kNoNumber) ? std::ftell(stream.get()) : image->line;
  if (fault != 0) return py::make_tuple(fault, position, py::none());
  const auto three = [](const auto(&numbers)[3]) { return py::make_tuple(numbers[0], numbers[1], numbers[2]); };
  py::list arrays;
  for (std::size_t i = 0; i < image->arrays.size(); ++i)
    arrays.append(py::make_tuple(py::bytes(image->arrays[i].name), image->arrays[i].components));
  const std::vector<std::ptrdiff_t> shape{static_cast<std::ptrdiff_t>(image->values.size())};
  const py::tuple header = py::make_tuple(three(image->points), three(image->origin), three(image->spacing),
                                          image->inCells, image->ofLibrary, arrays);
  const double* const values = image->values.data();
  return py::make_tuple(0, position, py::make_tuple(header, ArrayOf(std::move(image), shape, values)));
}

// Calls write(columns, stream, progress) with the variables, each in an array of its own.
template <typename Write>
void WriteFile(int descriptor, const std::vector<std::string>& names, const std::vector<Array<double>>& values,
               const py::object& report, const Write& write) {
  std::vector<const char*> texts;
  std::vector<const double*> data;
  for (const std::string& name : names) texts.push_back(name.c_str());
  for (const Array<double>& column : values) data.push_back(Sized(column, values[0].size(), "values").data());
  if (values.empty() || names.size() != values.size()) throw py::value_error("as many names as columns are needed");
  const Columns columns{static_cast<int>(values.size()), static_cast<std::size_t>(values[0].size()), texts.data(),
                        data.data()};
  Monitor monitor;
  Stream stream(descriptor, "w", monitor);
  const Progress progress(&monitor.record, &Monitor::Update, true, true);
  progress.StartRealizations(1);
  const int status = RunWatched(report, monitor, [&] { return write(columns, stream.get(), &progress); });
  RaiseForSystem(stream);
  RaiseFor(status);
}

using WriteGridFunction = int (*)(const VORL_GRID&, const Columns&, std::FILE*, const Progress*) noexcept;

template <WriteGridFunction write>
void WriteGrid(int descriptor, const py::tuple& numbers, const std::vector<std::string>& names,
               const std::vector<Array<double>>& values, const py::object& report) {
  const VORL_GRID grid = GridOf(numbers);
  if (!values.empty()) Sized(values[0], grid.nxyz, "values");
  WriteFile(descriptor, names, values, report,
            [&grid](const Columns& columns, std::FILE* stream, const Progress* progress) {
              return write(grid, columns, stream, progress);
            });
}

void WriteTable(int descriptor, const std::vector<std::string>& names, const std::vector<Array<double>>& values,
                const py::object& report) {
  WriteFile(descriptor, names, values, report, &WriteGslibTable);
}

}  // namespace

void BindFiles(py::module_& module) {
  module.def("read_gslib_grid", &ReadGrid, py::arg("descriptor"), py::arg("progress"));
  module.def("read_gslib_table", &ReadTable, py::arg("descriptor"), py::arg("progress"));
  module.def("read_vtk", &ReadVtk, py::arg("descriptor"), py::arg("progress"));
  module.def("write_gslib_grid", &WriteGrid<WriteGslibGrid>, py::arg("descriptor"), py::arg("grid"), py::arg("names"),
             py::arg("values"), py::arg("progress"));
  module.def("write_vtk_grid", &WriteGrid<WriteVtkGrid>, py::arg("descriptor"), py::arg("grid"), py::arg("names"),
             py::arg("values"), py::arg("progress"));
  module.def("write_gslib_table", &WriteTable, py::arg("descriptor"), py::arg("names"), py::arg("values"),
             py::arg("progress"));
}

}  // namespace kestrum::python
