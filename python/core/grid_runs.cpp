// Kriging and simulation from data on the nodes of a grid.

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <vector>

#include "arrays.hpp"
#include "bindings.hpp"
#include "core/nearest_node.hpp"
#include "engine/grid_run.hpp"
#include "engine/philox_random.hpp"
#include "model.hpp"
#include "watch.hpp"

namespace kestrum::python {
namespace {

// The node whose cell holds each place; -1 outside the grid.
py::array_t<int> NodesOf(const py::tuple& gridNumbers, const Array<double>& places) {
  const VORL_GRID grid = GridOf(gridNumbers);
  const std::ptrdiff_t dimension = places.shape(1);
  py::array_t<int> result(places.shape(0));
  int* const nodes = result.mutable_data();
  for (std::ptrdiff_t i = 0; i < places.shape(0); ++i) {
    const double* const at = places.data() + i * dimension;
    const double z = dimension > 2 ? at[2] : grid.oz;
    nodes[i] = LiesInBox(grid, at[0], at[1], z) ? NodeIndex(grid, NearestNode(grid, at[0], at[1], z)) : -1;
  }
  return result;
}

// Takes the realizations into rows of Python's array.
template <typename T>
class Rows final : public RealizationSink {
 public:
  Rows(std::span<const double> value, const unsigned char* mask, T missing, T* rows) noexcept
      : value_(value), mask_(mask), missing_(missing), rows_(rows) {}

  void Begin(int) noexcept override {}
  [[nodiscard]] int End(int r) noexcept override {
    T* const row = rows_ + static_cast<std::ptrdiff_t>(r) * static_cast<std::ptrdiff_t>(value_.size());
    for (std::size_t i = 0; i < value_.size(); ++i) {
      row[i] = mask_ != nullptr && mask_[i] == 0 ? missing_ : static_cast<T>(value_[i]);
    }
    return 0;
  }

 private:
  std::span<const double> value_;
  const unsigned char* mask_;
  T missing_;
  T* rows_;
};

// Runs on a grid, any number of them at a time. The arrays of Python are kept and read in place.
class Run {
 public:
  Run(const py::tuple& grid, const std::vector<std::shared_ptr<Model>>& models, bool ordinary, int neighbors,
      const std::optional<std::array<double, 3>>& radius, const Array<int>& dataNodes, const Array<double>& dataValues,
      const MaybeArray<unsigned char>& mask, const MaybeArray<double>& means, double mean, bool factorising,
      int nthreads)
      : models_(models), radius_(radius), arrays_(py::make_tuple(dataNodes, dataValues, mask, means)) {
    for (const auto& model : models) records_.push_back(*model->record());
    input_.grid = GridOf(grid);
    input_.models = records_;
    input_.ordinaryKriging = ordinary;
    input_.neighbors = neighbors;
    input_.radius = radius_ ? radius_->data() : nullptr;
    input_.dataNodes = {dataNodes.data(), static_cast<std::size_t>(dataNodes.size())};
    input_.dataValues = Sized(dataValues, dataNodes.size(), "data_values").data();
    input_.mask = DataOrNull(mask, input_.grid.nxyz, "mask");
    input_.means = DataOrNull(means, input_.grid.nxyz, "means");
    input_.mean = mean;
    input_.solver.solver = factorising ? Solver::kFactorising : Solver::kIterative;
    dealing_ = Dealing::Threads(nthreads);
  }

  // Bounds at nodes without a datum, in increasing order; NaN for none.
  void SetBounds(const Array<int>& nodes, const Array<double>& lower, const Array<double>& upper) {
    bounds_ = py::make_tuple(nodes, lower, upper);
    input_.boundNodes = {nodes.data(), static_cast<std::size_t>(nodes.size())};
    input_.lower = Sized(lower, nodes.size(), "lower").data();
    input_.upper = Sized(upper, nodes.size(), "upper").data();
  }

  py::tuple Krige(Array<double> estimate, Array<double> variance, const py::object& progress) {
    double* const value = Target(estimate, 1);
    double* const squared = Target(variance, 1);
    return Watched(progress, nullptr, [&](GridRun& run) {
      const int status = run.Krige(value, squared);
      for (int i = 0; i < input_.grid.nxyz; ++i) squared[i] *= squared[i];
      return status;
    });
  }

  // rows: (n, nodes). The Gibbs sampler passes at least `passes` times, where there are bounds.
  template <typename T>
  py::tuple Simulate(std::uint64_t seed, std::uint32_t first, int passes, Array<T> rows, const py::object& progress) {
    const int n = static_cast<int>(rows.shape(0));
    T* const out = Target(rows, n);
    PhiloxRandom random(seed, first);
    return Watched(progress, &random, [&](GridRun& run) {
      return Draw<T>(n, std::numeric_limits<T>::quiet_NaN(), out, [&](double* value, RealizationSink& sink) {
        return run.SimulateValues({passes, 10 * passes}, n, random, value, sink);
      });
    });
  }

  // Categories are 0, 1, ...; proportions: one for each, or one for each and node.
  py::tuple KrigeCategories(const Array<double>& proportions, Array<double> probabilities, const py::object& progress) {
    Numbers values;
    const Categories categories = CategoriesOf(proportions, &values);
    double* const out = Target(probabilities, categories.count());
    return Watched(progress, nullptr, [&](GridRun& run) { return run.KrigeCategories(categories, out); });
  }

  py::tuple SimulateCategories(const Array<double>& proportions, std::uint64_t seed, std::uint32_t first,
                               Array<std::int16_t> rows, const py::object& progress) {
    Numbers values;
    const Categories categories = CategoriesOf(proportions, &values);
    const int n = static_cast<int>(rows.shape(0));
    std::int16_t* const out = Target(rows, n);
    PhiloxRandom random(seed, first);
    return Watched(progress, &random, [&](GridRun& run) {
      return Draw<std::int16_t>(n, -1, out, [&](double* value, RealizationSink& sink) {
        return run.SimulateCategoryValues(categories, n, random, value, sink);
      });
    });
  }

 private:
  // Makes what runs share, for the first of them. All are kriging, or all are simulations.
  int Share(bool simulation, const RunFront& front) const noexcept {
    const std::lock_guard lock(sharing_);
    if (shared_) return 0;
    const int status = shared_.emplace().Prepare(input_, simulation, front);
    if (status != 0) shared_.reset();
    return status;
  }

  using Numbers = std::vector<double>;

  template <typename T>
  T* Target(Array<T>& array, std::ptrdiff_t rows) const {
    return const_cast<Array<T>&>(Sized(array, rows * input_.grid.nxyz, "result")).mutable_data();
  }

  Categories CategoriesOf(const Array<double>& proportions, Numbers* values) const {
    const auto count = proportions.shape(0);
    for (int c = 0; c < count; ++c) values->push_back(c);
    const bool local = proportions.ndim() > 1;
    Sized(proportions, local ? count * input_.grid.nxyz : count, "proportions");
    return {static_cast<int>(count), values->data(), proportions.data(), local ? input_.grid.nxyz : 0,
            input_.ordinaryKriging};
  }

  // n realizations, at least 1.
  template <typename T, typename Work>
  int Draw(int n, T missing, T* out, const Work& work) const {
    const auto count = static_cast<std::size_t>(input_.grid.nxyz);
    Buffer<double> buffer;
    double* value;
    if constexpr (std::is_same_v<T, double>) {
      // The last realization is drawn where it stays, and the others there before it.
      value = out + static_cast<std::size_t>(n - 1) * count;
    } else {
      if (const int status = buffer.Allocate(count); status != 0) return status;
      value = buffer.data();
    }
    Rows<T> rows({value, count}, input_.mask, missing, out);
    return work(value, rows);
  }

  // random: of a simulation, null for kriging.
  template <typename Work>
  py::tuple Watched(const py::object& progress, PhiloxRandom* random, const Work& work) const {
    Monitor monitor;
    const int status = RunWatched(progress, monitor, [&] {
      const RunFront front(&monitor.record, &Monitor::Update, dealing_, true);
      GridRun run;
      int prepared = run.Allocate(input_);
      if (prepared != 0) return prepared;
      // Neither of listing the neighbours and making the path waits for the other, and neither has work for two threads.
      dealing_.ForPass(input_.grid.nxyz).EachThread([&](int thread, int team) noexcept {
        if (thread == 0) prepared = Share(random != nullptr, front);
        if (thread != team - 1) return;
        run.Prepare(input_, front);
        if (random != nullptr) run.Shuffle(*random);
      });
      if (prepared != 0) return prepared;
      run.SetModels(*shared_);
      return work(run);
    });
    RaiseFor(status);
    return py::make_tuple(monitor.dropped, monitor.failed, monitor.relaxed);
  }

  std::vector<std::shared_ptr<Model>> models_;
  mutable std::vector<VORL_COVMODEL> records_;
  std::optional<std::array<double, 3>> radius_;
  py::tuple arrays_, bounds_;
  GridRunInput input_;
  Dealing dealing_ = Dealing::Serial();
  mutable std::mutex sharing_;
  mutable std::optional<GridModels> shared_;
};

}  // namespace

void BindGridRuns(py::module_& module) {
  module.def("nodes_of", &NodesOf, py::arg("grid"), py::arg("places").noconvert());
  py::class_<Run>(module, "GridRun", "Kriging and simulation from data on nodes.")
      .def(py::init<const py::tuple&, const std::vector<std::shared_ptr<Model>>&, bool, int,
                    const std::optional<std::array<double, 3>>&, const Array<int>&, const Array<double>&,
                    const MaybeArray<unsigned char>&, const MaybeArray<double>&, double, bool, int>(),
           py::arg("grid"), py::arg("models"), py::arg("ordinary"), py::arg("neighbors"), py::arg("radius"),
           py::arg("data_nodes").noconvert(), py::arg("data_values").noconvert(), py::arg("mask").noconvert(),
           py::arg("means").noconvert(), py::arg("mean"), py::arg("factorising"), py::arg("threads"))
      .def("set_bounds", &Run::SetBounds, py::arg("nodes").noconvert(), py::arg("lower").noconvert(),
           py::arg("upper").noconvert())
      .def("krige", &Run::Krige, py::arg("estimate").noconvert(), py::arg("variance").noconvert(), py::arg("progress"))
      .def("simulate", &Run::Simulate<double>, py::arg("seed"), py::arg("first"), py::arg("passes"),
           py::arg("rows").noconvert(), py::arg("progress"))
      .def("simulate", &Run::Simulate<float>, py::arg("seed"), py::arg("first"), py::arg("passes"),
           py::arg("rows").noconvert(), py::arg("progress"))
      .def("krige_categories", &Run::KrigeCategories, py::arg("proportions").noconvert(),
           py::arg("probabilities").noconvert(), py::arg("progress"))
      .def("simulate_categories", &Run::SimulateCategories, py::arg("proportions").noconvert(), py::arg("seed"),
           py::arg("first"), py::arg("rows").noconvert(), py::arg("progress"));
}

}  // namespace kestrum::python
