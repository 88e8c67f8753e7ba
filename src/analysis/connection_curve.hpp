#ifndef KESTRUM_ANALYSIS_CONNECTION_CURVE_HPP
#define KESTRUM_ANALYSIS_CONNECTION_CURVE_HPP

#include "analysis/geobodies.hpp"
#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

constexpr int kMaxConnectionThresholds = 65535;

// The probability that two nodes of a set, drawn independently, are in one geobody of it, for the sets of the values
// above each threshold, or of those at or below it; 1 for an empty set. NaN is in none.
//   values       nimage images on the grid, one after the other
//   n            at most kMaxConnectionThresholds
//   thresholds   not decreasing
//   probability  out; n for each image
//
// Up to 64 thresholds, which threads share: the nodes of each set are joined anew, as bits. Work memory is at most 7 bits
// a node and, for each thread, a quarter of a byte and 4 bytes for each run.
//
// Beyond, threads share the images, and one pass makes the tree of connections of all thresholds. Along x, nodes are taken together from one least value to
// the next: whatever the threshold, the nodes of such a peak above it lie side by side. A link of a peak leads to an
// earlier one, from the lowest threshold up to a level. An edge between two peaks replaces the links of lower levels on
// its way, and these are put in elsewhere (after Wilkinson, Gao, Hesselink, Jonker and Meijster, Concurrent computation
// of attribute filters on shared memory parallel machines, 2008). Then sizes are summed from the last threshold to the
// first. All sums are of whole numbers. Work memory is 3 to 15 bytes a node: a link for each peak, and a record for
// each run of nodes between the same thresholds.
template <typename T>
[[nodiscard]] int ConnectionCurves(const VORL_GRID& grid, int nimage, const T* values, Connectivity connectivity, int n,
                                   const double* thresholds, bool above, const Dealing& dealing,
                                   const Progress& progress, double* probability) noexcept;

}  // namespace kestrum

#endif
