#ifndef KESTRUM_CORE_BUFFER_HPP
#define KESTRUM_CORE_BUFFER_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <utility>

#include "core/memory.h"
#include "core/statuses.hpp"

namespace kestrum {

// A vector from VORLMalloc, released by its destructor. The data are not cleared. The start is 64-byte aligned, so
// that it can feed SIMD kernels.
template <typename T>
class Buffer {
  static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);

 public:
  Buffer() = default;
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  Buffer(Buffer&& other) noexcept
      : block_(std::exchange(other.block_, nullptr)),
        data_(std::exchange(other.data_, nullptr)),
        size_(std::exchange(other.size_, 0)) {}
  Buffer& operator=(Buffer&& other) noexcept {
    std::swap(block_, other.block_);
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
    return *this;
  }
  ~Buffer() { VORLFree(block_); }

  // Replaces what the buffer holds by `size` uninitialised elements. A size of 0 and an overflowing size fail as
  // VORLMalloc fails (-3, -1).
  [[nodiscard]] int Allocate(std::size_t size) noexcept {
    Release();
    int status = 0;
    if (size > (std::numeric_limits<std::size_t>::max() - kAlignment) / sizeof(T)) return kNoMemory;
    const std::size_t bytes = size == 0 ? 0 : size * sizeof(T) + kAlignment;
    block_ = VORLMalloc(bytes, 1, &status);
    if (status != 0) return status;
    const auto address = reinterpret_cast<std::uintptr_t>(block_);
    data_ = reinterpret_cast<T*>((address + kAlignment - 1) / kAlignment * kAlignment);
    size_ = size;
    return 0;
  }

  // As Allocate, with every element set to `value`.
  [[nodiscard]] int Allocate(std::size_t size, const T& value) noexcept {
    const int status = Allocate(size);
    for (std::size_t i = 0; i < size_; ++i) data_[i] = value;
    return status;
  }

  // Makes room for `size` elements, no fewer than there are, which stay. Never inlined: where elements are appended it
  // would keep a search from being one short loop.
  [[nodiscard, gnu::noinline]] int Enlarge(std::size_t size) noexcept {
    Buffer larger;
    if (const int status = larger.Allocate(size); status != 0) return status;
    if (size_ > 0) std::memcpy(larger.data_, data_, size_ * sizeof(T));
    *this = std::move(larger);
    return 0;
  }

  void Release() noexcept {
    VORLFree(block_);
    block_ = nullptr;
    data_ = nullptr;
    size_ = 0;
  }

  T* data() noexcept { return data_; }
  const T* data() const noexcept { return data_; }
  std::size_t size() const noexcept { return size_; }
  T* begin() noexcept { return data_; }
  T* end() noexcept { return data_ + size_; }
  const T* begin() const noexcept { return data_; }
  const T* end() const noexcept { return data_ + size_; }
  T& operator[](std::size_t i) noexcept { return data_[i]; }
  const T& operator[](std::size_t i) const noexcept { return data_[i]; }
  explicit operator bool() const noexcept { return data_ != nullptr; }

 private:
  static constexpr std::size_t kAlignment = 64;
  void* block_ = nullptr;
  T* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace kestrum

#endif
