#ifndef KESTRUM_ENGINE_RANDOM_SOURCE_HPP
#define KESTRUM_ENGINE_RANDOM_SOURCE_HPP

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

#include "engine/node_draws.hpp"
#include "numeric/normal_law.hpp"

namespace kestrum {

// The randomness of realizations: the order of nodes, one uniform number for each node of a stretch, and the normal law
// that makes deviates of them. Draw may be called by several threads at a time; the other functions are called between
// stretches.
class RandomSource {
 public:
  // Before anything of realization r.
  virtual void StartRealization(int r) noexcept = 0;
  // Puts nodes into random order. A status ends the run.
  [[nodiscard]] virtual int Shuffle(int* nodes, int n) noexcept = 0;
  // Does what StartRealization(r) and Shuffle would, while another realization is drawn, by one thread; false if it can
  // not. TakeAhead then stands for both calls.
  [[nodiscard]] virtual bool ShuffleAhead(int r, int* nodes, int n) noexcept = 0;
  virtual void TakeAhead(int r) noexcept = 0;
  // Before the draws of a stretch of n nodes at position `first` of the path; pass: of the Gibbs sampler, -1 otherwise.
  virtual void StartStretch(int first, int n, int pass) noexcept = 0;
  // The uniform numbers of n nodes of the stretch, from its i-th on.
  virtual void Draw(int i, int n, const int* nodes, double* number) const noexcept = 0;
  // After them.
  virtual void EndStretch() noexcept = 0;
  virtual const NormalLaw& normal() const noexcept = 0;
  // Whether the first `count` realizations do not depend on one another: copies may draw them then, each any of them.
  virtual bool Independent(int count) const noexcept = 0;
  // A copy in kCopySize bytes, aligned for anything, that needs no destruction.
  static constexpr std::size_t kCopySize = 4096;
  virtual RandomSource* CopyTo(void* place) const noexcept = 0;

 protected:
  ~RandomSource() = default;

  template <typename Source>
  static RandomSource* Copy(const Source& source, void* place) noexcept {
    static_assert(sizeof(Source) <= kCopySize && std::is_trivially_destructible_v<Source>);
    return new (place) Source(source);
  }
};

// The generator of the C interface, reseeded for each realization and node.
class SeededRandom final : public RandomSource {
 public:
  // seed: of the first realization; increment: from one to the next.
  SeededRandom(int seed, int increment) noexcept : seed_(seed), increment_(increment) {
    VORLInitRandContext(&context_);
  }

  void StartRealization(int r) noexcept override {
    realizationSeed_ = SeedOf(r);
    VORLDoubleRand(realizationSeed_, &context_);
  }
  [[nodiscard]] int Shuffle(int* nodes, int n) noexcept override { return VORLPathRandom(n, nodes, &context_); }
  bool ShuffleAhead(int r, int* nodes, int n) noexcept override {
    // A seed of 0 goes on where the realization before stops.
    if (SeedOf(r) == 0) return false;
    VORLInitRandContext(&ahead_);
    VORLDoubleRand(SeedOf(r), &ahead_);
    return VORLPathRandom(n, nodes, &ahead_) == 0;
  }
  void TakeAhead(int r) noexcept override {
    realizationSeed_ = SeedOf(r);
    context_ = ahead_;
  }
  void StartStretch(int first, int n, int pass) noexcept override {
    const unsigned offset = static_cast<unsigned>(pass < 0 ? 0 : pass) * static_cast<unsigned>(n);
    const int firstSeed = WrappingSum(realizationSeed_, first);
    draws_ = NodeDraws(WrappingSum(firstSeed, static_cast<int>(offset)), context_);
    n_ = n;
  }
  void Draw(int i, int n, const int*, double* number) const noexcept override { draws_.Draw(i, n, number); }
  // For a next seed of 0, which does not reseed.
  void EndStretch() noexcept override { context_ = draws_.After(n_); }
  const NormalLaw& normal() const noexcept override { return kTabulatedNormal; }
  bool Independent(int count) const noexcept override {
    for (int r = 1; r < count; ++r) {
      if (SeedOf(r) == 0) return false;
    }
    return true;
  }
  RandomSource* CopyTo(void* place) const noexcept override { return Copy(*this, place); }

 private:
  int SeedOf(int r) const noexcept {
    return WrappingSum(seed_, static_cast<int>(static_cast<unsigned>(r) * static_cast<unsigned>(increment_)));
  }

  int seed_;
  int increment_;
  int realizationSeed_ = 0;
  int n_ = 0;
  VORL_RANDCONTEXT context_;
  VORL_RANDCONTEXT ahead_;  // after the shuffle of the next realization
  NodeDraws draws_{0, {}};
};

}  // namespace kestrum

#endif
