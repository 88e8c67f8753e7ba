#ifndef KESTRUM_FUZZ_IMAGE_RECORD_HPP
#define KESTRUM_FUZZ_IMAGE_RECORD_HPP

#include "core/image.h"
#include "fuzz_target.hpp"

namespace kestrum_fuzz {

// An image that releases itself, without a reader.
struct ImageRecord : VORL_IMAGE {
  ImageRecord() { VORLInitImage(this); }
  ImageRecord(const ImageRecord&) = delete;
  ImageRecord& operator=(const ImageRecord&) = delete;
  ~ImageRecord() { VORLFreeImage(this); }

  // All but spacing and origin, which text rounds.
  bool Same(const ImageRecord& other) const {
    return grid->nx == other.grid->nx && grid->ny == other.grid->ny && grid->nz == other.grid->nz &&
           nvar == other.nvar && nxyzv == other.nxyzv && SameNames(varName, other.varName, nvar) &&
           (nvar < 1 || SameNumbers(var, other.var, static_cast<std::size_t>(nxyzv)));
  }
};

}  // namespace kestrum_fuzz

#endif
