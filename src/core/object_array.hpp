#ifndef KESTRUM_CORE_OBJECT_ARRAY_HPP
#define KESTRUM_CORE_OBJECT_ARRAY_HPP

#include <cstddef>
#include <new>

#include "core/memory.h"

namespace kestrum {

// A fixed number of default-constructed objects that own something, in memory from VORLMalloc: scratch per thread,
// records per category.
template <typename T>
class ObjectArray {
 public:
  ObjectArray() = default;
  ObjectArray(const ObjectArray&) = delete;
  ObjectArray& operator=(const ObjectArray&) = delete;
  ~ObjectArray() {
    for (std::size_t i = size_; i > 0; --i) objects_[i - 1].~T();
    VORLFree(objects_);
  }

  // Once per array. A count below 1 fails as VORLMalloc fails for no element (-3).
  [[nodiscard]] int Allocate(int count) noexcept {
    static_assert(alignof(T) <= alignof(std::max_align_t));
    const std::size_t size = count > 0 ? static_cast<std::size_t>(count) : 0;
    int status = 0;
    objects_ = static_cast<T*>(VORLMalloc(size, sizeof(T), &status));
    if (status != 0) return status;
    for (; size_ < size; ++size_) new (objects_ + size_) T();
    return 0;
  }

  std::size_t size() const noexcept { return size_; }
  T* data() noexcept { return objects_; }
  T& operator[](std::size_t i) noexcept { return objects_[i]; }
  const T& operator[](std::size_t i) const noexcept { return objects_[i]; }
  T* begin() noexcept { return objects_; }
  T* end() noexcept { return objects_ + size_; }

 private:
  T* objects_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace kestrum

#endif
