#ifndef KESTRUM_PYTHON_CORE_IMAGES_HPP
#define KESTRUM_PYTHON_CORE_IMAGES_HPP

#include <cstddef>

#include "arrays.hpp"
#include "core/progress.hpp"
#include "watch.hpp"

namespace kestrum::python {

// The grid of an array of two or three axes, the last one along x.
inline VORL_GRID GridOfShape(const py::array& array) {
  const py::ssize_t dimension = array.ndim();
  const py::ssize_t nz = dimension == 3 ? array.shape(0) : 1;
  return GridOf(py::make_tuple(array.shape(dimension - 1), array.shape(dimension - 2), nz, 1, 1, 1, 0, 0, 0));
}

// An array of the same shape.
template <typename T>
Array<T> ArrayLike(const py::array& array) {
  return Array<T>(py::array::ShapeContainer(array.shape(), array.shape() + array.ndim()));
}

// Runs work(progress), which gives a status, without the interpreter. Ctrl-C ends it, but for a small array, where a
// thread to watch from would take longer than the work.
template <typename Work>
void RunOnArray(const py::array& array, const Work& work) {
  constexpr py::ssize_t kSmall = 1 << 16;
  int status = 0;
  if (array.size() < kSmall) {
    const py::gil_scoped_release released;
    status = work(Progress(nullptr, nullptr));
  } else {
    Monitor monitor;
    status = RunWatched(py::none(), monitor, [&] { return work(Progress(&monitor.record, nullptr)); });
  }
  RaiseFor(status);
}

}  // namespace kestrum::python

#endif
