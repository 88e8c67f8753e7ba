#include "model.hpp"

#include <algorithm>
#include <memory>

#include "bindings.hpp"
#include "covariance/exact_covariance.hpp"

namespace kestrum::python {

Model::Model(const py::list& rows, const py::object& azimuth, const py::object& dip, const py::object& plunge,
             const std::optional<py::tuple>& grid) {
  if (grid) grid_ = GridOf(*grid);
  elements_.resize(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const py::tuple row = rows[i];
    VORL_COVMODELELEM& element = elements_[i];
    VORLKestrumInitCovModelElem(&element);
    element.covModelType = static_cast<VORL_COVMODELTYPE>(row[0].cast<int>());
    Read(row[1], &element.weightValue, &element.weightImage, &element.weightImageFlag);
    Read(row[2], &element.rxValue, &element.rxImage, &element.rxImageFlag);
    Read(row[3], &element.ryValue, &element.ryImage, &element.ryImageFlag);
    Read(row[4], &element.rzValue, &element.rzImage, &element.rzImageFlag);
    Read(row[5], &element.sValue, &element.sImage, &element.sImageFlag);
  }
  VORLKestrumInitCovModel(&record_);
  record_.nelem = static_cast<int>(elements_.size());
  record_.covModelElem = elements_.data();
  Read(azimuth, &record_.angle1Value, &record_.angle1Image, &record_.angle1ImageFlag);
  Read(dip, &record_.angle2Value, &record_.angle2Image, &record_.angle2ImageFlag);
  Read(plunge, &record_.angle3Value, &record_.angle3Image, &record_.angle3ImageFlag);
}

void Model::Read(const py::handle& parameter, real* value, VORL_IMAGE** image, BOOLEAN* flag) {
  if (!py::isinstance<py::array>(parameter)) {
    *value = parameter.cast<double>();
    return;
  }
  const auto& array = arrays_.emplace_back(py::cast<Array<double>>(parameter));
  Sized(array, grid_.nxyz, "a parameter that varies");
  VORL_IMAGE& record = images_.emplace_back();
  VORLInitImage(&record);
  record.grid = &grid_;
  record.nvar = 1;
  record.nxyzv = grid_.nxyz;
  record.var = const_cast<real*>(array.data());
  *image = &record;
  *flag = TRUE;
}

py::array_t<double> Model::Covariance(const Array<double>& lags) const {
  const std::ptrdiff_t n = lags.shape(0);
  const std::ptrdiff_t dimension = lags.shape(1);
  py::array_t<double> result(n);
  double* const covariance = result.mutable_data();
  const double* const lag = lags.data();
  const py::gil_scoped_release free;
  ExactCovariance evaluator;
  RaiseFor(evaluator.Allocate(record_.nelem));
  evaluator.Prepare(record_, ConstantParameters{});
  // In blocks, for the engine takes the components of lags apart.
  constexpr std::ptrdiff_t kBlock = 256;
  double component[3][kBlock] = {};
  for (std::ptrdiff_t begin = 0; begin < n; begin += kBlock) {
    const std::ptrdiff_t count = std::min(kBlock, n - begin);
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      for (std::ptrdiff_t a = 0; a < dimension; ++a) component[a][i] = lag[(begin + i) * dimension + a];
    }
    evaluator.Evaluate(static_cast<int>(count), component[0], component[1], component[2], covariance + begin);
  }
  return result;
}

void BindModel(py::module_& module) {
  py::class_<Model, std::shared_ptr<Model>>(module, "Model", "A covariance model as the engine reads it.")
      .def(py::init<const py::list&, const py::object&, const py::object&, const py::object&,
                    const std::optional<py::tuple>&>(),
           py::arg("rows"), py::arg("azimuth"), py::arg("dip"), py::arg("plunge"), py::arg("grid") = py::none())
      .def("covariance", &Model::Covariance, py::arg("lags").noconvert());
}

}  // namespace kestrum::python
