#ifndef KESTRUM_PYTHON_CORE_MODEL_HPP
#define KESTRUM_PYTHON_CORE_MODEL_HPP

#include <deque>
#include <vector>

#include "arrays.hpp"
#include "covariance/cov_model.h"

namespace kestrum::python {

// A covariance model whose varying parameters are arrays of Python's, read in place.
class Model {
 public:
  // rows: (type, sill, across, along, vertical, shape) for each structure; each parameter, but the type, and each angle
  // is a number or an array with a value for each node of the grid.
  Model(const py::list& rows, const py::object& azimuth, const py::object& dip, const py::object& plunge,
        const std::optional<py::tuple>& grid);
  Model(const Model&) = delete;
  Model& operator=(const Model&) = delete;

  // The functions of the library take records that can be written, and do not write them.
  VORL_COVMODEL* record() const noexcept { return &record_; }

  // Covariances of lags, one row each, of two or three components. Of constants only.
  py::array_t<double> Covariance(const Array<double>& lags) const;

 private:
  void Read(const py::handle& parameter, real* value, VORL_IMAGE** image, BOOLEAN* flag);

  mutable VORL_COVMODEL record_{};
  std::vector<VORL_COVMODELELEM> elements_;
  VORL_GRID grid_{};
  std::deque<VORL_IMAGE> images_;  // stay where they are when more come
  std::vector<Array<double>> arrays_;
};

}  // namespace kestrum::python

#endif
