#ifndef KESTRUM_CORE_GROWING_BUFFER_HPP
#define KESTRUM_CORE_GROWING_BUFFER_HPP

#include <cstddef>

#include "core/buffer.hpp"

namespace kestrum {

// A buffer for elements whose announced number may be wrong: memory is allocated as they come.
template <typename T>
class GrowingBuffer {
 public:
  // Calls fill(element) for `count` further elements, in turn, until one gives a status other than 0. The result is
  // this status, or that of a failing allocation.
  template <typename Fill>
  [[nodiscard]] int Append(std::size_t count, const Fill& fill) noexcept {
    for (; count > 0; --count) {
      if (size_ == room_.size()) {
        if (const int status = room_.Enlarge(size_ == 0 ? kFirstRoom : 2 * size_); status != 0) return status;
      }
      if (const int status = fill(&room_[size_]); status != 0) return status;
      ++size_;
    }
    return 0;
  }

  std::size_t size() const noexcept { return size_; }
  const T* data() const noexcept { return room_.data(); }
  const T& operator[](std::size_t i) const noexcept { return room_[i]; }

 private:
  static constexpr std::size_t kFirstRoom = 1 << 10;

  Buffer<T> room_;
  std::size_t size_ = 0;
};

}  // namespace kestrum

#endif
