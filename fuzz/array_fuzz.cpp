#include "core/memory.h"
#include "fuzz_target.hpp"
#include "io/point_set_files.h"

namespace kestrum_fuzz {
namespace {

struct Array {
  Array() = default;
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;
  ~Array() { VORLFreeArray2D(reinterpret_cast<void**>(rows)); }

  int Read(std::FILE* stream) { return VORLReadArray2D(&nrow, &ncol, &rows, stream); }
  int Write(std::FILE* stream) {
    char format[] = "%.17g";
    return VORLWriteArray2D(nrow, ncol, rows, format, stream);
  }
  bool Same(const Array& other) const {
    return nrow == other.nrow && ncol == other.ncol &&
           SameNumbers(rows[0], other.rows[0], static_cast<std::size_t>(nrow) * static_cast<std::size_t>(ncol));
  }
  bool Survives() const { return true; }

  int nrow = 0;
  int ncol = 0;
  real** rows = nullptr;
};

}  // namespace
}  // namespace kestrum_fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrum_fuzz::TestReader<kestrum_fuzz::Array>(kestrum_fuzz::AsText(data, size));
  return 0;
}
