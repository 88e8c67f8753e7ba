#ifndef KESTRUM_TESTS_SUPPORT_TEST_IMAGE_HPP
#define KESTRUM_TESTS_SUPPORT_TEST_IMAGE_HPP

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "core/image.h"
#include "support/owned.hpp"

namespace kestrum_test {

inline constexpr double kMissing = VORL_MISSING_VALUE;
inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
using Values = std::vector<double>;
using Ints = std::vector<int>;

// An image that releases itself: one that holds nothing, or one with these variables, whose values repeat if they are
// fewer than the image has. The products of the grid's sizes are filled in.
struct TestImage : Owned<VORL_IMAGE, VORLInitImage, VORLFreeImage> {
  TestImage() = default;
  TestImage(VORL_GRID imageGrid, const std::vector<std::string>& names, const std::vector<double>& values) {
    imageGrid.nxy = imageGrid.nx * imageGrid.ny;
    imageGrid.nxyz = imageGrid.nxy * imageGrid.nz;
    if (VORLMallocImage(this, imageGrid.nxyz, static_cast<int>(names.size())) != 0) return;
    *grid = imageGrid;
    nvar = static_cast<int>(names.size());
    nxyzv = nvar * imageGrid.nxyz;
    for (int v = 0; v < nvar; ++v) {
      std::snprintf(varName[v], VORL_VARNAME_LENGTH, "%s", names[static_cast<std::size_t>(v)].c_str());
    }
    for (int i = 0; i < nxyzv; ++i) var[i] = values[static_cast<std::size_t>(i) % values.size()];
  }

  std::vector<double> Values() const { return {var, var + nxyzv}; }
};
using Image = TestImage;

// A grid at the origin.
inline VORL_GRID Grid(int nx, int ny, int nz, double sx = 1.0, double sy = 1.0, double sz = 1.0) {
  return {nx, ny, nz, sx, sy, sz, 0.0, 0.0, 0.0, 0, 0};
}

inline bool SameBits(const double* a, const double* b, std::size_t n) {
  return n == 0 || std::memcmp(a, b, n * sizeof(double)) == 0;
}
inline bool SameBits(const std::vector<double>& a, const std::vector<double>& b) {
  return a.size() == b.size() && SameBits(a.data(), b.data(), a.size());
}

}  // namespace kestrum_test

#endif
