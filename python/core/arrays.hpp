#ifndef KESTRUM_PYTHON_CORE_ARRAYS_HPP
#define KESTRUM_PYTHON_CORE_ARRAYS_HPP

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstddef>
#include <optional>
#include <string>

#include "core/grid.h"

namespace kestrum::python {

namespace py = pybind11;

// NumPy memory that is read or written in place. The Python layer makes arrays contiguous, and of the right type;
// others are refused, never converted. Those at odd addresses, as they come from other processes, are copied.
template <typename T>
using Array = py::array_t<T, static_cast<int>(py::array::c_style) | py::detail::npy_api::NPY_ARRAY_ALIGNED_>;
template <typename T>
using MaybeArray = std::optional<Array<T>>;

// Refuses an array of another number of elements.
template <typename T>
const Array<T>& Sized(const Array<T>& array, std::ptrdiff_t size, const char* name) {
  if (array.size() != size) throw py::value_error(std::string(name) + " has the wrong number of elements");
  return array;
}

template <typename T>
const T* DataOrNull(const MaybeArray<T>& array, std::ptrdiff_t size, const char* name) {
  return array ? Sized(*array, size, name).data() : nullptr;
}

// A grid from (nx, ny, nz, dx, dy, dz, x0, y0, z0). One of which only windows are used may have any number of cells: their
// numbers are left 0 then.
VORL_GRID GridOf(const py::tuple& numbers, bool windows = false);

// The grid of an array of two or three axes, the last one along x, behind `leading` others.
VORL_GRID GridOfShape(const py::array& array, py::ssize_t leading = 0);

// Raises the exception that belongs to a status of the library.
void RaiseFor(int status);

}  // namespace kestrum::python

#endif
