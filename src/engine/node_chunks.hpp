#ifndef KESTRUM_ENGINE_NODE_CHUNKS_HPP
#define KESTRUM_ENGINE_NODE_CHUNKS_HPP

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "engine/problem.hpp"
#include "engine/system_solver.hpp"

namespace kestrum {

// Deals the nodes to compute out in chunks, for nodes that do not depend on one another: chunk t goes to thread t, then
// t plus the number of threads, and so on. work(thread, nodes, count) computes the nodes of a chunk; warn(thread, i)
// then raises the warnings of the chunk's i-th node and gives what the callback answers. Progress and warnings are
// reported node by node, in order. Progress is that of a node-by-node deal: thread 0 reports its n-th node as the
// position n times the number of threads. A failure ends the serial form at once; the threaded form does all nodes, and
// the last failure is the result. A set abort flag ends the threaded form before the next chunk.
template <typename Work, typename Warn>
int ForEachChunk(const Problem& problem, const Work& work, const Warn& warn) noexcept {
  constexpr std::int64_t kChunk = kMaxChunk;
  const int first = problem.path.firstSimulated;
  const Progress& progress = problem.progress();
  const Dealing dealing = problem.dealing();
  const std::int64_t count = static_cast<std::int64_t>(problem.path.nnode) - first;
  const std::int64_t nthreads = dealing.nthreads();
  const double unit = 1.0 / count;
  std::atomic<int> word{0};
  dealing.EachThread([&](int thread, int team) noexcept {
    std::int64_t reported = 0;  // by thread 0
    const auto report = [&]() noexcept {
      if (thread != 0 || reported >= count) return true;
      const int status = progress.Publish(reported * unit);
      reported += nthreads;
      if (status != 0) word.store(status, std::memory_order_relaxed);
      return status == 0 || dealing.threaded();
    };
    for (std::int64_t begin = thread * kChunk; begin < count; begin += team * kChunk) {
      if (dealing.threaded() && progress.Aborted()) return;
      const int n = static_cast<int>(std::min(kChunk, count - begin));
      work(thread, problem.path.nodes + first + begin, n);
      for (int i = 0; i < n; ++i) {
        if (!report()) return;
        const int status = warn(thread, i);
        // The serial form goes on whatever the callback answers to a warning.
        if (status != 0 && dealing.threaded()) word.store(status, std::memory_order_relaxed);
      }
    }
    while (thread == 0 && reported < count) {
      if (!report()) return;
    }
  });
  if (const int status = word.load(); status != 0) return status;
  // The serial form looks at the flag where it reports progress.
  return dealing.threaded() ? progress.After(0) : 0;
}

}  // namespace kestrum

#endif
