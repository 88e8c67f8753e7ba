#include "core/progress_monitor.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <type_traits>

#include "core/plain_numbers.hpp"
#include "core/status.h"
#include "core/statuses.hpp"

static_assert(std::is_standard_layout_v<VORL_PROGRESSMONITOR> && sizeof(VORL_PROGRESSMONITOR) == 1088);

namespace kestrum {
namespace {

// What a callback shows, besides the warnings that all but the silent one print.
enum class Display { kNothing, kWarnings, kRealization, kRealizationsDone, kPercentage };

void RecordWarning(VORL_PROGRESSMONITOR* monitor) noexcept {
  if (monitor->nwarning < INT_MAX) ++monitor->nwarning;
  int* const list = monitor->warningNumberList;
  int* const end = list + std::clamp(monitor->nwarningNumber, 0, VORL_MAX_NWARNING);
  if (end == list + VORL_MAX_NWARNING || std::find(list, end, monitor->warningNumber) != end) return;
  *end = monitor->warningNumber;
  ++monitor->nwarningNumber;
}

template <Display display>
int Update(VORL_PROGRESSMONITOR* monitor) noexcept {
  if (monitor->abortedJobFlag) return kAborted;
  if (monitor->warningNumber != 0) {
    if (display != Display::kNothing) {
      std::fputs(VORLGetWarningMessage(monitor->warningNumber), stdout);
      std::fflush(stdout);
    }
    RecordWarning(monitor);
    return 0;
  }
  if (monitor->nrealization == 0 || display == Display::kNothing || display == Display::kWarnings) return 0;
  const char* const name = monitor->progressName;
  const PlainNumbers plainNumbers;
  if (display == Display::kRealization) {
    const double overAll =
        (monitor->currentRealization * 100.0 + monitor->currentRealizationProgress) / monitor->nrealization;
    std::printf("%.*srealization %5lld of %5d: %3d %%, over all: %7.3f %%\n", VORL_MAX_PROGRESS_NAME_LENGTH, name,
                monitor->currentRealization + 1LL, monitor->nrealization, monitor->currentRealizationProgress, overAll);
  } else if (display == Display::kRealizationsDone) {
    std::printf("%.*s%3d %%     /     Realization(s) done: %5d of %5d\n", VORL_MAX_PROGRESS_NAME_LENGTH, name,
                monitor->allRealizationProgress, monitor->currentRealization, monitor->nrealization);
  } else {
    std::printf("%.*s%3d %%\n", VORL_MAX_PROGRESS_NAME_LENGTH, name, monitor->allRealizationProgress);
  }
  std::fflush(stdout);
  return 0;
}

}  // namespace
}  // namespace kestrum

using kestrum::Display;

void VORLInitProgressMonitor(VORL_PROGRESSMONITOR* monitor) noexcept {
  monitor->progressName[0] = '\0';
  monitor->warningNumber = 0;
  monitor->nrealization = 0;
  monitor->currentRealization = 0;
  monitor->currentRealizationProgress = 0;
  monitor->allRealizationProgress = 0;
  monitor->abortedJobFlag = FALSE;
  monitor->nwarningNumber = 0;
  monitor->nwarning = 0;
}

int VORLUpdateProgressMonitor0(VORL_PROGRESSMONITOR* monitor) noexcept {
  return kestrum::Update<Display::kNothing>(monitor);
}

int VORLUpdateProgressMonitor1(VORL_PROGRESSMONITOR* monitor) noexcept {
  return kestrum::Update<Display::kWarnings>(monitor);
}

int VORLUpdateProgressMonitor1GI(VORL_PROGRESSMONITOR* monitor) noexcept {
  return kestrum::Update<Display::kWarnings>(monitor);
}

int VORLUpdateProgressMonitor2(VORL_PROGRESSMONITOR* monitor) noexcept {
  return kestrum::Update<Display::kRealization>(monitor);
}

int VORLUpdateProgressMonitor2GI(VORL_PROGRESSMONITOR* monitor) noexcept {
  return kestrum::Update<Display::kRealization>(monitor);
}

int VORLUpdateProgressMonitor3(VORL_PROGRESSMONITOR* monitor) noexcept {
  return kestrum::Update<Display::kRealizationsDone>(monitor);
}

int VORLUpdateProgressMonitor3GI(VORL_PROGRESSMONITOR* monitor) noexcept {
  return kestrum::Update<Display::kRealizationsDone>(monitor);
}

int VORLUpdateProgressMonitor4(VORL_PROGRESSMONITOR* monitor) noexcept {
  return kestrum::Update<Display::kPercentage>(monitor);
}

int VORLUpdateProgressMonitor4GI(VORL_PROGRESSMONITOR* monitor) noexcept {
  return kestrum::Update<Display::kPercentage>(monitor);
}
