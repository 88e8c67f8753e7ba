#include "analysis/body_curves.hpp"

#include <atomic>
#include <cstddef>
#include <limits>

#include "analysis/euler_characteristic.hpp"
#include "core/buffer.hpp"

namespace kestrum {
namespace {

class BodyMeter {
 public:
  [[nodiscard]] int Allocate(const VORL_GRID& grid) noexcept {
    grid_ = &grid;
    return finder_.Allocate(grid, 0);  // its rows are read for the Euler characteristic
  }

  [[nodiscard]] int Measure(const std::int16_t* codes, const CodeRange& range, Connectivity connectivity,
                            const Progress& progress, std::int64_t* measures) noexcept {
    finder_.Mark(codes, range);
    const int count = finder_.Connect(connectivity, progress.Silent());
    if (progress.Aborted()) return kAborted;
    const std::size_t room = static_cast<std::size_t>(count) + 1;
    if (tables_.size() < 7 * room) {
      if (const int status = tables_.Allocate(7 * room); status != 0) return status;
    }
    GeobodyBoxes boxes = GeobodyBoxes::In(tables_.data(), static_cast<std::ptrdiff_t>(room));
    const LargestBodies largest = FindLargest(finder_, count, *grid_, boxes);
    measures[0] = count;
    measures[1] = largest.size;
    for (int axis = 0; axis < 3; ++axis) measures[4 - axis] = largest.extent[axis];
    measures[5] = EulerCharacteristic(finder_, connectivity != Connectivity::k6, Dealing::Serial());
    return 0;
  }

 private:
  const VORL_GRID* grid_ = nullptr;
  GeobodyFinder finder_;
  Buffer<int> tables_;
};

}  // namespace

int BodyCurves(const VORL_GRID& grid, int nimage, const std::int16_t* codes, int n, bool above,
               Connectivity connectivity, const Dealing& dealing, const Progress& progress,
               std::int64_t* measures) noexcept {
  std::atomic<int> failure{0};
  const std::ptrdiff_t nset = std::ptrdiff_t{nimage} * n;
  std::atomic<std::ptrdiff_t> next{0};
  dealing.EachThread([&](int thread, int) noexcept {
    BodyMeter meter;
    int status = meter.Allocate(grid);
    for (std::ptrdiff_t set; status == 0 && (set = next.fetch_add(1)) < nset;) {
      if (!progress.GoesOn(thread == 0, set, nset)) return;
      const std::int16_t k = static_cast<std::int16_t>(set % n);
      const CodeRange range =
          above ? CodeRange{static_cast<std::int16_t>(k + 1), std::numeric_limits<std::int16_t>::max()}
                : CodeRange{0, k};
      status =
          meter.Measure(codes + set / n * grid.nxyz, range, connectivity, progress, measures + set * kBodyMeasures);
    }
    if (status != 0) failure = status;
  });
  return progress.After(failure);
}

}  // namespace kestrum
