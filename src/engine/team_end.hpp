#ifndef KESTRUM_ENGINE_TEAM_END_HPP
#define KESTRUM_ENGINE_TEAM_END_HPP

#include <atomic>
#include <chrono>
#include <thread>

namespace kestrum {

// Where the threads of a parallel region that have nothing left to do wait for the others: asleep, so that these have the
// cores. At the end of the region itself they would spin for some 20 ms first.
class TeamEnd {
 public:
  void Start() noexcept { nended_.store(0, std::memory_order_relaxed); }
  // The last that each thread of the team does.
  void Await(int team) noexcept {
    constexpr int kSpins = 1000;
    constexpr std::chrono::microseconds kNap{50};
    nended_.fetch_add(1);
    for (int spin = 0; nended_.load(std::memory_order_relaxed) < team; ++spin) {
      if (spin >= kSpins) std::this_thread::sleep_for(kNap);
    }
  }

 private:
  std::atomic<int> nended_{0};
};

}  // namespace kestrum

#endif
