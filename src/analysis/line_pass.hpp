#ifndef KESTRUM_ANALYSIS_LINE_PASS_HPP
#define KESTRUM_ANALYSIS_LINE_PASS_HPP

#include <algorithm>
#include <cstddef>

#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// The lines of all variables along one axis. Lines are numbered so that `group` of them follow each other in memory,
// and the groups are `groupStep` apart.
struct LinePass {
  int n;  // nodes of a line
  std::ptrdiff_t nodeStep;
  std::ptrdiff_t nline;
  std::ptrdiff_t group;
  std::ptrdiff_t groupStep;
  double weight;       // what the work along the lines needs of the axis
  bool apart = false;  // no block of lines goes from one group to the next
};

// Deals out the lines of a pass in blocks of `lanes`, by body(thread, lines, width, forEachRun): forEachRun(visit) visits
// the nodes of a block in runs that follow each other in memory, by visit(index, place, length), of which the first lies
// at `place` of the block. `width` is `lanes`, or the multiple of kNarrowest that holds the lines if that is less.
template <int kLanes, int kNarrowest = kLanes, typename Body>
void DealLines(const LinePass& pass, std::ptrdiff_t lanes, const Dealing& dealing, const Body& body,
               const Progress& progress = Progress(nullptr, nullptr)) noexcept {
  const std::ptrdiff_t stretch = pass.apart ? pass.group : pass.nline;
  const std::ptrdiff_t perStretch = (stretch + lanes - 1) / lanes;
  const std::ptrdiff_t nblock = pass.nline / stretch * perStretch;
  dealing.EachThread([&](int thread, int team) {
    const std::ptrdiff_t end = nblock * (thread + 1) / team;
    for (std::ptrdiff_t block = nblock * thread / team; block < end && progress.GoesOn(thread == 0, block, end);
         ++block) {
      const std::ptrdiff_t within = block % perStretch * lanes;
      const std::ptrdiff_t first = block / perStretch * stretch + within;
      const std::ptrdiff_t count = std::min(lanes, stretch - within);
      const std::ptrdiff_t width = std::min(lanes, (count + kNarrowest - 1) / kNarrowest * kNarrowest);
      body(thread, count, width, [&](const auto& visit) {
        for (std::ptrdiff_t lane = 0, length = 0; lane < count; lane += length) {
          const std::ptrdiff_t place = (first + lane) % pass.group;
          const std::ptrdiff_t start = (first + lane) / pass.group * pass.groupStep + place;
          length = std::min(count - lane, pass.group - place);
          for (std::ptrdiff_t u = 0; u < pass.n; ++u) {
            // A length that the compiler knows makes the usual case faster.
            if (length == kLanes) {
              visit(start + u * pass.nodeStep, u * kLanes, std::ptrdiff_t{kLanes});
            } else {
              visit(start + u * pass.nodeStep, u * width + lane, length);
            }
          }
        }
      });
    }
  });
}

}  // namespace kestrum

#endif
