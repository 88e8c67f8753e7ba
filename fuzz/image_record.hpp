#ifndef KESTRUM_FUZZ_IMAGE_RECORD_HPP
#define KESTRUM_FUZZ_IMAGE_RECORD_HPP

#include "core/image.h"
#include "fuzz_target.hpp"
#include "support/owned.hpp"

namespace kestrum_fuzz {

// An image that releases itself, without a reader.
struct ImageRecord : kestrum_test::Owned<VORL_IMAGE, VORLInitImage, VORLFreeImage> {
  // All but spacing and origin, which text rounds.
  bool Same(const ImageRecord& other) const {
    return grid->nx == other.grid->nx && grid->ny == other.grid->ny && grid->nz == other.grid->nz &&
           nvar == other.nvar && nxyzv == other.nxyzv && SameNames(varName, other.varName, nvar) &&
           (nvar < 1 || SameNumbers(var, other.var, static_cast<std::size_t>(nxyzv)));
  }
};

}  // namespace kestrum_fuzz

#endif
