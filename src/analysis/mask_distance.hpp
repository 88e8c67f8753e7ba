#ifndef KESTRUM_ANALYSIS_MASK_DISTANCE_HPP
#define KESTRUM_ANALYSIS_MASK_DISTANCE_HPP

#include "analysis/distance_lines.hpp"
#include "core/grid.h"
#include "core/parallel.hpp"
#include "core/progress.hpp"

namespace kestrum {

// For an image that is a part of a longer one along x: the same values come out as there if it begins at a multiple of
// 64 nodes, and ends at one or at the end.
struct BeyondRows {
  int nx;            // nodes of the longer rows
  const int* steps;  // for each row, from its first node back to the nearest true one before it, and from its last node
                     // on to the nearest one after it; 0 if there is none
};

struct MaskDistanceOptions {
  DistanceMetric metric = DistanceMetric::kEuclidean;
  // Less, at true nodes, the distance to the nearest one of those that have a face neighbour that is false.
  bool isSigned = false;
  Dealing dealing = Dealing::Serial();
  const BeyondRows* beyond = nullptr;  // not for signed maps
};

// The distance from each node to the nearest true one: a value other than 0, and NaN is neither true nor false; infinite
// if there is none, NaN at NaN. The grid's spacings are above 0. Where no values are NaN, outside a set the nearest
// node of it is one with a false neighbour, so that a signed map takes one transform. Work memory: an eighth byte a
// node, or a quarter if signed, and with NaN three eighths and a second map.
// mask: nxyz values of unsigned char, int, float or double. distance: out; nxyz values of float or double.
// Returns 0, the status of a failing allocation, or kAborted.
template <typename M, typename T>
[[nodiscard]] int MaskDistance(const VORL_GRID& grid, const M* mask, const MaskDistanceOptions& options, T* distance,
                               const Progress& progress) noexcept;

}  // namespace kestrum

#endif
