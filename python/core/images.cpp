// Image analysis on arrays, read where they lie.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "analysis/euler_characteristic.hpp"
#include "analysis/geobodies.hpp"
#include "analysis/geobody_paths.hpp"
#include "analysis/morphology.hpp"
#include "analysis/step_search.hpp"
#include "bindings.hpp"
#include "core/node_coordinates.hpp"
#include "images.hpp"

namespace kestrum::python {
namespace {

// transposed: whether the labels' axes are those of the values from the last to the first.
template <typename T>
py::tuple Label(const Array<T>& values, int neighbors, bool transposed, int nthreads, const py::object& report) {
  std::vector<py::ssize_t> shape(values.shape(), values.shape() + values.ndim());
  if (transposed) std::reverse(shape.begin(), shape.end());
  Array<int> labels(shape);
  const VORL_GRID grid = GridOfShape(labels);
  int* const out = labels.mutable_data();
  int count = 0;
  RunOperations(100.0 * static_cast<double>(values.size()), report, [&](const Progress& progress) {
    const Dealing dealing = Dealing::Threads(nthreads);
    GeobodyFinder finder;
    if (const int status = finder.AllocateBits(grid, LongestPacked(ConnectivityOf(neighbors))); status != 0)
      return status;
    if (transposed) {
      finder.MarkTransposed(values.data(), dealing);
    } else {
      finder.Mark(values.data(), TrueValues{}, dealing);
    }
    count = finder.LabelInPlace(ConnectivityOf(neighbors), out, dealing, progress);
    return progress.After(0);
  });
  return py::make_tuple(labels, count);
}

// Rows: size and extents along z, y and x of the bodies 1 to n.
Array<int> BodySizes(const Array<int>& labels, int n, int nthreads, const py::object& report) {
  const VORL_GRID grid = GridOfShape(labels);
  Array<int> table(py::array::ShapeContainer{4, n});
  int* const row = table.mutable_data();
  RunOperations(10.0 * static_cast<double>(labels.size()), report, [&](const Progress& progress) noexcept {
    Buffer<int> minima;
    if (const int status = minima.Allocate(3 * static_cast<std::size_t>(n)); status != 0) return status;
    int* const low = minima.data();
    const std::ptrdiff_t step = n;
    GeobodyBoxes boxes{row, {low, low + step, low + 2 * step}, {row + 3 * step, row + 2 * step, row + step}};
    if (const int status = boxes.SetAll(grid, labels.data(), n, Dealing::Threads(nthreads), progress); status != 0) {
      return status;
    }
    for (int axis = 0; axis < 3; ++axis) {
      for (int label = 1; label <= n; ++label) boxes.max[axis][label - 1] = boxes.Extent(label, axis);
    }
    return 0;
  });
  return table;
}

template <typename T>
std::int64_t EulerNumber(const Array<T>& values, bool closedCells, int nthreads) {
  const VORL_GRID grid = GridOfShape(values);
  std::int64_t number = 0;
  int status = 0;
  {
    const py::gil_scoped_release released;
    NodeBits nodes;
    status = nodes.Allocate(grid);
    if (status == 0) {
      const Dealing dealing = Dealing::Threads(nthreads);
      nodes.Mark(values.data(), TrueValues{}, dealing);
      number = EulerCharacteristic(nodes, closedCells, dealing);
    }
  }
  RaiseFor(status);
  return number;
}

// elements: rows of offsets along x, y and z.
template <typename T>
Array<unsigned char> ChangedMask(const Array<T>& mask, bool dilating, const std::vector<Array<int>>& elements,
                                 int nthreads, const py::object& report) {
  const VORL_GRID grid = GridOfShape(mask);
  std::vector<StructuringElement> native;
  for (const Array<int>& element : elements) {
    const std::ptrdiff_t size = element.shape(1);
    const int* const x = Sized(element, 3 * size, "element").data();
    native.push_back({static_cast<int>(size), x, x + size, x + 2 * size});
  }
  Array<unsigned char> result = ArrayLike<unsigned char>(mask);
  unsigned char* const out = result.mutable_data();
  RunOperations(100.0 * static_cast<double>(mask.size()), report, [&](const Progress& progress) {
    return ChangeMask(grid, mask.data(), dilating, native, out, Dealing::Threads(nthreads), progress);
  });
  return result;
}

bool AreNeighbors(const NodeCoordinates& a, const NodeCoordinates& b, int neighbors) {
  const int apart[] = {std::abs(a.ix - b.ix), std::abs(a.iy - b.iy), std::abs(a.iz - b.iz)};
  const int most = neighbors == 6 ? 1 : neighbors == 18 ? 2 : 3;
  return *std::max_element(apart, apart + 3) <= 1 && apart[0] + apart[1] + apart[2] <= most;
}

template <typename T>
Array<int> Steps(const Array<T>& mask, int neighbors, const Array<int>& start, int threads, const py::object& report) {
  const VORL_GRID grid = GridOfShape(mask);
  Array<int> steps = ArrayLike<int>(mask);
  int* const to = steps.mutable_data();
  constexpr int kFirstFront = 1024;
  RunOperations(100.0 * static_cast<double>(mask.size()), report, [&](const Progress& progress) noexcept {
    return FindSteps(ConnectivityOf(neighbors), {grid.nx, grid.ny, grid.nz}, mask.data(), kFirstFront,
                     static_cast<int>(start.size()), start.data(), to, Dealing::Threads(threads), progress);
  });
  return steps;
}

// Of the ends, the nearest counts. transposed: whether places are on the axes of the steps from the last to the first.
Array<std::int64_t> Path(const Array<int>& steps, int neighbors, const Array<int>& starts, const Array<int>& ends,
                         std::uint64_t seed) {
  const VORL_GRID grid = GridOfShape(steps);
  const int* const at = steps.data();
  // The path from its end on. -1, no way, is beyond all numbers of steps.
  std::vector<int> path(1);
  const auto apart = [at](int node) { return static_cast<unsigned>(at[node]); };
  path[0] =
      *std::min_element(ends.data(), ends.data() + ends.size(), [&](int a, int b) { return apart(a) < apart(b); });
  const int length = at[path[0]];
  if (length > 0) {
    path.resize(static_cast<std::size_t>(length) + 1);
    RaiseFor(PathBySteps(grid, at, ConnectivityOf(neighbors), path[0], seed, path.data()));
    path.back() = *std::find_if(starts.data(), starts.data() + starts.size(), [&](int start) {
      return AreNeighbors(CoordinatesOf(grid, start), CoordinatesOf(grid, path.end()[-2]), neighbors);
    });
  }
  const py::ssize_t naxis = steps.ndim();
  Array<std::int64_t> rows({py::ssize_t{length + 1}, naxis});
  std::int64_t* row = rows.mutable_data();
  for (auto node = path.rbegin(); row != rows.data() + rows.size(); ++node, row += naxis) {
    const auto [ix, iy, iz] = CoordinatesOf(grid, *node);
    const int places[] = {iz, iy, ix};
    std::copy(places + 3 - naxis, places + 3, row);
  }
  return rows;
}

}  // namespace

void BindImages(py::module_& module) {
  ForEachType([&module]<typename T>(std::type_identity<T>) {
    module.def("label", &Label<T>, py::arg("values").noconvert(), py::arg("neighbors"), py::arg("transposed"),
               py::arg("threads"), py::arg("progress"));
    module.def("steps_in_mask", &Steps<T>, py::arg("mask").noconvert(), py::arg("neighbors"),
               py::arg("start").noconvert(), py::arg("threads"), py::arg("progress"));
    module.def("euler_number", &EulerNumber<T>, py::arg("values").noconvert(), py::arg("closed_cells"),
               py::arg("threads"));
    module.def("changed_mask", &ChangedMask<T>, py::arg("mask").noconvert(), py::arg("dilating"), py::arg("elements"),
               py::arg("threads"), py::arg("progress"));
  });
  module.def("path_by_steps", &Path, py::arg("steps").noconvert(), py::arg("neighbors"), py::arg("starts").noconvert(),
             py::arg("ends").noconvert(), py::arg("seed"));
  module.def("body_sizes", &BodySizes, py::arg("labels").noconvert(), py::arg("n"), py::arg("threads"),
             py::arg("progress"));
}

}  // namespace kestrum::python
