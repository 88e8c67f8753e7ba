// Statistics, thresholds and reductions of images on arrays.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "analysis/body_curves.hpp"
#include "analysis/connection_curve.hpp"
#include "analysis/extremes.hpp"
#include "analysis/lloyd.hpp"
#include "analysis/otsu.hpp"
#include "analysis/pyramid.hpp"
#include "bindings.hpp"
#include "images.hpp"

namespace kestrum::python {
namespace {

template <typename T>
Array<double> Reduce(const Array<T>& image, int nthreads, const py::object& report) {
  const VORL_GRID grid = GridOfShape(image);
  py::array::ShapeContainer shape(image.shape(), image.shape() + image.ndim());
  for (auto& n : *shape) n = n > 2 ? (n + 1) / 2 : n;
  Array<double> reduced(shape);
  double* const to = reduced.mutable_data();
  RunOperations(10.0 * grid.nxyz, report, [&](const Progress& progress) noexcept {
    return ReduceArray({grid.nx, grid.ny, grid.nz}, image.data(), to, Dealing::Threads(nthreads), progress);
  });
  return reduced;
}

// The axes that `finer` names have 2 n - 1 nodes.
template <typename T>
Array<double> Expand(const Array<T>& image, const std::vector<bool>& finer, int nthreads, const py::object& report) {
  const VORL_GRID grid = GridOfShape(image);
  py::array::ShapeContainer shape(image.shape(), image.shape() + image.ndim());
  bool changes[3] = {};
  for (std::size_t axis = 0; axis < shape->size(); ++axis) {
    if (!finer.at(axis)) continue;
    (*shape)[axis] = 2 * (*shape)[axis] - 1;
    changes[shape->size() - 1 - axis] = true;
  }
  Array<double> expanded(shape);
  double* const to = expanded.mutable_data();
  RunOperations(10.0 * static_cast<double>(expanded.size()), report, [&](const Progress& progress) noexcept {
    return ExpandArray({grid.nx, grid.ny, grid.nz}, changes, image.data(), to, Dealing::Threads(nthreads), progress);
  });
  return expanded;
}

// The least and the greatest value but for NaN; of none inf and -inf.
template <typename T>
py::tuple ExtremesOf(const Array<T>& values, int nthreads) {
  Extremes found;
  RunOperations(static_cast<double>(values.size()), py::none(), [&](const Progress& progress) noexcept {
    return FindExtremes(values.size(), values.data(), Dealing::Threads(nthreads), progress, &found);
  });
  return py::make_tuple(found.least, found.greatest);
}

// The cuts, how many values are distinct, and whether one is infinite.
template <typename T>
py::tuple Otsu(const Array<T>& values, int nclass, int nthreads, const py::object& report) {
  Array<double> cuts(nclass - 1);
  OtsuCuts found{cuts.mutable_data()};
  RunOperations(
      10.0 * static_cast<double>(values.size()) + 1e6 * nclass, report, [&](const Progress& progress) noexcept {
        return FindOtsuCuts(values.size(), values.data(), nclass, Dealing::Threads(nthreads), progress, &found);
      });
  return py::make_tuple(cuts, found.distinct, found.infinite);
}

// centers: in and out. Returns the labels and the inertia.
py::tuple KMeans(const Array<double>& features, Array<double> centers, int maxIterations, double tolerance,
                 int restarts, std::uint64_t seed, int nthreads, const py::object& report) {
  const LloydSamples samples{features.shape(1), static_cast<int>(features.shape(0)), features.data()};
  const LloydOptions options{static_cast<int>(centers.shape(0)), maxIterations, tolerance, restarts, seed};
  Sized(centers, std::ptrdiff_t{options.ncluster} * samples.nfeature, "centers");
  Array<int> labels(samples.n);
  double* const to = centers.mutable_data();
  int* const numbers = labels.mutable_data();
  double inertia = 0.0;
  const double beginnings = std::max(restarts, 1);
  RunOperations(10.0 * static_cast<double>(features.size()) * options.ncluster * beginnings, report,
                [&](const Progress& progress) noexcept {
                  return RunLloyd(samples, options, Dealing::Threads(nthreads), progress, to, numbers, &inertia);
                });
  return py::make_tuple(labels, inertia);
}

// images: of two or three axes, which follow each other along the first axis. Returns a row for each.
template <typename T>
Array<double> ConnectivityCurves(const Array<T>& images, const Array<double>& thresholds, int neighbors, bool above,
                                 int nthreads, const py::object& report) {
  const VORL_GRID grid = GridOfShape(images, 1);
  const int nimage = static_cast<int>(images.shape(0));
  const int n = static_cast<int>(thresholds.size());
  Array<double> probability(py::array::ShapeContainer{nimage, n});
  double* const to = probability.mutable_data();
  RunOperations(100.0 * static_cast<double>(images.size()), report, [&](const Progress& progress) noexcept {
    return ConnectionCurves(grid, nimage, images.data(), ConnectivityOf(neighbors), n, thresholds.data(), above,
                            Dealing::Threads(nthreads), progress, to);
  });
  return probability;
}

// codes: one or more images of two or three axes, as those of ConnectivityCurves. Rows of measures by threshold.
Array<std::int64_t> MeasureBodies(const Array<std::int16_t>& codes, int n, int neighbors, bool above, int nthreads,
                                  const py::object& report) {
  const VORL_GRID grid = GridOfShape(codes, 1);
  const int nimage = static_cast<int>(codes.shape(0));
  Array<std::int64_t> measures(py::array::ShapeContainer{nimage, n, kBodyMeasures});
  std::int64_t* const to = measures.mutable_data();
  RunOperations(10.0 * static_cast<double>(codes.size()) * n, report, [&](const Progress& progress) noexcept {
    return BodyCurves(grid, nimage, codes.data(), n, above, ConnectivityOf(neighbors), Dealing::Threads(nthreads),
                      progress, to);
  });
  return measures;
}

}  // namespace

void BindImageStatistics(py::module_& module) {
  ForEachType([&module]<typename T>(std::type_identity<T>) {
    module.def("otsu", &Otsu<T>, py::arg("values").noconvert(), py::arg("classes"), py::arg("threads"),
               py::arg("progress"));
    module.def("reduce", &Reduce<T>, py::arg("image").noconvert(), py::arg("threads"), py::arg("progress"));
    module.def("expand", &Expand<T>, py::arg("image").noconvert(), py::arg("finer"), py::arg("threads"),
               py::arg("progress"));
    module.def("extremes", &ExtremesOf<T>, py::arg("values").noconvert(), py::arg("threads"));
    module.def("connectivity_curves", &ConnectivityCurves<T>, py::arg("images").noconvert(),
               py::arg("thresholds").noconvert(), py::arg("neighbors"), py::arg("above"), py::arg("threads"),
               py::arg("progress"));
  });
  module.def("measure_bodies", &MeasureBodies, py::arg("codes").noconvert(), py::arg("n"), py::arg("neighbors"),
             py::arg("above"), py::arg("threads"), py::arg("progress"));
  module.def("kmeans", &KMeans, py::arg("features").noconvert(), py::arg("centers").noconvert(),
             py::arg("max_iterations"), py::arg("tolerance"), py::arg("restarts"), py::arg("seed"), py::arg("threads"),
             py::arg("progress"));
}

}  // namespace kestrum::python
