#ifndef KESTRUM_ANALYSIS_DISTANCE_LINES_HPP
#define KESTRUM_ANALYSIS_DISTANCE_LINES_HPP

#include "numeric/simd_level.hpp"

namespace kestrum {

enum class DistanceMetric { kL1, kEuclidean };

// Lines of nodes that are done side by side: value u of lane j is [u*lanes + j].
struct LineBlock {
  int n;               // nodes of a line
  double weight;       // spacing along the line; its square for the Euclidean metric
  const double* cost;  // distance from each node off the line; squared for the Euclidean metric
  double* distance;    // out; the smallest over the nodes t of cost[t] and the distance along the line to t
  long long* link;     // work, as large as the others
};

// Line kernels find that minimum in time linear in n, by the lower envelope of the functions of u
//   |u - t| * weight + cost[t]  or  (u - t)^2 * weight + cost[t]
// (Meijster, Roerdink and Hesselink, 2000, A general algorithm for computing distance transforms in linear time). Each
// lane does the same arithmetic in the same order whatever the kernel.
using LineKernel = void (*)(DistanceMetric metric, const LineBlock& block) noexcept;

// The kernel of a level for kLineLanes lines. `cost`, `distance` and `link` have to be 64-byte aligned.
constexpr int kLineLanes = 16;
LineKernel LineKernelOf(SimdLevel level) noexcept;
// One line.
void EnvelopeOfOneLine(DistanceMetric metric, const LineBlock& block) noexcept;

}  // namespace kestrum

#endif
