// Distances to the true nodes of an array.

#include <array>

#include "analysis/mask_distance.hpp"
#include "bindings.hpp"
#include "images.hpp"

namespace kestrum::python {
namespace {

template <typename M, typename T>
void Distance(const Array<M>& mask, const std::array<double, 3>& spacing, bool manhattan, bool isSigned,
              Array<T>& distance, int nthreads) {
  VORL_GRID grid = GridOfShape(mask);
  grid.sx = spacing[0];
  grid.sy = spacing[1];
  grid.sz = spacing[2];
  const MaskDistanceOptions options{manhattan ? DistanceMetric::kL1 : DistanceMetric::kEuclidean, isSigned,
                                    Dealing::Threads(nthreads)};
  T* const out = Sized(distance, mask.size(), "distance").size() > 0 ? distance.mutable_data() : nullptr;
  RunOnArray(mask, [&](const Progress& progress) { return MaskDistance(grid, mask.data(), options, out, progress); });
}

template <typename M>
void BindForType(py::module_& module) {
  const auto bind = [&module](auto function) {
    module.def("distance", function, py::arg("mask").noconvert(), py::arg("spacing"), py::arg("manhattan"),
               py::arg("is_signed"), py::arg("distance").noconvert(), py::arg("threads"));
  };
  bind(&Distance<M, float>);
  bind(&Distance<M, double>);
}

}  // namespace

void BindImageDistance(py::module_& module) {
  BindForType<unsigned char>(module);
  BindForType<int>(module);
  BindForType<float>(module);
  BindForType<double>(module);
}

}  // namespace kestrum::python
