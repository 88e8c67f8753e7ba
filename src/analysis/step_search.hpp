#ifndef KESTRUM_ANALYSIS_STEP_SEARCH_HPP
#define KESTRUM_ANALYSIS_STEP_SEARCH_HPP

#include "analysis/node_box.hpp"
#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// The numbers of steps from the nearest of some nodes of a mask, through nodes of the mask (values other than 0 and NaN).
//   frontCapacity   entries that the tables of nodes at one distance have at first, at least 1
//   start           indices of nodes, which need not be in the mask
//   distance        out; -1 where no way leads
template <typename T>
[[nodiscard]] int FindSteps(Connectivity connectivity, const Box& box, const T* mask, int frontCapacity, int nstart,
                            const int* start, int* distance, const Dealing& dealing, const Progress& progress) noexcept;

}  // namespace kestrum

#endif
