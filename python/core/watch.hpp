#ifndef KESTRUM_PYTHON_CORE_WATCH_HPP
#define KESTRUM_PYTHON_CORE_WATCH_HPP

#include <pybind11/pybind11.h>

#include <atomic>
#include <functional>

#include "core/progress.hpp"

namespace kestrum::python {

// What the engine reports to: counts warnings, and can be read and stopped while the engine works. The record comes
// first, so that the callback, which the engine calls from one thread at a time, finds the rest.
struct Monitor {
  VORL_PROGRESSMONITOR record{};
  std::atomic<int> percent{0};
  int dropped = 0;  // systems that lost a neighbour
  int failed = 0;   // systems that could not be solved
  int relaxed = 0;  // passes in which bounds gave way

  Monitor() noexcept { VORLInitProgressMonitor(&record); }
  static int Update(VORL_PROGRESSMONITOR* record) noexcept;
  bool stopped() noexcept {
    return std::atomic_ref<BOOLEAN>(record.abortedJobFlag).load(std::memory_order_relaxed) != FALSE;
  }
  void Stop() noexcept { std::atomic_ref<BOOLEAN>(record.abortedJobFlag).store(TRUE, std::memory_order_relaxed); }
};

// Runs `work`, which must not touch Python, on another thread and returns its status. Meanwhile the calling thread
// releases the interpreter, and takes it now and then to look at signals and to call `progress` (None, or a callable)
// with the fraction done. What these raise makes it stop the work, wait until that ends, and pass the exception on.
int RunWatched(const pybind11::object& progress, Monitor& monitor, const std::function<int()>& work);

}  // namespace kestrum::python

#endif
