#ifndef KESTRUM_PYTHON_CORE_IMAGES_HPP
#define KESTRUM_PYTHON_CORE_IMAGES_HPP

#include <type_traits>

#include "arrays.hpp"
#include "core/progress.hpp"
#include "watch.hpp"
#include "worker.hpp"

namespace kestrum::python {

// An array of the same shape.
template <typename T>
Array<T> ArrayLike(const py::array& array) {
  return Array<T>(py::array::ShapeContainer(array.shape(), array.shape() + array.ndim()));
}

// Calls bind(std::type_identity<T>()) for each type that images are read as.
template <typename Bind>
void ForEachType(const Bind& bind) {
  bind(std::type_identity<unsigned char>());
  bind(std::type_identity<int>());
  bind(std::type_identity<float>());
  bind(std::type_identity<double>());
}

// Runs work(progress), which gives a status, without the interpreter. Ctrl-C ends it, unless it has few operations: a
// thread to watch from would take longer than these. A process that was forked needs that thread all the same. report: None, or a callable that gets the fraction done.
template <typename Work>
void RunOperations(double operations, const py::object& report, const Work& work) {
  constexpr double kMany = 1e7;
  Monitor monitor;
  const Progress progress(&monitor.record, &Monitor::Update, true, true);
  progress.StartRealizations(1);
  int status = 0;
  if (operations < kMany && !Worker::InForkedProcess()) {
    const py::gil_scoped_release released;
    status = work(progress);
  } else {
    status = RunWatched(report, monitor, [&] { return work(progress); });
  }
  RaiseFor(status);
}

}  // namespace kestrum::python

#endif
