#ifndef KESTRUM_ANALYSIS_GEOBODY_PATHS_HPP
#define KESTRUM_ANALYSIS_GEOBODY_PATHS_HPP

#include <cstdint>

#include "analysis/geobodies.hpp"
#include "core/grid.h"

namespace kestrum {

// A shortest path from a node to a start, which is left out: from each node to one of those a step nearer, drawn from the
// counter-based generator.
//   steps    of FindSteps, with the same connectivity
//   endNode  one that a way leads to
//   path     out; steps[endNode] nodes, one at least
[[nodiscard]] int PathBySteps(const VORL_GRID& grid, const int* steps, Connectivity connectivity, int endNode,
                              std::uint64_t seed, int* path) noexcept;

}  // namespace kestrum

#endif
