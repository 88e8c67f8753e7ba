#ifndef KESTRUM_PYTHON_CORE_WORKER_HPP
#define KESTRUM_PYTHON_CORE_WORKER_HPP

#include <sched.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace kestrum::python {

// A thread that works for one call after another. It keeps the OpenMP threads of the calls before: the system begins a
// new thread on the core of the one that makes it, and moves it to an idle core only after 4 to 15 ms.
class Worker {
 public:
  struct Idle;

  // Whether this process was forked: the OpenMP threads of the thread that called fork are not in it, and a region there would wait
  // for them for ever. Work for more than one thread needs a worker then.
  static bool InForkedProcess() noexcept;

  // Takes a worker that is idle, or makes one: std::system_error if there can be no further thread.
  static Worker* Take();
  // Gives back a worker whose work has ended. Few stay.
  static void Return(Worker* worker);

  // Begins the work, which must stay until it has ended.
  void Start(const std::function<int()>& work);
  // Waits, and gives whether the work has ended.
  bool EndsWithin(std::chrono::milliseconds period);
  // What the work gave, once it has ended.
  int status() const noexcept { return status_; }

 private:
  // The threads of a worker may use the cores of the thread that made it.
  explicit Worker(const cpu_set_t& cores);
  void Run();
  void Leave();

  cpu_set_t cores_;
  Worker* next_ = nullptr;  // idle
  std::mutex mutex_;
  std::condition_variable changed_;
  const std::function<int()>* work_ = nullptr;
  bool leaves_ = false;
  int status_ = 0;
};

}  // namespace kestrum::python

#endif
