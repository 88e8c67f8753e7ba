#ifndef KESTRUM_ENGINE_PHILOX_RANDOM_HPP
#define KESTRUM_ENGINE_PHILOX_RANDOM_HPP

#include "engine/random_source.hpp"
#include "numeric/philox.hpp"
#include "numeric/shuffle.hpp"

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

  [[nodiscard]] int Shuffle(int* nodes, int n) noexcept override {
    ShuffleOf(realization_, nshuffle_++, nodes, n);
    return 0;
  }
  bool ShuffleAhead(int r, int* nodes, int n) noexcept override {
    ShuffleOf(first_ + static_cast<std::uint32_t>(r), 0, nodes, n);
    return true;
  }
  void TakeAhead(int r) noexcept override {
    StartRealization(r);
    nshuffle_ = 1;
  }

  void StartStretch(int, int, int pass) noexcept override { stretch_ = static_cast<std::uint32_t>(pass + 1); }
  void Draw(int, int n, const int* nodes, double* number) const noexcept override {
    for (int k = 0; k < n; ++k) {
      const PhiloxBlock block = Philox({static_cast<std::uint32_t>(nodes[k]), realization_, stretch_, kDraw}, seed_);
      number[k] = OpenUniform(PhiloxWord(block, 0));
    }
  }
  void EndStretch() noexcept override {}
  const NormalLaw& normal() const noexcept override { return kExactNormal; }
  bool Independent(int) const noexcept override { return true; }
  RandomSource* CopyTo(void* place) const noexcept override { return Copy(*this, place); }

 private:
  static constexpr std::uint32_t kDraw = 0;
  static constexpr std::uint32_t kShuffle = 1;

  void ShuffleOf(std::uint32_t realization, std::uint32_t number, int* nodes, int n) const noexcept {
    PhiloxBlock block{};
    std::uint32_t step = 0;
    kestrum::Shuffle(n, nodes, [&](int left) {
      if (step % 2 == 0) block = Philox({step, realization, number, kShuffle}, seed_);
      return Below(PhiloxWord(block, static_cast<int>(step++ % 2)), left);
    });
  }

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
