#include "core/text.h"
#include "image_record.hpp"
#include "io/image_files.h"

namespace kestrum_fuzz {
namespace {

enum Format { kGslib, kVtk, kPgm, kPpm };

template <int kFormat>
struct TextImage : ImageRecord {
  int Read(std::FILE* stream) { return VORLReadImage(this, kFormat, stream); }
  int Write(std::FILE* stream) {
    char format[] = "%.17g";
    return VORLWriteImage(this, format, kFormat, stream);
  }
  // Header lines hold numbers printed with "%f", and in VTK all the names, of which there must be one.
  bool Survives() const {
    for (const double number : {grid->sx, grid->sy, grid->sz, grid->ox, grid->oy, grid->oz}) {
      if (!(std::fabs(number) < 1e15)) return false;
    }
    if (kFormat != kVtk) return AreWords(varName, nvar);
    std::size_t length = 0;
    for (int v = 0; v < nvar; ++v) length += std::strlen(varName[v]) + 1;
    return length > 1 && length < VORL_LINE_LENGTH - 40;
  }
};

}  // namespace
}  // namespace kestrum_fuzz

using namespace kestrum_fuzz;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes = AsText(data, size);
  TestReader<TextImage<kGslib>>(bytes);
  TestReader<TextImage<kVtk>>(bytes);
  TestReader<TextImage<kPgm>>(bytes);
  TestReader<TextImage<kPpm>>(bytes);
  return 0;
}
