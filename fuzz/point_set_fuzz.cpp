#include <algorithm>

#include "core/point_set.h"
#include "fuzz_target.hpp"
#include "io/point_set_files.h"
#include "support/owned.hpp"

namespace kestrum_fuzz {
namespace {

struct PointSet : kestrum_test::Owned<VORL_POINTSET, VORLInitPointSet, VORLFreePointSet> {
  int Read(std::FILE* stream) { return VORLReadPointSet(this, stream); }
  int Write(std::FILE* stream) {
    char format[] = "%.17g";
    return VORLWritePointSet(this, format, format, stream);
  }
  bool Same(const PointSet& other) const {
    if (npoint != other.npoint || nvar != other.nvar || !SameNames(varName, other.varName, nvar)) return false;
    if (nvar == 0) return true;  // coordinates are not read
    const std::size_t n = static_cast<std::size_t>(std::max(npoint, 0));
    return SameNumbers(x, other.x, n) && SameNumbers(y, other.y, n) && SameNumbers(z, other.z, n) &&
           SameNumbers(var, other.var, n * static_cast<std::size_t>(nvar));
  }
  bool Survives() const { return nvar > 0 && AreWords(varName, nvar); }
};

}  // namespace
}  // namespace kestrum_fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrum_fuzz::TestReader<kestrum_fuzz::PointSet>(kestrum_fuzz::AsText(data, size));
  return 0;
}
