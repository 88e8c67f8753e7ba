#include "core/progress_monitor.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "core/status.h"

namespace {

struct Form {
  int (*update)(VORL_PROGRESSMONITOR*);
  bool printsWarnings;
  const char* progress;  // for the monitor of the test below
};

constexpr char kRealization[] = "Job realization     2 of     4:  50 %, over all:  37.500 %\n";
constexpr char kDone[] = "Job  37 %     /     Realization(s) done:     1 of     4\n";
constexpr char kPercentage[] = "Job  37 %\n";

const Form kForms[] = {
    {VORLUpdateProgressMonitor0, false, ""},
    {VORLUpdateProgressMonitor1, true, ""},
    {VORLUpdateProgressMonitor1GI, true, ""},
    {VORLUpdateProgressMonitor2, true, kRealization},
    {VORLUpdateProgressMonitor2GI, true, kRealization},
    {VORLUpdateProgressMonitor3, true, kDone},
    {VORLUpdateProgressMonitor3GI, true, kDone},
    {VORLUpdateProgressMonitor4, true, kPercentage},
    {VORLUpdateProgressMonitor4GI, true, kPercentage},
};

std::string OutputOf(const Form& form, VORL_PROGRESSMONITOR* monitor, int expectedStatus) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(form.update(monitor), expectedStatus);
  return testing::internal::GetCapturedStdout();
}

}  // namespace

TEST(ProgressMonitor, ProgressLines) {
  for (const Form& form : kForms) {
    VORL_PROGRESSMONITOR monitor;
    VORLInitProgressMonitor(&monitor);
    EXPECT_EQ(OutputOf(form, &monitor, 0), "");
    std::strcpy(monitor.progressName, "Job ");
    monitor.nrealization = 4;
    monitor.currentRealization = 1;
    monitor.currentRealizationProgress = 50;
    monitor.allRealizationProgress = 37;
    EXPECT_EQ(OutputOf(form, &monitor, 0), form.progress);
  }
}

TEST(ProgressMonitor, WarningsAreCountedAndListedOnce) {
  for (const Form& form : kForms) {
    VORL_PROGRESSMONITOR monitor;
    VORLInitProgressMonitor(&monitor);
    monitor.nrealization = 4;  // a call with a warning shows no progress
    const std::vector<int> warnings = {25, 26, 25, 2015, 26};
    for (const int number : warnings) {
      monitor.warningNumber = number;
      EXPECT_EQ(OutputOf(form, &monitor, 0), form.printsWarnings ? VORLGetWarningMessage(number) : "");
      EXPECT_EQ(monitor.warningNumber, number);
    }
    EXPECT_EQ(monitor.nwarning, 5);
    EXPECT_EQ(std::vector<int>(monitor.warningNumberList, monitor.warningNumberList + monitor.nwarningNumber),
              (std::vector<int>{25, 26, 2015}));

    monitor.abortedJobFlag = 2;
    EXPECT_EQ(OutputOf(form, &monitor, -1000), "");
    EXPECT_EQ(monitor.nwarning, 5);
    EXPECT_EQ(monitor.nwarningNumber, 3);
  }
}

TEST(ProgressMonitor, FullListStaysInItsBounds) {
  VORL_PROGRESSMONITOR monitor;
  VORLInitProgressMonitor(&monitor);
  for (monitor.warningNumber = 1; monitor.warningNumber <= 300; ++monitor.warningNumber) {
    EXPECT_EQ(VORLUpdateProgressMonitor0(&monitor), 0);
  }
  EXPECT_EQ(monitor.nwarningNumber, VORL_MAX_NWARNING);
  EXPECT_EQ(monitor.warningNumberList[VORL_MAX_NWARNING - 1], VORL_MAX_NWARNING);
  EXPECT_EQ(monitor.nwarning, 300);
}
