#include "watch.hpp"

#include <chrono>
#include <exception>

#include "core/statuses.hpp"
#include "worker.hpp"

namespace kestrum::python {
namespace {

namespace py = pybind11;

// How often the calling thread looks. Twice this, and what the engine needs to notice, is the delay of Ctrl-C.
constexpr std::chrono::milliseconds kPeriod{40};

}  // namespace

int Monitor::Update(VORL_PROGRESSMONITOR* record) noexcept {
  auto* const monitor = reinterpret_cast<Monitor*>(record);
  const int warning = record->warningNumber;
  monitor->dropped += warning == kNeighborDropped || warning == kNeighborDroppedByGibbs;
  monitor->failed += warning == kSystemFailed || warning == kSystemFailedInGibbs || warning == kDefaultProbabilities;
  monitor->relaxed += warning == kBoundsRelaxed || warning == kVarianceRaised;
  monitor->percent = record->allRealizationProgress;
  return 0;
}

int RunWatched(const py::object& progress, Monitor& monitor, const std::function<int()>& work) {
  int status = 0;
  std::exception_ptr raised;
  {
    const py::gil_scoped_release free;
    Worker* const worker = Worker::Take();
    worker->Start(work);
    while (!worker->EndsWithin(kPeriod)) {
      if (raised) continue;
      try {
        const py::gil_scoped_acquire held;
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
        if (!progress.is_none()) progress(monitor.percent / 100.0);
      } catch (...) {
        raised = std::current_exception();
        monitor.Stop();
      }
    }
    status = worker->status();
    Worker::Return(worker);
  }
  if (raised) std::rethrow_exception(raised);
  return status;
}

}  // namespace kestrum::python
