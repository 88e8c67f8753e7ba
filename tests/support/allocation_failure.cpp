#include "support/allocation_failure.hpp"

#include <atomic>
#include <cstddef>

namespace {

std::atomic<long> allocations_until_failure{-1};
std::atomic<long long> bytes_asked_for{0};

bool ThisOneFails(std::size_t size) {
  bytes_asked_for += static_cast<long long>(size);
  return allocations_until_failure >= 0 && allocations_until_failure.fetch_sub(1) == 0;
}

}  // namespace

namespace kestrum_test {

FailAllocation::FailAllocation(long k) { allocations_until_failure = k; }
FailAllocation::~FailAllocation() { allocations_until_failure = -1; }
bool FailAllocation::Happened() const { return allocations_until_failure < 0; }

long long BytesAllocatedBy(const std::function<void()>& call) {
  const long long before = bytes_asked_for;
  call();
  return bytes_asked_for - before;
}

}  // namespace kestrum_test

// The linker's --wrap sends the program's calls of malloc to __wrap_malloc, and __real_malloc to malloc.
extern "C" {
void* __real_malloc(std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);

void* __wrap_malloc(std::size_t size) { return ThisOneFails(size) ? nullptr : __real_malloc(size); }
void* __wrap_realloc(void* block, std::size_t size) {
  return ThisOneFails(size) ? nullptr : __real_realloc(block, size);
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return ThisOneFails(count * size) ? nullptr : __real_calloc(count, size);
}
}
