#ifndef KESTRUM_TESTS_SUPPORT_RUN_CALLBACKS_HPP
#define KESTRUM_TESTS_SUPPORT_RUN_CALLBACKS_HPP

#include <vector>

#include "core/progress_monitor.h"

// Progress callbacks that record what they are given.

namespace kestrum_test {

inline std::vector<int> toldPercentages;
inline std::vector<int> toldWarnings;

inline int Collect(VORL_PROGRESSMONITOR* monitor) {
  if (monitor->warningNumber == 0) {
    toldPercentages.push_back(monitor->allRealizationProgress);
  } else {
    toldWarnings.push_back(monitor->warningNumber);
  }
  return 0;
}
inline int StopAtForty(VORL_PROGRESSMONITOR* monitor) {
  Collect(monitor);
  return monitor->allRealizationProgress >= 40 ? -7 : 0;
}
inline int AbortAtForty(VORL_PROGRESSMONITOR* monitor) {
  Collect(monitor);
  if (monitor->allRealizationProgress >= 40) monitor->abortedJobFlag = TRUE;
  return 0;
}

}  // namespace kestrum_test

#endif
