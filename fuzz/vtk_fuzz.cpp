#include <vector>

#include "core/integers.hpp"
#include "fuzz_target.hpp"
#include "io/exact_files.hpp"
#include "io/vtk_files.hpp"

namespace kestrum_fuzz {
namespace {

struct Vtk {
  kestrum::VtkImage image;

  int Read(std::FILE* stream) {
    const int fault = static_cast<int>(kestrum::ReadVtkImage(stream, &image));
    std::size_t expected = 0;
    for (std::size_t i = 0; i < image.arrays.size(); ++i) expected += count() * components(i);
    Require(fault != 0 || expected == image.values.size(), "arrays have all their values");
    return fault;
  }
  std::size_t components(std::size_t i) const { return static_cast<std::size_t>(image.arrays[i].components); }
  std::size_t count() const {
    const auto along = [this](int axis) { return image.points[axis] - (image.inCells && image.points[axis] > 1); };
    return static_cast<std::size_t>(kestrum::CountOf(along(0), along(1), along(2)));
  }
  double Corner(int axis) const { return image.origin[axis] - 0.5 * image.spacing[axis]; }
  int Write(std::FILE* stream) {
    VORL_GRID grid{};
    grid.nx = image.points[0];
    grid.ny = image.points[1];
    grid.nz = image.points[2];
    grid.nxyz = static_cast<int>(count());
    grid.sx = image.spacing[0];
    grid.sy = image.spacing[1];
    grid.sz = image.spacing[2];
    grid.ox = Corner(0);
    grid.oy = Corner(1);
    grid.oz = Corner(2);
    std::vector<const char*> names;
    std::vector<const double*> data;
    for (std::size_t i = 0; i < image.arrays.size(); ++i) {
      names.push_back(image.arrays[i].name);
      data.push_back(image.values.data() + i * count());
    }
    return kestrum::WriteVtkGrid(grid, {static_cast<int>(names.size()), count(), names.data(), data.data()}, stream);
  }
  bool Same(const Vtk& other) const {
    if (image.arrays.size() != other.image.arrays.size() || image.values.size() != other.image.values.size() ||
        std::memcmp(image.points, other.image.points, sizeof(image.points)) != 0 ||
        !SameNumbers(image.origin, other.image.origin, 3) || !SameNumbers(image.spacing, other.image.spacing, 3)) {
      return false;
    }
    for (std::size_t i = 0; i < image.arrays.size(); ++i) {
      if (std::strcmp(image.arrays[i].name, other.image.arrays[i].name) != 0 || components(i) != other.components(i))
        return false;
    }
    return SameNumbers(image.values.data(), other.image.values.data(), image.values.size());
  }
  // What WriteVtkGrid writes: arrays of one component at the points of a grid whose corner gives the first point again.
  bool Survives() const {
    if (image.inCells) return false;
    for (int axis = 0; axis < 3; ++axis) {
      const double first = Corner(axis) + 0.5 * image.spacing[axis];
      if (!SameNumbers(&first, &image.origin[axis], 1)) return false;
    }
    for (std::size_t i = 0; i < image.arrays.size(); ++i) {
      if (components(i) != 1 || image.arrays[i].name[0] == '\0') return false;
    }
    for (std::size_t i = 0; i < image.values.size(); ++i) {
      if (std::isnan(image.values[i])) return false;
    }
    return true;
  }
};

}  // namespace
}  // namespace kestrum_fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kestrum_fuzz::TestReader<kestrum_fuzz::Vtk>(kestrum_fuzz::AsText(data, size));
  return 0;
}
