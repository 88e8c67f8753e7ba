#ifndef KESTRUM_ANALYSIS_NEAREST_IN_COLUMNS_HPP
#define KESTRUM_ANALYSIS_NEAREST_IN_COLUMNS_HPP

#include <cstddef>
#include <cstdint>

#include "analysis/distance_lines.hpp"
#include "numeric/simd_level.hpp"

namespace kestrum {

// Columns of nodes that are done side by side: value u of column j is [u*lanes + j]. An infinite cost is that of a node
// that is far from every site.
template <typename T>
struct ColumnBlock {
  std::ptrdiff_t n;      // nodes of a column
  std::ptrdiff_t lanes;  // a multiple of kColumnLanes
  double weight;         // spacing along the column; its square for the Euclidean metric
  const T* cost;         // distance from each node off the column; squared for the Euclidean metric
  T* distance;           // out; the smallest over the nodes t of cost[t] and the distance along the column to t
};
constexpr int kColumnLanes = 16;

// Finds the minimum by trying t = u - 1, u + 1, u - 2, ... until none can be nearer, which takes few steps where
// distances are short: half the time of an envelope (distance_lines.hpp) and less. Gives up, returning false, after
// kMeanTrials a node. Squares only.
constexpr int kMeanTrials = 48;
bool TryColumns(const ColumnBlock<float>& block, SimdLevel level) noexcept;
bool TryColumns(const ColumnBlock<double>& block, SimdLevel level) noexcept;

// The same for the L1 metric: the nearest site before a node is that of the node before, or the node itself; once in
// each direction.
void SweepColumns(const ColumnBlock<float>& block, SimdLevel level) noexcept;
void SweepColumns(const ColumnBlock<double>& block, SimdLevel level) noexcept;

// Makes distances of squares, if the metric is that, in units of unit1 * unit2.
void Lengths(float* values, std::ptrdiff_t n, DistanceMetric metric, float unit1, float unit2,
             SimdLevel level) noexcept;
void Lengths(double* values, std::ptrdiff_t n, DistanceMetric metric, double unit1, double unit2,
             SimdLevel level) noexcept;

// Makes negative what is not, of n <= 64 values, where bits are set, the lowest first; 0 stays 0.
void Negate(float* values, int n, std::uint64_t bits, SimdLevel level) noexcept;
void Negate(double* values, int n, std::uint64_t bits, SimdLevel level) noexcept;

// A row of a set of nodes as bits: writes the distance (`weight` as above) from each of its n nodes to the nearest one
// in the set, infinite if there is none.
void NearestInRow(const std::uint64_t* bits, std::ptrdiff_t n, DistanceMetric metric, double weight, SimdLevel level,
                  float* distance) noexcept;
void NearestInRow(const std::uint64_t* bits, std::ptrdiff_t n, DistanceMetric metric, double weight, SimdLevel level,
                  double* distance) noexcept;

}  // namespace kestrum

#endif
