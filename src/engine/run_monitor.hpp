#ifndef KESTRUM_ENGINE_RUN_MONITOR_HPP
#define KESTRUM_ENGINE_RUN_MONITOR_HPP

#include <climits>

#include "core/progress_monitor.h"
#include "engine/warnings.hpp"

namespace kestrum {

using ProgressCallback = int (*)(VORL_PROGRESSMONITOR*);

// What a worker tells its caller. In a threaded run every store into the monitor and every call of the callback stand
// in one critical section, so that the callback is never called from two threads at once.
class RunMonitor {
 public:
  // threaded: several threads may tell something at a time.
  RunMonitor(VORL_PROGRESSMONITOR* monitor, ProgressCallback callback, bool threaded) noexcept
      : monitor_(monitor), callback_(callback), threaded_(threaded) {}

  void StartRealizations(int nrealization) const noexcept {
    if (monitor_ != nullptr) monitor_->nrealization = nrealization;
  }

  void FinishRealization() const noexcept {
    if (monitor_ != nullptr && monitor_->currentRealization < INT_MAX) ++monitor_->currentRealization;
  }

  // Reports that a part (0 to 1) of the current realization is done, if the whole percentage over all realizations has
  // grown. Gives the callback's result. Only one thread of a region may call it.
  [[nodiscard]] int Tell(double part) const noexcept {
    bool told;
    return Tell(part, told);
  }

  // The same, where the report can find that the job is to stop: gives 0, the callback's result, or kAborted.
  [[nodiscard]] int Publish(double part) const noexcept {
    bool told;
    const int status = Tell(part, told);
    if (status != 0) return status;
    return told && Aborted(monitor_) ? kAborted : 0;
  }

  // Raises a warning and gives the callback's result. A set abort flag is found at the next test.
  int Warn(int number) const noexcept {
    return OneAtATime([&]() noexcept { return TellWarning(monitor_, callback_, number); });
  }

  bool AbortedRun() const noexcept { return Aborted(monitor_); }

 private:
  // The serial form needs no lock, and a callback of it may start another run.
  template <typename Call>
  int OneAtATime(const Call& call) const noexcept {
    if (!threaded_) return call();
    int status;
#pragma omp critical(UpdateErrorAndProgress)
    status = call();
    return status;
  }

  int Tell(double part, bool& told) const noexcept {
    told = false;
    if (monitor_ == nullptr) return 0;
    const double percentage = (monitor_->currentRealization + part) * 100.0 / monitor_->nrealization;
    // What a caller makes of the counters may not be a number.
    if (!(percentage >= 0.0)) return 0;
    const int whole = percentage < INT_MAX ? static_cast<int>(percentage) : INT_MAX;
    if (whole <= monitor_->allRealizationProgress) return 0;
    told = true;
    return OneAtATime([&]() noexcept {
      monitor_->allRealizationProgress = whole;
      return callback_ != nullptr ? callback_(monitor_) : 0;
    });
  }

  VORL_PROGRESSMONITOR* monitor_;
  ProgressCallback callback_;
  bool threaded_;
};

// Keeps a failure: a later success does not hide it.
inline void KeepFailure(int status, int* kept) noexcept {
  if (status != 0) *kept = status;
}

// Raises the warnings of a node's system, and gives the last failure of the callback.
inline int WarnOfSystem(const RunMonitor& monitor, int ndropped, bool gaveUp) noexcept {
  int status = 0;
  for (int k = 0; k < ndropped; ++k) KeepFailure(monitor.Warn(2001), &status);
  if (gaveUp) KeepFailure(monitor.Warn(2015), &status);
  return status;
}

}  // namespace kestrum

#endif
