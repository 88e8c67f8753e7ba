#ifndef KESTRUM_ENGINE_PATH_PROGRESS_HPP
#define KESTRUM_ENGINE_PATH_PROGRESS_HPP

#include <algorithm>
#include <atomic>
#include <cstddef>

#include "core/buffer.hpp"

namespace kestrum {

// How far each thread has come: all positions below `next` of the chunk that it draws have their values. Each count has
// a cache line of its own.
class PathProgress {
 public:
  [[nodiscard]] int Allocate(int nthreads) noexcept {
    return next_.Allocate(static_cast<std::size_t>(std::max(nthreads, 0)) * kLine);
  }
  void Start(int nthreads) noexcept {
    for (int t = 0; t < nthreads; ++t) next_[static_cast<std::size_t>(t) * kLine] = 0;
  }
  void Advance(int thread, int next) noexcept { Place(thread).store(next, std::memory_order_release); }
  int Next(int thread) noexcept { return Place(thread).load(std::memory_order_acquire); }

 private:
  static constexpr std::size_t kLine = 64 / sizeof(int);
  std::atomic_ref<int> Place(int thread) noexcept {
    return std::atomic_ref<int>(next_[static_cast<std::size_t>(thread) * kLine]);
  }
  Buffer<int> next_;
};

}  // namespace kestrum

#endif
