#include "worker.hpp"

#include <pthread.h>

#include <thread>

namespace kestrum::python {

struct Worker::Idle {
  static constexpr int kMost = 4;  // each keeps the threads of its largest call
  std::mutex mutex;
  Worker* first = nullptr;
  int count = 0;
};

namespace {

// Never destroyed: the threads are there until the process ends. A process that is forked has none of them.
Worker::Idle* idle = new Worker::Idle;
bool forked = false;
[[maybe_unused]] const int registered = pthread_atfork(nullptr, nullptr, [] {
  idle = new Worker::Idle;
  forked = true;
});

}  // namespace

bool Worker::InForkedProcess() noexcept { return forked; }

Worker* Worker::Take() {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  sched_getaffinity(0, sizeof cores, &cores);
  {
    const std::lock_guard lock(idle->mutex);
    while (Worker* const worker = idle->first) {
      idle->first = worker->next_;
      --idle->count;
      if (CPU_EQUAL(&worker->cores_, &cores)) return worker;
      worker->Leave();
    }
  }
  return new Worker(cores);
}

void Worker::Return(Worker* worker) {
  const std::lock_guard lock(idle->mutex);
  if (idle->count == Idle::kMost) return worker->Leave();
  worker->next_ = idle->first;
  idle->first = worker;
  ++idle->count;
}

Worker::Worker(const cpu_set_t& cores) : cores_(cores) { std::thread(&Worker::Run, this).detach(); }

void Worker::Leave() {
  const std::lock_guard lock(mutex_);
  leaves_ = true;
  changed_.notify_all();
}

void Worker::Start(const std::function<int()>& work) {
  const std::lock_guard lock(mutex_);
  work_ = &work;
  changed_.notify_all();
}

bool Worker::EndsWithin(std::chrono::milliseconds period) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, period, [&] { return work_ == nullptr; });
}

void Worker::Run() {
  for (std::unique_lock lock(mutex_);;) {
    changed_.wait(lock, [&] { return work_ != nullptr || leaves_; });
    if (leaves_) break;
    lock.unlock();
    const int status = (*work_)();
    lock.lock();
    status_ = status;
    work_ = nullptr;
    changed_.notify_all();
  }
  delete this;
}

}  // namespace kestrum::python
