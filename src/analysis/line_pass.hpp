#ifndef KESTRUM_ANALYSIS_LINE_PASS_HPP
#define KESTRUM_ANALYSIS_LINE_PASS_HPP

#include <algorithm>
#include <cstddef>

#include "core/parallel.hpp"

namespace kestrum {

// The lines of all variables along one axis. Lines are numbered so that `group` of them follow each other in memory,
// and the groups are `groupStep` apart.
struct LinePass {
  int n;  // nodes of a line
  std::ptrdiff_t nodeStep;
  std::ptrdiff_t nline;
  std::ptrdiff_t group;
  std::ptrdiff_t groupStep;
  double weight;  // what the work along the lines needs of the axis
};

// Deals out the lines of a pass in blocks of `lanes`, by body(thread, lines, forEachRun): forEachRun(visit) visits the
// nodes of a block in runs that follow each other in memory, by visit(index, place, length), of which the first lies at
// `place` of the block.
template <int kLanes, typename Body>
void DealLines(const LinePass& pass, std::ptrdiff_t lanes, const Dealing& dealing, const Body& body) noexcept {
  const std::ptrdiff_t nblock = (pass.nline + lanes - 1) / lanes;
  dealing.EachThread([&](int thread, int team) {
    const std::ptrdiff_t end = nblock * (thread + 1) / team * lanes;
    for (std::ptrdiff_t first = nblock * thread / team * lanes; first < end; first += lanes) {
      const std::ptrdiff_t count = std::min(lanes, pass.nline - first);
      body(thread, count, [&](const auto& visit) {
        for (std::ptrdiff_t lane = 0, length = 0; lane < count; lane += length) {
          const std::ptrdiff_t place = (first + lane) % pass.group;
          const std::ptrdiff_t start = (first + lane) / pass.group * pass.groupStep + place;
          length = std::min(count - lane, pass.group - place);
          for (std::ptrdiff_t u = 0; u < pass.n; ++u) {
            // A length that the compiler knows makes the usual case faster.
            if (length == kLanes) {
              visit(start + u * pass.nodeStep, u * kLanes, std::ptrdiff_t{kLanes});
            } else {
              visit(start + u * pass.nodeStep, u * lanes + lane, length);
            }
          }
        }
      });
    }
  });
}

}  // namespace kestrum

#endif
