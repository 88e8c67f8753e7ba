// Experimental variograms of scattered points, and what likelihoods need.

#include <algorithm>
#include <vector>

#include "analysis/point_variogram.hpp"
#include "arrays.hpp"
#include "bindings.hpp"
#include "numeric/drift_projection.hpp"
#include "watch.hpp"

namespace kestrum::python {
namespace {

py::tuple Variogram(const Array<double>& coordinates, const Array<double>& values, const MaybeArray<double>& other,
                    double lag, int nlag, int estimator, const Array<double>& cones, int nthreads,
                    const py::object& progress) {
  ScatteredValues data{};
  data.n = static_cast<int>(coordinates.shape(0));
  data.dimension = static_cast<int>(coordinates.shape(1));
  data.coordinates = coordinates.data();
  data.value = Sized(values, data.n, "values").data();
  data.other = DataOrNull(other, data.n, "other");
  std::vector<DirectionCone> directions;
  for (std::ptrdiff_t row = 0; row < cones.shape(0); ++row) {
    const double* const cone = cones.data() + row * cones.shape(1);
    directions.push_back({{cone[0], cone[1], cone[2]}, cone[3], cone[4]});
  }
  PointVariogramOptions options{};
  options.lag = lag;
  options.nlag = nlag;
  options.estimator = static_cast<VariogramEstimator>(estimator);
  options.cones = directions.data();
  options.ncone = static_cast<int>(directions.size());

  const py::array::ShapeContainer shape{std::max<std::ptrdiff_t>(1, cones.shape(0)), std::ptrdiff_t{nlag}};
  Array<double> distance(shape), gamma(shape);
  Array<std::int64_t> pairs(shape);
  std::int64_t coincident = 0;
  const PointVariogram result{distance.mutable_data(), gamma.mutable_data(), pairs.mutable_data(), &coincident};
  Monitor monitor;
  RaiseFor(RunWatched(progress, monitor, [&] {
    return ComputePointVariogram(data, options, Dealing::Threads(nthreads), {&monitor.record, &Monitor::Update},
                                 result);
  }));
  return py::make_tuple(distance, gamma, pairs, coincident);
}

// The projection, written to `projection`, and the logarithm of the determinants; infinite if there is none.
double Projection(const Array<double>& matrix, const Array<double>& drift, Array<double> projection, int nthreads) {
  const std::ptrdiff_t n = matrix.shape(0);
  Sized(matrix, n * n, "matrix");
  Sized(projection, n * n, "projection");
  double logDeterminant = 0.0;
  double* const to = projection.mutable_data();
  Monitor monitor;
  RaiseFor(RunWatched(py::none(), monitor, [&] {
    return ProjectOutDrift(static_cast<int>(n), static_cast<int>(drift.shape(0)), matrix.data(), drift.data(),
                           Dealing::Threads(nthreads), {&monitor.record, &Monitor::Update, true, true}, to,
                           &logDeterminant);
  }));
  return logDeterminant;
}

}  // namespace

void BindVariogram(py::module_& module) {
  module.def("project_out_drift", &Projection, py::arg("matrix").noconvert(), py::arg("drift").noconvert(),
             py::arg("projection").noconvert(), py::arg("threads"));
  module.def("point_variogram", &Variogram, py::arg("coordinates").noconvert(), py::arg("values").noconvert(),
             py::arg("other").noconvert(), py::arg("lag"), py::arg("n_lags"), py::arg("estimator"),
             py::arg("cones").noconvert(), py::arg("threads"), py::arg("progress"));
}

}  // namespace kestrum::python
