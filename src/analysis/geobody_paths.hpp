#ifndef KESTRUM_ANALYSIS_GEOBODY_PATHS_HPP
#define KESTRUM_ANALYSIS_GEOBODY_PATHS_HPP

#include <cstdint>

#include "analysis/geobodies.hpp"
#include "core/grid.h"
#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// The numbers of steps from the nearest of some nodes of a mask, through nodes of the mask (values other than 0 and NaN).
//   start  indices of nodes
//   steps  out; -1 where no way leads
template <typename T>
[[nodiscard]] int StepsInMask(const VORL_GRID& grid, const T* mask, Connectivity connectivity, int nstart,
                              const int* start, const Dealing& dealing, const Progress& progress, int* steps) noexcept;

// A shortest path from a node to a start, which is left out: from each node to one of those a step nearer, drawn from the
// counter-based generator.
//   steps    of StepsInMask, with the same connectivity
//   endNode  one that a way leads to
//   path     out; steps[endNode] nodes, one at least
[[nodiscard]] int PathBySteps(const VORL_GRID& grid, const int* steps, Connectivity connectivity, int endNode,
                              std::uint64_t seed, int* path) noexcept;

}  // namespace kestrum

#endif
