// Kriging from data at their true places.

#include "engine/place_kriging.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <optional>
#include <tuple>

#include "arrays.hpp"
#include "bindings.hpp"
#include "model.hpp"
#include "watch.hpp"

namespace kestrum::python {
namespace {

// What the engine refuses although the Python layer let it pass: raised as ValueError(name, refusal, first, second).
void RaiseFor(const PlaceProblem& problem) {
  const char* name = "";
  switch (problem.refusal) {
    case PlaceRefusal::kNone:
      return;
    case PlaceRefusal::kSamePlace:
      name = "same place";
      break;
    case PlaceRefusal::kModelSill:
      name = "sill";
      break;
    case PlaceRefusal::kModelRange:
      name = "range";
      break;
    case PlaceRefusal::kModelShape:
      name = "shape";
      break;
    case PlaceRefusal::kModelAngle:
      name = "angle";
      break;
    default:
      name = "argument";
  }
  const py::tuple arguments = py::make_tuple(name, static_cast<int>(problem.refusal), problem.first, problem.second);
  PyErr_SetObject(PyExc_ValueError, arguments.ptr());
  throw py::error_already_set();
}

// By target: the number of its data, their weights, and which they are. The last two have as many columns as the most data
// of a target.
using Weights = std::optional<std::tuple<Array<int>, Array<double>, Array<int>>>;

// Data and a model, ready for any number of calls.
class Kriging {
 public:
  Kriging(const std::shared_ptr<Model>& model, const Array<double>& coordinates, const Array<double>& values,
          const MaybeArray<double>& errorVariances, const MaybeArray<double>& means,
          const MaybeArray<double>& covariates, int neighbors, const std::array<double, 3>& radius, bool euclidean,
          int degree, double mean, const std::array<int, 3>& block, int nthreads, const py::object& progress)
      : model_(model), dimension_(static_cast<int>(coordinates.shape(1))) {
    const std::ptrdiff_t n = values.size();
    PlaceData data;
    data.count = static_cast<int>(n);
    data.dimension = dimension_;
    data.coordinates = Sized(coordinates, n * dimension_, "coordinates").data();
    data.values = values.data();
    data.errorVariances = DataOrNull(errorVariances, n, "error_variance");
    data.means = DataOrNull(means, n, "means");
    if (covariates) {
      ncovariate_ = static_cast<int>(covariates->shape(0));
      data.covariates = Sized(*covariates, n * ncovariate_, "covariates").data();
    }
    PlaceKrigingOptions options;
    options.neighbors = neighbors;
    std::copy(radius.begin(), radius.end(), options.radius);
    options.euclidean = euclidean;
    options.degree = degree;
    options.mean = mean;
    options.ncovariate = ncovariate_;
    std::copy(block.begin(), block.end(), options.block);
    PlaceProblem problem;
    Monitor monitor;
    const int status = RunWatched(progress, monitor, [&] {
      return kriging_.Prepare(data, *model_->record(), options, Dealing::Threads(nthreads),
                              {&monitor.record, &Monitor::Update}, &problem);
    });
    RaiseFor(problem);
    python::RaiseFor(status);
  }

  // Kriges a window of a grid: (first, extent) along x, y and z.
  py::tuple OnGrid(const py::tuple& grid, const std::array<int, 3>& first, const std::array<int, 3>& extent,
                   const MaybeArray<unsigned char>& mask, const MaybeArray<double>& means,
                   const MaybeArray<double>& covariates, Array<double> estimate, Array<double> variance, int nthreads,
                   const py::object& progress, const Weights& weights) const {
    PlaceKrigingTargets targets;
    targets.places.grid = GridOf(grid, true);
    std::copy(first.begin(), first.end(), targets.places.first);
    std::copy(extent.begin(), extent.end(), targets.places.extent);
    return At(targets, mask, means, covariates, estimate, variance, nthreads, progress, weights);
  }

  py::tuple AtPlaces(const Array<double>& places, const MaybeArray<double>& means, const MaybeArray<double>& covariates,
                     Array<double> estimate, Array<double> variance, int nthreads, const py::object& progress,
                     const Weights& weights) const {
    PlaceKrigingTargets targets;
    targets.places.nlist = places.shape(0);
    targets.places.list = Sized(places, targets.places.nlist * dimension_, "places").data();
    return At(targets, {}, means, covariates, estimate, variance, nthreads, progress, weights);
  }

  // Kriges each datum from those of other folds, or from all others.
  py::tuple LeaveOut(const MaybeArray<int>& start, const MaybeArray<int>& member, Array<double> estimate,
                     Array<double> variance, int nthreads, const py::object& progress) const {
    PlaceKrigingResults results;
    results.estimate = estimate.mutable_data();
    results.variance = variance.mutable_data();
    PlaceFolds folds;
    if (start) {
      folds = {static_cast<int>(start->size()) - 1, start->data(), DataOrNull(member, estimate.size(), "member")};
    }
    return Watched(progress, [&](const Progress& shown, PlaceKrigingReport* report, PlaceProblem* problem) {
      return kriging_.LeaveOut(start ? &folds : nullptr, results, Dealing::Threads(nthreads), shown, report, problem);
    });
  }

 private:
  // Runs a call without the interpreter and gives its counts.
  template <typename Call>
  static py::tuple Watched(const py::object& progress, const Call& call) {
    Monitor monitor;
    PlaceKrigingReport report;
    PlaceProblem problem;
    const int status = RunWatched(progress, monitor, [&] {
      return call({&monitor.record, &Monitor::Update}, &report, &problem);
    });
    RaiseFor(problem);
    python::RaiseFor(status);
    return py::make_tuple(report.withoutData, report.undetermined, report.indefinite, report.redundant);
  }

  py::tuple At(PlaceKrigingTargets& targets, const MaybeArray<unsigned char>& mask, const MaybeArray<double>& means,
               const MaybeArray<double>& covariates, Array<double>& estimate, Array<double>& variance, int nthreads,
               const py::object& progress, const Weights& weights) const {
    targets.places.dimension = dimension_;
    const std::int64_t count = targets.places.count();
    targets.places.mask = DataOrNull(mask, count, "mask");
    targets.means = DataOrNull(means, count, "means");
    targets.covariates = DataOrNull(covariates, count * ncovariate_, "covariates");
    PlaceKrigingResults results;
    Sized(estimate, count, "estimate");
    Sized(variance, count, "variance");
    results.estimate = estimate.mutable_data();
    results.variance = variance.mutable_data();
    if (weights) {
      auto [ndata, table, rows] = *weights;
      results.nweight = static_cast<int>(table.shape(1));
      Sized(ndata, count, "the numbers of data");
      Sized(table, count * results.nweight, "weights");
      Sized(rows, count * results.nweight, "the data of weights");
      results.ndata = ndata.mutable_data();
      results.weights = table.mutable_data();
      results.weightData = rows.mutable_data();
    }
    return Watched(progress, [&](const Progress& shown, PlaceKrigingReport* report, PlaceProblem* problem) {
      return kriging_.Krige(targets, results, Dealing::Threads(nthreads), shown, report, problem);
    });
  }

  std::shared_ptr<Model> model_;
  int dimension_;
  int ncovariate_ = 0;
  PlaceKriging kriging_;
};

}  // namespace

void BindPlaceKriging(py::module_& module) {
  py::class_<Kriging>(module, "PlaceKriging", "Data and a model, ready to krige any number of places.")
      .def(
          py::init<const std::shared_ptr<Model>&, const Array<double>&, const Array<double>&, const MaybeArray<double>&,
                   const MaybeArray<double>&, const MaybeArray<double>&, int, const std::array<double, 3>&, bool, int,
                   double, const std::array<int, 3>&, int, const py::object&>(),
          py::arg("model"), py::arg("coordinates").noconvert(), py::arg("values").noconvert(),
          py::arg("error_variance").noconvert(), py::arg("means").noconvert(), py::arg("covariates").noconvert(),
          py::arg("neighbors"), py::arg("radius"), py::arg("euclidean"), py::arg("degree"), py::arg("mean"),
          py::arg("block"), py::arg("threads"), py::arg("progress") = py::none())
      .def("on_grid", &Kriging::OnGrid, py::arg("grid"), py::arg("first"), py::arg("extent"),
           py::arg("mask").noconvert(), py::arg("means").noconvert(), py::arg("covariates").noconvert(),
           py::arg("estimate").noconvert(), py::arg("variance").noconvert(), py::arg("threads"), py::arg("progress"),
           py::arg("weights").noconvert() = py::none())
      .def("at_places", &Kriging::AtPlaces, py::arg("places").noconvert(), py::arg("means").noconvert(),
           py::arg("covariates").noconvert(), py::arg("estimate").noconvert(), py::arg("variance").noconvert(),
           py::arg("threads"), py::arg("progress"), py::arg("weights").noconvert() = py::none())
      .def("leave_out", &Kriging::LeaveOut, py::arg("start").noconvert(), py::arg("member").noconvert(),
           py::arg("estimate").noconvert(), py::arg("variance").noconvert(), py::arg("threads"), py::arg("progress"));
}

}  // namespace kestrum::python
