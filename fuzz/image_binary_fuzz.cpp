#include "image_record.hpp"
#include "io/image_files.h"

namespace kestrum_fuzz {
namespace {

struct BinaryImage : ImageRecord {
  int Read(std::FILE* stream) { return VORLReadImageGslibBinary(this, stream); }
  int Write(std::FILE* stream) { return VORLWriteImageGslibBinary(this, stream); }
  bool Survives() const { return true; }
};

}  // namespace
}  // namespace kestrum_fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrum_fuzz::TestReader<kestrum_fuzz::BinaryImage>(kestrum_fuzz::AsText(data, size));
  return 0;
}
