#ifndef KESTRUM_CORE_PROGRESS_HPP
#define KESTRUM_CORE_PROGRESS_HPP

#include <atomic>
#include <climits>
#include <cstddef>

#include "core/progress_monitor.h"
#include "core/statuses.hpp"

namespace kestrum {

using ProgressCallback = int (*)(VORL_PROGRESSMONITOR*);

// What a run reports to its caller, and asks of it: progress, warnings, and whether to continue. Monitor and callback
// may be null. In a threaded run every store into the monitor and every call of the callback are in one critical
// section, so that the callback is never called from two threads at once.
class Progress {
 public:
  // threaded: several threads may report at a time. prompt: a threaded run stops at once if it is asked to, and not only
  // where it ends a region.
  Progress(VORL_PROGRESSMONITOR* monitor, ProgressCallback callback, bool threaded = false,
           bool prompt = false) noexcept
      : monitor_(monitor), callback_(callback), threaded_(threaded), prompt_(prompt) {}

  // For a thread of a team, of which one reports progress; all raise warnings. They stop at once where halt is not 0.
  Progress OfTeam(bool reports, const std::atomic<int>& halt) const noexcept {
    Progress progress = *this;
    progress.reports_ = reports;
    progress.halt_ = &halt;
    return progress;
  }

  // For a step of a realization, which takes it from one part (0 to 1) to another.
  Progress Step(double begin, double end) const noexcept {
    Progress progress = *this;
    progress.begin_ = begin_ + begin * length_;
    progress.length_ = (end - begin) * length_;
    return progress;
  }

  // For work that says nothing of how far it is, since others do.
  Progress Silent() const noexcept {
    Progress progress = *this;
    progress.reports_ = false;
    return progress;
  }

  void StartRealizations(int nrealization) const noexcept {
    if (monitor_ != nullptr) monitor_->nrealization = nrealization;
  }

  void FinishRealization() const noexcept {
    if (monitor_ != nullptr && monitor_->currentRealization < INT_MAX) ++monitor_->currentRealization;
  }

  // Whether the job has been asked to stop. The flag may be set from another thread at any time.
  bool Aborted() const noexcept {
    return monitor_ != nullptr &&
           std::atomic_ref<BOOLEAN>(monitor_->abortedJobFlag).load(std::memory_order_relaxed) != 0;
  }

  // 0, or kAborted if the job is to stop at once.
  [[nodiscard]] int Interruption() const noexcept {
    const bool halted = halt_ != nullptr && halt_->load(std::memory_order_relaxed) != 0;
    return halted || (prompt_ && Aborted()) ? kAborted : 0;
  }

  // A step's status, or kAborted if the job has been asked to stop meanwhile.
  [[nodiscard]] int After(int status) const noexcept {
    if (status != 0) return status;
    return Aborted() ? kAborted : 0;
  }

  // Reports that a part (0 to 1) of the current realization is done, if the whole percentage over all realizations has
  // grown. Gives the callback's result. Only one thread of a region may call it.
  [[nodiscard]] int Report(double part) const noexcept {
    bool grown;
    return Report(part, grown);
  }

  // The same, where the report can find that the job is to stop: gives 0, the callback's result, or kAborted.
  [[nodiscard]] int Publish(double part) const noexcept {
    bool grown;
    const int status = Report(part, grown);
    return grown ? After(status) : status;
  }

  // Whether a thread goes on with item `i` of n. One thread of a region reports that the items before it are done; the
  // callback's result does not count.
  [[nodiscard]] bool GoesOn(bool reports, std::ptrdiff_t i, std::ptrdiff_t n) const noexcept {
    if (reports) static_cast<void>(Report(static_cast<double>(i) / static_cast<double>(n)));
    return !Aborted();
  }

  // Raises a warning and gives the callback's result. A set abort flag is found at the next test.
  int Warn(int number) const noexcept {
    if (monitor_ == nullptr) return 0;
    return OneAtATime([&]() noexcept {
      monitor_->warningNumber = number;
      const int status = callback_ == nullptr ? 0 : callback_(monitor_);
      monitor_->warningNumber = 0;
      return status;
    });
  }

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

  int Report(double part, bool& grown) const noexcept {
    grown = false;
    if (monitor_ == nullptr || !reports_) return 0;
    const double percentage =
        (monitor_->currentRealization + (begin_ + part * length_)) * 100.0 / monitor_->nrealization;
    // A caller may have set the counters so that this is not a number.
    if (!(percentage >= 0.0)) return 0;
    const int whole = percentage < INT_MAX ? static_cast<int>(percentage) : INT_MAX;
    if (whole <= monitor_->allRealizationProgress) return 0;
    grown = true;
    return OneAtATime([&]() noexcept {
      monitor_->allRealizationProgress = whole;
      return callback_ != nullptr ? callback_(monitor_) : 0;
    });
  }

  VORL_PROGRESSMONITOR* monitor_;
  ProgressCallback callback_;
  bool threaded_;
  bool prompt_;
  bool reports_ = true;
  double begin_ = 0.0;  // of a step, in the realization
  double length_ = 1.0;
  const std::atomic<int>* halt_ = nullptr;
};

// Keeps a failure: a later success does not hide it.
inline void KeepFailure(int status, int* kept) noexcept {
  if (status != 0) *kept = status;
}

}  // namespace kestrum

#endif
