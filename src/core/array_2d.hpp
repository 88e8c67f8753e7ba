#ifndef KESTRUM_CORE_ARRAY_2D_HPP
#define KESTRUM_CORE_ARRAY_2D_HPP

#include <cstddef>

#include "core/memory.h"

namespace kestrum {

// An array of VORLMallocArray2D, released by its destructor. The entries are not cleared.
template <typename T>
class Array2D {
 public:
  Array2D() = default;
  Array2D(const Array2D&) = delete;
  Array2D& operator=(const Array2D&) = delete;
  ~Array2D() { VORLFreeArray2D(reinterpret_cast<void**>(rows_)); }

  // To be called once.
  [[nodiscard]] int Allocate(std::size_t n0, std::size_t n1) noexcept {
    int status = 0;
    rows_ = reinterpret_cast<T**>(VORLMallocArray2D(n0, n1, sizeof(T), &status));
    return status;
  }

  T** rows() noexcept { return rows_; }

 private:
  T** rows_ = nullptr;
};

}  // namespace kestrum

#endif
