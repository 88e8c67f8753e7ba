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
    if (size > kMost) return kNoMemory;
    block_ = VORLMalloc(size == 0 ? 0 : BytesFor(size), 1, &status);
    if (status != 0) return status;
    data_ = Aligned(block_);
    size_ = size;
    return 0;
  }

  // As Allocate, with every element set to `value`.
  [[nodiscard]] int Allocate(std::size_t size, const T& value) noexcept {
    const int status = Allocate(size);
    for (std::size_t i = 0; i < size_; ++i) data_[i] = value;
    return status;
  }

  // Makes room for `size` elements, no fewer than there are, which stay; fails as Allocate does. Large memory is not
  // copied, but mapped anew. Never inlined: where elements are appended it would keep a search from being one short loop.
  [[nodiscard, gnu::noinline]] int Enlarge(std::size_t size) noexcept {
    if (size_ == 0) return Allocate(size);
    if (size > kMost) return kNoMemory;
    const std::ptrdiff_t offset = reinterpret_cast<char*>(data_) - static_cast<char*>(block_);
    int status = 0;
    void* const block = VORLRealloc(block_, BytesFor(size), 1, &status);
    if (status != 0) return kNoMemory;
    block_ = block;
    data_ = Aligned(block);
    // Between multiples of the alignment the block may begin elsewhere.
    const char* const from = static_cast<char*>(block) + offset;
    if (from != reinterpret_cast<char*>(data_)) std::memmove(data_, from, size_ * sizeof(T));
    size_ = size;
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
  static constexpr std::size_t kMost = (std::numeric_limits<std::size_t>::max() - kAlignment) / sizeof(T);

  static std::size_t BytesFor(std::size_t size) noexcept { return size * sizeof(T) + kAlignment; }
  static T* Aligned(void* block) noexcept {
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    return reinterpret_cast<T*>((address + kAlignment - 1) / kAlignment * kAlignment);
  }

  void* block_ = nullptr;
  T* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace kestrum

#endif
