// Moving means of an array.

#include <array>

#include "analysis/box_mean.hpp"
#include "bindings.hpp"
#include "images.hpp"

namespace kestrum::python {
namespace {

template <typename T>
Array<double> Means(const Array<T>& image, const std::array<int, 3>& sides, int nthreads) {
  const VORL_GRID grid = GridOfShape(image);
  Array<double> means = ArrayLike<double>(image);
  double* const out = means.mutable_data();
  RunOnArray(image, [&](const Progress& progress) {
    return BoxMean(grid, image.data(), BoxSides{sides[0], sides[1], sides[2]}, Dealing::Threads(nthreads), out,
                   progress);
  });
  return means;
}

template <typename T>
void BindForType(py::module_& module) {
  module.def("box_mean", &Means<T>, py::arg("image").noconvert(), py::arg("sides"), py::arg("threads"));
}

}  // namespace

void BindImageMean(py::module_& module) {
  BindForType<unsigned char>(module);
  BindForType<int>(module);
  BindForType<float>(module);
  BindForType<double>(module);
}

}  // namespace kestrum::python
