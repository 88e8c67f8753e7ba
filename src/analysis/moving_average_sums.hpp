#ifndef KESTRUM_ANALYSIS_MOVING_AVERAGE_SUMS_HPP
#define KESTRUM_ANALYSIS_MOVING_AVERAGE_SUMS_HPP

#include <cstddef>

#include "numeric/simd_level.hpp"

namespace kestrum {

// Nodes that follow each other along x, whose sums are formed side by side. Each sum has its terms in the order of the
// list or of the box, so no result depends on the instruction set.
constexpr int kSumLanes = 16;
// Rows of nodes that a box kernel sums side by side: a value once loaded serves as many sums.
constexpr int kBoxRows = 4;

// The terms of a sum: weight[k] times the value at offset[k] from the node of the first lane.
struct TermList {
  const std::ptrdiff_t* offset;
  const double* weight;
  std::ptrdiff_t size;
};

// The entries of a box, weights in the order z, y, x.
struct BoxTerms {
  int lengthX;
  int lengthY;
  int lengthZ;
  std::ptrdiff_t rowStride;
  std::ptrdiff_t sectionStride;
  const double* weight;
  bool equalWeights;
};

// Sums over the values that are not missing, the sums of their weights, and the number of the others.
struct InformedSums {
  double sum[kSumLanes];
  double weight[kSumLanes];
  long long missing[kSumLanes];
};

// The kernels of a level. All lanes of all terms are read.
struct SumKernels {
  // The sums of a list in which no value is missing.
  void (*sumList)(const double* at, const TermList& terms, double* sums);
  // The sums of a list in which values may be missing.
  void (*sumInformed)(const double* at, const TermList& terms, InformedSums* sums);
  // The sums of kBoxRows rows of boxes in which no value is missing, kSumLanes sums each, to rows of sums `stride`
  // apart; `corner` is the first value of the first box. The box is at least kBoxRows long along y.
  void (*sumBoxRows)(const double* corner, const BoxTerms& terms, double* sums, std::ptrdiff_t stride);
};

const SumKernels& SumKernelsOf(SimdLevel level) noexcept;

}  // namespace kestrum

#endif
