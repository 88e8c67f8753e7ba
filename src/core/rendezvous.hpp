#ifndef KESTRUM_CORE_RENDEZVOUS_HPP
#define KESTRUM_CORE_RENDEZVOUS_HPP

#include <atomic>
#include <chrono>
#include <thread>

namespace kestrum {

// Where the threads of a region wait until all have come, any number of times: what each wrote before is read by the
// others after. A thread that waits for a few tenths of a millisecond has no core for the one it waits for, and sleeps.
class Rendezvous {
 public:
  // crowded: whether there are more threads than cores
  void Await(int team, bool crowded) noexcept {
    const int spins = crowded ? 1000 : 300000;
    constexpr std::chrono::microseconds kNap{50};
    const unsigned round = round_.load();
    if (narrived_.fetch_add(1) + 1 == team) {
      narrived_.store(0);
      round_.store(round + 1);
      return;
    }
    for (int spin = 0; round_.load() == round; ++spin) {
      if (spin >= spins) std::this_thread::sleep_for(kNap);
    }
  }

 private:
  std::atomic<int> narrived_{0};
  std::atomic<unsigned> round_{0};
};

}  // namespace kestrum

#endif
