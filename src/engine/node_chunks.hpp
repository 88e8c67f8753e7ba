#ifndef KESTRUM_ENGINE_NODE_CHUNKS_HPP
#define KESTRUM_ENGINE_NODE_CHUNKS_HPP

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "core/parallel.hpp"
#include "engine/ahead_solver.hpp"
#include "engine/run_monitor.hpp"

namespace kestrum {

// Deals the positions first to nnode - 1 of a path out in chunks, for nodes that do not depend on one another: chunk t
// goes to thread t, then t plus the number of threads, and so on. work(thread, begin, end) computes the nodes at the
// positions begin to end - 1; warn(thread, i) then raises the warnings of the chunk's i-th node and gives what the
// callback answers. Progress and warnings are told node by node, in order. Progress is that of a node-by-node deal:
// thread 0 reports its n-th node as the position n times the number of threads. A failure ends the serial form at once;
// the threaded form does all nodes, and the last failure is the result.
template <typename Work, typename Warn>
int ForEachChunk(int nnode, int first, const RunMonitor& monitor, Dealing dealing, const Work& work,
                 const Warn& warn) noexcept {
  constexpr std::int64_t kChunk = AheadSolver::kMaxNode;
  const std::int64_t count = static_cast<std::int64_t>(nnode) - first;
  const std::int64_t nthreads = dealing.nthreads();
  const double unit = 1.0 / count;
  std::atomic<int> word{0};
  dealing.EachThread([&](int thread, int team) noexcept {
    std::int64_t reported = 0;  // by thread 0
    const auto report = [&]() noexcept {
      if (thread != 0 || reported >= count) return true;
      const int status = monitor.Publish(reported * unit);
      reported += nthreads;
      if (status != 0) word.store(status, std::memory_order_relaxed);
      return status == 0 || dealing.threaded();
    };
    for (std::int64_t begin = thread * kChunk; begin < count; begin += team * kChunk) {
      const std::int64_t end = std::min(begin + kChunk, count);
      work(thread, static_cast<int>(first + begin), static_cast<int>(first + end));
      for (std::int64_t i = 0; i < end - begin; ++i) {
        if (!report()) return;
        const int status = warn(thread, static_cast<int>(i));
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
  return dealing.threaded() && monitor.AbortedRun() ? kAborted : 0;
}

}  // namespace kestrum

#endif
