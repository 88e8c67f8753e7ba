#include "core/memory.h"

#include <cstdint>
#include <cstdlib>

#include "core/page_size.hpp"
#include "core/statuses.hpp"

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace kestrum {
namespace {

constexpr int kMaxRank = 4;

// Arrays of any rank: level k is a block of dims[0] * ... * dims[k] entries, the last level holds the data, the others
// pointers into the level below. The data are allocated first, the outermost pointers last.
template <int rank>
void* MallocArray(const std::size_t (&dims)[rank], std::size_t size, int* status) noexcept {
  static_assert(rank <= kMaxRank);
  constexpr int kZeroDimension[] = {-7, -9, -11};
  constexpr int kZeroSize[] = {-8, -10, -12};
  *status = 0;
  std::size_t count[rank];
  for (int k = 0; k < rank; ++k) {
    if (dims[k] == 0) *status = kZeroDimension[rank - 2];
    if (__builtin_mul_overflow(k == 0 ? 1 : count[k - 1], dims[k], &count[k]) && *status == 0) *status = kNoMemory;
  }
  if (size == 0 && (*status == 0 || *status == kNoMemory)) *status = kZeroSize[rank - 2];
  if (*status != 0) return nullptr;

  void* level[rank];
  for (int k = rank - 1; k >= 0; --k) {
    level[k] = VORLMalloc(count[k], k == rank - 1 ? size : sizeof(void*), status);
    if (*status != 0) {
      for (int below = rank - 1; below > k; --below) VORLFree(level[below]);
      return nullptr;
    }
    if (k == rank - 1) continue;
    const std::size_t stride = dims[k + 1] * (k + 1 == rank - 1 ? size : sizeof(void*));
    void** pointers = static_cast<void**>(level[k]);
    char* const start = static_cast<char*>(level[k + 1]);
    for (std::size_t i = 0; i < count[k]; ++i) pointers[i] = start + i * stride;
  }
  return level[0];
}

// The first pointer of each level is the start of the level below.
void FreeArray(void* array, int rank) noexcept {
  if (array == nullptr) return;
  void* level[kMaxRank] = {array};
  for (int k = 1; k < rank; ++k) level[k] = *static_cast<void**>(level[k - 1]);
  for (int k = rank - 1; k >= 0; --k) VORLFree(level[k]);
}

}  // namespace

// Filling fresh memory is mostly page faults: large blocks ask for huge pages where the system hands them out on
// request.
void AskForPages([[maybe_unused]] void* block, [[maybe_unused]] std::size_t bytes,
                 [[maybe_unused]] PageSize size) noexcept {
#if defined(__linux__)
  constexpr std::size_t kFrom = std::size_t{1} << 22;
  constexpr std::uintptr_t kPage = 4096;
  if (bytes < kFrom) return;
  const std::uintptr_t begin = (reinterpret_cast<std::uintptr_t>(block) + kPage - 1) / kPage * kPage;
  const std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(block) + bytes) / kPage * kPage;
  const int advice = size == PageSize::kHuge ? MADV_HUGEPAGE : MADV_NOHUGEPAGE;
  // Advice only: a refusal changes nothing.
  static_cast<void>(madvise(reinterpret_cast<void*>(begin), end - begin, advice));
#endif
}

}  // namespace kestrum

void* VORLMalloc(size_t n, size_t size, int* status) noexcept {
  *status = n == 0 ? kestrum::kNoElement : size == 0 ? kestrum::kNoElementSize : 0;
  if (*status != 0) return nullptr;
  std::size_t bytes = 0;
  void* const block = __builtin_mul_overflow(n, size, &bytes) ? nullptr : std::malloc(bytes);
  if (block == nullptr) {
    *status = kestrum::kNoMemory;
  } else {
    kestrum::AskForPages(block, bytes, kestrum::PageSize::kHuge);
  }
  return block;
}

void* VORLRealloc(void* ptr, size_t n, size_t size, int* status) noexcept {
  if (n == 0 || size == 0) {
    *status = n == 0 ? kestrum::kNoElementToResize : kestrum::kNoElementSizeToResize;
    return ptr;
  }
  std::size_t bytes = 0;
  void* const block = __builtin_mul_overflow(n, size, &bytes) ? nullptr : std::realloc(ptr, bytes);
  // A success leaves *status alone: a failure of an earlier call must survive it.
  if (block != nullptr) return block;
  *status = kestrum::kNoMemoryToResize;
  return ptr;
}

void VORLFree(void* ptr) noexcept { std::free(ptr); }

void** VORLMallocArray2D(size_t n0, size_t n1, size_t size, int* status) noexcept {
  return static_cast<void**>(kestrum::MallocArray({n0, n1}, size, status));
}

void*** VORLMallocArray3D(size_t n0, size_t n1, size_t n2, size_t size, int* status) noexcept {
  return static_cast<void***>(kestrum::MallocArray({n0, n1, n2}, size, status));
}

void**** VORLMallocArray4D(size_t n0, size_t n1, size_t n2, size_t n3, size_t size, int* status) noexcept {
  return static_cast<void****>(kestrum::MallocArray({n0, n1, n2, n3}, size, status));
}

void VORLFreeArray2D(void** array) noexcept { kestrum::FreeArray(array, 2); }

void VORLFreeArray3D(void*** array) noexcept { kestrum::FreeArray(array, 3); }

void VORLFreeArray4D(void**** array) noexcept { kestrum::FreeArray(array, 4); }
