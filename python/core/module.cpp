// kestrum._core: the engine for the package. Arguments come checked from the Python layer.

#include <algorithm>
#include <climits>
#include <limits>
#include <new>
#include <stdexcept>

#include "arrays.hpp"
#include "bindings.hpp"
#include "core/status.h"
#include "numeric/elementary.hpp"
#include "numeric/normal_law.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum::python {

VORL_GRID GridOf(const py::tuple& numbers, bool windows) {
  VORL_GRID grid;
  VORLInitGrid(&grid);
  std::int64_t count[3];
  for (int axis = 0; axis < 3; ++axis) count[axis] = numbers[axis].cast<std::int64_t>();
  const bool longer = std::max({count[0], count[1], count[2]}) > INT_MAX;
  const bool many = longer || count[0] * count[1] > INT_MAX || count[0] * count[1] * count[2] > INT_MAX;
  if (longer || (many && !windows)) throw py::value_error("too many cells");
  grid.nx = static_cast<int>(count[0]);
  grid.ny = static_cast<int>(count[1]);
  grid.nz = static_cast<int>(count[2]);
  grid.sx = numbers[3].cast<double>();
  grid.sy = numbers[4].cast<double>();
  grid.sz = numbers[5].cast<double>();
  grid.ox = numbers[6].cast<double>();
  grid.oy = numbers[7].cast<double>();
  grid.oz = numbers[8].cast<double>();
  grid.nxy = many ? 0 : grid.nx * grid.ny;
  grid.nxyz = grid.nxy * grid.nz;
  return grid;
}

VORL_GRID GridOfShape(const py::array& array, py::ssize_t leading) {
  const py::ssize_t naxis = array.ndim();
  const py::ssize_t nz = naxis - leading == 3 ? array.shape(leading) : 1;
  return GridOf(py::make_tuple(array.shape(naxis - 1), array.shape(naxis - 2), nz, 1, 1, 1, 0, 0, 0));
}

void RaiseFor(int status) {
  if (status == 0) return;
  if (status == -1 || status == -2) throw std::bad_alloc();
  throw std::runtime_error(VORLGetErrorMessage(-status));
}

namespace {

double NormalQuantile(double p) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  return p <= 0.0 ? -kInfinity : p >= 1.0 ? kInfinity : kExactNormal.quantile(p);
}

template <double (*function)(double)>
Array<double> OfEach(const Array<double>& values) {
  Array<double> result(py::array::ShapeContainer(values.shape(), values.shape() + values.ndim()));
  const double* const from = values.data();
  double* const to = result.mutable_data();
  const std::ptrdiff_t n = values.size();
  const py::gil_scoped_release released;
  for (std::ptrdiff_t i = 0; i < n; ++i) to[i] = function(from[i]);
  return result;
}

double NormalProbability(double t) { return kExactNormal.cdf(t); }

bool LimitInstructions(int level) {
  LimitSimdLevel(static_cast<SimdLevel>(level));
  return static_cast<int>(BestSimdLevel()) == level;
}

}  // namespace

}  // namespace kestrum::python

PYBIND11_MODULE(_core, module) {
  module.doc() = "The engine of kestrum, for the package alone: its arguments have been checked.";
  module.attr("version") = KESTRUM_PYTHON_VERSION;
  module.def("power", &kestrum::Pow, pybind11::arg("x"), pybind11::arg("y"));
  module.def("normal_quantile", &kestrum::python::OfEach<kestrum::python::NormalQuantile>, pybind11::arg("p"));
  module.def("normal_probability", &kestrum::python::OfEach<kestrum::python::NormalProbability>, pybind11::arg("t"));
  module.def("limit_instructions", &kestrum::python::LimitInstructions, pybind11::arg("level"));
  kestrum::python::BindModel(module);
  kestrum::python::BindPlaceKriging(module);
  kestrum::python::BindGridRuns(module);
  kestrum::python::BindFiles(module);
  kestrum::python::BindVariogram(module);
  kestrum::python::BindImages(module);
  kestrum::python::BindImageMaps(module);
  kestrum::python::BindImagePairs(module);
  kestrum::python::BindImageStatistics(module);
}
