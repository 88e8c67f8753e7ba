#ifndef KESTRUM_CORE_STEP_ITEMS_HPP
#define KESTRUM_CORE_STEP_ITEMS_HPP

#include <atomic>
#include <cstdint>
#include <thread>

#include "core/progress.hpp"

namespace kestrum {

// Work in steps, each of some items, shared by the threads of one parallel region: those of a step begin once all items
// of the steps before are done. Threads take items one by one, in order; who must wait lets other threads have the
// core. A thread that has no core keeps nobody waiting but for the item it has taken.
class StepItems {
 public:
  // The work ends early if the job is asked to stop.
  explicit StepItems(const Progress& progress) noexcept : progress_(progress) {}

  // One of the threads. All of them go through the same steps.
  class Worker {
   public:
    explicit Worker(StepItems& shared) noexcept : shared_(shared) { Take(); }

    // Calls body(item) for those of the next step's n items that this thread takes. A body that gives false ends the
    // work. Returns whether it goes on.
    template <typename Body>
    bool Step(std::int64_t n, const Body& body) noexcept {
      while (taken_ < first_ + n) {
        while (shared_.done_.load(std::memory_order_acquire) < first_) {
          if (shared_.ended()) return false;
          std::this_thread::yield();
        }
        if (shared_.ended()) return false;
        if (!body(taken_ - first_) || shared_.progress_.Aborted()) {
          shared_.ended_.store(true, std::memory_order_relaxed);
          return false;
        }
        shared_.done_.fetch_add(1, std::memory_order_acq_rel);
        Take();
      }
      first_ += n;
      return true;
    }

   private:
    void Take() noexcept { taken_ = shared_.next_.fetch_add(1, std::memory_order_relaxed); }

    StepItems& shared_;
    std::int64_t first_ = 0;  // number of the step's first item
    std::int64_t taken_;
  };

  // Whether the work ended early.
  bool ended() const noexcept { return ended_.load(std::memory_order_relaxed); }

 private:
  const Progress& progress_;
  std::atomic<bool> ended_{false};
  // Items are numbered through all steps.
  alignas(64) std::atomic<std::int64_t> next_{0};
  alignas(64) std::atomic<std::int64_t> done_{0};
};

}  // namespace kestrum

#endif
