#ifndef KESTRUM_ENGINE_WARNINGS_HPP
#define KESTRUM_ENGINE_WARNINGS_HPP

#include <atomic>

#include "core/progress_monitor.h"

namespace kestrum {

inline constexpr int kAborted = -1000;

// Whether the job has been asked to stop. The flag may be set from another thread at any time.
inline bool Aborted(VORL_PROGRESSMONITOR* monitor) noexcept {
  return monitor != nullptr && std::atomic_ref<BOOLEAN>(monitor->abortedJobFlag).load(std::memory_order_relaxed) != 0;
}

// Reports a warning through the callback, and gives its result.
inline int TellWarning(VORL_PROGRESSMONITOR* monitor, int (*callback)(VORL_PROGRESSMONITOR*), int number) noexcept {
  if (monitor == nullptr) return 0;
  monitor->warningNumber = number;
  const int status = callback == nullptr ? 0 : callback(monitor);
  monitor->warningNumber = 0;
  return status;
}

// The same where a warning can end the run: gives 0, the callback's result, or kAborted; all but 0 end it.
[[nodiscard]] inline int RaiseWarning(VORL_PROGRESSMONITOR* monitor, int (*callback)(VORL_PROGRESSMONITOR*),
                                      int number) noexcept {
  const int status = TellWarning(monitor, callback, number);
  if (status != 0) return status;
  return Aborted(monitor) ? kAborted : 0;
}

}  // namespace kestrum

#endif
