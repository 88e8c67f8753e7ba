// Two-point statistics of images, and categories, on arrays.

#include <cstdint>
#include <string>
#include <vector>

#include "analysis/category_codes.hpp"
#include "analysis/category_order.hpp"
#include "analysis/pair_counts.hpp"
#include "analysis/two_point_statistics.hpp"
#include "bindings.hpp"
#include "images.hpp"

namespace kestrum::python {
namespace {

// The largest lags along x, y and z, and the shape of tables of all lags behind other axes.
struct Lags {
  int most[3];
  std::vector<py::ssize_t> shape;

  explicit Lags(const std::vector<int>& maxLag, std::vector<py::ssize_t> before = {}) : shape(std::move(before)) {
    if (maxLag.size() != 3) throw py::value_error("max_lag must be three numbers");
    for (int axis = 0; axis < 3; ++axis) most[2 - axis] = maxLag[static_cast<std::size_t>(axis)];
    for (const int lag : maxLag) shape.push_back(2 * lag + 1);
  }
};

py::tuple TwoPointSums(const Array<double>& image, const std::string& name, const std::vector<int>& maxLag,
                       int nthreads, const py::object& report) {
  const VORL_GRID grid = GridOfShape(image);
  const auto statistic = name == "variogram"     ? TwoPointStatistic::kVariogram
                         : name == "covariance"  ? TwoPointStatistic::kCovariance
                         : name == "noncentered" ? TwoPointStatistic::kCovarianceNotCentred
                                                 : TwoPointStatistic::kCorrelogram;
  const Lags lags(maxLag, {SumCount(statistic)});
  Array<double> sums(lags.shape);
  Array<std::int64_t> pairs(std::vector<py::ssize_t>(lags.shape.begin() + 1, lags.shape.end()));
  double* const to = sums.mutable_data();
  std::int64_t* const counts = pairs.mutable_data();
  RunOperations(static_cast<double>(pairs.size()) * grid.nxyz, report, [&](const Progress& progress) noexcept {
    return ComputeTwoPointSums(statistic, grid, image.data(), lags.most, Dealing::Threads(nthreads), progress, to,
                               counts);
  });
  return py::make_tuple(sums, pairs);
}

// None where there are more than are numbered.
template <typename T>
py::object Categories(const Array<T>& values, int nthreads, const py::object& report) {
  double found[kMostCategories];
  int n = 0;
  RunOperations(10.0 * static_cast<double>(values.size()), report, [&](const Progress& progress) noexcept {
    return FindCategories(values.size(), values.data(), Dealing::Threads(nthreads), progress, found, &n);
  });
  if (n > kMostCategories) return py::none();
  return Array<double>(n, found);
}

// What writes the code of each value, from numbers that increase or are categories.
template <typename T>
using Coder = int (*)(std::ptrdiff_t, const T*, int, const double*, const Dealing&, const Progress&, std::int16_t*);

template <typename T, Coder<T> code>
Array<std::int16_t> Codes(const Array<T>& values, const Array<double>& numbers, int nthreads,
                          const py::object& report) {
  Array<std::int16_t> codes = ArrayLike<std::int16_t>(values);
  std::int16_t* const to = codes.mutable_data();
  RunOperations(10.0 * static_cast<double>(values.size()), report, [&](const Progress& progress) noexcept {
    return code(values.size(), values.data(), static_cast<int>(numbers.size()), numbers.data(),
                Dealing::Threads(nthreads), progress, to);
  });
  return codes;
}

Array<std::int64_t> CategoryPairs(const Array<std::int16_t>& codes, int n, const std::vector<int>& maxLag, int nthreads,
                                  const py::object& report) {
  const VORL_GRID grid = GridOfShape(codes);
  const Lags lags(maxLag, {n, n});
  Array<std::int64_t> pairs(lags.shape);
  std::int64_t* const to = pairs.mutable_data();
  RunOperations(static_cast<double>(pairs.size()) * grid.nxyz / 64.0, report, [&](const Progress& progress) noexcept {
    return CountCategoryPairs(grid, codes.data(), n, lags.most, Dealing::Threads(nthreads), progress, to);
  });
  return pairs;
}

py::tuple CategoryChanges(const Array<std::int16_t>& codes, int n, bool nested, const std::vector<int>& maxLag,
                          int nthreads, const py::object& report) {
  const VORL_GRID grid = GridOfShape(codes);
  const Lags lags(maxLag, {nested ? n - 1 : n});
  Array<std::int64_t> changes(lags.shape);
  Array<std::int64_t> pairs(std::vector<py::ssize_t>(lags.shape.begin() + 1, lags.shape.end()));
  std::int64_t* const to = changes.mutable_data();
  std::int64_t* const all = pairs.mutable_data();
  RunOperations(static_cast<double>(changes.size()) * grid.nxyz / 64.0, report, [&](const Progress& progress) noexcept {
    return CountCategoryChanges(grid, codes.data(), n, nested, lags.most, Dealing::Threads(nthreads), progress, to,
                                all);
  });
  return py::make_tuple(changes, pairs);
}

Array<std::int64_t> AlikePairs(const Array<int>& labels, const std::vector<int>& maxLag, int nthreads,
                               const py::object& report) {
  const VORL_GRID grid = GridOfShape(labels);
  const Lags lags(maxLag);
  Array<std::int64_t> pairs(lags.shape);
  std::int64_t* const to = pairs.mutable_data();
  RunOperations(static_cast<double>(pairs.size()) * grid.nxyz, report, [&](const Progress& progress) noexcept {
    return CountAlikePairs(grid, labels.data(), lags.most, Dealing::Threads(nthreads), progress, to);
  });
  return pairs;
}

Array<int> ChainOf(Array<TransitionCount> transitions) {
  const py::ssize_t n = transitions.shape(0);
  Sized(transitions, n * n, "transitions");
  std::vector<TransitionCount*> rows;
  for (py::ssize_t k = 0; k < n; ++k) rows.push_back(transitions.mutable_data() + k * n);
  std::vector<int> rank(rows.size());
  Array<int> sequence(n);
  ChainCategories(static_cast<int>(n), rows.data(), rank.data(), sequence.mutable_data());
  return sequence;
}

}  // namespace

void BindImagePairs(py::module_& module) {
  ForEachType([&module]<typename T>(std::type_identity<T>) {
    module.def("find_categories", &Categories<T>, py::arg("values").noconvert(), py::arg("threads"),
               py::arg("progress"));
    module.def("code_categories", &Codes<T, &CodeCategories<T>>, py::arg("values").noconvert(),
               py::arg("categories").noconvert(), py::arg("threads"), py::arg("progress"));
    module.def("code_by_cuts", &Codes<T, &CodeByCuts<T>>, py::arg("values").noconvert(), py::arg("cuts").noconvert(),
               py::arg("threads"), py::arg("progress"));
  });
  module.def("two_point_sums", &TwoPointSums, py::arg("image").noconvert(), py::arg("statistic"), py::arg("max_lag"),
             py::arg("threads"), py::arg("progress"));
  module.def("category_pairs", &CategoryPairs, py::arg("codes").noconvert(), py::arg("n"), py::arg("max_lag"),
             py::arg("threads"), py::arg("progress"));
  module.def("category_changes", &CategoryChanges, py::arg("codes").noconvert(), py::arg("n"), py::arg("nested"),
             py::arg("max_lag"), py::arg("threads"), py::arg("progress"));
  module.def("chain_categories", &ChainOf, py::arg("transitions").noconvert());
  module.def("alike_pairs", &AlikePairs, py::arg("labels").noconvert(), py::arg("max_lag"), py::arg("threads"),
             py::arg("progress"));
}

}  // namespace kestrum::python
