// Maps of an image: a number for each of its nodes, from those about it.

#include <array>
#include <vector>

#include "analysis/area_means.hpp"
#include "analysis/box_mean.hpp"
#include "analysis/mask_distance.hpp"
#include "analysis/nearest_label.hpp"
#include "bindings.hpp"
#include "images.hpp"

namespace kestrum::python {
namespace {

VORL_GRID SpacedGrid(const py::array& array, const std::array<double, 3>& spacing) {
  VORL_GRID grid = GridOfShape(array);
  grid.sx = spacing[0];
  grid.sy = spacing[1];
  grid.sz = spacing[2];
  return grid;
}

DistanceMetric MetricOf(bool manhattan) noexcept {
  return manhattan ? DistanceMetric::kL1 : DistanceMetric::kEuclidean;
}

template <typename M, typename T>
void Distance(const Array<M>& mask, const std::array<double, 3>& spacing, bool manhattan, bool isSigned,
              Array<T>& distance, int nthreads, const py::object& report, const MaybeArray<int>& beyond,
              int rowLength) {
  const VORL_GRID grid = SpacedGrid(mask, spacing);
  MaskDistanceOptions options{MetricOf(manhattan), isSigned, Dealing::Threads(nthreads)};
  BeyondRows rows{rowLength, nullptr};
  if (beyond) {
    rows.steps = Sized(*beyond, 2 * (mask.size() / grid.nx), "beyond").data();
    options.beyond = &rows;
  }
  T* const out = Sized(distance, mask.size(), "distance").size() > 0 ? distance.mutable_data() : nullptr;
  RunOperations(100.0 * static_cast<double>(mask.size()), report,
                [&](const Progress& progress) { return MaskDistance(grid, mask.data(), options, out, progress); });
}

py::tuple LabelDistance(const Array<int>& labels, const std::array<double, 3>& spacing, bool manhattan, int nthreads,
                        const py::object& report) {
  const VORL_GRID grid = SpacedGrid(labels, spacing);
  Array<double> distance = ArrayLike<double>(labels);
  Array<int> nearest = ArrayLike<int>(labels);
  double* const apart = distance.mutable_data();
  int* const label = nearest.mutable_data();
  RunOperations(100.0 * static_cast<double>(labels.size()), report, [&](const Progress& progress) noexcept {
    return NearestLabels(grid, labels.data(), MetricOf(manhattan), Dealing::Threads(nthreads), progress, apart, label);
  });
  return py::make_tuple(distance, nearest);
}

template <typename T>
void Means(const Array<T>& image, const std::array<int, 3>& sides, Array<double>& means, int nthreads,
           const py::object& report) {
  const VORL_GRID grid = GridOfShape(image);
  double* const out = Sized(means, image.size(), "means").size() > 0 ? means.mutable_data() : nullptr;
  RunOperations(100.0 * static_cast<double>(image.size()), report, [&](const Progress& progress) {
    return BoxMean(grid, image.data(), BoxSides{sides[0], sides[1], sides[2]}, Dealing::Threads(nthreads), out,
                   progress);
  });
}

Array<double> Depths(const Array<int>& labels, const std::array<double, 3>& spacing, bool manhattan, int nthreads,
                     const py::object& report) {
  const VORL_GRID grid = SpacedGrid(labels, spacing);
  Array<double> depth = ArrayLike<double>(labels);
  double* const to = depth.mutable_data();
  RunOperations(100.0 * static_cast<double>(labels.size()), report, [&](const Progress& progress) noexcept {
    return LabelDepths(grid, labels.data(), MetricOf(manhattan), Dealing::Threads(nthreads), progress, to);
  });
  return depth;
}

// shape: of the means, in the order of the axes.
template <typename T>
Array<double> MeansOfAreas(const Array<T>& image, const std::vector<py::ssize_t>& shape, int nthreads,
                           const py::object& report) {
  const VORL_GRID grid = GridOfShape(image);
  Array<double> means(shape);
  const VORL_GRID cells = GridOfShape(means);
  double* const to = means.mutable_data();
  RunOperations(10.0 * static_cast<double>(image.size() + means.size()), report,
                [&](const Progress& progress) noexcept {
                  return AreaMeans({grid.nx, grid.ny, grid.nz}, image.data(), {cells.nx, cells.ny, cells.nz},
                                   Dealing::Threads(nthreads), progress, to);
                });
  return means;
}

}  // namespace

void BindImageMaps(py::module_& module) {
  module.def("label_depth", &Depths, py::arg("labels").noconvert(), py::arg("spacing"), py::arg("manhattan"),
             py::arg("threads"), py::arg("progress"));
  module.def("nearest_label", &LabelDistance, py::arg("labels").noconvert(), py::arg("spacing"), py::arg("manhattan"),
             py::arg("threads"), py::arg("progress"));
  ForEachType([&module]<typename M>(std::type_identity<M>) {
    const auto bind = [&module](auto function) {
      module.def("distance", function, py::arg("mask").noconvert(), py::arg("spacing"), py::arg("manhattan"),
                 py::arg("is_signed"), py::arg("distance").noconvert(), py::arg("threads"), py::arg("progress"),
                 py::arg("beyond") = py::none(), py::arg("row_length") = 0);
    };
    bind(&Distance<M, float>);
    bind(&Distance<M, double>);
    module.def("area_means", &MeansOfAreas<M>, py::arg("image").noconvert(), py::arg("shape"), py::arg("threads"),
               py::arg("progress"));
    module.def("box_mean", &Means<M>, py::arg("image").noconvert(), py::arg("sides"), py::arg("means").noconvert(),
               py::arg("threads"), py::arg("progress"));
  });
}

}  // namespace kestrum::python
