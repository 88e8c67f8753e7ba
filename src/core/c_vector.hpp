#ifndef KESTRUM_CORE_C_VECTOR_HPP
#define KESTRUM_CORE_C_VECTOR_HPP

#include <cstddef>
#include <utility>

#include "core/memory.h"

namespace kestrum {

// Owns a vector of the C interface, whose functions allocate it through slot() or receive it by HandOver().
template <typename T>
class CVector {
 public:
  CVector() = default;
  CVector(const CVector&) = delete;
  CVector& operator=(const CVector&) = delete;
  ~CVector() { VORLFree(data_); }

  // Uninitialised. The status of VORLMalloc; to be called once.
  [[nodiscard]] int Allocate(int n) noexcept {
    int status = 0;
    data_ = static_cast<T*>(VORLMalloc(static_cast<std::size_t>(n), sizeof(T), &status));
    return status;
  }
  T** slot() noexcept { return &data_; }
  T* data() noexcept { return data_; }
  T& operator[](int i) noexcept { return data_[i]; }
  T* HandOver() noexcept { return std::exchange(data_, nullptr); }

 private:
  T* data_ = nullptr;
};

}  // namespace kestrum

#endif
