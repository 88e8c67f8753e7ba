#include "analysis/geobody_runs.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <utility>

namespace kestrum {
namespace {

// Whether a place was passed since the last start, along words: in a sum, each place sends a carry on to the next start.
class PlacesSinceStart {
 public:
  // Before each bit of the word.
  [[gnu::always_inline]] std::uint64_t Before(std::uint64_t starts, std::uint64_t places) noexcept {
    const std::uint64_t through = places | ~starts;
    const std::uint64_t partial = places + through;
    const std::uint64_t sum = partial + carry_;
    carry_ = static_cast<std::uint64_t>(partial < places) | static_cast<std::uint64_t>(sum < partial);
    return sum ^ places ^ through;
  }

  // The same for a word without starts.
  [[gnu::always_inline]] void Pass(std::uint64_t places) noexcept { carry_ |= static_cast<std::uint64_t>(places != 0); }

  bool last() const noexcept { return carry_ != 0; }

 private:
  std::uint64_t carry_ = 0;
};

// Joins the geobodies of two runs. The paths to both roots are shortened on the way.
[[gnu::always_inline]] inline void Join(int* link, int a, int b) noexcept {
  while (link[a] != link[b]) {
    if (link[a] < link[b]) std::swap(a, b);
    const int next = link[a];
    link[a] = link[b];
    if (next == a) break;
    a = next;
  }
}

// Adds a run, those before which were added, to the size of its geobody, which lies in place of its first run's link with
// a minus. Returns by how much the square of the size grows.
[[gnu::always_inline]] inline std::int64_t AddToFirst(int* link, int run, std::int64_t size) noexcept {
  int& first = link[link[run]];
  const std::int64_t before = first & first >> 31;  // it is its own link before it has a size
  first = static_cast<int>(before - size);
  return size * (size - 2 * before);
}

// For eight nodes: how many runs start among them up to each, by the bits of the starts.
constexpr auto kStartsUpTo = [] {
  std::array<std::array<unsigned char, 8>, 256> table{};
  for (unsigned starts = 0; starts < 256; ++starts) {
    for (unsigned place = 0; place < 8; ++place) {
      table[starts][place] = static_cast<unsigned char>(std::popcount(starts & ((2u << place) - 1)));
    }
  }
  return table;
}();

}  // namespace
}  // namespace kestrum

#define KESTRUM_KERNEL "analysis/geobody_runs_kernel.hpp"
#define KESTRUM_KERNEL_WIDEST 32
#include "numeric/kernel_levels.hpp"

namespace kestrum {

void FindRuns(const BundledRuns& runs, BundleSlab& slab) noexcept {
  slab.nrun = KESTRUM_KERNEL_AT(BestSimdLevel(), FindStarts)(runs, slab);
}

void SetFirstRun(const BundledRuns& runs, int firstRun, BundleSlab& slab) noexcept {
  slab.firstRun = firstRun;
  for (int z = slab.beginZ; z < slab.endZ; ++z) {
    for (int y = slab.beginY; y < slab.endY; ++y) runs.first[runs.BundleAt(y, z)] += firstRun;
  }
  for (int run = firstRun; run < firstRun + slab.nrun; ++run) runs.link[run] = run;
}

void JoinRuns(const BundledRuns& runs, const BundleSlab& slab, bool across) noexcept {
  KESTRUM_KERNEL_AT(BestSimdLevel(), JoinSlab)(runs, slab, across);
}

int CountGeobodies(const BundledRuns& runs, const BundleSlab& slab) noexcept {
  int count = 0;
  for (int run = slab.firstRun; run < slab.firstRun + slab.nrun; ++run) count += runs.link[run] == run;
  return count;
}

void NumberRuns(const BundledRuns& runs, BundleSlab& slab) noexcept {
  slab.ngeobody = KESTRUM_KERNEL_AT(BestSimdLevel(), NumberSlab)(runs, slab);
}

std::int64_t SumOfSquaredSizes(const BundledRuns& runs, const BundleSlab& slab) noexcept {
  return KESTRUM_KERNEL_AT(BestSimdLevel(), SumSquares)(runs, slab);
}

void WriteLabels(const BundledRuns& runs, const BundleSlab& slab, int* labels) noexcept {
  KESTRUM_KERNEL_AT(BestSimdLevel(), WriteSlab<int>)(runs, slab, labels);
}

void WriteLabels(const BundledRuns& runs, const BundleSlab& slab, real* labels) noexcept {
  KESTRUM_KERNEL_AT(BestSimdLevel(), WriteSlab<real>)(runs, slab, labels);
}

}  // namespace kestrum
