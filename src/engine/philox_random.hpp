#ifndef KESTRUM_ENGINE_PHILOX_RANDOM_HPP
#define KESTRUM_ENGINE_PHILOX_RANDOM_HPP

#include <algorithm>
#include <utility>

#include "engine/random_source.hpp"
#include "numeric/philox.hpp"

namespace kestrum {

// Randomness that depends on seed, realization and node alone: realizations are independent of one another, and each is
// the same whichever others are drawn.
class PhiloxRandom final : public RandomSource {
 public:
  // first: number of the first realization.
  PhiloxRandom(std::uint64_t seed, std::uint32_t first) noexcept : seed_(seed), first_(first) {}

  void StartRealization(int r) noexcept override {
    realization_ = first_ + static_cast<std::uint32_t>(r);
    nshuffle_ = 0;
  }

  // Of Durstenfeld (1964): each place but the last swaps with one at or below it. The places are drawn ahead of the
  // swaps, so that memory can be fetched meanwhile.
  [[nodiscard]] int Shuffle(int* nodes, int n) noexcept override {
    constexpr int kAhead = 64;
    int place[kAhead];
    for (int left = n; left > 1;) {
      const int count = std::min(kAhead, left - 1);
      PhiloxBlock block{};
      for (int i = 0; i < count; ++i) {
        const auto step = static_cast<std::uint32_t>(n - left + i);
        if (i % 2 == 0) block = Philox({step, realization_, nshuffle_, kShuffle}, seed_);
        place[i] = Below(PhiloxWord(block, i % 2), left - i);
        __builtin_prefetch(&nodes[place[i]], 1);
      }
      for (int i = 0; i < count; ++i) std::swap(nodes[left - 1 - i], nodes[place[i]]);
      left -= count;
    }
    ++nshuffle_;
    return 0;
  }

  void StartStretch(int, int, int pass) noexcept override { stretch_ = static_cast<std::uint32_t>(pass + 1); }
  double Draw(int, int node) const noexcept override {
    const PhiloxBlock block = Philox({static_cast<std::uint32_t>(node), realization_, stretch_, kDraw}, seed_);
    return OpenUniform(PhiloxWord(block, 0));
  }
  void EndStretch() noexcept override {}
  const NormalLaw& normal() const noexcept override { return kExactNormal; }

 private:
  static constexpr std::uint32_t kDraw = 0;
  static constexpr std::uint32_t kShuffle = 1;

  // A number from 0 to n - 1, each as likely as the others to one part in 2^33.
  static int Below(std::uint64_t word, int n) noexcept {
    const auto factor = static_cast<std::uint64_t>(n);
    const std::uint64_t carry = (word & 0xFFFFFFFF) * factor >> 32;
    return static_cast<int>(((word >> 32) * factor + carry) >> 32);
  }

  std::uint64_t seed_;
  std::uint32_t first_;
  std::uint32_t realization_ = 0;
  std::uint32_t nshuffle_ = 0;
  std::uint32_t stretch_ = 0;
};

}  // namespace kestrum

#endif
