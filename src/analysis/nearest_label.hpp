#ifndef KESTRUM_ANALYSIS_NEAREST_LABEL_HPP
#define KESTRUM_ANALYSIS_NEAREST_LABEL_HPP

#include "analysis/distance_lines.hpp"
#include "core/grid.h"
#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// The label nearest to each node, and its distance: in time linear in the nodes, axis by axis, by the lower envelope of the
// distances from the nodes of a line, each with the label that it has (Felzenszwalb and Huttenlocher, Distance transforms of
// sampled functions, 2012). Squares of the grid's spacings, which are above 0, times squared numbers of nodes are finite.
//   labels    0 is none
//   distance  out; infinite without any label
//   nearest   out; 0 without any label. Of labels at one distance one, whatever the threads
[[nodiscard]] int NearestLabels(const VORL_GRID& grid, const int* labels, DistanceMetric metric, const Dealing& dealing,
                                const Progress& progress, double* distance, int* nearest) noexcept;

// The distance from each labelled node to the nearest one that has another label or none: of all labels by one transform of
// the same kind, in which the lines of a pass fall into runs of one label. What lies beyond the grid does not count.
//   depth  out; 0 at nodes without a label, infinite where no node has another
[[nodiscard]] int LabelDepths(const VORL_GRID& grid, const int* labels, DistanceMetric metric, const Dealing& dealing,
                              const Progress& progress, double* depth) noexcept;

}  // namespace kestrum

#endif
