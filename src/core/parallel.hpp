#ifndef KESTRUM_CORE_PARALLEL_HPP
#define KESTRUM_CORE_PARALLEL_HPP

#include <omp.h>

#include <cstddef>

namespace kestrum {

// The items [begin, end).
struct ItemBlock {
  std::ptrdiff_t begin, end;
};

// Block `i` of the `count` contiguous blocks of [0, n), of which the first n modulo count hold one item more.
constexpr ItemBlock BlockOf(std::ptrdiff_t n, std::ptrdiff_t count, std::ptrdiff_t i) noexcept {
  const std::ptrdiff_t share = n / count;
  const std::ptrdiff_t extra = n % count;
  const std::ptrdiff_t begin = i * share + (i < extra ? i : extra);
  return {begin, begin + share + (i < extra ? 1 : 0)};
}

// The schedule of a loop. A serial function and its threaded form are two entry points into one body that takes a
// Dealing; the serial schedule opens no parallel region. Bodies passed to a Dealing must be noexcept and report
// failures through what they capture.
class Dealing {
 public:
  static constexpr Dealing Serial() noexcept { return Dealing(false, 1); }
  static constexpr Dealing Threads(int nthreads) noexcept { return Dealing(true, nthreads); }

  // A region asks for one thread at least and this many at most: the runtime may end the process for a number that it
  // cannot serve.
  static constexpr int kMaxTeam = 1024;

  // Whether a team has more threads than there are cores for it.
  static bool Crowded(int team) noexcept { return team > omp_get_num_procs(); }

  // As the caller gave it.
  constexpr int nthreads() const noexcept { return nthreads_; }
  // Number of blocks of per-thread scratch that a body needs: as many as asked for, but no more than there can be
  // threads. None if fewer than one was asked for: then the allocation fails.
  constexpr int nscratch() const noexcept { return nthreads_ < 0 ? 0 : nthreads_ < kMaxTeam ? nthreads_ : kMaxTeam; }
  constexpr bool threaded() const noexcept { return threaded_; }

  // For a pass over n items that takes some nanoseconds an item: below this many, waking other threads takes longer, and
  // on busy cores they begin after some milliseconds.
  static constexpr std::ptrdiff_t kWorthATeam = 1 << 17;
  constexpr Dealing ForPass(std::ptrdiff_t n) const noexcept { return n < kWorthATeam ? Serial() : *this; }

  // Runs body(begin, end) on the blocks of [0, n), as many as there are threads, in thread order.
  template <typename Body>
  void Blocks(std::ptrdiff_t n, const Body& body) const noexcept {
    if (!threaded_) {
      if (n > 0) body(std::ptrdiff_t{0}, n);
      return;
    }
#pragma omp parallel num_threads(Team())
    {
      const ItemBlock block = BlockOf(n, omp_get_num_threads(), omp_get_thread_num());
      if (block.begin < block.end) body(block.begin, block.end);
    }
  }

  // Runs body(thread, team) once on each thread of the team, thread 0 to team - 1. The body deals its items out by
  // thread number: item thread, thread + team, and so on. The runtime may give fewer threads than nthreads(), as in a
  // parallel region of the caller's; no item is left out then.
  template <typename Body>
  void EachThread(const Body& body) const noexcept {
    if (!threaded_) {
      body(0, 1);
      return;
    }
#pragma omp parallel num_threads(Team())
    body(omp_get_thread_num(), omp_get_num_threads());
  }

 private:
  constexpr int Team() const noexcept { return nthreads_ < 1 ? 1 : nscratch(); }

  constexpr Dealing(bool threaded, int nthreads) noexcept : threaded_(threaded), nthreads_(nthreads) {}

  bool threaded_;
  int nthreads_;
};

}  // namespace kestrum

#endif
